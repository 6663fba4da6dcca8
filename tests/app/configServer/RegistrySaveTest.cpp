// The immediate and deferred saves of registry documents with the real program, driven with
// reg-set: which keys reach the user file, converted, and how bursts are saved.
#include "ServiceFixture.h"

#include <chrono>
#include <cstring>

using testutil::CountOf;
using testutil::Service;

namespace {

class RegistrySaveTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        Write("/config/ForceSync.cfg", "");
        Write("/config/mac-local.cfg", "#!version:1.0.0.1\nfirst.item = 1\n");
    }

    // A reg-set through the platform from this process: much faster than one etlmsg each.
    static int RegSet(const std::string& strFile, const char* szSection, const char* szKey, const std::string& strValue,
                      bool bNow)
    {
        std::string strPayload = RegSetPayload(strFile, szSection, szKey, strValue);
        int nReply = 0;
        int nResult = ETL_MsgQueueHelper::msgSendMsgToThread(
            ETL_MsgQueueHelper::msgGetThreadByName("configServer"), ETL_MsgQueueHelper::MSG_PLATFORM_REG_SET,
            bNow ? 1 : 0, 0, static_cast<int>(strPayload.size()), strPayload.data(), 10000, &nReply, nullptr);
        return nResult == 0 ? nReply : -1;
    }
    static std::string SaveTrace(const char* szDoc) { return std::string("getname faile, name:[] ") + szDoc + ", S, k"; }
};

} // namespace

TEST_F(RegistrySaveTest, SavedKeysReachTheUserFileConvertedAndBurstsAreSavedOnceInOrder)
{
    SetSwitches(1, 0);
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    EXPECT_EQ(Msg({"send", "configServer", "0xd0001"}).strOut, "1\n") << "due since start";
    EXPECT_EQ(Msg({"reg-set", "/config/u.ini", "S", "k", "v", "--now"}).nExit, 0);
    ASSERT_TRUE(service.Ping());
    EXPECT_NE(service.Stderr().find(SaveTrace("/config/u.ini")), std::string::npos);
    EXPECT_NE(Read("/config/u.ini").find("k = v"), std::string::npos);
    EXPECT_EQ(Read("/config/mac-local.cfg"), "#!version:1.0.0.1\nfirst.item = 1\n");
    EXPECT_FALSE(Exists("/config/mac-local.cfg.bak")) << "no write, so no backup either";
    EXPECT_EQ(Msg({"send", "configServer", "0xd0001"}).strOut, "0\n") << "an unmapped key makes no upload due";

    const char* const kSets[][2] = {{"base0", "0"},  {"invert", "7"},    {"both", "0"},   {"encrypt", "secret"},
                                    {"reboot", "1"}, {"encreboot", "1"}, {"ignored", "1"}};
    for (const auto& set : kSets)
        EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "S", set[0], set[1], "--now"}).nExit, 0) << set[0];
    EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "S", "plain", "now", "--now"}).nExit, 0);
    ASSERT_TRUE(service.Ping());
    EXPECT_EQ(Read("/config/mac-local.cfg"),
              "#!version:1.0.0.1\nfirst.item = 1\ntest.base0 = 1\ntest.invert = 0\ntest.both = 0\ntest.plain = now\n");
    std::string strErr = service.Stderr();
    for (const char* szSkip : {"skip [test.encrypt] [1]", "skip [test.reboot] [2]", "skip [test.encreboot] [3]",
                               "Ignore the special config [test.ignored]"})
        EXPECT_NE(strErr.find(szSkip), std::string::npos) << szSkip;
    EXPECT_NE(Read("/config/t.ini").find("encrypt = secret"), std::string::npos) << "the document keeps every key";
    EXPECT_EQ(Msg({"reg-get", "/config/t.ini", "S", "invert"}).strOut, "7\n");
    EXPECT_EQ(Msg({"reg-get", "/config/t.ini", "S", "nothere"}).nExit, 2);
    EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "Bad]Section", "k", "v"}).nExit, 2) << "a name the text cannot hold";

    // A burst of deferred changes is saved once, in the order of first report (the sets above were
    // all saved at once, so no save period is running yet).
    auto tFirst = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(RegSet("/config/a.ini", "S", "k", "a" + std::to_string(i), false), 1);
    ASSERT_EQ(RegSet("/config/b.ini", "S", "k", "b", false), 1);
    ASSERT_EQ(RegSet("/config/a.ini", "S", "k", "last", false), 1);
    ASSERT_TRUE(testutil::WaitForText(Real("/config/a.ini"), "k = last", 10000));
    auto nWaited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - tFirst);
    EXPECT_GE(nWaited.count(), 500) << "never before the period is over";
    ASSERT_TRUE(testutil::WaitForText(Real("/config/b.ini"), "k = b", 10000));
    // A later burst of another document: once it is saved, any repeat of the first would show.
    ASSERT_EQ(RegSet("/config/c.ini", "S", "k", "c", false), 1);
    ASSERT_TRUE(testutil::WaitForText(service.Process().StderrPath(), SaveTrace("/config/c.ini"), 10000));
    strErr = service.Stderr();
    EXPECT_EQ(CountOf(strErr, SaveTrace("/config/a.ini")), 1u) << "one save for the whole burst";
    EXPECT_EQ(CountOf(strErr, SaveTrace("/config/b.ini")), 1u);
    EXPECT_LT(strErr.find(SaveTrace("/config/a.ini")), strErr.find(SaveTrace("/config/b.ini")))
        << "saved in the order of first report";

    // Save-now while the document waits: saved at once, and again by the timer (however late it
    // runs); a later burst of another document shows that nothing more came of it.
    ASSERT_EQ(RegSet("/config/a.ini", "S", "k", "deferred", false), 1);
    ASSERT_EQ(RegSet("/config/a.ini", "S", "k", "now", true), 1);
    EXPECT_TRUE(testutil::WaitUntil([&] { return CountOf(service.Stderr(), SaveTrace("/config/a.ini")) >= 3; }, 10000));
    ASSERT_EQ(RegSet("/config/c.ini", "S", "k", "again", false), 1);
    ASSERT_TRUE(testutil::WaitUntil([&] { return CountOf(service.Stderr(), SaveTrace("/config/c.ini")) >= 2; }, 10000));
    EXPECT_EQ(CountOf(service.Stderr(), SaveTrace("/config/a.ini")), 3u);

    // A change and the quit queued back to back: the quit is handled long before the save is due,
    // and pending documents are not saved at quit.
    std::string strPayload = RegSetPayload("/config/pending.ini", "S", "k", "v");
    auto hService = ETL_MsgQueueHelper::msgGetThreadByName("configServer");
    ASSERT_EQ(ETL_MsgQueueHelper::msgPostMsgToThreadEx(hService, ETL_MsgQueueHelper::MSG_PLATFORM_REG_SET, 0, 0,
                                                       static_cast<int>(strPayload.size()), strPayload.data()), 0);
    ASSERT_EQ(ETL_MsgQueueHelper::msgPostMsgToThread(hService, ETL_MsgQueueHelper::MSG_PLATFORM_QUIT, 0, 0), 0);
    EXPECT_EQ(service.Process().Wait(10000), 0);
    EXPECT_FALSE(Exists("/config/pending.ini"));
}
