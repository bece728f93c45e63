// main of the tests that need a USB bus of their own.

#include "tests/support/VirtualUsb.h"

#include <gmock/gmock.h>

int main( int aCount, char** aArguments )
{
    TestSupport::RunInVirtualUsb( aArguments );
    testing::InitGoogleMock( &aCount, aArguments );
    return RUN_ALL_TESTS();
}
