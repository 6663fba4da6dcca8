// Block allocator, formatting and character classes behind the text string.
#include "ETL_StringHelper.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace ETL_StringHelper {

void* dynamicAlloc::realloc(void* p, size_t nSize)
{
    void* pNew = std::realloc(p, nSize == 0 ? 1 : nSize);
    if (pNew == nullptr)
        throw std::bad_alloc();
    return pNew;
}

void dynamicAlloc::free(void* p)
{
    std::free(p);
}

int chVsprintf(char* szBuffer, int nSize, const char* szFormat, va_list args)
{
    if (szBuffer == nullptr || nSize <= 0)
        return 0;
    int nNeeded = vsnprintf(szBuffer, static_cast<size_t>(nSize), szFormat, args);
    if (nNeeded < 0) {
        szBuffer[0] = '\0';
        return 0;
    }
    return nNeeded < nSize ? nNeeded : nSize - 1;
}

bool chIsLeadbyte(const char* p)
{
    (void)p;
    return false;
}

bool chIsWhiteSpace(int c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

bool etlParseInteger(const char* sz, int nBase, long long nMin, long long nMax, long long& nOut)
{
    if (sz == nullptr || *sz == '\0')
        return false;
    errno = 0;
    char* pEnd = nullptr;
    long long n = std::strtoll(sz, &pEnd, nBase);
    if (errno != 0 || pEnd == sz || *pEnd != '\0' || n < nMin || n > nMax)
        return false;
    nOut = n;
    return true;
}

} // namespace ETL_StringHelper
