// The real configServer under a temporary root, driven with etlmsg: banners, bad input, a second
// instance and the quit status.
#include "ProcessHarness.h"

#include <gtest/gtest.h>

using testutil::Service;
using testutil::TempDir;

TEST(ServiceProcess, BannersBadDatagramsUnknownIdsASecondInstanceAndQuit)
{
    TempDir root;
    Service service(root.Path());
    ASSERT_TRUE(service.Started());
    // Raw datagrams: too short, and a header whose extra size is not what follows it.
    std::string strHeader = std::string("ETLM\x01\x00\x00\x00\x01\x00\x0d\x00", 12) + std::string(12, '\0') +
                            std::string("\x10\x00\x00\x00", 4) + std::string(4, '\0') + "short";
    for (const std::string& strBytes : {std::string("XXXX"), strHeader})
        EXPECT_TRUE(testutil::SendRaw(root.Join("/tmp/msgq/configServer"), strBytes));
    testutil::ToolResult unknown = testutil::Etlmsg(root.Path(), {"send", "configServer", "0xd0002"});
    EXPECT_EQ(unknown.nExit, 0);
    EXPECT_EQ(unknown.strOut, "0\n") << "not handled by the service nor by the base";
    EXPECT_TRUE(service.Ping());
    std::string strErr = service.Stderr();
    EXPECT_NE(strErr.find("dropped a malformed datagram of 4 bytes: short datagram"), std::string::npos) << strErr;
    EXPECT_NE(strErr.find("extra size does not match"), std::string::npos) << strErr;

    testutil::ToolResult second = testutil::RunTool({testutil::ConfigServerBin()}, root.Path(), 10000);
    EXPECT_EQ(second.nExit, 1);
    EXPECT_NE(second.strErr.find("thread [configServer] is already registered by process"), std::string::npos)
        << second.strErr;
    EXPECT_TRUE(service.Ping()) << "the first is unharmed";
    EXPECT_EQ(service.Quit(7), 7);
    strErr = service.Stderr();
    EXPECT_NE(strErr.find("configServer version = 1.0.0.1 build at "), std::string::npos) << strErr;
    EXPECT_NE(strErr.find("]configServer version = 1.0.1.1 build at "), std::string::npos) << strErr;
    EXPECT_NE(strErr.find("war["), std::string::npos);
    EXPECT_FALSE(testutil::FileExists(root.Join("/tmp/msgq/configServer"))) << "unregistered at exit";
}
