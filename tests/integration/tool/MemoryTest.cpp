// gev dump and gev load.

#include "tests/integration/tool/ToolTest.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <regex>

using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace TestSupport
{

namespace
{

namespace Command = Simulators::Command;

constexpr uint32_t PRIVILEGE = 0x0A00;

std::string ToText( uint64_t aNumber )
{
    return std::to_string( aNumber );
}

// The last line of a text of lines.
std::string GetLastLine( const std::string& aText )
{
    const size_t lEnd = aText.rfind( '\n', aText.size() - 2 );
    return aText.substr( lEnd == std::string::npos ? 0 : lEnd + 1 );
}

class Memory : public ToolTest
{
protected:
    // Every transfer is of whole words, at most 512 bytes.
    void ExpectWholeWords()
    {
        for ( const SeenCommand& lSeen : GetCommands() )
        {
            const size_t lSize =
                lSeen.mCommand == Command::READMEM ? lSeen.mValue : lSeen.mDataSize;
            EXPECT_EQ( lSeen.mAddress % 4, 0U );
            EXPECT_EQ( lSize % 4, 0U );
            EXPECT_LE( lSize, 512U );
        }
    }

    // A device whose network loses every fifth datagram, the same ones each time.
    void ServeWithLoss( uint64_t aSeed )
    {
        Simulators::FaultPlan::Rates lRates;
        lRates.mLoss = 0.2;
        Simulators::DeviceServer::Options lOptions;
        lOptions.mRequestFaults = Simulators::FaultPlan( lRates, aSeed );
        lOptions.mAnswerFaults = Simulators::FaultPlan( lRates, aSeed + 1 );
        Serve( {}, lOptions );
    }

    TemporaryDirectory mFolder;
};

} // namespace

TEST_F( Memory, ADumpCanBeginAndEndAnywhere )
{
    const std::string lBytes = MakeBytes( 64 );
    SetMemory( MEMORY, lBytes );
    for ( uint32_t lOffset = 0; lOffset < 4; ++lOffset )
    {
        for ( uint32_t lLength = 1; lLength <= 9; ++lLength )
        {
            const std::string lPath = mFolder.GetPath( "dump" );
            const Outcome lOutcome =
                RunGev( "dump", { ToText( MEMORY + lOffset ), ToText( lLength ), "-o", lPath } );
            EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
            EXPECT_EQ( ReadWholeFile( lPath ), lBytes.substr( lOffset, lLength ) )
                << lOffset << " " << lLength;
        }
    }
    ExpectWholeWords();
}

TEST_F( Memory, ALongDumpComesInPieces )
{
    const std::string lBytes = MakeBytes( 2048 );
    SetMemory( MEMORY, lBytes );
    const std::string lPath = mFolder.GetPath( "dump" );
    const Outcome lOutcome = RunGev( "dump", { "0x100003", "1301", "-o", lPath } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( lPath ), lBytes.substr( 3, 1301 ) );
    ExpectWholeWords();
    std::vector<std::pair<uint32_t, uint32_t>> lPieces;
    for ( const SeenCommand& lSeen : GetCommands( Command::READMEM ) )
    {
        lPieces.emplace_back( lSeen.mAddress, lSeen.mValue );
    }
    EXPECT_THAT( lPieces, ElementsAre( std::pair( 0x100000U, 512U ), std::pair( 0x100200U, 512U ),
                                       std::pair( 0x100400U, 280U ) ) );
}

TEST_F( Memory, ADumpIsReadableText )
{
    SetMemory( MEMORY, std::string( "\0ello, world\x7F\xFF~ {|}\n\t\0\0\0", 24 ) );
    const Outcome lOutcome = RunGev( "dump", { "0x100001", "21" } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_EQ( lOutcome.mOutput,
               "0x00100001  65 6c 6c 6f 2c 20 77 6f  72 6c 64 7f ff 7e 20 7b  |ello, world..~ {|\n"
               "0x00100011  7c 7d 0a 09 00                                    ||}...|\n" );
}

TEST_F( Memory, ADumpIsDataInJson )
{
    SetMemory( MEMORY, std::string( "\x01\xAB\xFF\x00", 4 ) );
    const nlohmann::json lReport = ParseReport( RunGev( "dump", { "0x100000", "3", "--json" } ) );
    EXPECT_EQ( lReport["device"], GetTarget() );
    EXPECT_EQ( lReport["address"], 0x100000 );
    EXPECT_EQ( lReport["length"], 3 );
    EXPECT_EQ( lReport["data"], "01abff" );
    EXPECT_EQ( lReport["statistics"]["transfers"], 1 );
}

TEST_F( Memory, TheStatisticsComeLast )
{
    const Outcome lOutcome = RunGev( "dump", { "0x100000", "1024" } );
    EXPECT_EQ(
        lOutcome.mError,
        "htbase: statistics: 2 transfers, 0 repeated commands (at most 0 for one command), 0 "
        "pending acknowledges, 0 transmit failures, 0 repeated pieces, 0 control renewals\n" );
}

TEST_F( Memory, AMebibyteIsWrittenAndReadBack )
{
    const std::string lBytes = MakeBytes( 1 << 20 );
    const std::string lFile = mFolder.GetPath( "image" );
    const std::string lBack = mFolder.GetPath( "back" );
    WriteWholeFile( lFile, lBytes );
    const Outcome lLoaded = RunGev( "load", { "0x100000", lFile } );
    EXPECT_EQ( lLoaded.mStatus, 0 ) << lLoaded.mError;
    EXPECT_TRUE( GetMemory( MEMORY, lBytes.size() ) == lBytes );
    EXPECT_EQ( RunGev( "dump", { "0x100000", "0x100000", "-o", lBack } ).mStatus, 0 );
    EXPECT_TRUE( ReadWholeFile( lBack ) == lBytes );
    EXPECT_FALSE( IsControlHeld() );
}

TEST_F( Memory, TheLastBytesOfAllAddressesCanBeReached )
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mMemoryBase = 0xFFFFF000;
    lConfiguration.mMemorySize = 0x1000;
    Serve( lConfiguration );
    const std::string lFile = mFolder.GetPath( "file" );
    const std::string lBack = mFolder.GetPath( "back" );
    WriteWholeFile( lFile, "end" );
    EXPECT_EQ( RunGev( "load", { "0xFFFFFFFD", lFile } ).mStatus, 0 );
    EXPECT_EQ( RunGev( "dump", { "0xFFFFFFFD", "3", "-o", lBack } ).mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( lBack ), "end" );
    const Outcome lBeyond = RunGev( "dump", { "0xFFFFFFFD", "4" } );
    EXPECT_EQ( lBeyond.mStatus, 2 );
    EXPECT_THAT( lBeyond.mError, HasSubstr( "together exceed the 32-bit address space" ) );
}

TEST_F( Memory, ADumpOfZeroBytesIsWrongUsage )
{
    const Outcome lOutcome = RunGev( "dump", { "0x100000", "0" } );
    EXPECT_EQ( lOutcome.mStatus, 2 );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( GetCommands(), IsEmpty() );
}

TEST_F( Memory, AFailedDumpLeavesNoFileAndNoTemporaryFile )
{
    const std::string lNew = mFolder.GetPath( "new" );
    const std::string lOld = mFolder.GetPath( "old" );
    WriteWholeFile( lOld, "as it was" );
    for ( const std::string& lPath : { lNew, lOld } )
    {
        // The memory ends after the first piece.
        const Outcome lOutcome = RunGev( "dump", { "0x001FFE00", "1024", "-o", lPath } );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        EXPECT_THAT( lOutcome.mError,
                     AllOf( HasSubstr( "cannot read 512 bytes at 0x00200000 of " + GetTarget() ),
                            HasSubstr( "Invalid address" ),
                            HasSubstr( "512 of 1024 bytes were read" ) ) );
        ExpectOneSentence( GetLastLine( lOutcome.mError ) );
    }
    EXPECT_THAT( mFolder.List(), ElementsAre( "old" ) );
    EXPECT_EQ( ReadWholeFile( lOld ), "as it was" );
}

TEST_F( Memory, ADumpReplacesAFileAsAWholeAndKeepsALink )
{
    SetMemory( MEMORY, "new!" );
    const std::string lFile = mFolder.GetPath( "file" );
    const std::string lLink = mFolder.GetPath( "link" );
    WriteWholeFile( lFile, "a long text of before" );
    std::filesystem::create_symlink( "file", lLink );
    EXPECT_EQ( RunGev( "dump", { "0x100000", "4", "-o", lLink } ).mStatus, 0 );
    EXPECT_EQ( ReadWholeFile( lFile ), "new!" );
    EXPECT_TRUE( std::filesystem::is_symlink( lLink ) );
    EXPECT_THAT( mFolder.List(), ElementsAre( "file", "link" ) );
}

TEST_F( Memory, ANewFileHasTheRightsOfAnyNewFile )
{
    const std::string lPath = mFolder.GetPath( "file" );
    const mode_t lMask = umask( 027 );
    const Outcome lOutcome = RunGev( "dump", { "0x100000", "4", "-o", lPath } );
    (void)umask( lMask );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    struct stat lStatus
    {
    };
    ASSERT_EQ( stat( lPath.c_str(), &lStatus ), 0 );
    EXPECT_EQ( lStatus.st_mode & 0777U, 0640U );
}

TEST_F( Memory, AFullDiskIsAFailure )
{
    const Outcome lOutcome = RunGev( "dump", { "0x100000", "4", "-o", "/dev/full" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mError,
                 HasSubstr( "cannot write file '/dev/full': No space left on device" ) );
}

TEST_F( Memory, AFileThatCannotBeCreatedIsReportedBeforeAnythingIsSent )
{
    for ( const std::string& lPath :
          { mFolder.GetPath( "none/file" ), mFolder.GetPath(), std::string() } )
    {
        const Outcome lOutcome = RunGev( "dump", { "0x100000", "4", "-o", lPath } );
        EXPECT_EQ( lOutcome.mStatus, 2 ) << lPath;
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError, HasSubstr( "cannot write file '" + lPath + "'" ) );
    }
    EXPECT_THAT( GetCommands(), IsEmpty() );
}

TEST_F( Memory, CtrlCLeavesNoPartOfADump )
{
    SetSilent( MEMORY + 512 );
    ChildProcess lChild( MakeGevCommand(
        "dump", { "0x100000", "1024", "-o", mFolder.GetPath( "file" ), "--timeout", "600000" } ) );
    WaitForCommand( Command::READMEM, MEMORY + 512 );
    EXPECT_THAT( mFolder.List(), SizeIs( 1 ) ); // the temporary one
    lChild.Signal( SIGINT );
    EXPECT_EQ( lChild.Wait().mStatus, 1 );
    EXPECT_THAT( GetLastLine( lChild.GetError() ),
                 AllOf( HasSubstr( "interrupted" ), HasSubstr( "512 of 1024 bytes were read" ) ) );
    EXPECT_THAT( mFolder.List(), IsEmpty() );
}

TEST_F( Memory, ALoadCanBeginAndEndAnywhereAndKeepsItsNeighbours )
{
    const std::string lPath = mFolder.GetPath( "file" );
    const std::string lBefore = MakeBytes( 32 );
    for ( uint32_t lOffset = 0; lOffset < 4; ++lOffset )
    {
        for ( uint32_t lLength = 1; lLength <= 9; ++lLength )
        {
            SetMemory( MEMORY, lBefore );
            const std::string lText = std::string( "loaded byte" ).substr( 0, lLength );
            WriteWholeFile( lPath, lText );
            const Outcome lOutcome =
                RunGev( "load", { ToText( MEMORY + 4 + lOffset ), lPath, "--json" } );
            EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
            std::string lExpected = lBefore;
            lExpected.replace( 4 + lOffset, lLength, lText );
            EXPECT_EQ( GetMemory( MEMORY, 32 ), lExpected ) << lOffset << " " << lLength;

            std::vector<uint32_t> lMerged;
            if ( lOffset != 0 || lLength < 4 )
            {
                lMerged.push_back( MEMORY + 4 );
            }
            const uint32_t lEnd = lOffset + lLength;
            if ( lEnd > 4 && lEnd % 4 != 0 )
            {
                lMerged.push_back( MEMORY + 4 + lEnd / 4 * 4 );
            }
            const nlohmann::json lReport = ParseReport( lOutcome );
            EXPECT_EQ( lReport["mergedWords"], nlohmann::json( lMerged ) )
                << lOffset << " " << lLength;
            EXPECT_EQ( lReport["bytesWritten"], lLength );
        }
    }
    ExpectWholeWords();
}

TEST_F( Memory, ALoadReportsMergedWords )
{
    const std::string lPath = mFolder.GetPath( "file" );
    WriteWholeFile( lPath, MakeBytes( 6 ) );
    const Outcome lOutcome = RunGev( "load", { "0x100003", lPath } );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    EXPECT_THAT( lOutcome.mError,
                 AllOf( HasSubstr( "the word at 0x00100000 keeps 3 bytes from the device\n" ),
                        HasSubstr( "the word at 0x00100008 keeps 3 bytes from the device\n" ),
                        HasSubstr( "statistics: " ) ) );
}

TEST_F( Memory, AnAlignedLoadReadsNothing )
{
    const std::string lPath = mFolder.GetPath( "file" );
    WriteWholeFile( lPath, MakeBytes( 1300 ) );
    EXPECT_EQ( RunGev( "load", { "0x100000", lPath } ).mStatus, 0 );
    EXPECT_THAT( GetCommands( Command::READMEM ), IsEmpty() );
    std::vector<std::pair<uint32_t, size_t>> lPieces;
    for ( const SeenCommand& lSeen : GetCommands( Command::WRITEMEM ) )
    {
        lPieces.emplace_back( lSeen.mAddress, lSeen.mDataSize );
    }
    EXPECT_THAT( lPieces, ElementsAre( std::pair( 0x100000U, size_t{ 512 } ),
                                       std::pair( 0x100200U, size_t{ 512 } ),
                                       std::pair( 0x100400U, size_t{ 276 } ) ) );
}

TEST_F( Memory, ALoadTakesControlFirstAndReleasesItLast )
{
    const std::string lPath = mFolder.GetPath( "file" );
    WriteWholeFile( lPath, MakeBytes( 7 ) );
    EXPECT_EQ( RunGev( "load", { "0x100001", lPath } ).mStatus, 0 );
    const std::vector<SeenCommand> lSeen = GetCommands();
    ASSERT_GE( lSeen.size(), 3U );
    EXPECT_EQ( lSeen.front().mAddress, PRIVILEGE );
    EXPECT_EQ( lSeen.front().mValue, 2U );
    EXPECT_EQ( lSeen.back().mAddress, PRIVILEGE );
    EXPECT_EQ( lSeen.back().mValue, 0U );
    EXPECT_FALSE( IsControlHeld() );
}

TEST_F( Memory, ALoadWithoutGrantedControlReportsThatNothingWasWritten )
{
    const std::string lPath = mFolder.GetPath( "file" );
    WriteWholeFile( lPath, MakeBytes( 7 ) );
    LoopbackDevice& lDevice = GetDevice();
    lDevice.mServer.Access( [&]
                            { lDevice.mDevice.Refuse( Command::WRITEREG, PRIVILEGE, 0x8006 ); } );
    const Outcome lOutcome = RunGev( "load", { "0x100001", lPath, "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mError, AllOf( HasSubstr( "cannot take control of " + GetTarget() ),
                                         HasSubstr( "0 of 7 bytes reached the device" ) ) );
    EXPECT_EQ( ParseReport( lOutcome )["bytesWritten"], 0 );
    EXPECT_THAT( GetCommands( Command::WRITEMEM ), IsEmpty() );
}

TEST_F( Memory, ALoadWithNoControlDoesNotTouchThePrivilege )
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mRequireControl = false;
    Serve( lConfiguration );
    const std::string lPath = mFolder.GetPath( "file" );
    WriteWholeFile( lPath, "data" );
    EXPECT_EQ( RunGev( "load", { "0x100000", lPath, "--no-control" } ).mStatus, 0 );
    EXPECT_THAT( GetCommands( Command::WRITEREG ), IsEmpty() );
    EXPECT_EQ( GetMemory( MEMORY, 4 ), "data" );
}

