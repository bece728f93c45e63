// A register table on the scripted network, a socket connected to it, and a record to read into.
#pragma once

#include "tests/support/RegisterTable.h"

#include <CapabilitiesGEV.h>
#include <QmUtilsLib/Result.h>
#include <WdUtilsLib/Network/DeviceIdentity.h>
#include <WdUtilsLib/Network/IpAddress.h>
#include <WdUtilsLib/Network/SocketUDP.h>
#include <WdUtilsLib/Scripted/Network.h>

#include <gtest/gtest.h>

namespace TestSupport
{

// 02:00:5E:10:00:01.
const WdUtilsLib::Network::EthernetAddress MAC( 0x0200, 0x5E100001 );

// The record, with its operations for derived classes made public.
class Record : public HtBaseLib::CapabilitiesGEV
{
public:
    using CapabilitiesGEV::CapabilitiesGEV;
    using CapabilitiesGEV::HasV1_1;
    using CapabilitiesGEV::HasV1_2;
    using CapabilitiesGEV::HasV2_0;
    using CapabilitiesGEV::IsMCSPSupported;
    using CapabilitiesGEV::IsSCSPSupported;
    using CapabilitiesGEV::ParseInfos;
};

// Every test of a record starts with an empty table of the maker's devices.
class ScriptedDevice
{
public:
    ScriptedDevice()
    {
        WdUtilsLib::Network::DeviceIdentity::Clear();
        mNetwork.Attach(
            [this]( const Bytes& aCommand, long long )
            {
                std::vector<WdUtilsLib::Scripted::ScriptedNetwork::Answer> lAnswers;
                Bytes lBytes = mTable.Answer( aCommand );
                if ( !lBytes.empty() )
                {
                    lAnswers.push_back( { lBytes, 0 } );
                }
                return lAnswers;
            } );
        EXPECT_TRUE( mSocket.Open().IsOK() );
        EXPECT_TRUE( mSocket.Connect( WdUtilsLib::Network::IpAddress( 0x7F000001 ), 3956 ).IsOK() );
    }

    // Reads the device once more; the reads so far are forgotten.
    QmUtilsLib::Result Init( HtBaseLib::CapabilitiesGEV& aRecord )
    {
        mTable.ClearReads();
        return aRecord.Init( &mSocket );
    }

    // The registers that a record must be able to read, with a version, GVCP Capability and the
    // counts of channels; no other register exists.
    void SetBasics( uint32_t aVersion, uint32_t aCapability, uint32_t aStreams, uint32_t aMessages )
    {
        mTable.SetRegister( 0x0000, aVersion );
        mTable.SetRegister( 0x0004, 0x80000001 );
        mTable.SetRegister( 0x0934, aCapability );
        mTable.SetRegister( 0x0904, aStreams );
        mTable.SetRegister( 0x0900, aMessages );
        mTable.SetText( 0x0088, 32, "1.0" );
        mTable.SetText( 0x00A8, 48, "none" );
    }

    RegisterTable mTable;
    WdUtilsLib::Scripted::ScriptedNetwork mNetwork;
    WdUtilsLib::Network::SocketUDP mSocket;
};

inline void MakeCorvaneDevice()
{
    using WdUtilsLib::Network::DeviceIdentity;
    DeviceIdentity::Add( DeviceIdentity::Product::DEVICE, MAC );
}

inline void MakeCorvaneTransmitter()
{
    using WdUtilsLib::Network::DeviceIdentity;
    DeviceIdentity::Add( DeviceIdentity::Product::TRANSMITTER, MAC );
}

} // namespace TestSupport
