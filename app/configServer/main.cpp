// Process entry of configServer: banners, the service object, registration, start, loop, stop.
#include "ConfigServer.h"
#include "ETL_TraceHelper.h"
#include "fwTrace.h"

#include <cstdio>

namespace {

const char g_szVersion[] = "1.0.0.1";
const char g_szTraceVersion[] = "1.0.1.1";

} // namespace

// The firmware tools find the version through this section: one pointer to the version text.
__attribute__((section(".Version:1.0.0.1"), used)) const char* const g_pVersionSection = g_szVersion;

int main()
{
    // Printed lines must keep their place among the trace lines and survive a stop.
    setvbuf(stdout, nullptr, _IOLBF, 0);

    // The banner formats use "%hs" as the phone's trace does; glibc prints it as "%s".
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
    ETL_TraceHelper::etlOutputDebugString("configServer version = %hs build at %hs %hs", g_szVersion, __DATE__,
                                          __TIME__);
    fwTracePrint(3, "war[%-16s:%-4d]configServer version = %hs build at %hs %hs\n", __FILE__, __LINE__,
                 g_szTraceVersion, __DATE__, __TIME__);
#pragma GCC diagnostic pop

#ifdef CFG_UPLOAD_INTERVAL_MS
    CConfigServer::s_nUploadIntervalMs = CFG_UPLOAD_INTERVAL_MS;
#endif

    int nResult;
    {
        CConfigServer server;
        (void)ETL_MsgQueueHelper::uCSystemShareHelper::getGlobalObject().CreateLocalThread(server);
        (void)server.OnServiceStart();
        nResult = server.Run();
        (void)server.OnServiceStop();
        (void)ETL_MsgQueueHelper::uCSystemShareHelper::getGlobalObject().DestroyLocalThread(server);
    }
    return nResult;
}
