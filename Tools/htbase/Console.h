// What the program writes on standard output and standard error.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>

namespace HtBaseTool
{

// How long a line may be that is drawn over and over: the eightieth character would move the cursor
// to the next line.
constexpr size_t LINE_COLUMNS = 79;

// To be called before anything is opened. A standard stream that the program was started without
// gets its number back, so that no file or socket takes it and is written into; writing to such a
// standard output fails.
void GuardStandardStreams();

// Writes a text to standard output at once. Throws a Failure when it could not be written.
void Print( const std::string& aText );

// Writes a JSON value and a line end to standard output. Bytes that are not UTF-8 become U+FFFD.
// Throws as Print does.
void PrintJson( const nlohmann::ordered_json& aValue );

// The same on one line.
void PrintJsonLine( const nlohmann::ordered_json& aValue );

// Writes one line to standard error: "htbase: aText". The text is escaped. What cannot be written
// there is lost.
void PrintNote( const std::string& aText );

// Whether the stream is a terminal.
bool IsOutputTerminal();
bool IsErrorTerminal();

} // namespace HtBaseTool
