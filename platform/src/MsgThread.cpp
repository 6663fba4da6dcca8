// Named message threads: registration, the receiver that queues datagrams in arrival order, the
// loop that hands them to the thread object one at a time, and replies.
#include "ETL_MsgQueueHelper.h"
#include "ETL_MiscHelper.h"
#include "ETL_ScopedHandle.h"
#include "ETL_TraceHelper.h"
#include "MsgLoop.h"
#include "MsgPlatform.h"
#include "MsgWire.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <malloc.h>
#include <map>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace ETL_MsgQueueHelper {

namespace {

// SIGTERM and SIGINT, counted from the first registration on. The handler wakes whatever waits:
// the loop (a wake-up datagram to its own socket) and a sleep (a byte on the sleep pipe).
std::atomic<int> g_nStopSignals{0};
bool g_bSignalsCaught = false;
std::atomic<int> g_fdWake{-1};
sockaddr_un g_wakeAddr{};
socklen_t g_nWakeLen = 0;
std::atomic<int> g_fdSleepWrite{-1};
int g_fdSleepRead = -1;

void OnStopSignal(int)
{
    int nSavedErrno = errno;
    g_nStopSignals.fetch_add(1);
    int fd = g_fdWake.load();
    if (fd >= 0)
        (void)sendto(fd, nullptr, 0, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&g_wakeAddr), g_nWakeLen);
    fd = g_fdSleepWrite.load();
    if (fd >= 0)
        (void)!write(fd, "s", 1);
    errno = nSavedErrno;
}

void CatchStopSignals()
{
    if (g_bSignalsCaught)
        return;
    g_bSignalsCaught = true;
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    (void)sigaction(SIGTERM, &action, nullptr);
    (void)sigaction(SIGINT, &action, nullptr);
}

// Waits up to nMs (forever when negative) or until a stop signal.
void WaitForStopSignal(int nMs)
{
    if (g_fdSleepRead < 0) {
        int aFds[2];
        if (pipe2(aFds, O_CLOEXEC | O_NONBLOCK) == 0) {
            g_fdSleepRead = aFds[0];
            g_fdSleepWrite.store(aFds[1]);
        }
    }
    // Checked after the pipe exists: a signal from here on writes to it, so none is missed.
    if (g_nStopSignals.load() != 0)
        return;
    pollfd pfd{g_fdSleepRead, POLLIN, 0};
    (void)poll(&pfd, g_fdSleepRead >= 0 ? 1 : 0, nMs);
}

// Timers of the loop; only the loop's thread lists, unlists and fires them.
std::vector<LoopTimer*>& LoopTimers()
{
    static std::vector<LoopTimer*> s_timers;
    return s_timers;
}

bool IsListed(LoopTimer* pTimer)
{
    const std::vector<LoopTimer*>& vecTimers = LoopTimers();
    return std::find(vecTimers.begin(), vecTimers.end(), pTimer) != vecTimers.end();
}

// Fires every timer due now once (a handler may list or unlist timers, or take longer than an
// interval: the messages get their turn before a timer fires again). Returns whether a timer is
// listed, with the earliest due time in tNext.
bool FireDueTimers(std::chrono::steady_clock::time_point& tNext)
{
    std::vector<LoopTimer*>& vecTimers = LoopTimers();
    if (vecTimers.empty())
        return false;
    auto tNow = std::chrono::steady_clock::now();
    bool bAnyDue = std::any_of(vecTimers.begin(), vecTimers.end(), [&](LoopTimer* p) { return p->tDue <= tNow; });
    if (bAnyDue) {
        std::vector<LoopTimer*> vecDue;
        for (LoopTimer* pTimer : vecTimers) {
            if (pTimer->tDue <= tNow)
                vecDue.push_back(pTimer);
        }
        for (LoopTimer* pTimer : vecDue) {
            if (IsListed(pTimer) && pTimer->tDue <= tNow)
                pTimer->Expire();
        }
    }
    if (vecTimers.empty())
        return false;
    tNext = (*std::min_element(vecTimers.begin(), vecTimers.end(),
                               [](LoopTimer* a, LoopTimer* b) { return a->tDue < b->tDue; }))->tDue;
    return true;
}

} // namespace

void ListLoopTimer(LoopTimer& timer)
{
    if (!timer.bListed)
        LoopTimers().push_back(&timer);
    timer.bListed = true;
}

