#include "Libraries/HtBase/DfwPayload.h"

#include "Libraries/HtBase/Firmware/BinaryReader.h"
#include "Libraries/HtBase/Firmware/PayloadReader.h"
#include "Libraries/HtBase/Firmware/SRecordReader.h"
#include "Libraries/HtBase/Firmware/WordHexReader.h"

#include <HtDfwPayload.h>
#include <PacketBytes/ByteOrder.h>
#include <PacketBytes/ByteWriter.h>
#include <QmUtilsLib/Assert.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::IoStream;
using HtBaseLib::IoStreamFile;
using HtBaseLib::IoStreamRaw;
using HtBaseLib::PayloadReader;
using HtBaseLib::ReaderMessages;

namespace
{

// The stream of a payload file. If the file cannot be opened, the stream has nothing to read.
std::unique_ptr<IoStream> OpenPayload( const HtString& aFileName )
{
    auto lStream = std::make_unique<IoStreamFile>();
    // KEEP: A payload file is opened for reading only, whatever its later use is.
    const int lError = lStream->Open( aFileName.GetAscii(), "rb" );
    if ( lError != 0 )
    {
        ReaderMessages::GetPrinter().FailToOpen( aFileName.GetAscii(), lError );
    }
    return lStream;
}

// Builds a small payload: the target and the version of a payload file, and what aAddRecord writes.
// KEEP: `GetDeviceIdRecord` and `GetResetRecord` are OK whatever the file holds. A record that is
// missing or cut off is left out and shows in the size only.
template <typename AddRecord>
HtResult Build( const HtString& aPayloadFile, unsigned char* aBuffer, unsigned int aSize,
                unsigned int& aOutSize, const AddRecord& aAddRecord )
{
    try
    {
        DfwPayloadWriter lTarget( std::make_unique<IoStreamRaw>( aBuffer, aSize ) );
        const std::unique_ptr<IoStream> lStream = OpenPayload( aPayloadFile );
        PayloadReader lSource( *lStream );
        (void)lTarget.CopyTargetRecord( lSource );
        (void)lTarget.CopyVersionRecord( lSource );
        aAddRecord( lTarget );
        aOutSize = lTarget.GetSize();
        return HtResult( HtResult::OK );
    }
    catch ( const std::bad_alloc& )
    {
        return HtResult( HtResult::GENERIC_ERROR, ENOMEM );
    }
}

} // namespace

HtDfwPayload::HtDfwPayload( const HtString& aFileName )
    : mWriter( std::make_unique<DfwPayloadWriter>( OpenPayload( aFileName ) ) )
{
}

HtDfwPayload::HtDfwPayload( unsigned char* aBuffer, unsigned int aSize )
    : mWriter(
          std::make_unique<DfwPayloadWriter>( std::make_unique<IoStreamRaw>( aBuffer, aSize ) ) )
{
}

HtDfwPayload::~HtDfwPayload() = default;

HtResult HtDfwPayload::GetDeviceIdRecord( const HtString& aPayloadFile, const HtString& aDeviceId,
                                          unsigned char* aBuffer, unsigned int aSize,
                                          unsigned int& aOutSize )
{
    const auto lAddRecord = [&aDeviceId]( DfwPayloadWriter& aTarget )
    {
        const char* const lText = aDeviceId.GetAscii();
        // Refused where it is too long, and then missing like the other records.
        (void)aTarget.WriteIdRecord( lText, static_cast<unsigned int>( std::strlen( lText ) ) );
    };
    return Build( aPayloadFile, aBuffer, aSize, aOutSize, lAddRecord );
}

HtResult HtDfwPayload::GetResetRecord( const HtString& aPayloadFile, unsigned char* aBuffer,
                                       unsigned int aSize, unsigned int& aOutSize )
{
    const auto lAddRecord = []( DfwPayloadWriter& aTarget )
    {
        (void)aTarget.WriteResetRecord(); // never fails
    };
    return Build( aPayloadFile, aBuffer, aSize, aOutSize, lAddRecord );
}