TEST_F( Memory, AFileThatCannotBeLoadedIsReportedBeforeAnythingIsSent )
{
    const std::string lEmpty = mFolder.GetPath( "empty" );
    const std::string lLong = mFolder.GetPath( "long" );
    WriteWholeFile( lEmpty, "" );
    WriteWholeFile( lLong, "12345" );
    const std::vector<std::pair<Arguments, std::string>> lCases = {
        { { "0x100000", mFolder.GetPath( "missing" ) }, "No such file or directory" },
        { { "0x100000", "" }, "No such file or directory" },
        { { "0x100000", mFolder.GetPath() }, "Is a directory" },
        { { "0x100000", "/proc/self/mem" }, "Input/output error" }, // its start cannot be read
        { { "0x100000", lEmpty }, "it is empty" },
        { { "0x100000", "/dev/zero" }, "it is neither a regular file nor a pipe" },
        { { "0xFFFFFFFC", lLong }, "it is longer than the 4 bytes" },
        { { "0xFFFFFFFF", lLong }, "it is longer than the 1 byte from" },
    };
    for ( const auto& [lArguments, lReason] : lCases )
    {
        const Outcome lOutcome = RunGev( "load", lArguments );
        EXPECT_EQ( lOutcome.mStatus, 2 );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError,
                     AllOf( HasSubstr( "file '" + lArguments[1] + "'" ), HasSubstr( lReason ) ) );
    }
    EXPECT_THAT( GetCommands(), IsEmpty() );
}

