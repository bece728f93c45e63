#include "tests/integration/tool/ToolTest.h"

#include <QmUtilsLib/Thread.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <thread>

namespace TestSupport
{

using Simulators::ConfigurationGEV;
using Simulators::VirtualDeviceGEV;

namespace
{

uint32_t Read32( const Simulators::Bytes& aBytes, size_t aOffset )
{
    uint32_t lValue = 0;
    for ( size_t lIndex = aOffset; lIndex < aOffset + 4; ++lIndex )
    {
        lValue = lValue << 8 | ( lIndex < aBytes.size() ? aBytes[lIndex] : 0U );
    }
    return lValue;
}

SeenCommand TakeApart( const VirtualDeviceGEV::Request& aRequest )
{
    const Simulators::Bytes& lBytes = aRequest.mBytes;
    SeenCommand lSeen;
    lSeen.mCommand = static_cast<uint16_t>( Read32( lBytes, 0 ) & 0xFFFF );
    lSeen.mWantsAck = ( lBytes[1] & 0x01 ) != 0;
    lSeen.mAddress = Read32( lBytes, 8 );
    if ( lSeen.mCommand == Simulators::Command::WRITEMEM )
    {
        lSeen.mDataSize = lBytes.size() - 12;
    }
    else
    {
        lSeen.mValue = Read32( lBytes, 12 );
    }
    lSeen.mFrom = aRequest.mFrom;
    return lSeen;
}

} // namespace

Arguments MakeToolCommand( const Arguments& aArguments )
{
    Arguments lCommand = { HTBASE_PROGRAM };
    lCommand.insert( lCommand.end(), aArguments.begin(), aArguments.end() );
    return lCommand;
}

Arguments MakePatient( const Arguments& aArguments )
{
    Arguments lArguments = aArguments;
    if ( std::find( lArguments.begin(), lArguments.end(), "--timeout" ) == lArguments.end() )
    {
        lArguments.insert( lArguments.end(), { "--timeout", "5000" } );
    }
    return lArguments;
}

Outcome RunTool( const Arguments& aArguments, const ChildProcess::Options& aOptions )
{
    return RunProgram( MakeToolCommand( aArguments ), aOptions );
}

nlohmann::json ParseReport( const Outcome& aOutcome )
{
    nlohmann::json lReport = nlohmann::json::parse( aOutcome.mOutput, nullptr, false );
    if ( lReport.is_discarded() )
    {
        ADD_FAILURE() << "not one JSON value: " << aOutcome.mOutput;
        return nullptr;
    }
    return lReport;
}

void ExpectOneSentence( const std::string& aError )
{
    EXPECT_EQ( aError.rfind( "htbase: ", 0 ), 0U ) << aError;
    EXPECT_EQ( std::count( aError.begin(), aError.end(), '\n' ), 1 ) << aError;
    EXPECT_TRUE( !aError.empty() && aError.back() == '\n' ) << aError;
}

std::string MakeBytes( size_t aCount )
{
    std::string lBytes;
    uint32_t lState = 12345;
    while ( lBytes.size() < aCount )
    {
        lState = lState * 1664525 + 1013904223;
        lBytes += static_cast<char>( lState >> 24 );
    }
    return lBytes;
}

bool operator==( const SeenCommand& aA, const SeenCommand& aB )
{
    return aA.mCommand == aB.mCommand && aA.mWantsAck == aB.mWantsAck &&
           aA.mAddress == aB.mAddress && aA.mValue == aB.mValue && aA.mDataSize == aB.mDataSize;
}

void ToolTest::Serve( const ConfigurationGEV& aConfiguration,
                      const Simulators::DeviceServer::Options& aOptions )
{
    mDevice = std::make_unique<LoopbackDevice>( aConfiguration, aOptions );
}

LoopbackDevice& ToolTest::GetDevice()
{
    if ( mDevice == nullptr )
    {
        Serve( {} );
    }
    return *mDevice;
}

std::string ToolTest::GetTarget()
{
    return "127.0.0.1:" + std::to_string( GetDevice().GetPort() );
}

Arguments ToolTest::MakeGevCommand( const std::string& aCommand, const Arguments& aArguments )
{
    Arguments lArguments = { "gev", aCommand, GetTarget() };
    lArguments.insert( lArguments.end(), aArguments.begin(), aArguments.end() );
    return MakeToolCommand( MakePatient( lArguments ) );
}

Outcome ToolTest::RunGev( const std::string& aCommand, const Arguments& aArguments,
                          const ChildProcess::Options& aOptions )
{
    return RunProgram( MakeGevCommand( aCommand, aArguments ), aOptions );
}

uint32_t ToolTest::ReadWord( uint32_t aAddress )
{
    LoopbackDevice& lDevice = GetDevice();
    return lDevice.mServer.Access( [&] { return lDevice.mDevice.ReadWord( aAddress ); } );
}

void ToolTest::WriteWord( uint32_t aAddress, uint32_t aValue )
{
    LoopbackDevice& lDevice = GetDevice();
    EXPECT_TRUE(
        lDevice.mServer.Access( [&] { return lDevice.mDevice.WriteWord( aAddress, aValue ); } ) );
}

std::string ToolTest::GetMemory( uint32_t aAddress, size_t aSize )
{
    LoopbackDevice& lDevice = GetDevice();
    return lDevice.mServer.Access(
        [&]
        {
            const Simulators::Bytes& lMemory = lDevice.mDevice.GetMemory();
            const auto lBegin =
                lMemory.begin() + ( aAddress - lDevice.mDevice.GetConfiguration().mMemoryBase );
            return std::string( lBegin, lBegin + static_cast<std::ptrdiff_t>( aSize ) );
        } );
}

void ToolTest::SetMemory( uint32_t aAddress, const std::string& aBytes )
{
    for ( size_t lOffset = 0; lOffset + 4 <= aBytes.size(); lOffset += 4 )
    {
        const Simulators::Bytes lWord( aBytes.begin() + static_cast<std::ptrdiff_t>( lOffset ),
                                       aBytes.begin() +
                                           static_cast<std::ptrdiff_t>( lOffset + 4 ) );
        WriteWord( aAddress + static_cast<uint32_t>( lOffset ), Read32( lWord, 0 ) );
    }
}

bool ToolTest::IsControlHeld()
{
    LoopbackDevice& lDevice = GetDevice();
    return lDevice.mServer.Access(
        [&]
        { return lDevice.mDevice.GetHolder( QmUtilsLib::Thread::GetTickCount() ).has_value(); } );
}

void ToolTest::SetSilent( uint32_t aAddress, bool aIsSilent )
{
    LoopbackDevice& lDevice = GetDevice();
    lDevice.mServer.Access( [&] { lDevice.mDevice.SetSilent( aAddress, aIsSilent ); } );
}

std::vector<SeenCommand> ToolTest::GetCommands()
{
    LoopbackDevice& lDevice = GetDevice();
    return lDevice.mServer.Access(
        [&]
        {
            const auto& lRequests = lDevice.mDevice.GetRequests();
            std::vector<SeenCommand> lSeen;
            std::transform( lRequests.begin(), lRequests.end(), std::back_inserter( lSeen ),
                            TakeApart );
            return lSeen;
        } );
}

std::vector<SeenCommand> ToolTest::GetCommands( uint16_t aCommand )
{
    std::vector<SeenCommand> lSeen = GetCommands();
    lSeen.erase( std::remove_if( lSeen.begin(), lSeen.end(),
                                 [aCommand]( const SeenCommand& aSeen )
                                 { return aSeen.mCommand != aCommand; } ),
                 lSeen.end() );
    return lSeen;
}

void ToolTest::OnCommand( uint16_t aCommand, uint32_t aAddress,
                          const std::function<void( LoopbackDevice& )>& aAction )
{
    LoopbackDevice& lDevice = GetDevice();
    const auto lBefore = [&lDevice, aCommand, aAddress, aAction,
                          lIsDone = false]( const Simulators::Bytes& aDatagram ) mutable
    {
        if ( lIsDone || aDatagram.size() < 12 )
        {
            return;
        }
        const SeenCommand lSeen = TakeApart( { {}, 0, aDatagram } );
        if ( lSeen.mCommand == aCommand && lSeen.mAddress == aAddress )
        {
            lIsDone = true;
            aAction( lDevice );
        }
    };
    lDevice.mServer.Access( [&] { lDevice.mBefore = lBefore; } );
}

void ToolTest::WaitForCommand( uint16_t aCommand, uint32_t aAddress )
{
    for ( int lTry = 0; lTry < 1000; ++lTry )
    {
        for ( const SeenCommand& lSeen : GetCommands( aCommand ) )
        {
            if ( lSeen.mAddress == aAddress )
            {
                return;
            }
        }
        std::this_thread::sleep_for( std::chrono::milliseconds( 10 ) );
    }
    FAIL() << "the device did not get the command";
}

} // namespace TestSupport
