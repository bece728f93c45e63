/// @file
/// WdUtilsLib: what the acknowledges of GVCP WRITEREG and WRITEMEM have in common.
#pragma once

#include <WdUtilsLib/GEV/AcknowledgeHeader.h>

#include <cstddef>

namespace WdUtilsLib
{
namespace GEV
{

/// WriteAcknowledge tells how much was written.
///
///     offset  size
///     8       2     reserved
///     10      2     index: registers or bytes written
class WriteAcknowledge : public AcknowledgeHeader
{
public:
    static constexpr std::size_t SIZE = 12; ///< bytes of the whole datagram

    /// A view of the aSize bytes at aBuffer.
    WriteAcknowledge( const void* aBuffer, std::size_t aSize )
        : AcknowledgeHeader( aBuffer, aSize )
    {
    }

    /// The number of registers or bytes that the device has written.
    unsigned short GetIndex() const { return MakeReader( INDEX_OFFSET ).Get16(); }

private:
    static constexpr std::size_t INDEX_OFFSET = 10;
};

} // namespace GEV
} // namespace WdUtilsLib
