// The paths a phone exercises, end to end on the real configServer, each beside its floor in the
// same run (interleaved pairs): posts per second, reload of a large text, export of changed
// configuration, start-up to the first ping, and the idle service's memory.
//   service_paths_bench CONFIGSERVER FLOOR_PEER [posts|reload|export|startup]...
#include "BenchReport.h"
#include "BenchService.h"

#include <dirent.h>
#include <fcntl.h>
#include <fstream>

using namespace ETL_MsgQueueHelper;

namespace {

std::string g_strService;
std::string g_strFloorPeer;
const uint32_t kUnhandledId = 0x5a5a0001; // no handler of the service or the platform takes it

// 100,000 posts of an unhandled id, then one ping; the rate up to the ping's answer. Floor: as
// many 32-byte datagrams streamed to a C process that answers once it has them all.
bool PostsRow()
{
    const int kPosts = 100000;
    CBenchRoot root;
    CBenchService service(root, g_strService);
    std::string strSink = root.Real("/tmp/floor-sink");
    pid_t pidSink = BenchLaunch({g_strFloorPeer, "sink", strSink, std::to_string(kPosts)});
    CBenchSocket client(root.Real("/tmp/floor-client"));
    if (!service.Up() || !BenchWaitForSocket(strSink) || client.Fd() < 0)
        return false;
    sockaddr_un sink = CBenchSocket::Address(strSink);
    auto Ours = [&]() {
        long long t0 = BenchNowNs();
        for (int i = 0; i < kPosts; ++i) {
            if (msgPostMsgToThread(service.Thread(), kUnhandledId, i, 0) != 0)
                return -1.0;
        }
        int nReply = 0;
        if (msgSendMsgToThread(service.Thread(), MSG_PLATFORM_PING, 0, 0, 0, nullptr, 30000, &nReply, nullptr) !=
            MSG_SEND_OK)
            return -1.0;
        return kPosts / ((BenchNowNs() - t0) / 1e9);
    };
    auto Floor = [&]() {
        char buf[32];
        std::memset(buf, 'p', sizeof(buf));
        long long t0 = BenchNowNs();
        for (int i = 0; i < kPosts; ++i) {
            if (!client.SendTo(sink, buf, sizeof(buf)))
                return -1.0;
        }
        char done[8];
        if (recv(client.Fd(), done, sizeof(done), 0) != 1)
            return -1.0;
        return kPosts / ((BenchNowNs() - t0) / 1e9);
    };
    CPairFigures figures;
    bool bOk = RunPairs(1, 7, Ours, Floor, figures);
    (void)client.SendTo(sink, "q", 1);
    (void)waitpid(pidSink, nullptr, 0);
    PrintPairRow("posts per second, 100000 unhandled posts then a ping (vs C datagram stream)", figures, "/s", false,
                 0.9);
    return bOk;
}

std::string ReloadText(int nItems, char cRound)
{
    std::string strText = "#!version:1.0.0.1\n";
    for (int i = 0; i < nItems; ++i)
        strText += BenchItemName(i) + " = value_" + std::to_string(i) + cRound + "\n";
    return strText;
}

// Reload (0xd0003, lparam 1) of a 100,000-item text whose every value differs from the model's,
// timed by a send's reply. Floor: read the text, split it into lines, write the same bytes once.
bool ReloadRow()
{
    const int kItems = 100000;
    CBenchRoot root;
    root.Write("/phone/resource/configMap.xml", BenchConfigMap(kItems));
    root.Write("/config/mac-local.cfg", "#!version:1.0.0.1\n");
    root.Write("/tmp/reload-a.cfg", ReloadText(kItems, 'a'));
    root.Write("/tmp/reload-b.cfg", ReloadText(kItems, 'b'));
    CBenchService service(root, g_strService);
    if (!service.Up())
        return false;
    int nRound = 0;
    auto Ours = [&]() {
        std::string strPath = (nRound++ % 2 == 0) ? "/tmp/reload-a.cfg" : "/tmp/reload-b.cfg";
        long long t0 = BenchNowNs();
        int nReply = 0;
        if (msgSendMsgToThread(service.Thread(), 0xd0003, 0, 1, static_cast<int>(strPath.size() + 1), strPath.c_str(),
                               60000, &nReply, nullptr) != MSG_SEND_OK ||
            nReply != 1)
            return -1.0;
        return (BenchNowNs() - t0) / 1e6;
    };
    std::string strIn = root.Real("/tmp/reload-a.cfg");
    std::string strOut = root.Real("/config/floor-local.cfg");
    auto Floor = [&]() {
        long long t0 = BenchNowNs();
        std::string strText;
        int fdIn = open(strIn.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat st;
        if (fdIn < 0 || fstat(fdIn, &st) != 0)
            return -1.0;
        strText.resize(static_cast<size_t>(st.st_size));
        ssize_t nRead = read(fdIn, &strText[0], strText.size());
        close(fdIn);
        if (nRead != st.st_size)
            return -1.0;
        std::vector<std::pair<const char*, size_t>> vecLines;
        vecLines.reserve(kItems + 1);
        for (const char* p = strText.data(); p < strText.data() + strText.size();) {
            const char* pEnd = static_cast<const char*>(std::memchr(p, '\n', strText.data() + strText.size() - p));
            pEnd = pEnd != nullptr ? pEnd + 1 : strText.data() + strText.size();
            vecLines.emplace_back(p, static_cast<size_t>(pEnd - p));
            p = pEnd;
        }
        benchmark::DoNotOptimize(vecLines.data());
        int fdOut = open(strOut.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fdOut < 0)
            return -1.0;
        ssize_t nWritten = write(fdOut, strText.data(), strText.size());
        close(fdOut);
        return nWritten == st.st_size ? (BenchNowNs() - t0) / 1e6 : -1.0;
    };
    CPairFigures figures;
    bool bOk = RunPairs(1, 9, Ours, Floor, figures);
    PrintPairRow("reload 0xd0003 lparam 1 of a new 100000-item text (vs read, split, write once)", figures, "ms", true,
                 3);
    return bOk;
}

// Export of changed configuration (0xd0006, lparam 1) over 10 INI files of 10 sections of 50
// keys, every other key changed, every key mapped by its own one of 5,000 name-map items, timed
// by a send's reply. Floor: walk both trees and read every file.
bool ExportRow()
{
    CBenchRoot root;
    std::string strMap = "<configMap>\n";
    for (int f = 0; f < 10; ++f) {
        std::string strCurrent, strFactory;
        for (int s = 0; s < 10; ++s) {
            std::string strSection = "[S" + std::to_string(s) + "]\n";
            strCurrent += strSection;
            strFactory += strSection;
            for (int k = 0; k < 50; ++k) {
                std::string strKey = "key" + std::to_string(k);
                strMap += " <item m7=\"export.f" + std::to_string(f) + ".s" + std::to_string(s) + "." + strKey +
                          "\" file=\"/config/export/f" + std::to_string(f) + ".ini\" section=\"S" + std::to_string(s) +
                          "\" key=\"" + strKey + "\"/>\n";
                std::string strValue = "value_" + std::to_string(k);
                strFactory += strKey + " = " + strValue + "\n";
                strCurrent += strKey + " = " + strValue + (k % 2 == 0 ? "x" : "") + "\n";
            }
        }
        root.Write("/config/export/f" + std::to_string(f) + ".ini", strCurrent);
        root.Write("/phone/factory/export/f" + std::to_string(f) + ".ini", strFactory);
    }
    root.Write("/phone/resource/configMap.xml", strMap + "</configMap>\n");
    CBenchService service(root, g_strService);
    if (!service.Up())
        return false;
    const char szTarget[] = "/tmp/all.cfg";
    auto Ours = [&]() {
        long long t0 = BenchNowNs();
        int nReply = 0;
        if (msgSendMsgToThread(service.Thread(), 0xd0006, 0, 1, sizeof(szTarget), szTarget, 30000, &nReply, nullptr) !=
                MSG_SEND_OK ||
            nReply != 1)
            return -1.0;
        return (BenchNowNs() - t0) / 1e6;
    };
    std::vector<char> vecBuf(65536);
    auto Floor = [&]() {
        long long t0 = BenchNowNs();
        size_t nBytes = 0;
        ReadTree(root.Real("/config"), vecBuf, nBytes);
        ReadTree(root.Real("/phone/factory"), vecBuf, nBytes);
        return nBytes > 0 ? (BenchNowNs() - t0) / 1e6 : -1.0;
    };
    CPairFigures figures;
    bool bOk = RunPairs(2, 21, Ours, Floor, figures);
    // 2,500 changed keys, each one line of the export.
    std::ifstream in(root.Real(szTarget));
    int nLines = 0;
    for (std::string strLine; std::getline(in, strLine);)
        nLines += strLine.compare(0, 7, "export.") == 0 ? 1 : 0;
    if (nLines != 2500) {
        fprintf(stderr, "export: %d lines instead of 2500\n", nLines);
        bOk = false;
    }
    PrintPairRow("export 0xd0006 lparam 1, 10 files x 10 sections x 50 keys, 5000 map items (vs reading both trees)",
                 figures, "ms", true, 5);
    return bOk;
}

long StatusKb(pid_t pid, const char* szField)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    size_t nLen = std::strlen(szField);
    for (std::string strLine; std::getline(in, strLine);) {
        if (strLine.compare(0, nLen, szField) == 0 && strLine.size() > nLen && strLine[nLen] == ':')
            return std::strtol(strLine.c_str() + nLen + 1, nullptr, 10);
    }
    return -1;
}

// Exec to the first answered ping with a 5,000-item user file (300 ignore entries, 50 watched
// sections), and the memory of the service once it has answered. Floor: exec of a C program that
// binds its socket and answers one ping. Both are started the same way and timed from the exec.
bool StartUpRow()
{
    const int kItems = 5000;
    CBenchRoot root;
    WriteStartUpRoot(root, kItems, "/config/mac-local.cfg");
    root.Write("/config/ForceSync.cfg", "");
    root.Write("/etc/device/mac", "0a1b2c3d4e5f\n");
    root.Write("/tmp/msgq/.keep", "");
    (void)chmod(root.Real("/tmp/msgq").c_str(), 0700);
    std::string strStamp = root.Real("/tmp/exec-stamp");
    auto Stamp = [&]() {
        long long nStart = 0;
        std::ifstream(strStamp) >> nStart;
        return nStart;
    };
    std::vector<double> vecRssAnon, vecVmRss;
    auto Ours = [&]() {
        pid_t pid = BenchLaunch({g_strService}, strStamp);
        long long nEnd = BenchPingWhenUp("configServer");
        vecRssAnon.push_back(StatusKb(pid, "RssAnon"));
        vecVmRss.push_back(StatusKb(pid, "VmRSS"));
        (void)msgPostMsgToThread(msgGetThreadByName("configServer"), MSG_PLATFORM_QUIT, 0, 0);
        (void)waitpid(pid, nullptr, 0);
        return nEnd != 0 ? (nEnd - Stamp()) / 1e6 : -1.0;
    };
    auto Floor = [&]() {
        pid_t pid = BenchLaunch({g_strFloorPeer, "ping", root.Real("/tmp/msgq/floorPeer")}, strStamp);
        long long nEnd = BenchPingWhenUp("floorPeer");
        (void)waitpid(pid, nullptr, 0);
        return nEnd != 0 ? (nEnd - Stamp()) / 1e6 : -1.0;
    };
    CPairFigures figures;
    bool bOk = RunPairs(1, 11, Ours, Floor, figures);
    PrintPairRow("start-up, exec to first ping, 5000-item user file (vs exec of a C program answering a ping)", figures,
                 "ms", true, 2);
    double dRssAnon = MedianOf(vecRssAnon);
    std::string strName = "idle RssAnon with 5000 items (VmRSS " + std::to_string(static_cast<long>(MedianOf(vecVmRss))) +
                          " KiB)";
    PrintBenchRow(strName.c_str(), dRssAnon, "KiB", -1, "< 1024 KiB", dRssAnon > 0 && dRssAnon < 1024);
    return bOk && dRssAnon > 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: service_paths_bench PATH-OF-configServer PATH-OF-floor_peer [posts|reload|export|startup]...\n");
        return 1;
    }
    g_strService = argv[1];
    g_strFloorPeer = argv[2];
    std::vector<std::string> vecRows(argv + 3, argv + argc);
    if (vecRows.empty())
        vecRows = {"posts", "reload", "export", "startup"};
    bool bOk = true;
    for (const std::string& strRow : vecRows) {
        bool bRow = strRow == "posts"    ? PostsRow()
                    : strRow == "reload" ? ReloadRow()
                    : strRow == "export" ? ExportRow()
                    : strRow == "startup" ? StartUpRow()
                                          : false;
        if (!bRow)
            fprintf(stderr, "service_paths_bench: row \"%s\" failed\n", strRow.c_str());
        bOk = bOk && bRow;
    }
    return bOk ? 0 : 1;
}
