// What an independent dissector makes of the packets on the loopback interface.
#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <memory>
#include <string>
#include <vector>

namespace TestSupport
{

// PacketCapture records the UDP datagrams of the loopback interface of this network namespace with
// tshark, from its construction to Stop, and has tshark dissect them. Its files are in a temporary
// directory, which its destructor removes.
class PacketCapture
{
public:
    PacketCapture();

    PacketCapture( const PacketCapture& ) = delete;
    PacketCapture& operator=( const PacketCapture& ) = delete;

    // Empty when the recording has begun; otherwise what tshark said.
    const std::string& GetProblem() const { return mProblem; }

    // Ends the recording; what was sent before the call is in it.
    void Stop();

    // One row per packet that the display filter lets through, with the named fields in order.
    // aOptions go to tshark, such as "-d", "udp.port==40000,gvcp".
    std::vector<std::vector<std::string>>
    GetRows( const std::string& aFilter, const std::vector<std::string>& aFields,
             const std::vector<std::string>& aOptions = {} ) const;

private:
    void Mark( const std::string& aText );

    const TemporaryDirectory mDirectory;
    const std::string mFile;
    std::string mProblem;
    std::unique_ptr<ChildProcess> mProcess;
};

} // namespace TestSupport
