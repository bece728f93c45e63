#pragma once

#include <cstdint>
#include <string>

namespace Simulators
{

// The values in which the GenICam descriptions of the virtual devices differ.
struct Description
{
    // A register with a text about the device.
    struct Text
    {
        uint64_t mAddress = 0;
        uint32_t mSize = 0;
    };

    std::string mModelName;
    std::string mNameSpace; // of the standard that the device follows: "GEV", "None"
    std::string mProductGuid;
    std::string mVersionGuid;
    Text mVendorText;
    Text mModelText;
    Text mSerialText;

    // Words, all of one byte order: "BigEndian" or "LittleEndian".
    std::string mEndianess;
    uint64_t mWidth = 0;
    uint64_t mHeight = 0;
    uint64_t mPixelFormat = 0;
    uint64_t mAcquisition = 0;
    uint64_t mScratch = 0;
};

// Returns the description as GenICam XML: width, height and pixel format, start and stop, the three
// texts, and a word without effect.
std::string MakeDescription( const Description& aDescription );

} // namespace Simulators
