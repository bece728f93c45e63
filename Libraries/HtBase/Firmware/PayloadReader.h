// Reads records of a firmware payload.
#pragma once

#include <cstdint>

namespace HtBaseLib
{

class IoStream;

// PayloadReader finds records in the stream of a payload.
//
// Every search starts at the first byte of the stream and leaves the position where it ended. One
// thread at a time.
class PayloadReader
{
public:
    // The stream is borrowed.
    explicit PayloadReader( IoStream& aStream );

    // Finds the first version record of exactly 3 bytes. False, and the outputs are unchanged, when
    // there is no such record or it is cut off.
    bool ReadVersionRecord( unsigned char& aFirst, unsigned char& aSecond, unsigned char& aThird );

    // Finds the first target record of at least 5 bytes. One that does not begin with 0x02 or whose
    // mode letter is unknown is a failure, whatever comes after it; one that is longer than 6 bytes
    // has no mode. False, and the outputs are unchanged, after such a failure and when there is no
    // such record or it is cut off.
    bool ReadTargetRecord( unsigned char& aFirst, unsigned char& aSecond, std::uint16_t& aValue,
                           bool& aFirstFlag, bool& aSecondFlag );

private:
    bool FindRecord( char aType, unsigned int aMinLength, unsigned int aMaxLength,
                     unsigned int& aLength );
    bool ReadMode( bool& aFirstFlag, bool& aSecondFlag );
    bool ReadBytes( unsigned char* aBytes, unsigned int aCount );

    IoStream& mStream;
};

} // namespace HtBaseLib
