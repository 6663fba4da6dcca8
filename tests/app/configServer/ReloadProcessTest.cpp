// Reload of user configuration, the upload request and clearing, with the real program and an
// "autoServer" listener.
#include "ServiceFixture.h"

using testutil::Service;
using testutil::ServiceOptions;

namespace {

class ReloadTest : public ServiceRootTest {
protected:
    void SetUp() override
    {
        ServiceRootTest::SetUp();
        Write("/config/ForceSync.cfg", "");
        Write("/config/mac-local.cfg", "#!version:1.0.0.1\ntest.plain = user\n");
    }
    std::string Reload(int nLparam, const std::string& strPath)
    {
        std::vector<std::string> vecArgs{"send", "configServer", "0xd0003", "5", std::to_string(nLparam)};
        if (!strPath.empty())
            vecArgs.insert(vecArgs.end(), {"--text", strPath});
        return Msg(vecArgs).strOut;
    }
    std::string Send(const std::string& strId, const std::vector<std::string>& vecMore = {})
    {
        std::vector<std::string> vecArgs{"send", "configServer", strId};
        vecArgs.insert(vecArgs.end(), vecMore.begin(), vecMore.end());
        return Msg(vecArgs).strOut;
    }
};

const char kUpgradeLocal[] = "id=0xb0209 wparam=0 lparam=0 size=24 data=\"/tmp/mac-locl-autop.cfg\\0\"\n";
const char kUploadRequest[] = "id=0xb020a wparam=0 lparam=0 size=0 data=\"\"\n";

} // namespace

TEST_F(ReloadTest, Lparam0MergesWritesCopiesUploadsAndHandsBackLparam1Inverts)
{
    SetSwitches(1, 0);
    AutoServerListener listener(m_root.Path());
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    std::string strDelivered = "#!version:1.0.0.1\ntest.plain = delivered\ntest.invert = 1\nnew.item = n\n";
    Write("/tmp/delivered.cfg", strDelivered);
    EXPECT_EQ(Reload(0, "/tmp/delivered.cfg"), "1\n");
    EXPECT_EQ(Read("/config/mac-local.cfg"), strDelivered);
    EXPECT_EQ(Read("/tmp/mac-locl-autop.cfg"), strDelivered);
    EXPECT_EQ(listener.Finish(), std::string(kUploadRequest) + kUpgradeLocal) << "the upload request comes first";
    EXPECT_NE(service.Stdout().find("CConfigServer::OnReloadUserConfig:0, /tmp/delivered.cfg\n"), std::string::npos);
    EXPECT_NE(service.Stderr().find("OnReloadUserConfig[5][0][/tmp/delivered.cfg]"), std::string::npos);

    // lparam 1: inverted, copied, and nothing posted.
    AutoServerListener second(m_root.Path());
    Write("/tmp/inverted.cfg", "test.invert = 1\ntest.both = 0\n");
    EXPECT_EQ(Reload(1, "/tmp/inverted.cfg"), "1\n");
    EXPECT_EQ(Read("/config/mac-local.cfg"), "#!version:1.0.0.1\ntest.plain = delivered\ntest.invert = 0\nnew.item = n\n"
                                             "test.both = 1\n");
    EXPECT_EQ(Read("/tmp/mac-locl-autop.cfg"), "test.invert = 1\ntest.both = 0\n");
    EXPECT_EQ(second.Finish(), "");
}

TEST_F(ReloadTest, Lparam2MovesToTheMacNamedFile)
{
    Write("/etc/device/mac", "0a1b2c3d4e5f\n");
    AutoServerListener listener(m_root.Path());
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    // Without the MAC-named file: not handled.
    EXPECT_EQ(Reload(2, ""), "0\n");
    EXPECT_NE(service.Stderr().find("not found:[0a1b2c3d4e5f-local.cfg]"), std::string::npos);

    Write("/config/0a1b2c3d4e5f-local.cfg", "#!version:1.0.0.1\ntest.plain = mac\ntest.invert = 0\n");
    EXPECT_EQ(Reload(2, ""), "1\n");
    EXPECT_NE(service.Stdout().find("change User Config Path = /config/0a1b2c3d4e5f-local.cfg\n"), std::string::npos);
    EXPECT_EQ(Read("/config/0a1b2c3d4e5f-local.cfg"), "#!version:1.0.0.1\ntest.plain = user\ntest.invert = 1\n")
        << "items already held win; new ones are inverted";
    EXPECT_EQ(listener.Finish(), kUploadRequest);
}

