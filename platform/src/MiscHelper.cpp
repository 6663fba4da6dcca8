// File existence, sleeping (ended early by a stop signal) and task ids.
#include "ETL_MiscHelper.h"

#include "ETL_FileAccess.h"
#include "MsgLoop.h"

#include <cerrno>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

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

} // namespace ETL_MiscHelper
