#include "Simulators/GEV/CommandGEV.h"

#include <PacketBytes/ByteWriter.h>

#include <utility>

namespace Simulators
{

using PacketBytes::BigReader;
using PacketBytes::BigWriter;

namespace
{

// An acknowledge: status, code, length and identifier in two bytes each, and its payload.
Bytes MakeDatagram( uint16_t aStatus, uint16_t aCode, uint16_t aIdentifier, const Bytes& aPayload )
{
    Bytes lDatagram( CommandGEV::HEADER_SIZE + aPayload.size() );
    BigWriter lWriter( lDatagram.data(), lDatagram.size() );
    lWriter.Put16( aStatus );
    lWriter.Put16( aCode );
    lWriter.Put16( static_cast<uint16_t>( aPayload.size() ) ); // 540 at most
    lWriter.Put16( aIdentifier );
    lWriter.PutBytes( aPayload.data(), aPayload.size() );
    return lDatagram;
}

// One span of a word for each address, with aSkip bytes behind each address left out.
std::vector<SpanGEV> GetWords( BigReader aAddresses, size_t aSkip )
{
    std::vector<SpanGEV> lSpans;
    while ( aAddresses.GetLeft() >= 4 + aSkip )
    {
        lSpans.push_back( { aAddresses.Get32(), 4 } );
        aAddresses.Skip( aSkip );
    }
    return lSpans;
}

} // namespace

bool CommandGEV::IsQuestion() const
{
    return mCode == Command::DISCOVERY || mCode == Command::READREG || mCode == Command::READMEM;
}

bool CommandGEV::IsWrite() const
{
    return mCode == Command::WRITEREG || mCode == Command::WRITEMEM;
}

std::vector<SpanGEV> CommandGEV::GetSpans() const
{
    BigReader lPayload = ReadPayload();
    switch ( mCode )
    {
    case Command::DISCOVERY:
        return { { 0, 4 } };
    case Command::READREG:
        return GetWords( lPayload, 0 );
    case Command::WRITEREG:
        return GetWords( lPayload, 4 ); // the value
    case Command::READMEM:
    {
        const uint32_t lAddress = lPayload.Get32();
        lPayload.Skip( 2 ); // reserved
        return { { lAddress, lPayload.Get16() } };
    }
    case Command::WRITEMEM:
    {
        const uint32_t lAddress = lPayload.Get32();
        return { { lAddress, lPayload.GetLeft() } };
    }
    default:
        return {};
    }
}

std::optional<CommandGEV> ParseCommandGEV( const Endpoint& aFrom, int64_t aNowMs, Bytes aDatagram )
{
    CommandGEV lCommand;
    BigReader lReader( aDatagram.data(), aDatagram.size() );
    lCommand.mFrom = aFrom;
    lCommand.mNowMs = aNowMs;
    lCommand.mKey = lReader.Get8();
    lCommand.mFlags = lReader.Get8();
    lCommand.mCode = lReader.Get16();
    lCommand.mLength = lReader.Get16();
    lCommand.mIdentifier = lReader.Get16();
    lCommand.mDatagram = std::move( aDatagram );
    return lReader.IsWhole() ? std::make_optional( std::move( lCommand ) ) : std::nullopt;
}

Bytes MakeIndex( size_t aIndex )
{
    Bytes lPayload( 4 );
    BigWriter lWriter( lPayload.data(), lPayload.size() );
    lWriter.Put16( 0 );                               // reserved
    lWriter.Put16( static_cast<uint16_t>( aIndex ) ); // 536 at most
    return lPayload;
}

ReplyGEV MakeRefusal( const CommandGEV& aCommand, uint16_t aStatus )
{
    return { aStatus, aCommand.IsWrite() ? MakeIndex( 0 ) : Bytes() };
}

Bytes MakeAcknowledge( const CommandGEV& aCommand, const ReplyGEV& aReply )
{
    return MakeDatagram( aReply.mStatus, static_cast<uint16_t>( aCommand.mCode + 1 ),
                         aCommand.mIdentifier, aReply.mPayload );
}

Bytes MakePendingAcknowledge( const CommandGEV& aCommand, uint16_t aAnnouncedMs )
{
    Bytes lPayload( 4 );
    BigWriter lWriter( lPayload.data(), lPayload.size() );
    lWriter.Put16( 0 ); // reserved
    lWriter.Put16( aAnnouncedMs );
    return MakeDatagram( Status::SUCCESS, Command::PENDING_ACK, aCommand.mIdentifier, lPayload );
}

} // namespace Simulators
