// Faults, load and access, with the real program: writes that fail, processes killed in the
// middle of a rewrite, a flood of messages from several processes, and who may talk to it.
#include "ETL_MsgQueueHelper.h"
#include "ServiceFixture.h"

#include <csignal>
#include <sys/wait.h>
#include <thread>

using testutil::Service;
using testutil::ServiceOptions;

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CFG_TEST_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(CFG_TEST_SANITIZED)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

class FaultTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        Write("/config/ForceSync.cfg", "");
        testutil::MakeParents(Real("/tmp/x"));
    }
    static long RssAnonKb(pid_t pid)
    {
        std::string strStatus = testutil::ReadFile("/proc/" + std::to_string(pid) + "/status");
        size_t nPos = strStatus.find("RssAnon:");
        return nPos == std::string::npos ? -1 : std::atol(strStatus.c_str() + nPos + 8);
    }

    static std::string ItemLines(int nItems, const std::string& strValue)
    {
        std::string strText = "#!version:1.0.0.1\n";
        for (int i = 0; i < nItems; ++i)
            strText += "item." + std::to_string(i) + " = " + strValue + "\n";
        return strText;
    }
};

} // namespace

TEST_F(FaultTest, FileSizeLimitFailsWritesButNotTheService)
{
    std::string strBefore = "#!version:1.0.0.1\ntest.plain = before\n";
    Write("/config/mac-local.cfg", strBefore);
    ServiceOptions options;
    options.nFileSizeLimit = 4096; // the service's own trace file must still have room
    Service service(m_root.Path(), options);
    ASSERT_TRUE(service.Started()) << service.Stderr();
    Write("/tmp/big.cfg", ItemLines(200, "a value long enough to pass the limit"));
    EXPECT_EQ(Msg({"send", "configServer", "0xd0003", "0", "1", "--text", "/tmp/big.cfg"}).strOut, "1\n");
    EXPECT_TRUE(service.Ping()) << "a write past the limit fails; it does not kill the service";
    EXPECT_NE(service.Stderr().find("can't write buff["), std::string::npos) << service.Stderr();
    EXPECT_EQ(Read("/config/mac-local.cfg.bak"), strBefore) << "the previous content was kept first";
    EXPECT_EQ(Read("/config/mac-local.cfg"), strBefore) << "a failed rewrite leaves the file as it was";
    // The registry's own files fail whole: the old document stays as it was.
    Write("/config/reg.ini", "[S]\nk = old\n");
    EXPECT_EQ(Msg({"reg-set", "/config/reg.ini", "S", "k", std::string(10000, 'v'), "--now"}).nExit, 0);
    ASSERT_TRUE(service.Ping());
    EXPECT_EQ(Read("/config/reg.ini"), "[S]\nk = old\n");
    EXPECT_NE(service.Stderr().find("registry: cannot write \"/config/reg.ini\""), std::string::npos);
    EXPECT_EQ(service.Quit(0), 0);
}

TEST_F(FaultTest, KilledWhileSavingARegistryDocument)
{
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    std::string strBig(60000, 'x');
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(Msg({"reg-set", "/config/big.ini", "S" + std::to_string(i), "k", strBig}).nExit, 0);
    // Saves of the 1.2 MB document one after another, and a kill in the middle of them.
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(Msg({"post", "configServer", "0x9001", "1", "2"}).nExit, 0);
    EXPECT_EQ(Msg({"reg-set", "/config/big.ini", "Last", "k", "v", "--now"}).nExit, 0);
    service.Process().Signal(SIGKILL);
    service.Process().Wait(5000);
    // The document is replaced safely: absent, or complete with every section it had.
    if (Exists("/config/big.ini")) {
        std::string strDoc = Read("/config/big.ini");
        for (int i = 0; i < 20; ++i)
            EXPECT_NE(strDoc.find("[S" + std::to_string(i) + "]\nk = " + strBig), std::string::npos) << i;
    }
}

