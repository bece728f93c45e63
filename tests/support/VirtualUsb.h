// A virtual USB bus for tests, with virtual USB3 Vision devices on it.
#pragma once

#include "Simulators/U3V/VirtualDeviceU3V.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TestSupport
{

// RunInVirtualUsb starts this program again, with the same arguments, in such a way that this
// process and those that it starts see virtual USB buses in place of the system's. Returns when
// that is so already. To be called first of all in main. Ends the process where it is not possible.
void RunInVirtualUsb( char** aArguments );

class VirtualUsbDevice;

// VirtualUsbBus is USB bus 1 of this process and of those that it starts, from its construction to
// its destruction; one at a time. Until something is plugged in it has a root hub alone. Devices
// answer on a thread of their own.
class VirtualUsbBus
{
public:
    VirtualUsbBus();
    ~VirtualUsbBus();

    VirtualUsbBus( const VirtualUsbBus& ) = delete;
    VirtualUsbBus& operator=( const VirtualUsbBus& ) = delete;

    // Plugs a device in at a port of the root hub. It gets the next address. aInterface holds the
    // descriptors of an interface that it has in front of its own, or nothing.
    std::shared_ptr<VirtualUsbDevice> Plug( const Simulators::ConfigurationU3V& aConfiguration,
                                            unsigned int aPort,
                                            const Simulators::Bytes& aInterface = {} );

    // Plugs a device in at a port of a hub at a port of the root hub.
    std::shared_ptr<VirtualUsbDevice>
    PlugBehindHub( const Simulators::ConfigurationU3V& aConfiguration, unsigned int aHubPort,
                   unsigned int aPort );

    // Unplugs the device: running transfers fail, and it is not listed any more.
    void Unplug( const std::shared_ptr<VirtualUsbDevice>& aDevice );

private:
    class Implementation;
    std::unique_ptr<Implementation> mThis;
};

// VirtualUsbDevice is a device on a VirtualUsbBus, which it must not outlive in use. Safe from any
// thread.
class VirtualUsbDevice
{
public:
    // A bulk transfer of the control interface that has taken place.
    struct Transfer
    {
        uint8_t mEndpoint = 0;
        Simulators::Bytes mBytes;
        unsigned int mRoom = 0; // of an IN transfer, as the host asked for it
    };

    // How the device answers when it is asked for the text of its identity.
    enum class Identity
    {
        TOLD,
        STALLED,
        SILENT,
        MALFORMED // no string descriptor
    };

    ~VirtualUsbDevice();

    VirtualUsbDevice( const VirtualUsbDevice& ) = delete;
    VirtualUsbDevice& operator=( const VirtualUsbDevice& ) = delete;

    // "1-2", "1-2.3": as the system names it.
    const std::string& GetPath() const;

    // The device node, for its access rights.
    const std::string& GetNode() const;

    // Runs aUse on the simulated device while no other thread uses it.
    void Use( const std::function<void( Simulators::VirtualDeviceU3V& )>& aUse );
    void Inject( const Simulators::FaultU3V& aFault );

    // From now on; TOLD at first.
    void SetIdentity( Identity aIdentity );

    // The next request of a host of that kind fails, with that errno value.
    enum class Request
    {
        TRANSFER,   // that a bulk transfer begins
        FETCH,      // a bulk transfer from the device, which has begun
        CLEAR_HALT, // of an endpoint
        COUNT
    };
    void FailNext( Request aRequest, int aErrno );

    // The next bulk transfer to the device ends by itself behind that many bytes. The device gets
    // all of it.
    void CutCommand( unsigned int aSize );

    // From now on what the device sends does not end a bulk transfer that has more room, as where
    // it sends whole packets and none behind them.
    void LeaveTransfersOpen();

    // The device was unplugged and plugged in again, and has the same address: hosts that have
    // opened it find it removed, and others find a new one.
    void Replug();

    // From now on a host that gives the control interface back waits, until LetReleasesGo.
    void HoldReleases();
    void LetReleasesGo();

    // Waits until a host waits for that; false after 10 s.
    bool WaitForRelease() const;

    // A kernel driver holds the control interface, or not.
    void BindDriver();
    bool IsDriverBound() const;

    // Hosts that have claimed the control interface now, and how often a halted endpoint was
    // cleared.
    unsigned int GetClaims() const;
    unsigned int GetClears() const;

    // Waits until a host waits for an IN transfer of the control interface; false after 10 s.
    bool WaitForReader() const;

    // IN transfers that hosts wait for now.
    unsigned int GetReaders() const;

    std::vector<Transfer> GetTransfers() const;

private:
    friend class VirtualUsbBus;
    class Implementation;
    explicit VirtualUsbDevice( std::unique_ptr<Implementation> aThis );
    std::unique_ptr<Implementation> mThis;
};

// Writes bulk transfers into a capture file that dissectors read (usbmon, link type 220).
bool WriteUsbCapture( const std::string& aPath,
                      const std::vector<VirtualUsbDevice::Transfer>& aTransfers );

} // namespace TestSupport
