// Value conversions between registry values and item values.
#include "M7Mapping.h"

#include <climits>
#include <cstdio>
#include <cstdlib>

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
    (void)snprintf(szOut, nSize, "%d", static_cast<int32_t>(nPlusOne));
}

void FormatInvertedValue(const char* szValue, char* szOut, size_t nSize)
{
    (void)snprintf(szOut, nSize, "%d", M7ValueToInt(szValue) == 0 ? 1 : 0);
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
        (void)snprintf(szOut, nSize, "%s", szTemp);
        szResult = szOut;
    }
    return szResult;
}

const char* SkipReasonText(uint32_t nFlags)
{
    return (nFlags & 0xff) == 1 ? "ATTR_ENCRYPT" : "ATTR_REBOOT";
}
