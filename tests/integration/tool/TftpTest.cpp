// tftp put, tftp get, sim tftp and sim gev --tftp, each test in a network of its own.

#include "tests/integration/tool/ToolTest.h"
#include "tests/support/LoopbackTftpServer.h"
#include "tests/support/NetworkNamespace.h"

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace TestSupport
{

namespace
{

using Simulators::Bytes;
using Simulators::DeviceServer;
using Simulators::VirtualTftpServer;
using Trouble = VirtualTftpServer::Trouble;

constexpr const char* HOST = "127.0.0.1";

Bytes ToBytes( const std::string& aText )
{
    return Bytes( aText.begin(), aText.end() );
}

class Tftp : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string lReason = EnterTftpNetwork();
        if ( !lReason.empty() )
        {
            GTEST_SKIP() << lReason;
        }
    }

    // Serves on port 69; otherwise the first use does without faults.
    void Serve( const DeviceServer::Options& aOptions )
    {
        mServer.reset(); // frees the port
        mServer = std::make_unique<LoopbackTftpServer>( aOptions );
        ASSERT_TRUE( mServer->GetOpened().IsOK() );
    }

    LoopbackTftpServer& GetServer()
    {
        if ( mServer == nullptr )
        {
            Serve( {} );
        }
        return *mServer;
    }

    void Disturb( Trouble aTrouble, uint64_t aFirst, uint64_t aCount = 1,
                  const std::string& aMessage = "Disturbed" )
    {
        VirtualTftpServer::Disturbance lDisturbance;
        lDisturbance.mTrouble = aTrouble;
        lDisturbance.mFirst = aFirst;
        lDisturbance.mCount = aCount;
        lDisturbance.mMessage = aMessage;
        GetServer().Access( [&]( VirtualTftpServer& aServer )
                            { aServer.Disturb( lDisturbance ); } );
    }

    void SetFile( const std::string& aName, const std::string& aContent )
    {
        GetServer().Access( [&]( VirtualTftpServer& aServer )
                            { aServer.SetFile( aName, ToBytes( aContent ) ); } );
    }

    VirtualTftpServer::Counters GetCounters()
    {
        return GetServer().Access( []( const VirtualTftpServer& aServer )
                                   { return aServer.GetCounters(); } );
    }

    std::vector<std::string> GetNames()
    {
        return GetServer().Access( []( const VirtualTftpServer& aServer )
                                   { return aServer.GetFileNames(); } );
    }

    // Waits until the server has got this many datagrams; fails the test when it does not.
    void WaitForDatagrams( uint64_t aCount, ChildProcess& aChild )
    {
        for ( int lTry = 0; lTry < 1000; ++lTry )
        {
            if ( GetCounters().mReceived >= aCount )
            {
                return;
            }
            (void)aChild.WaitForOutput( "no such text", 10 );
        }
        FAIL() << "the server did not get " << aCount << " datagrams: " << aChild.GetError();
    }

    // A file of these bytes in the test's folder.
    std::string MakeFile( const std::string& aBytes, const std::string& aName = "image" )
    {
        WriteWholeFile( mFolder.GetPath( aName ), aBytes );
        return mFolder.GetPath( aName );
    }

    // Expects status 1, one sentence with aSentence in it, and that nothing was sent.
    void ExpectUnsent( const Arguments& aArguments, const std::string& aSentence, int aStatus = 1 )
    {
        const Outcome lOutcome = RunTool( aArguments );
        EXPECT_EQ( lOutcome.mStatus, aStatus );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError, HasSubstr( aSentence ) );
        EXPECT_EQ( GetCounters().mReceived, 0U );
    }

    TemporaryDirectory mFolder;

private:
    std::unique_ptr<LoopbackTftpServer> mServer;
};

class Put : public Tftp
{
protected:
    void SetUp() override
    {
        Tftp::SetUp();
        if ( !IsSkipped() )
        {
            Serve( {} );
        }
    }
};

using Get = Tftp;

