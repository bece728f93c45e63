#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/PayloadReader.h"

#include "tests/support/AllocationCounter.h"
#include "tests/support/Packets.h"
#include "tests/support/StandardOutput.h"
#include "tests/support/StringStream.h"
#include "tests/support/TemporaryDirectory.h"

#include <HtDfwPayload.h>
#include <QmUtilsLib/Assert.h>
#include <QmUtilsLib/Scripted/RecordingLogSink.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::IoStreamFile;
using HtBaseLib::IoStreamRaw;
using HtBaseLib::PayloadReader;
using TestSupport::AllocationFailure;
using TestSupport::Bytes;
using TestSupport::GetLiveAllocationCount;
using TestSupport::ReadWholeFile;
using TestSupport::StandardOutputCapture;
using TestSupport::StringStream;
using TestSupport::TemporaryDirectory;
using TestSupport::WriteWholeFile;

namespace
{

constexpr unsigned char UNTOUCHED = 0xEE;

std::string ToText( const Bytes& aBytes )
{
    return std::string( aBytes.begin(), aBytes.end() );
}

// A writer and what it has written.
class Written
{
public:
    explicit Written( std::size_t aCapacity = std::string::npos )
        : mWriter( std::make_unique<StringStream>( mText, aCapacity ) )
    {
    }

    DfwPayloadWriter* operator->() { return &mWriter; }
    DfwPayloadWriter& Get() { return mWriter; }
    Bytes GetBytes() const { return Bytes( mText.begin(), mText.end() ); }

private:
    std::string mText;
    DfwPayloadWriter mWriter;
};

// Memory for a stream of the given content, with bytes around it that nothing may touch.
class GuardedBuffer
{
public:
    explicit GuardedBuffer( const Bytes& aContent )
        : mBytes( GUARD + aContent.size() + GUARD, UNTOUCHED )
        , mSize( static_cast<unsigned int>( aContent.size() ) )
    {
        std::copy( aContent.begin(), aContent.end(), mBytes.begin() + GUARD );
    }

    explicit GuardedBuffer( unsigned int aSize )
        : GuardedBuffer( Bytes( aSize, UNTOUCHED ) )
    {
    }

    unsigned char* Get() { return mBytes.data() + GUARD; }
    unsigned int GetSize() const { return mSize; }

    Bytes GetBytes() const
    {
        return Bytes( mBytes.begin() + GUARD, mBytes.begin() + GUARD + mSize );
    }

    bool AreGuardsWhole() const
    {
        const auto lIsUntouched = []( unsigned char aByte )
        {
            return aByte == UNTOUCHED;
        };
        return std::all_of( mBytes.begin(), mBytes.begin() + GUARD, lIsUntouched ) &&
               std::all_of( mBytes.end() - GUARD, mBytes.end(), lIsUntouched );
    }

private:
    static constexpr int GUARD = 16;

    Bytes mBytes;
    unsigned int mSize;
};

// A payload in memory, to read from.
class InMemory
{
public:
    explicit InMemory( const Bytes& aContent )
        : mBuffer( aContent )
        , mStream( mBuffer.Get(), mBuffer.GetSize() )
    {
    }

    PayloadReader& Get() { return mReader; }

private:
    GuardedBuffer mBuffer;
    IoStreamRaw mStream;
    PayloadReader mReader{ mStream };
};

// The same over a file.
class InFile
{
public:
    explicit InFile( const Bytes& aContent )
    {
        const std::string lPath = mDirectory.GetPath( "payload" );
        WriteWholeFile( lPath, ToText( aContent ) );
        EXPECT_EQ( mStream.Open( lPath.c_str(), "rb" ), 0 );
    }

    PayloadReader& Get() { return mReader; }

private:
    TemporaryDirectory mDirectory;
    IoStreamFile mStream;
    PayloadReader mReader{ mStream };
};

using Version = std::tuple<int, int, int>;
using Target = std::tuple<int, int, int, bool, bool>;

const Version NO_VERSION( -1, -1, -1 );
const Target NO_TARGET( -1, -1, -1, false, false );

Version ReadVersion( PayloadReader& aSource )
{
    unsigned char lBytes[3] = { 0xA1, 0xA2, 0xA3 };
    if ( !aSource.ReadVersionRecord( lBytes[0], lBytes[1], lBytes[2] ) )
    {
        EXPECT_THAT( lBytes, testing::ElementsAre( 0xA1, 0xA2, 0xA3 ) );
        return NO_VERSION;
    }
    return { lBytes[0], lBytes[1], lBytes[2] };
}

Target ReadTarget( PayloadReader& aSource )
{
    unsigned char lFirst = 0xA1;
    unsigned char lSecond = 0xA2;
    std::uint16_t lValue = 0xA3A4;
    bool lFirstFlag = true;
    bool lSecondFlag = false;
    if ( !aSource.ReadTargetRecord( lFirst, lSecond, lValue, lFirstFlag, lSecondFlag ) )
    {
        EXPECT_TRUE( lFirst == 0xA1 && lSecond == 0xA2 && lValue == 0xA3A4 && lFirstFlag &&
                     !lSecondFlag )
            << "a failed read changed its outputs";
        return NO_TARGET;
    }
    return { lFirst, lSecond, lValue, lFirstFlag, lSecondFlag };
}

// The same question to memory and to a file, which must agree.
Version FindVersion( const Bytes& aPayload )
{
    const Version lVersion = ReadVersion( InMemory( aPayload ).Get() );
    EXPECT_EQ( ReadVersion( InFile( aPayload ).Get() ), lVersion );
    return lVersion;
}

Target FindTarget( const Bytes& aPayload )
{
    const Target lTarget = ReadTarget( InMemory( aPayload ).Get() );
    EXPECT_EQ( ReadTarget( InFile( aPayload ).Get() ), lTarget );
    return lTarget;
}

Bytes Join( std::initializer_list<Bytes> aParts )
{
    Bytes lAll;
    for ( const Bytes& lPart : aParts )
    {
        lAll.insert( lAll.end(), lPart.begin(), lPart.end() );
    }
    return lAll;
}

const Bytes TARGET_D{
    'T',  6,    // target record with mode
    0x02,       // constant
    0x11,       // first target byte
    0x22,       // second target byte
    0x33, 0x44, // value
    'D'         // mode
};
const Bytes VERSION{ 'V', 3, 1, 2, 3 };
const Bytes DATA{ 'D', 4, 0x54, 0x05, 0x02, 0x56 };
const Bytes ADDRESS{ 'O', 4, 0, 1, 0, 0 };
const Bytes RESET{ 'R', 0 };

std::size_t CountDescriptors()
{
    const std::filesystem::directory_iterator lDescriptors( "/proc/self/fd" );
    return static_cast<std::size_t>( std::distance( begin( lDescriptors ), end( lDescriptors ) ) );
}

} // namespace

