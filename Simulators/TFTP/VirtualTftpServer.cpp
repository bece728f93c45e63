#include "Simulators/TFTP/VirtualTftpServer.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <utility>

namespace Simulators
{

namespace
{

enum Opcode : uint16_t
{
    RRQ = 1,
    WRQ = 2,
    DATA = 3,
    ACK = 4,
    ERR = 5
};

enum ErrorCode : uint16_t
{
    NOT_DEFINED = 0,
    FILE_NOT_FOUND = 1,
    ACCESS_VIOLATION = 2,
    DISK_FULL = 3,
    ILLEGAL_OPERATION = 4,
    UNKNOWN_TRANSFER = 5,
    FILE_EXISTS = 6
};

constexpr size_t HEADER_SIZE = 4;

uint16_t GetWord( const Bytes& aBytes, size_t aOffset )
{
    return static_cast<uint16_t>( ( aBytes[aOffset] << 8 ) | aBytes[aOffset + 1] );
}

void PutWord( Bytes* aBytes, uint16_t aValue )
{
    aBytes->push_back( static_cast<uint8_t>( aValue >> 8 ) );
    aBytes->push_back( static_cast<uint8_t>( aValue ) );
}

Bytes MakePacket( uint16_t aOpcode, uint16_t aNumber )
{
    Bytes lPacket;
    PutWord( &lPacket, aOpcode );
    PutWord( &lPacket, aNumber );
    return lPacket;
}

Bytes MakeError( uint16_t aCode, const std::string& aMessage )
{
    Bytes lPacket = MakePacket( ERR, aCode );
    lPacket.insert( lPacket.end(), aMessage.begin(), aMessage.end() );
    lPacket.push_back( 0 );
    return lPacket;
}

// The text that begins at *aOffset, which is moved behind its zero; nothing where there is no zero.
std::optional<std::string> TakeText( const Bytes& aBytes, size_t* aOffset )
{
    const auto lBegin = aBytes.begin() + static_cast<std::ptrdiff_t>( *aOffset );
    const auto lEnd = std::find( lBegin, aBytes.end(), uint8_t{ 0 } );
    if ( lEnd == aBytes.end() )
    {
        return std::nullopt;
    }
    *aOffset = static_cast<size_t>( lEnd - aBytes.begin() ) + 1;
    return std::string( lBegin, lEnd );
}

std::string ToLower( std::string aText )
{
    for ( char& lCharacter : aText )
    {
        lCharacter = static_cast<char>( std::tolower( static_cast<unsigned char>( lCharacter ) ) );
    }
    return aText;
}

} // namespace

VirtualTftpServer::VirtualTftpServer()
    : VirtualTftpServer( Configuration() )
{
}

VirtualTftpServer::VirtualTftpServer( const Configuration& aConfiguration )
    : mConfiguration( aConfiguration )
{
    mConfiguration.mTransferPorts = std::max<uint16_t>( mConfiguration.mTransferPorts, 1 );
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
    return ( lFile == mFiles.end() ) ? nullptr : lFile->second.get();
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
    mCounters.mReceived++;
    ForgetSilentSessions( aNowMs );
    if ( aSize < HEADER_SIZE )
    {
        mCounters.mDropped++;
        return {};
    }
    Incoming lIncoming;
    lIncoming.mFrom = aFrom;
    lIncoming.mToPort = aToPort;
    lIncoming.mBytes.assign( aData, aData + aSize );
    lIncoming.mOpcode = GetWord( lIncoming.mBytes, 0 );
    lIncoming.mNumber = GetWord( lIncoming.mBytes, 2 );
    lIncoming.mNowMs = aNowMs;
    return ( aToPort == 0 ) ? HandleRequest( lIncoming ) : HandleTransfer( lIncoming );
}

VirtualTftpServer::Answers VirtualTftpServer::HandleRequest( const Incoming& aIncoming )
{
    if ( aIncoming.mOpcode == ERR )
    {
        mCounters.mDropped++;
        return {};
    }
    size_t lOffset = 2;
    const std::optional<std::string> lName = TakeText( aIncoming.mBytes, &lOffset );
    const std::optional<std::string> lMode =
        lName.has_value() ? TakeText( aIncoming.mBytes, &lOffset ) : std::nullopt;
    const bool lIsRequest = ( aIncoming.mOpcode == RRQ ) || ( aIncoming.mOpcode == WRQ );
    if ( !lIsRequest || !lMode.has_value() )
    {
        return Refuse( aIncoming, ILLEGAL_OPERATION, "Illegal TFTP operation" );
    }
    if ( ToLower( *lMode ) != "octet" )
    {
        return Refuse( aIncoming, NOT_DEFINED, "Only mode octet is served" );
    }
    return ( aIncoming.mOpcode == RRQ ) ? BeginDownload( aIncoming, *lName )
                                        : BeginUpload( aIncoming, *lName );
}

VirtualTftpServer::Answers VirtualTftpServer::BeginUpload( const Incoming& aIncoming,
                                                           const std::string& aName )
{
    mCounters.mWriteRequests++;
    if ( !mConfiguration.mIsWritable )
    {
        return Refuse( aIncoming, ACCESS_VIOLATION, "Access violation" );
    }
    if ( !mConfiguration.mMayReplace && ( mFiles.count( aName ) != 0 ) )
    {
        return Refuse( aIncoming, FILE_EXISTS, "File already exists" );
    }
    Session* const lSession = AddSession( aIncoming, aName );
    lSession->mIsUpload = true;
    return Acknowledge( *lSession );
}

VirtualTftpServer::Answers VirtualTftpServer::BeginDownload( const Incoming& aIncoming,
                                                             const std::string& aName )
{
    mCounters.mReadRequests++;
    const auto lFile = mFiles.find( aName );
    if ( lFile == mFiles.end() )
    {
        return Refuse( aIncoming, FILE_NOT_FOUND, "File not found" );
    }
    Session* const lSession = AddSession( aIncoming, aName );
    lSession->mFile = lFile->second;
    lSession->mBlock = 1;
    return SendBlock( *lSession );
}

VirtualTftpServer::Answers VirtualTftpServer::HandleTransfer( const Incoming& aIncoming )
{
    const auto lFound = mSessions.find( aIncoming.mToPort );
    const bool lIsKnown =
        ( lFound != mSessions.end() ) && ( lFound->second.mPeer == aIncoming.mFrom );
    if ( aIncoming.mOpcode == ERR )
    {
        mCounters.mDropped++;
        if ( lIsKnown )
        {
            mSessions.erase( lFound );
        }
        return {};
    }
    if ( !lIsKnown )
    {
        return Refuse( aIncoming, UNKNOWN_TRANSFER, "Unknown transfer ID" );
    }
    Session& lSession = lFound->second;
    lSession.mLastMs = aIncoming.mNowMs;
    if ( lSession.mIsUpload && ( aIncoming.mOpcode == DATA ) )
    {
        return HandleBlock( &lSession, aIncoming );
    }
    if ( !lSession.mIsUpload && ( aIncoming.mOpcode == ACK ) )
    {
        return HandleAcknowledge( &lSession, aIncoming );
    }
    return EndSession( aIncoming, ILLEGAL_OPERATION, "Illegal TFTP operation" );
}

VirtualTftpServer::Answers VirtualTftpServer::HandleBlock( Session* aSession,
                                                           const Incoming& aIncoming )
{
    const size_t lSize = aIncoming.mBytes.size() - HEADER_SIZE;
    if ( lSize > BLOCK_SIZE )
    {
        return EndSession( aIncoming, ILLEGAL_OPERATION, "Illegal TFTP operation" );
    }
    if ( aIncoming.mNumber == aSession->mBlock )
    {
        mCounters.mRepeated++;
        return Acknowledge( *aSession );
    }
    const auto lExpected = static_cast<uint16_t>( aSession->mBlock + 1 );
    if ( aSession->mIsComplete || ( aIncoming.mNumber != lExpected ) )
    {
        mCounters.mDropped++;
        return {};
    }
    if ( aSession->mContent.size() + lSize > mConfiguration.mMaxFileSize )
    {
        return EndSession( aIncoming, DISK_FULL, "Disk full or allocation exceeded" );
    }
    const auto lData = aIncoming.mBytes.begin() + static_cast<std::ptrdiff_t>( HEADER_SIZE );
    aSession->mContent.insert( aSession->mContent.end(), lData, aIncoming.mBytes.end() );
    aSession->mBlock = lExpected;
    if ( lSize < BLOCK_SIZE )
    {
        if ( mConfiguration.mKeep && !mConfiguration.mKeep( aSession->mName, aSession->mContent ) )
        {
            return EndSession( aIncoming, NOT_DEFINED, "The file cannot be kept" );
        }
        aSession->mIsComplete = true;
        mFiles[aSession->mName] = std::make_shared<const Bytes>( std::move( aSession->mContent ) );
        aSession->mContent.clear();
        mCounters.mPublished++;
    }
    return Acknowledge( *aSession );
}

VirtualTftpServer::Answers VirtualTftpServer::HandleAcknowledge( Session* aSession,
                                                                 const Incoming& aIncoming )
{
    const auto lBefore = static_cast<uint16_t>( aSession->mBlock - 1 );
    if ( !aSession->mIsComplete && ( aIncoming.mNumber == lBefore ) )
    {
        mCounters.mRepeated++;
        return SendBlock( *aSession );
    }
    if ( aSession->mIsComplete || ( aIncoming.mNumber != aSession->mBlock ) )
    {
        mCounters.mDropped++;
        return {};
    }
    if ( aSession->mFile->size() - aSession->mOffset < BLOCK_SIZE )
    {
        aSession->mIsComplete = true;
        mCounters.mDelivered++;
        return {};
    }
    aSession->mOffset += BLOCK_SIZE;
    aSession->mBlock++;
    return SendBlock( *aSession );
}

VirtualTftpServer::Session* VirtualTftpServer::AddSession( const Incoming& aIncoming,
                                                           const std::string& aName )
{
    if ( mSessions.size() >= mConfiguration.mTransferPorts )
    {
        mSessions.erase( std::min_element( mSessions.begin(), mSessions.end(),
                                           []( const auto& aA, const auto& aB )
                                           { return aA.second.mLastMs < aB.second.mLastMs; } ) );
    }
    Session lSession;
    lSession.mPeer = aIncoming.mFrom;
    lSession.mPort = ChoosePort();
    lSession.mName = aName;
    lSession.mLastMs = aIncoming.mNowMs;
    return &( mSessions[lSession.mPort] = std::move( lSession ) );
}

void VirtualTftpServer::ForgetSilentSessions( int64_t aNowMs )
{
    for ( auto lSession = mSessions.begin(); lSession != mSessions.end(); )
    {
        const bool lIsSilent = aNowMs - lSession->second.mLastMs > mConfiguration.mSessionTimeoutMs;
        lSession = lIsSilent ? mSessions.erase( lSession ) : std::next( lSession );
    }
}

// There is a free one: sessions are fewer than ports.
uint16_t VirtualTftpServer::ChoosePort()
{
    for ( ;; )
    {
        const auto lPort = static_cast<uint16_t>( mConfiguration.mFirstTransferPort + mNextPort );
        mNextPort = static_cast<uint16_t>( ( mNextPort + 1 ) % mConfiguration.mTransferPorts );
        if ( mSessions.count( lPort ) == 0 )
        {
            return lPort;
        }
    }
}

VirtualTftpServer::Answers VirtualTftpServer::Acknowledge( const Session& aSession )
{
    return Answer( { MakePacket( ACK, aSession.mBlock ), 0, aSession.mPeer, aSession.mPort } );
}

VirtualTftpServer::Answers VirtualTftpServer::SendBlock( const Session& aSession )
{
    const Bytes& lFile = *aSession.mFile;
    const size_t lSize = std::min( BLOCK_SIZE, lFile.size() - aSession.mOffset );
    const auto lFirst = lFile.begin() + static_cast<std::ptrdiff_t>( aSession.mOffset );
    Bytes lPacket = MakePacket( DATA, aSession.mBlock );
    lPacket.insert( lPacket.end(), lFirst, lFirst + static_cast<std::ptrdiff_t>( lSize ) );
    return Answer( { lPacket, 0, aSession.mPeer, aSession.mPort } );
}

VirtualTftpServer::Answers VirtualTftpServer::Refuse( const Incoming& aIncoming, uint16_t aCode,
                                                      const std::string& aMessage )
{
    return Answer( { MakeError( aCode, aMessage ), 0, aIncoming.mFrom, aIncoming.mToPort } );
}

VirtualTftpServer::Answers VirtualTftpServer::EndSession( const Incoming& aIncoming, uint16_t aCode,
                                                          const std::string& aMessage )
{
    mSessions.erase( aIncoming.mToPort );
    return Refuse( aIncoming, aCode, aMessage );
}

VirtualTftpServer::Answers VirtualTftpServer::Answer( Outgoing aAnswer )
{
    const Disturbance* const lDisturbance = FindDisturbance( mCounters.mAnswers );
    mCounters.mAnswers++;
    Answers lAnswers;
    if ( lDisturbance == nullptr )
    {
        lAnswers.push_back( std::move( aAnswer ) );
    }
    else
    {
        lAnswers = Spoil( std::move( aAnswer ), *lDisturbance );
    }
    for ( const Outgoing& lAnswer : lAnswers )
    {
        mCounters.mErrors += ( GetWord( lAnswer.mBytes, 0 ) == ERR ) ? 1 : 0;
    }
    return lAnswers;
}

VirtualTftpServer::Answers VirtualTftpServer::Spoil( Outgoing aAnswer,
                                                     const Disturbance& aDisturbance )
{
    switch ( aDisturbance.mTrouble )
    {
    case Trouble::SILENCE:
        return {};
    case Trouble::DUPLICATE:
        return { aAnswer, aAnswer };
    case Trouble::WRONG_BLOCK:
    {
        const auto lNumber =
            static_cast<uint16_t>( GetWord( aAnswer.mBytes, 2 ) + aDisturbance.mBlockOffset );
        aAnswer.mBytes[2] = static_cast<uint8_t>( lNumber >> 8 );
        aAnswer.mBytes[3] = static_cast<uint8_t>( lNumber );
        break;
    }
    case Trouble::FOREIGN_PORT:
        aAnswer.mFromPort = aDisturbance.mForeignPort;
        break;
    case Trouble::ERROR_PACKET:
        mSessions.erase( aAnswer.mFromPort );
        aAnswer.mBytes = MakeError( aDisturbance.mErrorCode, aDisturbance.mMessage );
        break;
    }
    return { std::move( aAnswer ) };
}

const VirtualTftpServer::Disturbance* VirtualTftpServer::FindDisturbance( uint64_t aAnswer ) const
{
    const auto lFound = std::find_if( mDisturbances.rbegin(), mDisturbances.rend(),
                                      [aAnswer]( const Disturbance& aEntry ) {
                                          return ( aAnswer >= aEntry.mFirst ) &&
                                                 ( aAnswer - aEntry.mFirst < aEntry.mCount );
                                      } );
    return ( lFound == mDisturbances.rend() ) ? nullptr : &*lFound;
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
