// Send/reply round trip of the platform ping to the real configServer, beside two plain C
// processes ping-ponging 32-byte datagrams (this one and floor_peer), interleaved in one run.
#include "BenchReport.h"
#include "BenchService.h"

using namespace ETL_MsgQueueHelper;

namespace {

const int kTrips = 2000;
const size_t kDatagram = 32; // a platform message without extra data

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: msg_roundtrip_bench PATH-OF-configServer PATH-OF-floor_peer [PAIRS]\n");
        return 1;
    }
    int nPairs = argc > 3 ? std::atoi(argv[3]) : 21;
    CBenchRoot root;
    CBenchService service(root, argv[1]);
    std::string strEcho = root.Real("/tmp/floor-echo");
    pid_t pidEcho = BenchLaunch({argv[2], "echo", strEcho});
    CBenchSocket client(root.Real("/tmp/floor-client"));
    if (!service.Up() || !BenchWaitForSocket(strEcho) || client.Fd() < 0) {
        fprintf(stderr, "round trip: the service or the floor peer did not start\n");
        return 1;
    }
    sockaddr_un echo = CBenchSocket::Address(strEcho);

    auto Ours = [&]() {
        long long t0 = BenchNowNs();
        for (int i = 0; i < kTrips; ++i) {
            int nReply = 0;
            if (msgSendMsgToThread(service.Thread(), MSG_PLATFORM_PING, 0, 0, 0, nullptr, 5000, &nReply, nullptr) !=
                    MSG_SEND_OK ||
                nReply != 1)
                return -1.0;
        }
        return (BenchNowNs() - t0) / 1e3 / kTrips;
    };
    auto Floor = [&]() {
        char buf[kDatagram];
        std::memset(buf, 'p', sizeof(buf));
        long long t0 = BenchNowNs();
        for (int i = 0; i < kTrips; ++i) {
            char reply[128];
            if (!client.SendTo(echo, buf, sizeof(buf)) ||
                recv(client.Fd(), reply, sizeof(reply), 0) != static_cast<ssize_t>(kDatagram))
                return -1.0;
        }
        return (BenchNowNs() - t0) / 1e3 / kTrips;
    };
    CPairFigures figures;
    bool bOk = RunPairs(2, nPairs, Ours, Floor, figures);
    (void)client.SendTo(echo, "q", 1);
    (void)waitpid(pidEcho, nullptr, 0);
    if (!bOk)
        fprintf(stderr, "round trip: a repetition failed\n");
    PrintPairRow("send/reply round trip of the platform ping (vs C datagram ping-pong)", figures, "us", true, 1.1);
    return bOk ? 0 : 1;
}
