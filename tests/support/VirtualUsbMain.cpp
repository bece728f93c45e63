// main of the tests that need a USB bus of their own.

#include "tests/support/VirtualUsb.h"

#include <gmock/gmock.h>

// The emulation's libraries, and libudev, synchronise in ways that the thread sanitizer does not
// see.
extern "C" [[gnu::visibility( "default" )]] const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions()
{
    return "race:libumockdev.so\nrace:libglib-2.0.so\nrace:libgobject-2.0.so\n"
           "race:libudev.so\n";
}

int main( int aCount, char** aArguments )
{
    TestSupport::RunInVirtualUsb( aArguments );
    testing::InitGoogleMock( &aCount, aArguments );
    return RUN_ALL_TESTS();
}
