// The platform message-thread framework: named message threads, messages, timers and posting.
// A message thread is a Unix datagram socket under /tmp/msgq of the system root; messages are
// queued in the receiving process and handled one at a time, in arrival order, by Run().
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// Counters cost one increment each on the message path; a build with CFG_COUNTERS=0 drops them
// so that the round-trip benchmark can be run both ways.
#ifndef CFG_COUNTERS
#define CFG_COUNTERS 1
#endif
#if CFG_COUNTERS
#define CFG_COUNT(expr) (expr)
#else
#define CFG_COUNT(expr) ((void)0)
#endif

namespace ETL_MsgQueueHelper {

// Platform message ids; no service message uses this range.
enum : uint32_t {
    MSG_PLATFORM_PING = 0x7f000001,
    MSG_PLATFORM_QUIT = 0x7f000002,
    MSG_PLATFORM_REG_SET = 0x7f000003,
    MSG_PLATFORM_REG_GET = 0x7f000004,
    MSG_PLATFORM_SECTION_CHANGED = 0x7f000005,
    // Live inspection: answered with text lines in the reply's extra data (see chInspectProvider).
    MSG_PLATFORM_ITEMS = 0x7f000006,   // extra: name prefix (optional); reply: items listed
    MSG_PLATFORM_STATS = 0x7f000007,   // reply: 1
    MSG_PLATFORM_JOURNAL = 0x7f000008, // wparam: entries (0 all); extra: item name; reply: ring size
    MSG_PLATFORM_TIMER = 0x7f000100,
};

enum : int { MSG_MAX_EXTRA = 65536 };

// The message of the plain handler of chThreadLocal.
struct simpMSG {
    uint32_t message;
    int32_t wParam;
    int32_t lParam;
    const void* pExtra;
    int nExtraSize;
};

struct ReplyContext;

// A received message (or a timer expiry). Owned by the platform for the time of one handler call.
class msgObject {
public:
    msgObject(uint32_t nId, int32_t nWparam, int32_t nLparam, const void* pExtra, int nExtraSize,
              ReplyContext* pReply = nullptr);
    msgObject(const msgObject&) = delete;
    msgObject& operator=(const msgObject&) = delete;

    uint32_t message;
    int32_t wParam;
    int32_t lParam;

    // Null and 0 when the message carries no extra bytes. Text is not terminated by the platform:
    // stay inside GetExtraSize().
    void* GetExtraData() const;
    int GetExtraSize() const;

    // Answers a sender that waits; ignored for a posted message. The first answer wins.
    void ReplyMessage(int nResult);
    // As ReplyMessage, with extra bytes for the sender (the value of a registry read).
    void ReplyMessageEx(int nResult, const void* pData, int nSize);

private:
    void* m_pExtra;
    int m_nExtraSize;
    ReplyContext* m_pReply;
};

// Something that handles messages; timers and registry watches call handlers of this type.
class chMsgProcesser {
public:
    typedef int (chMsgProcesser::*msgHandler)(msgObject& msg);

    chMsgProcesser() = default;
    virtual int TryThreadMessage(msgObject& msg);
    virtual ~chMsgProcesser();
    chMsgProcesser(const chMsgProcesser&) = delete;
    chMsgProcesser& operator=(const chMsgProcesser&) = delete;
};

// Casts a member handler of a derived processor to the handler type the platform takes.
#define MSG_HANDLER(fn) static_cast<ETL_MsgQueueHelper::chMsgProcesser::msgHandler>(fn)

// A timer of the message thread; fires inside Run() and repeats until KillTimer.
class chThreadTimer {
public:
    explicit chThreadTimer(unsigned int nId);
    ~chThreadTimer();
    chThreadTimer(const chThreadTimer&) = delete;
    chThreadTimer& operator=(const chThreadTimer&) = delete;

    // Arms (or re-arms) the timer: pHandler is called on pTarget every nIntervalMs milliseconds.
    void SetTimer(uint64_t nIntervalMs, void* pData, chMsgProcesser* pTarget,
                  chMsgProcesser::msgHandler pHandler);
    void KillTimer();
    int IsTimerRuning() const;

