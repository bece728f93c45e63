// The acknowledges of GenCP. Whatever a device has sent, a view of it returns the received bytes,
// zeros or nothing beyond them, and is valid exactly when the standard says so.

#include "fuzz/FuzzTarget.h"

#include <WdUtilsLib/U3V/AckHeader.h>
#include <WdUtilsLib/U3V/ReadMem.h>
#include <WdUtilsLib/U3V/WriteMem.h>

#include <algorithm>
#include <string>

namespace
{

namespace U3V = WdUtilsLib::U3V;

constexpr unsigned int HEADER_SIZE = 12;

// The received bytes, decoded independently of the library, from the standard alone.
class Received
{
public:
    Received( const std::uint8_t* aData, std::size_t aSize )
        : mBytes( reinterpret_cast<const char*>( aData ), aSize )
    {
        if ( IsAttached() )
        {
            mData = mBytes.substr( HEADER_SIZE, GetField( 8, 2 ) );
        }
    }

    bool IsAttached() const { return mBytes.size() >= HEADER_SIZE; }

    // A number of the header; 0 where there is none.
    unsigned int GetField( std::size_t aOffset, std::size_t aSize ) const
    {
        return IsAttached() ? GetNumber( aOffset, aSize ) : 0;
    }

    bool IsValid( unsigned int aCode ) const
    {
        return IsAttached() && mBytes.compare( 0, 4, "U3VC" ) == 0 && GetField( 6, 2 ) == aCode &&
               HEADER_SIZE + GetField( 8, 2 ) <= mBytes.size();
    }

    // The data that was received: as much as the length field says, or less.
    const std::string& GetData() const { return mData; }

private:
    unsigned int GetNumber( std::size_t aOffset, std::size_t aSize ) const
    {
        unsigned int lNumber = 0;
        for ( std::size_t lPlace = aOffset + aSize; lPlace > aOffset; --lPlace )
        {
            lNumber = lNumber << 8 | static_cast<unsigned char>( mBytes[lPlace - 1] );
        }
        return lNumber;
    }

    const std::string mBytes;
    std::string mData;
};

void TryHeader( const U3V::AckHeader& aView, const Received& aPlain )
{
    Fuzz::Require( aView.GetPrefix() == aPlain.GetField( 0, 4 ), "prefix" );
    Fuzz::Require( aView.GetStatus() == aPlain.GetField( 4, 2 ), "status" );
    Fuzz::Require( aView.GetAcknowledge() == aPlain.GetField( 6, 2 ), "acknowledge code" );
    Fuzz::Require( aView.GetLength() == aPlain.GetField( 8, 2 ), "length" );
    Fuzz::Require( aView.GetRequestID() == aPlain.GetField( 10, 2 ), "request identifier" );
    const auto lCode = static_cast<unsigned short>( aPlain.GetField( 6, 2 ) );
    Fuzz::Require( aView.IsValid( lCode ) == aPlain.IsValid( lCode ), "validity" );
    Fuzz::Require( !aView.IsValid( static_cast<unsigned short>( lCode + 1 ) ),
                   "an answer to another command" );
    Fuzz::Require( aView.GetCurrentDataSize() == aPlain.GetData().size(), "size of the data" );
    Fuzz::Require( ( aView.GetData() != nullptr ) == aPlain.IsAttached(), "place of the data" );
    if ( aPlain.IsAttached() )
    {
        const auto* const lData = reinterpret_cast<const char*>( aView.GetData() );
        Fuzz::Require( std::string( lData, aView.GetCurrentDataSize() ) == aPlain.GetData(),
                       "data" );
    }
}

// aView is attached to something else before, which must leave no trace.
template <typename View, typename Byte>
void Attach( View& aView, Byte* aData, std::size_t aSize, const Received& aPlain )
{
    unsigned char lOther[64] = { 'U', '3', 'V', 'C', 0, 0, 0x01, 0x08, 0x10 };
    Fuzz::Require( aView.Attach( lOther, sizeof( lOther ) ).IsOK(), "what has a header" );
    Fuzz::Require( aView.Attach( aData, static_cast<unsigned int>( aSize ) ).IsOK() ==
                       aPlain.IsAttached(),
                   "what has a header is attached" );
}

} // namespace

// An input is what was received; it is looked at as each of the acknowledges.
int LLVMFuzzerTestOneInput( const std::uint8_t* aData, std::size_t aSize )
{
    const Received lPlain( aData, aSize );
    U3V::AckHeader lHeader;
    Attach( lHeader, aData, aSize, lPlain );
    TryHeader( lHeader, lPlain );

    U3V::PendingAck lPending;
    Attach( lPending, aData, aSize, lPlain );
    const bool lIsPending = lPlain.IsValid( 0x0805 ) && lPlain.GetData().size() >= 4;
    Fuzz::Require( lPending.IsValid() == lIsPending, "a pending acknowledge has a time-out" );
    const unsigned int lTimeout = lIsPending
                                      ? static_cast<unsigned char>( lPlain.GetData()[2] ) +
                                            256U * static_cast<unsigned char>( lPlain.GetData()[3] )
                                      : 0;
    Fuzz::Require( lPending.GetTimeout() == lTimeout, "the time-out" );

    // These two take bytes that may be written, and write none.
    std::string lBytes( reinterpret_cast<const char*>( aData ), aSize );
    lBytes.shrink_to_fit();
    auto* const lData = reinterpret_cast<unsigned char*>( lBytes.data() );
    U3V::ReadMemAck lRead;
    Attach( lRead, lData, aSize, lPlain );
    TryHeader( *lRead.GetAckHeader(), lPlain );
    Fuzz::Require( lRead.IsValid() == lPlain.IsValid( 0x0801 ), "a READMEM acknowledge" );
    Fuzz::Require( lRead.GetCurrentDataSize() == lPlain.GetData().size(), "what was read" );
    U3V::WriteMemAck lWrite;
    Attach( lWrite, lData, aSize, lPlain );
    TryHeader( *lWrite.GetAckHeader(), lPlain );
    Fuzz::Require( lWrite.IsValid() == lPlain.IsValid( 0x0803 ), "a WRITEMEM acknowledge" );
    Fuzz::Require( lBytes.compare( 0, aSize, reinterpret_cast<const char*>( aData ), aSize ) == 0,
                   "what was received stays" );
    return 0;
}
