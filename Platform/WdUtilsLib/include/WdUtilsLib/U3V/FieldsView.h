/// @file
/// WdUtilsLib: a view of consecutive fields of a GenCP packet or a USB descriptor.
#pragma once

#include <PacketBytes/ByteReader.h>
#include <PacketBytes/ByteWriter.h>

#include <cstddef>

namespace WdUtilsLib
{
namespace U3V
{

/// FieldsView is the base of a view of `VIEW::SIZE` bytes, where VIEW is the derived class. BYTE is
/// `const unsigned char` where nothing is written.
///
/// The memory is borrowed and must outlive the view. A new view is not attached: its fields are 0
/// and writing does nothing.
template <typename VIEW, typename BYTE = unsigned char>
class FieldsView
{
protected:
    FieldsView() = default;

    /// A view of the bytes at aBytes. With null it is not attached.
    explicit FieldsView( BYTE* aBytes )
        : mBytes( aBytes )
    {
    }

    /// Attach makes this a view of the bytes at aBytes. With null it is not attached.
    void Attach( BYTE* aBytes ) { mBytes = aBytes; }

    /// A reader from an offset to the end of the fields.
    PacketBytes::LittleReader MakeReader( std::size_t aOffset ) const
    {
        return PacketBytes::LittleReader( mBytes, VIEW::SIZE ).Skip( aOffset );
    }

    /// A writer from an offset to the end of the fields.
    PacketBytes::LittleWriter MakeWriter( std::size_t aOffset )
    {
        return PacketBytes::LittleWriter( mBytes, VIEW::SIZE ).Skip( aOffset );
    }

private:
    BYTE* mBytes = nullptr;
};

} // namespace U3V
} // namespace WdUtilsLib
