// The real configServer under a temporary root, driven with etlmsg.
#include "ProcessHarness.h"

#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using testutil::Etlmsg;
using testutil::Service;
using testutil::TempDir;

namespace {

bool SendRawDatagram(const std::string& strSocket, const std::string& strBytes)
{
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, strSocket.c_str(), sizeof(addr.sun_path) - 1);
    bool bOk = sendto(fd, strBytes.data(), strBytes.size(), 0, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) ==
               static_cast<ssize_t>(strBytes.size());
    close(fd);
    return bOk;
}

} // namespace

TEST(ServiceProcess, BannersPingAndQuitStatus)
{
    TempDir root;
    Service service(root.Path());
    ASSERT_TRUE(service.Started()) << service.Stderr();
    EXPECT_EQ(service.Quit(7), 7);
    std::string strErr = service.Stderr();
    EXPECT_NE(strErr.find("configServer version = 1.0.0.1 build at "), std::string::npos) << strErr;
    EXPECT_NE(strErr.find("]configServer version = 1.0.1.1 build at "), std::string::npos) << strErr;
    EXPECT_NE(strErr.find("war["), std::string::npos);
    EXPECT_FALSE(testutil::FileExists(root.Join("/tmp/msgq/configServer"))) << "unregistered at exit";
}

TEST(ServiceProcess, SigtermEndsWithStatusZero)
{
    TempDir root;
    Service service(root.Path());
    ASSERT_TRUE(service.Started());
    service.Process().Signal(SIGTERM);
    EXPECT_EQ(service.Process().Wait(10000), 0);
}

TEST(ServiceProcess, BadDatagramsAndUnknownIdsLeaveItAnswering)
{
    TempDir root;
    Service service(root.Path());
    ASSERT_TRUE(service.Started());
    std::string strSocket = root.Join("/tmp/msgq/configServer");
    ASSERT_TRUE(SendRawDatagram(strSocket, "XXXX"));
    std::string strHeader("ETLM\x01\x00\x00\x00\x01\x00\x0d\x00", 12);
    strHeader += std::string(12, '\0');
    strHeader += std::string("\x10\x00\x00\x00", 4); // claims 16 extra bytes
    strHeader += std::string(4, '\0');
    ASSERT_TRUE(SendRawDatagram(strSocket, strHeader + "short"));

    testutil::ToolResult unknown = Etlmsg(root.Path(), {"send", "configServer", "0xd0002"});
    EXPECT_EQ(unknown.nExit, 0);
    EXPECT_EQ(unknown.strOut, "0\n") << "not handled by the service nor by the base";
    EXPECT_TRUE(service.Ping());
    std::string strErr = service.Stderr();
    EXPECT_NE(strErr.find("dropped a malformed datagram of 4 bytes: short datagram"), std::string::npos) << strErr;
    EXPECT_NE(strErr.find("extra size does not match"), std::string::npos) << strErr;
    EXPECT_EQ(service.Quit(0), 0);
}

TEST(ServiceProcess, SecondInstanceEndsWithStatusOne)
{
    TempDir root;
    Service first(root.Path());
    ASSERT_TRUE(first.Started());
    testutil::ToolResult second = testutil::RunTool({testutil::ConfigServerBin()}, root.Path(), 10000);
    EXPECT_EQ(second.nExit, 1);
    EXPECT_NE(second.strErr.find("thread [configServer] is already registered by process"), std::string::npos)
        << second.strErr;
    EXPECT_TRUE(first.Ping()) << "the first is unharmed";
    EXPECT_EQ(first.Quit(0), 0);
}
