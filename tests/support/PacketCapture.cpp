#include "tests/support/PacketCapture.h"

#include <WdUtilsLib/Network/SocketUDP.h>

#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>

namespace TestSupport
{

namespace
{

std::vector<std::string> Split( const std::string& aText, char aSeparator )
{
    std::vector<std::string> lParts;
    std::string lPart;
    for ( const char lCharacter : aText )
    {
        if ( lCharacter == aSeparator )
        {
            lParts.push_back( lPart );
            lPart.clear();
            continue;
        }
        lPart += lCharacter;
    }
    lParts.push_back( lPart );
    return lParts;
}

} // namespace

PacketCapture::PacketCapture()
    : mFile( mDirectory.GetPath( "capture.pcapng" ) )
{
    mProcess = std::make_unique<ChildProcess>(
        std::vector<std::string>{ "tshark", "-q", "-n", "-i", "lo", "-f", "udp", "-w", mFile } );
    if ( !mProcess->WaitForError( "Capturing on", 20000 ) )
    {
        mProblem = "tshark did not begin to record: " + mProcess->GetError();
        return;
    }
    Mark( "here the capture begins" );
}

void PacketCapture::Stop()
{
    Mark( "here the capture may end" );
    if ( !mProblem.empty() )
    {
        return;
    }
    mProcess->Signal( SIGINT );
    const Ending lEnding = mProcess->Wait();
    if ( !lEnding.mExited || lEnding.mStatus != 0 )
    {
        mProblem = "tshark did not end well: " + mProcess->GetError();
    }
}

// A recording begins somewhat after tshark says so, and the system hands packets over in batches,
// so one that is ended at once lacks the last ones. Hence a mark is sent, and sent again, until it
// has reached the file.
void PacketCapture::Mark( const std::string& aText )
{
    WdUtilsLib::Network::SocketUDP lSocket;
    if ( !lSocket.Open().IsOK() )
    {
        mProblem = "no socket for the mark: " + aText;
        return;
    }
    const WdUtilsLib::Network::IpAddress lLoopback( 0x7F000001 );
    for ( int lTry = 0; lTry < 400; ++lTry )
    {
        // No program needs to listen at the discard port.
        (void)lSocket.SendTo( aText.data(), static_cast<int>( aText.size() ), lLoopback, 9 );
        std::this_thread::sleep_for( std::chrono::milliseconds( 25 ) );
        if ( ReadWholeFile( mFile ).find( aText ) != std::string::npos )
        {
            return;
        }
    }
    mProblem = "the capture does not hold the mark: " + aText;
}

std::vector<std::vector<std::string>>
PacketCapture::GetRows( const std::string& aFilter, const std::vector<std::string>& aFields,
                        const std::vector<std::string>& aOptions ) const
{
    std::vector<std::string> lArguments{ "tshark", "-n", "-r", mFile, "-Y", aFilter };
    lArguments.insert( lArguments.end(), aOptions.begin(), aOptions.end() );
    lArguments.insert( lArguments.end(), { "-T", "fields" } );
    for ( const std::string& lField : aFields )
    {
        lArguments.insert( lArguments.end(), { "-e", lField } );
    }
    const Outcome lOutcome = RunProgram( lArguments );
    std::vector<std::vector<std::string>> lRows;
    if ( lOutcome.mStatus != 0 )
    {
        lRows.push_back( { "tshark failed: " + lOutcome.mError } );
        return lRows;
    }
    std::istringstream lLines( lOutcome.mOutput );
    for ( std::string lLine; std::getline( lLines, lLine ); )
    {
        lRows.push_back( Split( lLine, '\t' ) );
    }
    return lRows;
}

} // namespace TestSupport