// Writing

TEST( DfwRecord, AnAddressIsBigEndian )
{
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteAddressRecord( 0x12345678 ) );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x4F, 0x04, 0x12, 0x34, 0x56, 0x78 } ) );
}

TEST( DfwRecord, TheHighBitsOfAnAddressAreWritten )
{
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteAddressRecord( 0xFEDCBA98 ) );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x4F, 0x04, 0xFE, 0xDC, 0xBA, 0x98 } ) );
}

TEST( DfwRecord, DataIsLetterCountAndBytes )
{
    const unsigned char lData[] = { 0xDE, 0xAD, 0x00, 0xFF };
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteDataRecord( lData, 4 ) );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x44, 0x04, 0xDE, 0xAD, 0x00, 0xFF } ) );
}

TEST( DfwRecord, NoDataIsNoRecord )
{
    const unsigned char lData[] = { 1 };
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteDataRecord( lData, 0 ) );
    EXPECT_TRUE( lWritten->WriteDataRecord( nullptr, 0 ) );
    EXPECT_EQ( lWritten.GetBytes(), Bytes{} );
}

TEST( DfwRecord, DataOf254BytesIsARecordAndOf255IsRefused )
{
    const Bytes lData( 256, 0x5A );
    Written lWritten;
    EXPECT_FALSE( lWritten->WriteDataRecord( lData.data(), 255 ) );
    EXPECT_FALSE( lWritten->WriteDataRecord( lData.data(), 256 ) );
    EXPECT_EQ( lWritten.GetBytes(), Bytes{} );

    EXPECT_TRUE( lWritten->WriteDataRecord( lData.data(), 254 ) );
    EXPECT_EQ( lWritten.GetBytes(), Join( { { 0x44, 0xFE }, Bytes( 254, 0x5A ) } ) );
}

TEST( DfwRecord, DataThatLiesInARecordIsWrittenAlike )
{
    HtBaseLib::PayloadFormat::DataRecord lRecord;
    std::fill( std::begin( lRecord.mBytes ), std::end( lRecord.mBytes ), 0x5A );
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteDataRecord( lRecord, 0 ) );
    EXPECT_FALSE( lWritten->WriteDataRecord( lRecord, 255 ) );
    EXPECT_EQ( lWritten.GetBytes(), Bytes{} );
    EXPECT_TRUE( lWritten->WriteDataRecord( lRecord, 3 ) );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x44, 0x03, 0x5A, 0x5A, 0x5A } ) );
}

TEST( DfwRecord, MuchDataIsSplitInOrder )
{
    Bytes lData( 600 );
    for ( std::size_t lIndex = 0; lIndex < lData.size(); ++lIndex )
    {
        lData[lIndex] = static_cast<unsigned char>( lIndex * 7 + lIndex / 256 );
    }
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteData( lData.data(), 600 ) );
    EXPECT_EQ( lWritten.GetBytes(), Join( { { 0x44, 254 },
                                            Bytes( lData.begin(), lData.begin() + 254 ),
                                            { 0x44, 254 },
                                            Bytes( lData.begin() + 254, lData.begin() + 508 ),
                                            { 0x44, 92 },
                                            Bytes( lData.begin() + 508, lData.end() ) } ) );
}

TEST( DfwRecord, DataThatJustFillsRecordsHasNoEmptyOneBehind )
{
    const Bytes lData( 508, 9 );
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteData( lData.data(), 508 ) );
    EXPECT_EQ( lWritten.GetBytes().size(), 2U * 256 );
    EXPECT_TRUE( lWritten->WriteData( lData.data(), 0 ) );
    EXPECT_EQ( lWritten.GetBytes().size(), 2U * 256 );
}

TEST( DfwRecord, AVersionIsThreeBytes )
{
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteVersionRecord( 1, 0, 255 ) );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x56, 0x03, 1, 0, 255 } ) );
}

TEST( DfwRecord, ATargetWithoutModeIsAByteShorter )
{
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteTargetRecord( 0x11, 0x22, 0x3344, false, true ) );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x54, 0x05, 0x02, 0x11, 0x22, 0x33, 0x44 } ) );
}

