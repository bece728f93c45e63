// Prints the location of HtBase and the version of the device at 127.0.0.1:PORT, with every header
// of the libraries included.
//
//     Consumer PORT

#include <AllHeaders.h>

#include <cstdio>
#include <cstdlib>

int main( int aCount, char** aArguments )
{
    HtString lLocation;
    if ( !HtBinariesLocation( lLocation ).IsOK() )
    {
        return 2;
    }
    std::printf( "%s\n", lLocation.GetAscii() );

    WdUtilsLib::Network::IpAddress lDevice;
    WdUtilsLib::Network::SocketUDP lSocket;
    const int lPort = aCount == 2 ? std::atoi( aArguments[1] ) : 0;
    if ( !lDevice.Set( "127.0.0.1" ) || !lSocket.Open().IsOK() ||
         !lSocket.Connect( lDevice, static_cast<unsigned short>( lPort ) ).IsOK() )
    {
        return 2;
    }
    HtBaseLib::SimpleCommandLinkGEV lLink( &lSocket );
    unsigned int lVersion = 0;
    if ( !lLink.ReadRegister( &lVersion, 0x0000 ).IsOK() )
    {
        return 1;
    }
    std::printf( "GigE Vision %u.%u\n", lVersion >> 16, lVersion & 0xFFFF );

    // Something of the transport library, whether there are devices or not.
    std::vector<WdTransportLayerLib::U3V::DeviceInfo> lDevices;
    (void)WdTransportLayerLib::U3V::DeviceEnumerator::GetDevices( lDevices );
    return 0;
}
