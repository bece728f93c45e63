#pragma once

#include "Simulators/Datagram.h"
#include "Simulators/TFTP/DisturbanceTFTP.h"
#include "Simulators/TFTP/PacketTFTP.h"
#include "Simulators/TFTP/SessionsTFTP.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Simulators
{

// VirtualTftpServer is a TFTP server (RFC 1350) without a socket and without a clock. It takes the
// datagrams that arrived at its ports, together with the time, and returns those that it sends. It
// supports octet mode, uploads and downloads, and blocks of 512 bytes; it ignores options of later
// standards. Copies are independent servers. Not thread-safe.
//
// Each request begins a session with a transfer port of its own, also a repeated request. An upload
// becomes a file, or replaces one, when its session's last block has arrived. A session ends after
// a long silence, or when there are too many. A complete session stays that long, so that its last
// acknowledge can be repeated.
//
// The server has no timer, so it sends nothing again on its own. It acknowledges a repeated block
// again. After an acknowledge of the block before the current one, it sends the current one again.
//
// It refuses with an ERROR packet, which ends the session:
//   0 not defined          a mode that is not octet; an upload that Configuration::mKeep refuses
//   1 file not found       a read request for a file that does not exist
//   2 access violation     a write request where Configuration::mIsWritable is false
//   3 disk full            an upload longer than Configuration::mMaxFileSize
//   4 illegal operation    a request that cannot be parsed, another packet on the listening port, a
//                          block of more than 512 bytes, a packet that does not suit the session
//   5 unknown transfer ID  a packet on a transfer port from another sender, or without a session;
//                          it ends no session
//   6 file already exists  a write request for one where Configuration::mMayReplace is false
// It never answers an ERROR packet, nor a datagram shorter than 4 bytes.
class VirtualTftpServer
{
public:
    static constexpr size_t BLOCK_SIZE = 512;

    struct Configuration
    {
        bool mIsWritable = true;
        bool mMayReplace = true;
        size_t mMaxFileSize = size_t{ 64 } << 20;
        // Sessions take these ports in turn; 0 ports count as 1. There are never more sessions than
        // ports: the session that was silent for longest makes room.
        uint16_t mFirstTransferPort = 50000;
        uint16_t mTransferPorts = 64;
        int64_t mSessionTimeoutMs = 60000;
        // Called when the last block of an upload has arrived, before the upload becomes a file and
        // before that block is acknowledged; false refuses the upload. Empty: all are kept. It must
        // not call the server.
        std::function<bool( const std::string& aName, const Bytes& aContent )> mKeep;
    };

    using Trouble = TroubleTFTP;
    using Disturbance = DisturbanceTFTP;
    // As Disturbance::mCount: every answer from mFirst on.
    static constexpr uint64_t FOR_EVER = UINT64_MAX;

    struct Counters
    {
        uint64_t mReceived = 0; // datagrams; all of the following are among them
        uint64_t mReadRequests = 0;
        uint64_t mWriteRequests = 0;
        uint64_t mRepeated = 0; // repeated blocks and acknowledges
        uint64_t mDropped = 0;  // left without an answer
        uint64_t mAnswers = 0;  // answers made, including disturbed ones
        uint64_t mErrors = 0;   // ERROR packets among them
        uint64_t mPublished = 0;
        uint64_t mDelivered = 0; // downloads whose last block was acknowledged
    };

    VirtualTftpServer();
    explicit VirtualTftpServer( const Configuration& aConfiguration );

    // Takes one datagram that arrived at the port aToPort, 0 for the one that the server listens
    // on, and returns what the server sends because of it. aData may be null if aSize is 0. aNowMs
    // is the time in milliseconds of any clock that does not run backwards, the same clock for all
    // calls.
    std::vector<Outgoing> Receive( const Endpoint& aFrom, uint16_t aToPort, const uint8_t* aData,
                                   size_t aSize, int64_t aNowMs );

    // If several disturbances apply to an answer, the latest call counts.
    void Disturb( const Disturbance& aDisturbance );

    // Set and read files without a transfer. FindFile returns null if there is no such file. The
    // bytes belong to the server and are valid until the next Receive or SetFile.
    void SetFile( const std::string& aName, const Bytes& aContent );
    const Bytes* FindFile( const std::string& aName ) const;
    std::vector<std::string> GetFileNames() const;

    size_t GetSessionCount() const { return mSessions.GetCount(); }
    const Counters& GetCounters() const { return mCounters; }

    // One line, without a line end: "2 uploads published, ...".
    std::string GetSummary() const;

private:
    using Answers = std::vector<Outgoing>;

    Answers HandleRequest( const PacketTFTP& aPacket );
    Answers BeginUpload( const PacketTFTP& aPacket, const std::string& aName );
    Answers BeginDownload( const PacketTFTP& aPacket, const std::string& aName );
    Answers HandleTransfer( const PacketTFTP& aPacket );
    Answers HandleBlock( SessionTFTP& aSession, const PacketTFTP& aPacket );
    Answers TakeBlock( SessionTFTP& aSession, const PacketTFTP& aPacket );
    bool Publish( SessionTFTP& aSession );
    Answers HandleAcknowledge( SessionTFTP& aSession, const PacketTFTP& aPacket );

    Answers Drop();
    Answers Acknowledge( const SessionTFTP& aSession );
    Answers SendBlock( const SessionTFTP& aSession );
    Answers Refuse( const PacketTFTP& aPacket, uint16_t aCode, const std::string& aMessage );
    Answers EndSession( const PacketTFTP& aPacket, uint16_t aCode, const std::string& aMessage );
    Answers Answer( const Outgoing& aAnswer );
    const Disturbance* FindDisturbance( uint64_t aAnswer ) const;

    Configuration mConfiguration;
    std::map<std::string, std::shared_ptr<const Bytes>> mFiles;
    SessionsTFTP mSessions;
    std::vector<Disturbance> mDisturbances;
    Counters mCounters;
};

} // namespace Simulators