TEST( DfwRecord, TheModeLetterFollowsFromTheFlags )
{
    const std::tuple<bool, bool, char> lModes[] = {
        { true, true, 'D' }, { false, false, 'U' }, { true, false, 'f' }, // lower case
    };
    for ( const auto& [lFirst, lSecond, lLetter] : lModes )
    {
        Written lWritten;
        EXPECT_TRUE( lWritten->WriteTargetRecord( 0xF1, 0xF2, 0xF3F4, lFirst, lSecond ) );
        EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x54, 0x06, 0x02, 0xF1, 0xF2, 0xF3, 0xF4,
                                                 static_cast<unsigned char>( lLetter ) } ) );
    }
}

TEST( DfwRecord, AShortIdIsFilledUpBeyondItsLength )
{
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteIdRecord( "ab12", 4 ) );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x49, 0x04, 'a', 'b', '1', '2', // text
                                             0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 } ) );
}

TEST( DfwRecord, AnEmptyIdIsSixteenZerosWithoutTypeAndLength )
{
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteIdRecord( "", 0 ) );
    EXPECT_EQ( lWritten.GetBytes(), Bytes( 16, 0 ) );
}

TEST( DfwRecord, AnIdOfSixteenOrMoreIsNotFilledUp )
{
    for ( const unsigned int lLength : { 15U, 16U, 17U, 255U } )
    {
        Written lWritten;
        EXPECT_TRUE( lWritten->WriteIdRecord( std::string( lLength, 'x' ).c_str(), lLength ) );
        EXPECT_EQ( lWritten.GetBytes(), Join( { { 0x49, static_cast<unsigned char>( lLength ) },
                                                Bytes( lLength, 'x' ),
                                                Bytes( lLength < 16 ? 16 - lLength : 0, 0 ) } ) );
    }
}

TEST( DfwRecord, AnIdLongerThanTheLengthByteCanSayIsRefused )
{
    Written lWritten;
    EXPECT_FALSE( lWritten->WriteIdRecord( std::string( 256, 'x' ).c_str(), 256 ) );
    EXPECT_EQ( lWritten.GetBytes(), Bytes{} );
}

TEST( DfwRecord, AResetHasNoPayload )
{
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteResetRecord() );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x52, 0x00 } ) );
}

TEST( DfwRecord, AnEndCarriesABigEndianValue )
{
    Written lWritten;
    EXPECT_TRUE( lWritten->WriteEndRecord( 0xCAFEBABE ) );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x45, 0x04, 0xCA, 0xFE, 0xBA, 0xBE } ) );
}

TEST( DfwRecord, TheSizeIsWhatTheStreamHasWritten )
{
    GuardedBuffer lBuffer( 100 );
    DfwPayloadWriter lWriter( std::make_unique<IoStreamRaw>( lBuffer.Get(), lBuffer.GetSize() ) );
    EXPECT_EQ( lWriter.GetSize(), 0U );
    lWriter.WriteResetRecord();
    EXPECT_EQ( lWriter.GetSize(), 2U );
    lWriter.WriteVersionRecord( 1, 2, 3 );
    EXPECT_EQ( lWriter.GetSize(), 7U );
}

TEST( DfwRecord, AFullStreamCutsARecordOffAndFailsNothing )
{
    Written lWritten( 3 );
    EXPECT_TRUE( lWritten->WriteVersionRecord( 1, 2, 3 ) );
    EXPECT_TRUE( lWritten->WriteResetRecord() );
    EXPECT_TRUE( lWritten->WriteIdRecord( "abc", 3 ) );
    EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 0x56, 0x03, 1 } ) );
    EXPECT_EQ( lWritten->GetSize(), 3U );
}

TEST( DfwRecord, AWriterClosesAndDeletesItsStreamOnce )
{
    class Witness : public HtBaseLib::IoStream
    {
    public:
        explicit Witness( std::string& aEvents )
            : mEvents( aEvents )
        {
        }
        ~Witness() override { mEvents += "deleted"; }
        int Close() override
        {
            mEvents += "closed,";
            return 0;
        }
        unsigned int Write( const void*, unsigned int, unsigned int ) override { return 0; }
        unsigned int Read( void*, unsigned int, unsigned int ) override { return 0; }
        int Rewind() override { return 0; }
        unsigned int Skip( unsigned int ) override { return 0; }

    private:
        std::string& mEvents;
    };
    std::string lEvents;
    {
        DfwPayloadWriter lWriter( std::make_unique<Witness>( lEvents ) );
    }
    EXPECT_EQ( lEvents, "closed,deleted" );
}

// Reading

TEST( DfwRecord, VersionAndTargetAreFoundInEitherOrderAmongOtherRecords )
{
    const Target lTarget( 0x11, 0x22, 0x3344, true, true );
    const Version lVersion( 1, 2, 3 );
    for ( const Bytes& lPayload : { Join( { TARGET_D, VERSION } ), Join( { VERSION, TARGET_D } ),
                                    Join( { ADDRESS, DATA, VERSION, DATA, TARGET_D, DATA } ) } )
    {
        EXPECT_EQ( FindTarget( lPayload ), lTarget );
        EXPECT_EQ( FindVersion( lPayload ), lVersion );
    }
}

