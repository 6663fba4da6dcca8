// The real programs under a benchmark's root: started (in a network namespace whose esw0 has an
// address, so that the service does not wait for a MAC), pinged, told to quit; and the raw
// datagram sockets and clock that the floors use.
#pragma once

#include "BenchRoot.h"
#include "ETL_MsgQueueHelper.h"

#include <csignal>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

inline long long BenchNowNs()
{
    timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts); // the launcher's stamp comes from date(1), on this clock
    return static_cast<long long>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

// Runs argv in a fresh network namespace with stdout and stderr on /dev/null; when strStamp is
// given, the time just before the exec is written there in ns. Returns the child's pid.
inline pid_t BenchLaunch(const std::vector<std::string>& vecArgs, const std::string& strStamp = "")
{
    pid_t pid = fork();
    if (pid != 0)
        return pid;
    (void)freopen("/dev/null", "w", stdout);
    (void)freopen("/dev/null", "w", stderr);
    std::string strScript = "ip link add esw0 type veth peer name x0 && ip link set esw0 address 0a:1b:2c:3d:4e:5f";
    if (!strStamp.empty())
        strScript += " && date +%s%N > '" + strStamp + "'";
    strScript += " && exec \"$0\" \"$@\"";
    std::vector<const char*> vecArgv = {"unshare", "-n", "sh", "-c", strScript.c_str()};
    for (const std::string& strArg : vecArgs)
        vecArgv.push_back(strArg.c_str());
    vecArgv.push_back(nullptr);
    execv("/usr/bin/unshare", const_cast<char* const*>(vecArgv.data()));
    _exit(127);
}

// Pings the thread until it answers (polling its registration); the time of the answer, or 0
// when it did not come within nLimitMs.
inline long long BenchPingWhenUp(const char* szThread, int nLimitMs = 30000)
{
    using namespace ETL_MsgQueueHelper;
    long long nEnd = BenchNowNs() + nLimitMs * 1000000LL;
    while (BenchNowNs() < nEnd) {
        msgThread hThread = msgGetThreadByName(szThread);
        int nReply = 0;
        if (hThread != 0 &&
            msgSendMsgToThread(hThread, MSG_PLATFORM_PING, 0, 0, 0, nullptr, 5000, &nReply, nullptr) == MSG_SEND_OK &&
            nReply == 1)
            return BenchNowNs();
        usleep(200);
    }
    return 0;
}

// The real configServer on a root the caller has filled; "/config/ForceSync.cfg" names its user
// file "/config/mac-local.cfg".
class CBenchService {
public:
    CBenchService(const CBenchRoot& root, const std::string& strBinary)
    {
        root.Write("/config/ForceSync.cfg", "");
        root.Write("/etc/device/mac", "0a1b2c3d4e5f\n");
        root.Write("/tmp/.keep", "");
        m_pid = BenchLaunch({strBinary});
        m_bUp = BenchPingWhenUp("configServer") != 0;
        m_hThread = ETL_MsgQueueHelper::msgGetThreadByName("configServer");
    }
    ~CBenchService()
    {
        (void)ETL_MsgQueueHelper::msgPostMsgToThread(m_hThread, ETL_MsgQueueHelper::MSG_PLATFORM_QUIT, 0, 0);
        (void)waitpid(m_pid, nullptr, 0);
    }
    bool Up() const { return m_bUp; }
    ETL_MsgQueueHelper::msgThread Thread() const { return m_hThread; }
    pid_t Pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
    bool m_bUp = false;
    ETL_MsgQueueHelper::msgThread m_hThread = 0;
};

// A Unix datagram socket bound to strPath (removed again on destruction), with the socket buffers
// of the message threads, so that a floor runs under the service's conditions.
class CBenchSocket {
public:
    explicit CBenchSocket(const std::string& strPath) : m_strPath(strPath)
    {
        m_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        int nBuf = 4 * (32 + 65536);
        (void)setsockopt(m_fd, SOL_SOCKET, SO_SNDBUF, &nBuf, sizeof(nBuf));
        (void)setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &nBuf, sizeof(nBuf));
        sockaddr_un addr = Address(strPath);
        (void)unlink(strPath.c_str());
        if (m_fd >= 0 && bind(m_fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
            close(m_fd);
            m_fd = -1;
        }
    }
    ~CBenchSocket()
    {
        if (m_fd >= 0)
            close(m_fd);
        (void)unlink(m_strPath.c_str());
    }
    CBenchSocket(const CBenchSocket&) = delete;
    CBenchSocket& operator=(const CBenchSocket&) = delete;

    static sockaddr_un Address(const std::string& strPath)
    {
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, strPath.c_str(), sizeof(addr.sun_path) - 1);
        return addr;
    }
    int Fd() const { return m_fd; }
    bool SendTo(const sockaddr_un& to, const void* pData, size_t nSize) const
    {
        return sendto(m_fd, pData, nSize, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) ==
               static_cast<ssize_t>(nSize);
    }

private:
    std::string m_strPath;
    int m_fd = -1;
};

// Waits until a socket appears at strPath (a floor peer that has bound it); false after nLimitMs.
inline bool BenchWaitForSocket(const std::string& strPath, int nLimitMs = 10000)
{
    long long nEnd = BenchNowNs() + nLimitMs * 1000000LL;
    struct stat st;
    while (stat(strPath.c_str(), &st) != 0 || !S_ISSOCK(st.st_mode)) {
        if (BenchNowNs() > nEnd)
            return false;
        usleep(200);
    }
    return true;
}
