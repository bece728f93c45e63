// The search for records: whatever the payload, it ends, and what it finds survives a copy.

#include "fuzz/FuzzTarget.h"

#include "Libraries/HtBase/DfwPayload.h"
#include "Libraries/HtBase/Firmware/PayloadReader.h"
#include "tests/support/StringStream.h"

#include <memory>
#include <string>

using HtBaseLib::DfwPayloadWriter;
using HtBaseLib::IoStreamRaw;
using HtBaseLib::PayloadReader;

namespace
{

// Both records of a payload, in this order, as far as they are found.
std::string CopyBoth( const unsigned char* aData, std::size_t aSize )
{
    std::string lCopy;
    DfwPayloadWriter lTarget( std::make_unique<TestSupport::StringStream>( lCopy ) );
    IoStreamRaw lStream( IoStreamRaw::READ_ONLY, aData, static_cast<unsigned int>( aSize ) );
    PayloadReader lSource( lStream );
    const bool lHasTarget = lTarget.CopyTargetRecord( lSource );
    Fuzz::Require( lHasTarget != lCopy.empty(), "a target is written where it is found" );
    const std::size_t lTargetSize = lCopy.size();
    const bool lHasVersion = lTarget.CopyVersionRecord( lSource );
    Fuzz::Require( lCopy.size() == lTargetSize + ( lHasVersion ? 5 : 0 ),
                   "a version is written where it is found" );
    return lCopy;
}

} // namespace

int LLVMFuzzerTestOneInput( const std::uint8_t* aData, std::size_t aSize )
{
    const std::string lCopy = CopyBoth( aData, aSize );
    Fuzz::Require(
        CopyBoth( reinterpret_cast<const unsigned char*>( lCopy.data() ), lCopy.size() ) == lCopy,
        "a copy is copied alike" );
    return 0;
}
