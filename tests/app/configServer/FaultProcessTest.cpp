// Faults, load and access, with the real program: writes that fail, processes killed in the
// middle of a rewrite, a flood of messages from several processes, and who may talk to it.
#include "ETL_MsgQueueHelper.h"
#include "ServiceFixture.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sys/wait.h>
#include <thread>

using testutil::Service;
using testutil::ServiceOptions;

namespace {

class FaultTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        Write("/config/ForceSync.cfg", "");
    }
    static long RssAnonKb(pid_t pid)
    {
        std::string strStatus = testutil::ReadFile("/proc/" + std::to_string(pid) + "/status");
        size_t nPos = strStatus.find("RssAnon:");
        return nPos == std::string::npos ? -1 : std::atol(strStatus.c_str() + nPos + 8);
    }
};

} // namespace

TEST_F(FaultTest, SizeLimitFailsWritesOtherUsersCannotPostPathsStayInsideTheRoot)
{
    std::string strBefore = "#!version:1.0.0.1\ntest.plain = before\n";
    Write("/config/mac-local.cfg", strBefore);
    ServiceOptions options;
    options.nFileSizeLimit = 4096; // the service's own trace file must still have room
    Service service(m_root.Path(), options);
    ASSERT_TRUE(service.Started()) << service.Stderr();
    // Only the owner may enter the folder of the sockets: another user cannot post.
    struct stat st;
    ASSERT_EQ(stat(Real("/tmp/msgq").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    std::string strEmulator;
    for (const std::string& strWord : testutil::EmulatorPrefix())
        strEmulator += strWord + " ";
    std::string strCmd = "ETL_ROOT='" + m_root.Path() + "' setpriv --reuid=nobody --regid=nogroup --clear-groups " +
                         strEmulator + "'" + testutil::EtlmsgBin() + "' post configServer 0xd0001 >/dev/null 2>&1";
    int nStatus = system(strCmd.c_str());
    EXPECT_TRUE(WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 2) << "status " << nStatus;
    // ".." in a message's path never leaves the root (the export is small enough for the limit).
    std::string strOutside = "/tmp/cfg-outside-" + std::to_string(getpid()) + ".cfg";
    EXPECT_EQ(Msg({"send", "configServer", "0xd0006", "0", "0", "--text", "/../../.." + strOutside}).strOut, "1\n");
    EXPECT_FALSE(testutil::FileExists(strOutside));
    EXPECT_TRUE(Exists(strOutside)) << "written below the root instead";
    (void)remove(strOutside.c_str());

    Write("/tmp/big.cfg", testutil::ItemText(200, "a value long enough to pass the limit"));
    EXPECT_EQ(Msg({"send", "configServer", "0xd0003", "0", "1", "--text", "/tmp/big.cfg"}).strOut, "1\n");
    EXPECT_TRUE(service.Ping()) << "a write past the limit fails; it does not kill the service";
    EXPECT_NE(service.Stderr().find("can't write buff["), std::string::npos) << service.Stderr();
    EXPECT_EQ(Read("/config/mac-local.cfg.bak"), strBefore) << "the previous content was kept first";
    EXPECT_EQ(Read("/config/mac-local.cfg"), strBefore) << "a failed rewrite leaves the file as it was";
    std::filesystem::directory_iterator dir(Real("/config"));
    auto IsOwn = [](const auto& entry) { return entry.path().filename() != "ForceSync.cfg"; };
    EXPECT_EQ(std::count_if(begin(dir), end(dir), IsOwn), 2) << "the file and its \".bak\": no temporary is left";
    // The registry's own files fail whole: the old document stays as it was.
    Write("/config/reg.ini", "[S]\nk = old\n");
    EXPECT_EQ(Msg({"reg-set", "/config/reg.ini", "S", "k", std::string(10000, 'v'), "--now"}).nExit, 0);
    ASSERT_TRUE(service.Ping());
    EXPECT_EQ(Read("/config/reg.ini"), "[S]\nk = old\n");
    EXPECT_NE(service.Stderr().find("registry: cannot write \"/config/reg.ini\""), std::string::npos);
    EXPECT_EQ(service.Quit(0), 0);
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
    auto Doc = [](int d) { return "/config/many/doc" + std::to_string(d) + ".ini"; };
    for (int d = 0; d < 100; ++d)
        ASSERT_EQ(Msg({"reg-set", Doc(d), "S", "k0", "warm"}).nExit, 0);
    EXPECT_EQ(Msg({"send", "configServer", "0xd0003", "0", "0", "--text", "/tmp/small.cfg"}).strOut, "1\n");
    for (int d = 0; d < 100; ++d)
        ASSERT_TRUE(testutil::WaitForText(Real(Doc(d)), "k0 = warm", 20000)) << d;
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
                bool bReload = i % kReloadEvery == 0;
                uint32_t nId = bReload ? 0xd0003u : static_cast<uint32_t>(ETL_MsgQueueHelper::MSG_PLATFORM_REG_SET);
                std::string strPayload = bReload ? "/tmp/small.cfg" + std::string(1, '\0')
                                                 : RegSetPayload(Doc(i % 100), "S", "k" + std::to_string(s),
                                                                 "s" + std::to_string(s) + "v" + std::to_string(i));
                nFailed += ETL_MsgQueueHelper::msgPostMsgToThreadEx(hService, nId, 0, 0, static_cast<int>(strPayload.size()),
                                                                    strPayload.data()) != 0;
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
    // Every sender's last value of every document, once the last deferred save has run.
    for (int d = 0; d < 100; ++d) {
        if (d % kReloadEvery == 0)
            continue; // every post of this document's turn was a reload
        for (int s = 0; s < kSenders; ++s) {
            int nLast = kPerSender - 100 + d; // the last turn of this document
            std::string strLine = "k" + std::to_string(s) + " = s" + std::to_string(s) + "v" + std::to_string(nLast) + "\n";
            EXPECT_TRUE(testutil::WaitForText(Real(Doc(d)), strLine, 20000)) << "doc " << d << ": " << strLine;
        }
    }
    size_t nReloads = kSenders * kPerSender / kReloadEvery + 1; // and the one of the warm-up
    std::string strUpgrade = "id=0xb0209 wparam=0 lparam=0 size=24 data=\"/tmp/mac-locl-autop.cfg\\0\"\n";
    EXPECT_TRUE(testutil::WaitUntil([&] { return testutil::CountOf(listener.Lines(), strUpgrade) >= nReloads; }, 20000));
    // What the flood leaves must come within 1 MiB of the idle figure once the heap is given back
    // after a burst; bursts of cheap posts give the service that chance however the flood ended.
    // Under AddressSanitizer the figure is the sanitizer's, under an emulator the emulator's.
    long nAllowedKb = !testutil::EmulatorPrefix().empty() ? 64 * 1024 : testutil::SlowBuild() ? 1024 * 1024 : 1024;
    long nAfterRss = 0;
    auto hService = ETL_MsgQueueHelper::msgGetThreadByName("configServer");
    EXPECT_TRUE(testutil::WaitUntil([&] {
        for (int i = 0; i < 200; ++i)
            (void)ETL_MsgQueueHelper::msgPostMsgToThread(hService, 0xd0002, 0, 0);
        nAfterRss = service.Ping() ? RssAnonKb(service.Process().Pid()) : -1;
        return nAfterRss >= 0 && nAfterRss <= nIdleRss + nAllowedKb;
    }, 30000)) << "RssAnon " << nIdleRss << " KiB idle, " << nAfterRss << " KiB after";
    EXPECT_EQ(testutil::CountOf(listener.Finish(), strUpgrade), nReloads) << "one 0xb0209 per reload";
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
    auto Run = [&](const std::vector<std::string>& vecReadOnly, const std::vector<std::string>& vecMsg) {
        ServiceOptions options;
        options.vecReadOnly = vecReadOnly;
        Service service(m_root.Path(), options);
        EXPECT_TRUE(service.Started()) << service.Stderr();
        EXPECT_EQ(Msg(vecMsg).strOut, "1\n");
        EXPECT_TRUE(service.Ping());
        std::string strErr = service.Stderr();
        EXPECT_EQ(service.Quit(0), 0);
        return strErr;
    };
    // The user file's folder read-only: no ".bak", no rewrite, the file as it was; an export
    // target that cannot be written.
    const std::vector<std::string> vecReload = {"send", "configServer", "0xd0003", "0", "1", "--text", "/tmp/d.cfg"};
    std::string strErr = Run({"/config", "/ro"}, vecReload);
    strErr += Run({"/ro"}, {"send", "configServer", "0xd0006", "0", "0", "--text", "/ro/x.cfg"});
    EXPECT_NE(strErr.find("Target file [/config/mac-local.cfg.bak] can't open!"), std::string::npos) << strErr;
    EXPECT_NE(strErr.find("open [/config/mac-local.cfg] failed."), std::string::npos);
    EXPECT_NE(strErr.find("open [/ro/x.cfg] failed."), std::string::npos);
    EXPECT_EQ(Read("/config/mac-local.cfg"), strBefore);
    EXPECT_FALSE(Exists("/config/mac-local.cfg.bak"));
    // Only ".bak" read-only: the failed backup does not stop the rewrite.
    Write("/config/mac-local.cfg.bak", "old backup\n");
    strErr = Run({"/config/mac-local.cfg.bak"}, vecReload);
    EXPECT_NE(strErr.find("Target file [/config/mac-local.cfg.bak] can't open!"), std::string::npos);
    EXPECT_EQ(Read("/config/mac-local.cfg.bak"), "old backup\n");
    EXPECT_EQ(Read("/config/mac-local.cfg"), "#!version:1.0.0.1\ntest.plain = after\n");
    // "/tmp" read-only: the copies there fail, the messages still go, clearing still answers.
    strErr = Run({"/tmp"}, {"send", "configServer", "0xd0004"});
    EXPECT_NE(strErr.find("open [/tmp/mac-locl-reset.cfg] failed."), std::string::npos) << strErr;
    EXPECT_EQ(Read("/config/mac-local.cfg"), "#!version:1.0.0.1\n");
    std::string strLines = listener.Finish();
    EXPECT_NE(strLines.find("data=\"/tmp/mac-locl-reset.cfg\\0\""), std::string::npos) << strLines;
    EXPECT_NE(strLines.find("id=0xb020a wparam=1"), std::string::npos);
}
