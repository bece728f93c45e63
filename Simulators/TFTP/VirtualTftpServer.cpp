#include "Simulators/TFTP/VirtualTftpServer.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <utility>

namespace Simulators
{

VirtualTftpServer::VirtualTftpServer()
    : VirtualTftpServer( Configuration() )
{
}

VirtualTftpServer::VirtualTftpServer( const Configuration& aConfiguration )
    : mConfiguration( aConfiguration )
    , mSessions( aConfiguration.mFirstTransferPort, aConfiguration.mTransferPorts )
{
}

void VirtualTftpServer::Disturb( const Disturbance& aDisturbance )
{
    mDisturbances.push_back( aDisturbance );
}

void VirtualTftpServer::SetFile( const std::string& aName, const Bytes& aContent )
{
    mFiles[aName] = std::make_shared<const Bytes>( aContent );
}

const Bytes* VirtualTftpServer::FindFile( const std::string& aName ) const
{
    const auto lFile = mFiles.find( aName );
    return lFile == mFiles.end() ? nullptr : lFile->second.get();
}

std::vector<std::string> VirtualTftpServer::GetFileNames() const
{
    std::vector<std::string> lNames;
    for ( const auto& lFile : mFiles )
    {
        lNames.push_back( lFile.first );
    }
    return lNames;
}

std::vector<Outgoing> VirtualTftpServer::Receive( const Endpoint& aFrom, uint16_t aToPort,
                                                  const uint8_t* aData, size_t aSize,
                                                  int64_t aNowMs )
{
    ++mCounters.mReceived;
    mSessions.RemoveSilent( aNowMs, mConfiguration.mSessionTimeoutMs );
    const std::optional<PacketTFTP> lPacket =
        ParsePacketTFTP( aFrom, aToPort, Bytes( aData, aData + aSize ), aNowMs );
    if ( !lPacket )
    {
        return Drop();
    }
    return aToPort == 0 ? HandleRequest( *lPacket ) : HandleTransfer( *lPacket );
}

VirtualTftpServer::Answers VirtualTftpServer::Drop()
{
    ++mCounters.mDropped;
    return {};
}

VirtualTftpServer::Answers VirtualTftpServer::HandleRequest( const PacketTFTP& aPacket )
{
    if ( aPacket.mOpcode == OpcodeTFTP::ERROR )
    {
        return Drop();
    }
    const std::optional<RequestTFTP> lRequest = ParseRequestTFTP( aPacket );
    if ( !lRequest )
    {
        return Refuse( aPacket, ErrorTFTP::ILLEGAL_OPERATION, "Illegal TFTP operation" );
    }
    if ( lRequest->mMode != "octet" )
    {
        return Refuse( aPacket, ErrorTFTP::NOT_DEFINED, "Only mode octet is served" );
    }
    return aPacket.mOpcode == OpcodeTFTP::RRQ ? BeginDownload( aPacket, lRequest->mName )
                                              : BeginUpload( aPacket, lRequest->mName );
}

VirtualTftpServer::Answers VirtualTftpServer::BeginUpload( const PacketTFTP& aPacket,
                                                           const std::string& aName )
{
    ++mCounters.mWriteRequests;
    if ( !mConfiguration.mIsWritable )
    {
        return Refuse( aPacket, ErrorTFTP::ACCESS_VIOLATION, "Access violation" );
    }
    if ( !mConfiguration.mMayReplace && FindFile( aName ) != nullptr )
    {
        return Refuse( aPacket, ErrorTFTP::FILE_EXISTS, "File already exists" );
    }
    SessionTFTP& lSession = mSessions.Add( aPacket.mFrom, aName, aPacket.mNowMs );
    lSession.mIsUpload = true;
    return Acknowledge( lSession );
}

VirtualTftpServer::Answers VirtualTftpServer::BeginDownload( const PacketTFTP& aPacket,
                                                             const std::string& aName )
{
    ++mCounters.mReadRequests;
    const auto lFile = mFiles.find( aName );
    if ( lFile == mFiles.end() )
    {
        return Refuse( aPacket, ErrorTFTP::FILE_NOT_FOUND, "File not found" );
    }
    SessionTFTP& lSession = mSessions.Add( aPacket.mFrom, aName, aPacket.mNowMs );
    lSession.mFile = lFile->second; // it stays as it is when the file is replaced meanwhile
    lSession.mBlock = 1;
    return SendBlock( lSession );
}

VirtualTftpServer::Answers VirtualTftpServer::HandleTransfer( const PacketTFTP& aPacket )
{
    SessionTFTP* const lSession = mSessions.Find( aPacket.mToPort );
    const bool lIsKnown = lSession != nullptr && lSession->mPeer == aPacket.mFrom;
    if ( aPacket.mOpcode == OpcodeTFTP::ERROR )
    {
        if ( lIsKnown )
        {
            mSessions.Remove( aPacket.mToPort );
        }
        return Drop();
    }
    if ( !lIsKnown )
    {
        return Refuse( aPacket, ErrorTFTP::UNKNOWN_TRANSFER, "Unknown transfer ID" );
    }
    lSession->mLastMs = aPacket.mNowMs;
    if ( lSession->mIsUpload && aPacket.mOpcode == OpcodeTFTP::DATA )
    {
        return HandleBlock( *lSession, aPacket );
    }
    if ( !lSession->mIsUpload && aPacket.mOpcode == OpcodeTFTP::ACK )
    {
        return HandleAcknowledge( *lSession, aPacket );
    }
    return EndSession( aPacket, ErrorTFTP::ILLEGAL_OPERATION, "Illegal TFTP operation" );
}

VirtualTftpServer::Answers VirtualTftpServer::HandleBlock( SessionTFTP& aSession,
                                                           const PacketTFTP& aPacket )
{
    if ( aPacket.mDatagram.size() > PacketTFTP::HEADER_SIZE + BLOCK_SIZE )
    {
        return EndSession( aPacket, ErrorTFTP::ILLEGAL_OPERATION, "Illegal TFTP operation" );
    }
    if ( aPacket.mNumber == aSession.mBlock )
    {
        ++mCounters.mRepeated;
        return Acknowledge( aSession );
    }
    if ( aSession.mIsComplete || aPacket.mNumber != static_cast<uint16_t>( aSession.mBlock + 1 ) )
    {
        return Drop();
    }
    return TakeBlock( aSession, aPacket );
}

// The next block of an upload. A short one is the last.
VirtualTftpServer::Answers VirtualTftpServer::TakeBlock( SessionTFTP& aSession,
                                                         const PacketTFTP& aPacket )
{
    const Bytes lData = aPacket.GetData();
    if ( aSession.mContent.size() + lData.size() > mConfiguration.mMaxFileSize )
    {
        return EndSession( aPacket, ErrorTFTP::DISK_FULL, "Disk full or allocation exceeded" );
    }
    Append( aSession.mContent, lData );
    aSession.mBlock = aPacket.mNumber;
    if ( lData.size() < BLOCK_SIZE && !Publish( aSession ) )
    {
        return EndSession( aPacket, ErrorTFTP::NOT_DEFINED, "The file cannot be kept" );
    }
    return Acknowledge( aSession );
}

// Turns an upload into a file. False if Configuration::mKeep refuses it.
bool VirtualTftpServer::Publish( SessionTFTP& aSession )
{
    if ( mConfiguration.mKeep && !mConfiguration.mKeep( aSession.mName, aSession.mContent ) )
    {
        return false;
    }
    aSession.mIsComplete = true;
    mFiles[aSession.mName] = std::make_shared<const Bytes>( std::move( aSession.mContent ) );
    aSession.mContent.clear();
    ++mCounters.mPublished;
    return true;
}

VirtualTftpServer::Answers VirtualTftpServer::HandleAcknowledge( SessionTFTP& aSession,
                                                                 const PacketTFTP& aPacket )
{
    if ( aSession.mIsComplete )
    {
        return Drop();
    }
    if ( aPacket.mNumber == static_cast<uint16_t>( aSession.mBlock - 1 ) )
    {
        ++mCounters.mRepeated;
        return SendBlock( aSession );
    }
    if ( aPacket.mNumber != aSession.mBlock )
    {
        return Drop();
    }
    if ( aSession.mFile->size() - aSession.mOffset < BLOCK_SIZE ) // the current block is the last
    {
        aSession.mIsComplete = true;
        ++mCounters.mDelivered;
        return {};
    }
    aSession.mOffset += BLOCK_SIZE;
    ++aSession.mBlock;
    return SendBlock( aSession );
}

VirtualTftpServer::Answers VirtualTftpServer::Acknowledge( const SessionTFTP& aSession )
{
    return Answer( { MakeAck( aSession.mBlock ), 0, aSession.mPeer, aSession.mPort } );
}

VirtualTftpServer::Answers VirtualTftpServer::SendBlock( const SessionTFTP& aSession )
{
    const Bytes& lFile = *aSession.mFile;
    const size_t lSize = std::min( BLOCK_SIZE, lFile.size() - aSession.mOffset );
    const auto lFirst = lFile.begin() + static_cast<std::ptrdiff_t>( aSession.mOffset );
    const Bytes lData( lFirst, lFirst + static_cast<std::ptrdiff_t>( lSize ) );
    return Answer( { MakeData( aSession.mBlock, lData ), 0, aSession.mPeer, aSession.mPort } );
}

VirtualTftpServer::Answers VirtualTftpServer::Refuse( const PacketTFTP& aPacket, uint16_t aCode,
                                                      const std::string& aMessage )
{
    return Answer( { MakeError( aCode, aMessage ), 0, aPacket.mFrom, aPacket.mToPort } );
}

VirtualTftpServer::Answers VirtualTftpServer::EndSession( const PacketTFTP& aPacket, uint16_t aCode,
                                                          const std::string& aMessage )
{
    mSessions.Remove( aPacket.mToPort );
    return Refuse( aPacket, aCode, aMessage );
}

VirtualTftpServer::Answers VirtualTftpServer::Answer( const Outgoing& aAnswer )
{
    const Disturbance* const lDisturbance = FindDisturbance( mCounters.mAnswers );
    ++mCounters.mAnswers;
    Answers lAnswers = { aAnswer };
    if ( lDisturbance != nullptr )
    {
        lAnswers = Simulators::Disturb( aAnswer, *lDisturbance );
        if ( lDisturbance->mTrouble == Trouble::ERROR_PACKET )
        {
            mSessions.Remove( aAnswer.mFromPort );
        }
    }
    for ( const Outgoing& lAnswer : lAnswers )
    {
        mCounters.mErrors += GetOpcode( lAnswer.mBytes ) == OpcodeTFTP::ERROR ? 1 : 0;
    }
    return lAnswers;
}

// The latest disturbance that applies to the answer.
const VirtualTftpServer::Disturbance* VirtualTftpServer::FindDisturbance( uint64_t aAnswer ) const
{
    const auto lFound = std::find_if( mDisturbances.rbegin(), mDisturbances.rend(),
                                      [aAnswer]( const Disturbance& aEntry ) {
                                          return aAnswer >= aEntry.mFirst &&
                                                 aAnswer - aEntry.mFirst < aEntry.mCount;
                                      } );
    return lFound == mDisturbances.rend() ? nullptr : &*lFound;
}

std::string VirtualTftpServer::GetSummary() const
{
    char lText[320];
    std::snprintf( lText, sizeof( lText ),
                   "%" PRIu64 " uploads published, %" PRIu64 " downloads delivered; %" PRIu64
                   " datagrams: %" PRIu64 " read requests, %" PRIu64 " write requests, %" PRIu64
                   " repeated, %" PRIu64 " dropped; %" PRIu64 " answers, %" PRIu64
                   " of them errors",
                   mCounters.mPublished, mCounters.mDelivered, mCounters.mReceived,
                   mCounters.mReadRequests, mCounters.mWriteRequests, mCounters.mRepeated,
                   mCounters.mDropped, mCounters.mAnswers, mCounters.mErrors );
    return lText;
}

} // namespace Simulators
