// The inspection commands against the running service: items, stats and journal, their limits,
// and the usage errors of etlmsg.
#include "ServiceFixture.h"

#include <algorithm>
#include <sstream>

using testutil::Service;

namespace {

class InspectTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        Write("/config/ForceSync.cfg", "");
        // Enough items that the whole table does not fit in one reply.
        std::string strFile = "#!version:1.0.0.1\ntest.plain = user\ntest.other = %NULL%\n";
        for (int i = 0; i < kBigItems; ++i)
            strFile += "big.item" + std::to_string(i) + " = " + std::string(30, 'v') + "\n";
        Write("/config/mac-local.cfg", strFile);
    }
    // The journal's lines without their times.
    std::vector<std::string> Journal(const std::vector<std::string>& vecOptions)
    {
        std::vector<std::string> vecArgs{"journal", "configServer"};
        vecArgs.insert(vecArgs.end(), vecOptions.begin(), vecOptions.end());
        testutil::ToolResult result = Msg(vecArgs);
        EXPECT_EQ(result.nExit, 0) << result.strErr;
        std::vector<std::string> vecLines;
        std::istringstream lines(result.strOut);
        for (std::string strLine; std::getline(lines, strLine);)
            vecLines.push_back(strLine.substr(strLine.find(' ') + 1));
        return vecLines;
    }
    static constexpr int kBigItems = 2500;
};

} // namespace

TEST_F(InspectTest, ListingsStatsAndJournalFollowTheChangesWithinTheirBounds)
{
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    testutil::ToolResult all = Msg({"items", "configServer"});
    ASSERT_EQ(all.nExit, 0);
    EXPECT_LE(all.strOut.size(), 65536u);
    size_t nLines = static_cast<size_t>(std::count(all.strOut.begin(), all.strOut.end(), '\n'));
    size_t nMarker = all.strOut.rfind("# truncated: ");
    ASSERT_NE(nMarker, std::string::npos);
    int nLeft = std::atoi(all.strOut.c_str() + nMarker + 13);
    EXPECT_EQ(all.strOut.substr(all.strOut.size() - 22), " more items not shown\n");
    EXPECT_EQ(static_cast<int>(nLines) - 1 + nLeft, kBigItems + 2) << "every item is listed or counted";

    // Counts the service refuses by the size of its journal (bad words are the tool's own: EtlmsgTest).
    for (const char* szCount : {"0", "257"}) {
        testutil::ToolResult bad = Msg({"journal", "configServer", "--count", szCount});
        EXPECT_EQ(bad.nExit, 1) << szCount;
        EXPECT_NE(bad.strErr.find("--count takes 1 to 256"), std::string::npos) << bad.strErr;
        EXPECT_EQ(bad.strOut, "");
    }
    EXPECT_EQ(Msg({"journal", "configServer", "--count", "256"}).nExit, 0);

    EXPECT_EQ(Msg({"items", "configServer", "test."}).strOut, "test.plain = user\ntest.other = %NULL%\n");

    ASSERT_EQ(Msg({"reg-set", "/config/t.ini", "S", "plain", "changed", "--now"}).nExit, 0);
    Write("/tmp/d.cfg", "test.other = o\ntest.plain = changed\n");
    ASSERT_EQ(Msg({"send", "configServer", "0xd0003", "0", "1", "--text", "/tmp/d.cfg"}).strOut, "1\n");
    EXPECT_EQ(Msg({"items", "configServer", "test."}).strOut, "test.plain = changed\ntest.other = o\n");

    EXPECT_EQ(Journal({"--item", "test.plain"}),
              (std::vector<std::string>{"* - -> (2502 items) start-up load",
                                        "test.plain \"user\" -> \"changed\" registry /config/t.ini [S] plain"}))
        << "the reload set the same value again: no entry";
    EXPECT_EQ(Journal({"--count", "1"}),
              std::vector<std::string>{"test.other \"%NULL%\" -> \"o\" reload mode 1 /tmp/d.cfg"});

    // One datagram too short for a header: dropped and counted.
    EXPECT_TRUE(testutil::SendRaw(Real("/tmp/msgq/configServer"), "XXXX"));
    ASSERT_TRUE(service.Ping());
    std::string strStats = Msg({"stats", "configServer"}).strOut;
    for (const char* szLine : {"\nuserfile.rewrites 2\n", "\nregistry.saves 1\n", "\nitems 2502\n",
                               "\nhandled.0x7f000003.reg-set 1\n", "\nhandled.0xd0003.CONFIG_MSG_RELOAD_USER_CFG 1\n",
                               "\ndropped.malformed 1\n", "\njournal.size 256\n"})
        EXPECT_NE(strStats.find(szLine), std::string::npos) << szLine << " in\n" << strStats;
    EXPECT_EQ(strStats.compare(0, 7, "uptime "), 0) << strStats;
    EXPECT_NE(strStats.find("\nrss_anon_kib "), std::string::npos);

    ASSERT_EQ(Msg({"send", "configServer", "0xd0004"}).strOut, "1\n");
    EXPECT_EQ(Journal({"--item", "test.other", "--count", "1"}),
              std::vector<std::string>{"* (2502 items) -> - clear request"});
    EXPECT_EQ(Msg({"items", "configServer"}).strOut, "");
    EXPECT_EQ(service.Quit(0), 0);
}

