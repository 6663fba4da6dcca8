// Message threads: the datagram checks, timers and quitting inside one process, and a busy
// receiver in another process that must lose nothing and keep the order.
#include "ETL_MsgQueueHelper.h"
#include "MsgWire.h"
#include "ProcessHarness.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

using namespace ETL_MsgQueueHelper;

TEST(MsgWire, DecodeRejectsMalformedDatagrams)
{
    wire::Header header;
    header.nKind = wire::KIND_SEND;
    header.nId = 0xd0003;
    header.nWparam = -5;
    header.nLparam = 3;
    header.nSeq = 77;
    header.nSize = 4;
    std::string strGood = wire::EncodeDatagram(header, "abc");
    ASSERT_EQ(strGood.size(), 36u);
    auto Decode = [](const std::string& str, wire::Header& out) {
        return wire::DecodeDatagram(reinterpret_cast<const unsigned char*>(str.data()), str.size(), out);
    };
    wire::Header out;
    ASSERT_EQ(Decode(strGood, out), nullptr);
    EXPECT_EQ(out.nId, 0xd0003u);
    EXPECT_EQ(out.nWparam, -5);
    EXPECT_EQ(out.nLparam, 3);
    EXPECT_EQ(out.nSeq, 77u);
    EXPECT_EQ(out.nSize, 4u);
    EXPECT_EQ(strGood.substr(0, 4), "ETLM");
    EXPECT_EQ(static_cast<unsigned char>(strGood[8]), 0x03) << "little-endian id";

    EXPECT_NE(Decode(strGood.substr(0, 31), out), nullptr) << "short";
    EXPECT_NE(Decode(strGood.substr(0, 35), out), nullptr) << "size mismatch";
    EXPECT_NE(Decode(strGood + "x", out), nullptr) << "size mismatch";
    std::string strBad = strGood;
    strBad[0] = 'X';
    EXPECT_NE(Decode(strBad, out), nullptr) << "magic";
    strBad = strGood;
    strBad[4] = 2;
    EXPECT_NE(Decode(strBad, out), nullptr) << "version";
    strBad = strGood;
    strBad[6] = 3;
    EXPECT_NE(Decode(strBad, out), nullptr) << "kind";
    header.nSize = 65537;
    std::string strHuge = wire::EncodeDatagram(header, std::string(65537, 'a').data());
    EXPECT_NE(Decode(strHuge, out), nullptr) << "over 65536";
}

namespace {

class CTimerThread : public chThreadLocal {
public:
    CTimerThread() : chThreadLocal("timerThread", nullptr), m_timer(1) {}

    int OnTick(msgObject& msg)
    {
        EXPECT_EQ(msg.message, static_cast<uint32_t>(MSG_PLATFORM_TIMER));
        if (++m_nTicks == 3) {
            m_timer.KillTimer();
            m_nRunningAfterKill = m_timer.IsTimerRuning();
            // Ends the loop through a message to ourselves, which must never block.
            msgPostMsgToThread(msgGetThreadByName("timerThread"), MSG_PLATFORM_QUIT, 9, 0);
        }
        return 1;
    }

    int TryThreadMessage(msgObject& msg) override
    {
        if (msg.message == 0x1234)
            ++m_nSeen;
        return chThreadLocal::TryThreadMessage(msg);
    }

    chThreadTimer m_timer;
    int m_nTicks = 0;
    int m_nSeen = 0;
    int m_nRunningAfterKill = -1;
};

} // namespace

TEST(MsgThread, TimersRepeatUntilKilledAndQuitCarriesStatus)
{
    testutil::TempDir root;
    setenv("ETL_ROOT", root.Path().c_str(), 1);
    CTimerThread thread;
    ASSERT_EQ(uCSystemShareHelper::getGlobalObject().CreateLocalThread(thread), 0);
    msgThread hSelf = msgGetThreadByName("timerThread");
    ASSERT_NE(hSelf, 0u);
    // Queued before the loop runs: handled once it does.
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(msgPostMsgToThread(hSelf, 0x1234, i, 0), 0);
    EXPECT_EQ(thread.m_timer.IsTimerRuning(), 0);
    thread.m_timer.SetTimer(20, nullptr, &thread, MSG_HANDLER(&CTimerThread::OnTick));
    EXPECT_NE(thread.m_timer.IsTimerRuning(), 0);
    EXPECT_EQ(thread.Run(), 9);
    EXPECT_EQ(thread.m_nTicks, 3);
    EXPECT_EQ(thread.m_nSeen, 5);
    EXPECT_EQ(thread.m_nRunningAfterKill, 0);
    uCSystemShareHelper::getGlobalObject().DestroyLocalThread(thread);
    EXPECT_EQ(msgGetThreadByName("timerThread"), 0u);
    EXPECT_NE(msgPostMsgToThread(hSelf, 0x1234, 0, 0), 0) << "a post to a thread that is gone fails";
    unsetenv("ETL_ROOT");
}

TEST(MsgThread, BusyReceiverLosesNothingAndKeepsOrder)
{
    testutil::TempDir root;
    setenv("ETL_ROOT", root.Path().c_str(), 1);
    testutil::Child busy;
    ASSERT_TRUE(busy.Start({CFG_BUSY_THREAD_BIN}, root.Path(), root.Path()));
    msgThread hThread = 0;
    for (int i = 0; i < 500 && hThread == 0; ++i) {
        hThread = msgGetThreadByName("busyThread");
        if (hThread == 0)
            usleep(10000);
    }
    ASSERT_NE(hThread, 0u);
    ASSERT_EQ(msgPostMsgToThread(hThread, 0x100, -1, 0), 0);
    std::string strExtra(100, 'e');
    for (int i = 0; i < 500; ++i)
        ASSERT_EQ(msgPostMsgToThreadEx(hThread, 0x101, i, 0, static_cast<int>(strExtra.size()), strExtra.data()), 0)
            << "post " << i;
    int nReply = 0;
    ASSERT_EQ(msgSendMsgToThread(hThread, MSG_PLATFORM_PING, 0, 0, 0, nullptr, 10000, &nReply, nullptr), MSG_SEND_OK);
    EXPECT_EQ(nReply, 1);
    ASSERT_EQ(msgPostMsgToThread(hThread, MSG_PLATFORM_QUIT, 0, 0), 0);
    ASSERT_EQ(busy.Wait(10000), 0);

    std::istringstream lines(busy.Stdout());
    std::string strId;
    int nWparam = 0;
    ASSERT_TRUE(lines >> strId >> nWparam);
    EXPECT_EQ(strId, "0x100");
    for (int i = 0; i < 500; ++i) {
        ASSERT_TRUE(lines >> strId >> nWparam) << "message " << i << " missing";
        EXPECT_EQ(strId, "0x101");
        ASSERT_EQ(nWparam, i) << "out of order";
    }
    EXPECT_FALSE(lines >> strId);
    unsetenv("ETL_ROOT");
}
