// A firmware payload, record by record.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace HtBaseTool
{

struct PayloadRecord
{
    uint64_t mOffset;            // of the type in the file
    char mType;                  // the letter
    const char* mName;           // "target"
    std::vector<uint8_t> mBytes; // after the length byte, as many as it says
};

// PayloadFile reads the records of a payload in their order, each with its length, and for target
// records the contents, checked.
class PayloadFile
{
public:
    // Throws a usage failure when the file cannot be read.
    explicit PayloadFile( const std::string& aPath );

    // The next record; nothing at the end of the file. Throws a Failure that says where and how the
    // file is damaged.
    std::optional<PayloadRecord> Read();

    // Bytes of the records that were read.
    uint64_t GetSize() const { return mOffset; }

private:
    bool ReadBytes( uint8_t* aBytes, size_t aCount );
    void ReadPadding( const PayloadRecord& aRecord );
    [[noreturn]] void ThrowDamage( const std::string& aWhat ) const;
    [[noreturn]] void ThrowCutOff( const PayloadRecord& aRecord ) const;

    const std::string mPath;
    const std::unique_ptr<std::FILE, decltype( &std::fclose )> mFile;
    uint64_t mOffset = 0; // of the next record
};

// Fields of a record, big-endian.
uint32_t GetNumber( const PayloadRecord& aRecord, size_t aOffset, size_t aSize );

} // namespace HtBaseTool
