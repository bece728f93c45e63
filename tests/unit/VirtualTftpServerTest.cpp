// The virtual TFTP server: the behaviour that RFC 1350 requires, and the faults on request.

#include "Simulators/TFTP/VirtualTftpServer.h"

#include "Simulators/FaultPlan.h"
#include "tests/support/TftpBytes.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

using Simulators::Endpoint;
using Simulators::FaultPlan;
using Simulators::Outgoing;
using Simulators::VirtualTftpServer;
using TestSupport::Ack;
using TestSupport::Bytes;
using TestSupport::Data;
using TestSupport::Error;
using TestSupport::Pattern;
using TestSupport::ReadRequest;
using TestSupport::Text;
using TestSupport::WriteRequest;
using TestSupport::operator+; // NOLINT(misc-unused-using-decls): used by its sign
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

using Trouble = VirtualTftpServer::Trouble;

const Endpoint CLIENT{ 0x7F000001, 40001 };
const Endpoint OTHER{ 0x7F000001, 40002 };

// A server and its clients.
class TftpServer : public testing::Test
{
protected:
    // What arrives at the port of the server and what it sends because of it.
    std::vector<Outgoing> Receive( const Bytes& aBytes, uint16_t aToPort = 0,
                                   const Endpoint& aFrom = CLIENT )
    {
        return mServer.Receive( aFrom, aToPort, aBytes.data(), aBytes.size(), mNow );
    }

    // The one datagram that is sent because of it.
    Outgoing Exchange( const Bytes& aBytes, uint16_t aToPort = 0, const Endpoint& aFrom = CLIENT )
    {
        const std::vector<Outgoing> lAnswers = Receive( aBytes, aToPort, aFrom );
        EXPECT_THAT( lAnswers, SizeIs( 1 ) );
        return lAnswers.empty() ? Outgoing() : lAnswers.front();
    }

    // Begins an upload and returns the transfer port.
    uint16_t Offer( const std::string& aName, const Endpoint& aFrom = CLIENT )
    {
        const Outgoing lAnswer = Exchange( WriteRequest( aName ), 0, aFrom );
        EXPECT_EQ( lAnswer.mBytes, Ack( 0 ) );
        EXPECT_EQ( lAnswer.mTo, aFrom );
        EXPECT_EQ( lAnswer.mDelayMs, 0 );
        EXPECT_NE( lAnswer.mFromPort, 0 );
        return lAnswer.mFromPort;
    }

    void Disturb( Trouble aTrouble, uint64_t aFirst, uint64_t aCount = 1 )
    {
        VirtualTftpServer::Disturbance lDisturbance;
        lDisturbance.mTrouble = aTrouble;
        lDisturbance.mFirst = aFirst;
        lDisturbance.mCount = aCount;
        mServer.Disturb( lDisturbance );
    }

    VirtualTftpServer mServer;
    int64_t mNow = 1000;
};

Bytes GetPart( const Bytes& aBytes, std::size_t aFirst, std::size_t aCount )
{
    const std::size_t lEnd = std::min( aBytes.size(), aFirst + aCount );
    return Bytes( aBytes.begin() + static_cast<std::ptrdiff_t>( aFirst ),
                  aBytes.begin() + static_cast<std::ptrdiff_t>( lEnd ) );
}

} // namespace

// Uploads

TEST_F( TftpServer, UploadUsesAPortOfItsOwn )
{
    const Bytes lContent = Pattern( 700 );
    const uint16_t lPort = Offer( "a.bin" );
    const Outgoing lFirst = Exchange( Data( 1, GetPart( lContent, 0, 512 ) ), lPort );
    EXPECT_EQ( lFirst.mBytes, Ack( 1 ) );
    EXPECT_EQ( lFirst.mFromPort, lPort );
    EXPECT_EQ( lFirst.mTo, CLIENT );
    EXPECT_EQ( mServer.FindFile( "a.bin" ), nullptr ); // not before the last block
    EXPECT_EQ( Exchange( Data( 2, GetPart( lContent, 512, 188 ) ), lPort ).mBytes, Ack( 2 ) );
    ASSERT_NE( mServer.FindFile( "a.bin" ), nullptr );
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), lContent );
    EXPECT_EQ( mServer.GetCounters().mPublished, 1U );
    EXPECT_EQ( mServer.GetCounters().mWriteRequests, 1U );
    EXPECT_EQ( mServer.GetCounters().mAnswers, 3U );
    EXPECT_THAT( mServer.GetFileNames(), ElementsAre( "a.bin" ) );
}

