// File existence, sleeping (ended early by a stop signal), task ids and faulting memory in.
#include "ETL_MiscHelper.h"

#include "ETL_FileAccess.h"
#include "MsgLoop.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23 // Linux 5.14; older kernels refuse it with EINVAL
#endif

namespace ETL_MiscHelper {

int pathFileExist(const char* szPath)
{
    if (szPath == nullptr || szPath[0] == '\0')
        return 0;
    return ETL_FileHelper::etlAccess(szPath, F_OK) == 0 ? 1 : 0;
}

void etlSleep(int nMs)
{
    if (nMs <= 0 || ETL_MsgQueueHelper::PlatformSleep(nMs))
        return;
    timespec ts;
    ts.tv_sec = nMs / 1000;
    ts.tv_nsec = static_cast<long>(nMs % 1000) * 1000000L;
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

int etlStopRequested()
{
    return ETL_MsgQueueHelper::PlatformStopRequested() ? 1 : 0;
}

int etlGetCurrentTaskId()
{
    return static_cast<int>(syscall(SYS_gettid));
}

void etlPrefault(void* p, size_t nBytes)
{
    if (p == nullptr || nBytes == 0)
        return;
    static const uintptr_t s_nPage = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    uintptr_t nStart = reinterpret_cast<uintptr_t>(p) & ~(s_nPage - 1);
    uintptr_t nEnd = (reinterpret_cast<uintptr_t>(p) + nBytes + s_nPage - 1) & ~(s_nPage - 1);
    (void)madvise(reinterpret_cast<void*>(nStart), nEnd - nStart, MADV_POPULATE_WRITE);
}

void etlPrefaultHeap(size_t nBytes)
{
    // Below the heap thresholds the service sets, so that the block comes from the heap's top and
    // goes back to it when freed, its pages kept for the allocations that follow.
    const size_t kMaxBytes = 512 * 1024;
    nBytes = nBytes < kMaxBytes ? nBytes : kMaxBytes;
    void* p = std::malloc(nBytes);
    etlPrefault(p, nBytes);
    std::free(p);
}

} // namespace ETL_MiscHelper
