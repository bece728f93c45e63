// Which assertions fired.
#pragma once

#include <QmUtilsLib/Assert.h>

#include <string>
#include <utility>
#include <vector>

namespace TestSupport
{

// AssertionRecorder is the assertion handler of the process from its construction to its
// destruction: it only records, and the code goes on as a release build would. For code that is
// defined after its assertions. One at a time, one thread at a time.
class AssertionRecorder
{
public:
    AssertionRecorder()
        : mBefore( QmUtilsLib::SetAssertionHandler( Record ) )
    {
        GetTexts().clear();
    }
    ~AssertionRecorder() { (void)QmUtilsLib::SetAssertionHandler( mBefore ); }

    AssertionRecorder( const AssertionRecorder& ) = delete;
    AssertionRecorder& operator=( const AssertionRecorder& ) = delete;

    // Takes what was recorded: "expression @ file name" each, oldest first.
    std::vector<std::string> Take() { return std::exchange( GetTexts(), {} ); }

    // What Take gives when exactly that assertion has fired: nothing in a release build.
    static std::vector<std::string> One( const std::string& aText )
    {
#if defined( NDEBUG )
        (void)aText;
        return {};
#else
        return { aText };
#endif
    }

private:
    static std::vector<std::string>& GetTexts()
    {
        static std::vector<std::string> sTexts;
        return sTexts;
    }

    static void Record( const char* aExpression, const char* aFile, int /*aLine*/ )
    {
        const std::string lFile = aFile;
        GetTexts().push_back( aExpression + ( " @ " + lFile.substr( lFile.rfind( '/' ) + 1 ) ) );
    }

    QmUtilsLib::AssertionHandler mBefore;
};

} // namespace TestSupport