TEST( DfwRecord, EverySearchBeginsAtTheFirstByte )
{
    InMemory lMemory( Join( { TARGET_D, VERSION, DATA } ) );
    InFile lFile( Join( { TARGET_D, VERSION, DATA } ) );
    for ( PayloadReader* const lSource : { &lMemory.Get(), &lFile.Get() } )
    {
        for ( int lRound = 0; lRound < 3; ++lRound )
        {
            EXPECT_EQ( ReadVersion( *lSource ), Version( 1, 2, 3 ) );
            EXPECT_EQ( ReadVersion( *lSource ), Version( 1, 2, 3 ) );
            EXPECT_EQ( ReadTarget( *lSource ), Target( 0x11, 0x22, 0x3344, true, true ) );
        }
    }
}

TEST( DfwRecord, TheFirstFittingRecordIsTaken )
{
    EXPECT_EQ( FindVersion( Join( { { 'V', 3, 7, 8, 9 }, VERSION } ) ), Version( 7, 8, 9 ) );
    EXPECT_EQ( FindTarget( Join( { { 'T', 5, 2, 1, 1, 1, 1 }, TARGET_D } ) ),
               Target( 1, 1, 0x0101, false, true ) );
}

TEST( DfwRecord, AVersionOfAnotherLengthIsSkipped )
{
    EXPECT_EQ(
        FindVersion( Join( { { 'V', 2, 7, 8 }, { 'V', 4, 7, 8, 9, 9 }, { 'V', 0 }, VERSION } ) ),
        Version( 1, 2, 3 ) );
    EXPECT_EQ( FindVersion( Join( { { 'V', 4, 7, 8, 9, 9 }, DATA } ) ), NO_VERSION );
}

TEST( DfwRecord, AShortTargetIsSkipped )
{
    EXPECT_EQ( FindTarget( Join( { { 'T', 4, 2, 7, 7, 7 }, { 'T', 0 }, TARGET_D } ) ),
               Target( 0x11, 0x22, 0x3344, true, true ) );
}

TEST( DfwRecord, ATargetWithAnotherFirstByteEndsTheSearch )
{
    EXPECT_EQ( FindTarget( Join( { { 'T', 6, 3, 0x11, 0x22, 0x33, 0x44, 'D' }, TARGET_D } ) ),
               NO_TARGET );
    EXPECT_EQ( FindTarget( Join( { { 'T', 5, 0, 0x11, 0x22, 0x33, 0x44 }, TARGET_D } ) ),
               NO_TARGET );
}

TEST( DfwRecord, TheFlagsFollowFromLengthAndModeLetter )
{
    const auto lTarget = []( unsigned char aLetter )
    {
        return FindTarget( { 'T', 6, 2, 1, 2, 0xFE, 0xDC, aLetter, 'R', 0 } );
    };
    EXPECT_EQ( lTarget( 'D' ), Target( 1, 2, 0xFEDC, true, true ) );
    EXPECT_EQ( lTarget( 'U' ), Target( 1, 2, 0xFEDC, false, false ) );
    EXPECT_EQ( lTarget( 'f' ), Target( 1, 2, 0xFEDC, true, false ) );
    for ( const char lOther : { 'F', 'd', 'u', '\0', ' ' } )
    {
        EXPECT_EQ( lTarget( static_cast<unsigned char>( lOther ) ), NO_TARGET );
    }
    EXPECT_EQ( FindTarget( { 'T', 5, 2, 1, 2, 0xFE, 0xDC, 'R', 0 } ),
               Target( 1, 2, 0xFEDC, false, true ) );
}

TEST( DfwRecord, ALongTargetHasNoModeAndIsCopiedAsAShortOne )
{
    for ( const unsigned int lLength : { 7U, 8U, 255U } )
    {
        Bytes lPayload{ 'T', static_cast<unsigned char>( lLength ), 2, 1, 2, 3, 4 };
        lPayload.resize( 2U + lLength, 'D' );
        EXPECT_EQ( FindTarget( lPayload ), Target( 1, 2, 0x0304, false, true ) );

        InMemory lSource( lPayload );
        Written lWritten;
        EXPECT_TRUE( lWritten->CopyTargetRecord( lSource.Get() ) );
        EXPECT_EQ( lWritten.GetBytes(), ( Bytes{ 'T', 5, 2, 1, 2, 3, 4 } ) );
    }
}

TEST( DfwRecord, ASearchForWhatIsNotThereEnds )
{
    const Bytes lSources[] = {
        {},                                                   // nothing
        { 'D' },                                              // half a header
        { 'D', 200 },                                         // a header alone
        { 'D', 200, 1 },                                      // a record that is cut off
        { 'D', 200, 'V', 3, 1, 2, 3, 'T', 5, 2, 1, 2, 3, 4 }, // with records in what is there of it
        { 'R', 0, 'R', 0 },                                   // records without payload
        { 'R', 0, 'R' },                                      //
        Join( { ADDRESS, DATA } ),
        Bytes( 1000, 0 ),
        Bytes( 1000, 0xFF ),
    };
    for ( const Bytes& lSource : lSources )
    {
        EXPECT_EQ( FindVersion( lSource ), NO_VERSION );
        EXPECT_EQ( FindTarget( lSource ), NO_TARGET );
    }
}

TEST( DfwRecord, ARecordThatIsCutOffIsNotRead )
{
    const Bytes lTarget = TARGET_D;
    for ( std::size_t lSize = 0; lSize < lTarget.size(); ++lSize )
    {
        EXPECT_EQ(
            FindTarget( Bytes( lTarget.begin(), lTarget.begin() + static_cast<int>( lSize ) ) ),
            NO_TARGET )
            << lSize;
    }
    EXPECT_NE( FindTarget( lTarget ), NO_TARGET );

    for ( std::size_t lSize = 0; lSize < VERSION.size(); ++lSize )
    {
        EXPECT_EQ(
            FindVersion( Bytes( VERSION.begin(), VERSION.begin() + static_cast<int>( lSize ) ) ),
            NO_VERSION )
            << lSize;
    }
    EXPECT_NE( FindVersion( VERSION ), NO_VERSION );
}