TEST_F( TftpServer, EmptyUploadIsAnEmptyFile )
{
    const uint16_t lPort = Offer( "a.bin" );
    EXPECT_EQ( Exchange( Data( 1, {} ), lPort ).mBytes, Ack( 1 ) );
    ASSERT_NE( mServer.FindFile( "a.bin" ), nullptr );
    EXPECT_THAT( *mServer.FindFile( "a.bin" ), IsEmpty() );
}

TEST_F( TftpServer, MultipleOfTheBlockSizeWaitsForTheEmptyBlock )
{
    const Bytes lContent = Pattern( 512 );
    const uint16_t lPort = Offer( "a.bin" );
    EXPECT_EQ( Exchange( Data( 1, lContent ), lPort ).mBytes, Ack( 1 ) );
    EXPECT_EQ( mServer.FindFile( "a.bin" ), nullptr );
    EXPECT_EQ( Exchange( Data( 2, {} ), lPort ).mBytes, Ack( 2 ) );
    ASSERT_NE( mServer.FindFile( "a.bin" ), nullptr );
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), lContent );
}

TEST_F( TftpServer, RepeatedBlockIsAcknowledgedAgainAndStoredOnce )
{
    const uint16_t lPort = Offer( "a.bin" );
    const Bytes lBlock = Pattern( 512 );
    EXPECT_EQ( Exchange( Data( 1, lBlock ), lPort ).mBytes, Ack( 1 ) );
    EXPECT_EQ( Exchange( Data( 1, lBlock ), lPort ).mBytes, Ack( 1 ) );
    EXPECT_EQ( Exchange( Data( 2, { 9 } ), lPort ).mBytes, Ack( 2 ) );
    EXPECT_EQ( Exchange( Data( 2, { 9 } ), lPort ).mBytes, Ack( 2 ) ); // also the last
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), lBlock + Bytes{ 9 } );
    EXPECT_EQ( mServer.GetCounters().mPublished, 1U );
    EXPECT_EQ( mServer.GetCounters().mRepeated, 2U );
}

TEST_F( TftpServer, OutOfOrderBlockIsDropped )
{
    const uint16_t lPort = Offer( "a.bin" );
    EXPECT_THAT( Receive( Data( 2, { 1 } ), lPort ), IsEmpty() );
    EXPECT_THAT( Receive( Data( 65535, { 1 } ), lPort ), IsEmpty() );
    EXPECT_EQ( Exchange( Data( 1, { 1 } ), lPort ).mBytes, Ack( 1 ) );
    EXPECT_THAT( Receive( Data( 2, { 1 } ), lPort ), IsEmpty() ); // it is complete
    EXPECT_EQ( mServer.GetCounters().mDropped, 3U );
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), Bytes{ 1 } );
}

TEST_F( TftpServer, BlockNumberWraps )
{
    const uint16_t lPort = Offer( "a.bin" );
    const Bytes lBlock( 512, 0x42 );
    for ( unsigned int lCount = 1; lCount <= 65536; ++lCount )
    {
        ASSERT_EQ( Exchange( Data( lCount, lBlock ), lPort ).mBytes, Ack( lCount ) );
    }
    EXPECT_EQ( Exchange( Data( 1, { 7 } ), lPort ).mBytes, Ack( 1 ) );
    ASSERT_NE( mServer.FindFile( "a.bin" ), nullptr );
    EXPECT_EQ( mServer.FindFile( "a.bin" )->size(), 65536U * 512U + 1U );
}

