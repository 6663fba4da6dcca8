// The reference-counted text string of the service: copies share one block, a writer first takes
// a private copy, and every empty string is the one static sentinel.
#pragma once

#include <cstdint>

namespace ETL_StringHelper {

// Header of a text block; the text follows it directly.
struct chStringData {
    int32_t nCapacity; // characters the text area holds, terminator not counted
    int32_t nRefs;     // strings sharing the block
    int32_t nLength;   // characters before the terminator; -1 while not measured

    char* Text() { return reinterpret_cast<char*>(this + 1); }
};

// The sentinel: stands for every empty string; never written, counted or freed.
extern const char szNULL[4];

template <class T>
class chReferenceStringT;

class chTextArena;

template <>
class chReferenceStringT<char> {
public:
    chReferenceStringT();
    chReferenceStringT(const char* szText);
    chReferenceStringT(const chReferenceStringT& other);
    ~chReferenceStringT();

    chReferenceStringT& operator=(const chReferenceStringT& other);
    chReferenceStringT& operator=(const char* szText);

    // Replaces the text by the first nCount characters of szText (-1: up to its terminator).
    void CopyTextFrom(const char* szText, int nCount);

    // Makes the block private and able to hold n characters (see the header comment of the .cpp
    // for the cases). Returns the block so that a caller writing into it can set the length.
    chStringData* PrepareTextBuffer(int n);

    // Length, measured (and remembered) when the block does not know it.
    int GetLength() const;
    const char* c_str() const { return m_pText; }
    operator const char*() const { return m_pText; }
    bool IsEmpty() const { return m_pText[0] == '\0'; }

    // The block, or null for the sentinel.
    chStringData* GetData() const;

    friend chReferenceStringT operator+(const chReferenceStringT& left, const char* szRight);
    friend class chTextArena; // hands out strings on its own blocks

private:
    void Release();
    void MakeEmpty();
    char* m_pText;
};

typedef chReferenceStringT<char> chStringA;

chReferenceStringT<char> operator+(const chReferenceStringT<char>& left, const char* szRight);

// printf-style formatting into a new string, sized by a first pass over the format.
chReferenceStringT<char> fmtString(const char* szFormat, ...) __attribute__((format(printf, 1, 2)));

// The first pass of fmtString, on its own so that it can be checked: the characters it reserves.
int fmtEstimateLength(const char* szFormat, ...);

} // namespace ETL_StringHelper