void UnlistLoopTimer(LoopTimer& timer)
{
    if (!timer.bListed)
        return;
    std::vector<LoopTimer*>& vecTimers = LoopTimers();
    vecTimers.erase(std::remove(vecTimers.begin(), vecTimers.end(), &timer), vecTimers.end());
    timer.bListed = false;
}

bool PlatformSleep(int nMs)
{
    if (!g_bSignalsCaught)
        return false;
    WaitForStopSignal(nMs);
    return true;
}

bool PlatformStopRequested()
{
    return g_nStopSignals.load() != 0;
}

struct ReplyContext {
    int fd = -1;
    sockaddr_un addr{};
    socklen_t nAddrLen = 0;
    uint32_t nSeq = 0;
    bool bWantsReply = false;
    bool bReplied = false;
    uint64_t* pnReplies = nullptr;
};

namespace {

// Bounds of one thread's queue; past them the receiver stops reading and senders time out.
constexpr size_t kMaxQueuedMessages = 100000;
constexpr size_t kMaxQueuedBytes = 64u * 1024u * 1024u;
// A backlog this long is a burst worth giving the heap back after.
constexpr size_t kTrimAfterMessages = 64;
// The receiver thread only reads datagrams and traces drops: a small stack does.
constexpr size_t kReceiverStack = 64u * 1024u;

struct QueuedMsg {
    wire::Header header;
    std::vector<unsigned char> vecExtra;
    sockaddr_un replyAddr{};
    socklen_t nReplyLen = 0;
};

void SendReply(ReplyContext& ctx, int nResult, const void* pData, int nSize)
{
    if (!ctx.bWantsReply || ctx.bReplied)
        return;
    ctx.bReplied = true;
    wire::Header header;
    header.nKind = wire::KIND_REPLY;
    header.nLparam = nResult;
    header.nSeq = ctx.nSeq;
    header.nSize = (pData != nullptr && nSize > 0) ? static_cast<uint32_t>(nSize) : 0;
    if (header.nSize > wire::MAX_EXTRA)
        header.nSize = wire::MAX_EXTRA;
    unsigned char aHead[wire::HEADER_SIZE];
    wire::EncodeHeader(header, aHead);
    iovec aIov[2] = {{aHead, sizeof(aHead)}, {const_cast<void*>(pData), header.nSize}};
    msghdr mh{};
    mh.msg_name = &ctx.addr;
    mh.msg_namelen = ctx.nAddrLen;
    mh.msg_iov = aIov;
    mh.msg_iovlen = header.nSize > 0 ? 2 : 1;
    if (sendmsg(ctx.fd, &mh, MSG_DONTWAIT) < 0)
        ETL_TraceHelper::etlTrace(2, "msgqueue: reply to a sender failed: %s", strerror(errno));
    else if (ctx.pnReplies != nullptr)
        CFG_COUNT(++*ctx.pnReplies);
}

} // namespace

// How the queue is fed: while the loop is idle it blocks in a read of the socket itself (with the
// next timer's due time as the read's limit), so a message costs that read and the reply. While a
// handler runs (or before Run), a receiver thread of the platform takes over reading, so the
// kernel's small datagram queue never limits the senders. The receiver reads under the mutex
// straight into the queue, and the loop reads only while the queue is empty and the receiver
// keeps off the socket, so the order is the arrival order. Whoever has to stop the loop's read
// early (a post from another thread, ExitLoop, a stop signal) sends the socket an empty datagram
// from the socket itself, which the readers tell from any other sender's.
struct chThreadLocal::Impl {
    explicit Impl(chThreadLocal& owner) : thread(owner) {}

    chThreadLocal& thread;
    std::string strName;
    simpHandler pPlainHandler = nullptr;
    chInspectProvider* pInspect = nullptr;
    chMsgCounters counters;

    ETL_BaseHelper::chScopedFd fd;
    ETL_BaseHelper::chScopedFd fdLock;
    int nTask = 0; // the task that registered the thread
    std::string strSocketPath;
    std::string strLockPath;
    sockaddr_un selfAddr{};
    socklen_t nSelfLen = 0;
    pthread_t receiver{};
    bool bReceiverRunning = false;
    // The loop's receive buffer, the largest datagram and one byte more. Not cleared, so pages
    // that no datagram reaches are never touched.
    std::unique_ptr<unsigned char[]> pLoopBuf;
    int nWaitLimitMs = 0; // the socket's receive timeout as set (0: none)

