/// @file
/// WdUtilsLib: which devices are the maker's own.
#pragma once

#include <WdUtilsLib/Export.h>
#include <WdUtilsLib/Network/EthernetAddress.h>

#include <array>
#include <cstdint>

namespace WdUtilsLib
{
namespace Network
{

/// DeviceIdentity tells by its MAC address whether a GigE Vision device is one of the maker's own,
/// so that the kit can use what those can do beyond the standard.
///
/// A process has one table. It knows nobody until the application fills it, address by address or
/// by the three-byte prefix that a maker has its addresses under. Being a device engine and being a
/// transmitter are independent of each other; an address may be both. All operations are safe from
/// any thread, exit handlers included; none does more than look at the table, so none blocks.
class WDUTILSLIB_API DeviceIdentity
{
public:
    DeviceIdentity() = delete;

    /// What a device is to the kit.
    enum class Product
    {
        DEVICE,     ///< one of the maker's device engines
        TRANSMITTER ///< one of the maker's video transmitters
    };

    /// The first three bytes of an address, in the order in which they are written and sent.
    using Prefix = std::array<uint8_t, 3>;

    /// Add makes one address, or every address under a prefix, known as that product. What is known
    /// already stays so. Throws std::bad_alloc, with the table unchanged, where memory is missing.
    ///@{
    static void Add( Product aProduct, const EthernetAddress& aAddress );
    static void Add( Product aProduct, const Prefix& aPrefix );
    ///@}

    /// Add from a text: an address such as "00:11:1C:0A:0B:0C", or a prefix such as "00:11:1C", as
    /// EthernetAddress::Set reads them. False for any other text, null included; the table is then
    /// unchanged.
    [[nodiscard]] static bool Add( Product aProduct, const char* aText );

    /// Clear makes the table know nobody again. Records made before keep what they were told.
    static void Clear();

    /// Whether the table knows the address as a device engine, as a transmitter.
    ///@{
    static bool IsCorvaneDevice( const EthernetAddress& aAddress );
    static bool IsCorvaneTransmitter( const EthernetAddress& aAddress );
    ///@}
};

} // namespace Network
} // namespace WdUtilsLib
