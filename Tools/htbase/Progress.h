// How far a transfer has come.
#pragma once

#include <cstdint>

namespace HtBaseTool
{

// Progress draws a bar on standard error while it lives; nothing when that is no terminal.
class Progress
{
public:
    // aTotal: bytes, at least 1.
    explicit Progress( uint64_t aTotal );
    ~Progress(); // ends the line

    Progress( const Progress& ) = delete;
    Progress& operator=( const Progress& ) = delete;

    // Draws when the picture changes.
    void Update( uint64_t aDone );

private:
    const uint64_t mTotal;
    const bool mIsShown;
    int mPercent = -1;
};

} // namespace HtBaseTool
