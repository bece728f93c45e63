#include <WdUtilsLib/U3V/DeviceInfoDescriptor.h>

#include <WdUtilsLib/U3V/CommandHeader.h>

#include "LittleEndian.h"

namespace WdUtilsLib
{
namespace U3V
{

using QmUtilsLib::Result;

namespace
{

constexpr std::size_t TYPE_OFFSET = 1;
constexpr std::size_t SUBTYPE_OFFSET = 2;
constexpr std::size_t GENCP_VERSION_OFFSET = 3;
constexpr std::size_t U3V_VERSION_OFFSET = 7;
constexpr std::size_t TEXTS_OFFSET = 11;

constexpr unsigned char TYPE = 0x24;
constexpr unsigned char SUBTYPE = 0x01;

bool IsDeviceInfo( const unsigned char* aDescriptor, std::size_t aLength )
{
    return aLength >= DeviceInfoDescriptor::SIZE && aDescriptor[TYPE_OFFSET] == TYPE &&
           aDescriptor[SUBTYPE_OFFSET] == SUBTYPE;
}

} // namespace

Result DeviceInfoDescriptor::Attach( const unsigned char* aDescriptors, std::size_t aSize )
{
    mBytes = nullptr;
    std::size_t lOffset = 0;
    while ( lOffset < aSize )
    {
        const std::size_t lLength = aDescriptors[lOffset];
        if ( lLength < 2 || lLength > aSize - lOffset )
        {
            return INVALID_PACKET; // where the next one begins cannot be told
        }
        if ( IsDeviceInfo( aDescriptors + lOffset, lLength ) )
        {
            mBytes = aDescriptors + lOffset;
            return Result::OK;
        }
        lOffset += lLength;
    }
    return INVALID_PACKET;
}

uint32_t DeviceInfoDescriptor::GetGenCPVersion() const
{
    return mBytes == nullptr ? 0 : GetLittle32( mBytes + GENCP_VERSION_OFFSET );
}

uint32_t DeviceInfoDescriptor::GetU3VVersion() const
{
    return mBytes == nullptr ? 0 : GetLittle32( mBytes + U3V_VERSION_OFFSET );
}

uint8_t DeviceInfoDescriptor::GetTextIndex( Text aText ) const
{
    return mBytes == nullptr ? uint8_t{ 0 }
                             : mBytes[TEXTS_OFFSET + static_cast<std::size_t>( aText )];
}

} // namespace U3V
} // namespace WdUtilsLib