TEST_F( TftpServer, EachRequestHasASessionOfItsOwn )
{
    const uint16_t lFirst = Offer( "a.bin" );
    const uint16_t lSecond = Offer( "a.bin" ); // the request is repeated
    EXPECT_NE( lFirst, lSecond );
    EXPECT_EQ( mServer.GetSessionCount(), 2U );
    const Bytes lBlock = Pattern( 512 );
    EXPECT_EQ( Exchange( Data( 1, lBlock ), lFirst ).mBytes, Ack( 1 ) );
    EXPECT_EQ( Exchange( Data( 1, { 5 } ), lSecond ).mBytes, Ack( 1 ) );
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), Bytes{ 5 } );
    EXPECT_EQ( Exchange( Data( 2, { 6 } ), lFirst ).mBytes, Ack( 2 ) );
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), lBlock + Bytes{ 6 } );
}

TEST_F( TftpServer, UnfinishedUploadKeepsTheExistingFile )
{
    mServer.SetFile( "a.bin", Text( "old" ) );
    const uint16_t lPort = Offer( "a.bin" );
    EXPECT_EQ( Exchange( Data( 1, Pattern( 512 ) ), lPort ).mBytes, Ack( 1 ) );
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), Text( "old" ) );
    EXPECT_THAT( Receive( Error( 0, "gave up" ), lPort ), IsEmpty() );
    EXPECT_EQ( mServer.GetSessionCount(), 0U );
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), Text( "old" ) );
}

// Downloads

TEST_F( TftpServer, DownloadSendsBlockByBlock )
{
    const Bytes lContent = Pattern( 1100 );
    mServer.SetFile( "a.bin", lContent );
    const Outgoing lFirst = Exchange( ReadRequest( "a.bin" ) );
    EXPECT_EQ( lFirst.mBytes, Data( 1, GetPart( lContent, 0, 512 ) ) );
    EXPECT_EQ( lFirst.mTo, CLIENT );
    const uint16_t lPort = lFirst.mFromPort;
    EXPECT_NE( lPort, 0 );
    EXPECT_EQ( Exchange( Ack( 1 ), lPort ).mBytes, Data( 2, GetPart( lContent, 512, 512 ) ) );
    EXPECT_EQ( Exchange( Ack( 2 ), lPort ).mBytes, Data( 3, GetPart( lContent, 1024, 76 ) ) );
    EXPECT_EQ( mServer.GetCounters().mDelivered, 0U );
    EXPECT_THAT( Receive( Ack( 3 ), lPort ), IsEmpty() );
    EXPECT_EQ( mServer.GetCounters().mDelivered, 1U );
    EXPECT_THAT( Receive( Ack( 3 ), lPort ), IsEmpty() );
    EXPECT_EQ( mServer.GetCounters().mDelivered, 1U );
}

TEST_F( TftpServer, DownloadOfAMultipleOfTheBlockSizeEndsWithAnEmptyBlock )
{
    mServer.SetFile( "a.bin", Pattern( 512 ) );
    const uint16_t lPort = Exchange( ReadRequest( "a.bin" ) ).mFromPort;
    EXPECT_EQ( Exchange( Ack( 1 ), lPort ).mBytes, Data( 2, {} ) );
    EXPECT_THAT( Receive( Ack( 2 ), lPort ), IsEmpty() );
    EXPECT_EQ( mServer.GetCounters().mDelivered, 1U );
}

TEST_F( TftpServer, AcknowledgeOfThePreviousBlockRepeatsTheCurrentOne )
{
    const Bytes lContent = Pattern( 1100 );
    mServer.SetFile( "a.bin", lContent );
    const uint16_t lPort = Exchange( ReadRequest( "a.bin" ) ).mFromPort;
    EXPECT_EQ( Exchange( Ack( 0 ), lPort ).mBytes, Data( 1, GetPart( lContent, 0, 512 ) ) );
    EXPECT_EQ( Exchange( Ack( 1 ), lPort ).mBytes, Data( 2, GetPart( lContent, 512, 512 ) ) );
    EXPECT_EQ( Exchange( Ack( 1 ), lPort ).mBytes, Data( 2, GetPart( lContent, 512, 512 ) ) );
    EXPECT_THAT( Receive( Ack( 7 ), lPort ), IsEmpty() );
    EXPECT_EQ( mServer.GetCounters().mRepeated, 2U );
}