    std::mutex mutex; // guards the queue and the flags below
    std::condition_variable cvReceiver;
    std::deque<QueuedMsg> queue;
    size_t nQueuedBytes = 0;
    uint64_t nProgress = 0;     // messages the loop has taken
    size_t nQueuedPeak = 0;     // most messages waiting at once since the heap was last trimmed
    bool bLoopWaiting = false;  // the loop reads the socket itself; the receiver keeps off
    bool bWakeSent = false;     // a wake-up datagram is on its way to that read
    bool bReceiverIdle = false; // the receiver sleeps until the loop takes a message
    bool bStopping = false;
    bool bFullCounted = false;  // the current stall at the queue's bound is counted

    std::atomic<bool> bExit{false};
    int nExitStatus = 0;
    int nSignalsAtStart = 0; // stop signals counted before the registration

    bool QueueFullLocked() const { return queue.size() >= kMaxQueuedMessages || nQueuedBytes >= kMaxQueuedBytes; }
    bool StopSignalled() const { return g_nStopSignals.load() != nSignalsAtStart; }

    void WakeLoopLocked()
    {
        if (bLoopWaiting && !bWakeSent && fd) {
            bWakeSent = true;
            (void)sendto(fd.Get(), nullptr, 0, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&selfAddr), nSelfLen);
        }
    }

    // A post from this process: straight into the queue, never blocking.
    void Enqueue(QueuedMsg&& msg)
    {
        std::lock_guard<std::mutex> lock(mutex);
        nQueuedBytes += msg.vecExtra.size();
        queue.push_back(std::move(msg));
        CFG_COUNT(counters.nQueueMax = std::max<uint64_t>(counters.nQueueMax, queue.size()));
        WakeLoopLocked();
    }

    void PushLocked(QueuedMsg&& msg)
    {
        nQueuedBytes += msg.vecExtra.size();
        queue.push_back(std::move(msg));
        nQueuedPeak = std::max(nQueuedPeak, queue.size());
        CFG_COUNT(counters.nQueueMax = std::max<uint64_t>(counters.nQueueMax, queue.size()));
        bFullCounted = false;
    }

    // Whether a datagram read from the socket is a message to handle; a wake-up is skipped
    // silently, anything malformed with one trace line. pHead holds at least the header.
    bool AcceptLocked(const unsigned char* pHead, size_t nLen, const sockaddr_un& from, socklen_t nFromLen,
                      wire::Header& header)
    {
        if (nLen == 0 && nFromLen == nSelfLen && std::memcmp(&from, &selfAddr, nSelfLen) == 0)
            return false;
        const char* szWhy = nLen > wire::MAX_DATAGRAM ? "datagram over the maximum size"
                                                      : wire::DecodeDatagram(pHead, nLen, header);
        if (szWhy == nullptr && header.nKind == wire::KIND_REPLY)
            szWhy = "reply that nobody waits for";
        if (szWhy != nullptr) {
            ETL_TraceHelper::etlTrace(2, "msgqueue[%s]: dropped a malformed datagram of %zu bytes: %s",
                                      strName.c_str(), nLen, szWhy);
            CFG_COUNT(++counters.nMalformed);
            return false;
        }
        return true;
    }

    // Receiver only: moves datagrams waiting in the socket into the queue, within its bounds. Each
    // header is peeked first, so the extra bytes go straight into a block of their own size.
    void ReadSocketLocked()
    {
        while (fd && !QueueFullLocked()) {
            unsigned char aHead[wire::HEADER_SIZE];
            sockaddr_un from{};
            socklen_t nFromLen = sizeof(from);
            ssize_t nGot = recvfrom(fd.Get(), aHead, sizeof(aHead), MSG_DONTWAIT | MSG_PEEK | MSG_TRUNC,
                                    reinterpret_cast<sockaddr*>(&from), &nFromLen);
            if (nGot < 0) {
                if (errno == EINTR)
                    continue;
                return;
            }
            QueuedMsg msg;
            bool bTake = AcceptLocked(aHead, static_cast<size_t>(nGot), from, nFromLen, msg.header);
            if (bTake)
                msg.vecExtra.resize(msg.header.nSize);
            iovec aIov[2] = {{aHead, sizeof(aHead)}, {msg.vecExtra.data(), msg.vecExtra.size()}};
            msghdr mh{};
            mh.msg_iov = aIov;
            mh.msg_iovlen = msg.vecExtra.empty() ? 1 : 2;
            if (recvmsg(fd.Get(), &mh, MSG_DONTWAIT) < 0)
                return;
            if (!bTake)
                continue;
            msg.replyAddr = from;
            msg.nReplyLen = nFromLen;
            PushLocked(std::move(msg));
        }
        // Counted once per stall, not at every tick the receiver finds the bound still reached.
        if (fd && QueueFullLocked() && !bFullCounted) {
            bFullCounted = true;
            CFG_COUNT(++counters.nQueueFull);
        }
    }

    // Loop only: sets the socket's receive timeout so that the read returns by the next timer's
    // due time. It is changed only when it would end the read late, or far too early, so a run of
    // messages between two timer expiries sets it a handful of times, not once per message.
    void SetWaitLimit(bool bTimer, std::chrono::steady_clock::time_point tNext)
    {
        int nWanted = 0;
        if (bTimer) {
            auto nLeft = std::chrono::ceil<std::chrono::milliseconds>(tNext - std::chrono::steady_clock::now()).count();
            long long nLeftMs = std::max<long long>(1, nLeft);
            if (nWaitLimitMs != 0 && nWaitLimitMs <= nLeftMs && nWaitLimitMs >= nLeftMs / 2)
                return;
            nLeftMs = std::min<long long>(nLeftMs - nLeftMs / 8, 24LL * 3600 * 1000);
            nWanted = static_cast<int>(std::max<long long>(1, nLeftMs));
        } else if (nWaitLimitMs == 0) {
            return;
        }
        timeval tv{nWanted / 1000, (nWanted % 1000) * 1000};
        if (setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv)) == 0)
            nWaitLimitMs = nWanted;
    }

    // Loop only: timers due, then one message (queued, or read from the socket when none is),
    // until ExitLoop or a stop signal.
    void RunLoop()
    {
        const size_t nBufSize = wire::MAX_DATAGRAM + 1;
        if (!pLoopBuf)
            pLoopBuf.reset(new unsigned char[nBufSize]);
        unsigned char* pBuf = pLoopBuf.get();
        while (!bExit.load() && !StopSignalled()) {
            std::chrono::steady_clock::time_point tNext;
            bool bTimer = FireDueTimers(tNext);
            if (bExit.load() || StopSignalled())
                break;
            QueuedMsg queued;
            bool bQueued = false;
            bool bTrim = false;
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (!queue.empty()) {
                    queued = std::move(queue.front());
                    queue.pop_front();
                    nQueuedBytes -= queued.vecExtra.size();
                    ++nProgress;
                    bQueued = true;
                } else if (nQueuedPeak >= kTrimAfterMessages) {
                    nQueuedPeak = 0;
                    bTrim = true;
                } else {
                    bLoopWaiting = true;
                    bWakeSent = false;
                }
            }
            if (bQueued) {
                Handle(queued.header, queued.vecExtra.data(), queued.vecExtra.size(), queued.replyAddr,
                       queued.nReplyLen);
                continue;
            }
            if (bTrim) {
                // A burst leaves its messages' memory in the heap; a daemon that runs for months
                // gives it back once the burst is over.
                (void)malloc_trim(0);
                continue;
            }
            SetWaitLimit(bTimer, tNext);
            sockaddr_un from{};
            socklen_t nFromLen = sizeof(from);
            ssize_t nGot = recvfrom(fd.Get(), pBuf, nBufSize, MSG_TRUNC, reinterpret_cast<sockaddr*>(&from), &nFromLen);
            if (nGot < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
                // The socket itself has failed: no message can come any more.
                ETL_TraceHelper::etlTrace(2, "msgqueue[%s]: cannot read the socket: %s", strName.c_str(), strerror(errno));
                std::lock_guard<std::mutex> lock(mutex);
                bLoopWaiting = false;
                break;
            }
            wire::Header header;
            bool bDirect = false;
            {
                std::lock_guard<std::mutex> lock(mutex);
                bLoopWaiting = false;
                if (nGot >= 0 && AcceptLocked(pBuf, static_cast<size_t>(nGot), from, nFromLen, header)) {
                    if (queue.empty()) {
                        bDirect = true;
                        ++nProgress;
                        CFG_COUNT(counters.nQueueMax = std::max<uint64_t>(counters.nQueueMax, 1));
                    } else {
                        // Local posts came first: this one waits its turn behind them.
                        QueuedMsg msg;
                        msg.header = header;
                        msg.vecExtra.assign(pBuf + wire::HEADER_SIZE, pBuf + nGot);
                        msg.replyAddr = from;
                        msg.nReplyLen = nFromLen;
                        PushLocked(std::move(msg));
                    }
                    if (bReceiverIdle) {
                        bReceiverIdle = false;
                        cvReceiver.notify_one();
                    }
                }
            }
            if (bDirect)
                Handle(header, pBuf + wire::HEADER_SIZE, static_cast<size_t>(nGot) - wire::HEADER_SIZE, from,
                       nFromLen);
        }
    }

    void Handle(const wire::Header& header, const unsigned char* pExtra, size_t nExtra, const sockaddr_un& from,
                socklen_t nFromLen)
    {
        ReplyContext ctx;
        ctx.fd = fd.Get();
        ctx.nSeq = header.nSeq;
        ctx.bWantsReply = header.nKind == wire::KIND_SEND && nFromLen > sizeof(sa_family_t);
        ctx.addr = from;
        ctx.nAddrLen = nFromLen;
        ctx.pnReplies = &counters.nReplies;
        CFG_COUNT(counters.CountHandled(header.nId));
        msgObject msg(header.nId, header.nWparam, header.nLparam, nExtra > 0 ? pExtra : nullptr,
                      static_cast<int>(nExtra), &ctx);
        int nResult = thread.TryThreadMessage(msg);
        // A sender always learns that the handling is over: with the handler's answer, else
        // with the dispatcher's result.
        SendReply(ctx, nResult != 0 ? 1 : 0, nullptr, 0);
    }

    // The receiver thread: while the loop reads for itself it only watches that messages keep
    // coming, and sleeps for good after a quiet tick (the loop wakes it with the next message).
    // While the loop is busy it drains the socket every tick, and continuously once the loop has
    // made no progress for a whole tick.
    void ReceiveLoop()
    {
        const auto tick = std::chrono::milliseconds(20);
        std::unique_lock<std::mutex> lock(mutex);
        uint64_t nSeen = nProgress;
        bool bStuck = false;
        bool bWatched = false; // a whole tick has passed since nSeen while the loop read for itself
        while (!bStopping) {
            if (bLoopWaiting) {
                if (bWatched && nProgress == nSeen) {
                    bReceiverIdle = true;
                    cvReceiver.wait(lock, [this] { return bStopping || !bReceiverIdle; });
                    bWatched = false;
                } else {
                    nSeen = nProgress;
                    cvReceiver.wait_for(lock, tick, [this] { return bStopping; });
                    bWatched = true;
                }
                bStuck = false;
                continue;
            }
            bWatched = false;
            if (!bStuck || QueueFullLocked()) {
                cvReceiver.wait_for(lock, tick, [this] { return bStopping; });
                if (bStopping || bLoopWaiting)
                    continue;
                bStuck = nProgress == nSeen;
            } else {
                lock.unlock();
                pollfd pfd{fd.Get(), POLLIN, 0};
                (void)poll(&pfd, 1, static_cast<int>(tick.count()));
                lock.lock();
                if (bStopping || bLoopWaiting)
                    continue;
                if (nProgress != nSeen)
                    bStuck = false;
            }
            nSeen = nProgress;
            ReadSocketLocked();
        }
    }
};

