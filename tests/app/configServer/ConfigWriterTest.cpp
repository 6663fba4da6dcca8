// The configuration file writer: lines, skips, order, the ".bak" step and the all-null mode.
#include "ServiceFixture.h"

#include <filesystem>
#include <iterator>

using ConfigWriterTest = ItemTableTest;

TEST_F(ConfigWriterTest, LinesSkipsOrderBackupAndAllNull)
{
    const std::pair<const char*, uint32_t> kItems[] = {{"z.first", 0},   {"a.second", 0}, {"m.enc", 0x1},
                                                       {"m.reboot", 0x2}, {"m.both", 0x3}, {"m.enc801", 0x801},
                                                       {"v.lf", 0},      {"v.cr", 0}};
    const char* const kValues[] = {"1", "", "secret", "r", "b", "x", "ends\n", "cr\r"};
    for (size_t i = 0; i < 8; ++i)
        SetM7Item(kItems[i].first, kValues[i], kItems[i].second);
    SetM7Item("z.first", "replaced", 0);
    m7ModelChanged = 1;
    EXPECT_EQ(Printed([&] { m_server.SaveUserConfig(nullptr, 0); }),
              "skip: m.enc [ATTR_ENCRYPT]\nskip: m.reboot [ATTR_REBOOT]\nskip: m.both [ATTR_REBOOT]\n"
              "skip: m.enc801 [ATTR_ENCRYPT]\n");
    EXPECT_EQ(Read("/config/user-local.cfg"),
              "#!version:1.0.0.1\nz.first = replaced\na.second = %NULL%\nv.lf = ends\nv.cr = cr\r\n");
    EXPECT_EQ(m7ModelChanged, 0);

    EXPECT_EQ(Printed([&] { EXPECT_EQ(m_server.ExportCustomConfig(nullptr), 1); }), "")
        << "the export passes skipped items silently";
    EXPECT_EQ(Read("/tmp/_custom_config.cfg"), Read("/config/user-local.cfg"));
    EXPECT_EQ(m_server.ExportCustomConfig("/nodir/x.cfg"), 0);

    // The ".bak" step and the all-null mode.
    ClearM7Model();
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

    // ".bak" and the file are one file now; the next rewrite parts them, and leaves no temporary.
    SetM7Item("n.two", "2", 0);
    m_server.SaveUserConfig(nullptr, 0);
    EXPECT_EQ(Read("/config/user-local.cfg.bak"), "#!version:1.0.0.1\nn.one = abc\n");
    EXPECT_EQ(Read("/config/user-local.cfg"), "#!version:1.0.0.1\nn.one = abc\nn.two = 2\n");
    std::filesystem::directory_iterator dir(Real("/config"));
    EXPECT_EQ(std::distance(begin(dir), end(dir)), 2);

    // A missing user file comes back from ".bak" first.
    ASSERT_EQ(std::remove(Real("/config/user-local.cfg").c_str()), 0);
    m_server.SaveUserConfig("/tmp/other.cfg", 0);
    EXPECT_EQ(Read("/config/user-local.cfg"), "#!version:1.0.0.1\nn.one = abc\n");

    // A target that cannot be opened keeps the changed flag for the next try.
    m7ModelChanged = 1;
    m_server.SaveUserConfig("/missing/dir/x.cfg", 0);
    EXPECT_EQ(m7ModelChanged, 1);
}
