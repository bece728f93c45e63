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

/// DeviceIdentity tells by its MAC address whether a GigE Vision device is one of the maker's own.
/// The kit then uses what such devices can do beyond the standard.
///
/// A process has one table. It is empty until the application adds addresses, or the three-byte
/// prefixes under which a maker has its addresses. An address may be a device engine, a
/// transmitter, both or neither. All operations are safe from any thread, also from exit handlers,
/// and none blocks for longer than an access to the table.
class WDUTILSLIB_API DeviceIdentity
{
public:
    DeviceIdentity() = delete;

    /// The maker's kinds of devices.
    enum class Product
    {
        DEVICE,     ///< a device engine
        TRANSMITTER ///< a video transmitter
    };

    /// The first three bytes of an address, in the order in which they are written and sent.
    using Prefix = std::array<uint8_t, 3>;

    /// Add registers one address, or every address with a prefix, as that product. Earlier entries
    /// stay. It throws `std::bad_alloc` where memory is missing; the table is then unchanged.
    ///@{
    static void Add( Product aProduct, const EthernetAddress& aAddress );
    static void Add( Product aProduct, const Prefix& aPrefix );
    ///@}

    /// The same from a text: an address such as "00:11:1C:0A:0B:0C" or a prefix such as "00:11:1C",
    /// as EthernetAddress::Set reads them. It returns false for any other text and for null; the
    /// table is then unchanged.
    [[nodiscard]] static bool Add( Product aProduct, const char* aText );

    /// Clear empties the table. A record made before keeps the answers that it got.
    static void Clear();

    static bool IsCorvaneDevice( const EthernetAddress& aAddress );      ///< a device engine
    static bool IsCorvaneTransmitter( const EthernetAddress& aAddress ); ///< a transmitter
};

} // namespace Network
} // namespace WdUtilsLib
