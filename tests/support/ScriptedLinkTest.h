// The fixture of the tests of the GigE Vision link: a scripted network with an open socket, the log
// from its first record, and a link.
#pragma once

#include "tests/support/LogLines.h"
#include "tests/support/Packets.h"
#include "tests/support/TestLinkGEV.h"

#include <QmUtilsLib/Result.h>
#include <QmUtilsLib/Scripted/RecordingLogSink.h>
#include <QmUtilsLib/Scripted/VirtualClock.h>
#include <QmUtilsLib/String.h>
#include <WdUtilsLib/Network/SocketUDP.h>
#include <WdUtilsLib/Scripted/Network.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace TestSupport
{

using WdUtilsLib::Scripted::AFTER_MS;

// One record of the log as a line: logger, priority, unit, function, format and text.
std::string LogLine( const std::string& aLogger, int aPriority, const std::string& aFormat,
                     const std::string& aText );

// The records that a transaction may write, as lines, for a link with these loggers.
struct LinkLog
{
    LinkLog( const std::string& aLinkLogger, const std::string& aLibLogger );

    std::string RETRY;
    std::string UNABLE;
    std::string TIMEOUT;
    std::string UNEXPECTED;
    std::string FAILURE;
};

// Whether another thread can take the link's mutex now. Waits for that thread, which takes long
// only when the mutex is not free.
bool IsMutexFree( TestLinkGEV& aLink );

class ScriptedLinkTest : public testing::Test
{
protected:
    ScriptedLinkTest();

    // Milliseconds of virtual time since the start of the test.
    long long GetElapsed() const;

    // When the datagrams left, and their bytes.
    std::vector<long long> GetSendTimes() const;
    std::vector<Bytes> GetSentBytes() const;

    // Expects the log to hold these records and no others, in this order, and every record to have
    // a line number.
    void ExpectLog( const Log& aExpected ) const;

    // Expects the four counters.
    static void ExpectCounters( const HtBaseLib::BaseCommandLinkGEV& aLink, long long aRetries,
                                long long aRetriesMax, long long aPending, long long aFailures );

    const long long mStart = QmUtilsLib::Scripted::VirtualClock::Now();
    const LinkLog mLines{ TestLinkGEV::LINK_LOGGER, TestLinkGEV::LIB_LOGGER };
    QmUtilsLib::Scripted::RecordingLogSink mLog;
    WdUtilsLib::Scripted::ScriptedNetwork mNet;
    WdUtilsLib::Network::SocketUDP mSocket;
    TestLinkGEV mLink{ &mSocket };
};

} // namespace TestSupport
