// Finding message threads by name, posting to them, and sending with a wait for the answer.
#include "ETL_MsgQueueHelper.h"
#include "ETL_FileAccess.h"
#include "ETL_ScopedHandle.h"
#include "ETL_TraceHelper.h"
#include "MsgPlatform.h"
#include "MsgWire.h"
#include "PathRoot.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace ETL_MsgQueueHelper {

namespace {

constexpr int kPostTimeoutMs = 1000;

std::mutex& HandleMutex()
{
    static std::mutex s_mutex;
    return s_mutex;
}

bool MakeAddress(const std::string& strPath, sockaddr_un& addr)
{
    if (strPath.empty() || strPath.size() >= sizeof(addr.sun_path))
        return false;
    std::memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, strPath.c_str(), strPath.size() + 1);
    return true;
}

// A looked-up name and its socket address, resolved below the root it was resolved for; a
// change of root (tests do that) resolves it again. Posts go out of a socket of the handle's own,
// connected to the thread's socket, so that a post costs the kernel no lookup of the path. The
// socket is never closed while the process runs (another thread may be posting through it); it is
// connected again after a change of root or when its peer went away (a restarted thread binds a
// new socket under the same name).
struct HandleEntry {
    std::string strName;
    std::string strRoot;
    sockaddr_un addr{};
    bool bResolved = false;
    bool bAddressOk = false;
    ETL_BaseHelper::chScopedFd fdPost;
    bool bConnected = false;
};

// Handles are indexes (plus one) into the names looked up so far; stable for the process.
std::vector<std::unique_ptr<HandleEntry>>& HandleEntries()
{
    static std::vector<std::unique_ptr<HandleEntry>> s_entries;
    return s_entries;
}

// The handle's entry, its address resolved below szRoot, the root in force (read once per
// message); null for an unknown handle or a name that cannot be addressed. HandleMutex held.
HandleEntry* ResolvedEntryLocked(msgThread hThread, const char* szRoot)
{
    if (hThread == 0 || hThread > HandleEntries().size())
        return nullptr;
    HandleEntry& entry = *HandleEntries()[hThread - 1];
    if (!entry.bResolved || entry.strRoot != szRoot) {
        entry.bAddressOk = MakeAddress(wire::ThreadSocketPath(entry.strName.c_str()), entry.addr);
        entry.strRoot = szRoot;
        entry.bResolved = true;
        entry.bConnected = false;
    }
    return entry.bAddressOk ? &entry : nullptr;
}

// The socket address of a message to the handle; false as above.
bool TargetOf(msgThread hThread, const char* szRoot, sockaddr_un& addr)
{
    std::lock_guard<std::mutex> lock(HandleMutex());
    HandleEntry* pEntry = ResolvedEntryLocked(hThread, szRoot);
    if (pEntry == nullptr)
        return false;
    addr = pEntry->addr;
    return true;
}

// Where a post to the handle goes: the registered thread of this process when there is one
// (pLocal), else the handle's post socket (fd), connected to the thread's socket (anew when
// bReconnect). False for an unknown handle or a name with no socket to connect to.
bool PostTargetOf(msgThread hThread, const char* szRoot, bool bReconnect, chThreadLocal::Impl*& pLocal, int& fd)
{
    std::lock_guard<std::mutex> lock(HandleMutex());
    if (hThread == 0 || hThread > HandleEntries().size())
        return false;
    if ((pLocal = FindLocalThread(HandleEntries()[hThread - 1]->strName)) != nullptr)
        return true;
    HandleEntry* pEntry = ResolvedEntryLocked(hThread, szRoot);
    if (pEntry == nullptr)
        return false;
    if (!pEntry->fdPost) {
        pEntry->fdPost.Reset(wire::OpenMessageSocket(kPostTimeoutMs));
        if (!pEntry->fdPost)
            return false;
    }
    if (!pEntry->bConnected || bReconnect)
        pEntry->bConnected = connect(pEntry->fdPost.Get(), reinterpret_cast<const sockaddr*>(&pEntry->addr),
                                     sizeof(pEntry->addr)) == 0;
    fd = pEntry->fdPost.Get();
    return pEntry->bConnected;
}

// What SendDatagram tells when the connected peer has gone away.
constexpr int kSendPeerGone = -1;

