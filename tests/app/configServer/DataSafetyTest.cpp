// What the user configured survives kills, readers and failed writes, and no request or signal
// leaves the service stuck: tests with the real programs.
#include "ServiceFixture.h"

#include <algorithm>
#include <filesystem>
#include <fcntl.h>
#include <random>
#include <regex>
#include <set>
#include <sys/stat.h>

using testutil::Service;

namespace {

const char kUser[] = "/config/mac-local.cfg";

class DataSafetyTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        // The writers' root lies in memory where the machine has it: a kill or a reader sees the
        // same files there, and syncs to a disk shared with other jobs would take most of the run.
        char szMem[] = "/dev/shm/cfgtest-XXXXXX";
        m_strMem = mkdtemp(szMem) != nullptr ? szMem : m_root.Join("mem");
        for (const std::string& strRoot : {m_root.Path(), m_strMem}) {
            testutil::WriteFile(strRoot + "/config/ForceSync.cfg", "");
            testutil::MakeParents(strRoot + "/tmp/x");
        }
    }
    void TearDown() override
    {
        std::error_code ec;
        (void)std::filesystem::remove_all(m_strMem, ec);
        ServiceRootTest::TearDown();
    }
    std::string MemRead(const std::string& strLogical) const { return testutil::ReadFile(m_strMem + strLogical); }
    // The version a complete file of that base holds; -1 for any other text (empty, cut, mixed).
    static long VersionOf(const std::string& strText, const std::string& strBase)
    {
        static const std::regex reTail("version = ([0-9]+)\n");
        std::smatch match;
        bool bWhole = strText.compare(0, strBase.size(), strBase) == 0 &&
                      std::regex_match(strText.begin() + std::min(strBase.size(), strText.size()), strText.end(), match, reTail);
        return bWhole ? std::stol(match[1]) : -1;
    }
    // Temporaries left beside the user file (a killed writer cannot remove its own).
    size_t Temps() const
    {
        std::filesystem::directory_iterator dir(m_strMem + "/config");
        return static_cast<size_t>(std::count_if(begin(dir), end(dir), [](const auto& entry) {
            std::string strName = entry.path().filename();
            return strName.rfind("mac-local.cfg.", 0) == 0 && strName != "mac-local.cfg.bak";
        }));
    }
    testutil::TempDir m_out;
    std::string m_strMem;
};

} // namespace

