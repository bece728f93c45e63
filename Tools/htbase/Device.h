// A device as the commands for its registers and memory use it, over any kind of link.
#pragma once

#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Text.h"

#include <QmUtilsLib/Result.h>

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>

namespace HtBaseTool
{

class Interruption;

// Device is one open link to one device. An interruption ends a running transfer at once, and every
// one after it. Operations block as the link does. They return the link's result; MakeFailure turns
// one into the sentence for the user.
class Device
{
public:
    virtual ~Device() = default;

    Device( const Device& ) = delete;
    Device& operator=( const Device& ) = delete;

    // As the user would name it.
    const std::string& GetName() const { return mName; }
    AddressBits GetAddressBits() const { return mAddressBits; }

    virtual QmUtilsLib::Result ReadRegister( uint64_t aAddress, uint32_t& aValue ) = 0;

    // Transfer a piece of memory, whole words at a multiple of 4, that fits into one command.
    virtual QmUtilsLib::Result ReadPiece( void* aData, uint64_t aAddress, uint32_t aSize ) = 0;
    virtual QmUtilsLib::Result WritePiece( const void* aData, uint64_t aAddress,
                                           uint32_t aSize ) = 0;

    // The failure of what was tried ("read register 0x00000934"). aMore is added to the reason, as
    // in ", 512 of 1024 bytes ...".
    Failure MakeFailure( const std::string& aTried, const QmUtilsLib::Result& aResult,
                         const std::string& aMore = "" ) const;

    // What happened on the link, for the report, and as a line of text.
    virtual nlohmann::ordered_json GetStatistics() const = 0;
    virtual std::string GetStatisticsText() const = 0;

protected:
    // The interruption must outlive the object.
    Device( Interruption& aInterruption, std::string aName, AddressBits aAddressBits );

    Interruption& GetInterruption() const { return mInterruption; }

    // A hint to the user about a result of this kind of link: " - is ...?" or nothing.
    virtual std::string GetAdvice( const QmUtilsLib::Result& aResult ) const = 0;

private:
    Interruption& mInterruption;
    const std::string mName;
    const AddressBits mAddressBits;
};

// The most bytes that one command may carry to or from a device.
struct PieceSizes
{
    uint32_t mRead;
    uint32_t mWrite;
};

} // namespace HtBaseTool
