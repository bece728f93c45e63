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

/// BaseCommandLink is the abstract control channel to one device: it reads and writes the device's
/// registers and memory over any transport.
///
/// The order of the virtual operations is part of the contract. The destructor is the first, and
/// each transport adds its own behind the last one here. Each transport states which calls may run
/// at the same moment.
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

    /// ReadMemory reads aSize bytes from the device's address aAddress into aData. On success it
    /// calls ReadCallback before it returns.
    virtual QmUtilsLib::Result ReadMemory( void* aData, long long aAddress, long long aSize ) = 0;

    /// WriteMemory writes aSize bytes at aData to the device's address aAddress. The transport
    /// states what aNoAck does. On success WriteMemory calls WriteCallback before it returns.
    virtual QmUtilsLib::Result WriteMemory( const void* aData, long long aAddress, long long aSize,
                                            bool aNoAck ) = 0;

    /// Close releases what the link owns.
    virtual QmUtilsLib::Result Close() = 0;

    /// IsConnected tells whether the link can carry a request. The transport states what that
    /// means.
    virtual bool IsConnected() const = 0;

    /// The connection-lost flag belongs to the link's owner, who sets it when the device is gone,
    /// and clears it. No link sets it or acts on it. It is a plain bool: two threads that use it
    /// need the caller's lock.
    ///@{
    void SetConnectionLost() { mConnectionLost = true; }
    void ResetConnectionLost() { mConnectionLost = false; }
    bool GetConnectionLost() const { return mConnectionLost; }
    ///@}

protected:
    /// GetLibLogger returns the logger for failures of whole operations. It is not null, and the
    /// link owns it.
    virtual QmUtilsLib::Logger* GetLibLogger() = 0;

    /// GetLinkLogger returns the logger for events of the link: retries, time-outs, stray answers.
    /// It is not null, the link owns it, and it may be the same as that of GetLibLogger.
    virtual QmUtilsLib::Logger* GetLinkLogger() = 0;

    /// ReadCallback and WriteCallback are called after each transfer that succeeded, with the
    /// caller's buffer, the device's address and the number of bytes. They run on the caller's
    /// thread and may use the link. An exception that they throw does not undo the transfer:
    /// `std::bad_alloc` makes the operation's result GENERIC_ERROR with ENOMEM as OS code, any
    /// other exception passes to the caller.
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
