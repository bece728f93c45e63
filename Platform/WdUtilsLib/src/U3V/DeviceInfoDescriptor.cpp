#include <WdUtilsLib/U3V/DeviceInfoDescriptor.h>

#include <PacketBytes/ByteReader.h>
#include <WdUtilsLib/U3V/CommandHeader.h>

namespace WdUtilsLib
{
namespace U3V
{

using PacketBytes::LittleReader;
using QmUtilsLib::Result;

namespace
{

constexpr std::size_t GENCP_VERSION_OFFSET = 3;
constexpr std::size_t U3V_VERSION_OFFSET = 7;
constexpr std::size_t TEXTS_OFFSET = 11;

constexpr unsigned char TYPE = 0x24;
constexpr unsigned char SUBTYPE = 0x01;

bool IsDeviceInfo( LittleReader aDescriptor )
{
    LittleReader lReader = aDescriptor.GetPart( DeviceInfoDescriptor::SIZE );
    (void)lReader.Get8(); // length
    const uint8_t lType = lReader.Get8();
    const uint8_t lSubtype = lReader.Get8();
    return lType == TYPE && lSubtype == SUBTYPE;
}

} // namespace

Result DeviceInfoDescriptor::Attach( const unsigned char* aDescriptors, std::size_t aSize )
{
    FieldsView::Attach( nullptr );
    LittleReader lRest( aDescriptors, aSize );
    while ( lRest.GetLeft() != 0 )
    {
        const std::size_t lLength = LittleReader( lRest ).Get8();
        LittleReader lDescriptor = lRest.GetPart( lLength );
        if ( lLength < 2 || !lDescriptor.IsWhole() )
        {
            return INVALID_PACKET; // where the next one begins cannot be told
        }
        if ( IsDeviceInfo( lDescriptor ) )
        {
            FieldsView::Attach( lDescriptor.Take( SIZE ) );
            return Result::OK;
        }
    }
    return INVALID_PACKET;
}

uint32_t DeviceInfoDescriptor::GetGenCPVersion() const
{
    return MakeReader( GENCP_VERSION_OFFSET ).Get32();
}

uint32_t DeviceInfoDescriptor::GetU3VVersion() const
{
    return MakeReader( U3V_VERSION_OFFSET ).Get32();
}

uint8_t DeviceInfoDescriptor::GetTextIndex( Text aText ) const
{
    return MakeReader( TEXTS_OFFSET + static_cast<std::size_t>( aText ) ).Get8();
}

} // namespace U3V
} // namespace WdUtilsLib