TEST( DfwRecord, ASourceThatIsNotOpenHasNoRecords )
{
    IoStreamFile lStream;
    PayloadReader lSource( lStream );
    EXPECT_EQ( ReadVersion( lSource ), NO_VERSION );
    EXPECT_EQ( ReadTarget( lSource ), NO_TARGET );
}

TEST( DfwRecord, ASourceThatDoesNotRewindIsNotSearched )
{
    // Good records, from where the stream is.
    class Stuck : public HtBaseLib::IoStream
    {
    public:
        explicit Stuck( GuardedBuffer& aBuffer )
            : mContent( aBuffer.Get(), aBuffer.GetSize() )
        {
        }
        int Close() override { return 0; }
        unsigned int Write( const void*, unsigned int, unsigned int ) override { return 0; }
        unsigned int Read( void* aData, unsigned int aSize, unsigned int aCount ) override
        {
            return mContent.Read( aData, aSize, aCount );
        }
        int Rewind() override { return EOF; }
        unsigned int Skip( unsigned int aCount ) override { return mContent.Skip( aCount ); }

    private:
        IoStreamRaw mContent;
    };
    GuardedBuffer lBuffer( Join( { TARGET_D, VERSION, DATA } ) );
    Stuck lTargetStream( lBuffer );
    PayloadReader lTargetSource( lTargetStream );
    EXPECT_EQ( ReadTarget( lTargetSource ), NO_TARGET );
    GuardedBuffer lOther( Join( { TARGET_D, VERSION, DATA } ) );
    Stuck lVersionStream( lOther );
    PayloadReader lVersionSource( lVersionStream );
    EXPECT_EQ( ReadVersion( lVersionSource ), NO_VERSION );
}

TEST( DfwRecord, ThePaddingOfAnIdIsSearchedAsRecords )
{
    // An even number of zeros is so many empty records. Of an odd number the last one is the type
    // of a record whose length is the letter of the next.
    Bytes lEven{ 'I', 4, 'c', 'a', 'm', '1' };
    lEven.resize( 2 + 16, 0 );
    EXPECT_EQ( FindVersion( Join( { lEven, VERSION, DATA } ) ), Version( 1, 2, 3 ) );
    Bytes lOdd{ 'I', 5, 'c', 'a', 'm', '1', '2' };
    lOdd.resize( 2 + 16, 0 );
    EXPECT_EQ( FindVersion( Join( { lOdd, VERSION, DATA } ) ), NO_VERSION );
}

TEST( DfwRecord, OfAnUnknownTargetOnlyTheFirstByteIsRead )
{
    GuardedBuffer lBuffer( { 'T', 5, 3, 1, 2, 3, 4, 9, 9 } );
    {
        IoStreamRaw lStream( lBuffer.Get(), lBuffer.GetSize() );
        PayloadReader lReader( lStream );
        EXPECT_EQ( ReadTarget( lReader ), NO_TARGET );
        lStream.Write( RESET.data(), 1, 2 ); // goes where the search has ended
    }
    EXPECT_EQ( lBuffer.GetBytes(), ( Bytes{ 'T', 5, 3, 'R', 0, 0, 4, 9, 9 } ) );
}

TEST( DfwRecord, ReadingLeavesBytesWrittenAndPositionAlone )
{
    GuardedBuffer lBuffer( Join( { VERSION, DATA, DATA } ) );
    {
        IoStreamRaw lStream( lBuffer.Get(), lBuffer.GetSize() );
        PayloadReader lReader( lStream );
        EXPECT_EQ( ReadVersion( lReader ), Version( 1, 2, 3 ) );
        EXPECT_EQ( lStream.GetBytesWritten(), 0U );
        lStream.Write( RESET.data(), 1, 2 ); // goes where the search has ended
        EXPECT_EQ( lStream.GetBytesWritten(), 2U );
    }
    EXPECT_EQ( lBuffer.GetBytes(), ( Bytes{ 'V', 3, 1, 2, 3, 'R', 0, 0, 0x05, 0x02, 0x56, 'D', 4,
                                            0x54, 0x05, 0x02, 0x56 } ) );
}

TEST( DfwRecord, CopyingWritesWhatWasReadAndNothingOtherwise )
{
    InMemory lSource( Join( { DATA, VERSION, TARGET_D } ) );
    InMemory lEmpty( DATA );
    Written lWritten;
    EXPECT_TRUE( lWritten->CopyTargetRecord( lSource.Get() ) );
    EXPECT_EQ( lWritten.GetBytes(), TARGET_D );
    EXPECT_TRUE( lWritten->CopyVersionRecord( lSource.Get() ) );
    EXPECT_EQ( lWritten.GetBytes(), Join( { TARGET_D, VERSION } ) );
    EXPECT_FALSE( lWritten->CopyTargetRecord( lEmpty.Get() ) );
    EXPECT_FALSE( lWritten->CopyVersionRecord( lEmpty.Get() ) );
    EXPECT_EQ( lWritten.GetBytes(), Join( { TARGET_D, VERSION } ) );
}

// HtDfwPayload

