// The program's link to a USB3 Vision device.
#pragma once

#include "Tools/htbase/ToolLink.h"

#include <BaseCommandLinkU3V.h>

namespace HtBaseTool
{

// ToolLinkU3V is a link that fits its transfers to the device.
class ToolLinkU3V : public ToolLink<HtBaseLib::BaseCommandLinkU3V, AddressBits::U3V>
{
public:
    // aIsMaster: whether the command means to change the device.
    explicit ToolLinkU3V( bool aIsMaster );

    // Of an open link: makes commands and acknowledges as large as the device and the link's
    // buffers allow. When the device's capabilities cannot be read the sizes stay as small as those
    // of registers, and the result is that of the read.
    QmUtilsLib::Result FitSizes();

    // Closes the device; from any thread. Wakes a thread that waits for it.
    void Abort();

protected:
    bool IsMaster() const override { return mIsMaster; }

private:
    const bool mIsMaster;
};

} // namespace HtBaseTool