TEST_F(DataSafetyTest, ReadersAndKilledRewritesSeeWholeFilesThatTheServiceLoads)
{
    const long kItems = 100000;
    const int kKills = testutil::SlowBuild() ? 20 : 200;
    const std::string strBase = testutil::ItemText(kItems, "value");
    testutil::WriteFile(m_strMem + kUser, strBase + "version = 0\n");
    unsigned int nSeed = std::random_device()();
    std::string strGo = m_out.Join("go");
    ASSERT_EQ(mkfifo(strGo.c_str(), 0600), 0);
    testutil::Child writers;
    ASSERT_TRUE(writers.Start({CFG_REWRITE_LOOP_BIN, std::to_string(kItems), "1", strGo, std::to_string(nSeed)},
                              m_strMem, m_out.Path()));
    int fdGo = open(strGo.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(fdGo, 0);
    std::set<long> setSeen;
    for (int k = 0; k < kKills; ++k) {
        ASSERT_EQ(write(fdGo, "k", 1), 1);
        // A reader polling while the writer runs sees whole files only.
        std::string strKilled = "killed " + std::to_string(k) + "\n";
        ASSERT_TRUE(testutil::WaitUntil([&] {
            EXPECT_GE(VersionOf(MemRead(kUser), strBase), 0) << "read during rewrite " << k;
            return testutil::ReadFile(writers.StdoutPath()).find(strKilled) != std::string::npos;
        }, 30000));
        for (std::string strFile : {std::string(kUser), std::string(kUser) + ".bak"}) {
            long nVersion = VersionOf(MemRead(strFile), strBase);
            EXPECT_GE(nVersion, 0) << strFile << " after kill " << k << ", seed " << nSeed;
            setSeen.insert(nVersion);
        }
        // At most the killed writer's own temporaries: the next rewrite removes those of earlier kills.
        EXPECT_LE(Temps(), 2u) << "after kill " << k;
        // The service started on the file holds exactly its items (its export equals it). Starting
        // it after each kill would take most of the run: every 50th and the last.
        if (k % 50 == 49 || k + 1 == kKills) {
            Service service(m_strMem);
            ASSERT_TRUE(service.Started()) << service.Stderr();
            std::string strExport = ExportedTable(m_strMem);
            EXPECT_TRUE(strExport == MemRead(kUser)) << "export of " << strExport.size() << " bytes";
            EXPECT_EQ(service.Quit(0), 0);
        }
    }
    (void)close(fdGo);
    EXPECT_EQ(writers.Wait(10000), 0);
    EXPECT_GT(setSeen.size(), 2u) << "the files changed";
    printf("%d kills, %zu distinct versions seen (seed %u)\n", kKills, setSeen.size(), nSeed);
}

TEST_F(DataSafetyTest, PathsThatAreNotRegularFilesNeverBlock)
{
    SetSwitches(1, 1); // request 3 then reads the delivered file itself
    Write(kUser, "#!version:1.0.0.1\ntest.plain = user\n");
    Write("/config/x.ini", "[S]\nplain = 1\n");
    Write("/tmp/ok.cfg", "test.plain = ok\n");
    const char* const kFifos[] = {"/tmp/fifo.cfg", "/config/data/linekey.xml", "/phone/factory/x.ini"};
    for (const char* szFifo : kFifos) {
        testutil::MakeParents(Real(szFifo));
        ASSERT_EQ(mkfifo(Real(szFifo).c_str(), 0600), 0);
    }
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    auto Post = [&](std::vector<std::string> vecArgs) {
        vecArgs.insert(vecArgs.begin(), {"post", "configServer"});
        EXPECT_EQ(Msg(vecArgs).nExit, 0);
        EXPECT_TRUE(service.Ping(1000)) << "stuck after " << vecArgs[2] << " lparam " << vecArgs[4];
    };
    // Every reload mode and both exports, at the FIFO.
    const std::pair<const char*, int> kLastLparam[] = {{"0xd0003", 3}, {"0xd0006", 1}};
    for (const auto& request : kLastLparam) {
        for (int nLparam = 0; nLparam <= request.second; ++nLparam)
            Post({request.first, "0", std::to_string(nLparam), "--text", "/tmp/fifo.cfg"});
    }
    Post({"0xd0006", "0", "1"});
    // From here the user file itself is a FIFO: its ".bak" copy and its rewrite meet it.
    ASSERT_EQ(unlink(Real(kUser).c_str()), 0);
    ASSERT_EQ(mkfifo(Real(kUser).c_str(), 0600), 0);
    Post({"0xd0003", "0", "1", "--text", "/tmp/ok.cfg"});
    Post({"0xd0008", "0", "0", "--hex", "01"});
    std::string strErr = service.Stderr();
    EXPECT_NE(strErr.find("open [/tmp/fifo.cfg] failed."), std::string::npos) << "an export target is refused";
    EXPECT_NE(strErr.find("open [/config/mac-local.cfg] failed."), std::string::npos) << strErr;
    struct stat st;
    ASSERT_EQ(stat(Real("/tmp/fifo.cfg").c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "not replaced";
    // The last request's line has no line end; it reaches the output all the same.
    std::string strOut = service.Stdout(), strLast = "Load failed:[/config/data/linekey.xml]";
    EXPECT_TRUE(strOut.size() > strLast.size() && strOut.compare(strOut.size() - strLast.size(), strLast.size(), strLast) == 0)
        << strOut;
}