TEST_F( Memory, AnUnreadableFileIsReported )
{
    // Root may read every file, unless the programs it starts may not have that capability.
    if ( geteuid() == 0 )
    {
        ASSERT_EQ( 0, prctl( PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0 ) );
        ASSERT_EQ( 0, prctl( PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0 ) );
    }
    const std::string lPath = mFolder.GetPath( "file" );
    WriteWholeFile( lPath, "secret" );
    std::filesystem::permissions( lPath, std::filesystem::perms::none );
    const Outcome lOutcome = RunGev( "load", { "0x100000", lPath } );
    EXPECT_EQ( lOutcome.mStatus, 2 );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "Permission denied" ) );
    EXPECT_THAT( GetCommands(), IsEmpty() );
}

TEST_F( Memory, ARefusedLoadReportsHowManyBytesReachedTheDevice )
{
    const std::string lPath = mFolder.GetPath( "file" );
    const std::string lBytes = MakeBytes( 2047 );
    WriteWholeFile( lPath, lBytes );
    LoopbackDevice& lDevice = GetDevice();
    lDevice.mServer.Access(
        [&] { lDevice.mDevice.Refuse( Command::WRITEMEM, MEMORY + 1024, 0x8004 ); } );
    const Outcome lOutcome = RunGev( "load", { "0x100001", lPath } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mError,
                 AllOf( HasSubstr( "cannot write 512 bytes at 0x00100400 of " + GetTarget() ),
                        HasSubstr( "Write protect" ),
                        HasSubstr( "1023 of 2047 bytes reached the device" ) ) );
    ExpectOneSentence( GetLastLine( lOutcome.mError ) );
    EXPECT_EQ( GetMemory( MEMORY + 1, 1023 ), lBytes.substr( 0, 1023 ) );
    EXPECT_FALSE( IsControlHeld() );
}

