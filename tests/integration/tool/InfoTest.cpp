// gev info, and what dump and load take from a capability record.

#include "tests/integration/tool/ToolTest.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace TestSupport
{

namespace
{

namespace Command = Simulators::Command;

class Info : public ToolTest
{
protected:
    // The address and the count of each read, in order; the count of a READREG is 0.
    std::vector<std::pair<uint32_t, uint32_t>> GetReads()
    {
        std::vector<std::pair<uint32_t, uint32_t>> lReads;
        for ( const SeenCommand& lSeen : GetCommands() )
        {
            lReads.emplace_back( lSeen.mAddress,
                                 lSeen.mCommand == Command::READMEM ? lSeen.mValue : 0 );
        }
        return lReads;
    }

    std::vector<uint32_t> GetPieces( uint16_t aCommand )
    {
        std::vector<uint32_t> lSizes;
        for ( const SeenCommand& lSeen : GetCommands( aCommand ) )
        {
            lSizes.push_back( aCommand == Command::READMEM
                                  ? lSeen.mValue
                                  : static_cast<uint32_t>( lSeen.mDataSize ) );
        }
        return lSizes;
    }
};

Simulators::ConfigurationGEV MakeDevice()
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mManufacturerName = "Maker";
    lConfiguration.mModelName = "Model";
    lConfiguration.mDeviceVersion = "3.1";
    lConfiguration.mManufacturerInfo = "made of light";
    lConfiguration.mSerialNumber = "0042";
    lConfiguration.mUserName = "left eye";
    lConfiguration.mTickFrequency = 125000000;
    lConfiguration.mStreamChannels = 2;
    return lConfiguration;
}

} // namespace

TEST_F( Info, IsATableOfIdentityAndCapabilities )
{
    Serve( MakeDevice() );
    const Outcome lOutcome = RunGev( "info", {} );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mError, IsEmpty() );
    EXPECT_EQ( lOutcome.mOutput, "Device                      " + GetTarget() +
                                     "\n"
                                     "MAC address                 02:48:54:42:00:01\n"
                                     "Manufacturer                Maker\n"
                                     "Model                       Model\n"
                                     "Device version              3.1\n"
                                     "Manufacturer information    made of light\n"
                                     "Serial number               0042\n"
                                     "User-defined name           left eye\n"
                                     "GigE Vision                 2.0\n"
                                     "Class                       transmitter\n"
                                     "Maker's device              no\n"
                                     "Maker's transmitter         no\n"
                                     "Stream channels             2\n"
                                     "Stream source ports         50001 50002\n"
                                     "Message channels            1\n"
                                     "Message source port         50000\n"
                                     "Largest memory read         512 bytes\n"
                                     "Largest memory write        512 bytes\n"
                                     "Timestamp ticks per second  125000000\n"
                                     "Concatenation               yes\n"
                                     "Memory write                yes\n"
                                     "Packet resend               no\n"
                                     "End-of-block resend         yes\n"
                                     "Event                       no\n"
                                     "Event data                  no\n"
                                     "Pending acknowledge         yes\n"
                                     "Action                      no\n"
                                     "Scheduled action            no\n"
                                     "Unconditional action        no\n"
                                     "Extended status codes 1.1   no\n"
                                     "Extended status codes 2.0   no\n"
                                     "IEEE 1588 time              no\n"
                                     "Application switchover      no\n"
                                     "Discovery delay             no\n"
                                     "Custom discovery delay      no\n"
                                     "Standard test data          no\n"
                                     "Manifest table              no\n"
                                     "Control owner discovery     yes\n"
                                     "Link speed register         yes\n"
                                     "Heartbeat disable           yes\n"
                                     "Serial number register      yes\n"
                                     "User-defined name register  yes\n"
                                     "16-bit block identifiers    yes\n" );
}

