#include <QmUtilsLib/Assert.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace QmUtilsLib
{

namespace
{

void PrintAndAbort( const char* aExpression, const char* aFile, int aLine )
{
    std::fprintf( stderr, "%s:%d: assertion failed: %s\n", aFile, aLine, aExpression );
    std::abort();
}

std::atomic<AssertionHandler> gHandler{ PrintAndAbort };

} // namespace

AssertionHandler SetAssertionHandler( AssertionHandler aHandler )
{
    return gHandler.exchange( aHandler != nullptr ? aHandler : PrintAndAbort );
}

void AssertionFailed( const char* aExpression, const char* aFile, int aLine )
{
    gHandler.load()( aExpression, aFile, aLine );
}

} // namespace QmUtilsLib
