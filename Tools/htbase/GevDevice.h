// A GigE Vision device as the commands use it.
#pragma once

#include "Tools/htbase/Device.h"
#include "Tools/htbase/Host.h"
#include "Tools/htbase/ToolLinkGEV.h"

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Network/EthernetAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace HtBaseLib
{
class CapabilitiesGEV;
}

namespace HtBaseTool
{

// GevDevice is one socket and one link to one device. An interruption ends a running transfer at
// once, and every one after it; control is still released. Its name is like
// "192.168.0.5:3956".
class GevDevice : public Device
{
public:
    static constexpr uint32_t CONTROL_PRIVILEGE = 0x0A00;

    // Opens a socket that is connected to the device; nothing is sent. Throws a failure when that
    // is not possible. The interruption must outlive the object.
    GevDevice( Interruption& aInterruption, const HostPort& aHost, const LinkOptions& aOptions );
    ~GevDevice() override;

    // Reads Device MAC Address High and Low. Throws a Failure.
    WdUtilsLib::Network::EthernetAddress ReadMacAddress();

    // Fills a capability record.
    QmUtilsLib::Result Read( HtBaseLib::CapabilitiesGEV& aRecord );

    QmUtilsLib::Result ReadRegister( uint64_t aAddress, uint32_t& aValue ) override;
    QmUtilsLib::Result WriteRegister( uint64_t aAddress, uint32_t aValue, bool aNoAck );

    // At most 536 bytes. A piece that timed out is repeated, up to five times, and counted.
    QmUtilsLib::Result ReadPiece( void* aData, uint64_t aAddress, uint32_t aSize ) override;
    QmUtilsLib::Result WritePiece( const void* aData, uint64_t aAddress, uint32_t aSize ) override;

    // Ends a running transfer at once, and every one after it, with NOT_CONNECTED; control is still
    // released. From any thread.
    void Abort();

    // What the link counts. From any thread.
    const ToolLinkGEV& GetLink() const { return mLink; }

    nlohmann::ordered_json GetStatistics() const override;
    std::string GetStatisticsText() const override;

protected:
    std::string GetAdvice( const QmUtilsLib::Result& aResult ) const override;

private:
    friend class ControlScope;

    // The state of control of the device, as far as it is known.
    enum class Control
    {
        NONE,
        UNCERTAIN, // requested, without an answer
        HELD
    };

    QmUtilsLib::Result Repeat( const std::function<QmUtilsLib::Result()>& aTransfer );
    QmUtilsLib::Result Write( const std::function<QmUtilsLib::Result()>& aTransfer );
    QmUtilsLib::Result TakeControl();
    QmUtilsLib::Result ReleaseControl();
    QmUtilsLib::Result OpenSocket( const WdUtilsLib::Network::IpAddress* aAddress,
                                   unsigned short aPort );
    QmUtilsLib::Result EnterCleanUp();

    const HostPort mHost;
    WdUtilsLib::Network::SocketUDP mSocket;
    ToolLinkGEV mLink;
    WdUtilsLib::Network::IpAddress mLocalAddress;
    unsigned short mLocalPort = 0;
    Control mControl = Control::NONE;
    long long mRepeats = 0;
    long long mRenewals = 0;

    QmUtilsLib::Mutex mMutex; // opening and closing the socket exclude each other
    bool mIsCleanUp QMUTILSLIB_GUARDED_BY( mMutex ) = false;
};

// ControlScope takes control of a device and gives it back, whatever happens in between. A device
// takes writes only from the address and port that hold its control.
//
// Each command that the device receives prolongs the control. If control expires because a transfer
// takes longer than the device's Heartbeat Timeout, it is taken again and the refused write is
// repeated.
class ControlScope
{
public:
    // Throws a failure when the device does not give it; aMore is added to the reason, as in
    // GevDevice::MakeFailure. Without aIsWanted nothing is done at all.
    ControlScope( GevDevice& aDevice, bool aIsWanted, const std::string& aMore );
    ~ControlScope(); // releases control, and reports a failure on standard error

    ControlScope( const ControlScope& ) = delete;
    ControlScope& operator=( const ControlScope& ) = delete;

    // Releases control now. Throws a failure if the device refuses; aDone says what has been done
    // before ("the registers are written").
    void Release( const std::string& aDone );

private:
    GevDevice& mDevice;
    bool mIsActive;
};

} // namespace HtBaseTool
