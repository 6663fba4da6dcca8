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
#include <asio/posix/stream_descriptor.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <malloc.h>
#include <map>
#include <poll.h>
#include <mutex>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace ETL_MsgQueueHelper {

asio::io_context& PlatformLoop()
{
    static asio::io_context s_loop(1);
    return s_loop;
}

namespace {

// A loop of its own, run only inside the platform's sleep: its signal set is told of SIGTERM and
// SIGINT as the message loop's is (which still ends Run at once), but it never handles a message.
struct SleepWatch {
    asio::io_context loop{1};
    asio::signal_set signals{loop, SIGTERM, SIGINT};
    bool bStop = false;
};

// Made when a message thread starts catching the stop signals; never destroyed, so that a
// signal at exit finds it whole.
SleepWatch* g_pSleepWatch = nullptr;

} // namespace

bool PlatformSleep(int nMs)
{
    if (g_pSleepWatch == nullptr)
        return false;
    SleepWatch& watch = *g_pSleepWatch;
    if (!watch.bStop) {
        watch.signals.async_wait([&watch](const asio::error_code& ec, int) {
            if (ec == asio::error::operation_aborted)
                return;
            watch.bStop = true;
            watch.loop.stop();
        });
        watch.loop.restart();
        (void)watch.loop.run_for(std::chrono::milliseconds(nMs));
        asio::error_code ec;
        (void)watch.signals.cancel(ec);
        watch.loop.restart();
        (void)watch.loop.poll();
    }
    return true;
}

bool PlatformStopRequested()
{
    return g_pSleepWatch != nullptr && g_pSleepWatch->bStop;
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
    std::string strDgram = wire::EncodeDatagram(header, pData);
    if (sendto(ctx.fd, strDgram.data(), strDgram.size(), MSG_DONTWAIT,
               reinterpret_cast<const sockaddr*>(&ctx.addr), ctx.nAddrLen) < 0)
        ETL_TraceHelper::etlTrace(2, "msgqueue: reply to a sender failed: %s", strerror(errno));
    else if (ctx.pnReplies != nullptr)
        CFG_COUNT(++*ctx.pnReplies);
}

} // namespace

// How the queue is fed: while the loop is idle it waits for the socket itself and reads it, so a
// message costs one wake-up. While a handler runs (or before Run), a receiver thread of the
// platform takes over reading, so the kernel's small datagram queue never limits the senders.
// Every read happens under the mutex straight into the queue, so the order is the arrival order.
struct chThreadLocal::Impl {
    explicit Impl(chThreadLocal& owner) : thread(owner) {}

    chThreadLocal& thread;
    std::string strName;
    simpHandler pPlainHandler = nullptr;
    chInspectProvider* pInspect = nullptr;
    chMsgCounters counters;

    int fd = -1;
    ETL_BaseHelper::chScopedFd fdLock;
    int nTask = 0; // the task that registered the thread
    std::string strSocketPath;
    std::string strLockPath;
    std::thread receiver;
    std::unique_ptr<asio::posix::stream_descriptor> pDescriptor;
    std::unique_ptr<unsigned char[]> pLoopBuf;

    std::mutex mutex; // guards the queue and the flags below
    std::condition_variable cvReceiver;
    std::deque<QueuedMsg> queue;
    size_t nQueuedBytes = 0;
    uint64_t nProgress = 0;     // messages the loop has taken
    size_t nQueuedPeak = 0;     // most messages waiting at once since the heap was last trimmed
    bool bChainActive = false;  // a DrainOne is posted or running
    bool bArmed = false;        // the loop waits for the socket itself
    bool bReceiverIdle = false; // the receiver sleeps until the loop gets busy
    bool bStopping = false;
    bool bFullCounted = false;  // the current stall at the queue's bound is counted

    std::unique_ptr<asio::signal_set> pSignals;
    int nExitStatus = 0;
    // Work already posted to the loop checks this first, so a destroyed thread is never touched.
    std::shared_ptr<bool> pAlive = std::make_shared<bool>(true);

