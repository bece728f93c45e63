// The writer of firmware payloads.
#pragma once

#include "Libraries/HtBase/Firmware/PayloadFormat.h"
#include "Libraries/HtBase/Firmware/PayloadSink.h"
#include "Libraries/HtBase/Firmware/ReaderMessages.h"
#include "Libraries/HtBase/Firmware/SRecordReader.h"
#include "Libraries/HtBase/IoStream.h"

#include <cstdint>
#include <memory>

namespace HtBaseLib
{

class PayloadReader;

// DfwPayloadWriter writes the records of a payload to a stream, see PayloadFormat.h, and converts
// firmware images into them. Not copyable. One thread at a time.
//
// The writing operations do not check how much the stream took: a full stream cuts the payload off,
// and what was written before a failure stays written.
class DfwPayloadWriter
{
public:
    // Takes ownership of the stream.
    explicit DfwPayloadWriter( std::unique_ptr<IoStream> aTarget );

    // Closes the stream, then deletes it.
    ~DfwPayloadWriter();

    DfwPayloadWriter( const DfwPayloadWriter& ) = delete;
    DfwPayloadWriter& operator=( const DfwPayloadWriter& ) = delete;

    bool WriteAddressRecord( std::uint32_t aAddress );

    // False, and nothing is written, for more than MAX_DATA_SIZE bytes. True, and nothing is
    // written, for 0 bytes; aBytes may then be null.
    bool WriteDataRecord( const unsigned char* aBytes, unsigned int aCount );

    // The same for the data of a record, whose header is overwritten.
    bool WriteDataRecord( PayloadFormat::DataRecord& aRecord, unsigned int aCount );

    // As many data records as it takes, all full but the last.
    bool WriteData( const unsigned char* aBytes, unsigned int aCount );

    bool WriteVersionRecord( unsigned char aFirst, unsigned char aSecond, unsigned char aThird );

    // The two flags select the mode: (false, true) none, (true, true) 'D', (false, false) 'U',
    // (true, false) 'f'.
    bool WriteTargetRecord( unsigned char aFirst, unsigned char aSecond, std::uint16_t aValue,
                            bool aFirstFlag, bool aSecondFlag );

    // False, and nothing is written, for more than 255 bytes of text, since the length byte cannot
    // hold that number.
    bool WriteIdRecord( const char* aText, unsigned int aLength );

    bool WriteResetRecord();
    bool WriteEndRecord( std::uint32_t aValue );

    // Write the record that aSource finds; nothing, and false, if it finds none.
    bool CopyVersionRecord( PayloadReader& aSource );
    bool CopyTargetRecord( PayloadReader& aSource );

    // The stream's bytes written.
    unsigned int GetSize() const;

    // Convert a firmware image by the reader of its kind, which documents whether the file is
    // closed. Messages go to aMessages, by default to standard output. True when the whole file
    // was converted.
    bool AddSRecordFile( const char* aName,
                         ReaderMessages& aMessages = ReaderMessages::GetPrinter(),
                         SRecordChecks aChecks = SRecordChecks::NONE );
    bool AddBinaryFile( const char* aName, std::uint32_t aAddress,
                        ReaderMessages& aMessages = ReaderMessages::GetPrinter() );
    bool AddWordHexFile( const char* aName,
                         ReaderMessages& aMessages = ReaderMessages::GetPrinter() );

private:
    bool WriteRecord( char aType, const unsigned char* aBytes, unsigned int aLength );
    bool WriteInPlace( char aType, unsigned char* aRecord, unsigned int aLength );
    bool WriteNumberRecord( char aType, std::uint32_t aNumber );

    std::unique_ptr<IoStream> mTarget;
};

// DfwPayloadSink writes what a reader reads: a record for each address and for each piece of data.
class DfwPayloadSink final : public PayloadSink
{
public:
    // The writer is borrowed.
    explicit DfwPayloadSink( DfwPayloadWriter& aWriter );

    bool TakeAddress( std::uint32_t aAddress ) override;
    bool TakeData( PayloadFormat::DataRecord& aRecord, unsigned int aCount ) override;

private:
    DfwPayloadWriter& mWriter;
};

} // namespace HtBaseLib