TEST_F( Memory, APieceThatNeverArrivesIsRepeatedFiveTimes )
{
    const std::string lPath = mFolder.GetPath( "file" );
    WriteWholeFile( lPath, MakeBytes( 2048 ) );
    SetSilent( MEMORY + 1024 );
    const Outcome lOutcome =
        RunGev( "load", { "0x100000", lPath, "--timeout", "300", "--retries", "2", "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    const nlohmann::json lReport = ParseReport( lOutcome );
    EXPECT_EQ( lReport["bytesWritten"], 1024 );
    EXPECT_EQ( lReport["length"], 2048 );
    EXPECT_EQ( lReport["statistics"]["piecesRepeated"], 5 );
    EXPECT_EQ( lReport["error"]["code"], "TIMEOUT" );
    EXPECT_THAT( lReport["error"]["message"].get<std::string>(),
                 HasSubstr( "1024 of 2048 bytes reached the device" ) );
    // Two pieces that arrived, and the third: six times, two attempts each.
    EXPECT_THAT( GetCommands( Command::WRITEMEM ), SizeIs( 2 + 12 ) );
    EXPECT_FALSE( IsControlHeld() );
}

TEST_F( Memory, LostDatagramsAreRepeatedAndCounted )
{
    ServeWithLoss( 7 );
    const std::string lBytes = MakeBytes( 16384 );
    const std::string lFile = mFolder.GetPath( "file" );
    const std::string lBack = mFolder.GetPath( "back" );
    WriteWholeFile( lFile, lBytes );
    const Outcome lLoaded =
        RunGev( "load", { "0x100000", lFile, "--timeout", "60", "--retries", "2", "--json" } );
    EXPECT_EQ( lLoaded.mStatus, 0 ) << lLoaded.mError;
    EXPECT_TRUE( GetMemory( MEMORY, lBytes.size() ) == lBytes );
    const Outcome lDumped = RunGev( "dump", { "0x100000", "16384", "-o", lBack, "--timeout", "60",
                                              "--retries", "2", "--json" } );
    EXPECT_EQ( lDumped.mStatus, 0 ) << lDumped.mError;
    EXPECT_TRUE( ReadWholeFile( lBack ) == lBytes );
    const nlohmann::json lThere = ParseReport( lLoaded );
    const nlohmann::json lHere = ParseReport( lDumped );
    EXPECT_GT(
        lThere["statistics"]["retries"].get<int>() + lHere["statistics"]["retries"].get<int>(), 0 );
    EXPECT_GT( lThere["statistics"]["piecesRepeated"].get<int>() +
                   lHere["statistics"]["piecesRepeated"].get<int>(),
               0 );
    EXPECT_EQ( lThere["statistics"]["retriesMax"], 1 );
}

TEST_F( Memory, PendingAcknowledgesAreCounted )
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mPending = { 5000, 30, 1, false, { Command::READMEM } };
    Serve( lConfiguration );
    const nlohmann::json lReport = ParseReport(
        RunGev( "dump", { "0x100000", "1024", "--timeout", "10", "--retries", "50", "--json" } ) );
    EXPECT_GE( lReport["statistics"]["pendingAcknowledges"], 2 );
    EXPECT_EQ( lReport["data"].get<std::string>().size(), 2048U );
}

// When a piece arrives the device has heard nothing for longer than its heartbeat time-out.
TEST_F( Memory, ControlThatExpiredIsTakenAgain )
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mHeartbeatTimeoutMs = 600000;
    Serve( lConfiguration );
    const std::string lPath = mFolder.GetPath( "file" );
    const std::string lBytes = MakeBytes( 1024 );
    WriteWholeFile( lPath, lBytes );
    OnCommand( Command::WRITEMEM, MEMORY + 512,
               []( LoopbackDevice& aDevice ) { aDevice.mLeapMs = 600001; } );
    const Outcome lOutcome = RunGev( "load", { "0x100000", lPath } );
    EXPECT_EQ( lOutcome.mStatus, 0 ) << lOutcome.mError;
    EXPECT_EQ( GetMemory( MEMORY, 1024 ), lBytes );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "1 control renewal\n" ) );
    EXPECT_FALSE( IsControlHeld() );
}

