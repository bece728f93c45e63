// Comparisons of results and texts, compiled by ComparisonsTest.sh: the lines that carry no mark
// must compile, each line that carries one must not.
#include <HtResult.h>
#include <HtString.h>
#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/String.h>

bool CompareResults( const HtResult& aResult, HtResult aOther, unsigned int aCode )
{
    const char* const lName = aResult;
    return aResult == 0 && aResult != 0 && aOther == 5 && aOther != 5U && aResult == aCode &&
           aResult == HtResult::OK && aOther != HtResult::TIMEOUT && aResult == aOther &&
           aOther != aResult && aResult == HtResult( 0 ) && aResult.GetDescription() == "text" &&
           aResult.GetCodeString() == lName;
    return 0 == aResult;            // must not compile
    return 0 != aOther;             // must not compile
    return 0U == aResult;           // must not compile
    return aCode != aResult;        // must not compile
    return HtResult::OK == aResult; // must not compile
    return HtResult::OK != aOther;  // must not compile
    return "TIMEOUT" == aResult;    // must not compile
    return lName != aOther;         // must not compile
    return aResult == "TIMEOUT";    // must not compile
    return aOther != lName;         // must not compile
    return !aResult;                // must not compile
    return aResult && aOther;       // must not compile
}

bool CompareTexts( const HtString& aText, HtString aOther, char* aNarrow, const wchar_t* aWide )
{
    return aText == "abc" && aText != "abc" && aOther == L"abc" && aOther != L"abc" &&
           aText == aNarrow && aOther != aWide && aText == aOther && aOther != aText &&
           aText == HtString( "abc" );
    return "abc" == aText;   // must not compile
    return "abc" != aOther;  // must not compile
    return L"abc" == aOther; // must not compile
    return L"abc" != aText;  // must not compile
    return aNarrow == aText; // must not compile
    return aWide != aText;   // must not compile
}

bool CompareInTheMiddle( const HtResult& aResult, const HtString& aText )
{
    return aText == aResult && aText != aResult; // with the name of its code
    return aResult == aText;                     // must not compile
    return aResult != aText;                     // must not compile
}

// These have no conversions, so a comparison that compiles is the one that is written.
bool ComparePlatform( const QmUtilsLib::Result& aResult, const QmUtilsLib::String& aText )
{
    return aResult == 0 && aResult != 0 && aResult == 5U && aResult == QmUtilsLib::Result::OK &&
           aText == "abc" && aText != L"abc" && aText == aText;
}
