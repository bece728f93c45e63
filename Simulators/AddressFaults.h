#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <utility>

namespace Simulators
{

// AddressFaults holds what a virtual device was told to do wrong at certain addresses: to refuse
// with a status, or to be silent. Any address may be named. Not safe for several threads at once.
class AddressFaults
{
public:
    // The largest number that a command code can be. It stands for all commands.
    static constexpr uint16_t ANY_COMMAND = 0xFFFF;

    // Lets the command be refused with aStatus where it touches aAddress. 0 takes that back.
    void Refuse( uint16_t aCommand, uint64_t aAddress, uint16_t aStatus );

    // The status of the lowest address in the span at which the command is refused; what was told
    // for this command goes before what was told for any. 0 if there is none.
    uint16_t FindStatus( uint16_t aCommand, uint64_t aAddress, size_t aSize ) const;

    // Lets commands that touch aAddress be silent, or not any more.
    void SetSilent( uint64_t aAddress, bool aIsSilent );
    bool IsSilent( uint64_t aAddress, size_t aSize ) const;

private:
    // By address and command, so that the first entry that suits is the one that counts.
    std::map<std::pair<uint64_t, uint16_t>, uint16_t> mStatuses;
    std::set<uint64_t> mSilent;
};

} // namespace Simulators