TEST_F( Memory, CtrlCDuringALoadReportsProgressAndReleasesControl )
{
    const std::string lPath = mFolder.GetPath( "file" );
    WriteWholeFile( lPath, MakeBytes( 2048 ) );
    SetSilent( MEMORY + 512 );
    ChildProcess lChild( MakeGevCommand( "load", { "0x100000", lPath, "--timeout", "600000" } ) );
    WaitForCommand( Command::WRITEMEM, MEMORY + 512 );
    lChild.Signal( SIGTERM );
    EXPECT_EQ( lChild.Wait().mStatus, 1 );
    EXPECT_THAT(
        GetLastLine( lChild.GetError() ),
        AllOf( HasSubstr( "interrupted" ), HasSubstr( "512 of 2048 bytes reached the device" ) ) );
    EXPECT_FALSE( IsControlHeld() );
}

// Before there is anything to clean up.
TEST_F( Memory, CtrlCWhileWaitingForTheFileEndsTheProgramWithAMessage )
{
    const std::string lPath = mFolder.GetPath( "pipe" );
    ASSERT_EQ( mkfifo( lPath.c_str(), 0600 ), 0 );
    ChildProcess lChild( MakeGevCommand( "load", { "0x100000", lPath } ) );
    // Opens as soon as the program reads; nothing is written.
    const int lWriter = open( lPath.c_str(), O_WRONLY | O_CLOEXEC );
    ASSERT_GE( lWriter, 0 );
    lChild.Signal( SIGINT );
    const Ending lEnding = lChild.Wait();
    (void)close( lWriter ); // nothing was written
    EXPECT_TRUE( lEnding.mExited );
    EXPECT_EQ( lEnding.mStatus, 1 );
    EXPECT_EQ( lChild.GetError(), "htbase: interrupted\n" );
    EXPECT_THAT( GetCommands(), IsEmpty() );
}

TEST_F( Memory, ATerminalGetsAProgressBar )
{
    ChildProcess::Options lTerminal;
    lTerminal.mErrorIsTerminal = true;
    const Outcome lOutcome = RunGev( "dump", { "0x100000", "2048" }, lTerminal );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mError,
                 AllOf( HasSubstr( "]   0 %  0 of 2048 bytes" ), HasSubstr( "]  25 %" ),
                        ContainsRegex( "\\[########################\\] 100 %  2048 of 2048 bytes  "
                                       "[0-9.]+ k?M?B/s  0:00 left *\n" ),
                        HasSubstr( "statistics: 4 transfers" ) ) );
    EXPECT_THAT( RunGev( "dump", { "0x100000", "2048" } ).mError, Not( HasSubstr( "%" ) ) );
}

} // namespace TestSupport