TEST_F(FaultTest, FloodFromFourProcessesLosesNothing)
{
    Write("/config/mac-local.cfg", "#!version:1.0.0.1\n");
    AutoServerListener listener(m_root.Path());
    ASSERT_TRUE(listener.Ready());
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    Write("/tmp/small.cfg", "test.plain = small\n");
    // The idle figure is taken once the documents and files the flood uses exist in the service
    // (they are state it keeps), so that what is compared is what the flood itself leaves behind.
    for (int d = 0; d < 100; ++d)
        ASSERT_EQ(Msg({"reg-set", "/config/many/doc" + std::to_string(d) + ".ini", "S", "k0", "warm"}).nExit, 0);
    EXPECT_EQ(Msg({"send", "configServer", "0xd0003", "0", "0", "--text", "/tmp/small.cfg"}).strOut, "1\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    ASSERT_TRUE(service.Ping());
    long nIdleRss = RssAnonKb(service.Process().Pid());
    const int kSenders = 4, kPerSender = 2500, kReloadEvery = 50;
    std::vector<pid_t> vecPids;
    for (int s = 0; s < kSenders; ++s) {
        pid_t pid = fork();
        if (pid == 0) {
            ETL_MsgQueueHelper::msgThread hService = ETL_MsgQueueHelper::msgGetThreadByName("configServer");
            int nFailed = 0;
            for (int i = 0; i < kPerSender; ++i) {
                int nResult;
                if (i % kReloadEvery == 0) {
                    const char szPath[] = "/tmp/small.cfg";
                    nResult = ETL_MsgQueueHelper::msgPostMsgToThreadEx(hService, 0xd0003, 0, 0, sizeof(szPath), szPath);
                } else {
                    std::string strFile = "/config/many/doc" + std::to_string(i % 100) + ".ini";
                    std::string strValue = "s" + std::to_string(s) + "v" + std::to_string(i);
                    std::string strPayload = strFile + '\0' + "S" + '\0' + "k" + std::to_string(s) + '\0' + strValue + '\0';
                    nResult = ETL_MsgQueueHelper::msgPostMsgToThreadEx(hService, ETL_MsgQueueHelper::MSG_PLATFORM_REG_SET,
                                                                       0, 0, static_cast<int>(strPayload.size()),
                                                                       strPayload.data());
                }
                nFailed += nResult != 0 ? 1 : 0;
            }
            _exit(nFailed > 0 ? 1 : 0);
        }
        vecPids.push_back(pid);
    }
    for (pid_t pid : vecPids) {
        int nStatus = 0;
        waitpid(pid, &nStatus, 0);
        EXPECT_TRUE(WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0) << "a post failed";
    }
    ASSERT_TRUE(service.Ping(30000));
    int nReloads = kSenders * kPerSender / kReloadEvery + 1; // and the one of the warm-up
    std::string strUpgrade = "id=0xb0209 wparam=0 lparam=0 size=24 data=\"/tmp/mac-locl-autop.cfg\\0\"\n";
    ASSERT_TRUE(listener.WaitFor(strUpgrade, 10000));
    for (int i = 0; i < 100 && [&] {
             std::string strLines = listener.Lines();
             size_t n = 0;
             for (size_t p = strLines.find(strUpgrade); p != std::string::npos; p = strLines.find(strUpgrade, p + 1))
                 ++n;
             return n < static_cast<size_t>(nReloads);
         }();
         ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    long nAfterRss = RssAnonKb(service.Process().Pid());
    // What the flood leaves must stay within 1 MiB of the idle figure. Under AddressSanitizer
    // the figure is the sanitizer's (quarantine, shadow), under an emulator the emulator's.
    if (!kSanitized && testutil::EmulatorPrefix().empty()) {
        EXPECT_LE(nAfterRss, nIdleRss + 1024) << "RssAnon " << nIdleRss << " KiB idle, " << nAfterRss << " KiB after";
    }
    printf("RssAnon %ld KiB idle, %ld KiB after the flood\n", nIdleRss, nAfterRss);
    std::string strLines = listener.Finish();
    size_t nUpgrades = 0;
    for (size_t p = strLines.find(strUpgrade); p != std::string::npos; p = strLines.find(strUpgrade, p + 1))
        ++nUpgrades;
    EXPECT_EQ(nUpgrades, static_cast<size_t>(nReloads)) << "one 0xb0209 per reload";
    // The last value each sender set for its key of every document is in that document, once
    // the last deferred save has run.
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    ASSERT_TRUE(service.Ping());
    for (int d = 0; d < 100; ++d) {
        std::string strDoc = Read("/config/many/doc" + std::to_string(d) + ".ini");
        for (int s = 0; s < kSenders; ++s) {
            int nLast = -1;
            for (int i = 0; i < kPerSender; ++i) {
                if (i % kReloadEvery != 0 && i % 100 == d)
                    nLast = i;
            }
            if (nLast < 0)
                continue;
            EXPECT_NE(strDoc.find("k" + std::to_string(s) + " = s" + std::to_string(s) + "v" + std::to_string(nLast)),
                      std::string::npos)
                << "doc " << d << " sender " << s;
        }
    }
}

TEST_F(FaultTest, OtherUsersCannotPostAndPathsStayInsideTheRoot)
{
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    struct stat st;
    ASSERT_EQ(stat(Real("/tmp/msgq").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    if (system("command -v setpriv >/dev/null && id nobody >/dev/null 2>&1") == 0) {
        // Another user cannot reach the folder of the sockets.
        std::string strEmulator;
        for (const std::string& strWord : testutil::EmulatorPrefix())
            strEmulator += strWord + " ";
        std::string strCmd = "ETL_ROOT='" + m_root.Path() + "' setpriv --reuid=nobody --regid=nogroup --clear-groups " +
                             strEmulator + "'" + testutil::EtlmsgBin() + "' post configServer 0xd0001 >/dev/null 2>&1";
        int nStatus = system(strCmd.c_str());
        EXPECT_TRUE(WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 2) << "status " << nStatus;
    }
    // ".." in a message's path never leaves the root.
    std::string strOutside = "/tmp/cfg-outside-" + std::to_string(getpid()) + ".cfg";
    EXPECT_EQ(Msg({"send", "configServer", "0xd0006", "0", "0", "--text", "/../../.." + strOutside}).strOut, "1\n");
    EXPECT_FALSE(testutil::FileExists(strOutside));
    EXPECT_TRUE(Exists(strOutside)) << "written below the root instead";
    (void)remove(strOutside.c_str());
}

TEST_F(FaultTest, ReadOnlyFoldersFailWritesWithTheirTraces)
{
    if (!testutil::MountNamespacesAvailable())
        GTEST_SKIP() << "mount namespaces (unshare -m with read-only bind mounts) are not available here";
    std::string strBefore = "#!version:1.0.0.1\ntest.plain = before\n";
    Write("/config/mac-local.cfg", strBefore);
    Write("/tmp/d.cfg", "test.plain = after\n");
    testutil::MakeParents(Real("/ro/x"));
    AutoServerListener listener(m_root.Path());
    ASSERT_TRUE(listener.Ready());
    {
        // The user file's folder read-only: no ".bak", no rewrite, the file as it was.
        ServiceOptions options;
        options.vecReadOnly = {"/config", "/ro"};
        Service service(m_root.Path(), options);
        ASSERT_TRUE(service.Started()) << service.Stderr();
        EXPECT_EQ(Msg({"send", "configServer", "0xd0003", "0", "1", "--text", "/tmp/d.cfg"}).strOut, "1\n");
        EXPECT_EQ(Msg({"send", "configServer", "0xd0006", "0", "0", "--text", "/ro/x.cfg"}).strOut, "1\n");
        ASSERT_TRUE(service.Ping());
        std::string strErr = service.Stderr();
        EXPECT_NE(strErr.find("Target file [/config/mac-local.cfg.bak] can't open!"), std::string::npos) << strErr;
        EXPECT_NE(strErr.find("open [/config/mac-local.cfg] failed."), std::string::npos);
        EXPECT_NE(strErr.find("open [/ro/x.cfg] failed."), std::string::npos) << "an export target that cannot be written";
        EXPECT_EQ(Read("/config/mac-local.cfg"), strBefore);
        EXPECT_FALSE(Exists("/config/mac-local.cfg.bak"));
        EXPECT_EQ(service.Quit(0), 0);
    }
    {
        // Only ".bak" read-only: the failed backup does not stop the rewrite.
        Write("/config/mac-local.cfg.bak", "old backup\n");
        ServiceOptions options;
        options.vecReadOnly = {"/config/mac-local.cfg.bak"};
        Service service(m_root.Path(), options);
        ASSERT_TRUE(service.Started()) << service.Stderr();
        EXPECT_EQ(Msg({"send", "configServer", "0xd0003", "0", "1", "--text", "/tmp/d.cfg"}).strOut, "1\n");
        EXPECT_NE(service.Stderr().find("Target file [/config/mac-local.cfg.bak] can't open!"), std::string::npos);
        EXPECT_EQ(Read("/config/mac-local.cfg.bak"), "old backup\n");
        EXPECT_EQ(Read("/config/mac-local.cfg"), "#!version:1.0.0.1\ntest.plain = after\n");
        EXPECT_EQ(service.Quit(0), 0);
    }
    {
        // "/tmp" read-only: the copies there fail, the messages still go, clearing still answers.
        ServiceOptions options;
        options.vecReadOnly = {"/tmp"};
        Service service(m_root.Path(), options);
        ASSERT_TRUE(service.Started()) << service.Stderr();
        EXPECT_EQ(Msg({"send", "configServer", "0xd0004"}).strOut, "1\n");
        std::string strErr = service.Stderr();
        EXPECT_NE(strErr.find("open [/tmp/mac-locl-reset.cfg] failed."), std::string::npos) << strErr;
        EXPECT_EQ(Read("/config/mac-local.cfg"), "#!version:1.0.0.1\n");
        EXPECT_EQ(service.Quit(0), 0);
    }
    std::string strLines = listener.Finish();
    EXPECT_NE(strLines.find("data=\"/tmp/mac-locl-reset.cfg\\0\""), std::string::npos) << strLines;
    EXPECT_NE(strLines.find("id=0xb020a wparam=1"), std::string::npos);
}