TEST_F( TftpServer, DownloadKeepsTheFileItBeganWith )
{
    const Bytes lContent = Pattern( 600 );
    mServer.SetFile( "a.bin", lContent );
    const uint16_t lPort = Exchange( ReadRequest( "a.bin" ) ).mFromPort;
    mServer.SetFile( "a.bin", Text( "new" ) );
    EXPECT_EQ( Exchange( Ack( 1 ), lPort ).mBytes, Data( 2, GetPart( lContent, 512, 88 ) ) );
}

// Requests

TEST_F( TftpServer, ModeIsCaseInsensitiveAndOptionsAreIgnored )
{
    const Bytes lRequest = Bytes{ 0, 2 } + Text( "a.bin" ) + Bytes{ 0 } + Text( "OcTeT" ) +
                           Bytes{ 0 } + Text( "blksize" ) + Bytes{ 0 } + Text( "1428" ) +
                           Bytes{ 0 };
    EXPECT_EQ( Exchange( lRequest ).mBytes, Ack( 0 ) );
}

TEST_F( TftpServer, OtherModesAreRefused )
{
    for ( const char* const lMode : { "netascii", "mail", "" } )
    {
        const Bytes lRequest =
            Bytes{ 0, 2 } + Text( "a.bin" ) + Bytes{ 0 } + Text( lMode ) + Bytes{ 0 };
        const Outgoing lAnswer = Exchange( lRequest );
        EXPECT_EQ( lAnswer.mBytes, Error( 0, "Only mode octet is served" ) );
        EXPECT_EQ( lAnswer.mFromPort, 0 );
    }
    EXPECT_EQ( mServer.GetSessionCount(), 0U );
}

TEST_F( TftpServer, EveryTruncatedRequestIsRefused )
{
    const Bytes lRequest = WriteRequest( "a.bin" );
    for ( std::size_t lCount = 0; lCount < lRequest.size(); ++lCount )
    {
        const std::vector<Outgoing> lAnswers = Receive( GetPart( lRequest, 0, lCount ) );
        if ( lCount < 4 )
        {
            EXPECT_THAT( lAnswers, IsEmpty() ) << lCount;
            continue;
        }
        ASSERT_THAT( lAnswers, SizeIs( 1 ) ) << lCount;
        EXPECT_EQ( lAnswers[0].mBytes, Error( 4, "Illegal TFTP operation" ) );
    }
    EXPECT_THAT( mServer.Receive( CLIENT, 0, nullptr, 0, mNow ), IsEmpty() );
    EXPECT_EQ( mServer.GetSessionCount(), 0U );
    EXPECT_EQ( mServer.GetCounters().mDropped, 5U );
}

TEST_F( TftpServer, OtherPacketsAreRefusedButErrorsAreIgnored )
{
    EXPECT_EQ( Exchange( Ack( 0 ) ).mBytes, Error( 4, "Illegal TFTP operation" ) );
    EXPECT_EQ( Exchange( Data( 1, { 1, 0, 2, 0 } ) ).mBytes, Error( 4, "Illegal TFTP operation" ) );
    EXPECT_EQ( Exchange( { 0, 6, 'a', 0, 'b', 0 } ).mBytes, Error( 4, "Illegal TFTP operation" ) );
    EXPECT_THAT( Receive( Error( 4, "Illegal TFTP operation" ) ), IsEmpty() );
    EXPECT_EQ( mServer.GetCounters().mErrors, 3U );
}

TEST_F( TftpServer, MissingFileIsNotFound )
{
    const Outgoing lAnswer = Exchange( ReadRequest( "a.bin" ) );
    EXPECT_EQ( lAnswer.mBytes, Error( 1, "File not found" ) );
    EXPECT_EQ( lAnswer.mTo, CLIENT );
}

TEST( TftpServerConfiguration, RefusesUploadsIfConfigured )
{
    VirtualTftpServer::Configuration lReadOnly;
    lReadOnly.mIsWritable = false;
    VirtualTftpServer lServer( lReadOnly );
    const Bytes lRequest = WriteRequest( "a.bin" );
    const auto lAnswers = lServer.Receive( CLIENT, 0, lRequest.data(), lRequest.size(), 0 );
    ASSERT_THAT( lAnswers, SizeIs( 1 ) );
    EXPECT_EQ( lAnswers[0].mBytes, Error( 2, "Access violation" ) );
}

