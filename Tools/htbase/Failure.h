// How the program's commands fail.
#pragma once

#include <QmUtilsLib/Result.h>

#include <nlohmann/json_fwd.hpp>

#include <stdexcept>
#include <string>

namespace HtBaseTool
{

// The program's exit status.
enum class ExitStatus : int
{
    DONE = 0,
    REFUSED = 1, // it was tried and failed
    USAGE = 2,   // the command line is wrong; nothing was sent
    PARTIAL = 3  // done, but what was fetched may not be all
};

// Failure ends a command. It is thrown where the failure is detected; the program catches it,
// prints the sentence on standard error and exits with the status. The sentence says what was
// tried, on what and why it failed, without a full stop. Foreign texts in it are escaped when it is
// printed.
class Failure : public std::runtime_error
{
public:
    Failure( ExitStatus aStatus, const std::string& aSentence )
        : std::runtime_error( aSentence )
        , mStatus( aStatus )
    {
    }

    // A failure because of a result, which is kept for the report.
    Failure( const std::string& aSentence, const QmUtilsLib::Result& aResult )
        : std::runtime_error( aSentence )
        , mStatus( ExitStatus::REFUSED )
        , mResult( aResult )
    {
    }

    ExitStatus GetStatus() const { return mStatus; }

    // The result that caused the failure; OK if there is none.
    const QmUtilsLib::Result& GetResult() const { return mResult; }

private:
    ExitStatus mStatus;
    QmUtilsLib::Result mResult = QmUtilsLib::Result::OK;
};

// A wrong command line.
inline Failure MakeUsageFailure( const std::string& aSentence )
{
    return Failure( ExitStatus::USAGE, aSentence );
}

// The system's text for one of its error numbers, such as "Connection refused".
std::string GetSystemErrorText( int aError );

// A result in words: "TIMEOUT (Command link operation failure)", "GENERIC_ERROR (Connection
// refused, system error 111)".
std::string Describe( const QmUtilsLib::Result& aResult );

// A hint to the user: " - is ...?" or nothing.
std::string GetHint( const QmUtilsLib::Result& aResult );

// The device's GenCP status in a result; 0 if it has none.
unsigned int GetDeviceStatus( const QmUtilsLib::Result& aResult );

// The members of a report about a failure.
nlohmann::ordered_json MakeError( const Failure& aFailure );

// The device answered with a refusal.
bool IsRefusal( const QmUtilsLib::Result& aResult );

// The device answered that this host may not write, because another host holds control.
bool IsAccessDenied( const QmUtilsLib::Result& aResult );

} // namespace HtBaseTool
