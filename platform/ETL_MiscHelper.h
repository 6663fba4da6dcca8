// Small platform services: file existence, sleeping, task ids.
#pragma once

namespace ETL_MiscHelper {

// Nonzero when the (logical) path exists.
int pathFileExist(const char* szPath);

// Sleeps the calling thread for the given milliseconds. Messages keep arriving meanwhile: the
// platform queues them for the thread, to be handled once it runs its loop again.
void etlSleep(int nMs);

// The platform id of the calling task (the kernel thread id).
int etlGetCurrentTaskId();

} // namespace ETL_MiscHelper
