// Start-up of the real program: how the user configuration file is named and loaded (hardware
// address, device library, ForceSync, legacy file), and the section watches.
#include "ServiceFixture.h"

#include <csignal>

using testutil::CountOf;
using testutil::Service;
using testutil::ServiceOptions;

namespace {

class StartUpTest : public ServiceRootTest {
protected:
    // In a network namespace of its own: esw0 with this address, or no interface for "".
    static ServiceOptions Options(const std::string& strMac)
    {
        ServiceOptions options;
        options.strHwMac = strMac;
        options.bNoInterface = strMac.empty();
        return options;
    }
};

#define REQUIRE_NAMESPACES()                                                                                        \
    if (!testutil::NamespacesAvailable())                                                                           \
    GTEST_SKIP() << "network namespaces (unshare -n with a veth interface) are not available here"

} // namespace

TEST_F(StartUpTest, WithoutAddressTheDeviceLibraryDecides)
{
    REQUIRE_NAMESPACES();
    std::string strLine = "Invalid MAC Address... sleep 1s\n";
    // Missing or empty: one try, then an empty name.
    for (const char* szMac : {"<missing>", ""}) {
        if (std::string(szMac) != "<missing>")
            Write("/etc/device/mac", szMac);
        Service service(m_root.Path(), Options(""));
        ASSERT_TRUE(service.Started()) << service.Stderr();
        EXPECT_EQ(CountOf(service.Stderr(), strLine), 1u) << szMac;
        EXPECT_NE(service.Stderr().find("User Config Path = -local.cfg\n"), std::string::npos) << service.Stderr();
        EXPECT_EQ(service.Quit(0), 0);
    }
    // All zero: it keeps asking the library (Readiness sees the address arrive); a stop ends the
    // wait at once, and nothing is migrated to the all-zero name.
    Write("/etc/device/mac", "000000000000\n");
    Write("mac-local.cfg", "#!version:1.0.0.1\ntest.plain = legacy\n");
    Write("/config/000000000000-local.cfg", "#!version:1.0.0.1\n");
    ServiceOptions options = Options("");
    options.bWaitReady = false;
    Service service(m_root.Path(), options);
    ASSERT_TRUE(testutil::WaitUntil([&] { return CountOf(service.Stderr(), strLine) >= 2; }, 20000)) << service.Stderr();
    service.Process().Signal(SIGTERM);
    EXPECT_EQ(service.Process().Wait(2000), 0) << service.Stderr();
    EXPECT_TRUE(Exists("mac-local.cfg")) << "the legacy file is not migrated";
    EXPECT_EQ(service.Stderr().find("User Config Path"), std::string::npos) << service.Stderr();
}

// The hardware address names the MAC file, in lowercase.
TEST_F(StartUpTest, LegacyFileIsLoadedAloneOrMergedWinning)
{
    REQUIRE_NAMESPACES();
    testutil::TempDir cwd;
    testutil::WriteFile(cwd.Join("mac-local.cfg"), "#!version:1.0.0.1\ntest.plain = legacy\n");
    ServiceOptions options = Options("0A:1B:2C:3D:4E:5F");
    options.strCwd = cwd.Path();
    {
        Service service(m_root.Path(), options);
        ASSERT_TRUE(service.Started()) << service.Stderr();
        EXPECT_NE(service.Stdout().find("find:[mac-local.cfg]\n"), std::string::npos);
        EXPECT_NE(ExportedTable().find("test.plain = legacy\n"), std::string::npos);
        EXPECT_EQ(service.Quit(0), 0);
        EXPECT_TRUE(testutil::FileExists(cwd.Join("mac-local.cfg"))) << "alone, it is kept";
    }
    testutil::WriteFile(cwd.Join("mac-local.cfg.bak"), "old backup\n");
    std::string strMacFile = "#!version:1.0.0.1\ntest.plain = mac file\ntest.other = only in mac file\n";
    Write("/config/0a1b2c3d4e5f-local.cfg", strMacFile);
    // ForceSync names the user file "mac-local.cfg", but the migrated file is still the MAC one.
    Write("/config/ForceSync.cfg", "");
    Service service(m_root.Path(), options);
    ASSERT_TRUE(service.Started()) << service.Stderr();
    std::string strTable = ExportedTable();
    EXPECT_NE(strTable.find("test.plain = legacy\n"), std::string::npos) << strTable;
    EXPECT_NE(strTable.find("test.other = only in mac file\n"), std::string::npos);
    EXPECT_NE(service.Stdout().find("find:[/config/0a1b2c3d4e5f-local.cfg]\n"), std::string::npos);
    EXPECT_EQ(service.Stderr().find("Invalid MAC Address"), std::string::npos);
    EXPECT_NE(service.Stdout().find("MergeLoadM7Model: skip repetition:[test.plain] \n"), std::string::npos);
    EXPECT_FALSE(testutil::FileExists(cwd.Join("mac-local.cfg")));
    EXPECT_FALSE(testutil::FileExists(cwd.Join("mac-local.cfg.bak")));
    EXPECT_EQ(Read("/config/0a1b2c3d4e5f-local.cfg"), strMacFile) << "left as it was until the next write";
}