static_assert( std::has_virtual_destructor_v<HtDfwPayload>, "may be derived from" );
static_assert( sizeof( HtDfwPayload ) == 2 * sizeof( void* ), "table of virtuals and one pointer" );
static_assert( !std::is_copy_constructible_v<HtDfwPayload> &&
                   !std::is_copy_assignable_v<HtDfwPayload>,
               "owns its writer" );
static_assert( sizeof( DfwPayloadWriter ) == sizeof( void* ) &&
                   !std::is_polymorphic_v<DfwPayloadWriter>,
               "one pointer" );
static_assert( !std::is_copy_constructible_v<DfwPayloadWriter> &&
                   !std::is_copy_assignable_v<DfwPayloadWriter>,
               "owns its stream" );

TEST( HtDfwPayload, OverMemoryItsEndZeroesTheFirstByte )
{
    GuardedBuffer lBuffer( 4 );
    {
        const HtDfwPayload lPayload( lBuffer.Get(), lBuffer.GetSize() );
        EXPECT_EQ( lBuffer.GetBytes(), Bytes( 4, UNTOUCHED ) );
    }
    EXPECT_EQ( lBuffer.GetBytes(), ( Bytes{ 0, UNTOUCHED, UNTOUCHED, UNTOUCHED } ) );
    EXPECT_TRUE( lBuffer.AreGuardsWhole() );
}

TEST( HtDfwPayload, OverNoMemoryNothingIsZeroed )
{
    GuardedBuffer lBuffer( 0U );
    {
        const HtDfwPayload lPayload( lBuffer.Get(), 0 );
    }
    EXPECT_TRUE( lBuffer.AreGuardsWhole() );
}

TEST( HtDfwPayload, AFileIsHeldOpenForReadingUntilTheEnd )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "payload" );
    WriteWholeFile( lPath, ToText( VERSION ) );
    std::string lOutput;
    const std::size_t lBefore = CountDescriptors();
    {
        StandardOutputCapture lCapture;
        const std::size_t lWithCapture = CountDescriptors();
        {
            const HtDfwPayload lPayload( HtString( lPath.c_str() ) );
            EXPECT_EQ( CountDescriptors(), lWithCapture + 1 );
        }
        lOutput = lCapture.Take();
    }
    EXPECT_EQ( CountDescriptors(), lBefore );
    EXPECT_EQ( lOutput, "" );
    EXPECT_EQ( ReadWholeFile( lPath ), ToText( VERSION ) );
}

TEST( HtDfwPayload, AFileThatCannotBeOpenedIsPrintedAndHarmless )
{
    const TemporaryDirectory lDirectory;
    const std::string lPath = lDirectory.GetPath( "missing" );
    std::string lOutput;
    {
        StandardOutputCapture lCapture;
        {
            const HtDfwPayload lPayload( HtString( lPath.c_str() ) );
        }
        lOutput = lCapture.Take();
    }
    EXPECT_EQ( lOutput, "Failed to open input file " + lPath + ". error code 2" );
    EXPECT_FALSE( std::filesystem::exists( lPath ) );
}

namespace
{

// A payload built from a file, in a buffer of a given size.
class Built
{
public:
    explicit Built( const Bytes& aFile, unsigned int aSize = 64 )
        : mBuffer( aSize )
    {
        WriteWholeFile( mPath, ToText( aFile ) );
    }

    void BuildReset()
    {
        StandardOutputCapture lCapture;
        mCode = HtDfwPayload::GetResetRecord( mPath.c_str(), mBuffer.Get(), mBuffer.GetSize(),
                                              mOutSize )
                    .GetCode();
        mOutput = lCapture.Take();
    }

    void BuildId( const char* aText )
    {
        StandardOutputCapture lCapture;
        mCode = HtDfwPayload::GetDeviceIdRecord( mPath.c_str(), aText, mBuffer.Get(),
                                                 mBuffer.GetSize(), mOutSize )
                    .GetCode();
        mOutput = lCapture.Take();
    }

    // The buffer holds these bytes, a zero if there is room for it, and else what was there before.
    void ExpectBuilt( const Bytes& aBytes ) const
    {
        EXPECT_EQ( mCode, HtResult::OK );
        EXPECT_EQ( mOutSize, aBytes.size() );
        Bytes lExpected( mBuffer.GetSize(), UNTOUCHED );
        std::copy( aBytes.begin(), aBytes.end(), lExpected.begin() );
        if ( aBytes.size() < lExpected.size() )
        {
            lExpected[aBytes.size()] = 0;
        }
        EXPECT_EQ( mBuffer.GetBytes(), lExpected );
        EXPECT_TRUE( mBuffer.AreGuardsWhole() );
    }

    TemporaryDirectory mDirectory;
    std::string mPath = mDirectory.GetPath( "payload" );
    GuardedBuffer mBuffer;
    unsigned int mOutSize = 0xEEEEEEEE;
    unsigned int mCode = 0xEEEEEEEE;
    std::string mOutput;
};

const Bytes ID_CAM1{ 'I', 4, 'c', 'a', 'm', '1', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 };

} // namespace

TEST( HtDfwPayload, AResetIsTargetVersionAndResetRecord )
{
    Built lBuilt( Join( { TARGET_D, VERSION, ADDRESS, DATA } ) );
    lBuilt.BuildReset();
    lBuilt.ExpectBuilt( Join( { TARGET_D, VERSION, RESET } ) );
    EXPECT_EQ( lBuilt.mOutSize, 15U );
    EXPECT_EQ( lBuilt.mOutput, "" );
}