// A TFTP server that answers each datagram to port 69 with the same one.
class Parrot
{
public:
    explicit Parrot( const Bytes& aAnswer )
        : mServer(
              [aAnswer]( const Simulators::Endpoint& aFrom, const uint8_t* /*aData*/,
                         size_t /*aSize*/, int64_t /*aNow*/ )
              {
                  Simulators::Outgoing lOutgoing;
                  lOutgoing.mBytes = aAnswer;
                  lOutgoing.mTo = aFrom;
                  return std::vector<Simulators::Outgoing>{ lOutgoing };
              } )
    {
        DeviceServer::Options lOptions;
        lOptions.mPort = 69;
        EXPECT_TRUE( mServer.Open( lOptions ).IsOK() );
        mServer.Start();
    }

private:
    DeviceServer mServer;
};

} // namespace

TEST_F( Put, FilesOfEverySizeArriveByteForByte )
{
    for ( const size_t lSize : { 0U, 1U, 511U, 512U, 513U, 1024U, 100000U } )
    {
        const std::string lContent = MakeBytes( lSize );
        const Outcome lOutcome = RunTool( { "tftp", "put", HOST, MakeFile( lContent ) } );
        EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError, HasSubstr( "sent " + std::to_string( lSize ) + " byte" ) );
        EXPECT_THAT( lOutcome.mError, HasSubstr( " to 127.0.0.1:69" ) );
        EXPECT_TRUE( GetServer().GetFile( "image" ) == ToBytes( lContent ) ) << lSize;
    }
    EXPECT_EQ( GetCounters().mPublished, 7U );
}

TEST_F( Put, TheNameOnTheDeviceIsTheFilesOwnOrTheOneGiven )
{
    const std::string lPath = MakeFile( "abc" );
    const std::string lLongest( 1015, 'n' );
    EXPECT_EQ( RunTool( { "tftp", "put", HOST, lPath } ).mStatus, 0 );
    EXPECT_EQ( RunTool( { "tftp", "put", HOST, lPath, "--as", "/fw/%s%n.bin" } ).mStatus, 0 );
    EXPECT_EQ( RunTool( { "tftp", "put", HOST, lPath, "--as", "gr\xC3\xBC\xC3\x9F" } ).mStatus, 0 );
    EXPECT_EQ( RunTool( { "tftp", "put", HOST, lPath, "--as", lLongest } ).mStatus, 0 );
    EXPECT_THAT( GetNames(), testing::UnorderedElementsAre( "image", "/fw/%s%n.bin",
                                                            "gr\xC3\xBC\xC3\x9F", lLongest ) );
}

TEST_F( Put, UnsendableFilesAndNamesAreRefusedBeforeAnythingIsSent )
{
    const std::string lPath = MakeFile( "abc" );
    const std::string lPipe = mFolder.GetPath( "pipe" );
    ASSERT_EQ( mkfifo( lPipe.c_str(), 0600 ), 0 );
    const std::string lLarge = MakeFile( "", "large" );
    ASSERT_EQ( truncate( lLarge.c_str(), off_t{ 1 } << 32 ), 0 ); // takes no room
    ExpectUnsent( { "tftp", "put", HOST, mFolder.GetPath( "none" ) }, "No such file or directory" );
    ExpectUnsent( { "tftp", "put", HOST, mFolder.GetPath() }, "Is a directory" );
    ExpectUnsent( { "tftp", "put", HOST, lPipe }, "it is not a regular file" );
    ExpectUnsent( { "tftp", "put", HOST, "/dev/null" }, "it is not a regular file" );
    ExpectUnsent( { "tftp", "put", HOST, lLarge }, "it is longer than 4294967295 bytes" );
    ExpectUnsent( { "tftp", "put", HOST, lPath, "--as", std::string( 1016, 'n' ) },
                  "has 1016 bytes; no more than 1015 fit into a request" );
    ExpectUnsent( { "tftp", "put", HOST, lPath, "--as", "" }, "is empty", 2 );
    ExpectUnsent( { "tftp", "put", "127.0.0.1:70", lPath }, "always go to port 69", 2 );
}

