// How GigE Vision links are copied and assigned while they are used.
#pragma once

#include <BaseCommandLinkGEV.h>

#include <memory>
#include <vector>

namespace HtBaseLib
{

// What a link keeps beside its counters.
// SAFE: Copies of links and records share the mutex and the logger through shared ownership, so
// destroying both releases them once.
struct BaseCommandLinkGEV::Holdings
{
    // Owns the published mutex, or the one that an assignment is about to publish. It and all else
    // that an assignment takes over change under both the published mutex and mCopyMutex, so either
    // is enough to look at it.
    std::shared_ptr<QmUtilsLib::Mutex> mMutex;

    // Held for a moment only, by nobody who waits for a transaction meanwhile.
    QmUtilsLib::Mutex mCopyMutex;

    // Under the published mutex: how often its owner has taken it by LockMutex, and what
    // assignments have replaced.
    int mHeld = 0;
    std::vector<std::shared_ptr<const void>> mReplaced;
};

// A Turn is the one that a thread has on a link: it owns the mutex that was the link's when it had
// come, whatever is the link's later on.
class BaseCommandLinkGEV::Turn
{
public:
    explicit Turn( const BaseCommandLinkGEV& aLink );
    ~Turn() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS;

    Turn( const Turn& ) = delete;
    Turn& operator=( const Turn& ) = delete;

private:
    QmUtilsLib::Mutex& mMutex;
};

// An Assignment lets a link take over what another one has. While it lives no transaction of the
// target runs, and nobody else copies or assigns to either of the two, so that what is taken over
// belongs together. Its end publishes the target's new mutex.
//
// A thread waits for the target's published mutex first, then for the copy mutex of both links in
// the order of their addresses. So links may be assigned to each other.
// SAFE: What assigning to a link replaces is kept until that link is destroyed. Assigning to a
// GigE Vision link waits for its transaction, and a thread that waited for the replaced mutex takes
// the new one. A USB3 Vision link serves one thread, so it must not be assigned to while another
// thread uses it.
class BaseCommandLinkGEV::Assignment
{
public:
    Assignment( BaseCommandLinkGEV& aTarget,
                const BaseCommandLinkGEV& aSource ) QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS;
    ~Assignment() QMUTILSLIB_NO_THREAD_SAFETY_ANALYSIS;

    Assignment( const Assignment& ) = delete;
    Assignment& operator=( const Assignment& ) = delete;

private:
    BaseCommandLinkGEV& mTarget;
    const BaseCommandLinkGEV& mSource;
    const Turn mTurn;
};

} // namespace HtBaseLib