// Bad deliveries change nothing and post nothing; exports; then lparam 3, which hands the text
// back with or without protection.
TEST_F(ReloadTest, BadDeliveriesExportsAndLparam3HandsBackWithOrWithoutProtection)
{
    AutoServerListener listener(m_root.Path());
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    std::string strUser = Read("/config/mac-local.cfg");
    Write("/tmp/binary.cfg", "PK\x03\x04 zip archive \xff\xfe\x01 data and more");
    EXPECT_EQ(Reload(0, "/tmp/binary.cfg"), "0\n") << "non-text: refused before anything else";
    EXPECT_EQ(Reload(0, "/tmp/missing.cfg"), "1\n");
    EXPECT_NE(service.Stderr().find("failed to reload user config."), std::string::npos);
    testutil::MakeParents(Real("/tmp/adir/x"));
    EXPECT_EQ(Reload(0, "/tmp/adir"), "1\n");
    // Not terminated, and a size that stops inside the text.
    EXPECT_EQ(Send("0xd0003", {"0", "0", "--hex", "2f746d702f6d697373"}), "1\n");
    EXPECT_EQ(Send("0xd0003", {"0", "0", "--text", ""}), "1\n");
    EXPECT_EQ(Send("0xd0003", {"0", "0", "--text", std::string(5000, 'p')}), "1\n");
    EXPECT_EQ(Read("/config/mac-local.cfg"), strUser);

    // Export requests: an unknown kind writes nothing; without a path the default ones.
    EXPECT_EQ(Send("0xd0006", {"9", "2", "--text", "/tmp/never.cfg"}), "1\n");
    EXPECT_FALSE(Exists("/tmp/never.cfg"));
    EXPECT_NE(service.Stderr().find("CConfigServer::OnExportCfg:/tmp/never.cfg, wparam:9,lparam:2"), std::string::npos);
    EXPECT_NE(service.Stderr().find("Export done!"), std::string::npos);
    EXPECT_EQ(Send("0xd0006", {"0", "0"}), "1\n");
    EXPECT_EQ(Read("/tmp/_custom_config.cfg"), "#!version:1.0.0.1\ntest.plain = user\n");
    EXPECT_EQ(Send("0xd0006", {"0", "1"}), "1\n");
    EXPECT_EQ(Read("/tmp/all_config.cfg").substr(0, 18), "#!version:1.0.0.1\n");

    // lparam 3.
    Write("/tmp/full.cfg", "test.plain = provisioned\nother = x\n");
    SetSwitches(1, 0);
    EXPECT_EQ(Reload(3, "/tmp/full.cfg"), "1\n");
    EXPECT_TRUE(Exists("/tmp/full.cfg"));
    EXPECT_EQ(Read("/config/mac-local.cfg"), strUser) << "the model is not touched";

    SetSwitches(1, 1);
    EXPECT_EQ(Reload(3, "/tmp/full.cfg"), "1\n");
    EXPECT_FALSE(Exists("/tmp/full.cfg")) << "the delivered file is gone";
    EXPECT_EQ(Read("/tmp/mac-all-autop.cfg"), "#!version:1.0.0.1\n\ntest.plain=user\nother=x\n");
    EXPECT_NE(service.Stdout().find("conflict: test.plain = [provisioned]->[user]\n"), std::string::npos);
    EXPECT_EQ(Reload(3, ""), "1\n") << "without a path: the user file itself, which is kept";
    EXPECT_EQ(Read("/config/mac-local.cfg"), strUser);
    EXPECT_NE(service.Stderr().find("kept [/config/mac-local.cfg]"), std::string::npos) << service.Stderr();
    SetSwitches(1, 2);
    Write("/tmp/full2.cfg", "a = b\n");
    EXPECT_EQ(Reload(3, "/tmp/full2.cfg"), "1\n");
    EXPECT_EQ(listener.Finish(), "id=0xb0209 wparam=0 lparam=0 size=14 data=\"/tmp/full.cfg\\0\"\n"
                                 "id=0xb0209 wparam=0 lparam=0 size=23 data=\"/tmp/mac-all-autop.cfg\\0\"\n"
                                 "id=0xb0209 wparam=0 lparam=0 size=23 data=\"/tmp/mac-all-autop.cfg\\0\"\n"
                                 "id=0xb0209 wparam=0 lparam=0 size=15 data=\"/tmp/full2.cfg\\0\"\n")
        << "protection only when the switch is exactly 1; nothing for the bad deliveries";
}

