#include "tests/support/SRecordReference.h"
#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/SRecordReader.h"
#include "tests/support/StandardOutput.h"
#include "tests/support/StringStream.h"

#include <cstddef>
#include <memory>

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

} // namespace

SRecordOutcome ConvertSRecordsPlainly( std::FILE* aFile, const std::string& aName )
{
    return PlainReader( aFile, aName ).Run();
}

SRecordOutcome ConvertSRecordsByReader( std::FILE* aFile, const std::string& aName,
                                        StandardOutputCapture& aCapture )
{
    SRecordOutcome lOutcome;
    HtBaseLib::DfwPayloadWriter lWriter( std::make_unique<StringStream>( lOutcome.mRecords ) );
    HtBaseLib::DfwPayloadSink lSink( lWriter );
    HtBaseLib::SRecordReader lReader( lSink, HtBaseLib::ReaderMessages::GetPrinter() );
    lOutcome.mAnswer = lReader.Convert( aFile, aName.c_str() );
    lOutcome.mOutput = aCapture.Take();
    return lOutcome;
}

} // namespace TestSupport
