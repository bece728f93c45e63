// The messages of the readers of firmware images, in the program.
#pragma once

#include "Libraries/HtBase/Firmware/ReaderMessages.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace HtBaseTool
{

// MessageCollector keeps the messages of a reader, so that the program prints them in its own
// sentences and where its own messages go. One thread at a time.
class MessageCollector final : public HtBaseLib::ReaderMessages
{
public:
    // The warnings about the file aPath, each once with how often it came; not those that every
    // good file causes: S5, S7, S8 and S9.
    std::vector<std::string> GetWarnings( const std::string& aPath ) const;

    // Why the reader failed, without line end; empty: it has not.
    std::string GetFailure() const;

    // Which line the reader refused, and why; empty: none.
    const std::string& GetRefusal() const { return mRefusal; }

private:
    void TakeWarning( const char* aFormat, std::va_list aValues ) override;
    void TakeFailure( const char* aFormat, std::va_list aValues ) override;
    void TakeRefusal( const char* aFormat, std::va_list aValues ) override;

    // The count of each. A file may cause any number, so they are counted and not kept.
    std::map<std::string, uint64_t> mWarnings;
    std::string mFailure;
    std::string mRefusal;
};

} // namespace HtBaseTool
