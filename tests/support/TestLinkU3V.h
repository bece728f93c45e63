// A USB3 Vision link for tests. The test sets everything that a derived link decides.
#pragma once

#include "tests/support/Packets.h"

#include <BaseCommandLinkU3V.h>
#include <QmUtilsLib/Logger.h>

#include <functional>
#include <vector>

namespace TestSupport
{

// TestLinkU3V has two loggers of different names, so that a message on the wrong one shows, and
// records the callbacks. Its copies record their own.
class TestLinkU3V : public HtBaseLib::BaseCommandLinkU3V
{
public:
    static constexpr const char* LIB_LOGGER = "LibLogger";
    static constexpr const char* LINK_LOGGER = "LinkLogger";

    // One call of ReadCallback or WriteCallback: its arguments.
    struct Transfer
    {
        const void* mData;
        long long mAddress;
        long long mSize;

        bool operator==( const Transfer& aOther ) const
        {
            return mData == aOther.mData && mAddress == aOther.mAddress && mSize == aOther.mSize;
        }
    };
    using Transfers = std::vector<Transfer>;

    using BaseCommandLinkU3V::GetDCI;
    using BaseCommandLinkU3V::ResultFromStatus;
    using BaseCommandLinkU3V::SendAtomicCommands;
    using BaseCommandLinkU3V::SendCommand;
    using BaseCommandLinkU3V::UpdateMaxSizes;

    bool mIsMaster = false;
    mutable int mMasterQuestions = 0;
    std::function<void()> mOnMaster; // called, when set, before IsMaster returns
    std::function<void()> mOnRead;   // called, when set, from within ReadCallback
    Transfers mReads;
    Transfers mWrites;

protected:
    QmUtilsLib::Logger* GetLibLogger() override { return &mLibLogger; }
    QmUtilsLib::Logger* GetLinkLogger() override { return &mLinkLogger; }

    bool IsMaster() const override
    {
        ++mMasterQuestions;
        if ( mOnMaster )
        {
            mOnMaster();
        }
        return mIsMaster;
    }

    void ReadCallback( const void* aData, long long aAddress, long long aSize ) override
    {
        mReads.push_back( { aData, aAddress, aSize } );
        const std::function<void()> lThen = mOnRead; // which may replace itself
        if ( lThen )
        {
            lThen();
        }
    }

    void WriteCallback( const void* aData, long long aAddress, long long aSize ) override
    {
        mWrites.push_back( { aData, aAddress, aSize } );
    }

private:
    QmUtilsLib::Logger mLibLogger{ LIB_LOGGER, 0 };
    QmUtilsLib::Logger mLinkLogger{ LINK_LOGGER, 0 };
};

} // namespace TestSupport