TEST_F( Info, MissingInformationIsADash )
{
    Simulators::ConfigurationGEV lConfiguration;
    lConfiguration.mVersionMajor = 1;
    lConfiguration.mDeviceMode = 0xF0000001; // class 7
    lConfiguration.mStreamChannels = 2;
    Serve( lConfiguration );
    const Outcome lOther = RunGev( "info", {} );
    EXPECT_EQ( lOther.mStatus, 0 );
    EXPECT_THAT( lOther.mOutput, HasSubstr( "GigE Vision                 1.0\n"
                                            "Class                       reserved 7\n" ) );
    EXPECT_THAT( lOther.mOutput, HasSubstr( "Stream channels             2\n"
                                            "Stream source ports         -\n"
                                            "Message channels            1\n"
                                            "Message source port         -\n" ) );
    EXPECT_THAT( lOther.mOutput, HasSubstr( "Timestamp ticks per second  -\n" ) );

    const Outcome lMakers = RunGev( "info", { "--maker", "02:48:54" } );
    EXPECT_THAT( lMakers.mOutput, HasSubstr( "Stream source ports         20202 20203\n"
                                             "Message channels            1\n"
                                             "Message source port         4\n"
                                             "Largest memory read         536 bytes\n"
                                             "Largest memory write        536 bytes\n" ) );
}

TEST_F( Info, APortThatIsRefusedLeavesADashInItsPlace )
{
    Serve( MakeDevice() );
    GetDevice().mServer.Access( [&] { GetDevice().mDevice.RefuseAddress( 0x0D5C, 0x8003 ); } );
    EXPECT_THAT( RunGev( "info", {} ).mOutput,
                 HasSubstr( "Stream source ports         50001 -\n" ) );
}

TEST_F( Info, ReadsTheAddressFirstThenTheRecordOnceThenTheTexts )
{
    Serve( MakeDevice() );
    ASSERT_EQ( RunGev( "info", {} ).mStatus, 0 );
    using Read = std::pair<uint32_t, uint32_t>;
    EXPECT_THAT( GetReads(),
                 ElementsAre( Read{ 0x0008, 0 }, Read{ 0x000C, 0 },                    // address
                              Read{ 0x0000, 0 }, Read{ 0x0004, 0 }, Read{ 0x0934, 0 }, // record
                              Read{ 0x0904, 0 }, Read{ 0x0900, 0 }, Read{ 0x0930, 0 },
                              Read{ 0x092C, 0 }, Read{ 0x0B1C, 0 }, Read{ 0x0D1C, 0 },
                              Read{ 0x0D5C, 0 }, Read{ 0x0940, 0 }, Read{ 0x093C, 0 },
                              Read{ 0x0088, 32 }, Read{ 0x00A8, 48 }, Read{ 0x0048, 32 },
                              Read{ 0x0068, 32 }, Read{ 0x0088, 32 }, // texts
                              Read{ 0x00A8, 48 }, Read{ 0x00D8, 16 }, Read{ 0x00E8, 16 } ) );
}

TEST_F( Info, IsOneJsonObject )
{
    Simulators::ConfigurationGEV lConfiguration = MakeDevice();
    lConfiguration.mVersionMajor = 1;
    lConfiguration.mVersionMinor = 2;
    lConfiguration.mDeviceMode = 0xB0000001; // a peripheral
    lConfiguration.mGvcpCapability = 0x00000025;
    Serve( lConfiguration );
    nlohmann::json lExpected = nlohmann::json::parse( R"({
        "mac": "02:48:54:42:00:01", "manufacturer": "Maker", "model": "Model",
        "deviceVersion": "3.1", "manufacturerInformation": "made of light",
        "serialNumber": "0042", "userName": "left eye",
        "version": { "major": 1, "minor": 2 }, "deviceClass": 3,
        "makerDevice": false, "makerTransmitter": true,
        "streamChannels": 2, "streamSourcePorts": [ 50001, 50002 ],
        "messageChannels": 1, "messageSourcePort": 50000,
        "maxReadMem": 512, "maxWriteMem": 512, "timestampTickFrequency": 125000000,
        "capabilities": {
            "concatenation": true, "writeMem": false, "packetResend": true,
            "endOfBlockResend": true, "event": false, "eventData": false, "pending": true,
            "action": false, "scheduledAction": false, "unconditionalAction": false,
            "extendedStatusCodes1_1": false, "extendedStatusCodes2_0": false, "ieee1588": false,
            "applicationSwitchOver": false, "discoveryDelay": false,
            "customDiscoveryDelay": false, "testData": false, "manifestTable": false,
            "controlOwnerDiscovery": false, "linkSpeedRegister": false,
            "heartbeatDisable": false, "serialNumberRegister": false,
            "userDefinedNameRegister": false, "legacy16BitsBlockId": true } })" );
    lExpected["device"] = GetTarget();
    EXPECT_EQ(
        ParseReport( RunGev( "info", { "--json", "--maker-transmitter", "02:48:54:42:00:01" } ) ),
        lExpected );
}

