// The program's link to a USB3 Vision device.
#pragma once

#include <BaseCommandLinkU3V.h>
#include <QmUtilsLib/Logger.h>

namespace HtBaseTool
{

// ToolLinkU3V is a link that fits its transfers to the device. It counts the transfers that
// succeeded and logs each at 20000.
class ToolLinkU3V : public HtBaseLib::BaseCommandLinkU3V
{
public:
    // aIsMaster: whether the command means to change the device.
    explicit ToolLinkU3V( bool aIsMaster );

    // Of an open link: makes commands and acknowledges as large as the device and the link's
    // buffers allow. When the device's capabilities cannot be read the sizes stay as small as those
    // of registers, and the result is that of the read.
    QmUtilsLib::Result FitSizes();

    // Closes the device; from any thread. Whoever waits for it is woken.
    void Abort();

    // Reads and writes that succeeded.
    long long GetTransfersCount() const { return mTransfersCount; }

protected:
    QmUtilsLib::Logger* GetLibLogger() override { return &mLogger; }
    QmUtilsLib::Logger* GetLinkLogger() override { return &mLogger; }
    bool IsMaster() const override { return mIsMaster; }

    void ReadCallback( const void* aData, long long aAddress, long long aSize ) override;
    void WriteCallback( const void* aData, long long aAddress, long long aSize ) override;

private:
    const bool mIsMaster;
    QmUtilsLib::Logger mLogger;
    long long mTransfersCount = 0;
};

} // namespace HtBaseTool
