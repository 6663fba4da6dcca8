// Links between the parts of the message platform (internal).
#pragma once

#include "ETL_MsgQueueHelper.h"
#include "MsgWire.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace ETL_MsgQueueHelper {

// The thread of this process registered under the name, or null.
chThreadLocal::Impl* FindLocalThread(const std::string& strName);

// The thread of this process registered by the given task (kernel thread id), or null.
chThreadLocal::Impl* FindLocalThreadByTask(int nTask);

// Queues a message at a thread of this process; never blocks.
void PostToLocalThread(chThreadLocal::Impl* pThread, const wire::Header& header, const void* pData);

// The registry answers its platform messages through this hook once it exists in the process.
typedef int (*RegistryMessageHandler)(msgObject& msg);
void SetRegistryMessageHandler(RegistryMessageHandler pHandler);
int HandleRegistryMessage(msgObject& msg);

// What one message thread has done since it was registered. The loop alone writes the handled and
// reply counts; the drop counts and the queue peak are written under the queue's mutex (by the
// loop or the receiver thread), so a snapshot taken under that mutex is consistent.
struct chMsgCounters {
    // Ids counted one by one; the table fills in order of first arrival, later ids go to nOther.
    static constexpr int kMaxIds = 32;
    struct IdCount {
        uint32_t nId;
        uint64_t nCount;
    };
    IdCount aIds[kMaxIds] = {};
    int nIds = 0;
    uint64_t nOther = 0;
    uint64_t nReplies = 0;
    uint64_t nMalformed = 0;
    uint64_t nQueueFull = 0; // times the receiver left datagrams in the socket at the queue's bound
    uint64_t nQueueMax = 0;  // most messages waiting at once
    std::chrono::steady_clock::time_point tStart = std::chrono::steady_clock::now();

    void CountHandled(uint32_t nId)
    {
        for (int i = 0; i < nIds; ++i) {
            if (aIds[i].nId == nId) {
                ++aIds[i].nCount;
                return;
            }
        }
        if (nIds < kMaxIds)
            aIds[nIds++] = IdCount{nId, 1};
        else
            ++nOther;
    }
};

// A copy of the thread's counters, taken under its queue's mutex.
chMsgCounters SnapshotCounters(chThreadLocal::Impl* pThread);

// The platform side of a thread object, for the platform's internals and their tests.
struct chThreadLocalAccess {
    static chThreadLocal::Impl* Of(const chThreadLocal& thread) { return thread.GetImpl(); }
};
chInspectProvider* InspectProviderOf(chThreadLocal::Impl* pThread);

// The three inspection messages; nonzero when handled (always replied to).
int HandleInspectMessage(chThreadLocal::Impl* pThread, msgObject& msg);

// Sends szState ("READY=1", "STOPPING=1") to the service manager named by NOTIFY_SOCKET; 0 when
// sent or when no manager listens, else a negative errno (traced once here).
int NotifyServiceManager(const char* szState);

} // namespace ETL_MsgQueueHelper
