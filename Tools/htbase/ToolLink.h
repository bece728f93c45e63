// What the program's links to devices of both kinds have in common.
#pragma once

#include "Tools/htbase/Text.h"

#include <QmUtilsLib/Logger.h>

#include <atomic>
#include <string>

namespace HtBaseTool
{

// TransferLog counts the transfers of a link that succeeded and logs each at 20000. Safe from any
// thread.
class TransferLog
{
public:
    explicit TransferLog( AddressBits aAddressBits );

    QmUtilsLib::Logger* GetLogger() { return &mLogger; }
    long long GetCount() const { return mCount.load(); }

    void AddRead( long long aAddress, long long aSize );
    void AddWrite( long long aAddress, long long aSize );

private:
    std::string Format( long long aAddress ) const;

    const AddressBits mAddressBits;
    QmUtilsLib::Logger mLogger;
    std::atomic<long long> mCount{ 0 };
};

// ToolLink gives a link of the library the program's logger and a count of its transfers.
template <typename LINK, AddressBits BITS>
class ToolLink : public LINK
{
public:
    // Reads and writes that succeeded.
    long long GetTransfersCount() const { return mTransfers.GetCount(); }

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