TEST_F( Put, TheReportDescribesTheTransfer )
{
    const std::string lPath = MakeFile( MakeBytes( 700 ) );
    const Outcome lGood = RunTool( { "tftp", "put", HOST, lPath, "--as", "fw", "--json" } );
    EXPECT_EQ( lGood.mStatus, 0 );
    EXPECT_THAT( lGood.mError, IsEmpty() );
    nlohmann::json lReport = ParseReport( lGood );
    EXPECT_EQ( lReport["device"], "127.0.0.1:69" );
    EXPECT_EQ( lReport["file"], lPath );
    EXPECT_EQ( lReport["name"], "fw" );
    EXPECT_EQ( lReport["bytes"], 700 );
    EXPECT_EQ( lReport["bytesAcknowledged"], 700 );
    EXPECT_EQ( lReport["warnings"], nlohmann::json::array() );

    // Of the second upload the request, then block 1, are acknowledged.
    Disturb( Trouble::ERROR_PACKET, 3 + 2, 1, "Flash\x1B[2J is full." );
    const Outcome lBad = RunTool( { "tftp", "put", HOST, lPath, "--json" } );
    EXPECT_EQ( lBad.mStatus, 1 );
    ExpectOneSentence( lBad.mError );
    EXPECT_THAT( lBad.mError, AllOf( HasSubstr( "Flash\\x1B[2J is full, 512 of 700 bytes were "
                                                "acknowledged" ),
                                     Not( HasSubstr( "\x1B" ) ) ) );
    lReport = ParseReport( lBad );
    EXPECT_EQ( lReport["bytesAcknowledged"], 512 );
    EXPECT_EQ( lReport["error"]["code"], "0x0013" );
}

TEST_F( Put, ATerminalGetsBytesRateAndTimeLeft )
{
    Simulators::FaultPlan::Rates lRates;
    lRates.mDelay = 1;
    lRates.mMaxDelayMs = 4;
    DeviceServer::Options lOptions;
    lOptions.mAnswerFaults = Simulators::FaultPlan( lRates, 1 );
    Serve( lOptions );
    ChildProcess::Options lTerminal;
    lTerminal.mErrorIsTerminal = true;
    const Outcome lOutcome =
        RunTool( { "tftp", "put", HOST, MakeFile( MakeBytes( 102400 ) ) }, lTerminal );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT(
        lOutcome.mError,
        AllOf( HasSubstr( "]   0 %  0 of 102400 bytes" ),
               ContainsRegex( "\\[#*\\.+\\] +[1-9][0-9]? %  [0-9]+ of 102400 bytes  [0-9.]+ "
                              "k?M?B/s  0:[0-9][0-9] left" ),
               ContainsRegex( "\\[#+\\] 100 %  102400 of 102400 bytes  [0-9.]+ k?M?B/s  "
                              "0:00 left *\n" ) ) );
    EXPECT_THAT( RunTool( { "tftp", "put", HOST, MakeFile( "abc" ) } ).mError,
                 Not( HasSubstr( "%" ) ) );
}

// Five acknowledges in a row with a wrong number, then silence.
TEST_F( Put, WarningsShowWhileTheTransferRuns )
{
    Disturb( Trouble::WRONG_BLOCK, 1, 5 );
    Disturb( Trouble::SILENCE, 6, VirtualTftpServer::FOR_EVER );
    ChildProcess lChild( MakeToolCommand( { "tftp", "put", HOST, MakeFile( MakeBytes( 700 ) ) } ) );
    EXPECT_TRUE( lChild.WaitForError( "warning: Invalid or missing ACK, retrying....\n" ) );
    EXPECT_TRUE( lChild.WaitForError( "warning: Invalid or missing ACK, retrying.....\n" ) );
    lChild.Signal( SIGINT );
    EXPECT_EQ( lChild.Wait().mStatus, 1 );
    EXPECT_THAT( lChild.GetError(), HasSubstr( "interrupted before it could send" ) );
}