    bool QueueFullLocked() const { return queue.size() >= kMaxQueuedMessages || nQueuedBytes >= kMaxQueuedBytes; }

    void ScheduleDrain()
    {
        std::weak_ptr<bool> wpAlive = pAlive;
        asio::post(PlatformLoop(), [this, wpAlive] {
            if (!wpAlive.expired())
                DrainOne();
        });
    }

    void KickLocked()
    {
        if (!bChainActive) {
            bChainActive = true;
            ScheduleDrain();
        }
    }

    // A post from this process: straight into the queue, never blocking.
    void Enqueue(QueuedMsg&& msg)
    {
        std::lock_guard<std::mutex> lock(mutex);
        nQueuedBytes += msg.vecExtra.size();
        queue.push_back(std::move(msg));
        CFG_COUNT(counters.nQueueMax = std::max<uint64_t>(counters.nQueueMax, queue.size()));
        KickLocked();
    }

    // Moves datagrams waiting in the socket into the queue (at most nMax), within the bounds.
    // The buffer holds the largest datagram and one byte more; it is not cleared, so the pages
    // that no datagram ever reaches are never touched.
    void ReadSocketLocked(std::unique_ptr<unsigned char[]>& pBuf, size_t nMax = SIZE_MAX)
    {
        const size_t nBufSize = wire::MAX_DATAGRAM + 1;
        if (!pBuf)
            pBuf.reset(new unsigned char[nBufSize]);
        unsigned char* pData = pBuf.get();
        size_t nTaken = 0;
        while (fd >= 0 && nTaken < nMax && !QueueFullLocked()) {
            sockaddr_un from{};
            socklen_t nFromLen = sizeof(from);
            ssize_t nGot = recvfrom(fd, pData, nBufSize, MSG_DONTWAIT | MSG_TRUNC,
                                    reinterpret_cast<sockaddr*>(&from), &nFromLen);
            if (nGot < 0) {
                if (errno == EINTR)
                    continue;
                return;
            }
            size_t nLen = static_cast<size_t>(nGot);
            wire::Header header;
            const char* szWhy = nLen > wire::MAX_DATAGRAM ? "datagram over the maximum size"
                                                          : wire::DecodeDatagram(pData, nLen, header);
            if (szWhy == nullptr && header.nKind == wire::KIND_REPLY)
                szWhy = "reply that nobody waits for";
            if (szWhy != nullptr) {
                ETL_TraceHelper::etlTrace(2, "msgqueue[%s]: dropped a malformed datagram of %zd bytes: %s",
                                          strName.c_str(), nGot, szWhy);
                CFG_COUNT(++counters.nMalformed);
                continue;
            }
            QueuedMsg msg;
            msg.header = header;
            msg.vecExtra.assign(pData + wire::HEADER_SIZE, pData + nLen);
            msg.replyAddr = from;
            msg.nReplyLen = nFromLen;
            nQueuedBytes += msg.vecExtra.size();
            queue.push_back(std::move(msg));
            nQueuedPeak = std::max(nQueuedPeak, queue.size());
            CFG_COUNT(counters.nQueueMax = std::max<uint64_t>(counters.nQueueMax, queue.size()));
            ++nTaken;
            bFullCounted = false;
        }
        // Counted once per stall, not at every tick the receiver finds the bound still reached.
        if (fd >= 0 && nTaken < nMax && QueueFullLocked() && !bFullCounted) {
            bFullCounted = true;
            CFG_COUNT(++counters.nQueueFull);
        }
    }

