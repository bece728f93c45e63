// The figures that a message carries and does not show. This program stands in for Logger::Log of
// the shared library, so that it sees the arguments that a sink cannot see.

#include <QmUtilsLib/Logger.h>
#include <QmUtilsLib/Result.h>
#include <SimpleCommandLinkU3V.h>

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace
{

// A message about the buffers of a link, with the two arguments behind its text.
struct Warning
{
    std::string mFormat;
    int mPriority;
    std::string mFunction;
    unsigned int mFirst;
    unsigned int mSecond;
};

std::vector<Warning> gWarnings;

constexpr const char* COMMAND_WARNING =
    "Internal command link buffers smaller than allowed command size.";
constexpr const char* ACK_WARNING =
    "Internal command link buffers smaller than allowed acknowledge size.";

} // namespace

void QmUtilsLib::Logger::Log( int aPriority, const char* /*aUnit*/, int /*aLine*/,
                              const char* aFunction, const char* aFormat, ... ) const
{
    const std::string lFormat = aFormat;
    if ( lFormat != COMMAND_WARNING && lFormat != ACK_WARNING )
    {
        return; // has other arguments
    }
    va_list lArguments;
    va_start( lArguments, aFormat );
    const unsigned int lFirst = va_arg( lArguments, unsigned int );
    const unsigned int lSecond = va_arg( lArguments, unsigned int );
    va_end( lArguments );
    gWarnings.push_back( { lFormat, aPriority, aFunction, lFirst, lSecond } );
}

namespace
{

// A link that answers from a table: every register is 0 but for the two lengths.
class TableLink : public HtBaseLib::SimpleCommandLinkU3V
{
public:
    TableLink( uint32_t aMaxCommand, uint32_t aMaxAck )
        : mMaxCommand( aMaxCommand )
        , mMaxAck( aMaxAck )
    {
    }

    using SimpleCommandLinkU3V::UpdateMaxSizes;

    QmUtilsLib::Result ReadMemory( void* aData, long long aAddress, long long aSize ) override
    {
        std::memset( aData, 0, static_cast<std::size_t>( aSize ) );
        if ( aAddress == 0x14 || aAddress == 0x18 )
        {
            const uint32_t lValue = aAddress == 0x14 ? mMaxCommand : mMaxAck;
            std::memcpy( aData, &lValue, sizeof( lValue ) );
        }
        return QmUtilsLib::Result::OK;
    }

private:
    uint32_t mMaxCommand;
    uint32_t mMaxAck;
};

TEST( LinkSizingArguments, AreTheDevicesLengthAndTheLinks )
{
    QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::ANOMALY );
    TableLink lLink( 2048, 0xFFFFFFFE );
    lLink.UpdateMaxSizes();
    QmUtilsLib::Logger::SetThreshold( QmUtilsLib::Logger::QUIET );
    EXPECT_EQ( lLink.GetMaxCommandSize(), 1024U );
    EXPECT_EQ( lLink.GetMaxAckSize(), 1024U );

    ASSERT_EQ( gWarnings.size(), 2U );
    EXPECT_EQ( gWarnings[0].mFormat, COMMAND_WARNING );
    EXPECT_EQ( gWarnings[0].mFirst, 2048U );
    EXPECT_EQ( gWarnings[1].mFormat, ACK_WARNING );
    EXPECT_EQ( gWarnings[1].mFirst, 0xFFFFFFFEU );
    for ( const Warning& lWarning : gWarnings )
    {
        EXPECT_EQ( lWarning.mPriority, 30000 );
        EXPECT_EQ( lWarning.mFunction, "HtBaseLib::BaseCommandLinkU3V::UpdateMaxSizes" );
        EXPECT_EQ( lWarning.mSecond, 1024U );
    }
}

} // namespace
