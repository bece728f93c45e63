// The messages of the readers of firmware images.
#pragma once

#include <cstdarg>

namespace HtBaseLib
{

// ReaderMessages receives the messages of a reader. This class prints them on standard output; a
// derived class may do something else with them.
//
// KEEP: Most messages have no line end, since programs compare what the readers print. "Error
// reading new line from input file", "Error reading input file" and "Failed reading record" have
// one, and so have the two of the word-hex reader that begin with "unexpected data".
//
// A format and its values are those of printf, and are valid during the call only. This class has
// no state, so any number of threads may use one object.
class ReaderMessages
{
public:
    ReaderMessages() = default;
    virtual ~ReaderMessages() = default;

    ReaderMessages( const ReaderMessages& ) = delete;
    ReaderMessages& operator=( const ReaderMessages& ) = delete;

    // An object that prints, for the rest of the process.
    static ReaderMessages& GetPrinter();

    // Reports what a reader skips.
    [[gnu::format( printf, 2, 3 )]] void Warn( const char* aFormat, ... );

    // Reports why a reader fails, once.
    [[gnu::format( printf, 2, 3 )]] void Fail( const char* aFormat, ... );

    // Reports which line a reader refuses because it was asked to check, and why, once; in place of
    // Fail.
    [[gnu::format( printf, 2, 3 )]] void Refuse( const char* aFormat, ... );

    // Reports that a file cannot be opened, with the error number of the system.
    void FailToOpen( const char* aName, int aError );

private:
    [[gnu::format( printf, 2, 0 )]] virtual void TakeWarning( const char* aFormat,
                                                              std::va_list aValues );
    [[gnu::format( printf, 2, 0 )]] virtual void TakeFailure( const char* aFormat,
                                                              std::va_list aValues );
    [[gnu::format( printf, 2, 0 )]] virtual void TakeRefusal( const char* aFormat,
                                                              std::va_list aValues );
};

} // namespace HtBaseLib