    // Loop only: wait for the socket to become readable, then drain again.
    void ArmLocked()
    {
        if (bArmed || !pDescriptor)
            return;
        bArmed = true;
        std::weak_ptr<bool> wpAlive = pAlive;
        pDescriptor->async_wait(asio::posix::stream_descriptor::wait_read,
                                [this, wpAlive](const asio::error_code& ec) {
                                    if (ec == asio::error::operation_aborted || wpAlive.expired())
                                        return;
                                    {
                                        std::lock_guard<std::mutex> lock(mutex);
                                        bArmed = false;
                                        if (bChainActive)
                                            return;
                                        bChainActive = true;
                                    }
                                    DrainOne();
                                });
    }

    // Loop only: handles one message, then yields so that timers due meanwhile get their turn.
    void DrainOne()
    {
        QueuedMsg msg;
        {
            std::lock_guard<std::mutex> lock(mutex);
            // One at a time: the read that finds the socket empty is the one that arms the wait.
            if (queue.empty())
                ReadSocketLocked(pLoopBuf, 1);
            if (queue.empty()) {
                bChainActive = false;
                ArmLocked();
                // A burst leaves its messages' memory in the heap (much of it in the receiver's
                // arena); a daemon that runs for months gives it back once the burst is over.
                if (nQueuedPeak >= kTrimAfterMessages) {
                    nQueuedPeak = 0;
                    (void)malloc_trim(0);
                }
                return;
            }
            msg = std::move(queue.front());
            queue.pop_front();
            nQueuedBytes -= msg.vecExtra.size();
            ++nProgress;
            if (bReceiverIdle) {
                bReceiverIdle = false;
                cvReceiver.notify_one();
            }
        }
        Handle(msg);
        ScheduleDrain();
    }

    void Handle(QueuedMsg& queued)
    {
        ReplyContext ctx;
        ctx.fd = fd;
        ctx.nSeq = queued.header.nSeq;
        ctx.bWantsReply = queued.header.nKind == wire::KIND_SEND && queued.nReplyLen > sizeof(sa_family_t);
        ctx.addr = queued.replyAddr;
        ctx.nAddrLen = queued.nReplyLen;
        ctx.pnReplies = &counters.nReplies;
        CFG_COUNT(counters.CountHandled(queued.header.nId));
        void* pExtra = queued.vecExtra.empty() ? nullptr : queued.vecExtra.data();
        msgObject msg(queued.header.nId, queued.header.nWparam, queued.header.nLparam, pExtra,
                      static_cast<int>(queued.vecExtra.size()), &ctx);
        int nResult = thread.TryThreadMessage(msg);
        // A sender always learns that the handling is over: with the handler's answer, else
        // with the dispatcher's result.
        SendReply(ctx, nResult != 0 ? 1 : 0, nullptr, 0);
    }

