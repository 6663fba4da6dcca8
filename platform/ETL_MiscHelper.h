// Small platform services: file existence, sleeping, task ids, faulting memory in at once.
#pragma once

#include <cstddef>

namespace ETL_MiscHelper {

// Nonzero when the (logical) path exists.
int pathFileExist(const char* szPath);

// Sleeps the calling thread for the given milliseconds. Messages keep arriving meanwhile: the
// platform queues them for the thread, to be handled once it runs its loop again.
// Once the thread's loop catches SIGTERM and SIGINT (from registration on), either of them ends
// the sleep at once; the loop still sees the signal when it runs.
void etlSleep(int nMs);

// Nonzero once SIGTERM or SIGINT ended a sleep (or came before one): the caller should stop.
int etlStopRequested();

// The platform id of the calling task (the kernel thread id).
int etlGetCurrentTaskId();

// Faults the pages of [p, p + nBytes) in with one call instead of one fault per page as they are
// first written, which costs ten times as much on a virtual machine. Does nothing on a kernel that
// cannot (before 5.14).
void etlPrefault(void* p, size_t nBytes);

// The same for about nBytes of heap that the allocations to follow will take (at most 512 KiB):
// for a bulk load into an empty table, whose size the caller can tell from its input.
void etlPrefaultHeap(size_t nBytes);

} // namespace ETL_MiscHelper
