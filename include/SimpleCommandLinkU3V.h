/// @file
/// HtBase: the plain control channel to a USB3 Vision device.
#pragma once

#include <BaseCommandLinkU3V.h>
#include <HtExport.h>

#include <memory>

namespace HtBaseLib
{

/// SimpleCommandLinkU3V is the link for a caller who wants nothing but to open a device and to read
/// and write its registers: transfers are split into commands of at most 64 bytes until the link is
/// closed. A link for larger transfers derives from it, or from its base, and calls UpdateMaxSizes.
///
/// Copies share the logger, and what copies of the base share.
class HTBASE_API SimpleCommandLinkU3V : public BaseCommandLinkU3V
{
public:
    /// Throws std::bad_alloc where there is no memory, and assigning does, as for the base.
    ///@{
    SimpleCommandLinkU3V();
    SimpleCommandLinkU3V( const SimpleCommandLinkU3V& aOther );
    SimpleCommandLinkU3V& operator=( const SimpleCommandLinkU3V& aOther );
    ~SimpleCommandLinkU3V() override;
    ///@}

protected:
    /// One logger, "HtBaseLib", for both.
    ///@{
    QmUtilsLib::Logger* GetLibLogger() override;
    QmUtilsLib::Logger* GetLinkLogger() override;
    ///@}

    bool IsMaster() const override; ///< false

private:
    std::shared_ptr<QmUtilsLib::Logger> mLogger;
};

} // namespace HtBaseLib
