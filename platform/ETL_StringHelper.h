// String primitives of the platform: the block allocator, formatting and character classes.
// The reference-counted text string built on them lives in support/chReferenceStringT.h; the
// platform knows it by name only.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace ETL_StringHelper {

class dynamicAlloc {
public:
    // Grows or shrinks a block, or allocates one when p is null. Never returns null: running out
    // of memory ends the process, as the runtime's allocation failure does.
    static void* realloc(void* p, size_t nSize);
    static void free(void* p);
};

// vsnprintf into a buffer of nSize bytes (terminator included). Returns the count of characters
// actually written (never more than nSize - 1), so a caller that trusts it stays in its buffer.
int chVsprintf(char* szBuffer, int nSize, const char* szFormat, va_list args);

// True when the byte starts a two-byte character. Texts here are UTF-8 or plain bytes, so never.
bool chIsLeadbyte(const char* p);

// Blank, tab, carriage return, line feed, vertical tab and form feed.
bool chIsWhiteSpace(int c);

// The whole text as an integer in nBase (0: decimal, 0x-hex or 0-octal, as strtoll reads them),
// within [nMin, nMax]. True with nOut set; false, nOut untouched, for empty text, trailing
// characters, overflow or a value out of range.
bool etlParseInteger(const char* sz, int nBase, long long nMin, long long nMax, long long& nOut);

template <class T>
class chReferenceStringT;

// Finds in pPos the phrase up to the first of the token characters, without its surrounding white
// space: 0 with the phrase as nLen bytes at pPhrase, and pPos moved past the token; nonzero, with
// pPos unchanged, when the rest of the text holds none of the tokens.
int etlFindPhraseByCharTokens(const char*& pPos, const char* szTokens, const char*& pPhrase, int& nLen);

// The same, with the phrase copied into strPhrase (unchanged on failure). A template so that the
// platform needs only the string's name: the caller that holds one has its header.
template <class T>
int etlPeekPhraseByCharTokens(const char*& pPos, chReferenceStringT<T>& strPhrase, const char* szTokens)
{
    const char* pPhrase = nullptr;
    int nLen = 0;
    if (etlFindPhraseByCharTokens(pPos, szTokens, pPhrase, nLen) != 0)
        return -1;
    strPhrase.CopyTextFrom(pPhrase, nLen);
    return 0;
}

} // namespace ETL_StringHelper
