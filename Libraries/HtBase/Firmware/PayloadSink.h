// Where the readers of firmware images put what they read.
#pragma once

#include "Libraries/HtBase/Firmware/PayloadFormat.h"

#include <cstdint>

namespace HtBaseLib
{

// PayloadSink takes the addresses and the data of a firmware image in their order. Each operation
// returns whether the reader is to go on: after false the reader stops, reports nothing and
// returns false itself. One thread at a time.
class PayloadSink
{
public:
    PayloadSink() = default;
    virtual ~PayloadSink() = default;

    PayloadSink( const PayloadSink& ) = delete;
    PayloadSink& operator=( const PayloadSink& ) = delete;

    // The data after it goes to aAddress.
    virtual bool TakeAddress( std::uint32_t aAddress ) = 0;

    // aRecord holds aCount bytes of data, 1 to MAX_DATA_SIZE. The sink may write the header. It
    // borrows the record for the call.
    virtual bool TakeData( PayloadFormat::DataRecord& aRecord, unsigned int aCount ) = 0;
};

} // namespace HtBaseLib
