// The progress of a transfer.
#pragma once

#include <cstdint>
#include <string>

namespace HtBaseTool
{

// Progress draws a bar on standard error as long as the object exists, with bytes, rate and time
// left. It draws nothing if standard error is not a terminal. It fits into 80 columns. One thread
// at a time.
class Progress
{
public:
    // aTotal: bytes, 0 included.
    explicit Progress( uint64_t aTotal );
    ~Progress(); // ends the line

    Progress( const Progress& ) = delete;
    Progress& operator=( const Progress& ) = delete;

    // Draws when the percentage changes, and now and then. aDone is at most the total.
    void Update( uint64_t aDone );

    // The transfer is complete; aTotal is its size.
    void Finish( uint64_t aTotal );

    // Wipes the line, so that another can be written in its place; the next Update draws it again.
    void Wipe();

private:
    void Draw( int aPercent, uint64_t aDone, long long aNowMs );

    uint64_t mTotal;
    const bool mIsShown;
    const long long mStartMs;
    int mPercent = -1;
    long long mDrawnMs = 0;
};

// One line of 79 columns, without the carriage return: the bar, and after it as much as is known.
// aElapsedMs is 0 or more.
std::string FormatProgress( uint64_t aDone, uint64_t aTotal, long long aElapsedMs );

} // namespace HtBaseTool
