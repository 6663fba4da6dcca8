// Value conversions and the ignore-list match.
#include "M7Mapping.h"

#include "M7Store.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

int32_t M7ValueToInt(const char* szValue)
{
    if (szValue == nullptr)
        return 0;
    // The phone's long is 32 bits: saturate as its strtol does, whatever this machine's long is.
    long long n = std::strtoll(szValue, nullptr, 10);
    if (n > INT32_MAX)
        return INT32_MAX;
    if (n < INT32_MIN)
        return INT32_MIN;
    return static_cast<int32_t>(n);
}

void FormatBase0Value(const char* szValue, char* szOut, size_t nSize)
{
    // Wraps at the 32-bit limit, as the phone's int arithmetic does.
    uint32_t nPlusOne = static_cast<uint32_t>(M7ValueToInt(szValue)) + 1u;
    snprintf(szOut, nSize, "%d", static_cast<int32_t>(nPlusOne));
}

void FormatInvertedValue(const char* szValue, char* szOut, size_t nSize)
{
    snprintf(szOut, nSize, "%d", M7ValueToInt(szValue) == 0 ? 1 : 0);
}

const char* RegistryToItemValue(const char* szValue, uint32_t nFlags, char* szOut, size_t nSize)
{
    const char* szResult = szValue;
    if ((nFlags & ATTR_BASE0) != 0) {
        FormatBase0Value(szResult, szOut, nSize);
        szResult = szOut;
    }
    if ((nFlags & ATTR_INVERT) != 0) {
        char szTemp[64];
        FormatInvertedValue(szResult, szTemp, sizeof(szTemp));
        snprintf(szOut, nSize, "%s", szTemp);
        szResult = szOut;
    }
    return szResult;
}

const char* SkipReasonText(uint32_t nFlags)
{
    return (nFlags & 0xff) == 1 ? "ATTR_ENCRYPT" : "ATTR_REBOOT";
}

namespace {

const char kAccountPrefix[] = "account.";
const size_t kAccountPrefixLen = sizeof(kAccountPrefix) - 1;
// Per-account patterns skip "account.N." up to index 12, whatever N is.
const size_t kAccountPatternSkip = 12;

bool EntryMatches(const CM7IgnoreItem& entry, const char* szName)
{
    if (entry.length < 0)
        return false;
    const char* szPattern = entry.pattern.c_str();
    if (entry.length == 0)
        return std::strcmp(szPattern, szName) == 0;
    size_t nLength = static_cast<size_t>(entry.length);
    if (std::strncmp(szName, kAccountPrefix, kAccountPrefixLen) != 0)
        return std::strncmp(szPattern, szName, nLength) == 0;
    const char* pDot = std::strchr(szName + kAccountPrefixLen, '.');
    if (pDot == nullptr)
        return false;
    const char* szNameTail = pDot + 1;
    // A pattern that begins with "account." but is shorter than 12 characters has no tail of
    // its own: it is compared as an empty tail, which never reads past its terminator.
    const char* szPatternTail = "";
    if (std::strncmp(szPattern, kAccountPrefix, kAccountPrefixLen) == 0 &&
        static_cast<size_t>(entry.pattern.GetLength()) >= kAccountPatternSkip)
        szPatternTail = szPattern + kAccountPatternSkip;
    return std::strncmp(szPatternTail, szNameTail, nLength) == 0;
}

} // namespace

int IgnoreUserCfg(const char* szName)
{
    if (szName == nullptr)
        return 0;
    for (CM7IgnoreNode* pNode = ignoreM7List.First(); pNode != ignoreM7List.End(); pNode = pNode->pNext) {
        if (EntryMatches(pNode->item, szName))
            return 1;
    }
    return 0;
}