TEST_F( Put, WarningsAreInTheReport )
{
    Disturb( Trouble::WRONG_BLOCK, 1, 5 );
    const std::string lContent = MakeBytes( 700 );
    const Outcome lOutcome = RunTool( { "tftp", "put", HOST, MakeFile( lContent ), "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
    EXPECT_THAT( ParseReport( lOutcome )["warnings"].get<std::vector<std::string>>(),
                 ElementsAre( "Invalid or missing ACK, retrying....",
                              "Invalid or missing ACK, retrying....." ) );
    EXPECT_TRUE( GetServer().GetFile( "image" ) == ToBytes( lContent ) );
}

TEST_F( Put, CtrlCAbortsAndReportsProgress )
{
    for ( const int lSignal : { SIGINT, SIGTERM } )
    {
        const VirtualTftpServer::Counters lBefore = GetCounters();
        Disturb( Trouble::SILENCE, lBefore.mAnswers + 2, VirtualTftpServer::FOR_EVER );
        ChildProcess lChild(
            MakeToolCommand( { "tftp", "put", HOST, MakeFile( MakeBytes( 2000 ) ), "--json" } ) );
        // The request, block 1, and block 2, which is not acknowledged.
        WaitForDatagrams( lBefore.mReceived + 3, lChild );
        lChild.Signal( lSignal );
        const Ending lEnding = lChild.Wait();
        EXPECT_TRUE( lEnding.mExited );
        EXPECT_EQ( lEnding.mStatus, 1 );
        ExpectOneSentence( lChild.GetError() );
        EXPECT_THAT( lChild.GetError(), AllOf( HasSubstr( "interrupted before it could send" ),
                                               HasSubstr( "512 of 2000 bytes were" ) ) );
        EXPECT_THAT( lChild.GetOutput(), HasSubstr( "\"code\": \"ABORTED\"" ) );
        GetServer().Access( [&]( VirtualTftpServer& aServer ) { aServer = VirtualTftpServer(); } );
    }
}

// The abort itself takes until the client's wait of a second is over.
TEST_F( Put, ASecondCtrlCEndsTheProgramAtOnce )
{
    Disturb( Trouble::SILENCE, 0, VirtualTftpServer::FOR_EVER );
    ChildProcess lChild( MakeToolCommand( { "tftp", "put", HOST, MakeFile( "abc" ) } ) );
    WaitForDatagrams( 1, lChild );
    Ending lEnding;
    for ( int lTimes = 0; lTimes < 2; ++lTimes )
    {
        lChild.Signal( SIGINT );
        (void)lChild.WaitForError( "interrupted", 50 ); // lets the first one be seen
    }
    lEnding = lChild.Wait();
    EXPECT_TRUE( lEnding.mExited );
    EXPECT_EQ( lEnding.mStatus, 1 );
    EXPECT_EQ( lChild.GetError(), "htbase: interrupted\n" );
}

TEST_F( Get, FetchesAFileThatFitsOneBlock )
{
    for ( const size_t lSize : { 0U, 1U, 511U } )
    {
        const std::string lContent = MakeBytes( lSize );
        SetFile( "a.bin", lContent );
        const std::string lPath = MakeFile( "what was there before", "out" );
        const Outcome lOutcome = RunTool( { "tftp", "get", HOST, "a.bin", "-o", lPath } );
        EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
        EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
        EXPECT_EQ( ReadWholeFile( lPath ), lContent );
        EXPECT_THAT( mFolder.List(), ElementsAre( "out" ) );
    }
}

TEST_F( Get, AFullBlockIsKeptAndReportedAsPossiblyIncomplete )
{
    for ( const size_t lSize : { 512U, 513U, 5000U } )
    {
        const std::string lContent = MakeBytes( lSize );
        SetFile( "a.bin", lContent );
        const std::string lPath = mFolder.GetPath( "out" );
        const Outcome lOutcome = RunTool( { "tftp", "get", HOST, "a.bin", "-o", lPath, "--json" } );
        EXPECT_EQ( lOutcome.mStatus, 3 );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError, HasSubstr( "may be incomplete: it has the first 512" ) );
        EXPECT_EQ( ReadWholeFile( lPath ), lContent.substr( 0, 512 ) );
        const nlohmann::json lReport = ParseReport( lOutcome );
        EXPECT_EQ( lReport["bytes"], 512 );
        EXPECT_EQ( lReport["possiblyIncomplete"], true );
        EXPECT_FALSE( lReport.contains( "error" ) );
    }
}

// The library takes up to 514 bytes for a block.
TEST_F( Get, ABlockThatIsTooLongIsKeptWhole )
{
    const std::string lContent = MakeBytes( 514 );
    Bytes lBlock = { 0x00, 0x03, 0x00, 0x01 }; // DATA, block 1
    lBlock.insert( lBlock.end(), lContent.begin(), lContent.end() );
    const Parrot lServer( lBlock );
    const std::string lPath = mFolder.GetPath( "out" );
    EXPECT_EQ( RunTool( { "tftp", "get", HOST, "a.bin", "-o", lPath } ).mStatus, 3 );
    EXPECT_EQ( ReadWholeFile( lPath ), lContent );
}

TEST_F( Get, AnAnswerOtherThanTheFirstBlockFailsAndKeepsTheTarget )
{
    const std::vector<std::pair<Bytes, std::string>> lAnswers = {
        { { 0x00, 0x04, 0x00, 0x01 }, "Unexpected packet" },                        // ACK 1
        { { 0xFF, 0xFF, 0xFF, 0xFF, 0xFF }, "Unexpected packet" },                  // nothing
        { { 0x00, 0x03, 0x00, 0x02, 0x41 }, "Unexpected block ID. Resending ACK" }, // DATA 2
        { { 0x00, 0x05, 0x00, 0x01, 'N', 'o', '%', 's', 0x0A, 0x00 }, "No%s\\x0A; noth" }, // ERROR
        { { 0x00, 0x05, 0x00, 0x01, 0x00 }, "gave no reason; nothing was written" },       // ERROR
    };
    for ( const auto& [lAnswer, lSentence] : lAnswers )
    {
        const Parrot lServer( lAnswer );
        const std::string lPath = MakeFile( "before", "out" );
        const Outcome lOutcome = RunTool( { "tftp", "get", HOST, "a.bin", "-o", lPath, "--json" } );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError, HasSubstr( lSentence ) );
        EXPECT_TRUE( ParseReport( lOutcome ).contains( "error" ) );
        EXPECT_EQ( ReadWholeFile( lPath ), "before" );
        EXPECT_THAT( mFolder.List(), ElementsAre( "out" ) );
    }
}

