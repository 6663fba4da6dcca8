// String primitives of the platform: the block allocator, formatting and character classes.
// The reference-counted text string built on them lives in support/chReferenceStringT.h.
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

template <class T>
class chReferenceStringT;

// Takes from pPos the phrase up to the first of the token characters, without its surrounding
// white space, into strPhrase, and moves pPos past the token. 0 on success; nonzero, with pPos
// and strPhrase unchanged, when the rest of the text holds none of the tokens.
int etlPeekPhraseByCharTokens(const char*& pPos, chReferenceStringT<char>& strPhrase, const char* szTokens);

} // namespace ETL_StringHelper
