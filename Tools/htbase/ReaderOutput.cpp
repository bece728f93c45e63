#include "Tools/htbase/ReaderOutput.h"

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Text.h"

#include <cerrno>
#include <system_error>

namespace HtBaseTool
{

namespace
{

// The readers' warning, which has no line end; the type follows.
const std::string WARNING = "Warning: unknown record type: S";

// Types that carry no data: counts of records, and ends.
const std::string EXPECTED_TYPES = "5789";

} // namespace

// The C library lets standard output be another stream; nothing has to be read while the reader
// runs, as from a pipe.
ReaderOutput::ReaderOutput( const std::string& aPath )
    : mPath( aPath )
    , mOutput( stdout )
    , mCapture( fopencookie( this, "w", { nullptr, &ReaderOutput::Take, nullptr, nullptr } ) )
{
    if ( mCapture == nullptr )
    {
        throw std::system_error( errno, std::system_category() );
    }
    stdout = mCapture;
}

ReaderOutput::~ReaderOutput()
{
    Restore();
}

ssize_t ReaderOutput::Take( void* aSelf, const char* aText, size_t aSize )
{
    auto* const lSelf = static_cast<ReaderOutput*>( aSelf );
    lSelf->mText.append( aText, aSize );
    lSelf->TakeWarnings();
    return static_cast<ssize_t>( aSize );
}

// A file may cause any number of warnings, so they are counted and not kept.
void ReaderOutput::TakeWarnings()
{
    size_t lTaken = 0;
    while ( mText.size() - lTaken > WARNING.size() &&
            mText.compare( lTaken, WARNING.size(), WARNING ) == 0 )
    {
        ++mWarnings[static_cast<uint8_t>( mText[lTaken + WARNING.size()] )];
        lTaken += WARNING.size() + 1;
    }
    mText.erase( 0, lTaken );
}

void ReaderOutput::Restore()
{
    if ( mCapture != nullptr )
    {
        stdout = mOutput;
        (void)std::fclose( mCapture ); // writes out; Take refuses nothing
        mCapture = nullptr;
    }
}

std::string ReaderOutput::Finish()
{
    Restore();
    for ( size_t lType = 0; lType < std::size( mWarnings ); ++lType )
    {
        const char lLetter = static_cast<char>( lType );
        if ( mWarnings[lType] != 0 && EXPECTED_TYPES.find( lLetter ) == std::string::npos )
        {
            PrintNote( "'" + mPath + "': " + WARNING + lLetter + ", " +
                       FormatCount( mWarnings[lType], "time" ) );
        }
    }
    while ( !mText.empty() && mText.back() == '\n' )
    {
        mText.pop_back();
    }
    return mText;
}

} // namespace HtBaseTool