namespace {

RegistryMessageHandler g_pRegistryHandler = nullptr;

std::mutex& LocalThreadsMutex()
{
    static std::mutex s_mutex;
    return s_mutex;
}

// Threads registered by this process, by name: posts to them skip the socket and never block.
std::map<std::string, chThreadLocal::Impl*>& LocalThreads()
{
    static std::map<std::string, chThreadLocal::Impl*> s_threads;
    return s_threads;
}

// How many there are, readable without the mutex: a process that registered none (a client
// posting in a burst) looks nothing up per post.
std::atomic<size_t> g_nLocalThreads{0};

} // namespace

void SetRegistryMessageHandler(RegistryMessageHandler pHandler)
{
    g_pRegistryHandler = pHandler;
}

int HandleRegistryMessage(msgObject& msg)
{
    return g_pRegistryHandler != nullptr ? g_pRegistryHandler(msg) : 0;
}

chThreadLocal::Impl* FindLocalThreadByTask(int nTask)
{
    std::lock_guard<std::mutex> lock(LocalThreadsMutex());
    for (auto& entry : LocalThreads()) {
        if (entry.second->nTask == nTask)
            return entry.second;
    }
    return nullptr;
}

chThreadLocal::Impl* FindLocalThread(const std::string& strName)
{
    if (g_nLocalThreads.load(std::memory_order_acquire) == 0)
        return nullptr;
    std::lock_guard<std::mutex> lock(LocalThreadsMutex());
    auto it = LocalThreads().find(strName);
    return it == LocalThreads().end() ? nullptr : it->second;
}

