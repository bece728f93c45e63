#include "Tools/htbase/TftpStation.h"

#include "Tools/htbase/Console.h"
#include "Tools/htbase/Failure.h"
#include "Tools/htbase/Files.h"
#include "Tools/htbase/SimFaults.h"

#include <filesystem>
#include <system_error>

namespace HtBaseTool
{

using Simulators::Bytes;
using Simulators::DeviceServer;
using Simulators::Endpoint;
using Simulators::VirtualTftpServer;
using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

namespace
{

VirtualTftpServer::Configuration
MakeConfiguration( std::function<bool( const std::string& aName, const Bytes& aContent )> aKeep )
{
    VirtualTftpServer::Configuration lConfiguration;
    lConfiguration.mKeep = std::move( aKeep );
    return lConfiguration;
}

// Whether an upload of this name stays inside the folder and replaces nothing but a file. A link
// might lead elsewhere.
bool MayKeep( const fs::path& aPath, const std::string& aName )
{
    if ( aName.empty() || aName == "." || aName == ".." || GetFileName( aName ) != aName )
    {
        return false;
    }
    std::error_code lError; // an error shows in the type
    const fs::file_type lType = fs::symlink_status( aPath, lError ).type();
    return lType == fs::file_type::regular || lType == fs::file_type::not_found;
}

} // namespace

TftpStation::TftpStation( const std::optional<std::string>& aDirectory )
    : mDirectory( aDirectory )
    , mCore( MakeConfiguration( [this]( const std::string& aName, const Bytes& aContent )
                                { return Keep( aName, aContent ); } ) )
    , mServer( [this]( const Endpoint& aFrom, uint16_t aToPort, const uint8_t* aData, size_t aSize,
                       int64_t aNowMs )
               { return mCore.Receive( aFrom, aToPort, aData, aSize, aNowMs ); } )
{
    if ( mDirectory )
    {
        LoadFiles( *mDirectory );
    }
}

void TftpStation::LoadFiles( const std::string& aDirectory )
{
    try
    {
        for ( const fs::directory_entry& lEntry : fs::directory_iterator( aDirectory ) )
        {
            if ( lEntry.is_regular_file() )
            {
                mCore.SetFile( lEntry.path().filename().string(),
                               ReadRegularFile( lEntry.path().string(),
                                                VirtualTftpServer::Configuration().mMaxFileSize ) );
            }
        }
    }
    catch ( const fs::filesystem_error& lError )
    {
        throw MakeUsageFailure( "cannot read folder '" + aDirectory +
                                "': " + lError.code().message() );
    }
    catch ( const Failure& lFailure )
    {
        throw MakeUsageFailure( lFailure.what() );
    }
}

void TftpStation::Open( const DeviceServer::Options& aOptions )
{
    OpenServer( mServer, aOptions );
    mOpened = GetWhere();
}

bool TftpStation::Keep( const std::string& aName, const Bytes& aContent )
{
    if ( !mDirectory )
    {
        return true;
    }
    const fs::path lPath = fs::path( *mDirectory ) / aName;
    if ( !MayKeep( lPath, aName ) )
    {
        PrintNote( "upload '" + aName + "' is refused: it is not a valid file name for folder '" +
                   *mDirectory + "'" );
        return false;
    }
    try
    {
        OutputFile lFile( lPath.string() );
        lFile.Write( aContent.data(), aContent.size() );
        lFile.Commit();
        return true;
    }
    catch ( const Failure& lFailure )
    {
        PrintNote( lFailure.what() );
        return false;
    }
}

void TftpStation::Summarise( Program& aProgram, const char* aMember ) const
{
    const VirtualTftpServer::Counters& lCounters = mCore.GetCounters();
    Json lReport = Json::object();
    lReport["received"] = lCounters.mReceived;
    lReport["readRequests"] = lCounters.mReadRequests;
    lReport["writeRequests"] = lCounters.mWriteRequests;
    lReport["uploads"] = lCounters.mPublished;
    lReport["downloads"] = lCounters.mDelivered;
    lReport["repeated"] = lCounters.mRepeated;
    lReport["answers"] = lCounters.mAnswers;
    lReport["errors"] = lCounters.mErrors;
    ReportFaults( lReport, mServer );
    if ( aMember != nullptr )
    {
        lReport["port"] = mOpened.mPort;
        aProgram.mReport[aMember] = lReport;
    }
    else
    {
        aProgram.mReport.update( lReport );
    }
    if ( !aProgram.mIsJson )
    {
        Print( "tftp: " + mCore.GetSummary() + "\n" + GetFaultsText( mServer ) );
    }
}

} // namespace HtBaseTool
