#include "tests/support/RegisterTable.h"

#include <cstdio>

namespace TestSupport
{

namespace
{

constexpr uint32_t READREG = 0x0080;
constexpr uint32_t READMEM = 0x0084;
constexpr uint32_t INVALID_ADDRESS = 0x8003;
constexpr uint32_t NOT_IMPLEMENTED = 0x8001;

uint32_t GetNumber( const Bytes& aBytes, size_t aOffset, size_t aSize )
{
    uint32_t lNumber = 0;
    for ( size_t lIndex = 0; lIndex < aSize; ++lIndex )
    {
        lNumber = lNumber << 8 | aBytes.at( aOffset + lIndex );
    }
    return lNumber;
}

void PutNumber( Bytes& aBytes, uint32_t aNumber, size_t aSize )
{
    for ( size_t lIndex = aSize; lIndex > 0; --lIndex )
    {
        aBytes.push_back( static_cast<uint8_t>( aNumber >> ( 8 * ( lIndex - 1 ) ) ) );
    }
}

Bytes MakeAcknowledge( uint32_t aStatus, uint32_t aCommand, uint32_t aIdentifier,
                       const Bytes& aPayload )
{
    Bytes lBytes;
    PutNumber( lBytes, aStatus, 2 );
    PutNumber( lBytes, aCommand + 1, 2 ); // the acknowledge of a command is the next number
    PutNumber( lBytes, static_cast<uint32_t>( aPayload.size() ), 2 );
    PutNumber( lBytes, aIdentifier, 2 );
    lBytes.insert( lBytes.end(), aPayload.begin(), aPayload.end() );
    return lBytes;
}

} // namespace

Bytes RegisterTable::Answer( const Bytes& aCommand )
{
    // key 0x42, flags, command (2), length (2), identifier (2), then the address (4) and, in a
    // READMEM, reserved (2) and count (2).
    const uint32_t lCommand = GetNumber( aCommand, 2, 2 );
    const uint32_t lIdentifier = GetNumber( aCommand, 6, 2 );
    const bool lIsMemory = lCommand == READMEM;
    if ( ( lCommand != READREG && !lIsMemory ) || aCommand.size() != ( lIsMemory ? 16U : 12U ) )
    {
        return MakeAcknowledge( NOT_IMPLEMENTED, lCommand, lIdentifier, {} );
    }
    const uint32_t lAddress = GetNumber( aCommand, 8, 4 );
    const uint32_t lSize = lIsMemory ? GetNumber( aCommand, 14, 2 ) : 0;
    mReads.push_back( { lAddress, lSize, static_cast<uint16_t>( lIdentifier ) } );
    if ( mObserver )
    {
        mObserver( mReads.back() );
    }
    if ( mSilent.count( lAddress ) != 0 )
    {
        return {};
    }
    const auto lRefusal = mRefused.find( lAddress );
    if ( lRefusal != mRefused.end() )
    {
        return MakeAcknowledge( lRefusal->second, lCommand, lIdentifier, {} );
    }

    Bytes lPayload;
    const auto lRegister = mRegisters.find( lAddress );
    const auto lText = mTexts.find( lAddress );
    if ( !lIsMemory && lRegister != mRegisters.end() )
    {
        PutNumber( lPayload, lRegister->second, 4 );
    }
    else if ( lIsMemory && lText != mTexts.end() && lText->second.size() == lSize )
    {
        PutNumber( lPayload, lAddress, 4 );
        lPayload.insert( lPayload.end(), lText->second.begin(), lText->second.end() );
    }
    else
    {
        return MakeAcknowledge( INVALID_ADDRESS, lCommand, lIdentifier, {} );
    }
    return MakeAcknowledge( 0, lCommand, lIdentifier, lPayload );
}

std::vector<std::string> RegisterTable::GetReadTexts() const
{
    std::vector<std::string> lTexts;
    for ( const Read& lRead : mReads )
    {
        lTexts.push_back( ToText( lRead.mAddress ) +
                          ( lRead.mSize != 0 ? "/" + std::to_string( lRead.mSize ) : "" ) );
    }
    return lTexts;
}

std::string ToText( uint32_t aAddress )
{
    char lText[16];
    std::snprintf( lText, sizeof( lText ), "0x%04X", aAddress );
    return lText;
}

} // namespace TestSupport