void PostToLocalThread(chThreadLocal::Impl* pThread, const wire::Header& header, const void* pData)
{
    QueuedMsg msg;
    msg.header = header;
    if (header.nSize > 0)
        msg.vecExtra.assign(static_cast<const unsigned char*>(pData),
                            static_cast<const unsigned char*>(pData) + header.nSize);
    pThread->Enqueue(std::move(msg));
}

// ---- msgObject ----

msgObject::msgObject(uint32_t nId, int32_t nWparam, int32_t nLparam, const void* pExtra, int nExtraSize,
                     ReplyContext* pReply)
    : message(nId), wParam(nWparam), lParam(nLparam),
      m_pExtra(nExtraSize > 0 ? const_cast<void*>(pExtra) : nullptr),
      m_nExtraSize(nExtraSize > 0 && pExtra != nullptr ? nExtraSize : 0), m_pReply(pReply)
{
}

void* msgObject::GetExtraData() const
{
    return m_pExtra;
}

int msgObject::GetExtraSize() const
{
    return m_nExtraSize;
}

void msgObject::ReplyMessage(int nResult)
{
    if (m_pReply != nullptr)
        SendReply(*m_pReply, nResult, nullptr, 0);
}

void msgObject::ReplyMessageEx(int nResult, const void* pData, int nSize)
{
    if (m_pReply != nullptr)
        SendReply(*m_pReply, nResult, pData, nSize);
}

