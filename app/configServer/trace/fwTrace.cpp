// fwTrace: the process-wide trace sink, set up before main and taken down at exit, plus the file
// copies kept beside it.
#include "fwTrace.h"

#include "ETL_BaseHelper.h"
#include "ETL_FileAccess.h"
#include "ETL_ScopedHandle.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

namespace {

struct fwTraceSink {
    FILE* pStream;
    int nDescriptor;
    int nLevel;
};

fwTraceSink g_sink = {nullptr, -1, 5};
// The sink's stream when it is a file of ours rather than standard error.
ETL_BaseHelper::chScopedFile g_ownedStream;
bool g_bSyslogOpen = false;
fwSyslogWriter g_pSyslogWriter = nullptr;
int g_nLastReads = 0;
int g_nLastWrites = 0;

const size_t kLineBuffer = 1024;

// Clears close-on-exec and sets append and non-blocking mode; the result of the last change.
int PrepareDescriptor(int fd)
{
    int nResult = 0;
    if (fd > 0) {
        int nFdFlags = fcntl(fd, F_GETFD);
        if (nFdFlags >= 0)
            nResult = fcntl(fd, F_SETFD, nFdFlags & ~FD_CLOEXEC);
        int nFlags = fcntl(fd, F_GETFL);
        if (nFlags >= 0)
            nResult = fcntl(fd, F_SETFL, nFlags | O_APPEND | O_NONBLOCK);
    }
    return nResult;
}

void TakeDown()
{
    g_ownedStream.Reset();
    g_sink.pStream = nullptr;
    g_sink.nDescriptor = -1;
    if (g_bSyslogOpen)
        closelog();
    g_bSyslogOpen = false;
}

struct SinkSetUp {
    SinkSetUp()
    {
        g_ownedStream.Reset();
        g_sink.nDescriptor = -1;
        g_sink.nLevel = 5;
        g_sink.pStream = stderr;
        g_sink.nDescriptor = fileno(g_sink.pStream);
        (void)PrepareDescriptor(g_sink.nDescriptor);
        (void)atexit(TakeDown);
    }
};

// Runs during static initialisation, before the process entry.
SinkSetUp g_sinkSetUp;

int SyslogPriority(int nLevel)
{
    switch (nLevel) {
    case 1:
        return LOG_CRIT;
    case 2:
        return LOG_ERR;
    case 3:
        return LOG_WARNING;
    case 4:
        return LOG_INFO;
    default:
        return LOG_DEBUG;
    }
}

} // namespace

fwSyslogWriter fwTraceSetSyslogWriter(fwSyslogWriter pWriter)
{
    fwSyslogWriter pOld = g_pSyslogWriter;
    g_pSyslogWriter = pWriter;
    return pOld;
}

void fwTracePrint(int nLevel, const char* szFormat, ...)
{
    if (nLevel > g_sink.nLevel || szFormat == nullptr)
        return;
    char szLine[kLineBuffer];
    std::memset(szLine, 0, sizeof(szLine));
    va_list args;
    va_start(args, szFormat);
    int nLen = vsnprintf(szLine, kLineBuffer - 2, szFormat, args);
    va_end(args);
    if (nLen < 0)
        return;
    size_t nText = std::strlen(szLine);
    if (g_sink.pStream != nullptr) {
        (void)fwrite(szLine, 1, nText, g_sink.pStream);
        (void)fflush(g_sink.pStream);
    }
    if (g_pSyslogWriter != nullptr) {
        g_pSyslogWriter(SyslogPriority(nLevel), szLine);
        return;
    }
    if (!g_bSyslogOpen) {
        openlog("test", LOG_PID | LOG_NDELAY, LOG_DAEMON);
        g_bSyslogOpen = true;
    }
    // The text goes as an argument, never as the format: a '%' in a value must reach the log as is.
    syslog(SyslogPriority(nLevel), "%s", szLine);
}

int fwTraceSetOutput(const char* szPath, int nLevel)
{
    g_ownedStream.Reset();
    g_sink.pStream = nullptr;
    if (szPath != nullptr) {
        g_ownedStream.Reset(ETL_FileHelper::etlFopen(szPath, "a+"));
        g_sink.pStream = g_ownedStream.Get();
    }
    if (g_sink.pStream == nullptr)
        g_sink.pStream = stderr;
    g_sink.nLevel = nLevel;
    g_sink.nDescriptor = fileno(g_sink.pStream);
    if (g_sink.nDescriptor <= 0)
        return g_sink.nDescriptor;
    return PrepareDescriptor(g_sink.nDescriptor);
}

int fwCopyFile(const char* szSource, const char* szTarget)
{
    g_nLastReads = 0;
    g_nLastWrites = 0;
    if (szSource == nullptr || szTarget == nullptr)
        return -1;
    ETL_BaseHelper::chScopedFile source(ETL_FileHelper::etlFopenRegular(szSource));
    FILE* pSource = source.Get();
    if (pSource == nullptr) {
        fwTracePrint(4, "ifo[%-16s:%-4d]Source file [%s] can't open! \n\n", __FILE__, __LINE__, szSource);
        return -1;
    }
    // The copy replaces the target only once it is whole: a reader never sees half a copy.
    ETL_FileHelper::chFileReplacer replacer;
    FILE* pTarget = replacer.Open(szTarget);
    if (pTarget == nullptr) {
        fwTracePrint(4, "ifo[%-16s:%-4d]Target file [%s] can't open! \n\n", __FILE__, __LINE__, szTarget);
        return -1;
    }
    int nCalls = 0;
    bool bCopied = replacer.CopyFrom(fileno(pSource), &nCalls) == 0;
    g_nLastReads = nCalls;
    g_nLastWrites = nCalls;
    source.Reset();
    // Either way the target keeps its previous content whole. A copy that stopped at a failed
    // write still returns 0, as it always has; a target that could not be replaced is one that
    // could not be opened.
    int nResult = bCopied && replacer.Commit() != 0 ? -1 : 0;
    if (!bCopied || nResult != 0) {
        replacer.Abort();
        fwTracePrint(4, "ifo[%-16s:%-4d]Target file [%s] can't open! \n\n", __FILE__, __LINE__, szTarget);
    }
    return nResult;
}

void fwCopyFileLastCounts(int* pnReads, int* pnWrites)
{
    if (pnReads != nullptr)
        *pnReads = g_nLastReads;
    if (pnWrites != nullptr)
        *pnWrites = g_nLastWrites;
}

int fwSaveFirmwareTrace()
{
    const char* szSource = "/tmp/Messages";
    const char* szTarget = "/config/upgrade.log";
    if (ETL_FileHelper::etlAccess(szSource, F_OK) != 0) {
        fwTracePrint(4, "ifo[%-16s:%-4d]Firmware trace [%s] not exist !\n", __FILE__, __LINE__, szSource);
        return -1;
    }
    if (fwCopyFile(szSource, szTarget) >= 0)
        return 0;
    fwTracePrint(4, "ifo[%-16s:%-4d]Warning! Fail to copy file [%s] to [%s].\n", __FILE__, __LINE__, szSource,
                 szTarget);
    return -1;
}
