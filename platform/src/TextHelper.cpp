// Phrase splitting for the configuration readers.
#include "ETL_StringHelper.h"

#include <cstring>

namespace ETL_StringHelper {

int etlFindPhraseByCharTokens(const char*& pPos, const char* szTokens, const char*& pPhrase, int& nLen)
{
    if (pPos == nullptr || szTokens == nullptr || szTokens[0] == '\0')
        return -1;
    const char* pToken = std::strpbrk(pPos, szTokens);
    if (pToken == nullptr)
        return -1;
    const char* pStart = pPos;
    while (pStart < pToken && chIsWhiteSpace(static_cast<unsigned char>(*pStart)))
        ++pStart;
    const char* pEnd = pToken;
    while (pEnd > pStart && chIsWhiteSpace(static_cast<unsigned char>(pEnd[-1])))
        --pEnd;
    pPhrase = pStart;
    nLen = static_cast<int>(pEnd - pStart);
    pPos = pToken + 1;
    return 0;
}

} // namespace ETL_StringHelper
