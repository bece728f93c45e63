// The virtual TFTP server on a UDP address, with a folder behind it.
#pragma once

#include "Simulators/Servers/DeviceServer.h"
#include "Simulators/TFTP/VirtualTftpServer.h"
#include "Tools/htbase/Host.h"
#include "Tools/htbase/Program.h"

#include <optional>
#include <string>

namespace HtBaseTool
{

// TftpStation serves the regular files that are in a folder when it is made, and writes each upload
// into the folder when its last block has arrived, before that is acknowledged. An upload is
// refused if its name is not a plain file name, or names something in the folder that is not a
// regular file. Without a folder, uploads are kept in memory.
//
// Open, then Start or Run, then Stop, as with a DeviceServer.
class TftpStation
{
public:
    static constexpr unsigned short PORT = 69;

    // Throws a usage failure when the folder, or a file in it, cannot be read.
    explicit TftpStation( const std::optional<std::string>& aDirectory );

    TftpStation( const TftpStation& ) = delete;
    TftpStation& operator=( const TftpStation& ) = delete;

    // Throws a failure that says why it cannot serve there.
    void Open( const Simulators::DeviceServer::Options& aOptions );
    void Start() { mServer.Start(); }
    QmUtilsLib::Result Run() { return mServer.Run(); }
    void Stop() { mServer.Stop(); }

    HostPort GetWhere() const { return { mServer.GetAddress(), mServer.GetPort() }; }

    // What happened: into the program's report, or into its member aMember unless that is null; and
    // without --json as lines on standard output. After it has stopped.
    void Summarise( Program& aProgram, const char* aMember ) const;

private:
    void LoadFiles( const std::string& aDirectory );
    // On the serving thread.
    bool Keep( const std::string& aName, const Simulators::Bytes& aContent );

    const std::optional<std::string> mDirectory;
    Simulators::VirtualTftpServer mCore;
    HostPort mOpened; // still known after Stop
    Simulators::DeviceServer mServer;
};

} // namespace HtBaseTool