TEST( TftpServerConfiguration, KeepsExistingFilesIfConfigured )
{
    VirtualTftpServer::Configuration lKeeping;
    lKeeping.mMayReplace = false;
    VirtualTftpServer lServer( lKeeping );
    lServer.SetFile( "a.bin", { 1 } );
    const Bytes lOld = WriteRequest( "a.bin" );
    auto lAnswers = lServer.Receive( CLIENT, 0, lOld.data(), lOld.size(), 0 );
    ASSERT_THAT( lAnswers, SizeIs( 1 ) );
    EXPECT_EQ( lAnswers[0].mBytes, Error( 6, "File already exists" ) );
    const Bytes lNew = WriteRequest( "b.bin" );
    lAnswers = lServer.Receive( CLIENT, 0, lNew.data(), lNew.size(), 0 );
    ASSERT_THAT( lAnswers, SizeIs( 1 ) );
    EXPECT_EQ( lAnswers[0].mBytes, Ack( 0 ) );
}

// Before its last block is acknowledged, so that its sender knows.
TEST( TftpServerConfiguration, RefusesAnUploadThatCannotBeStored )
{
    std::vector<std::pair<std::string, Bytes>> lAsked;
    VirtualTftpServer::Configuration lConfiguration;
    lConfiguration.mKeep = [&]( const std::string& aName, const Bytes& aContent )
    {
        lAsked.emplace_back( aName, aContent );
        return aName == "good";
    };
    VirtualTftpServer lServer( lConfiguration );
    const auto lExchange = [&]( const Bytes& aBytes, uint16_t aPort )
    {
        return lServer.Receive( CLIENT, aPort, aBytes.data(), aBytes.size(), 0 ).at( 0 );
    };
    const uint16_t lGood = lExchange( WriteRequest( "good" ), 0 ).mFromPort;
    const uint16_t lBad = lExchange( WriteRequest( "bad" ), 0 ).mFromPort;
    EXPECT_THAT( lAsked, IsEmpty() );
    EXPECT_EQ( lExchange( Data( 1, { 7 } ), lGood ).mBytes, Ack( 1 ) );
    EXPECT_EQ( lExchange( Data( 1, { 8 } ), lBad ).mBytes, Error( 0, "The file cannot be kept" ) );
    EXPECT_EQ( lExchange( Data( 1, { 8 } ), lBad ).mBytes, Error( 5, "Unknown transfer ID" ) );
    EXPECT_EQ( lAsked, ( std::vector<std::pair<std::string, Bytes>>{ { "good", { 7 } },
                                                                     { "bad", { 8 } } } ) );
    EXPECT_EQ( lServer.GetFileNames(), std::vector<std::string>{ "good" } );
    EXPECT_EQ( lServer.GetCounters().mPublished, 1U );
}

TEST( TftpServerConfiguration, RefusesAnUploadThatIsTooLong )
{
    VirtualTftpServer::Configuration lSmall;
    lSmall.mMaxFileSize = 600;
    VirtualTftpServer lServer( lSmall );
    const auto lExchange = [&]( const Bytes& aBytes, uint16_t aPort )
    {
        return lServer.Receive( CLIENT, aPort, aBytes.data(), aBytes.size(), 0 ).at( 0 );
    };
    const uint16_t lFits = lExchange( WriteRequest( "a.bin" ), 0 ).mFromPort;
    EXPECT_EQ( lExchange( Data( 1, Bytes( 512, 1 ) ), lFits ).mBytes, Ack( 1 ) );
    EXPECT_EQ( lExchange( Data( 2, Bytes( 88, 1 ) ), lFits ).mBytes, Ack( 2 ) );
    EXPECT_EQ( lServer.FindFile( "a.bin" )->size(), 600U );
    const uint16_t lTooLong = lExchange( WriteRequest( "b.bin" ), 0 ).mFromPort;
    EXPECT_EQ( lExchange( Data( 1, Bytes( 512, 1 ) ), lTooLong ).mBytes, Ack( 1 ) );
    EXPECT_EQ( lExchange( Data( 2, Bytes( 89, 1 ) ), lTooLong ).mBytes,
               Error( 3, "Disk full or allocation exceeded" ) );
    EXPECT_EQ( lServer.FindFile( "b.bin" ), nullptr );
    EXPECT_EQ( lExchange( Data( 2, Bytes( 89, 1 ) ), lTooLong ).mBytes,
               Error( 5, "Unknown transfer ID" ) );
}