// ---- chMsgProcesser ----

int chMsgProcesser::TryThreadMessage(msgObject& msg)
{
    (void)msg;
    return 0;
}

chMsgProcesser::~chMsgProcesser() = default;

// ---- chThreadLocal ----

chThreadLocal::chThreadLocal(const char* szName, simpHandler pHandler) : m_pImpl(new Impl(*this))
{
    m_pImpl->strName = szName != nullptr ? szName : "";
    m_pImpl->pPlainHandler = pHandler;
}

chThreadLocal::~chThreadLocal()
{
    uCSystemShareHelper::getGlobalObject().DestroyLocalThread(*this);
}

int chThreadLocal::TryThreadMessage(msgObject& msg)
{
    switch (msg.message) {
    case MSG_PLATFORM_PING:
        msg.ReplyMessage(1);
        return 1;
    case MSG_PLATFORM_QUIT:
        ExitLoop(msg.wParam);
        return 1;
    case MSG_PLATFORM_REG_SET:
    case MSG_PLATFORM_REG_GET:
        return HandleRegistryMessage(msg);
    case MSG_PLATFORM_ITEMS:
    case MSG_PLATFORM_STATS:
    case MSG_PLATFORM_JOURNAL:
        return HandleInspectMessage(m_pImpl.get(), msg);
    default:
        break;
    }
    if (m_pImpl->pPlainHandler != nullptr) {
        simpMSG simp{msg.message, msg.wParam, msg.lParam, msg.GetExtraData(), msg.GetExtraSize()};
        return m_pImpl->pPlainHandler(&simp);
    }
    DefaultProcessMessage(msg);
    return 0;
}

int chThreadLocal::OnServiceStart()
{
    return 1;
}

int chThreadLocal::OnServiceStop()
{
    return 1;
}

void chThreadLocal::DefaultProcessMessage(msgObject& msg)
{
    (void)msg;
}

