#include "tests/support/SRecordReference.h"
#include "Libraries/HtBase/DfwPayload.h"
#include "tests/support/ByteFile.h"
#include "tests/support/StandardOutput.h"
#include "tests/support/StringStream.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <numeric>
#include <vector>

namespace TestSupport
{

namespace
{

constexpr std::size_t LINE_SIZE = 514;

void AppendAddress( std::string& aRecords, unsigned int aAddress )
{
    aRecords += "O\x04";
    for ( int lShift = 24; lShift >= 0; lShift -= 8 )
    {
        aRecords += static_cast<char>( aAddress >> lShift & 0xFF );
    }
}

class PlainReader
{
public:
    PlainReader( std::FILE* aFile, const std::string& aName )
        : mFile( aFile )
        , mName( aName )
    {
    }

    SRecordOutcome Run()
    {
        mOutcome.mAnswer = ReadFile();
        return mOutcome;
    }

private:
    bool Fail( const std::string& aMessage )
    {
        mOutcome.mOutput += aMessage;
        return false;
    }

    bool ReadFile()
    {
        std::size_t lPosition = 0;
        for ( ;; )
        {
            const int lCharacter = std::fgetc( mFile );
            if ( lCharacter == 0 )
            {
                return std::ferror( mFile ) == 0 || Fail( "Error reading from file " + mName );
            }
            if ( lCharacter != '\n' && lCharacter != EOF )
            {
                if ( lPosition < LINE_SIZE )
                {
                    mLine[lPosition++] = static_cast<char>( lCharacter );
                }
                continue;
            }
            if ( !ProcessLine() )
            {
                return false;
            }
            if ( lCharacter == EOF )
            {
                return true;
            }
            lPosition = 0;
        }
    }

    bool ProcessLine()
    {
        if ( std::ferror( mFile ) != 0 )
        {
            return Fail( "Error reading input file\n" );
        }
        char lType = 0;
        if ( std::sscanf( mLine, "S%c", &lType ) != 1 )
        {
            return Fail( "Error reading new line from input file\n" );
        }
        if ( lType == '3' )
        {
            return ProcessData();
        }
        if ( lType != '0' )
        {
            mOutcome.mOutput += "Warning: unknown record type: S";
            mOutcome.mOutput += lType;
        }
        return true;
    }

    bool ProcessData()
    {
        unsigned int lByteCount = 0;
        unsigned int lAddress = 0;
        if ( std::sscanf( mLine, "S3%2x%8x", &lByteCount, &lAddress ) != 2 )
        {
            return Fail( "Failed reading record\n" );
        }
        const long long lCount = static_cast<int>( lByteCount ) - 5LL;
        std::string lData;
        for ( long long lIndex = 0; lIndex < lCount; ++lIndex )
        {
            unsigned int lByte = 0;
            if ( std::sscanf( &mLine[12 + 2 * lIndex], "%2x", &lByte ) != 1 )
            {
                return Fail( "failed reading data byte " + std::to_string( lIndex ) );
            }
            lData += static_cast<char>( lByte & 0xFF );
        }
        if ( lAddress != mExpected )
        {
            AppendAddress( mOutcome.mRecords, lAddress );
        }
        if ( !lData.empty() )
        {
            mOutcome.mRecords += 'D';
            mOutcome.mRecords += static_cast<char>( lData.size() );
            mOutcome.mRecords += lData;
        }
        mExpected = static_cast<unsigned int>( lAddress + lCount );
        return true;
    }

