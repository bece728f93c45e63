// The decoders of TFTP packets: each takes exactly the packets that it says it takes, finds in them
// what is there, and what it found is encoded to the same packet again.

#include "fuzz/FuzzTarget.h"

#include "Libraries/HtBase/TftpAck.h"
#include "Libraries/HtBase/TftpData.h"
#include "Libraries/HtBase/TftpRrq.h"
#include "Libraries/HtBase/TftpWrq.h"

#include <QmUtilsLib/Assert.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>

namespace
{

constexpr unsigned int CAPACITY = 2048; // more than any packet takes
constexpr unsigned int UNTOLD = 0xDDDDDDDD;

int gAssertions = 0;

void CountAssertion( const char* /*aText*/, const char* /*aFile*/, int /*aLine*/ )
{
    ++gAssertions;
}

// What an encoder makes of a packet.
struct Encoded
{
    template <typename Packet>
    explicit Encoded( const Packet& aPacket )
    {
        unsigned char lBytes[CAPACITY];
        mIsWritten = aPacket.Encode( lBytes, CAPACITY, mLength );
        mBytes.assign( reinterpret_cast<const char*>( lBytes ),
                       mLength == UNTOLD ? 0 : std::min( mLength, CAPACITY ) );
    }

    bool mIsWritten = false;
    unsigned int mLength = UNTOLD;
    std::string mBytes;
};

// True when a packet begins with this opcode, the more significant byte first.
bool HasOpcode( const std::string& aPacket, char aOpcode )
{
    return aPacket.size() >= 4 && aPacket[0] == 0 && aPacket[1] == aOpcode;
}

unsigned int GetNumber( const std::string& aPacket )
{
    const auto lHigh = static_cast<unsigned char>( aPacket[2] );
    const auto lLow = static_cast<unsigned char>( aPacket[3] );
    return lHigh * 256U + lLow;
}

// The bytes are at the end of their block, so that a sanitizer detects a read beyond them.
template <typename Packet>
bool Decode( Packet& aPacket, const std::uint8_t* aData, std::size_t aSize )
{
    return aPacket.Decode( aData, static_cast<unsigned int>( aSize ) );
}

void TryData( const std::uint8_t* aData, std::size_t aSize, const std::string& aPacket )
{
    HtBaseLib::TftpData lData;
    const bool lIsGood = HasOpcode( aPacket, 3 ) && aPacket.size() <= 518;
    Fuzz::Require( Decode( lData, aData, aSize ) == lIsGood, "blocks are told from the rest" );
    if ( !lIsGood )
    {
        return;
    }
    Fuzz::Require( lData.GetBlockID() == GetNumber( aPacket ), "the number of the block" );
    unsigned char lBytes[CAPACITY];
    unsigned int lLength = UNTOLD;
    lData.GetData( lBytes, CAPACITY, lLength );
    Fuzz::Require(
        lLength == aPacket.size() - 4 &&
            aPacket.compare( 4, lLength, reinterpret_cast<const char*>( lBytes ), lLength ) == 0,
        "the data of the block" );
    const Encoded lAgain( lData );
    Fuzz::Require( lAgain.mIsWritten && lAgain.mBytes == aPacket, "the block comes out again" );
}

void TryAck( const std::uint8_t* aData, std::size_t aSize, const std::string& aPacket )
{
    HtBaseLib::TftpAck lAck;
    const bool lIsGood = HasOpcode( aPacket, 4 ) && aPacket.size() == 4;
    Fuzz::Require( Decode( lAck, aData, aSize ) == lIsGood, "acknowledges are told from the rest" );
    if ( lIsGood )
    {
        const Encoded lAgain( lAck );
        Fuzz::Require( lAck.GetBlockID() == GetNumber( aPacket ), "the number acknowledged" );
        Fuzz::Require( lAgain.mIsWritten && lAgain.mBytes == aPacket,
                       "the acknowledge comes out again" );
    }
}

void TryError( const std::uint8_t* aData, std::size_t aSize, const std::string& aPacket )
{
    HtBaseLib::TftpError lError;
    const bool lIsGood = HasOpcode( aPacket, 5 ) && aPacket.size() >= 5;
    Fuzz::Require( Decode( lError, aData, aSize ) == lIsGood, "errors are told from the rest" );
    if ( !lIsGood )
    {
        return;
    }
    const std::string lText = aPacket.substr( 4, 1023 );
    const std::string lMessage = lText.substr( 0, lText.find( '\0' ) );
    Fuzz::Require( lError.GetErrorCode() == GetNumber( aPacket ), "the code of the error" );
    Fuzz::Require( lError.GetMessage() == lMessage, "the message of the error" );

    // The encoder leaves out the last zero and returns no length.
    unsigned char lBytes[CAPACITY];
    std::fill( std::begin( lBytes ), std::end( lBytes ), static_cast<unsigned char>( 0xEE ) );
    unsigned int lLength = UNTOLD;
    Fuzz::Require( lError.Encode( lBytes, CAPACITY, lLength ) && lLength == UNTOLD,
                   "an error is written and its length is not told" );
    Fuzz::Require( std::memcmp( lBytes + 4, lMessage.data(), lMessage.size() ) == 0 &&
                       lBytes[4 + lMessage.size()] == 0xEE,
                   "the message comes out again and nothing behind it" );
}

// What a request holds: name and mode, where both are there with their zeros.
struct Request
{
    Request( const std::string& aPacket, std::uint16_t aOpcode )
    {
        std::uint16_t lOpcode = 0; // in the order of the host
        if ( aPacket.size() < 4 || aPacket.size() > 518 )
        {
            return;
        }
        std::memcpy( &lOpcode, aPacket.data(), sizeof( lOpcode ) );
        const std::size_t lNameEnd = aPacket.find( '\0', 2 );
        const std::size_t lModeEnd =
            lNameEnd == std::string::npos ? lNameEnd : aPacket.find( '\0', lNameEnd + 1 );
        if ( lOpcode != aOpcode || lModeEnd == std::string::npos )
        {
            return;
        }
        mName = aPacket.substr( 2, lNameEnd - 2 );
        mMode = aPacket.substr( lNameEnd + 1, lModeEnd - lNameEnd - 1 );
        mIsWhole = mMode.size() <= 10;
    }

