// GigE Vision links when allocations fail.

#include "tests/support/AllocationCounter.h"
#include "tests/support/ScriptedLinkTest.h"

#include <SimpleCommandLinkGEV.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <new>
#include <stdexcept>

namespace
{

using namespace TestSupport;
using HtBaseLib::SimpleCommandLinkGEV;
using QmUtilsLib::Result;

class OpenLink : public SimpleCommandLinkGEV
{
public:
    using SimpleCommandLinkGEV::GetLibLogger;
    using SimpleCommandLinkGEV::GetSocket;
    using SimpleCommandLinkGEV::SimpleCommandLinkGEV;
};

// Runs aOperation with each of its allocations failing. Expects it to throw then and to leave
// nothing behind. Returns the count of its allocations.
template <typename Operation>
unsigned int ExpectThrowing( Operation aOperation )
{
    for ( unsigned int lNumber = 1;; ++lNumber )
    {
        const long long lBefore = GetLiveAllocationCount();
        bool lHasThrown = false;
        bool lHasFailed = false;
        {
            const AllocationFailure lFailure( lNumber );
            try
            {
                aOperation();
            }
            catch ( const std::bad_alloc& )
            {
                lHasThrown = true;
            }
            lHasFailed = lFailure.HasHappened();
        }
        if ( !lHasFailed )
        {
            return lNumber - 1;
        }
        EXPECT_TRUE( lHasThrown ) << lNumber;
        EXPECT_EQ( GetLiveAllocationCount(), lBefore ) << lNumber;
    }
}

class LinkMemoryTest : public ScriptedLinkTest
{
protected:
    // Each transfer succeeds, and then a callback throws.
    template <typename Exception>
    void ThrowFromCallbacks( const Exception& aException )
    {
        mLink.mOnRead = [aException]
        {
            throw aException;
        };
        mLink.mOnWrite = mLink.mOnRead;
        mNet.Attach(
            []( const Bytes& aCommand, long long )
            {
                const uint8_t lCode = static_cast<uint8_t>( aCommand.at( 3 ) | 0x01 );
                const uint8_t lSize = lCode == 0x85 ? 8 : 4;
                return std::vector<WdUtilsLib::Scripted::ScriptedNetwork::Answer>{
                    { Packet( {
                          { 0x00, 0x00 },                         // status: success
                          { 0x00, lCode },                        // acknowledge
                          { 0x00, lSize },                        // length
                          { aCommand.at( 6 ), aCommand.at( 7 ) }, // acknowledge identifier
                          Bytes( lSize, 0x11 ),                   // payload
                      } ),
                      0 } };
            } );
    }

    std::vector<Result> RunAll()
    {
        return {
            mLink.ReadRegister( &mValue, 0x0A00 ),
            mLink.WriteRegister( &mValue, 0x0A00, false ),
            mLink.ReadMemory( &mValue, 0x0A00, 4 ),
            mLink.WriteMemory( &mValue, 0x0A00, 4, false ),
        };
    }

    unsigned int mValue = 0;
};

TEST_F( LinkMemoryTest, ALinkThatCannotBeMadeOrCopiedThrows )
{
    EXPECT_GE( ExpectThrowing( [this] { const SimpleCommandLinkGEV lLink( &mSocket ); } ), 3U );
    const SimpleCommandLinkGEV lSource( &mSocket );
    EXPECT_GE( ExpectThrowing( [&lSource] { const SimpleCommandLinkGEV lCopy( lSource ); } ), 1U );
}

TEST_F( LinkMemoryTest, AFailedAssignmentLeavesTheLinkUnchanged )
{
    OpenLink lSource( &mSocket );
    lSource.SetConnectionLost();
    for ( unsigned int lNumber = 1;; ++lNumber )
    {
        OpenLink lLink( nullptr );
        QmUtilsLib::Logger* const lLogger = lLink.GetLibLogger();
        bool lHasFailed = false;
        {
            const AllocationFailure lFailure( lNumber );
            try
            {
                lLink = lSource;
            }
            catch ( const std::bad_alloc& )
            {
                lHasFailed = true;
            }
            EXPECT_EQ( lFailure.HasHappened(), lHasFailed );
        }
        EXPECT_EQ( lLink.GetSocket(), lHasFailed ? nullptr : &mSocket );
        EXPECT_EQ( lLink.GetLibLogger() == lLogger, lHasFailed );
        EXPECT_EQ( lLink.GetConnectionLost(), !lHasFailed );
        EXPECT_EQ( lLink.ReadRegister( &mValue, 0x0000 ).GetCode(),
                   lHasFailed ? 0x0017U : 0x001EU );
        lLink = lSource; // now there is memory
        EXPECT_EQ( lLink.GetSocket(), &mSocket );
        if ( !lHasFailed )
        {
            EXPECT_GT( lNumber, 1U );
            return;
        }
        mNet.Attach( []( const Bytes&, long long )
                     { return std::vector<WdUtilsLib::Scripted::ScriptedNetwork::Answer>(); } );
    }
}

TEST_F( LinkMemoryTest, ACallbackWithoutMemoryFailsTheCall )
{
    ThrowFromCallbacks( std::bad_alloc() );
    for ( const Result& lResult : RunAll() )
    {
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetOSCode(), static_cast<unsigned int>( ENOMEM ) );
    }
    EXPECT_EQ( mValue, 0x11111111U ); // the transfer was done
    EXPECT_EQ( mLink.mReads.size(), 2U );
    EXPECT_EQ( mLink.mWrites.size(), 2U );
    EXPECT_TRUE( IsMutexFree( mLink ) );
}

TEST_F( LinkMemoryTest, AnyOtherExceptionOfACallbackPasses )
{
    ThrowFromCallbacks( std::runtime_error( "of a callback" ) );
    EXPECT_THROW( (void)mLink.ReadRegister( &mValue, 0x0A00 ), std::runtime_error );
    EXPECT_THROW( (void)mLink.WriteMemory( &mValue, 0x0A00, 4, false ), std::runtime_error );
    EXPECT_TRUE( IsMutexFree( mLink ) );
}

TEST_F( LinkMemoryTest, ADerivedLinkWithoutMemoryFailsTheCall )
{
    mLink.mOnRetryCount = []
    {
        throw std::bad_alloc();
    };
    for ( const Result& lResult : RunAll() )
    {
        EXPECT_EQ( lResult.GetCode(), 0x4000U );
        EXPECT_EQ( lResult.GetOSCode(), static_cast<unsigned int>( ENOMEM ) );
    }
    EXPECT_TRUE( mNet.GetSends().empty() );
    EXPECT_TRUE( IsMutexFree( mLink ) );
}

} // namespace
