// Saved registry keys into the item table (in process), and the immediate and deferred saves of
// the real program driven with reg-set.
#include "ConfigServer.h"
#include "M7Store.h"
#include "ServiceFixture.h"

#include <chrono>
#include <cstring>
#include <thread>

using testutil::Service;

namespace {

class RegistryFilterTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        ClearM7Model();
        ignoreM7List.Clear();
        ignoreM7List.Append("test.ignored", 0);
    }
    void TearDown() override
    {
        ClearM7Model();
        ignoreM7List.Clear();
        ServiceRootTest::TearDown();
    }
    std::string Filtered(const char* szKey, const char* szValue)
    {
        EXPECT_EQ(RegistrySaveFilter("/config/t.ini", "S", szKey, szValue), 0);
        char szName[64] = "test.";
        std::strcat(szName, szKey);
        CM7Item* pItem = FindM7Item(szName);
        return pItem != nullptr ? pItem->value.c_str() : "<absent>";
    }
};

} // namespace

TEST_F(RegistryFilterTest, ConversionsSkipsAndIgnores)
{
    EXPECT_EQ(Filtered("base0", "0"), "1");
    EXPECT_EQ(Filtered("base0", "abc"), "1");
    EXPECT_EQ(Filtered("invert", "0"), "1");
    EXPECT_EQ(Filtered("invert", "1"), "0");
    EXPECT_EQ(Filtered("invert", "7"), "0");
    EXPECT_EQ(Filtered("invert", "-1"), "0");
    EXPECT_EQ(Filtered("both", "0"), "0");
    EXPECT_EQ(FindM7Item("test.both")->attr, 0x1800u);

    m7ModelChanged = 0;
    EXPECT_EQ(RegistrySaveFilter("/config/t.ini", "S", "encreboot", "x"), 0) << "skipped, but part of the model";
    EXPECT_EQ(RegistrySaveFilter("/config/t.ini", "S", "encrypt", "x"), 0);
    EXPECT_EQ(FindM7Item("test.encrypt"), nullptr);
    EXPECT_EQ(RegistrySaveFilter("/config/t.ini", "S", "unmapped", "x"), -1);
    SetM7Item("test.ignored", "old", 0);
    EXPECT_EQ(RegistrySaveFilter("/config/t.ini", "S", "ignored", "new"), -1);
    EXPECT_STREQ(FindM7Item("test.ignored")->value.c_str(), "old");
    EXPECT_EQ(m7ModelChanged, 0);

    EXPECT_EQ(RegistrySaveFilter("/config/t.ini", "S", "plain", "same"), 0);
    EXPECT_EQ(m7ModelChanged, 1);
    EXPECT_STREQ(m7ItemList.First()->pItem->name.c_str(), "test.base0");
    CM7ListNode* pLast = m7ItemList.First();
    while (pLast->pNext != m7ItemList.End())
        pLast = pLast->pNext;
    EXPECT_STREQ(pLast->pItem->name.c_str(), "test.plain") << "a new key is appended at the end";
}

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
    int RegSet(const char* szFile, const char* szSection, const char* szKey, const std::string& strValue, bool bNow)
    {
        std::string strPayload;
        for (const char* sz : {szFile, szSection, szKey})
            strPayload.append(sz, std::strlen(sz) + 1);
        strPayload.append(strValue.c_str(), strValue.size() + 1);
        int nReply = 0;
        int nResult = ETL_MsgQueueHelper::msgSendMsgToThread(
            ETL_MsgQueueHelper::msgGetThreadByName("configServer"), ETL_MsgQueueHelper::MSG_PLATFORM_REG_SET,
            bNow ? 1 : 0, 0, static_cast<int>(strPayload.size()), strPayload.data(), 10000, &nReply, nullptr);
        return nResult == 0 ? nReply : -1;
    }

    static size_t Count(const std::string& strText, const std::string& strWhat)
    {
        size_t n = 0;
        for (size_t nPos = strText.find(strWhat); nPos != std::string::npos; nPos = strText.find(strWhat, nPos + 1))
            ++n;
        return n;
    }
};

} // namespace

TEST_F(RegistrySaveTest, SavedKeysReachTheUserFileConverted)
{
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "S", "base0", "0"}).nExit, 0);
    EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "S", "invert", "7"}).nExit, 0);
    EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "S", "both", "0"}).nExit, 0);
    EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "S", "encrypt", "secret"}).nExit, 0);
    EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "S", "reboot", "1"}).nExit, 0);
    EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "S", "encreboot", "1"}).nExit, 0);
    EXPECT_EQ(Msg({"reg-set", "/config/t.ini", "S", "ignored", "1", "--now"}).nExit, 0);
    ASSERT_TRUE(service.Ping());
    std::string strUser = Read("/config/mac-local.cfg");
    EXPECT_EQ(strUser, "#!version:1.0.0.1\nfirst.item = 1\ntest.base0 = 1\ntest.invert = 0\ntest.both = 0\n");
    std::string strErr = service.Stderr();
    EXPECT_NE(strErr.find("skip [test.encrypt] [1]"), std::string::npos);
    EXPECT_NE(strErr.find("skip [test.reboot] [2]"), std::string::npos);
    EXPECT_NE(strErr.find("skip [test.encreboot] [3]"), std::string::npos);
    EXPECT_NE(strErr.find("Ignore the special config [test.ignored]"), std::string::npos);
    EXPECT_NE(Read("/config/t.ini").find("encrypt = secret"), std::string::npos) << "the document keeps every key";
    EXPECT_EQ(Msg({"reg-get", "/config/t.ini", "S", "invert"}).strOut, "7\n");
    EXPECT_EQ(Msg({"reg-get", "/config/t.ini", "S", "nothere"}).nExit, 2);
}