namespace HtBaseLib
{

using namespace PayloadFormat;

DfwPayloadWriter::DfwPayloadWriter( std::unique_ptr<IoStream> aTarget )
    : mTarget( std::move( aTarget ) )
{
}

DfwPayloadWriter::~DfwPayloadWriter()
{
    if ( mTarget != nullptr )
    {
        (void)mTarget->Close(); // a destructor cannot return it
    }
}

bool DfwPayloadWriter::WriteAddressRecord( std::uint32_t aAddress )
{
    return WriteNumberRecord( ADDRESS, aAddress );
}

bool DfwPayloadWriter::WriteDataRecord( const unsigned char* aBytes, unsigned int aCount )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    if ( aCount > MAX_DATA_SIZE )
    {
        return false;
    }
    return aCount == 0 || WriteRecord( DATA, aBytes, aCount );
}

bool DfwPayloadWriter::WriteDataRecord( DataRecord& aRecord, unsigned int aCount )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    if ( aCount > MAX_DATA_SIZE )
    {
        return false;
    }
    return aCount == 0 ||
           WriteInPlace( DATA, reinterpret_cast<unsigned char*>( &aRecord ), aCount );
}

bool DfwPayloadWriter::WriteData( const unsigned char* aBytes, unsigned int aCount )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    for ( unsigned int lDone = 0; lDone < aCount; )
    {
        const unsigned int lPart = std::min( aCount - lDone, MAX_DATA_SIZE );
        if ( !WriteDataRecord( aBytes + lDone, lPart ) )
        {
            return false;
        }
        lDone += lPart;
    }
    return true;
}

bool DfwPayloadWriter::WriteVersionRecord( unsigned char aFirst, unsigned char aSecond,
                                           unsigned char aThird )
{
    const unsigned char lBytes[VERSION_SIZE] = { aFirst, aSecond, aThird };
    return WriteRecord( VERSION, lBytes, VERSION_SIZE );
}

bool DfwPayloadWriter::WriteTargetRecord( unsigned char aFirst, unsigned char aSecond,
                                          std::uint16_t aValue, bool aFirstFlag, bool aSecondFlag )
{
    unsigned char lBytes[TARGET_SIZE_WITH_MODE] = {};
    PacketBytes::BigWriter lWriter( lBytes, sizeof( lBytes ) );
    lWriter.Put8( TARGET_PREFIX );
    lWriter.Put8( aFirst );
    lWriter.Put8( aSecond );
    lWriter.Put16( aValue );
    unsigned int lSize = TARGET_SIZE;
    for ( const Mode& lMode : MODES )
    {
        if ( lMode.mFirst == aFirstFlag && lMode.mSecond == aSecondFlag )
        {
            lWriter.Put8( static_cast<unsigned char>( lMode.mLetter ) );
            lSize = TARGET_SIZE_WITH_MODE;
        }
    }
    return WriteRecord( TARGET, lBytes, lSize );
}

// SAFE: An identification of more than 255 bytes is refused, since its length byte could not hold
// the number.
bool DfwPayloadWriter::WriteIdRecord( const char* aText, unsigned int aLength )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    if ( aLength > MAX_LENGTH )
    {
        return false;
    }
    // KEEP: An empty text writes 16 zeros without type and length.
    if ( aLength > 0 )
    {
        WriteRecord( IDENTIFICATION, reinterpret_cast<const unsigned char*>( aText ), aLength );
    }
    // KEEP: The length byte of an identification is that of the text. The zeros up to 16 bytes are
    // not counted.
    if ( aLength < MIN_ID_SIZE )
    {
        const unsigned char lZeros[MIN_ID_SIZE] = {};
        (void)mTarget->Write( lZeros, 1, MIN_ID_SIZE - aLength );
    }
    return true;
}