    // The receiver thread: idle while the loop reads for itself; otherwise it drains the socket
    // every tick, and continuously once the loop has made no progress for a whole tick.
    void ReceiveLoop()
    {
        const auto tick = std::chrono::milliseconds(20);
        std::unique_ptr<unsigned char[]> pBuf;
        std::unique_lock<std::mutex> lock(mutex);
        uint64_t nSeen = nProgress;
        bool bStuck = false;
        while (!bStopping) {
            if (bArmed) {
                bReceiverIdle = true;
                cvReceiver.wait(lock, [this] { return bStopping || !bReceiverIdle; });
                nSeen = nProgress;
                bStuck = false;
                continue;
            }
            if (!bStuck || QueueFullLocked()) {
                cvReceiver.wait_for(lock, tick, [this] { return bStopping; });
                if (bStopping || bArmed)
                    continue;
                bStuck = nProgress == nSeen;
            } else {
                lock.unlock();
                pollfd pfd{fd, POLLIN, 0};
                (void)poll(&pfd, 1, static_cast<int>(tick.count()));
                lock.lock();
                if (bStopping || bArmed)
                    continue;
                if (nProgress != nSeen)
                    bStuck = false;
            }
            nSeen = nProgress;
            ReadSocketLocked(pBuf);
            if (!queue.empty())
                KickLocked();
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
    asio::io_context& loop = PlatformLoop();
    Impl& impl = *m_pImpl;
    impl.nExitStatus = 0;
    if (!impl.pSignals) {
        impl.pSignals.reset(new asio::signal_set(loop, SIGTERM, SIGINT));
    }
    impl.pSignals->async_wait([&impl](const asio::error_code& ec, int) {
        if (ec == asio::error::operation_aborted)
            return;
        impl.nExitStatus = 0;
        PlatformLoop().stop();
    });
    // Ready is told from inside the loop (first, before what waits), so that whoever waits for it
    // finds a ping answered.
    asio::post(loop, [] { (void)NotifyServiceManager("READY=1"); });
    {
        // Start with whatever waits; the loop then arms itself on the socket.
        std::lock_guard<std::mutex> lock(impl.mutex);
        impl.KickLocked();
    }
    // Start-up leaves freed memory behind (parsed files, expanded name maps); give it back before
    // a run that may last for months.
    (void)malloc_trim(0);
    auto guard = asio::make_work_guard(loop);
    loop.restart();
    loop.run();
    (void)NotifyServiceManager("STOPPING=1");
    return impl.nExitStatus;
}

void chThreadLocal::ExitLoop(int nStatus)
{
    m_pImpl->nExitStatus = nStatus;
    PlatformLoop().stop();
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
    if (impl.fd >= 0)
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
    int fd = fdSocket.Release();
    impl.fd = fd;
    impl.fdLock = std::move(fdLock);
    impl.nTask = ETL_MiscHelper::etlGetCurrentTaskId();
    {
        std::lock_guard<std::mutex> lock(impl.mutex);
        impl.counters = chMsgCounters();
    }
    impl.strSocketPath = strPath;
    impl.strLockPath = strLock;
    impl.bStopping = false;
    // Signals are caught from registration on, so a SIGTERM during start-up ends Run at once.
    impl.pSignals.reset(new asio::signal_set(PlatformLoop(), SIGTERM, SIGINT));
    if (g_pSleepWatch == nullptr)
        g_pSleepWatch = new SleepWatch;
    {
        std::lock_guard<std::mutex> lock(LocalThreadsMutex());
        LocalThreads()[impl.strName] = &impl;
    }
    impl.pDescriptor.reset(new asio::posix::stream_descriptor(PlatformLoop(), fd));
    chThreadLocal::Impl* pImpl = &impl;
    impl.receiver = std::thread([pImpl] { pImpl->ReceiveLoop(); });
    return 0;
}

int uCSystemShareHelper::DestroyLocalThread(chThreadLocal& thread)
{
    chThreadLocal::Impl& impl = *thread.GetImpl();
    if (impl.fd < 0)
        return 0;
    {
        std::lock_guard<std::mutex> lock(LocalThreadsMutex());
        auto it = LocalThreads().find(impl.strName);
        if (it != LocalThreads().end() && it->second == &impl)
            LocalThreads().erase(it);
    }
    {
        std::lock_guard<std::mutex> lock(impl.mutex);
        impl.bStopping = true;
    }
    impl.cvReceiver.notify_all();
    (void)unlink(impl.strSocketPath.c_str());
    (void)shutdown(impl.fd, SHUT_RDWR);
    if (impl.receiver.joinable())
        impl.receiver.join();
    if (impl.pDescriptor) {
        asio::error_code ec;
        impl.pDescriptor->cancel(ec);
        (void)impl.pDescriptor->release();
        impl.pDescriptor.reset();
    }
    (void)close(impl.fd);
    impl.fd = -1;
    (void)unlink(impl.strLockPath.c_str());
    impl.fdLock.Reset();
    impl.pSignals.reset();
    std::lock_guard<std::mutex> lock(impl.mutex);
    impl.queue.clear();
    impl.nQueuedBytes = 0;
    impl.bChainActive = false;
    impl.bArmed = false;
    impl.bReceiverIdle = false;
    impl.pAlive = std::make_shared<bool>(true);
    return 0;
}

} // namespace ETL_MsgQueueHelper
