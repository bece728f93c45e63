/// @file
/// WdUtilsLib: GVCP DISCOVERY.
#pragma once

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>
#include <WdUtilsLib/GEV/CommandHeader.h>
#include <WdUtilsLib/Network/EthernetAddress.h>
#include <WdUtilsLib/Network/IpAddress.h>

#include <string>

namespace WdUtilsLib
{
namespace GEV
{

/// DiscoveryCommand (DISCOVERY) asks a device to identify itself, or every device when it is
/// broadcast. It has no payload.
class WDUTILSLIB_API DiscoveryCommand : public CommandHeader
{
public:
    static constexpr unsigned short COMMAND = 0x0002; ///< the command code

    /// A command with acknowledge required that does not allow an answer by broadcast.
    DiscoveryCommand();

    /// InitFlagAllowBroadcastAcknowledge sets or clears flag 0x10: the device may answer by
    /// broadcast. That serves devices whose address does not fit their network.
    void InitFlagAllowBroadcastAcknowledge( bool aAllow );
};

/// DiscoveryAcknowledge (DISCOVERY_ACK) carries the bootstrap registers 0x0000 to 0x00F7, 248
/// bytes. A text ends at its first zero byte or at the end of its field, and may hold any bytes.
class WDUTILSLIB_API DiscoveryAcknowledge : public AcknowledgeHeader
{
public:
    static constexpr std::size_t PAYLOAD_SIZE = 248; ///< bytes behind the header

    /// A view of the aSize bytes at aBuffer.
    DiscoveryAcknowledge( const void* aBuffer, std::size_t aSize );

    /// IsComplete tells whether the payload is whole. Where it is not, every value below is 0 or
    /// empty.
    bool IsComplete() const;

    /// A bootstrap register. A text throws `std::bad_alloc` where memory is missing.
    ///@{
    unsigned short GetVersionMajor() const;         ///< 0x0000
    unsigned short GetVersionMinor() const;         ///< 0x0002
    Network::EthernetAddress GetMacAddress() const; ///< 0x0008, 0x000C
    Network::IpAddress GetIpAddress() const;        ///< 0x0024
    Network::IpAddress GetSubnetMask() const;       ///< 0x0034
    Network::IpAddress GetDefaultGateway() const;   ///< 0x0044
    std::string GetManufacturerName() const;        ///< 0x0048, 32 bytes
    std::string GetModelName() const;               ///< 0x0068, 32 bytes
    std::string GetDeviceVersion() const;           ///< 0x0088, 32 bytes
    std::string GetManufacturerInformation() const; ///< 0x00A8, 48 bytes
    std::string GetSerialNumber() const;            ///< 0x00D8, 16 bytes
    std::string GetUserDefinedName() const;         ///< 0x00E8, 16 bytes
    ///@}

private:
    // The bootstrap block at an offset; zero, or empty, unless it is whole.
    uint32_t GetRegister( std::size_t aOffset ) const;
    std::string GetText( std::size_t aOffset, std::size_t aSize ) const;
};

} // namespace GEV
} // namespace WdUtilsLib
