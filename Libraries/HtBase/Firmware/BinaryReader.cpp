#include "Libraries/HtBase/Firmware/BinaryReader.h"

#include "Libraries/HtBase/Firmware/InputFile.h"
#include "Libraries/HtBase/Firmware/PayloadFormat.h"
#include "Libraries/HtBase/Firmware/PayloadSink.h"
#include "Libraries/HtBase/Firmware/ReaderMessages.h"

#include <cstddef>

namespace HtBaseLib
{

BinaryReader::BinaryReader( PayloadSink& aSink, ReaderMessages& aMessages )
    : mSink( aSink )
    , mMessages( aMessages )
{
}

bool BinaryReader::ConvertFile( const char* aName, std::uint32_t aAddress )
{
    return ConvertInputFile( aName, "rb", mMessages,
                             [&]( std::FILE* aFile )
                             { return Convert( aFile, aName, aAddress ); } );
}

bool BinaryReader::Convert( std::FILE* aFile, const char* aName, std::uint32_t aAddress )
{
    for ( bool lGoesOn = mSink.TakeAddress( aAddress ); lGoesOn; )
    {
        PayloadFormat::DataRecord lRecord;
        const std::size_t lCount =
            std::fread( lRecord.mBytes, 1, PayloadFormat::MAX_DATA_SIZE, aFile );
        if ( std::ferror( aFile ) != 0 )
        {
            mMessages.Fail( "Error reading from file %s", aName );
            return false;
        }
        if ( lCount == 0 )
        {
            return true;
        }
        lGoesOn = mSink.TakeData( lRecord, static_cast<unsigned int>( lCount ) );
    }
    return false;
}

} // namespace HtBaseLib