TEST( HtDfwPayload, TheTargetComesFirstWhereverItIsInTheFile )
{
    Built lBuilt( Join( { DATA, VERSION, DATA, TARGET_D } ) );
    lBuilt.BuildReset();
    lBuilt.ExpectBuilt( Join( { TARGET_D, VERSION, RESET } ) );
}

TEST( HtDfwPayload, EveryModeIsCopied )
{
    const Bytes lTargets[] = {
        { 'T', 5, 2, 1, 2, 3, 4 },
        { 'T', 6, 2, 1, 2, 3, 4, 'D' },
        { 'T', 6, 2, 1, 2, 3, 4, 'U' },
        { 'T', 6, 2, 1, 2, 3, 4, 'f' },
    };
    for ( const Bytes& lTarget : lTargets )
    {
        Built lBuilt( Join( { lTarget, VERSION } ) );
        lBuilt.BuildReset();
        lBuilt.ExpectBuilt( Join( { lTarget, VERSION, RESET } ) );
    }
}

TEST( HtDfwPayload, ADeviceIdIsTargetVersionAndIdentificationRecord )
{
    Built lBuilt( Join( { TARGET_D, VERSION, ADDRESS, DATA } ) );
    lBuilt.BuildId( "cam1" );
    lBuilt.ExpectBuilt( Join( { TARGET_D, VERSION, ID_CAM1 } ) );
    EXPECT_EQ( lBuilt.mOutSize, 31U );
    EXPECT_EQ( lBuilt.mOutput, "" );
}

TEST( HtDfwPayload, ADeviceIdIsCountedInBytes )
{
    Built lBuilt( Join( { TARGET_D, VERSION } ) );
    lBuilt.BuildId( "\xC3\xA9" ); // one character of two bytes
    lBuilt.ExpectBuilt( Join(
        { TARGET_D, VERSION, { 'I', 2, 0xC3, 0xA9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 } } ) );
}

TEST( HtDfwPayload, ADeviceIdThatIsTooLongIsMissing )
{
    Built lBuilt( Join( { TARGET_D, VERSION } ), 1000 );
    lBuilt.BuildId( std::string( 256, 'x' ).c_str() );
    lBuilt.ExpectBuilt( Join( { TARGET_D, VERSION } ) );
}

TEST( HtDfwPayload, WhatTheFileLacksIsMissingAndTheResultIsOk )
{
    Built lNoTarget( Join( { VERSION, DATA } ) );
    lNoTarget.BuildReset();
    lNoTarget.ExpectBuilt( Join( { VERSION, RESET } ) );

    Built lNoVersion( Join( { DATA, TARGET_D } ) );
    lNoVersion.BuildReset();
    lNoVersion.ExpectBuilt( Join( { TARGET_D, RESET } ) );

    Built lEmpty( {} );
    lEmpty.BuildId( "cam1" );
    lEmpty.ExpectBuilt( ID_CAM1 );
}

TEST( HtDfwPayload, ATargetWithAnotherFirstByteIsNotCopied )
{
    Built lBuilt( Join( { { 'T', 6, 1, 1, 2, 3, 4, 'D' }, VERSION, TARGET_D } ) );
    lBuilt.BuildReset();
    lBuilt.ExpectBuilt( Join( { VERSION, RESET } ) );
}

TEST( HtDfwPayload, AMissingFileIsPrintedAndTheResultIsOk )
{
    Built lReset( {} );
    std::filesystem::remove( lReset.mPath );
    lReset.BuildReset();
    lReset.ExpectBuilt( RESET );
    EXPECT_EQ( lReset.mOutput, "Failed to open input file " + lReset.mPath + ". error code 2" );

    Built lId( {} );
    std::filesystem::remove( lId.mPath );
    lId.BuildId( "cam1" );
    lId.ExpectBuilt( ID_CAM1 );
    EXPECT_EQ( lId.mOutput, "Failed to open input file " + lId.mPath + ". error code 2" );
}

TEST( HtDfwPayload, WhatDoesNotFitIsCutOff )
{
    const Bytes lWhole = Join( { TARGET_D, VERSION, RESET } );
    for ( unsigned int lSize = 0; lSize <= lWhole.size() + 2; ++lSize )
    {
        Built lBuilt( lWhole, lSize );
        lBuilt.BuildReset();
        const auto lFits = static_cast<int>( std::min<std::size_t>( lSize, lWhole.size() ) );
        lBuilt.ExpectBuilt( Bytes( lWhole.begin(), lWhole.begin() + lFits ) );
    }
}

TEST( HtDfwPayload, BuildingLeavesNoFileOpenAndLogsNothing )
{
    const QmUtilsLib::Scripted::RecordingLogSink lSink;
    Built lBuilt( Join( { TARGET_D, VERSION } ) );
    const std::size_t lBefore = CountDescriptors();
    for ( int lRound = 0; lRound < 5; ++lRound )
    {
        lBuilt.BuildReset();
        lBuilt.BuildId( "cam1" );
    }
    std::filesystem::remove( lBuilt.mPath );
    lBuilt.BuildReset();
    EXPECT_EQ( CountDescriptors(), lBefore );
    EXPECT_TRUE( lSink.GetEntries().empty() );
}

// When memory is missing

