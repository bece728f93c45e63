/// @file
/// HtBase: the plain control channel to a USB3 Vision device.
#pragma once

#include <BaseCommandLinkU3V.h>
#include <HtExport.h>

#include <memory>

namespace HtBaseLib
{

/// SimpleCommandLinkU3V is the link that opens a device and reads and writes its registers. Until
/// its first Close, commands and acknowledges have at most 64 bytes. A link for larger transfers
/// derives from this class, or from its base, and calls UpdateMaxSizes after every Open.
///
/// After a Close the limits are 0, also when the link is opened again: see BaseCommandLinkU3V for
/// what Read and Write then do. Make a new link instead of opening a closed one.
///
/// Copies share the logger, and what copies of the base share.
class HTBASE_API SimpleCommandLinkU3V : public BaseCommandLinkU3V
{
public:
    /// Constructing a link and assigning to one throw `std::bad_alloc` where memory is missing. A
    /// failed assignment changes nothing.
    ///@{
    SimpleCommandLinkU3V();
    SimpleCommandLinkU3V( const SimpleCommandLinkU3V& aOther );
    SimpleCommandLinkU3V& operator=( const SimpleCommandLinkU3V& aOther );
    ///@}

    ~SimpleCommandLinkU3V() override;

protected:
    /// Both return the link's one logger, `HtBaseLib`.
    ///@{
    QmUtilsLib::Logger* GetLibLogger() override;
    QmUtilsLib::Logger* GetLinkLogger() override;
    ///@}

    bool IsMaster() const override; ///< false

private:
    std::shared_ptr<QmUtilsLib::Logger> mLogger;
};

} // namespace HtBaseLib