TEST_F( Info, AMakersDeviceIsKnownByAddressOrPrefix )
{
    for ( const char* lKnown : { "02:48:54:42:00:01", "02-48-54" } )
    {
        const nlohmann::json lReport =
            ParseReport( RunGev( "info", { "--json", "--maker", lKnown } ) );
        EXPECT_EQ( lReport["makerDevice"], true ) << lKnown;
        EXPECT_EQ( lReport["maxReadMem"], 536 ) << lKnown;
    }
    const nlohmann::json lOther =
        ParseReport( RunGev( "info", { "--json", "--maker", "02:48:55" } ) );
    EXPECT_EQ( lOther["makerDevice"], false );
}

TEST_F( Info, AnInvalidMakerAddressIsWrongUsage )
{
    for ( const char* lWrong : { "", "02:48", "02:48:54:42:00:01:02", "x" } )
    {
        const Outcome lOutcome = RunGev( "info", { "--maker", lWrong } );
        EXPECT_EQ( lOutcome.mStatus, 2 ) << lWrong;
        ExpectOneSentence( lOutcome.mError );
    }
    EXPECT_THAT( GetCommands(), IsEmpty() );
}

TEST_F( Info, ATextThatIsRefusedIsMissingAndTheRestIsShown )
{
    GetDevice().mServer.Access( [&] { GetDevice().mDevice.RefuseAddress( 0x00D8, 0x8003 ); } );
    const Outcome lOutcome = RunGev( "info", {} );
    EXPECT_EQ( lOutcome.mStatus, 0 );
    EXPECT_THAT( lOutcome.mOutput, HasSubstr( "Serial number               -\n" ) );
    EXPECT_THAT( lOutcome.mOutput, HasSubstr( "Model                       VirtualDeviceGEV\n" ) );
}

TEST_F( Info, ARegisterThatMustBeReadAndIsRefusedIsAFailure )
{
    GetDevice().mServer.Access( [&] { GetDevice().mDevice.RefuseAddress( 0x0934, 0x8006 ); } );
    const Outcome lOutcome = RunGev( "info", {} );
    EXPECT_EQ( lOutcome.mStatus, 1 );
    EXPECT_THAT( lOutcome.mOutput, IsEmpty() );
    ExpectOneSentence( lOutcome.mError );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "capabilities" ) );
    EXPECT_THAT( lOutcome.mError, HasSubstr( "Access denied" ) );
}

TEST_F( Info, ADumpFromAMakersDeviceTakesTheLargerPiecesOfItsRecord )
{
    ASSERT_EQ( RunGev( "dump", { "0x100000", "1072", "--maker", "02:48:54" } ).mStatus, 0 );
    EXPECT_THAT( GetPieces( Command::READMEM ), ElementsAre( 536, 536 ) );
}

TEST_F( Info, ADumpFromAnotherDeviceKeepsToWhatEveryDeviceTakes )
{
    ASSERT_EQ( RunGev( "dump", { "0x100000", "1072", "--maker", "02:48:55" } ).mStatus, 0 );
    EXPECT_THAT( GetPieces( Command::READMEM ), ElementsAre( 512, 512, 48 ) );
}

TEST_F( Info, ALoadTakesThePiecesOfTheRecord )
{
    const TemporaryDirectory lFolder;
    const std::string lBytes = MakeBytes( 1072 );
    WriteWholeFile( lFolder.GetPath( "file" ), lBytes );
    ASSERT_EQ(
        RunGev( "load", { "0x100000", lFolder.GetPath( "file" ), "--maker", "02:48:54" } ).mStatus,
        0 );
    EXPECT_THAT( GetPieces( Command::WRITEMEM ), ElementsAre( 536, 536 ) );
    EXPECT_EQ( GetMemory( MEMORY, lBytes.size() ), lBytes );
}

} // namespace TestSupport
