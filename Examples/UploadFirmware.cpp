// Sends a file to a device by TFTP, with progress and warnings. Ctrl-C aborts.
//
//     UploadFirmware 192.168.1.20 image.dfw camera.fw
//
// Exit status: 0 done, 1 failed or aborted, 2 wrong usage.

#include <HtTftpClient.h>
#include <WdUtilsLib/Network/IpAddress.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <future>
#include <vector>

namespace
{

constexpr std::size_t NAME_MAX_SIZE = 1015; // a longer one is never sent

volatile std::sig_atomic_t sIsInterrupted = 0;

void Interrupt( int /*aSignal*/ )
{
    sIsInterrupted = 1;
}

// SendFile would not report that a file cannot be read, so the file is read here, with every call
// checked, and sent by SendData. TFTP here counts bytes in 32 bits.
bool ReadFile( const char* aPath, std::vector<unsigned char>& aBytes )
{
    std::FILE* const lFile = std::fopen( aPath, "rb" );
    if ( lFile == nullptr )
    {
        return false;
    }
    unsigned char lBlock[65536];
    std::size_t lRead = 0;
    while ( aBytes.size() <= UINT32_MAX &&
            ( lRead = std::fread( lBlock, 1, sizeof( lBlock ), lFile ) ) > 0 )
    {
        aBytes.insert( aBytes.end(), lBlock, lBlock + lRead );
    }
    const bool lIsRead = std::ferror( lFile ) == 0;
    return std::fclose( lFile ) == 0 && lIsRead && aBytes.size() <= UINT32_MAX;
}

// What other threads may ask while a transfer runs.
void ShowProgress( HtTftpClient& aClient )
{
    HtString lWarning;
    while ( aClient.GetWarning( lWarning ).IsOK() )
    {
        std::fprintf( stderr, "warning: %s\n", lWarning.GetAscii() );
    }
    long long lDone = 0;
    long long lTotal = 0;
    if ( aClient.GetProgress( lDone, lTotal ).IsOK() )
    {
        std::fprintf( stderr, "%lld of %lld bytes\n", lDone, lTotal );
    }
}

} // namespace

int main( int aCount, char** aArguments )
{
    WdUtilsLib::Network::IpAddress lHost;
    if ( aCount != 4 || !lHost.Set( aArguments[1] ) || *aArguments[3] == '\0' ||
         std::strlen( aArguments[3] ) > NAME_MAX_SIZE )
    {
        std::fprintf( stderr,
                      "usage: UploadFirmware HOST FILE NAME, with the device's IPv4 address "
                      "and its name for the file\n" );
        return 2;
    }
    std::vector<unsigned char> lBytes;
    if ( !ReadFile( aArguments[2], lBytes ) )
    {
        std::fprintf( stderr, "UploadFirmware: cannot read %s\n", aArguments[2] );
        return 2;
    }
    HtTftpClient lClient;
    HtResult lResult = lClient.Init( aArguments[1], aArguments[3] );
    if ( lResult.IsOK() )
    {
        (void)std::signal( SIGINT, Interrupt );
        const auto lSend = [&]
        {
            return lClient.SendData( lBytes.data(), static_cast<unsigned int>( lBytes.size() ) );
        };
        auto lTransfer = std::async( std::launch::async, lSend );
        while ( lTransfer.wait_for( std::chrono::milliseconds( 100 ) ) !=
                std::future_status::ready )
        {
            ShowProgress( lClient );
            if ( sIsInterrupted != 0 )
            {
                (void)lClient.Abort(); // the transfer ends within a second
            }
        }
        lResult = lTransfer.get();
        ShowProgress( lClient ); // the last block of a transfer is never counted
    }
    if ( !lResult.IsOK() )
    {
        std::fprintf( stderr, "UploadFirmware: not sent: %s: %s\n",
                      lResult.GetCodeString().GetAscii(), lResult.GetDescription().GetAscii() );
        return 1;
    }
    std::printf( "sent %zu bytes as %s\n", lBytes.size(), aArguments[3] );
    return 0;
}