TEST_F(ReloadTest, ClearWritesResetListEmptiesAndRepliesThenUploadRequestRules)
{
    Write("/config/mac-local.cfg", "#!version:1.0.0.1\ntest.plain = abc\ntest.other = \n");
    AutoServerListener listener(m_root.Path());
    Service service(m_root.Path());
    ASSERT_TRUE(service.Started());
    SetSwitches(0, 0);
    EXPECT_EQ(Send("0xd0004"), "1\n") << "sent whatever the switches say";
    EXPECT_EQ(Read("/tmp/mac-locl-reset.cfg"), "#!version:1.0.0.1\ntest.plain = %NULL%\ntest.other = %NULL%\n");
    EXPECT_EQ(Read("/config/mac-local.cfg"), "#!version:1.0.0.1\n");
    EXPECT_NE(service.Stderr().find("Receive Clear User Config Message."), std::string::npos);

    EXPECT_EQ(Send("0xd0001"), "0\n") << "switch off: not handled";
    SetSwitches(1, 0);
    EXPECT_EQ(Send("0xd0001"), "1\n") << "due since start";
    EXPECT_EQ(Send("0xd0001"), "0\n") << "not due any more";
    Write("/tmp/d.cfg", "test.plain = changed\n");
    EXPECT_EQ(Reload(1, "/tmp/d.cfg"), "1\n");
    EXPECT_EQ(Send("0xd0001"), "1\n");
    EXPECT_EQ(Send("0xd0001"), "0\n") << "two checks after one change: one request";
    EXPECT_EQ(Reload(1, "/tmp/d.cfg"), "1\n");
    ASSERT_EQ(std::remove(Real("/config/mac-local.cfg").c_str()), 0);
    EXPECT_EQ(Send("0xd0001"), "1\n");
    EXPECT_NE(service.Stderr().find("Not backup config file! [/config/mac-local.cfg]"), std::string::npos);
    EXPECT_EQ(listener.Finish(), "id=0xb0209 wparam=0 lparam=0 size=24 data=\"/tmp/mac-locl-reset.cfg\\0\"\n"
                                 "id=0xb020a wparam=1 lparam=0 size=0 data=\"\"\n" +
                                     std::string(kUploadRequest) + kUploadRequest);
}

TEST_F(ReloadTest, UploadTimerChecksPeriodically)
{
    SetSwitches(1, 0);
    AutoServerListener listener(m_root.Path());
    ServiceOptions options;
    options.bFastUpload = true;
    Service service(m_root.Path(), options);
    ASSERT_TRUE(service.Started());
    EXPECT_TRUE(listener.WaitFor(kUploadRequest, 5000)) << "the timer sends the request due since start";
    Write("/tmp/d.cfg", "test.plain = again\n");
    EXPECT_EQ(Reload(1, "/tmp/d.cfg"), "1\n");
    EXPECT_TRUE(listener.WaitFor(std::string(kUploadRequest) + kUploadRequest, 5000));
}