    bool IsModeKnown() const { return mMode == "netascii" || mMode == "octet" || mMode == "mail"; }

    bool mIsWhole = false;
    std::string mName;
    std::string mMode;
};

// Returns how many assertions a debug build is to have seen.
template <typename Packet>
int TryRequest( const std::uint8_t* aData, std::size_t aSize, const std::string& aPacket,
                std::uint16_t aOpcode )
{
    Packet lRequest;
    const Request lPlain( aPacket, aOpcode );
    const bool lIsGood = lPlain.mIsWhole && lPlain.IsModeKnown();
    Fuzz::Require( Decode( lRequest, aData, aSize ) == lIsGood, "requests are told from the rest" );
    if ( lIsGood )
    {
        const Encoded lAgain( lRequest );
        const std::string lWanted = std::string( 1, '\0' ) + static_cast<char>( aOpcode ) +
                                    lPlain.mName + '\0' + lPlain.mMode + '\0';
        Fuzz::Require( lAgain.mIsWritten && lAgain.mBytes == lWanted,
                       "name and mode come out again" );
    }
    return lPlain.mIsWhole && !lPlain.IsModeKnown() ? 1 : 0;
}

} // namespace

// The first byte of an input says for which decoder the rest is.
int LLVMFuzzerTestOneInput( const std::uint8_t* aData, std::size_t aSize )
{
    if ( aSize == 0 )
    {
        return 0;
    }
    QmUtilsLib::SetAssertionHandler( CountAssertion );
    gAssertions = 0;
    const std::uint8_t* const lData = aData + 1;
    const std::size_t lSize = aSize - 1;
    const std::string lPacket( reinterpret_cast<const char*>( lData ), lSize );
    int lAssertions = 0;
    switch ( aData[0] )
    {
    case 1:
        lAssertions = TryRequest<HtBaseLib::TftpRrq>( lData, lSize, lPacket, 1 );
        break;
    case 2:
        lAssertions = TryRequest<HtBaseLib::TftpWrq>( lData, lSize, lPacket, 2 );
        break;
    case 3:
        TryData( lData, lSize, lPacket );
        break;
    case 4:
        TryAck( lData, lSize, lPacket );
        break;
    default:
        TryError( lData, lSize, lPacket );
    }
#ifndef NDEBUG
    Fuzz::Require( gAssertions == lAssertions, "an unknown mode is an assertion, nothing else is" );
#else
    Fuzz::Require( gAssertions == 0, "a release build asserts nothing" );
    (void)lAssertions;
#endif
    return 0;
}
