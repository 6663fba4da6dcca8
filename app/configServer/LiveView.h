// What the service tells about itself while it runs: its counters, and the provider that answers
// the platform's items, stats and journal messages from the item table and the journal.
#pragma once

#include "ETL_MsgQueueHelper.h"

#include <chrono>
#include <cstdint>


// Plain integers: only the service thread touches them.
struct CServiceCounters {
    uint64_t nUserFileRewrites = 0;
    uint64_t nBytesWritten = 0; // configuration text written by the file writer, every target
    uint64_t nRegistrySaves = 0;
    std::chrono::steady_clock::time_point tLastRewrite;
};

extern CServiceCounters g_serviceCounters;

// The provider the service object registers with its thread.
ETL_MsgQueueHelper::chInspectProvider& ConfigInspector();
