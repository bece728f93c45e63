// The README keeps what it promises.

#include "tests/support/ChildProcess.h"
#include "tests/support/LoopbackDevice.h"
#include "tests/support/NetworkNamespace.h"

TEST( Readme, ProgramReadsARegister )
{
    const std::string lReason = TestSupport::EnterNetworkNamespace();
    if ( !lReason.empty() )
    {
        GTEST_SKIP() << lReason;
    }
    const TestSupport::WellKnownDevice lDevice;
    const TestSupport::Outcome lOutcome =
        TestSupport::RunProgram( { README_PROGRAM, "127.0.0.1" } );
    EXPECT_EQ( 0, lOutcome.mStatus ) << lOutcome.mError;
    EXPECT_EQ( "GigE Vision 2.0\n", lOutcome.mOutput );
}
