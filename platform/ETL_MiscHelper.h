// Small platform services: file existence, sleeping, task ids.
#pragma once

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

} // namespace ETL_MiscHelper
