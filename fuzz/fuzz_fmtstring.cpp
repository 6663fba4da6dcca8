// fmtString with formats built from the conversions the service uses: the result must be what
// snprintf gives, cut to the estimate at most, and always terminated inside its block.
#include "FuzzRoot.h"
#include "chReferenceStringT.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char* const kIntTokens[] = {"%d", "%u", "%x", "%.2x", "%08x", "%c", "%%", "a", "-", "%5d", "%-4u", "\n"};
const char* const kTextTokens[] = {"%s", "%5.2s", "%-8s", "%.3s", "%%", "b", "=", "%10s"};

template <size_t N>
std::string BuildFormat(const uint8_t* pData, size_t nSize, const char* const (&tokens)[N], int& nConversions)
{
    std::string strFormat;
    nConversions = 0;
    for (size_t i = 0; i < nSize && nConversions < 8; ++i) {
        const char* szToken = tokens[pData[i] % N];
        strFormat += szToken;
        if (szToken[0] == '%' && szToken[1] != '%')
            ++nConversions;
    }
    return strFormat;
}

// The result holds the first characters snprintf gives (a "%c" of 0 included), its length word
// counts them, and the block holds them and the terminator.
void Check(const ETL_StringHelper::chStringA& str, const char* szExpected, int nExpected)
{
    ETL_StringHelper::chStringData* pData = str.GetData();
    if (pData == nullptr) {
        if (nExpected != 0 && szExpected[0] != '\0')
            __builtin_trap();
        return;
    }
    int nLength = pData->nLength;
    if (nLength < 0 || nLength > pData->nCapacity || nLength > nExpected || pData->Text()[nLength] != '\0')
        __builtin_trap();
    if (std::memcmp(pData->Text(), szExpected, static_cast<size_t>(nLength)) != 0)
        __builtin_trap();
}

} // namespace

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    if (nSize < 2)
        return 0;
    int nConversions = 0;
    size_t nHalf = nSize / 2;
    std::string strFormat = BuildFormat(pData, nHalf, kIntTokens, nConversions);
    int n[8];
    for (int i = 0; i < 8; ++i)
        n[i] = static_cast<int>(pData[(nHalf + i) % nSize]) * 16777619 - 100000;
    // The expected text, whole: sized by a first snprintf, then written.
    int nExpected = snprintf(nullptr, 0, strFormat.c_str(), n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7]);
    std::vector<char> vecExpected(static_cast<size_t>(nExpected) + 1);
    snprintf(vecExpected.data(), vecExpected.size(), strFormat.c_str(), n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7]);
    Check(ETL_StringHelper::fmtString(strFormat.c_str(), n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7]),
          vecExpected.data(), nExpected);

    strFormat = BuildFormat(pData + nHalf, nSize - nHalf, kTextTokens, nConversions);
    std::string strText(reinterpret_cast<const char*>(pData), nHalf);
    strText = strText.substr(0, strText.find('\0'));
    const char* sz = strText.c_str();
    nExpected = snprintf(nullptr, 0, strFormat.c_str(), sz, sz, sz, sz, sz, sz, sz, sz);
    vecExpected.assign(static_cast<size_t>(nExpected) + 1, '\0');
    snprintf(vecExpected.data(), vecExpected.size(), strFormat.c_str(), sz, sz, sz, sz, sz, sz, sz, sz);
    Check(ETL_StringHelper::fmtString(strFormat.c_str(), sz, sz, sz, sz, sz, sz, sz, sz), vecExpected.data(),
          nExpected);
    return 0;
}