int chThreadLocal::Run()
{
    Impl& impl = *m_pImpl;
    impl.nExitStatus = 0;
    impl.bExit.store(false);
    CatchStopSignals();
    // Start-up leaves freed memory behind (parsed files, expanded name maps); give it back before
    // a run that may last for months.
    (void)malloc_trim(0);
    // A stop signal during start-up ends Run at once, without telling readiness.
    if (!impl.StopSignalled()) {
        // Ready is told just before the loop reads, so that whoever waits for it finds a ping
        // answered.
        (void)NotifyServiceManager("READY=1");
        if (impl.fd) {
            impl.RunLoop();
        } else {
            while (!impl.bExit.load() && !impl.StopSignalled())
                WaitForStopSignal(-1);
        }
    }
    if (impl.StopSignalled())
        impl.nExitStatus = 0;
    (void)NotifyServiceManager("STOPPING=1");
    return impl.nExitStatus;
}

void chThreadLocal::ExitLoop(int nStatus)
{
    Impl& impl = *m_pImpl;
    impl.nExitStatus = nStatus;
    impl.bExit.store(true);
    std::lock_guard<std::mutex> lock(impl.mutex);
    impl.WakeLoopLocked();
}

void chThreadLocal::SetInspectProvider(chInspectProvider* pProvider)
{
    m_pImpl->pInspect = pProvider;
}

chMsgCounters SnapshotCounters(chThreadLocal::Impl* pThread)
{
    std::lock_guard<std::mutex> lock(pThread->mutex);
    return pThread->counters;
}

chInspectProvider* InspectProviderOf(chThreadLocal::Impl* pThread)
{
    return pThread->pInspect;
}

// ---- uCSystemShareHelper ----

uCSystemShareHelper::uCSystemShareHelper()
{
    // A write past a file-size limit must fail with EFBIG and be traced, not kill the process;
    // a vanished peer must not kill it either.
    (void)signal(SIGXFSZ, SIG_IGN);
    (void)signal(SIGPIPE, SIG_IGN);
    // Fixed heap thresholds. The buffers of every rewrite (the 512 KiB copy buffer, the writer's
    // chunk) stay below them: served from the heap, their pages are reused instead of faulted in
    // anew each time. Anything larger (whole documents read at once) is mapped and goes back at
    // once, and the heap keeps at most this much free memory at its top. Left to itself, glibc
    // raises both thresholds to the largest buffer it has seen and holds twice that for good.
    const int kHeapThreshold = 640 * 1024;
    (void)mallopt(M_MMAP_THRESHOLD, kHeapThreshold);
    (void)mallopt(M_TRIM_THRESHOLD, kHeapThreshold);
}

uCSystemShareHelper& uCSystemShareHelper::getGlobalObject()
{
    static uCSystemShareHelper s_helper;
    return s_helper;
}

