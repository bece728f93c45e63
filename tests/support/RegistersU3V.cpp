#include "tests/support/RegistersU3V.h"
#include "tests/support/GenCPPackets.h"

#include <cstdio>

namespace TestSupport
{

namespace
{

constexpr uint16_t READMEM = 0x0800;
constexpr uint16_t NOT_IMPLEMENTED = 0x8001;
constexpr uint16_t INVALID_ADDRESS = 0x8003;

Bytes RefuseWith( uint64_t aCommand, uint16_t aStatus )
{
    return HeaderOnlyAck( static_cast<uint16_t>( aCommand + 1 ), aStatus );
}

} // namespace

void RegistersU3V::Set4( uint64_t aAddress, uint32_t aValue )
{
    mRegisters[aAddress] = Little( aValue, 4 );
}

void RegistersU3V::Set8( uint64_t aAddress, uint64_t aValue )
{
    mRegisters[aAddress] = Little( aValue, 8 );
}

void RegistersU3V::SetBasics( uint64_t aSBRM, uint32_t aMaxCommand, uint32_t aMaxAck )
{
    Set4( 0x0000, 0x00010002 );        // GenCP Version
    Set8( 0x01C4, 0 );                 // Device Capability
    Set4( 0x01CC, 250 );               // Maximum Device Response Time
    Set8( 0x01D0, 0x10000 );           // Manifest Table Address
    Set8( 0x01D8, aSBRM );             // SBRM Address
    Set4( aSBRM + 0x00, 0x00010000 );  // U3V Version
    Set8( aSBRM + 0x04, 0 );           // U3VCP Capability Register
    Set4( aSBRM + 0x14, aMaxCommand ); // Maximum Command Transfer Length
    Set4( aSBRM + 0x18, aMaxAck );     // Maximum Acknowledge Transfer Length
    Set4( aSBRM + 0x1C, 0 );           // Number of Stream Channels
}

void RegistersU3V::Relent()
{
    mRefused.clear();
    mSilent.clear();
}

Bytes RegistersU3V::Answer( const Bytes& aCommand )
{
    const uint64_t lCommand = FromLittle( aCommand, 6, 2 );
    if ( lCommand != READMEM )
    {
        return RefuseWith( lCommand, NOT_IMPLEMENTED );
    }
    const Read lRead{ FromLittle( aCommand, 12, 8 ),
                      static_cast<unsigned int>( FromLittle( aCommand, 22, 2 ) ) };
    mReads.push_back( lRead );
    if ( mObserver )
    {
        mObserver( lRead );
    }
    if ( mSilent.count( lRead.mAddress ) != 0 )
    {
        return {};
    }
    const auto lRefused = mRefused.find( lRead.mAddress );
    if ( lRefused != mRefused.end() )
    {
        return RefuseWith( lCommand, lRefused->second );
    }
    const auto lRegister = mRegisters.find( lRead.mAddress );
    if ( lRegister == mRegisters.end() || lRegister->second.size() != lRead.mSize )
    {
        return RefuseWith( lCommand, INVALID_ADDRESS );
    }
    return ReadMemAck( lRegister->second );
}

std::string ToText( const RegistersU3V::Read& aRead )
{
    char lText[40];
    std::snprintf( lText, sizeof( lText ), "0x%04llX/%u",
                   static_cast<unsigned long long>( aRead.mAddress ), aRead.mSize );
    return lText;
}

} // namespace TestSupport
