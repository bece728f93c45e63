#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <utility>

namespace Simulators
{

// AddressFaults holds the faults of a virtual device at certain addresses: a status to refuse a
// command with, or silence. An address need not exist. Not thread-safe.
class AddressFaults
{
public:
    // Selects every command. It is the largest value of a command code.
    static constexpr uint16_t ANY_COMMAND = 0xFFFF;

    // From now on aCommand is refused with aStatus where it touches aAddress. 0 removes that.
    void Refuse( uint16_t aCommand, uint64_t aAddress, uint16_t aStatus );

    // The status with which the command is refused at the lowest such address of the span, or 0. A
    // status for this command takes precedence over one for ANY_COMMAND.
    uint16_t FindStatus( uint16_t aCommand, uint64_t aAddress, size_t aSize ) const;

    // Makes commands that touch aAddress silent, or ends that.
    void SetSilent( uint64_t aAddress, bool aIsSilent );
    bool IsSilent( uint64_t aAddress, size_t aSize ) const;

private:
    // By address and command, so that the first entry that suits is the one that counts.
    std::map<std::pair<uint64_t, uint16_t>, uint16_t> mStatuses;
    std::set<uint64_t> mSilent;
};

} // namespace Simulators
