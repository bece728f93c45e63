// Commands to a control interface, and the places for their acknowledges.
#pragma once

#include "tests/support/LittleEndian.h"
#include "tests/support/Packets.h"

#include <WdTransportLayerLib/U3V/DeviceControlInterface.h>

#include <cstddef>
#include <cstdint>

namespace TestSupport
{

// One command and the place for its acknowledge, with guard bytes behind the room that is offered.
class UsbTalk
{
public:
    static constexpr uint8_t GUARD = 0xA5;
    static constexpr size_t GUARD_SIZE = 64;

    UsbTalk( const Bytes& aCommand, uint32_t aRoom )
        : mCommand( aCommand )
        , mAck( aRoom + GUARD_SIZE, GUARD )
        , mRoom( aRoom )
    {
    }

    WdTransportLayerLib::U3V::DCI_COMMAND MakeRecord()
    {
        WdTransportLayerLib::U3V::DCI_COMMAND lRecord;
        lRecord.mCommand = mCommand.data();
        lRecord.mCommandLength = static_cast<uint32_t>( mCommand.size() );
        lRecord.mAck = mAck.data();
        lRecord.mAckLength = mRoom;
        return lRecord;
    }

    // Sends the command alone. GetAck and GetCommandResult then return the outcome.
    QmUtilsLib::Result Send( WdTransportLayerLib::U3V::DeviceControlInterface& aInterface )
    {
        WdTransportLayerLib::U3V::DCI_COMMAND lRecord = MakeRecord();
        const QmUtilsLib::Result lResult = aInterface.SendCommands( &lRecord, 1 );
        Take( lRecord );
        return lResult;
    }

    void Take( const WdTransportLayerLib::U3V::DCI_COMMAND& aRecord )
    {
        mReceived = aRecord.mAckLength;
        mResult = aRecord.mResult;
    }

    const Bytes& GetCommand() const { return mCommand; }
    const QmUtilsLib::Result& GetCommandResult() const { return mResult; }
    uint32_t GetReceived() const { return mReceived; }

    Bytes GetAck() const
    {
        return Bytes( mAck.begin(), mAck.begin() + static_cast<std::ptrdiff_t>( mReceived ) );
    }
    Bytes GetData() const
    {
        const Bytes lAck = GetAck();
        return lAck.size() < 12 ? Bytes() : Bytes( lAck.begin() + 12, lAck.end() );
    }
    uint64_t GetStatus() const { return FromLittle( GetAck(), 4, 2 ); }
    uint64_t GetIdentifier() const { return FromLittle( GetAck(), 10, 2 ); }

    // Whether nothing was stored after the first aSize bytes.
    bool IsUntouchedBehind( size_t aSize ) const
    {
        for ( size_t i = aSize; i < mAck.size(); ++i )
        {
            if ( mAck[i] != GUARD )
            {
                return false;
            }
        }
        return true;
    }

private:
    Bytes mCommand;
    Bytes mAck;
    uint32_t mRoom;
    uint32_t mReceived = 0;
    QmUtilsLib::Result mResult;
};

} // namespace TestSupport
