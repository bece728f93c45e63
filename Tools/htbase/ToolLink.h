// What the program's links to devices of both kinds have in common.
#pragma once

#include "Tools/htbase/Text.h"

#include <InstantStats.h>
#include <QmUtilsLib/Logger.h>

#include <atomic>
#include <string>

namespace HtBaseTool
{

// TransferLog counts and measures the transfers of a link that succeeded and logs each at 20000.
// Safe from any thread.
class TransferLog
{
public:
    explicit TransferLog( AddressBits aAddressBits );

    QmUtilsLib::Logger* GetLogger() { return &mLogger; }
    long long GetCount() const { return mCount.load(); }
    const HtBaseLib::InstantStats& GetMeter() const { return mMeter; }

    void AddRead( long long aAddress, long long aSize );
    void AddWrite( long long aAddress, long long aSize );

private:
    void Count( long long aSize );
    std::string Format( long long aAddress ) const;

    const AddressBits mAddressBits;
    QmUtilsLib::Logger mLogger;
    std::atomic<long long> mCount{ 0 };
    HtBaseLib::InstantStats mMeter;
};

// ToolLink gives a link of the library the program's logger, a count of its transfers and a meter.
template <typename LINK, AddressBits BITS>
class ToolLink : public LINK
{
public:
    // Reads and writes that succeeded.
    long long GetTransfersCount() const { return mTransfers.GetCount(); }

    // Their rate and bandwidth. From any thread.
    const HtBaseLib::InstantStats& GetMeter() const { return mTransfers.GetMeter(); }

protected:
    QmUtilsLib::Logger* GetLibLogger() override { return mTransfers.GetLogger(); }
    QmUtilsLib::Logger* GetLinkLogger() override { return mTransfers.GetLogger(); }

    void ReadCallback( const void*, long long aAddress, long long aSize ) override
    {
        mTransfers.AddRead( aAddress, aSize );
    }
    void WriteCallback( const void*, long long aAddress, long long aSize ) override
    {
        mTransfers.AddWrite( aAddress, aSize );
    }

private:
    TransferLog mTransfers{ BITS };
};

} // namespace HtBaseTool