TEST_F( Get, AMissingFileFailsWithTheDevicesMessage )
{
    (void)GetServer();
    const std::string lPath = mFolder.GetPath( "out" );
    const Outcome lOutcome = RunTool( { "tftp", "get", HOST, "none", "-o", lPath } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_EQ( lOutcome.mError, "htbase: cannot fetch 'none' from 127.0.0.1:69: File not found; "
                                "nothing was written\n" );
    EXPECT_THAT( mFolder.List(), IsEmpty() );
}

TEST_F( Get, TheFileIsWrittenToTheGivenPathOrItsOwnName )
{
    SetFile( "../up/a.bin", "abc" );
    ChildProcess::Options lHere;
    lHere.mDirectory = mFolder.GetPath();
    EXPECT_EQ( RunTool( { "tftp", "get", HOST, "../up/a.bin" }, lHere ).mStatus, 0 );
    EXPECT_THAT( mFolder.List(), ElementsAre( "a.bin" ) );
    EXPECT_EQ( ReadWholeFile( mFolder.GetPath( "a.bin" ) ), "abc" );
}

TEST_F( Get, InvalidTargetsAreRefusedBeforeAnythingIsSent )
{
    ExpectUnsent( { "tftp", "get", HOST, "fw/" }, "does not end in a file name", 2 );
    ExpectUnsent( { "tftp", "get", HOST, ".." }, "does not end in a file name", 2 );
    ExpectUnsent( { "tftp", "get", HOST, "a", "-o", mFolder.GetPath( "no/out" ) },
                  "No such file or directory", 2 );
    ExpectUnsent( { "tftp", "get", HOST, "a", "-o", mFolder.GetPath() }, "Is a directory", 2 );
    ExpectUnsent( { "tftp", "get", HOST, std::string( 1016, 'n' ), "-o", mFolder.GetPath( "o" ) },
                  "no more than 1015 fit" );
    EXPECT_THAT( mFolder.List(), IsEmpty() );
}

TEST_F( Get, ATargetThatCannotBeWrittenIsAFailure )
{
    SetFile( "a.bin", "abc" );
    const Outcome lOutcome = RunTool( { "tftp", "get", HOST, "a.bin", "-o", "/dev/full" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "No space left on device" ) );
}

TEST_F( Get, CtrlCAbortsAndLeavesNothingBehind )
{
    SetFile( "a.bin", "abc" );
    Disturb( Trouble::SILENCE, 0, VirtualTftpServer::FOR_EVER );
    ChildProcess lChild(
        MakeToolCommand( { "tftp", "get", HOST, "a.bin", "-o", mFolder.GetPath( "out" ) } ) );
    WaitForDatagrams( 1, lChild );
    lChild.Signal( SIGINT );
    EXPECT_EQ( lChild.Wait().mStatus, 1 );
    EXPECT_THAT( lChild.GetError(), AllOf( HasSubstr( "interrupted before it could fetch" ),
                                           EndsWith( "; nothing was written\n" ) ) );
    EXPECT_THAT( mFolder.List(), IsEmpty() );
}

namespace
{

// A virtual device as a program, on port 69, with a folder.
class TftpSim : public Tftp
{
protected:
    void Start( const Arguments& aArguments )
    {
        mProcess = std::make_unique<ChildProcess>( MakeToolCommand( aArguments ) );
        mFirstLine = mProcess->ReadLine().value_or( "" );
        ASSERT_THAT( mFirstLine, StartsWith( "127.0.0.1:" ) ) << mProcess->GetError();
    }

    void Stop()
    {
        mProcess->Signal( SIGTERM );
        EXPECT_EQ( mProcess->Wait().mStatus, 0 );
    }

    std::unique_ptr<ChildProcess> mProcess;
    std::string mFirstLine;
};

} // namespace

TEST_F( TftpSim, UploadsGoIntoTheFolderAndItsFilesAreServed )
{
    const TemporaryDirectory lDevice;
    WriteWholeFile( lDevice.GetPath( "version" ), "1.2.3" );
    Start( { "sim", "tftp", "--dir", lDevice.GetPath() } );
    EXPECT_EQ( mFirstLine, "127.0.0.1:69" );
    const std::string lContent = MakeBytes( 70000 );
    EXPECT_EQ( RunTool( { "tftp", "put", HOST, MakeFile( lContent ) } ).mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( lDevice.GetPath( "image" ) ), lContent );
    const std::string lPath = mFolder.GetPath( "out" );
    EXPECT_EQ( RunTool( { "tftp", "get", HOST, "version", "-o", lPath } ).mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( lPath ), "1.2.3" );
    Stop();
    EXPECT_THAT( lDevice.List(), ElementsAre( "image", "version" ) );
    EXPECT_THAT( mProcess->GetOutput(),
                 AllOf( HasSubstr( "\ntftp: 1 uploads published, 1 downloads delivered" ),
                        HasSubstr( "\nrequests: " ), HasSubstr( "\nanswers: " ) ) );
}

TEST_F( TftpSim, AnUploadStaysInTheFolderAndReplacesNothingButFiles )
{
    const TemporaryDirectory lDevice;
    const std::string lOutside = MakeFile( "outside", "outside" );
    ASSERT_EQ( symlink( lOutside.c_str(), lDevice.GetPath( "link" ).c_str() ), 0 );
    ASSERT_EQ( mkfifo( lDevice.GetPath( "pipe" ).c_str(), 0600 ), 0 );
    Start( { "sim", "tftp", "--dir", lDevice.GetPath() } );
    const std::string lPath = MakeFile( "abc" );
    for ( const std::string& lName :
          { std::string( "../outside" ), lOutside, std::string( "." ), std::string( ".." ),
            std::string( "link" ), std::string( "pipe" ), std::string( "no/such" ) } )
    {
        const Outcome lOutcome = RunTool( { "tftp", "put", HOST, lPath, "--as", lName } );
        EXPECT_EQ( lOutcome.mStatus, 1 ) << lName;
        EXPECT_THAT( lOutcome.mError, HasSubstr( "The file cannot be kept" ) ) << lName;
    }
    EXPECT_EQ( ReadWholeFile( lOutside ), "outside" );
    EXPECT_THAT( lDevice.List(), ElementsAre( "link", "pipe" ) );
    EXPECT_THAT( mFolder.List(), ElementsAre( "image", "outside" ) );
}

TEST_F( TftpSim, WithoutAFolderUploadsAreKeptInMemory )
{
    Start( { "sim", "tftp" } );
    EXPECT_EQ( RunTool( { "tftp", "put", HOST, MakeFile( "abc" ), "--as", "x/y" } ).mStatus, 0 );
    const std::string lPath = mFolder.GetPath( "out" );
    EXPECT_EQ( RunTool( { "tftp", "get", HOST, "x/y", "-o", lPath } ).mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( lPath ), "abc" );
}

TEST_F( TftpSim, AVirtualCameraServesBothProtocols )
{
    const TemporaryDirectory lDevice;
    Start( { "sim", "gev", "--port", "0", "--no-broadcast", "--tftp", lDevice.GetPath() } );
    EXPECT_EQ( mProcess->ReadLine().value_or( "" ), "TFTP at 127.0.0.1:69" );
    const std::string lContent = MakeBytes( 1024 );
    EXPECT_EQ( RunTool( { "tftp", "put", HOST, MakeFile( lContent ) } ).mStatus, 0 );
    EXPECT_EQ( RunTool( MakePatient( { "gev", "read", mFirstLine, "0" } ) ).mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( lDevice.GetPath( "image" ) ), lContent );
    Stop();
    EXPECT_THAT( mProcess->GetOutput(), AllOf( HasSubstr( "\ndevice: 1 commands: 1 executed" ),
                                               HasSubstr( "\ntftp: 1 uploads published" ) ) );
}

TEST_F( TftpSim, TheSummaryIsOneJsonObject )
{
    const TemporaryDirectory lDevice;
    ChildProcess lProcess(
        MakeToolCommand( { "sim", "gev", "--port", "0", "--tftp", lDevice.GetPath(), "--json" } ) );
    ASSERT_TRUE( lProcess.WaitForError( ", TFTP at 127.0.0.1:69\n" ) );
    EXPECT_EQ( RunTool( { "tftp", "put", HOST, MakeFile( "abc" ) } ).mStatus, 0 );
    lProcess.Signal( SIGTERM );
    EXPECT_EQ( lProcess.Wait().mStatus, 0 );
    Outcome lOutcome;
    lOutcome.mOutput = lProcess.GetOutput();
    const nlohmann::json lReport = ParseReport( lOutcome );
    EXPECT_EQ( lReport["requests"], 0 );
    EXPECT_EQ( lReport["tftp"]["port"], 69 );
    EXPECT_EQ( lReport["tftp"]["uploads"], 1 );
    EXPECT_EQ( lReport["tftp"]["requestFaults"]["passed"], 2 ); // the request and one block
}

TEST_F( TftpSim, APortThatCannotBeServedIsReported )
{
    (void)GetServer(); // has the port
    const Outcome lTaken = RunTool( { "sim", "tftp" } );
    EXPECT_EQ( lTaken.mStatus, 1 );
    ExpectOneSentence( lTaken.mError );
    EXPECT_THAT( lTaken.mError, HasSubstr( "cannot serve at 127.0.0.1:69" ) );
    const Outcome lMissing = RunTool( { "sim", "tftp", "--dir", mFolder.GetPath( "none" ) } );
    EXPECT_EQ( lMissing.mStatus, 2 );
    EXPECT_THAT( lMissing.mError, HasSubstr( "No such file or directory" ) );
}

} // namespace TestSupport
