// A GigE Vision link for tests. The test sets everything that a derived link decides.
#pragma once

#include "tests/support/Packets.h"

#include <BaseCommandLinkGEV.h>
#include <QmUtilsLib/Logger.h>
#include <WdUtilsLib/Network/SocketUDP.h>

#include <functional>
#include <vector>

namespace TestSupport
{

// TestLinkGEV has two loggers of different names, so that a message on the wrong one shows; it
// counts what it is asked for and records the callbacks. The socket is borrowed. Change it only
// while no transaction runs on another thread.
class TestLinkGEV : public HtBaseLib::BaseCommandLinkGEV
{
public:
    static constexpr const char* LIB_LOGGER = "LibLogger";
    static constexpr const char* LINK_LOGGER = "LinkLogger";

    // One call of ReadCallback or WriteCallback: its arguments, and the bytes at mData.
    struct Transfer
    {
        const void* mData;
        long long mAddress;
        long long mSize;
        Bytes mBytes;
    };

    explicit TestLinkGEV( WdUtilsLib::Network::SocketUDP* aSocket )
        : mSocket( aSocket )
    {
    }

    QmUtilsLib::Result Close() override { return QmUtilsLib::Result::NOT_SUPPORTED; }
    bool IsConnected() const override { return true; }

    using BaseCommandLinkGEV::LockMutex;
    using BaseCommandLinkGEV::ReleaseMutex;

    WdUtilsLib::Network::SocketUDP* mSocket;
    int mRetryCount = 3;
    int mAnswerTimeout = 400;
    unsigned short mRequestID = 0xB123; // the next one; the one after it is one more
    int mRequestIDsDrawn = 0;

    // Called, if set, before the retry count is returned, and from within the callbacks.
    std::function<void()> mOnRetryCount;
    std::function<void()> mOnRead;
    std::function<void()> mOnWrite;

    std::vector<Transfer> mReads;
    std::vector<Transfer> mWrites;

protected:
    QmUtilsLib::Logger* GetLibLogger() override { return &mLibLogger; }
    QmUtilsLib::Logger* GetLinkLogger() override { return &mLinkLogger; }

    int GetRetryCount() const override
    {
        if ( mOnRetryCount )
        {
            mOnRetryCount();
        }
        return mRetryCount;
    }

    int GetAnswerTimeout() const override { return mAnswerTimeout; }
    WdUtilsLib::Network::SocketUDP* GetSocket() override { return mSocket; }

    unsigned short GetRequestID() override
    {
        ++mRequestIDsDrawn;
        return mRequestID++;
    }

    void ReadCallback( const void* aData, long long aAddress, long long aSize ) override
    {
        Record( mReads, mOnRead, aData, aAddress, aSize );
    }

    void WriteCallback( const void* aData, long long aAddress, long long aSize ) override
    {
        Record( mWrites, mOnWrite, aData, aAddress, aSize );
    }

private:
    static void Record( std::vector<Transfer>& aTransfers, const std::function<void()>& aThen,
                        const void* aData, long long aAddress, long long aSize )
    {
        const auto* const lBytes = static_cast<const uint8_t*>( aData );
        aTransfers.push_back( { aData, aAddress, aSize, Bytes( lBytes, lBytes + aSize ) } );
        if ( aThen )
        {
            aThen();
        }
    }

    QmUtilsLib::Logger mLibLogger{ LIB_LOGGER, 0 };
    QmUtilsLib::Logger mLinkLogger{ LINK_LOGGER, 0 };
};

} // namespace TestSupport
