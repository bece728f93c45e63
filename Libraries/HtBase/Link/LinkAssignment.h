// How GigE Vision links are copied and assigned while they are used.
#pragma once

#include <BaseCommandLinkGEV.h>

#include <memory>
#include <vector>

namespace HtBaseLib
{

// The state of a link besides its counters.
// SAFE: Copies of links and records share the mutex and the logger through shared ownership, so
// destroying both releases them once.
struct BaseCommandLinkGEV::Holdings
{
    // Owns the published mutex, or the one that an assignment is about to publish. Everything that
    // an assignment takes over changes under both the published mutex and mCopyMutex, so holding
    // either is enough to read it.
    std::shared_ptr<QmUtilsLib::Mutex> mMutex;

    // Held for a moment only. A thread that holds it does not wait for a transaction.
    QmUtilsLib::Mutex mCopyMutex;

    // Guarded by the published mutex: how often its owner has taken it by LockMutex, and what
    // assignments have replaced.
    int mHeld = 0;
    std::vector<std::shared_ptr<const void>> mReplaced;
};

// A Turn is a thread's turn on a link. It owns the mutex that was the link's when the turn began,
// also when the link has another one later.
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

// An Assignment lets a link take over the state of another one. While it lives no transaction of
// the target runs, and no other thread copies or assigns to either link, so the state is
// consistent. Its destructor publishes the target's new mutex.
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