// Sessions

TEST_F( TftpServer, AnotherSenderOnATransferPortIsRefusedWithoutEffect )
{
    const uint16_t lPort = Offer( "a.bin" );
    const Outgoing lAnswer = Exchange( Data( 1, { 6, 6, 6 } ), lPort, OTHER );
    EXPECT_EQ( lAnswer.mBytes, Error( 5, "Unknown transfer ID" ) );
    EXPECT_EQ( lAnswer.mTo, OTHER );
    EXPECT_EQ( lAnswer.mFromPort, lPort );
    EXPECT_THAT( Receive( Error( 0, "stop" ), lPort, OTHER ), IsEmpty() );
    EXPECT_EQ( Exchange( Data( 1, { 1 } ), lPort ).mBytes, Ack( 1 ) );
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), Bytes{ 1 } );
}

TEST_F( TftpServer, PortWithoutASessionIsUnknown )
{
    EXPECT_EQ( Exchange( Data( 1, { 1 } ), 50003 ).mBytes, Error( 5, "Unknown transfer ID" ) );
    EXPECT_THAT( Receive( Error( 0, "stop" ), 50003 ), IsEmpty() );
}

TEST_F( TftpServer, UnexpectedPacketEndsTheSession )
{
    const uint16_t lUpload = Offer( "a.bin" );
    EXPECT_EQ( Exchange( Ack( 0 ), lUpload ).mBytes, Error( 4, "Illegal TFTP operation" ) );
    EXPECT_EQ( Exchange( Data( 1, { 1 } ), lUpload ).mBytes, Error( 5, "Unknown transfer ID" ) );
    mServer.SetFile( "b.bin", Pattern( 600 ) );
    const uint16_t lDownload = Exchange( ReadRequest( "b.bin" ) ).mFromPort;
    EXPECT_EQ( Exchange( Data( 1, { 1 } ), lDownload ).mBytes,
               Error( 4, "Illegal TFTP operation" ) );
    const uint16_t lLong = Offer( "a.bin" );
    EXPECT_EQ( Exchange( Data( 1, Bytes( 513, 1 ) ), lLong ).mBytes,
               Error( 4, "Illegal TFTP operation" ) );
    EXPECT_EQ( mServer.GetSessionCount(), 0U );
    EXPECT_EQ( mServer.FindFile( "a.bin" ), nullptr );
}

TEST_F( TftpServer, SilentSessionIsForgotten )
{
    const uint16_t lPort = Offer( "a.bin" );
    mNow += 60000;
    EXPECT_EQ( Exchange( Data( 1, Pattern( 512 ) ), lPort ).mBytes, Ack( 1 ) );
    mNow += 60001;
    EXPECT_EQ( Exchange( Data( 2, { 1 } ), lPort ).mBytes, Error( 5, "Unknown transfer ID" ) );
    EXPECT_EQ( mServer.GetSessionCount(), 0U );
}

