/// @file
/// HtBase: the control channel to one device.
#pragma once

#include <HtExport.h>
#include <QmUtilsLib/Result.h>

namespace QmUtilsLib
{
class Logger;
}

namespace HtBaseLib
{

/// BaseCommandLink is the abstract control channel to one device: whoever reads or writes a
/// device's registers and memory does it through this interface, whatever the transport.
///
/// The order of the virtual operations is part of the contract: each has its place in the table of
/// virtual operations, the destructor first, and the transports add theirs behind the last.
/// Serialising requests is the transport's business.
class HTBASE_API BaseCommandLink
{
public:
    BaseCommandLink() = default;

    /// A copy takes over the connection-lost flag.
    ///@{
    BaseCommandLink( const BaseCommandLink& ) = default;
    BaseCommandLink& operator=( const BaseCommandLink& ) = default;
    ///@}

    virtual ~BaseCommandLink() = default;

    /// ReadMemory fills aSize bytes at aData from the device's address aAddress. On success it
    /// calls ReadCallback before it returns; on failure aData is unchanged.
    virtual QmUtilsLib::Result ReadMemory( void* aData, long long aAddress, long long aSize ) = 0;

    /// WriteMemory writes aSize bytes at aData to the device's address aAddress. What aNoAck does
    /// is the transport's. On success it calls WriteCallback before it returns.
    virtual QmUtilsLib::Result WriteMemory( const void* aData, long long aAddress, long long aSize,
                                            bool aNoAck ) = 0;

    /// Close releases what the link owns.
    virtual QmUtilsLib::Result Close() = 0;

    /// IsConnected tells whether the link can carry a request; what that means is the transport's.
    virtual bool IsConnected() const = 0;

    /// The connection-lost flag: the link's owner raises it when it has concluded that the device
    /// is gone, and clears it. Links neither set nor obey it. It is a plain bool: its owner sees to
    /// it that no two threads use it at the same moment.
    ///@{
    void SetConnectionLost() { mConnectionLost = true; }
    void ResetConnectionLost() { mConnectionLost = false; }
    bool GetConnectionLost() const { return mConnectionLost; }
    ///@}

protected:
    /// The logger for failures of whole operations, and the one for events of the link: retries,
    /// time-outs, stray answers. Never null; may be the same. The link owns them.
    ///@{
    virtual QmUtilsLib::Logger* GetLibLogger() = 0;
    virtual QmUtilsLib::Logger* GetLinkLogger() = 0;
    ///@}

    /// ReadCallback and WriteCallback observe every transfer that succeeded, after it: the caller's
    /// own buffer, the device's address and the count of bytes. They are called on the caller's
    /// thread and may use the link. The transfer stands whatever they throw: std::bad_alloc makes
    /// the result of the operation GENERIC_ERROR with ENOMEM as OS code, anything else passes to
    /// the caller.
    ///@{
    virtual void ReadCallback( const void* /*aData*/, long long /*aAddress*/, long long /*aSize*/ )
    {
    }
    virtual void WriteCallback( const void* /*aData*/, long long /*aAddress*/, long long /*aSize*/ )
    {
    }
    ///@}

private:
    bool mConnectionLost = false;
};

} // namespace HtBaseLib
