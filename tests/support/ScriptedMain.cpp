// main of the tests on the scripted platform: a script that is not followed fails the test.

#include <WdUtilsLib/Scripted/Network.h>

#include <gmock/gmock.h>

int main( int aCount, char** aArguments )
{
    testing::InitGoogleMock( &aCount, aArguments );
    WdUtilsLib::Scripted::SetFailureReporter( []( const std::string& aSentence )
                                              { ADD_FAILURE() << aSentence; } );
    return RUN_ALL_TESTS();
}