    std::FILE* mFile;
    const std::string mName;
    SRecordOutcome mOutcome;
    char mLine[LINE_SIZE + 1] = {};
    unsigned int mExpected = 0xFFFFFFFF;
};

// "0x9D"
std::string ToHex( unsigned int aByte )
{
    const char* const DIGITS = "0123456789ABCDEF";
    return std::string( "0x" ) + DIGITS[aByte / 16] + DIGITS[aByte % 16];
}

// The value of a hexadecimal digit, or 16.
unsigned int ParseDigit( char aDigit )
{
    const std::string DIGITS = "0123456789ABCDEFabcdef";
    const std::size_t lPlace = DIGITS.find( aDigit );
    const std::size_t lValue = lPlace < 16 ? lPlace : lPlace - 6;
    return lPlace == std::string::npos ? 16 : static_cast<unsigned int>( lValue );
}

// The bytes that a text of pairs of digits stands for, up to the first pair that is none.
std::vector<unsigned int> ParseBytes( const std::string& aText )
{
    std::vector<unsigned int> lBytes;
    for ( std::size_t lPlace = 0; lPlace + 2 <= aText.size(); lPlace += 2 )
    {
        const unsigned int lHigh = ParseDigit( aText[lPlace] );
        const unsigned int lLow = ParseDigit( aText[lPlace + 1] );
        if ( lHigh == 16 || lLow == 16 )
        {
            break;
        }
        lBytes.push_back( lHigh * 16 + lLow );
    }
    return lBytes;
}

// What is wrong with a line; empty: nothing.
std::string FindFault( std::string aLine )
{
    if ( !aLine.empty() && aLine.back() == '\r' )
    {
        aLine.pop_back();
    }
    const std::vector<unsigned int> lBytes =
        ParseBytes( aLine.size() < 2 ? std::string() : aLine.substr( 2 ) );
    const std::string lType = aLine.substr( 0, 2 );
    if ( lBytes.empty() || lType < "S0" || lType > "S9" )
    {
        return "is not an S-record";
    }
    const std::size_t lLength = 4 + std::size_t{ 2 } * lBytes[0];
    if ( aLine.size() != lLength )
    {
        return "has " +
               ( aLine.size() > LINE_SIZE ? "more than " + std::to_string( LINE_SIZE )
                                          : std::to_string( aLine.size() ) ) +
               " characters, but its byte count asks for " + std::to_string( lLength );
    }
    const unsigned int lShort = lType == "S2" || lType == "S6" || lType == "S8" ? 4 : 3;
    const unsigned int lMinimum = lType == "S3" || lType == "S7" ? 5 : lShort;
    if ( lBytes[0] < lMinimum )
    {
        return "has the byte count " + std::to_string( lBytes[0] ) + ", too few for an " + lType;
    }
    if ( lBytes.size() <= lBytes[0] )
    {
        return "has no hexadecimal byte at column " + std::to_string( 2 * lBytes.size() + 3 );
    }
    const unsigned int lWanted =
        255 - std::accumulate( lBytes.begin(), lBytes.end() - 1, 0U ) % 256;
    return lBytes.back() == lWanted ? ""
                                    : "has the checksum " + ToHex( lBytes.back() ) +
                                          ", but its bytes give " + ToHex( lWanted );
}

// Where the first bad line of a text begins, and what is said of it.
struct BadLine
{
    std::size_t mBegin = std::string::npos;
    std::string mRefusal;
};

BadLine FindBadLine( const std::string& aText, const std::string& aName )
{
    std::size_t lNumber = 1;
    for ( std::size_t lBegin = 0; lBegin < aText.size(); ++lNumber )
    {
        const std::size_t lEnd = std::min( aText.find( '\n', lBegin ), aText.size() );
        const std::string lFault =
            lEnd == lBegin ? "" : FindFault( aText.substr( lBegin, lEnd - lBegin ) );
        if ( !lFault.empty() )
        {
            return { lBegin,
                     "line " + std::to_string( lNumber ) + " of '" + aName + "' " + lFault };
        }
        lBegin = lEnd + 1;
    }
    return {};
}

SRecordOutcome ConvertText( const std::string& aText, bool aFails, const std::string& aName )
{
    const ByteFile lFile( aText, aFails ? aText.size() : ByteFile::NEVER );
    return ConvertSRecordsPlainly( lFile.Get(), aName );
}

} // namespace

SRecordOutcome ConvertSRecordsPlainly( std::FILE* aFile, const std::string& aName )
{
    return PlainReader( aFile, aName ).Run();
}

SRecordOutcome CheckSRecordsPlainly( const std::string& aText, bool aFails,
                                     const std::string& aName, HtBaseLib::SRecordChecks aChecks )
{
    const BadLine lBadLine = FindBadLine( aText, aName );
    const bool lIsRefused = lBadLine.mBegin != std::string::npos;
    if ( aChecks == HtBaseLib::SRecordChecks::ONLY )
    {
        const std::string lFailure = aFails ? "Error reading input file\n" : "";
        return { !lIsRefused && !aFails, "", lIsRefused ? lBadLine.mRefusal : lFailure };
    }
    if ( !lIsRefused )
    {
        return ConvertText( aText, aFails, aName );
    }
    SRecordOutcome lOutcome;
    if ( lBadLine.mBegin > 0 )
    {
        // The lines before it. A line feed at their end would repeat the last.
        lOutcome = ConvertText( aText.substr( 0, lBadLine.mBegin - 1 ), false, aName );
    }
    if ( lBadLine.mBegin == 0 || lOutcome.mAnswer )
    {
        lOutcome.mAnswer = false;
        lOutcome.mOutput += lBadLine.mRefusal;
    }
    return lOutcome;
}

SRecordOutcome ConvertSRecordsByReader( std::FILE* aFile, const std::string& aName,
                                        StandardOutputCapture& aCapture,
                                        HtBaseLib::SRecordChecks aChecks )
{
    SRecordOutcome lOutcome;
    if ( aChecks == HtBaseLib::SRecordChecks::ONLY )
    {
        lOutcome.mAnswer = HtBaseLib::CheckSRecords( aFile, aName.c_str(),
                                                     HtBaseLib::ReaderMessages::GetPrinter() );
        lOutcome.mOutput = aCapture.Take();
        return lOutcome;
    }
    HtBaseLib::DfwPayloadWriter lWriter( std::make_unique<StringStream>( lOutcome.mRecords ) );
    HtBaseLib::DfwPayloadSink lSink( lWriter );
    HtBaseLib::SRecordReader lReader( lSink, HtBaseLib::ReaderMessages::GetPrinter(), aChecks );
    lOutcome.mAnswer = lReader.Convert( aFile, aName.c_str() );
    lOutcome.mOutput = aCapture.Take();
    return lOutcome;
}

} // namespace TestSupport