    struct Impl;

private:
    std::unique_ptr<Impl> m_pImpl;
};

// What a thread holds beyond the platform's own counters, for the inspection messages. Each call
// appends text lines to strOut; the platform cuts the reply at MSG_MAX_EXTRA bytes.
class chInspectProvider {
public:
    virtual ~chInspectProvider() = default;
    // "name = value" lines of the items whose names start with the nPrefixLen bytes at pPrefix.
    // Returns the number of items that matched. Lines that would take strOut past nLimit bytes are
    // left out and counted in nLeft.
    virtual int AppendItems(const char* pPrefix, size_t nPrefixLen, size_t nLimit, std::string& strOut,
                            int& nLeft) = 0;
    // "key value" lines of the thread's own counters.
    virtual void AppendStats(std::string& strOut) = 0;
    // The last nCount changes (0: all kept) of the item named by the nItemLen bytes at pItem (all
    // items when nItemLen is 0), oldest first. Past nLimit bytes the oldest of them are left out
    // and counted in nLeft. Returns the ring's size.
    virtual int AppendJournal(const char* pItem, size_t nItemLen, int nCount, size_t nLimit, std::string& strOut,
                              int& nLeft) = 0;
    // The name of a message id the thread knows, or null.
    virtual const char* MessageName(uint32_t nId) = 0;
};

class uCSystemShareHelper;

// A named message thread: the object whose loop handles the messages posted to its name.
class chThreadLocal : public chMsgProcesser {
public:
    typedef int (*simpHandler)(simpMSG* pMsg);

    chThreadLocal(const char* szName, simpHandler pHandler);

    // Base handling: the platform messages (ping, quit, registry access), then the plain handler.
    // Nonzero when handled.
    int TryThreadMessage(msgObject& msg) override;
    ~chThreadLocal() override;
    virtual int OnServiceStart();
    virtual int OnServiceStop();
    virtual void DefaultProcessMessage(msgObject& msg);

    // Handles messages and timer expiries until told to quit. Returns 0 after SIGTERM or SIGINT,
    // or the status carried by the quit message.
    int Run();
    // Makes Run return nStatus once the current handler is done; later messages stay queued.
    void ExitLoop(int nStatus);

    // The provider that answers the inspection messages with the thread's own data; not owned.
    // Without one, items and journal are not handled and stats carry the platform's lines only.
    void SetInspectProvider(chInspectProvider* pProvider);

    struct Impl;

private:
    // Registration and the platform's own internals work on the platform's side of the thread;
    // nothing else reaches it.
    friend class uCSystemShareHelper;
    friend struct chThreadLocalAccess;
    Impl* GetImpl() const { return m_pImpl.get(); }
    std::unique_ptr<Impl> m_pImpl;
};

// The process's handle on the platform message system.
class uCSystemShareHelper {
public:
    static uCSystemShareHelper& getGlobalObject();

    // Registers the calling thread under the thread's name. A name held by a live process ends
    // this process with status 1 after one trace line naming the holder.
    int CreateLocalThread(chThreadLocal& thread);
    int DestroyLocalThread(chThreadLocal& thread);

private:
    uCSystemShareHelper();
};

// Handle of a registered message thread; 0 when no thread of that name is registered.
typedef uint32_t msgThread;

msgThread msgGetThreadByName(const char* szName);

// Queue a message at the thread without waiting for its handling. 0 when queued; nonzero when the
// thread does not exist, the extra data is too large, or its queue stayed full for one second.
int msgPostMsgToThread(msgThread hThread, uint32_t nId, int32_t nWparam, int32_t nLparam);
int msgPostMsgToThreadEx(msgThread hThread, uint32_t nId, int32_t nWparam, int32_t nLparam,
                         int nSize, const void* pData);

// Result codes of msgSendMsgToThread.
enum : int { MSG_SEND_OK = 0, MSG_SEND_NO_THREAD = 2, MSG_SEND_TIMEOUT = 3 };

// Sends and waits for the handler's answer (its ReplyMessage, else the dispatcher's result).
// pReplyData, when given, receives the extra bytes of the reply.
int msgSendMsgToThread(msgThread hThread, uint32_t nId, int32_t nWparam, int32_t nLparam,
                       int nSize, const void* pData, int nTimeoutMs, int* pnReply,
                       std::string* pReplyData);

} // namespace ETL_MsgQueueHelper
