// Which devices are the maker's own, as the user says.
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

// What the user knows of the maker's devices, as MAC addresses or three-byte prefixes.
struct MakerOptions
{
    std::vector<std::string> mDevices;      // device engines
    std::vector<std::string> mTransmitters; // video transmitters

    bool IsEmpty() const { return mDevices.empty() && mTransmitters.empty(); }

    // Tells the device identity service. Throws a usage failure for what is no address.
    void Apply() const;
};

// Adds --maker and --maker-transmitter.
void AddMakerOptions( CLI::App& aCommand, MakerOptions& aOptions );

// The most bytes that one READMEM, one WRITEMEM may carry to this device. Only a device of the
// maker's takes more than any other, so the device is asked who it is only where one is known.
// Throws a Failure when it does not tell.
PieceSizes GetPieceSizes( GevDevice& aDevice, const MakerOptions& aOptions );

} // namespace HtBaseTool