int uCSystemShareHelper::CreateLocalThread(chThreadLocal& thread)
{
    chThreadLocal::Impl& impl = *thread.GetImpl();
    if (impl.fd)
        return 0;
    std::string strPath = wire::ThreadSocketPath(impl.strName.c_str());
    if (strPath.empty()) {
        ETL_TraceHelper::etlTrace(2, "msgqueue: [%s] cannot name a message thread", impl.strName.c_str());
        return -1;
    }
    int nErr = wire::EnsureQueueDir();
    if (nErr != 0) {
        ETL_TraceHelper::etlTrace(2, "msgqueue: cannot create \"/tmp/msgq\": %s", strerror(-nErr));
        return -1;
    }
    // The lock file tells a live holder from a stale socket left by a dead process.
    std::string strLock = strPath + ".lock";
    ETL_BaseHelper::chScopedFd fdLock(open(strLock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!fdLock) {
        ETL_TraceHelper::etlTrace(2, "msgqueue: cannot open the lock of [%s]: %s", impl.strName.c_str(),
                                  strerror(errno));
        return -1;
    }
    if (flock(fdLock.Get(), LOCK_EX | LOCK_NB) != 0) {
        char szPid[32] = {0};
        ssize_t nGot = pread(fdLock.Get(), szPid, sizeof(szPid) - 1, 0);
        (void)nGot;
        ETL_TraceHelper::etlTrace(2, "msgqueue: thread [%s] is already registered by process %s; exiting",
                                  impl.strName.c_str(), szPid[0] != '\0' ? szPid : "?");
        _exit(1);
    }
    char szPid[32];
    int nPidLen = snprintf(szPid, sizeof(szPid), "%d", static_cast<int>(getpid()));
    if (ftruncate(fdLock.Get(), 0) != 0 || pwrite(fdLock.Get(), szPid, static_cast<size_t>(nPidLen), 0) != nPidLen)
        ETL_TraceHelper::etlTrace(2, "msgqueue: cannot record the holder of [%s]", impl.strName.c_str());

    (void)unlink(strPath.c_str());
    // Replies to senders go out of this socket too: it gets room for the largest one.
    ETL_BaseHelper::chScopedFd fdSocket(wire::OpenMessageSocket(0));
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, strPath.c_str(), strPath.size() + 1);
    if (!fdSocket || bind(fdSocket.Get(), reinterpret_cast<const sockaddr*>(&addr), sizeof(addr)) != 0) {
        ETL_TraceHelper::etlTrace(2, "msgqueue: cannot bind [%s]: %s", impl.strName.c_str(), strerror(errno));
        return -1;
    }
    impl.fd = std::move(fdSocket);
    int fd = impl.fd.Get();
    impl.fdLock = std::move(fdLock);
    impl.nTask = ETL_MiscHelper::etlGetCurrentTaskId();
    {
        std::lock_guard<std::mutex> lock(impl.mutex);
        impl.counters = chMsgCounters();
    }
    impl.strSocketPath = strPath;
    impl.strLockPath = strLock;
    impl.selfAddr = addr;
    impl.nSelfLen = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strPath.size() + 1);
    impl.nWaitLimitMs = 0;
    impl.bStopping = false;
    // Signals are caught from registration on, so a SIGTERM during start-up ends Run at once.
    impl.nSignalsAtStart = g_nStopSignals.load();
    g_wakeAddr = impl.selfAddr;
    g_nWakeLen = impl.nSelfLen;
    g_fdWake.store(fd);
    CatchStopSignals();
    {
        std::lock_guard<std::mutex> lock(LocalThreadsMutex());
        LocalThreads()[impl.strName] = &impl;
        g_nLocalThreads.store(LocalThreads().size(), std::memory_order_release);
    }
    pthread_attr_t attr;
    (void)pthread_attr_init(&attr);
    (void)pthread_attr_setstacksize(&attr, kReceiverStack);
    chThreadLocal::Impl* pImpl = &impl;
    nErr = pthread_create(&impl.receiver, &attr, [](void* pArg) -> void* {
        static_cast<chThreadLocal::Impl*>(pArg)->ReceiveLoop();
        return nullptr;
    }, pImpl);
    (void)pthread_attr_destroy(&attr);
    impl.bReceiverRunning = nErr == 0;
    if (nErr != 0)
        ETL_TraceHelper::etlTrace(2, "msgqueue: [%s] no receiver thread: %s", impl.strName.c_str(), strerror(nErr));
    return 0;
}

int uCSystemShareHelper::DestroyLocalThread(chThreadLocal& thread)
{
    chThreadLocal::Impl& impl = *thread.GetImpl();
    if (!impl.fd)
        return 0;
    {
        std::lock_guard<std::mutex> lock(LocalThreadsMutex());
        auto it = LocalThreads().find(impl.strName);
        if (it != LocalThreads().end() && it->second == &impl)
            LocalThreads().erase(it);
        g_nLocalThreads.store(LocalThreads().size(), std::memory_order_release);
    }
    {
        std::lock_guard<std::mutex> lock(impl.mutex);
        impl.bStopping = true;
    }
    impl.cvReceiver.notify_all();
    (void)unlink(impl.strSocketPath.c_str());
    (void)shutdown(impl.fd.Get(), SHUT_RDWR);
    if (impl.bReceiverRunning)
        (void)pthread_join(impl.receiver, nullptr);
    impl.bReceiverRunning = false;
    int nExpected = impl.fd.Get();
    (void)g_fdWake.compare_exchange_strong(nExpected, -1);
    impl.fd.Reset();
    (void)unlink(impl.strLockPath.c_str());
    impl.fdLock.Reset();
    std::lock_guard<std::mutex> lock(impl.mutex);
    impl.queue.clear();
    impl.nQueuedBytes = 0;
    impl.bLoopWaiting = false;
    impl.bReceiverIdle = false;
    return 0;
}

} // namespace ETL_MsgQueueHelper
