// Message threads: the datagram checks, a busy receiver in another process that must lose nothing
// and keep the order (and its successor under the same name), and an idle loop woken by its timer
// and by another thread of its process.
#include "ETL_MsgQueueHelper.h"
#include "MsgPlatform.h"
#include "MsgWire.h"
#include "ProcessHarness.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

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
    EXPECT_EQ(strGood.substr(0, 4), "ETLM");
    EXPECT_EQ(static_cast<unsigned char>(strGood[8]), 0x03) << "little-endian id";
    auto Decode = [](const std::string& str, wire::Header& out) {
        return wire::DecodeDatagram(reinterpret_cast<const unsigned char*>(str.data()), str.size(), out);
    };
    wire::Header out;
    ASSERT_EQ(Decode(strGood, out), nullptr);
    EXPECT_EQ(std::vector<int64_t>({out.nId, out.nWparam, out.nLparam, out.nSeq, out.nSize}),
              std::vector<int64_t>({0xd0003, -5, 3, 77, 4}));

    header.nSize = 65537;
    std::string strHuge = wire::EncodeDatagram(header, std::string(65537, 'a').data());
    auto Patched = [&](size_t nAt, char c) { std::string str = strGood; str[nAt] = c; return str; };
    const std::pair<std::string, const char*> kBad[] = {
        {strGood.substr(0, 31), "short"}, {strGood.substr(0, 35), "size mismatch"}, {strGood + "x", "size mismatch"},
        {Patched(0, 'X'), "magic"}, {Patched(4, 2), "version"}, {Patched(6, 3), "kind"}, {strHuge, "over 65536"}};
    for (const auto& bad : kBad)
        EXPECT_NE(Decode(bad.first, out), nullptr) << bad.second;
}

TEST(MsgThread, BusyReceiverLosesNothingAndKeepsOrder)
{
    testutil::TempDir root;
    setenv("ETL_ROOT", root.Path().c_str(), 1);
    testutil::Child busy;
    ASSERT_TRUE(busy.Start({CFG_BUSY_THREAD_BIN}, root.Path(), root.Path()));
    msgThread hThread = 0;
    ASSERT_TRUE(testutil::WaitUntil([&] { return (hThread = msgGetThreadByName("busyThread")) != 0; }, 20000));
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

    // The handle outlives the process: its next post reaches a new holder of the name, and once
    // none holds it, posts fail.
    testutil::Child again;
    ASSERT_TRUE(again.Start({CFG_BUSY_THREAD_BIN}, root.Path(), root.Path()));
    ASSERT_TRUE(testutil::WaitUntil([&] {
        return msgSendMsgToThread(hThread, MSG_PLATFORM_PING, 0, 0, 0, nullptr, 1000, &nReply, nullptr) == MSG_SEND_OK;
    }, 20000));
    ASSERT_EQ(msgPostMsgToThread(hThread, MSG_PLATFORM_QUIT, 7, 0), 0);
    EXPECT_EQ(again.Wait(10000), 7);
    EXPECT_EQ(msgPostMsgToThread(hThread, 0x100, 0, 0), MSG_SEND_NO_THREAD);
    unsetenv("ETL_ROOT");
}

namespace {

class CIdleThread : public chThreadLocal {
public:
    CIdleThread() : chThreadLocal("idleThread", nullptr) {}

    int TryThreadMessage(msgObject& msg) override
    {
        if (msg.message == 0x200)
            m_nWparam = msg.wParam;
        return chThreadLocal::TryThreadMessage(msg);
    }
    // Three expiries, then the loop has nothing left to wake it but the other threads.
    int OnTick(msgObject&)
    {
        if (++m_nTicks == 3)
            m_timer.KillTimer();
        return 1;
    }

    chThreadTimer m_timer{1};
    std::atomic<int> m_nTicks{0};
    std::atomic<int> m_nWparam{0};
};

} // namespace

TEST(MsgThread, IdleLoopWakesForItsTimerAndForPostsOfOtherThreads)
{
    testutil::TempDir root;
    setenv("ETL_ROOT", root.Path().c_str(), 1);
    CIdleThread thread;
    std::atomic<int> nStatus{-1};
    // The loop's thread registers, arms the timer and runs, as a service's main thread does.
    std::thread loop([&] {
        uCSystemShareHelper::getGlobalObject().CreateLocalThread(thread);
        thread.m_timer.SetTimer(15, nullptr, &thread, MSG_HANDLER(&CIdleThread::OnTick));
        nStatus = thread.Run();
        uCSystemShareHelper::getGlobalObject().DestroyLocalThread(thread);
    });
    EXPECT_TRUE(testutil::WaitUntil([&] { return thread.m_nTicks == 3; }, 10000)) << "the idle loop's timer stopped";
    EXPECT_EQ(msgPostMsgToThread(msgGetThreadByName("idleThread"), 0x200, 7, 0), 0);
    EXPECT_TRUE(testutil::WaitUntil([&] { return thread.m_nWparam == 7; }, 10000)) << "a local post did not wake the loop";
    EXPECT_EQ(SnapshotCounters(chThreadLocalAccess::Of(thread)).nMalformed, 0u) << "wake-ups counted as malformed datagrams";
    thread.ExitLoop(5);
    loop.join();
    EXPECT_EQ(nStatus, 5) << "ExitLoop from another thread did not end the waiting loop";
    unsetenv("ETL_ROOT");
}
