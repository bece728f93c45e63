// The u3v commands of a program that was built without libusb.

#include "tests/integration/tool/ToolTest.h"

using testing::HasSubstr;

namespace TestSupport
{

TEST( NoUsb, EveryCommandSaysThatTheProgramHasNoUsb )
{
    const TemporaryDirectory lFolder;
    WriteWholeFile( lFolder.GetPath( "image" ), "four" );
    const Arguments lLines[] = { { "list" },
                                 { "info", "1-1" },
                                 { "read", "1AB200000001", "0" },
                                 { "write", "1-1", "0=1" },
                                 { "dump", "1-1", "0", "4", "-o", lFolder.GetPath( "dump" ) },
                                 { "load", "1-1", "0", lFolder.GetPath( "image" ) } };
    for ( Arguments lLine : lLines )
    {
        SCOPED_TRACE( lLine[0] );
        lLine.insert( lLine.begin(), "u3v" );
        const Outcome lOutcome = RunTool( lLine );
        EXPECT_EQ( lOutcome.mStatus, 1 );
        EXPECT_EQ( lOutcome.mOutput, "" );
        ExpectOneSentence( lOutcome.mError );
        EXPECT_THAT( lOutcome.mError,
                     HasSubstr( "cannot list the USB3 Vision devices on this machine: " ) );
        EXPECT_THAT( lOutcome.mError,
                     HasSubstr( " - the program was built without libusb-1.0\n" ) );
    }
    EXPECT_EQ( lFolder.List(), std::vector<std::string>{ "image" } );
}

TEST( NoUsb, AJsonReportHasTheError )
{
    const Outcome lOutcome = RunTool( { "u3v", "info", "1-1", "--json" } );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_EQ( ParseReport( lOutcome )["error"]["code"], "NOT_SUPPORTED" );
}

} // namespace TestSupport
