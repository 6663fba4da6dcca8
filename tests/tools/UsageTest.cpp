// Command-line conventions of both programs (--help, --version, bad arguments), the readiness
// datagrams the service sends to the socket named by NOTIFY_SOCKET, and what it does with bad input.
#include "CfgVersion.h"
#include "ProcessHarness.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

using testutil::Etlmsg;
using testutil::TempDir;
using testutil::ToolResult;

namespace {

// A datagram socket standing in for the service manager; "@name" binds an abstract name.
struct CNotifyReceiver {
    explicit CNotifyReceiver(const std::string& strName)
    {
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::memcpy(addr.sun_path, strName.c_str(), strName.size());
        if (strName[0] == '@')
            addr.sun_path[0] = '\0';
        socklen_t nLen = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strName.size());
        bBound = bind(fd, reinterpret_cast<sockaddr*>(&addr), nLen) == 0;
    }
    ~CNotifyReceiver() { (void)close(fd); }
    // The next datagram, waiting at most nTimeoutMs (0: only one already there); "" when none.
    std::string Receive(int nTimeoutMs)
    {
        timeval tv{nTimeoutMs / 1000, (nTimeoutMs % 1000) * 1000};
        (void)setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
        char buf[256];
        ssize_t nGot = recv(fd, buf, sizeof(buf), nTimeoutMs == 0 ? MSG_DONTWAIT : 0);
        return nGot > 0 ? std::string(buf, static_cast<size_t>(nGot)) : std::string();
    }

    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    bool bBound = false;
};

} // namespace

TEST(Usage, HelpVersionAndBadArgumentsOfBothPrograms)
{
    struct Case {
        std::string strBin;
        std::vector<std::string> vecArgs;
        int nExit;
        bool bOnStdout;      // the text goes to stdout, nothing to stderr (else the reverse)
        std::string strText; // the text starts with this
    };
    const std::string strServer = testutil::ConfigServerBin(), strTool = testutil::EtlmsgBin();
    const Case cases[] = {
        {strTool, {"-h"}, 0, true, "usage: etlmsg post|send"},
        {strTool, {"--help"}, 0, true, "usage: etlmsg post|send"},
        {strTool, {"--version"}, 0, true, std::string("etlmsg ") + CFG_VERSION + "\n"},
        {strTool, {"--bogus"}, 1, false, "etlmsg: unknown option\nusage: etlmsg"},
        {strServer, {"-h"}, 0, true, "usage: configServer [-h|--help] [--version]\n"},
        {strServer, {"--help"}, 0, true, "usage: configServer [-h|--help] [--version]\n"},
        {strServer, {"--version"}, 0, true, std::string("configServer ") + CFG_VERSION + "\n"},
    };
    TempDir root;
    for (const Case& c : cases) {
        std::vector<std::string> vecArgs{c.strBin};
        vecArgs.insert(vecArgs.end(), c.vecArgs.begin(), c.vecArgs.end());
        ToolResult result = testutil::RunTool(vecArgs, root.Path());
        SCOPED_TRACE(c.strBin + " " + c.vecArgs[0]);
        EXPECT_EQ(result.nExit, c.nExit);
        const std::string& strText = c.bOnStdout ? result.strOut : result.strErr;
        EXPECT_EQ(strText.compare(0, c.strText.size(), c.strText), 0) << strText;
        EXPECT_EQ(c.bOnStdout ? result.strErr : result.strOut, "");
    }
    // None of them registered a thread or touched a file of the root.
    EXPECT_TRUE(std::filesystem::is_empty(root.Path()));
}

// Ready only once the loop answers: not while the start-up waits for a MAC address (in a
// network namespace without interfaces), then at once when the address appears.
TEST(Readiness, ReadyOnlyOnceAPingIsAnswered)
{
    if (!testutil::NamespacesAvailable())
        GTEST_SKIP() << "network namespaces are not available here";
    TempDir root;
    testutil::WriteFile(root.Join("/etc/device/mac"), "000000000000\n"); // all zero: keep waiting
    std::string strSocket = root.Join("notify.sock");
    CNotifyReceiver receiver(strSocket);
    ASSERT_TRUE(receiver.bBound) << strerror(errno);
    testutil::ServiceOptions options;
    options.bNoInterface = true;
    options.bWaitReady = false;
    options.vecEnv = {"NOTIFY_SOCKET=" + strSocket};
    testutil::Service service(root.Path(), options);
    ASSERT_TRUE(testutil::WaitForText(service.Process().StderrPath(), "Invalid MAC Address", 30000)) << service.Stderr();
    EXPECT_EQ(Etlmsg(root.Path(), {"ping", "configServer", "--timeout", "300"}).nExit, 3);
    EXPECT_EQ(receiver.Receive(0), "") << "ready while the start-up still runs";

    // Renamed into place, so that the service never reads a half-written file.
    testutil::WriteFile(root.Join("/etc/device/mac.new"), "0a1b2c3d4e5f\n");
    ASSERT_EQ(rename(root.Join("/etc/device/mac.new").c_str(), root.Join("/etc/device/mac").c_str()), 0);
    ASSERT_EQ(receiver.Receive(30000), "READY=1");
    EXPECT_TRUE(service.Ping(2000));
    EXPECT_NE(service.Stderr().find("User Config Path = 0a1b2c3d4e5f-local.cfg"), std::string::npos);
    service.Process().Signal(SIGTERM);
    EXPECT_EQ(service.Process().Wait(10000), 0);
    EXPECT_EQ(receiver.Receive(5000), "STOPPING=1");
}

// An abstract socket name, unknown ids and a second instance between READY=1 and STOPPING=1; the
// loop's quit status stays the exit status.
TEST(Readiness, AbstractSocketBadInputASecondInstanceAndQuit)
{
    TempDir root;
    std::string strName = "@cfgtest-notify-" + std::to_string(getpid());
    CNotifyReceiver receiver(strName);
    ASSERT_TRUE(receiver.bBound) << strerror(errno);
    testutil::ServiceOptions options;
    options.bWaitReady = false;
    options.vecEnv = {"NOTIFY_SOCKET=" + strName};
    testutil::Service service(root.Path(), options);
    ASSERT_EQ(receiver.Receive(30000), "READY=1") << service.Stderr();
    EXPECT_EQ(Etlmsg(root.Path(), {"send", "configServer", "0xd0002"}).strOut, "0\n") << "handled by no one";
    ToolResult second = testutil::RunTool({testutil::ConfigServerBin()}, root.Path(), 10000);
    EXPECT_EQ(second.nExit, 1);
    EXPECT_NE(second.strErr.find("thread [configServer] is already registered by process"), std::string::npos);
    EXPECT_TRUE(service.Ping()) << "the first is unharmed";
    EXPECT_EQ(service.Quit(7), 7);
    EXPECT_EQ(receiver.Receive(10000), "STOPPING=1");
    EXPECT_EQ(receiver.Receive(0), "") << "one datagram per state";
    std::string strErr = service.Stderr();
    for (const char* szLine : {"configServer version = 1.0.0.1 build at ", "]configServer version = 1.0.1.1 build at ", "war["})
        EXPECT_NE(strErr.find(szLine), std::string::npos) << szLine << " in\n" << strErr;
    EXPECT_FALSE(testutil::FileExists(root.Join("/tmp/msgq/configServer"))) << "unregistered at exit";
}
