// Platform trace on standard error. Each line goes out in one write so that lines of the receiver
// thread and of the service thread never interleave inside a line.
#include "ETL_TraceHelper.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace ETL_TraceHelper {

namespace {

void WriteLine(const char* szFormat, va_list args)
{
    char szLine[2048];
    va_list argsCopy;
    va_copy(argsCopy, args);
    int nLen = vsnprintf(szLine, sizeof(szLine), szFormat, argsCopy);
    va_end(argsCopy);
    if (nLen < 0)
        return;
    std::string strLine;
    if (static_cast<size_t>(nLen) < sizeof(szLine)) {
        strLine.assign(szLine, static_cast<size_t>(nLen));
    } else {
        strLine.resize(static_cast<size_t>(nLen) + 1);
        (void)vsnprintf(&strLine[0], strLine.size(), szFormat, args); // length known from the first pass
        strLine.resize(static_cast<size_t>(nLen));
    }
    if (strLine.empty() || strLine.back() != '\n')
        strLine += '\n';
    // stderr may be non-blocking (the service's trace set-up makes it so): write what we can.
    (void)fflush(stderr);
    const char* p = strLine.data();
    size_t nLeft = strLine.size();
    while (nLeft > 0) {
        ssize_t nDone = write(STDERR_FILENO, p, nLeft);
        if (nDone <= 0)
            break;
        p += nDone;
        nLeft -= static_cast<size_t>(nDone);
    }
}

} // namespace

void etlTrace(int nLevel, const char* szFormat, ...)
{
    (void)nLevel;
    va_list args;
    va_start(args, szFormat);
    WriteLine(szFormat, args);
    va_end(args);
}

void etlOutputDebugString(const char* szFormat, ...)
{
    va_list args;
    va_start(args, szFormat);
    WriteLine(szFormat, args);
    va_end(args);
}

} // namespace ETL_TraceHelper