// Sends one datagram (header, then nSize extra bytes) to a thread socket at pAddr, or to the
// socket's peer when pAddr is null. 0, MSG_SEND_NO_THREAD / MSG_SEND_TIMEOUT, or kSendPeerGone.
int SendDatagram(int fd, const sockaddr_un* pAddr, const wire::Header& header, const void* pData)
{
    unsigned char aHead[wire::HEADER_SIZE];
    wire::EncodeHeader(header, aHead);
    iovec aIov[2] = {{aHead, sizeof(aHead)}, {const_cast<void*>(pData), header.nSize}};
    msghdr mh{};
    mh.msg_name = const_cast<sockaddr_un*>(pAddr);
    mh.msg_namelen = pAddr != nullptr ? sizeof(*pAddr) : 0;
    mh.msg_iov = aIov;
    mh.msg_iovlen = header.nSize > 0 ? 2 : 1;
    std::chrono::steady_clock::time_point tEnd;
    bool bWaiting = false;
    for (;;) {
        if (sendmsg(fd, &mh, MSG_NOSIGNAL) >= 0)
            return MSG_SEND_OK;
        if (errno == EINTR)
            continue;
        if (pAddr == nullptr && (errno == ECONNREFUSED || errno == ENOTCONN || errno == EPIPE))
            return kSendPeerGone;
        if (errno != EAGAIN && errno != ENOBUFS)
            return MSG_SEND_NO_THREAD;
        if (!bWaiting) {
            bWaiting = true;
            tEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPostTimeoutMs);
        }
        if (std::chrono::steady_clock::now() >= tEnd)
            return MSG_SEND_TIMEOUT;
        // The receiver's kernel queue is full (its own queue is full too): wait a moment.
        (void)poll(nullptr, 0, 1);
    }
}

int Post(msgThread hThread, const wire::Header& header, const void* pData)
{
    const char* szRoot = ETL_FileHelper::etlRootSetting();
    // A peer gone since the last post may have been replaced by a new thread of that name: one
    // fresh connection, and the post goes there or fails as a post to a missing thread.
    for (int nTry = 0; nTry < 2; ++nTry) {
        chThreadLocal::Impl* pLocal = nullptr;
        int fd = -1;
        if (!PostTargetOf(hThread, szRoot, nTry > 0, pLocal, fd))
            return MSG_SEND_NO_THREAD;
        if (pLocal != nullptr) {
            PostToLocalThread(pLocal, header, pData);
            return MSG_SEND_OK;
        }
        int nResult = SendDatagram(fd, nullptr, header, pData);
        if (nResult != kSendPeerGone)
            return nResult;
    }
    return MSG_SEND_NO_THREAD;
}

// The socket a sending thread gets its answers on: bound once to a unique name beside the
// threads, removed when the thread ends.
struct ReplySocket {
    explicit ReplySocket(const char* szRoot)
    {
        static std::atomic<unsigned> s_nSockets{0};
        char szOwn[64];
        snprintf(szOwn, sizeof(szOwn), ".send-%d-%u", static_cast<int>(getpid()), ++s_nSockets);
        sockaddr_un addr;
        if (wire::EnsureQueueDir() != 0 || !MakeAddress(wire::QueueDir() + "/" + szOwn, addr))
            return;
        ETL_BaseHelper::chScopedFd fdNew(wire::OpenMessageSocket(kPostTimeoutMs));
        if (!fdNew)
            return;
        (void)unlink(addr.sun_path);
        if (bind(fdNew.Get(), reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) != 0)
            return;
        fd = std::move(fdNew);
        strPath = addr.sun_path;
        strRoot = szRoot;
        vecBuf.resize(wire::MAX_DATAGRAM + 1);
    }

    void SetReceiveTimeout(int nMs)
    {
        // Whole milliseconds, rounded up to 10 ms so that a run of sends rarely changes it.
        int nWanted = ((nMs + 9) / 10) * 10;
        if (nWanted == nTimeoutMs)
            return;
        timeval tv{nWanted / 1000, (nWanted % 1000) * 1000};
        if (setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv)) == 0)
            nTimeoutMs = nWanted;
    }

    bool SameRoot(const char* szRoot) const { return strRoot == szRoot; }
    ~ReplySocket()
    {
        if (fd) {
            (void)fd.Close();
            (void)unlink(strPath.c_str());
        }
    }
    ReplySocket(const ReplySocket&) = delete;
    ReplySocket& operator=(const ReplySocket&) = delete;

    ETL_BaseHelper::chScopedFd fd;
    int nTimeoutMs = -1;
    std::string strPath;
    std::string strRoot;
    std::vector<unsigned char> vecBuf;
};

ReplySocket& OwnReplySocket(const char* szRoot)
{
    // Bound below the root in force; a change of root (tests do that) binds a new one.
    thread_local std::unique_ptr<ReplySocket> t_pSocket;
    if (!t_pSocket || !t_pSocket->fd || !t_pSocket->SameRoot(szRoot))
        t_pSocket.reset(new ReplySocket(szRoot));
    return *t_pSocket;
}

