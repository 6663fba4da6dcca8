// The section-monitor file: loading, watching, and matching notifications.
#include "ETL_RegistryHelper.h"
#include "FuzzRoot.h"
#include "sectionMonitor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FuzzRoot();
    FuzzWrite("/phone/resource/sectionMonitor.xml", pData, nSize);
    sectionMonitor monitor;
    (void)monitor.StartMonitor();
    for (int32_t nHandle : {0, 1, 2, 3, 7, -1, 65535}) {
        ETL_MsgQueueHelper::msgObject msg(ETL_MsgQueueHelper::MSG_PLATFORM_SECTION_CHANGED, 0, nHandle, nullptr, 0);
        (void)monitor.OnSectionChanged(msg);
    }
    monitor.UnmonitorAllSection();
    return 0;
}
