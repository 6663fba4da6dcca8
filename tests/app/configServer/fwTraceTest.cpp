// The service trace: level filter, line limit, system-log copy, and the file copies.
#include "ServiceFixture.h"
#include "fwTrace.h"

#include <syslog.h>
#include <utility>
#include <vector>

namespace {

std::vector<std::pair<int, std::string>> g_vecSyslog;

void CaptureSyslog(int nPriority, const char* szText)
{
    g_vecSyslog.emplace_back(nPriority, szText);
}

class FwTraceTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        for (const char* szDir : {"/log/x", "/tmp/x", "/config/x"})
            testutil::MakeParents(Real(szDir));
        g_vecSyslog.clear();
        m_pOldWriter = fwTraceSetSyslogWriter(CaptureSyslog);
        fwTraceSetOutput("/log/trace.txt", 5);
    }
    void TearDown() override
    {
        fwTraceSetOutput(nullptr, 5);
        fwTraceSetSyslogWriter(m_pOldWriter);
        ServiceRootTest::TearDown();
    }
    std::string TraceText() const { return Read("/log/trace.txt"); }
    fwSyslogWriter m_pOldWriter = nullptr;
};

} // namespace

TEST_F(FwTraceTest, LevelFilterSyslogPrioritiesAndLineLimit)
{
    fwTracePrint(6, "dropped line\n");
    fwTracePrint(5, "five|");
    fwTracePrint(0, "zero|");
    fwTracePrint(2, "two|");
    fwTracePrint(3, "war[%-16s:%-4d]x\n", "a.cpp", 7);
    EXPECT_EQ(TraceText(), "five|zero|two|war[a.cpp           :7   ]x\n") << "the sink adds nothing";
    std::vector<std::pair<int, std::string>> vecExpected = {
        {LOG_DEBUG, "five|"}, {LOG_DEBUG, "zero|"}, {LOG_ERR, "two|"}, {LOG_WARNING, "war[a.cpp           :7   ]x\n"}};
    EXPECT_EQ(g_vecSyslog, vecExpected);
    fwTraceSetOutput("/log/trace.txt", 2);
    fwTracePrint(3, "now dropped");
    EXPECT_EQ(g_vecSyslog.size(), 4u) << "a lower sink level drops more";

    g_vecSyslog.clear();
    fwTracePrint(2, "%s", std::string(2000, 'y').c_str());
    fwTracePrint(2, "value [%s]", "100%");
    ASSERT_EQ(g_vecSyslog.size(), 2u);
    EXPECT_EQ(g_vecSyslog[0].second, std::string(1021, 'y'));
    EXPECT_EQ(g_vecSyslog[1].second, "value [100%]");
}

TEST_F(FwTraceTest, FileCopies)
{
    EXPECT_EQ(fwSaveFirmwareTrace(), -1);
    EXPECT_EQ(TraceText().substr(0, 4), "ifo[");
    EXPECT_NE(TraceText().find("Firmware trace [/tmp/Messages] not exist !\n"), std::string::npos);
    Write("/tmp/Messages", "kernel: boot\n");
    EXPECT_EQ(fwSaveFirmwareTrace(), 0);
    EXPECT_EQ(Read("/config/upgrade.log"), "kernel: boot\n");
    std::string strMiB = testutil::ItemText(60000, "more than a mebibyte in all");
    Write("/tmp/big", strMiB);
    EXPECT_EQ(fwCopyFile("/tmp/big", "/tmp/big.copy"), 0);
    // A missing source leaves the target alone.
    EXPECT_EQ(fwCopyFile("/tmp/missing", "/tmp/big.copy"), -1);
    EXPECT_EQ(Read("/tmp/big.copy"), strMiB);
    EXPECT_NE(TraceText().find("Source file [/tmp/missing] can't open! \n\n"), std::string::npos);
    EXPECT_EQ(fwCopyFile("/tmp/big", "/nodir/target"), -1);
    EXPECT_NE(TraceText().find("Target file [/nodir/target] can't open!"), std::string::npos);
}