TEST_F(RegistrySaveTest, UnmappedKeysChangeNothingAndUploadStaysAlone)
{
    SetSwitches(1, 0);
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    EXPECT_EQ(Msg({"send", "configServer", "0xd0001"}).strOut, "1\n") << "due since start";
    std::string strBefore = Read("/config/mac-local.cfg");
    EXPECT_EQ(Msg({"reg-set", "/config/u.ini", "S", "k", "v", "--now"}).nExit, 0);
    ASSERT_TRUE(service.Ping());
    EXPECT_NE(service.Stderr().find("getname faile, name:[] /config/u.ini, S, k"), std::string::npos);
    EXPECT_EQ(Read("/config/mac-local.cfg"), strBefore);
    EXPECT_FALSE(Exists("/config/mac-local.cfg.bak")) << "no write, so no backup either";
    EXPECT_EQ(Msg({"send", "configServer", "0xd0001"}).strOut, "0\n") << "not due";
    EXPECT_NE(Read("/config/u.ini").find("k = v"), std::string::npos);
}

TEST_F(RegistrySaveTest, BurstIsSavedOnceInOrderOfFirstReport)
{
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    auto tFirst = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i)
        ASSERT_EQ(RegSet("/config/a.ini", "S", "k", "a" + std::to_string(i), false), 1);
    ASSERT_EQ(RegSet("/config/b.ini", "S", "k", "b", false), 1);
    ASSERT_EQ(RegSet("/config/a.ini", "S", "k", "last", false), 1);
    ASSERT_TRUE(testutil::WaitForText(Real("/config/a.ini"), "k = last", 5000));
    auto nWaited = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - tFirst);
    EXPECT_GE(nWaited.count(), 500) << "never before the period is over";
    ASSERT_TRUE(testutil::WaitForText(Real("/config/b.ini"), "k = b", 5000));
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    ASSERT_TRUE(service.Ping());
    std::string strErr = service.Stderr();
    std::string strA = "getname faile, name:[] /config/a.ini, S, k";
    std::string strB = "getname faile, name:[] /config/b.ini, S, k";
    EXPECT_EQ(Count(strErr, strA), 1u) << "one save for the whole burst";
    EXPECT_EQ(Count(strErr, strB), 1u);
    EXPECT_LT(strErr.find(strA), strErr.find(strB)) << "saved in the order of first report";

    // Save-now while the document waits: saved at once, and again by the timer.
    ASSERT_EQ(RegSet("/config/a.ini", "S", "k", "deferred", false), 1);
    ASSERT_EQ(RegSet("/config/a.ini", "S", "k", "now", true), 1);
    ASSERT_TRUE(service.Ping());
    EXPECT_EQ(Count(service.Stderr(), strA), 2u);
    ASSERT_TRUE(testutil::WaitForText(service.Process().StderrPath(), strA + "\n" , 100));
    for (int i = 0; i < 200 && Count(service.Stderr(), strA) < 3; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(Count(service.Stderr(), strA), 3u);
}

TEST_F(RegistrySaveTest, PendingDocumentsAreNotSavedAtQuit)
{
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    ASSERT_EQ(RegSet("/config/pending.ini", "S", "k", "v", false), 1);
    EXPECT_EQ(service.Quit(0), 0);
    EXPECT_FALSE(Exists("/config/pending.ini"));
}

TEST_F(RegistrySaveTest, FloodOfChangesLosesNothing)
{
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    const int kDocs = 100, kRounds = 100;
    std::string strBig(10000, 'x');
    for (int r = 0; r < kRounds; ++r) {
        for (int d = 0; d < kDocs; ++d) {
            std::string strFile = "/config/many/doc" + std::to_string(d) + ".ini";
            ASSERT_EQ(RegSet(strFile.c_str(), "S", "k", "r" + std::to_string(r), false), 1);
        }
    }
    ASSERT_EQ(RegSet("/config/many/doc0.ini", "S\x01odd", "k\xff", strBig, false), 1);
    ASSERT_TRUE(testutil::WaitForText(Real("/config/mac-local.cfg"), "doc99.key = r99", 10000));
    ASSERT_TRUE(service.Ping());
    std::string strUser = Read("/config/mac-local.cfg");
    for (int d = 0; d < kDocs; ++d) {
        EXPECT_NE(strUser.find("doc" + std::to_string(d) + ".key = r99\n"), std::string::npos) << d;
        EXPECT_NE(Read("/config/many/doc" + std::to_string(d) + ".ini").find("k = r99"), std::string::npos) << d;
    }
    EXPECT_NE(Read("/config/many/doc0.ini").find(strBig), std::string::npos);
}
