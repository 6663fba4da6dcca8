// The inspection messages of a message thread: items, counters and the change journal, answered
// with text lines in the reply. The platform's own lines are written here; the rest comes from
// the thread's provider.
#include "ETL_MsgQueueHelper.h"
#include "ETL_ScopedHandle.h"
#include "MsgPlatform.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

namespace ETL_MsgQueueHelper {

namespace {

// Room kept below the reply's limit for the line that says what was left out.
const size_t kMarkerRoom = 96;

void AppendLine(std::string& strOut, const char* szKey, uint64_t nValue)
{
    char szLine[160];
    int n = snprintf(szLine, sizeof(szLine), "%s %" PRIu64 "\n", szKey, nValue);
    strOut.append(szLine, static_cast<size_t>(n));
}

void AppendSeconds(std::string& strOut, const char* szKey, std::chrono::steady_clock::duration d)
{
    long long nMs = std::chrono::duration_cast<std::chrono::milliseconds>(d).count();
    char szLine[96];
    int n = snprintf(szLine, sizeof(szLine), "%s %lld.%03lld\n", szKey, nMs / 1000, nMs % 1000);
    strOut.append(szLine, static_cast<size_t>(n));
}

#if CFG_COUNTERS
const char* PlatformMessageName(uint32_t nId)
{
    switch (nId) {
    case MSG_PLATFORM_PING: return "ping";
    case MSG_PLATFORM_QUIT: return "quit";
    case MSG_PLATFORM_REG_SET: return "reg-set";
    case MSG_PLATFORM_REG_GET: return "reg-get";
    case MSG_PLATFORM_SECTION_CHANGED: return "section-changed";
    case MSG_PLATFORM_ITEMS: return "items";
    case MSG_PLATFORM_STATS: return "stats";
    case MSG_PLATFORM_JOURNAL: return "journal";
    default: return nullptr;
    }
}
#endif

// RssAnon of /proc/self/status in KiB; 0 when the kernel does not report it.
uint64_t RssAnonKib()
{
    ETL_BaseHelper::chScopedFile status(fopen("/proc/self/status", "re"));
    if (!status)
        return 0;
    char szLine[256];
    unsigned long long nKib = 0;
    while (fgets(szLine, sizeof(szLine), status.Get()) != nullptr) {
        if (sscanf(szLine, "RssAnon: %llu kB", &nKib) == 1)
            break;
    }
    return nKib;
}

void AppendStats(chThreadLocal::Impl* pThread, chInspectProvider* pProvider, std::string& strOut)
{
    const chMsgCounters counters = SnapshotCounters(pThread);
    auto tNow = std::chrono::steady_clock::now();
    AppendSeconds(strOut, "uptime", tNow - counters.tStart);
    // The journal's times are on this clock.
    AppendSeconds(strOut, "clock", tNow.time_since_epoch());
#if CFG_COUNTERS
    for (int i = 0; i < counters.nIds; ++i) {
        uint32_t nId = counters.aIds[i].nId;
        const char* szName = PlatformMessageName(nId);
        if (szName == nullptr && pProvider != nullptr)
            szName = pProvider->MessageName(nId);
        char szKey[128];
        snprintf(szKey, sizeof(szKey), "handled.0x%x%s%s", nId, szName != nullptr ? "." : "",
                 szName != nullptr ? szName : "");
        AppendLine(strOut, szKey, counters.aIds[i].nCount);
    }
    AppendLine(strOut, "handled.other", counters.nOther);
    AppendLine(strOut, "replies", counters.nReplies);
    AppendLine(strOut, "dropped.malformed", counters.nMalformed);
    AppendLine(strOut, "dropped.queue_full", counters.nQueueFull);
    AppendLine(strOut, "queue.max", counters.nQueueMax);
#else
    strOut += "counters off\n";
#endif
    AppendLine(strOut, "rss_anon_kib", RssAnonKib());
    if (pProvider != nullptr)
        pProvider->AppendStats(strOut);
}

void AppendMarker(std::string& strOut, int nLeft, const char* szWhat)
{
    if (nLeft <= 0)
        return;
    char szLine[kMarkerRoom];
    int n = snprintf(szLine, sizeof(szLine), "# truncated: %d %s not shown\n", nLeft, szWhat);
    strOut.append(szLine, static_cast<size_t>(n));
}

} // namespace

int HandleInspectMessage(chThreadLocal::Impl* pThread, msgObject& msg)
{
    chInspectProvider* pProvider = InspectProviderOf(pThread);
    const char* pExtra = static_cast<const char*>(msg.GetExtraData());
    size_t nExtra = static_cast<size_t>(msg.GetExtraSize());
    const size_t nLimit = static_cast<size_t>(MSG_MAX_EXTRA) - kMarkerRoom;
    std::string strOut;
    int nResult = 1;
    int nLeft = 0;
    switch (msg.message) {
    case MSG_PLATFORM_STATS:
        AppendStats(pThread, pProvider, strOut);
        break;
    case MSG_PLATFORM_ITEMS:
        // -1 tells the sender that this thread keeps no items.
        nResult = pProvider != nullptr ? pProvider->AppendItems(pExtra, nExtra, nLimit, strOut, nLeft) : -1;
        AppendMarker(strOut, nLeft, "more items");
        break;
    default:
        nResult = pProvider != nullptr
                      ? pProvider->AppendJournal(pExtra, nExtra, msg.wParam > 0 ? msg.wParam : 0, nLimit, strOut, nLeft)
                      : -1;
        AppendMarker(strOut, nLeft, "older entries");
        break;
    }
    msg.ReplyMessageEx(nResult, strOut.data(), static_cast<int>(strOut.size()));
    return 1;
}

} // namespace ETL_MsgQueueHelper