TEST( TftpServerConfiguration, SessionThatIsSilentForLongestIsReplaced )
{
    VirtualTftpServer::Configuration lFew;
    lFew.mFirstTransferPort = 100;
    lFew.mTransferPorts = 3;
    VirtualTftpServer lServer( lFew );
    int64_t lNow = 0;
    const auto lExchange = [&]( const Bytes& aBytes, uint16_t aPort )
    {
        return lServer.Receive( CLIENT, aPort, aBytes.data(), aBytes.size(), ++lNow ).at( 0 );
    };
    EXPECT_EQ( lExchange( WriteRequest( "a" ), 0 ).mFromPort, 100 );
    EXPECT_EQ( lExchange( WriteRequest( "b" ), 0 ).mFromPort, 101 );
    EXPECT_EQ( lExchange( WriteRequest( "c" ), 0 ).mFromPort, 102 );
    EXPECT_EQ( lExchange( Data( 1, Bytes( 512, 1 ) ), 100 ).mBytes, Ack( 1 ) );
    EXPECT_EQ( lExchange( WriteRequest( "d" ), 0 ).mFromPort, 101 ); // b had been silent longest
    EXPECT_EQ( lServer.GetSessionCount(), 3U );
    EXPECT_EQ( lExchange( Data( 2, { 1 } ), 100 ).mBytes, Ack( 2 ) );
    EXPECT_NE( lServer.FindFile( "a" ), nullptr );
}

// Faults on request

TEST_F( TftpServer, DoesNotAnswerIfConfigured )
{
    Disturb( Trouble::SILENCE, 1 );
    const uint16_t lPort = Offer( "a.bin" );
    EXPECT_THAT( Receive( Data( 1, { 1 } ), lPort ), IsEmpty() );
    EXPECT_EQ( *mServer.FindFile( "a.bin" ), Bytes{ 1 } ); // the upload has still taken place
    EXPECT_EQ( Exchange( Data( 1, { 1 } ), lPort ).mBytes, Ack( 1 ) );
}

TEST_F( TftpServer, NeverAnswersAgainIfConfigured )
{
    Disturb( Trouble::SILENCE, 0, VirtualTftpServer::FOR_EVER );
    for ( int lTry = 0; lTry < 100; ++lTry )
    {
        EXPECT_THAT( Receive( WriteRequest( "a.bin" ) ), IsEmpty() );
    }
    EXPECT_EQ( mServer.GetCounters().mAnswers, 100U );
}

TEST_F( TftpServer, AnswersTwice )
{
    Disturb( Trouble::DUPLICATE, 1 );
    const uint16_t lPort = Offer( "a.bin" );
    const std::vector<Outgoing> lAnswers = Receive( Data( 1, { 1 } ), lPort );
    ASSERT_THAT( lAnswers, SizeIs( 2 ) );
    EXPECT_EQ( lAnswers[0].mBytes, Ack( 1 ) );
    EXPECT_EQ( lAnswers[1].mBytes, Ack( 1 ) );
    EXPECT_EQ( lAnswers[1].mFromPort, lPort );
}

TEST_F( TftpServer, AnswersWithAnotherBlockNumber )
{
    VirtualTftpServer::Disturbance lWrong;
    lWrong.mTrouble = Trouble::WRONG_BLOCK;
    lWrong.mFirst = 1;
    lWrong.mCount = 2;
    lWrong.mBlockOffset = 0xFFFF;
    mServer.Disturb( lWrong );
    const uint16_t lPort = Offer( "a.bin" );
    EXPECT_EQ( Exchange( Data( 1, Pattern( 512 ) ), lPort ).mBytes, Ack( 0 ) );
    EXPECT_EQ( Exchange( Data( 2, Pattern( 512 ) ), lPort ).mBytes, Ack( 1 ) );
    EXPECT_EQ( Exchange( Data( 3, { 1 } ), lPort ).mBytes, Ack( 3 ) );
}

TEST_F( TftpServer, AnswersFromAForeignPort )
{
    Disturb( Trouble::FOREIGN_PORT, 1 );
    const uint16_t lPort = Offer( "a.bin" );
    const Outgoing lAnswer = Exchange( Data( 1, Pattern( 512 ) ), lPort );
    EXPECT_EQ( lAnswer.mBytes, Ack( 1 ) );
    EXPECT_EQ( lAnswer.mFromPort, 40069 );
    EXPECT_EQ( Exchange( Data( 2, { 1 } ), 40069 ).mBytes, Error( 5, "Unknown transfer ID" ) );
    EXPECT_EQ( Exchange( Data( 2, { 1 } ), lPort ).mBytes, Ack( 2 ) );
}