bool DfwPayloadWriter::WriteResetRecord()
{
    return WriteRecord( RESET, nullptr, 0 );
}

bool DfwPayloadWriter::WriteEndRecord( std::uint32_t aValue )
{
    return WriteNumberRecord( END, aValue );
}

bool DfwPayloadWriter::CopyVersionRecord( PayloadReader& aSource )
{
    unsigned char lFirst = 0;
    unsigned char lSecond = 0;
    unsigned char lThird = 0;
    return aSource.ReadVersionRecord( lFirst, lSecond, lThird ) &&
           WriteVersionRecord( lFirst, lSecond, lThird );
}

bool DfwPayloadWriter::CopyTargetRecord( PayloadReader& aSource )
{
    unsigned char lFirst = 0;
    unsigned char lSecond = 0;
    std::uint16_t lValue = 0;
    bool lFirstFlag = false;
    bool lSecondFlag = false;
    return aSource.ReadTargetRecord( lFirst, lSecond, lValue, lFirstFlag, lSecondFlag ) &&
           WriteTargetRecord( lFirst, lSecond, lValue, lFirstFlag, lSecondFlag );
}

unsigned int DfwPayloadWriter::GetSize() const
{
    return mTarget->GetBytesWritten();
}

bool DfwPayloadWriter::AddSRecordFile( const char* aName, ReaderMessages& aMessages,
                                       SRecordChecks aChecks )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    DfwPayloadSink lSink( *this );
    return SRecordReader( lSink, aMessages, aChecks ).ConvertFile( aName );
}

bool DfwPayloadWriter::AddBinaryFile( const char* aName, std::uint32_t aAddress,
                                      ReaderMessages& aMessages )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    DfwPayloadSink lSink( *this );
    return BinaryReader( lSink, aMessages ).ConvertFile( aName, aAddress );
}

bool DfwPayloadWriter::AddWordHexFile( const char* aName, ReaderMessages& aMessages )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    DfwPayloadSink lSink( *this );
    return WordHexReader( lSink, aMessages ).ConvertFile( aName );
}

bool DfwPayloadWriter::WriteRecord( char aType, const unsigned char* aBytes, unsigned int aLength )
{
    unsigned char lRecord[HEADER_SIZE + MAX_LENGTH];
    std::copy_n( aBytes, aLength, lRecord + HEADER_SIZE );
    return WriteInPlace( aType, lRecord, aLength );
}

// One write for the whole record: a stream that is full cuts it off where it would anyway.
bool DfwPayloadWriter::WriteInPlace( char aType, unsigned char* aRecord, unsigned int aLength )
{
    QMUTILSLIB_ASSERT( mTarget != NULL );
    aRecord[0] = static_cast<unsigned char>( aType );
    aRecord[1] = static_cast<unsigned char>( aLength );
    // KEEP: A write to a stream that is full succeeds, so that no writer and no reader fails for
    // it.
    (void)mTarget->Write( aRecord, 1, HEADER_SIZE + aLength );
    return true;
}

bool DfwPayloadWriter::WriteNumberRecord( char aType, std::uint32_t aNumber )
{
    unsigned char lBytes[sizeof( aNumber )];
    PacketBytes::Store<PacketBytes::ByteOrder::BIG>( aNumber, lBytes );
    return WriteRecord( aType, lBytes, sizeof( lBytes ) );
}

DfwPayloadSink::DfwPayloadSink( DfwPayloadWriter& aWriter )
    : mWriter( aWriter )
{
}

bool DfwPayloadSink::TakeAddress( std::uint32_t aAddress )
{
    return mWriter.WriteAddressRecord( aAddress );
}

bool DfwPayloadSink::TakeData( DataRecord& aRecord, unsigned int aCount )
{
    return mWriter.WriteDataRecord( aRecord, aCount );
}

} // namespace HtBaseLib