namespace
{

struct Attempt
{
    bool mHasFailed = false; // an allocation
    unsigned int mCode = 0xEEEEEEEE;
    unsigned int mOSCode = 0xEEEEEEEE;
    unsigned int mOutSize = 0xEEEEEEEE;
};

using Builder = HtResult ( * )( const HtString&, GuardedBuffer&, unsigned int& );

Attempt BuildWithoutMemory( unsigned long long aNumber, Builder aBuilder, const HtString& aPath,
                            GuardedBuffer& aBuffer )
{
    Attempt lAttempt;
    const AllocationFailure lFailure( aNumber );
    const HtResult lResult = aBuilder( aPath, aBuffer, lAttempt.mOutSize );
    lAttempt.mHasFailed = lFailure.HasHappened();
    lAttempt.mCode = lResult.GetCode();
    lAttempt.mOSCode = lResult.GetOSCode();
    return lAttempt;
}

void ExpectBuilderFailsWithoutMemory( Builder aBuilder )
{
    const TemporaryDirectory lDirectory;
    const std::string lFile = lDirectory.GetPath( "payload" );
    WriteWholeFile( lFile, ToText( Join( { TARGET_D, VERSION } ) ) );
    const HtString lPath( lFile.c_str() );
    const std::size_t lDescriptors = CountDescriptors();
    for ( unsigned long long lNumber = 1;; ++lNumber )
    {
        GuardedBuffer lBuffer( 64U );
        const long long lLive = GetLiveAllocationCount();
        const Attempt lAttempt = BuildWithoutMemory( lNumber, aBuilder, lPath, lBuffer );
        EXPECT_EQ( GetLiveAllocationCount(), lLive );
        EXPECT_EQ( CountDescriptors(), lDescriptors );
        EXPECT_TRUE( lBuffer.AreGuardsWhole() );
        if ( !lAttempt.mHasFailed )
        {
            EXPECT_EQ( lAttempt.mCode, HtResult::OK );
            EXPECT_GT( lNumber, 1U );
            return;
        }
        EXPECT_EQ( lAttempt.mCode, HtResult::GENERIC_ERROR );
        EXPECT_EQ( lAttempt.mOSCode, static_cast<unsigned int>( ENOMEM ) );
        EXPECT_EQ( lAttempt.mOutSize, 0xEEEEEEEE );
    }
}

} // namespace

TEST( HtDfwPayload, BuildersFailWhenMemoryIsMissing )
{
    ExpectBuilderFailsWithoutMemory(
        []( const HtString& aPath, GuardedBuffer& aBuffer, unsigned int& aOutSize ) {
            return HtDfwPayload::GetResetRecord( aPath, aBuffer.Get(), aBuffer.GetSize(),
                                                 aOutSize );
        } );
    static const HtString ID( "cam1" );
    ExpectBuilderFailsWithoutMemory(
        []( const HtString& aPath, GuardedBuffer& aBuffer, unsigned int& aOutSize )
        {
            return HtDfwPayload::GetDeviceIdRecord( aPath, ID, aBuffer.Get(), aBuffer.GetSize(),
                                                    aOutSize );
        } );
}

TEST( HtDfwPayload, AConstructorWithoutMemoryThrowsAndLeavesNothingBehind )
{
    const TemporaryDirectory lDirectory;
    const std::string lFile = lDirectory.GetPath( "payload" );
    WriteWholeFile( lFile, ToText( VERSION ) );
    const HtString lPath( lFile.c_str() );
    unsigned char lBytes[4] = {};
    const std::size_t lDescriptors = CountDescriptors();
    const auto lFails = []( unsigned long long aNumber, const auto& aConstruct )
    {
        const AllocationFailure lFailure( aNumber );
        try
        {
            aConstruct();
        }
        catch ( const std::bad_alloc& )
        {
            return true;
        }
        return false;
    };
    const auto lExpectThrows = [&]( const auto& aConstruct )
    {
        const long long lLive = GetLiveAllocationCount();
        unsigned long long lNumber = 1;
        while ( lFails( lNumber, aConstruct ) )
        {
            ++lNumber;
            EXPECT_EQ( GetLiveAllocationCount(), lLive );
        }
        EXPECT_GT( lNumber, 1U );
    };
    lExpectThrows( [&] { const HtDfwPayload lPayload( lPath ); } );
    lExpectThrows( [&] { const HtDfwPayload lPayload( lBytes, sizeof( lBytes ) ); } );
    EXPECT_EQ( CountDescriptors(), lDescriptors );
}

#ifndef NDEBUG

namespace
{

void PrintAndExit( const char* aExpression, const char*, int )
{
    std::fputs( aExpression, stderr );
    std::_Exit( 3 );
}

} // namespace

TEST( DfwRecordDeathTest, AWriterWithoutAStreamIsAProgrammingError )
{
    using Operation = void ( * )( DfwPayloadWriter& );
    const Operation lOperations[] = {
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteAddressRecord( 0 ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteDataRecord( nullptr, 0 ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteDataRecord( nullptr, 255 ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteData( nullptr, 0 ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteVersionRecord( 0, 0, 0 ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteTargetRecord( 0, 0, 0, true, true ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteIdRecord( "", 0 ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteIdRecord( "a", 256 ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteResetRecord(); },
        []( DfwPayloadWriter& aWriter ) { aWriter.WriteEndRecord( 0 ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.AddSRecordFile( "/dev/null/none" ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.AddBinaryFile( "/dev/null/none", 0 ); },
        []( DfwPayloadWriter& aWriter ) { aWriter.AddWordHexFile( "/dev/null/none" ); },
    };
    for ( const Operation& lOperation : lOperations )
    {
        EXPECT_EXIT(
            {
                QmUtilsLib::SetAssertionHandler( PrintAndExit );
                DfwPayloadWriter lWriter( nullptr );
                lOperation( lWriter );
            },
            testing::ExitedWithCode( 3 ), "^mTarget != NULL$" );
    }
}

#endif
