// The configuration file writer: lines, skips, order, the ".bak" step and the all-null mode.
#include "ConfigServer.h"
#include "M7Store.h"
#include "ServiceFixture.h"

namespace {

class ConfigWriterTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        ClearM7Model();
        m_server.m_strUserCfgPath = "/config/user-local.cfg";
        testutil::MakeParents(Real("/config/x"));
        testutil::MakeParents(Real("/tmp/x"));
    }
    void TearDown() override
    {
        ClearM7Model();
        ServiceRootTest::TearDown();
    }
    CConfigServer m_server;
};

} // namespace

TEST_F(ConfigWriterTest, LinesSkipsAndOrder)
{
    SetM7Item("z.first", "1", 0);
    SetM7Item("a.second", "", 0);
    SetM7Item("m.enc", "secret", 0x1);
    SetM7Item("m.reboot", "r", 0x2);
    SetM7Item("m.both", "b", 0x3);
    SetM7Item("m.enc801", "x", 0x801);
    SetM7Item("v.lf", "ends\n", 0);
    SetM7Item("v.cr", "cr\r", 0);
    SetM7Item("z.first", "replaced", 0);
    m7ModelChanged = 1;
    ::testing::internal::CaptureStdout();
    m_server.SaveUserConfig(nullptr, 0);
    std::string strOut = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(Read("/config/user-local.cfg"),
              "#!version:1.0.0.1\nz.first = replaced\na.second = %NULL%\nv.lf = ends\nv.cr = cr\r\n");
    EXPECT_EQ(strOut, "skip: m.enc [ATTR_ENCRYPT]\nskip: m.reboot [ATTR_REBOOT]\nskip: m.both [ATTR_REBOOT]\n"
                      "skip: m.enc801 [ATTR_ENCRYPT]\n");
    EXPECT_EQ(m7ModelChanged, 0);

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(m_server.ExportCustomConfig(nullptr), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "") << "the export passes skipped items silently";
    EXPECT_EQ(Read("/tmp/_custom_config.cfg"), Read("/config/user-local.cfg"));
    EXPECT_EQ(m_server.ExportCustomConfig("/nodir/x.cfg"), 0);

    ClearM7Model();
    m_server.SaveUserConfig(nullptr, 0);
    EXPECT_EQ(Read("/config/user-local.cfg"), "#!version:1.0.0.1\n") << "an empty table: the header only";
}

TEST_F(ConfigWriterTest, BackupRestoreAndAllNull)
{
    Write("/config/user-local.cfg", "#!version:1.0.0.1\nold = 1\n");
    SetM7Item("n.one", "abc", 0);
    SetM7Item("n.reboot", "r", 0x2);
    m_server.SaveUserConfig(nullptr, 0);
    EXPECT_EQ(Read("/config/user-local.cfg.bak"), "#!version:1.0.0.1\nold = 1\n");
    EXPECT_EQ(Read("/config/user-local.cfg"), "#!version:1.0.0.1\nn.one = abc\n");

    // Another target in all-null mode still refreshes ".bak", and leaves the user file alone.
    m_server.SaveUserConfig("/tmp/reset.cfg", 1);
    EXPECT_EQ(Read("/tmp/reset.cfg"), "#!version:1.0.0.1\nn.one = %NULL%\n");
    EXPECT_EQ(Read("/config/user-local.cfg.bak"), "#!version:1.0.0.1\nn.one = abc\n");
    EXPECT_EQ(Read("/config/user-local.cfg"), "#!version:1.0.0.1\nn.one = abc\n");

    // A missing user file comes back from ".bak" first.
    ASSERT_EQ(std::remove(Real("/config/user-local.cfg").c_str()), 0);
    m_server.SaveUserConfig("/tmp/other.cfg", 0);
    EXPECT_EQ(Read("/config/user-local.cfg"), "#!version:1.0.0.1\nn.one = abc\n");

    // A target that cannot be opened keeps the changed flag for the next try.
    m7ModelChanged = 1;
    m_server.SaveUserConfig("/missing/dir/x.cfg", 0);
    EXPECT_EQ(m7ModelChanged, 1);
}
