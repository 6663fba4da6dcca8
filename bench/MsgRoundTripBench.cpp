// One message round trip through the platform (send, handle, reply) beside a raw Unix datagram
// ping-pong between two processes, datagrams of the same size, in the same run.
#include "BenchReport.h"
#include "ETL_MsgQueueHelper.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ETL_MsgQueueHelper;

namespace {

const size_t kDatagram = 32; // a platform message without extra data
const uint32_t kEchoId = 0x5000;
std::string g_strRoot;

sockaddr_un Address(const std::string& strPath)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, strPath.c_str(), sizeof(addr.sun_path) - 1);
    return addr;
}

int BoundSocket(const std::string& strPath)
{
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un addr = Address(strPath);
    unlink(strPath.c_str());
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        perror("bind");
        exit(1);
    }
    return fd;
}

void BM_RawDatagramRoundTrip(benchmark::State& state)
{
    std::string strServer = g_strRoot + "/raw-server";
    std::string strClient = g_strRoot + "/raw-client";
    int fdServer = BoundSocket(strServer);
    pid_t pid = fork();
    if (pid == 0) {
        char buf[128];
        for (;;) {
            sockaddr_un from{};
            socklen_t nLen = sizeof(from);
            ssize_t n = recvfrom(fdServer, buf, sizeof(buf), 0, reinterpret_cast<sockaddr*>(&from), &nLen);
            if (n <= 0 || buf[0] == 'q')
                _exit(0);
            (void)sendto(fdServer, buf, static_cast<size_t>(n), 0, reinterpret_cast<sockaddr*>(&from), nLen);
        }
    }
    close(fdServer);
    int fdClient = BoundSocket(strClient);
    sockaddr_un server = Address(strServer);
    char buf[kDatagram];
    std::memset(buf, 'p', sizeof(buf));
    for (auto _ : state) {
        (void)sendto(fdClient, buf, sizeof(buf), 0, reinterpret_cast<sockaddr*>(&server), sizeof(server));
        char reply[128];
        if (recv(fdClient, reply, sizeof(reply), 0) != static_cast<ssize_t>(kDatagram))
            state.SkipWithError("short reply");
    }
    buf[0] = 'q';
    (void)sendto(fdClient, buf, sizeof(buf), 0, reinterpret_cast<sockaddr*>(&server), sizeof(server));
    waitpid(pid, nullptr, 0);
    close(fdClient);
    unlink(strClient.c_str());
    unlink(strServer.c_str());
}

class CEchoThread : public chThreadLocal {
public:
    CEchoThread() : chThreadLocal("benchEcho", nullptr) {}
    int TryThreadMessage(msgObject& msg) override
    {
        if (msg.message != kEchoId)
            return chThreadLocal::TryThreadMessage(msg);
        msg.ReplyMessage(1);
        return 1;
    }
};

void BM_PlatformRoundTrip(benchmark::State& state)
{
    pid_t pid = fork();
    if (pid == 0) {
        CEchoThread thread;
        uCSystemShareHelper::getGlobalObject().CreateLocalThread(thread);
        int nStatus = thread.Run();
        uCSystemShareHelper::getGlobalObject().DestroyLocalThread(thread);
        _exit(nStatus);
    }
    msgThread hThread = 0;
    while ((hThread = msgGetThreadByName("benchEcho")) == 0)
        usleep(1000);
    for (auto _ : state) {
        int nReply = 0;
        if (msgSendMsgToThread(hThread, kEchoId, 0, 0, 0, nullptr, 5000, &nReply, nullptr) != MSG_SEND_OK ||
            nReply != 1)
            state.SkipWithError("no reply");
    }
    msgPostMsgToThread(hThread, MSG_PLATFORM_QUIT, 0, 0);
    waitpid(pid, nullptr, 0);
}

} // namespace

BENCHMARK(BM_RawDatagramRoundTrip)->Iterations(10000)->Repetitions(7)->ReportAggregatesOnly(true)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PlatformRoundTrip)->Iterations(10000)->Repetitions(7)->ReportAggregatesOnly(true)->UseRealTime()->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv)
{
    char szTemplate[] = "/tmp/cfgbench-XXXXXX";
    g_strRoot = mkdtemp(szTemplate);
    setenv("ETL_ROOT", g_strRoot.c_str(), 1);
    benchmark::Initialize(&argc, argv);
    CMedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    double dRaw = reporter.Median("BM_RawDatagramRoundTrip");
    double dOurs = reporter.Median("BM_PlatformRoundTrip");
    if (dRaw > 0 && dOurs > 0) {
        printf("\nround trip median: platform %.2f us, raw %.2f us, ratio %.2f (target <= 1.25)\n", dOurs, dRaw,
               dOurs / dRaw);
        PrintBenchRow("message round trip (vs raw datagram ping-pong)", dOurs, "us", dRaw, "ratio <= 1.25",
                      dOurs / dRaw <= 1.25);
    }
    std::string strCmd = "rm -rf '" + g_strRoot + "'";
    return system(strCmd.c_str()) == 0 ? 0 : 1;
}
