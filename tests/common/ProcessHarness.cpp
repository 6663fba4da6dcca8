// Temporary roots, child processes and file helpers for the process-level tests.
#include "ProcessHarness.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace testutil {

namespace {
std::atomic<int> g_nSerial{0};
} // namespace

TempDir::TempDir()
{
    char szTemplate[] = "/tmp/cfgtest-XXXXXX";
    const char* szMade = mkdtemp(szTemplate);
    m_strPath = szMade != nullptr ? szMade : "/tmp/cfgtest-failed";
}

TempDir::~TempDir()
{
    // Make read-only folders of a test removable first.
    (void)system(("chmod -R u+rwx '" + m_strPath + "' 2>/dev/null").c_str());
    std::error_code ec;
    (void)std::filesystem::remove_all(m_strPath, ec);
}

std::string TempDir::Join(const std::string& strSub) const
{
    return m_strPath + (!strSub.empty() && strSub[0] == '/' ? "" : "/") + strSub;
}

std::string ReadFile(const std::string& strPath)
{
    std::ifstream in(strPath, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void MakeParents(const std::string& strPath)
{
    std::error_code ec;
    (void)std::filesystem::create_directories(std::filesystem::path(strPath).parent_path(), ec);
}

void WriteFile(const std::string& strPath, const std::string& strContent)
{
    MakeParents(strPath);
    std::ofstream(strPath, std::ios::binary | std::ios::trunc) << strContent;
}

bool FileExists(const std::string& strPath)
{
    return std::filesystem::exists(std::filesystem::symlink_status(strPath));
}

std::vector<std::string> EmulatorPrefix()
{
    std::string strEmulator = CFG_EMULATOR;
    std::replace(strEmulator.begin(), strEmulator.end(), ';', ' ');
    std::istringstream words(strEmulator);
    return std::vector<std::string>(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
}

Child::~Child()
{
    Signal(SIGKILL);
    (void)Wait(5000);
}

bool Child::Start(const std::vector<std::string>& vecArgsIn, const std::string& strRoot, const std::string& strOutDir,
                  const std::string& strCwd, const std::vector<std::string>& vecEnv, long nFileSizeLimit)
{
    // Programs of this build run under the build's emulator (a cross build); system tools do not.
    std::vector<std::string> vecArgs = EmulatorPrefix();
    if (vecArgsIn[0].compare(0, 5, "/usr/") == 0 || vecArgsIn[0].compare(0, 5, "/bin/") == 0)
        vecArgs.clear();
    vecArgs.insert(vecArgs.end(), vecArgsIn.begin(), vecArgsIn.end());
    std::string strStem = strOutDir + "/child" + std::to_string(++g_nSerial);
    m_strOut = strStem + ".out";
    m_strErr = strStem + ".err";
    m_nStatus = -1;
    m_pid = fork();
    if (m_pid != 0)
        return m_pid > 0;
    dup2(open("/dev/null", O_RDONLY), 0);
    dup2(open(m_strOut.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
    dup2(open(m_strErr.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
    if (!strCwd.empty() && chdir(strCwd.c_str()) != 0)
        _exit(126);
    setenv("ETL_ROOT", strRoot.c_str(), 1);
    rlimit limit{static_cast<rlim_t>(nFileSizeLimit), static_cast<rlim_t>(nFileSizeLimit)};
    if (nFileSizeLimit >= 0)
        (void)setrlimit(RLIMIT_FSIZE, &limit);
    for (const std::string& strEnv : vecEnv)
        putenv(strdup(strEnv.c_str()));
    std::vector<char*> vecArgv;
    for (const std::string& strArg : vecArgs)
        vecArgv.push_back(const_cast<char*>(strArg.c_str()));
    vecArgv.push_back(nullptr);
    execvp(vecArgv[0], vecArgv.data());
    _exit(127);
}

int Child::Wait(int nTimeoutMs)
{
    if (m_nStatus >= 0 || m_pid <= 0)
        return m_pid <= 0 ? -1 : m_nStatus;
    int nStatus = 0;
    if (!WaitUntil([&] { return waitpid(m_pid, &nStatus, WNOHANG) == m_pid; }, nTimeoutMs))
        return -1;
    m_nStatus = WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : 128 + WTERMSIG(nStatus);
    return m_nStatus;
}

void Child::Signal(int nSignal)
{
    if (m_pid > 0 && m_nStatus < 0)
        kill(m_pid, nSignal);
}

ToolResult RunTool(const std::vector<std::string>& vecArgs, const std::string& strRoot, int nTimeoutMs)
{
    ToolResult result;
    TempDir outDir;
    Child child;
    if (!child.Start(vecArgs, strRoot, outDir.Path()))
        return result;
    result.nExit = child.Wait(nTimeoutMs); // the destructor kills it when it did not end in time
    result.strOut = child.Stdout();
    result.strErr = child.Stderr();
    return result;
}

bool WaitUntil(const std::function<bool()>& fnDone, int nTimeoutMs)
{
    auto tEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(nTimeoutMs);
    while (!fnDone()) {
        if (std::chrono::steady_clock::now() >= tEnd)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool WaitForText(const std::string& strPath, const std::string& strText, int nTimeoutMs)
{
    return WaitUntil([&] { return ReadFile(strPath).find(strText) != std::string::npos; }, nTimeoutMs);
}

size_t CountOf(const std::string& strText, const std::string& strWhat)
{
    size_t n = 0;
    for (size_t nPos = strText.find(strWhat); nPos != std::string::npos; nPos = strText.find(strWhat, nPos + 1))
        ++n;
    return n;
}

std::string ConfigServerBin() { return CFG_CONFIGSERVER_BIN; }
std::string EtlmsgBin() { return CFG_ETLMSG_BIN; }

ToolResult Etlmsg(const std::string& strRoot, const std::vector<std::string>& vecArgs, int nTimeoutMs)
{
    std::vector<std::string> vecFull{EtlmsgBin()};
    vecFull.insert(vecFull.end(), vecArgs.begin(), vecArgs.end());
    return RunTool(vecFull, strRoot, nTimeoutMs);
}

bool NamespacesAvailable()
{
    static const bool s_b = system("unshare -n sh -c 'ip link add esw0 type veth peer name x0' >/dev/null 2>&1") == 0;
    return s_b;
}

bool MountNamespacesAvailable()
{
    static const bool s_b =
        system("unshare -m sh -c 'mount --bind /tmp /tmp && mount -o remount,bind,ro /tmp' >/dev/null 2>&1") == 0;
    return s_b;
}

bool SlowBuild()
{
#if defined(__SANITIZE_ADDRESS__)
    return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
    return true;
#endif
#endif
    return !EmulatorPrefix().empty();
}

std::string ItemText(long nItems, const std::string& strValue)
{
    std::string strText = "#!version:1.0.0.1\n";
    for (long i = 0; i < nItems; ++i)
        strText += "item." + std::to_string(i) + " = " + strValue + "\n";
    return strText;
}

bool SendRaw(const std::string& strSocket, const std::string& strBytes)
{
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, strSocket.c_str(), sizeof(addr.sun_path) - 1);
    bool bSent = sendto(fd, strBytes.data(), strBytes.size(), 0, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) ==
                 static_cast<ssize_t>(strBytes.size());
    (void)close(fd);
    return bSent;
}

Service::Service(const std::string& strRoot, const ServiceOptions& options) : m_strRoot(strRoot)
{
    std::string strOutDir = strRoot + "/.test-out";
    (void)mkdir(strOutDir.c_str(), 0755);
    std::string strBin = options.bFastUpload ? CFG_CONFIGSERVER_FAST_BIN : CFG_CONFIGSERVER_BIN;
    std::vector<std::string> vecArgs{strBin};
    std::string strScript, strUnshare;
    if (!options.vecReadOnly.empty()) {
        // The message folder is a writable mount of its own first, so that it stays writable inside
        // a read-only /tmp (the recursive bind below carries it along).
        std::string strQueue = "'" + strRoot + "/tmp/msgq'";
        strScript = "mkdir -p " + strQueue + " && chmod 700 " + strQueue + " && mount --bind " + strQueue + " " +
                    strQueue + " && ";
        for (const std::string& strLogical : options.vecReadOnly) {
            std::string strReal = "'" + strRoot + strLogical + "'";
            strScript += "mount --rbind " + strReal + " " + strReal + " && mount -o remount,bind,ro " + strReal + " && ";
        }
        strUnshare = "-m";
    } else if (!options.strHwMac.empty() || options.bNoInterface) {
        // A namespace of its own, so that the hardware address is the test's choice.
        strScript = "ip link set lo up; ";
        if (!options.strHwMac.empty())
            strScript += "ip link add esw0 type veth peer name x0 && ip link set esw0 address " + options.strHwMac + " && ";
        strUnshare = "-n";
    }
    if (!strUnshare.empty()) {
        vecArgs = {"/usr/bin/unshare", strUnshare, "sh", "-c", strScript + "exec \"$@\"", "sh"};
        std::vector<std::string> vecPrefix = EmulatorPrefix();
        vecArgs.insert(vecArgs.end(), vecPrefix.begin(), vecPrefix.end());
        vecArgs.push_back(strBin);
    }
    std::string strCwd = options.strCwd.empty() ? strRoot : options.strCwd;
    m_bStarted = m_child.Start(vecArgs, strRoot, strOutDir, strCwd, options.vecEnv, options.nFileSizeLimit) &&
                 (!options.bWaitReady || WaitReady(10000));
}

bool Service::WaitReady(int nTimeoutMs)
{
    // A socket left by a killed instance can be there before this one has replaced it: ping
    // until the answer comes, not just until the name exists.
    std::string strMs = std::to_string(nTimeoutMs);
    bool bReady = false;
    (void)WaitUntil([&] {
        bReady = Etlmsg(m_strRoot, {"wait", "configServer", "--timeout", strMs}, nTimeoutMs + 5000).nExit == 0 &&
                 Ping(nTimeoutMs);
        return bReady || m_child.Wait(0) >= 0;
    }, nTimeoutMs);
    return bReady;
}

Service::~Service()
{
    m_child.Signal(SIGTERM); // the child's own destructor kills what does not end in time
    (void)m_child.Wait(5000);
}

bool Service::Ping(int nTimeoutMs)
{
    std::string strMs = std::to_string(nTimeoutMs);
    ToolResult ping = Etlmsg(m_strRoot, {"ping", "configServer", "--timeout", strMs}, nTimeoutMs + 5000);
    return ping.nExit == 0 && ping.strOut == "1\n";
}

int Service::Quit(int nStatus)
{
    (void)Etlmsg(m_strRoot, {"quit", "configServer", "--status", std::to_string(nStatus)});
    return m_child.Wait(10000);
}

} // namespace testutil