bool CheckExtra(int nSize, const void* pData)
{
    return nSize == 0 || (nSize > 0 && nSize <= MSG_MAX_EXTRA && pData != nullptr);
}

} // namespace

msgThread msgGetThreadByName(const char* szName)
{
    std::string strPath = wire::ThreadSocketPath(szName);
    if (strPath.empty())
        return 0;
    struct stat st;
    if (FindLocalThread(szName) == nullptr && (stat(strPath.c_str(), &st) != 0 || !S_ISSOCK(st.st_mode)))
        return 0;
    std::lock_guard<std::mutex> lock(HandleMutex());
    std::vector<std::unique_ptr<HandleEntry>>& vecEntries = HandleEntries();
    for (size_t i = 0; i < vecEntries.size(); ++i) {
        if (vecEntries[i]->strName == szName)
            return static_cast<msgThread>(i + 1);
    }
    vecEntries.emplace_back(new HandleEntry);
    vecEntries.back()->strName = szName;
    return static_cast<msgThread>(vecEntries.size());
}

int msgPostMsgToThread(msgThread hThread, uint32_t nId, int32_t nWparam, int32_t nLparam)
{
    return msgPostMsgToThreadEx(hThread, nId, nWparam, nLparam, 0, nullptr);
}

int msgPostMsgToThreadEx(msgThread hThread, uint32_t nId, int32_t nWparam, int32_t nLparam, int nSize,
                         const void* pData)
{
    if (!CheckExtra(nSize, pData))
        return MSG_SEND_NO_THREAD;
    wire::Header header;
    header.nKind = wire::KIND_POST;
    header.nId = nId;
    header.nWparam = nWparam;
    header.nLparam = nLparam;
    header.nSize = static_cast<uint32_t>(nSize);
    return Post(hThread, header, pData);
}

int msgSendMsgToThread(msgThread hThread, uint32_t nId, int32_t nWparam, int32_t nLparam, int nSize,
                       const void* pData, int nTimeoutMs, int* pnReply, std::string* pReplyData)
{
    if (!CheckExtra(nSize, pData))
        return MSG_SEND_NO_THREAD;
    sockaddr_un addr;
    const char* szRoot = ETL_FileHelper::etlRootSetting();
    if (!TargetOf(hThread, szRoot, addr))
        return MSG_SEND_NO_THREAD;

    ReplySocket& own = OwnReplySocket(szRoot);
    if (!own.fd)
        return MSG_SEND_NO_THREAD;
    int fd = own.fd.Get();
    static std::atomic<unsigned> s_nCounter{0};
    unsigned nSerial = ++s_nCounter;

    wire::Header header;
    header.nKind = wire::KIND_SEND;
    header.nId = nId;
    header.nWparam = nWparam;
    header.nLparam = nLparam;
    header.nSeq = nSerial ^ (static_cast<uint32_t>(getpid()) << 12);
    header.nSize = static_cast<uint32_t>(nSize);
    int nResult = SendDatagram(fd, &addr, header, pData);

    // Wait in recv itself (one call per answer); the receive timeout is set only when it changes.
    auto tEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(nTimeoutMs < 0 ? 0 : nTimeoutMs);
    std::vector<unsigned char>& vecBuf = own.vecBuf;
    while (nResult == MSG_SEND_OK) {
        auto nLeft = std::chrono::duration_cast<std::chrono::milliseconds>(tEnd - std::chrono::steady_clock::now());
        if (nLeft.count() <= 0) {
            nResult = MSG_SEND_TIMEOUT;
            break;
        }
        own.SetReceiveTimeout(static_cast<int>(nLeft.count()));
        ssize_t nGot = recv(fd, vecBuf.data(), vecBuf.size(), MSG_TRUNC);
        if (nGot < 0) {
            if (errno == EINTR)
                continue;
            nResult = MSG_SEND_TIMEOUT;
            break;
        }
        wire::Header reply;
        if (static_cast<size_t>(nGot) >= vecBuf.size() ||
            wire::DecodeDatagram(vecBuf.data(), static_cast<size_t>(nGot), reply) != nullptr ||
            reply.nKind != wire::KIND_REPLY || reply.nSeq != header.nSeq)
            continue; // a late answer to an earlier send that timed out
        if (pnReply != nullptr)
            *pnReply = reply.nLparam;
        if (pReplyData != nullptr)
            pReplyData->assign(reinterpret_cast<const char*>(vecBuf.data()) + wire::HEADER_SIZE, reply.nSize);
        break;
    }
    return nResult;
}

} // namespace ETL_MsgQueueHelper
