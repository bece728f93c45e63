#include "Simulators/U3V/CommandU3V.h"

#include <PacketBytes/ByteWriter.h>

#include <utility>

namespace Simulators
{

using PacketBytes::LittleReader;
using PacketBytes::LittleWriter;

std::optional<CommandU3V> ParseCommandU3V( Bytes aTransfer, int64_t aNowMs )
{
    CommandU3V lCommand;
    LittleReader lReader( aTransfer.data(), aTransfer.size() );
    const bool lIsGenCP = lReader.Get32() == CommandU3V::PREFIX;
    lCommand.mFlags = lReader.Get16();
    lCommand.mCode = lReader.Get16();
    lCommand.mLength = lReader.Get16();
    lCommand.mIdentifier = lReader.Get16();
    lCommand.mNowMs = aNowMs;
    lCommand.mTransfer = std::move( aTransfer );
    return lIsGenCP && lReader.IsWhole() ? std::make_optional( std::move( lCommand ) )
                                         : std::nullopt;
}

Bytes MakeAcknowledge( uint16_t aCode, uint16_t aIdentifier, const ReplyU3V& aReply )
{
    Bytes lTransfer( CommandU3V::HEADER_SIZE + aReply.mData.size() );
    LittleWriter lWriter( lTransfer.data(), lTransfer.size() );
    lWriter.Put32( CommandU3V::PREFIX );
    lWriter.Put16( aReply.mStatus );
    lWriter.Put16( aCode );
    lWriter.Put16(
        static_cast<uint16_t>( aReply.mData.size() ) ); // as many as a count of 16 bits asks for
    lWriter.Put16( aIdentifier );
    lWriter.PutBytes( aReply.mData.data(), aReply.mData.size() );
    return lTransfer;
}

Bytes MakePendingAcknowledge( uint16_t aIdentifier, uint16_t aTimeoutMs )
{
    ReplyU3V lReply;
    lReply.mData.resize( 4 );
    LittleWriter lWriter( lReply.mData.data(), lReply.mData.size() );
    lWriter.Put16( 0 ); // reserved
    lWriter.Put16( aTimeoutMs );
    return MakeAcknowledge( CommandCodeU3V::PENDING_ACK, aIdentifier, lReply );
}

uint16_t GetAcknowledgeCode( const CommandU3V& aCommand )
{
    return static_cast<uint16_t>( aCommand.mCode | 1 );
}

} // namespace Simulators
