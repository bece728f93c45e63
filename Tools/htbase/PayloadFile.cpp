#include "Tools/htbase/PayloadFile.h"

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Files.h"
#include "Tools/htbase/Text.h"

#include "Libraries/HtBase/Firmware/PayloadFormat.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace HtBaseTool
{

namespace PayloadFormat = HtBaseLib::PayloadFormat;

namespace
{

struct Kind
{
    char mLetter;
    const char* mName;
    size_t mMin; // bytes
    size_t mMax;
};

constexpr Kind KINDS[] = {
    { PayloadFormat::TARGET, "target", PayloadFormat::TARGET_SIZE, PayloadFormat::MAX_LENGTH },
    { PayloadFormat::VERSION, "version", PayloadFormat::VERSION_SIZE, PayloadFormat::VERSION_SIZE },
    { PayloadFormat::ADDRESS, "address", 4, 4 },
    { PayloadFormat::DATA, "data", 1, PayloadFormat::MAX_DATA_SIZE },
    { PayloadFormat::IDENTIFICATION, "identification", 1, PayloadFormat::MAX_LENGTH },
    { PayloadFormat::RESET, "reset", 0, 0 },
    { PayloadFormat::END, "end", 4, 4 },
};

const Kind* FindKind( uint8_t aType )
{
    const auto* const lKind = std::find_if(
        std::begin( KINDS ), std::end( KINDS ),
        [aType]( const Kind& aKind ) { return aKind.mLetter == static_cast<char>( aType ); } );
    return lKind == std::end( KINDS ) ? nullptr : lKind;
}

bool IsMode( uint8_t aLetter )
{
    return std::any_of( std::begin( PayloadFormat::MODES ), std::end( PayloadFormat::MODES ),
                        [aLetter]( const PayloadFormat::Mode& aMode )
                        { return aMode.mLetter == static_cast<char>( aLetter ); } );
}

// What is wrong with the contents of a target record; empty: nothing.
std::string FindTargetFault( const std::vector<uint8_t>& aBytes )
{
    if ( aBytes[0] != PayloadFormat::TARGET_PREFIX )
    {
        return "does not begin with 0x02";
    }
    const bool lIsUnknownMode =
        aBytes.size() == PayloadFormat::TARGET_SIZE_WITH_MODE && !IsMode( aBytes.back() );
    return lIsUnknownMode ? "has an unknown mode" : "";
}

} // namespace

PayloadFile::PayloadFile( const std::string& aPath )
    : mPath( ( CheckInputFile( aPath ), aPath ) )
    , mFile( std::fopen( aPath.c_str(), "rbe" ), &std::fclose )
{
    if ( mFile == nullptr )
    {
        throw MakeUsageFailure( "cannot read file '" + aPath +
                                "': " + GetSystemErrorText( errno ) );
    }
}

// False at the end of the file.
bool PayloadFile::ReadBytes( uint8_t* aBytes, size_t aCount )
{
    const bool lIsComplete = std::fread( aBytes, 1, aCount, mFile.get() ) == aCount;
    if ( std::ferror( mFile.get() ) != 0 )
    {
        throw Failure( ExitStatus::REFUSED,
                       "cannot read file '" + mPath + "': " + GetSystemErrorText( errno ) );
    }
    return lIsComplete;
}

void PayloadFile::ThrowDamage( const std::string& aWhat ) const
{
    throw Failure( ExitStatus::REFUSED, "payload '" + mPath + "' " + aWhat );
}

void PayloadFile::ThrowCutOff( const PayloadRecord& aRecord ) const
{
    ThrowDamage( std::string( "is cut off in the " ) + aRecord.mName + " record at " +
                 FormatHex( mOffset ) );
}

std::optional<PayloadRecord> PayloadFile::Read()
{
    uint8_t lType = 0;
    if ( !ReadBytes( &lType, 1 ) )
    {
        return std::nullopt;
    }
    const Kind* const lKind = FindKind( lType );
    if ( lKind == nullptr )
    {
        ThrowDamage( "holds a record of unknown type " + FormatHex( lType, 2 ) + " at " +
                     FormatHex( mOffset ) );
    }
    PayloadRecord lRecord{ mOffset, lKind->mLetter, lKind->mName, {} };
    const std::string lThis = std::string( lKind->mName ) + " record at " + FormatHex( mOffset );
    uint8_t lLength = 0;
    if ( !ReadBytes( &lLength, 1 ) )
    {
        ThrowCutOff( lRecord );
    }
    if ( lLength < lKind->mMin || lLength > lKind->mMax )
    {
        ThrowDamage( "holds a " + lThis + " with the wrong length " + std::to_string( lLength ) );
    }
    lRecord.mBytes.resize( lLength );
    if ( !ReadBytes( lRecord.mBytes.data(), lLength ) )
    {
        ThrowCutOff( lRecord );
    }
    const std::string lFault =
        lType == PayloadFormat::TARGET ? FindTargetFault( lRecord.mBytes ) : "";
    if ( !lFault.empty() )
    {
        ThrowDamage( "holds a " + lThis + " that " + lFault );
    }
    ReadPadding( lRecord );
    return lRecord;
}

// The zeros after a short identification are not part of its length. Moves on to the next record.
void PayloadFile::ReadPadding( const PayloadRecord& aRecord )
{
    size_t lSize = aRecord.mBytes.size();
    for ( ; aRecord.mType == PayloadFormat::IDENTIFICATION && lSize < PayloadFormat::MIN_ID_SIZE;
          ++lSize )
    {
        uint8_t lZero = 0;
        if ( !ReadBytes( &lZero, 1 ) )
        {
            ThrowCutOff( aRecord );
        }
        if ( lZero != 0 )
        {
            ThrowDamage( "holds an identification record at " + FormatHex( mOffset ) +
                         " that is not filled up with zeros" );
        }
    }
    mOffset += PayloadFormat::HEADER_SIZE + lSize;
}

uint32_t GetNumber( const PayloadRecord& aRecord, size_t aOffset, size_t aSize )
{
    uint32_t lNumber = 0;
    for ( size_t lIndex = aOffset; lIndex < aOffset + aSize; ++lIndex )
    {
        lNumber = lNumber << 8 | aRecord.mBytes[lIndex];
    }
    return lNumber;
}

} // namespace HtBaseTool