TEST_F( TftpServer, EndsTheSessionWithAnError )
{
    VirtualTftpServer::Disturbance lError;
    lError.mTrouble = Trouble::ERROR_PACKET;
    lError.mFirst = 1;
    lError.mErrorCode = 3;
    lError.mMessage = "Flash worn out";
    mServer.Disturb( lError );
    const uint16_t lPort = Offer( "a.bin" );
    const Outgoing lAnswer = Exchange( Data( 1, Pattern( 512 ) ), lPort );
    EXPECT_EQ( lAnswer.mBytes, Error( 3, "Flash worn out" ) );
    EXPECT_EQ( lAnswer.mFromPort, lPort );
    EXPECT_EQ( mServer.GetSessionCount(), 0U );
    EXPECT_EQ( mServer.GetCounters().mErrors, 1U );
}

TEST_F( TftpServer, LatestDisturbanceOfAnAnswerApplies )
{
    Disturb( Trouble::SILENCE, 0, VirtualTftpServer::FOR_EVER );
    Disturb( Trouble::DUPLICATE, 2 );
    EXPECT_THAT( Receive( WriteRequest( "a.bin" ) ), IsEmpty() );
    EXPECT_THAT( Receive( WriteRequest( "a.bin" ) ), IsEmpty() );
    EXPECT_THAT( Receive( WriteRequest( "a.bin" ) ), SizeIs( 2 ) );
    EXPECT_THAT( Receive( WriteRequest( "a.bin" ) ), IsEmpty() );
}

TEST_F( TftpServer, SummaryCounts )
{
    const uint16_t lPort = Offer( "a.bin" );
    (void)Receive( Data( 1, { 1 } ), lPort );
    (void)Receive( Data( 1, { 1 } ), lPort );
    (void)Receive( ReadRequest( "missing" ) );
    (void)Receive( { 0 } );
    EXPECT_EQ( mServer.GetSummary(),
               "1 uploads published, 0 downloads delivered; 5 datagrams: 1 read requests, 1 write "
               "requests, 1 repeated, 1 dropped; 4 answers, 1 of them errors" );
}

TEST_F( TftpServer, CopiesAreIndependent )
{
    const uint16_t lPort = Offer( "a.bin" );
    VirtualTftpServer lCopy( mServer );
    EXPECT_EQ( Exchange( Data( 1, { 1 } ), lPort ).mBytes, Ack( 1 ) );
    EXPECT_EQ( lCopy.FindFile( "a.bin" ), nullptr );
    EXPECT_EQ( lCopy.GetSessionCount(), 1U );
}

// Whatever arrives, wherever: an answer for each, at most; no crash, no endless loop.
TEST_F( TftpServer, HandlesGarbage )
{
    mServer.SetFile( "f", Pattern( 2000 ) );
    for ( unsigned int lSeed = 1; lSeed < 20000; ++lSeed )
    {
        Bytes lBytes = Pattern( lSeed % 40, lSeed );
        if ( lBytes.size() > 2 )
        {
            lBytes[0] = 0;
            lBytes[1] = static_cast<uint8_t>( lSeed % 7 );
        }
        const auto lPort = static_cast<uint16_t>( lSeed % 3 == 0 ? 0 : 50000 + lSeed % 70 );
        EXPECT_LE( Receive( lBytes, lPort ).size(), 1U );
        EXPECT_LE( mServer.GetSessionCount(), 64U );
        mNow += lSeed % 100;
    }
    EXPECT_EQ( mServer.GetCounters().mReceived, 19999U );
}

TEST( FaultPlanPorts, StraysAndCopiesAreSentFromThePortOfTheDatagram )
{
    FaultPlan::Rates lRates;
    lRates.mStray = 1.0;
    lRates.mDuplicate = 1.0;
    FaultPlan lPlan( lRates, 5 );
    Outgoing lDatagram;
    lDatagram.mBytes = { 1, 2, 3 };
    lDatagram.mTo = CLIENT;
    lDatagram.mFromPort = 50001;
    const std::vector<Outgoing> lArrived = lPlan.Apply( lDatagram );
    ASSERT_THAT( lArrived, SizeIs( 3 ) );
    for ( const Outgoing& lOutgoing : lArrived )
    {
        EXPECT_EQ( lOutgoing.mFromPort, 50001 );
    }
}
