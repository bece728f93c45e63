// The options that name the maker's own devices.
#pragma once

#include "Tools/htbase/Device.h"

#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace HtBaseTool
{

class GevDevice;

// The maker's devices that the user names, as MAC addresses or three-byte prefixes.
struct MakerOptions
{
    std::vector<std::string> mDevices;      // device engines
    std::vector<std::string> mTransmitters; // video transmitters

    bool IsEmpty() const { return mDevices.empty() && mTransmitters.empty(); }

    // Adds the addresses to the device identity service. Throws a usage failure for an invalid one.
    void Apply() const;
};

// Adds --maker and --maker-transmitter.
void AddMakerOptions( CLI::App& aCommand, MakerOptions& aOptions );

// The most bytes that one READMEM and one WRITEMEM may carry with this device. Only the maker's
// devices accept more than others, so the device's identity is read only if the options name one.
// Throws a Failure if it cannot be read.
PieceSizes GetPieceSizes( GevDevice& aDevice, const MakerOptions& aOptions );

} // namespace HtBaseTool
