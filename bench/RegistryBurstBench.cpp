// 1,000 reg-sets on 10 documents of 100 mapped keys, posted from one process as fast as it can,
// timed from the first post until the user file holds every value; rewrites of the user file
// counted with inotify, and the time the service spent in sync() reported apart (it depends on
// the whole machine).
#include "BenchRoot.h"
#include "ConfigServer.h"
#include "ETL_MsgQueueHelper.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace ETL_MsgQueueHelper;

namespace {

const int kDocs = 10;
const int kKeys = 100;
std::atomic<long long> g_nSyncNs{0};
std::atomic<int> g_nSyncs{0};

std::string ReadAll(const std::string& strPath)
{
    std::ifstream in(strPath, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// The service, in a child process of this program, with sync() timed.
int RunService(const std::string& strResultPath)
{
    int nStatus;
    {
        CConfigServer server;
        uCSystemShareHelper::getGlobalObject().CreateLocalThread(server);
        server.OnServiceStart();
        nStatus = server.Run();
        server.OnServiceStop();
        uCSystemShareHelper::getGlobalObject().DestroyLocalThread(server);
    }
    std::ofstream out(strResultPath);
    out << g_nSyncNs.load() << " " << g_nSyncs.load() << "\n";
    return nStatus;
}

} // namespace

extern "C" void __real_sync();
extern "C" void __wrap_sync();
extern "C" void __wrap_sync()
{
    auto t0 = std::chrono::steady_clock::now();
    __real_sync();
    g_nSyncNs += std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - t0).count();
    ++g_nSyncs;
}

int main()
{
    CBenchRoot root;
    std::string strMap = "<configMap>\n";
    for (int k = 0; k < kKeys; ++k)
        strMap += " <item m7=\"burst.doc{n}.key" + std::to_string(k) + "\" file=\"/config/burst/doc{n}.ini\" section=\"S\" key=\"k" +
                  std::to_string(k) + "\" range=\"0-" + std::to_string(kDocs - 1) + "\"/>\n";
    root.Write("/phone/resource/configMap.xml", strMap + "</configMap>\n");
    root.Write("/config/ForceSync.cfg", "");
    root.Write("/config/mac-local.cfg", "#!version:1.0.0.1\n");
    root.Write("/tmp/.keep", "");
    std::string strResult = root.Real("/tmp/result");
    (void)chdir(root.Path().c_str());

    pid_t pid = fork();
    if (pid == 0) {
        (void)freopen("/dev/null", "w", stdout);
        (void)freopen("/dev/null", "w", stderr);
        _exit(RunService(strResult));
    }
    msgThread hService = 0;
    while ((hService = msgGetThreadByName("configServer")) == 0)
        usleep(1000);
    int nReply = 0;
    msgSendMsgToThread(hService, MSG_PLATFORM_PING, 0, 0, 0, nullptr, 10000, &nReply, nullptr);

    int fdNotify = inotify_init1(IN_CLOEXEC);
    // A rewrite ends with its temporary renamed over the user file (or, written in place, its close).
    (void)inotify_add_watch(fdNotify, root.Real("/config").c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
    std::string strUserFile = root.Real("/config/mac-local.cfg");

    auto t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < kDocs * kKeys; ++i) {
        std::string strPayload = "/config/burst/doc" + std::to_string(i % kDocs) + ".ini";
        strPayload += '\0';
        strPayload += "S";
        strPayload += '\0';
        strPayload += "k" + std::to_string(i / kDocs);
        strPayload += '\0';
        strPayload += "value" + std::to_string(i);
        strPayload += '\0';
        if (msgPostMsgToThreadEx(hService, MSG_PLATFORM_REG_SET, 0, 0, static_cast<int>(strPayload.size()),
                                 strPayload.data()) != 0) {
            fprintf(stderr, "post %d failed\n", i);
            return 1;
        }
    }
    int nRewrites = 0;
    bool bComplete = false;
    char buf[4096];
    while (!bComplete) {
        ssize_t n = read(fdNotify, buf, sizeof(buf));
        for (char* p = buf; n > 0 && p < buf + n;) {
            inotify_event* pEvent = reinterpret_cast<inotify_event*>(p);
            if (pEvent->len > 0 && std::strcmp(pEvent->name, "mac-local.cfg") == 0)
                ++nRewrites;
            p += sizeof(inotify_event) + pEvent->len;
        }
        std::string strText = ReadAll(strUserFile);
        bComplete = strText.find("burst.doc9.key99 = value999\n") != std::string::npos &&
                    strText.find("burst.doc0.key0 = value0\n") != std::string::npos;
    }
    auto t1 = std::chrono::steady_clock::now();
    // Count the rewrites whose close had not been read yet.
    msgSendMsgToThread(hService, MSG_PLATFORM_PING, 0, 0, 0, nullptr, 10000, &nReply, nullptr);
    usleep(100000);
    (void)fcntl(fdNotify, F_SETFL, O_NONBLOCK);
    for (ssize_t n; (n = read(fdNotify, buf, sizeof(buf))) > 0;) {
        for (char* p = buf; p < buf + n;) {
            inotify_event* pEvent = reinterpret_cast<inotify_event*>(p);
            if (pEvent->len > 0 && std::strcmp(pEvent->name, "mac-local.cfg") == 0)
                ++nRewrites;
            p += sizeof(inotify_event) + pEvent->len;
        }
    }
    msgPostMsgToThread(hService, MSG_PLATFORM_QUIT, 0, 0);
    waitpid(pid, nullptr, 0);
    long long nSyncNs = 0;
    int nSyncs = 0;
    std::ifstream(strResult) >> nSyncNs >> nSyncs;
    double dTotalMs = std::chrono::duration<double, std::milli>(t1 - t0).count();
    std::string strText = ReadAll(strUserFile);
    int nPresent = 0;
    for (int i = 0; i < kDocs * kKeys; ++i) {
        std::string strLine = "burst.doc" + std::to_string(i % kDocs) + ".key" + std::to_string(i / kDocs) + " = value" +
                              std::to_string(i) + "\n";
        nPresent += strText.find(strLine) != std::string::npos ? 1 : 0;
    }
    printf("registry burst: %d reg-sets, %d values in the user file, %.1f ms in all, sync() %.1f ms in %d calls, "
           "%.1f ms without sync, %d user-file rewrites (targets: <= 2 rewrites, < 1500 ms without sync)\n",
           kDocs * kKeys, nPresent, dTotalMs, nSyncNs / 1e6, nSyncs, dTotalMs - nSyncNs / 1e6, nRewrites);
    double dWithoutSync = dTotalMs - nSyncNs / 1e6;
    printf("bench-row|1000 reg-sets to a complete user file, without sync()|%.1f ms|-|-|< 1500 ms|%s\n", dWithoutSync,
           dWithoutSync < 1500 && nPresent == kDocs * kKeys ? "yes" : "no");
    printf("bench-row|user-file rewrites for the 1000 reg-sets (sync() took %.1f ms)|%d|-|-|<= 2|%s\n", nSyncNs / 1e6,
           nRewrites, nRewrites <= 2 ? "yes" : "no");
    return 0;
}