TEST_F(StartUpTest, ForceSyncWithoutUserFileAndWatchedSectionsFirstActions)
{
    Write("/config/ForceSync.cfg", ""); // and no user file
    Write("/phone/resource/sectionMonitor.xml",
          "<regMonitor>\n"
          " <section file=\"/config/watch.ini\" section=\"Net\" action=\"First\"/>\n"
          " <note/>\n"
          " <section file=\"/config/watch.ini\" section=\"Net\" action=\"Second\" handle=\"0\"/>\n"
          " <section file=\"\" section=\"Net\" action=\"Unwatched\" handle=\"5\"/>\n"
          " <section file=\"/config/watch.ini\" section=\"Other\" action=\"Third\" handle=\"0\"/>\n"
          "</regMonitor>\n");
    Write("/boot/bin/autopTranslator.xml",
          "<translator>\n"
          " <method name=\"First\" thread=\"autoServer\" id=\"0xb0301\" text=\"first\"/>\n"
          " <method name=\"Second\" thread=\"autoServer\" id=\"0xb0302\"/>\n"
          " <method name=\"Third\" thread=\"autoServer\" id=\"0xb0303\" wparam=\"3\" lparam=\"-3\"/>\n"
          " <method name=\"Unwatched\" thread=\"autoServer\" id=\"0xb0304\"/>\n"
          "</translator>\n");
    AutoServerListener listener(m_root.Path());
    ASSERT_TRUE(listener.Ready());
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started()) << service.Stderr();
    EXPECT_EQ(Msg({"reg-set", "/config/watch.ini", "Net", "Mode", "1"}).nExit, 0);
    EXPECT_EQ(Msg({"reg-set", "/config/watch.ini", "Other", "Key", "2"}).nExit, 0);
    EXPECT_EQ(Msg({"reg-set", "/config/watch.ini", "Unlisted", "Key", "3"}).nExit, 0);
    ASSERT_TRUE(service.Ping());
    EXPECT_EQ(listener.Finish(), "id=0xb0301 wparam=0 lparam=0 size=6 data=\"first\\0\"\n"
                                 "id=0xb0303 wparam=3 lparam=-3 size=0 data=\"\"\n");
    std::string strErr = service.Stderr();
    EXPECT_EQ(CountOf(strErr, "sectionMonitor::OnSectionChanged  Begin\n"), 2u);
    EXPECT_NE(strErr.find("sectionMonitor::StartMonitor End\n"), std::string::npos);
    EXPECT_NE(strErr.find("User Config Path = mac-local.cfg\n"), std::string::npos);
    EXPECT_NE(strErr.find("failed to load previous user config.[/config/mac-local.cfg]"), std::string::npos);
    // The service runs with an empty user configuration and writes it where the name says.
    EXPECT_EQ(ExportedTable(), "#!version:1.0.0.1\n");
    EXPECT_EQ(Msg({"send", "configServer", "0xd0004"}).strOut, "1\n");
    EXPECT_EQ(Read("/config/mac-local.cfg"), "#!version:1.0.0.1\n");
}

TEST_F(StartUpTest, BrokenResourceFilesDoNotStopStartUp)
{
    Write("/config/ForceSync.cfg", "");
    Write("/phone/resource/sectionMonitor.xml", "<<< not xml");
    Write("/phone/resource/autopIgnroeM7.xml", "");
    Write("/boot/bin/autopTranslator.xml", "<other/>");
    testutil::MakeParents(Real("/config/mac-local.cfg/x")); // a directory where the user file belongs
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started()) << service.Stderr();
    std::string strErr = service.Stderr();
    EXPECT_NE(strErr.find("failed to load [/phone/resource/autopIgnroeM7.xml]."), std::string::npos);
    EXPECT_NE(strErr.find("failed to load config_translator[/boot/bin/autopTranslator.xml]."), std::string::npos);
    EXPECT_NE(strErr.find("failed to load previous user config.[/config/mac-local.cfg]"), std::string::npos);
    EXPECT_EQ(service.Quit(0), 0);
}
