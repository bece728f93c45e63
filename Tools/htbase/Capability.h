// The contents of a capability record, in words.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace HtBaseTool
{

// A question that a record answers with yes or no.
template <typename Record>
struct Capability
{
    const char* mLabel;
    const char* mKey;
    bool ( Record::*mQuery )() const;
};

inline std::string FormatAnswer( bool aAnswer )
{
    return aAnswer ? "yes" : "no";
}

// Appends a row for each capability to a table, or a member for each to a report.
template <typename Record, size_t COUNT>
void AppendCapabilities( std::vector<std::vector<std::string>>& aRows, const Record& aRecord,
                         const Capability<Record> ( &aCapabilities )[COUNT] )
{
    for ( const Capability<Record>& lCapability : aCapabilities )
    {
        aRows.push_back(
            { lCapability.mLabel, FormatAnswer( ( aRecord.*lCapability.mQuery )() ) } );
    }
}

template <typename Record, size_t COUNT>
void ReportCapabilities( nlohmann::ordered_json& aReport, const Record& aRecord,
                         const Capability<Record> ( &aCapabilities )[COUNT] )
{
    for ( const Capability<Record>& lCapability : aCapabilities )
    {
        aReport["capabilities"][lCapability.mKey] = ( aRecord.*lCapability.mQuery )();
    }
}

} // namespace HtBaseTool
