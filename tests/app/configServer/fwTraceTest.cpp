// The service trace: level filter, line limit, system-log copy, and the file copies.
#include "fwTrace.h"
#include "ProcessHarness.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>
#include <utility>
#include <vector>

namespace {

std::vector<std::pair<int, std::string>> g_vecSyslog;

void CaptureSyslog(int nPriority, const char* szText)
{
    g_vecSyslog.emplace_back(nPriority, szText);
}

class FwTraceTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        setenv("ETL_ROOT", m_root.Path().c_str(), 1);
        testutil::MakeParents(m_root.Join("/log/x"));
        testutil::MakeParents(m_root.Join("/tmp/x"));
        testutil::MakeParents(m_root.Join("/config/x"));
        g_vecSyslog.clear();
        m_pOldWriter = fwTraceSetSyslogWriter(CaptureSyslog);
        fwTraceSetOutput("/log/trace.txt", 5);
    }

    void TearDown() override
    {
        fwTraceSetOutput(nullptr, 5);
        fwTraceSetSyslogWriter(m_pOldWriter);
        unsetenv("ETL_ROOT");
    }

    std::string TraceText() const { return testutil::ReadFile(m_root.Join("/log/trace.txt")); }

    testutil::TempDir m_root;
    fwSyslogWriter m_pOldWriter = nullptr;
};

} // namespace

TEST_F(FwTraceTest, LevelFilterAndSyslogPriorities)
{
    fwTracePrint(6, "dropped line\n");
    EXPECT_EQ(TraceText(), "");
    EXPECT_TRUE(g_vecSyslog.empty());

    fwTracePrint(5, "five|");
    fwTracePrint(0, "zero|");
    fwTracePrint(2, "two|");
    fwTracePrint(3, "war[%-16s:%-4d]x\n", "a.cpp", 7);
    EXPECT_EQ(TraceText(), "five|zero|two|war[a.cpp           :7   ]x\n") << "the sink adds nothing";
    ASSERT_EQ(g_vecSyslog.size(), 4u);
    EXPECT_EQ(g_vecSyslog[0].first, LOG_DEBUG);
    EXPECT_EQ(g_vecSyslog[1].first, LOG_DEBUG);
    EXPECT_EQ(g_vecSyslog[2].first, LOG_ERR);
    EXPECT_EQ(g_vecSyslog[3].first, LOG_WARNING);

    // A lower sink level drops more.
    fwTraceSetOutput("/log/trace.txt", 2);
    fwTracePrint(3, "now dropped");
    EXPECT_EQ(g_vecSyslog.size(), 4u);
}

TEST_F(FwTraceTest, LongLinesAreCutAndPercentReachesTheLogUnchanged)
{
    std::string strLong(2000, 'y');
    fwTracePrint(4, "%s", strLong.c_str());
    ASSERT_EQ(g_vecSyslog.size(), 1u);
    EXPECT_EQ(g_vecSyslog[0].second, std::string(1021, 'y'));
    EXPECT_EQ(TraceText(), std::string(1021, 'y'));

    fwTracePrint(4, "value [%s]", "100%");
    ASSERT_EQ(g_vecSyslog.size(), 2u);
    EXPECT_EQ(g_vecSyslog[1].second, "value [100%]");
}

TEST_F(FwTraceTest, CopyFileInBlocks)
{
    testutil::WriteFile(m_root.Join("/tmp/empty"), "");
    EXPECT_EQ(fwCopyFile("/tmp/empty", "/tmp/empty.copy"), 0);
    EXPECT_TRUE(testutil::FileExists(m_root.Join("/tmp/empty.copy")));
    EXPECT_EQ(testutil::ReadFile(m_root.Join("/tmp/empty.copy")), "");

    std::string strMiB;
    for (int i = 0; i < 1024 * 1024; ++i)
        strMiB += static_cast<char>('a' + i % 26);
    testutil::WriteFile(m_root.Join("/tmp/big"), strMiB);
    testutil::WriteFile(m_root.Join("/tmp/big.copy"), "old content that is replaced");
    EXPECT_EQ(fwCopyFile("/tmp/big", "/tmp/big.copy"), 0);
    EXPECT_EQ(testutil::ReadFile(m_root.Join("/tmp/big.copy")), strMiB);
    int nReads = 0, nWrites = 0;
    fwCopyFileLastCounts(&nReads, &nWrites);
    EXPECT_EQ(nReads, 3);
    EXPECT_EQ(nWrites, 2);

    // A missing source leaves the target alone.
    EXPECT_EQ(fwCopyFile("/tmp/missing", "/tmp/big.copy"), -1);
    EXPECT_EQ(testutil::ReadFile(m_root.Join("/tmp/big.copy")), strMiB);
    EXPECT_NE(TraceText().find("Source file [/tmp/missing] can't open! \n\n"), std::string::npos);
    EXPECT_EQ(fwCopyFile("/tmp/big", "/nodir/target"), -1);
    EXPECT_NE(TraceText().find("Target file [/nodir/target] can't open!"), std::string::npos);
    EXPECT_EQ(fwCopyFile(nullptr, "/tmp/x"), -1);
}

TEST_F(FwTraceTest, FirmwareTraceCopy)
{
    EXPECT_EQ(fwSaveFirmwareTrace(), -1);
    EXPECT_NE(TraceText().find("Firmware trace [/tmp/Messages] not exist !\n"), std::string::npos);
    EXPECT_EQ(TraceText().substr(0, 4), "ifo[");

    testutil::WriteFile(m_root.Join("/tmp/Messages"), "kernel: boot\n");
    EXPECT_EQ(fwSaveFirmwareTrace(), 0);
    EXPECT_EQ(testutil::ReadFile(m_root.Join("/config/upgrade.log")), "kernel: boot\n");
}
