// Process entry of configServer: banners, the service object, registration, start, loop, stop.
#include "CfgVersion.h"
#include "ConfigServer.h"
#include "ETL_TraceHelper.h"
#include "fwTrace.h"

#include <cstdio>
#include <cstring>

namespace {

const char g_szVersion[] = CFG_VERSION;
const char g_szTraceVersion[] = "1.0.1.1";

const char* const kUsage =
    "usage: configServer [-h|--help] [--version]\n"
    "The configuration service: registers the message thread \"configServer\" below the system\n"
    "root, loads the user configuration and answers messages until SIGTERM, SIGINT or\n"
    "the platform quit message; the exit status is the loop's result. See configServer(8).\n";

// -h, --help or --version alone is answered before anything starts: no registration, no file
// touched. Any other argument is not read, as the phone's start scripts may pass their own.
// Returns the exit status, or -1 to go on with the service.
int HandleOptions(int argc, char** argv)
{
    if (argc != 2)
        return -1;
    if (strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (strcmp(argv[1], "--version") == 0) {
        printf("configServer %s\n", g_szVersion);
        return 0;
    }
    return -1;
}

} // namespace

// The firmware tools find the version through this section: one pointer to the version text.
__attribute__((section(".Version:" CFG_VERSION), used)) const char* const g_pVersionSection = g_szVersion;

int main(int argc, char** argv)
{
    int nOptionStatus = HandleOptions(argc, argv);
    if (nOptionStatus >= 0)
        return nOptionStatus;

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
