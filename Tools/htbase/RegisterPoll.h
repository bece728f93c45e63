// One register, read again and again.
#pragma once

#include "Tools/htbase/GevDevice.h"

#include <QmUtilsLib/Mutex.h>
#include <QmUtilsLib/Result.h>

#include <cstdint>
#include <future>
#include <thread>

namespace HtBaseTool
{

// The state of the reads. A read that was aborted at the end does not count.
struct PollState
{
    uint64_t mReads = 0;
    uint64_t mFailedReads = 0;                            // of those
    QmUtilsLib::Result mResult;                           // of the latest; NOT_INITIALIZED at first
    QmUtilsLib::Result mFailure = QmUtilsLib::Result::OK; // of the latest that failed
    uint32_t mValue = 0;                                  // of the latest that succeeded
    long long mGoodMs = 0;                                // when that was, in ticks
};

// RegisterPoll reads a register of a device on a thread of its own, from its construction on until
// it is stopped or the device is aborted. The reads begin at multiples of the interval; where one
// takes longer, those that it has delayed are left out.
class RegisterPoll
{
public:
    // The device must outlive the object; other code may only read its statistics. The address
    // is one of 32 bits, the interval 1 ms or more.
    RegisterPoll( GevDevice& aDevice, uint64_t aAddress, int aIntervalMs );
    ~RegisterPoll(); // stops

    RegisterPoll( const RegisterPoll& ) = delete;
    RegisterPoll& operator=( const RegisterPoll& ) = delete;

    PollState GetState() const;

    // Aborts the device and waits until the thread has ended.
    void Stop();

private:
    void Run();
    void Record( const QmUtilsLib::Result& aResult, uint32_t aValue );

    GevDevice& mDevice;
    const uint64_t mAddress;
    const long long mIntervalMs;
    std::promise<void> mStop;
    mutable QmUtilsLib::Mutex mMutex;
    PollState mState QMUTILSLIB_GUARDED_BY( mMutex );
    std::thread mThread;
};

} // namespace HtBaseTool
