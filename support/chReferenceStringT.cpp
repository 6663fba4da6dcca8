// Blocks, copy on write, concatenation and formatting of chReferenceStringT<char>.
//
// A block is `capacity + 16` bytes: three header words, then capacity + 1 bytes of text that are
// always zero behind the text. Capacities are rounded up to multiples of 16, never doubled.
#include "chReferenceStringT.h"

#include "ETL_StringHelper.h"
#include "chTextArena.h"

#include <cstdarg>
#include <cstring>
#include <cwchar>
#include <string>

namespace ETL_StringHelper {

alignas(4) const char szNULL[4] = {0, 0, 0, 0};

namespace {

char* Sentinel()
{
    return const_cast<char*>(szNULL);
}

int32_t Round16(int32_t n)
{
    return (n + 15) & ~15;
}

chStringData* DataOf(char* pText)
{
    return reinterpret_cast<chStringData*>(pText) - 1;
}

chStringData* AllocBlock(int32_t nCapacity)
{
    // capacity + 16 bytes in all: the 12-byte header, the text and its terminator fit in it.
    size_t nBytes = static_cast<size_t>(nCapacity) + 16;
    chStringData* pData = static_cast<chStringData*>(dynamicAlloc::realloc(nullptr, nBytes));
    std::memset(pData, 0, nBytes);
    pData->nCapacity = nCapacity;
    pData->nRefs = 1;
    pData->nLength = 0;
    return pData;
}

// One owner less: the last owner of an ordinary block frees it; of an arena block, tells the arena.
void DropRef(chStringData* pData)
{
    int32_t nLeft = --pData->nRefs;
    if (nLeft <= 0)
        dynamicAlloc::free(pData);
    else if (nLeft == chTextArena::kRefBase)
        chTextArena::ReleaseBlock(pData);
}

size_t Length16(const uint16_t* p)
{
    size_t n = 0;
    while (p[n] != 0)
        ++n;
    return n;
}

} // namespace

chReferenceStringT<char>::chReferenceStringT() : m_pText(Sentinel()) {}

chReferenceStringT<char>::chReferenceStringT(const char* szText) : m_pText(Sentinel())
{
    CopyTextFrom(szText, -1);
}

chReferenceStringT<char>::chReferenceStringT(const chReferenceStringT& other) : m_pText(Sentinel())
{
    *this = other;
}

chReferenceStringT<char>::~chReferenceStringT()
{
    Release();
    m_pText = Sentinel();
}

void chReferenceStringT<char>::Release()
{
    if (m_pText == Sentinel())
        return;
    DropRef(DataOf(m_pText));
}

chStringData* chReferenceStringT<char>::GetData() const
{
    return m_pText == Sentinel() ? nullptr : DataOf(m_pText);
}

chReferenceStringT<char>& chReferenceStringT<char>::operator=(const chReferenceStringT& other)
{
    if (this == &other || m_pText == other.m_pText)
        return *this;
    Release();
    m_pText = other.m_pText;
    if (m_pText != Sentinel())
        ++DataOf(m_pText)->nRefs;
    return *this;
}

chReferenceStringT<char>& chReferenceStringT<char>::operator=(const char* szText)
{
    CopyTextFrom(szText, -1);
    return *this;
}

int chReferenceStringT<char>::GetLength() const
{
    if (m_pText == Sentinel())
        return 0;
    chStringData* pData = DataOf(m_pText);
    if (pData->nLength < 0)
        pData->nLength = static_cast<int32_t>(std::strlen(m_pText));
    return pData->nLength;
}

void chReferenceStringT<char>::MakeEmpty()
{
    if (m_pText == Sentinel())
        return;
    chStringData* pData = DataOf(m_pText);
    if (pData->nRefs > 1) {
        m_pText = Sentinel();
        DropRef(pData);
        return;
    }
    // A sole owner keeps its block for the next text.
    size_t nZero = pData->nLength < 0 ? static_cast<size_t>(pData->nCapacity) : static_cast<size_t>(pData->nLength);
    std::memset(m_pText, 0, nZero);
    pData->nLength = 0;
}

chStringData* chReferenceStringT<char>::PrepareTextBuffer(int n)
{
    if (m_pText == Sentinel()) {
        chStringData* pData = AllocBlock(n >= 1 ? Round16(n) : 16);
        m_pText = pData->Text();
        return pData;
    }
    chStringData* pOld = DataOf(m_pText);
    if (pOld->nRefs <= 1) {
        if (n < 0)
            return pOld;
        if (n <= pOld->nCapacity) {
            if (pOld->nLength == -1) {
                std::memset(m_pText + n, 0, static_cast<size_t>(pOld->nCapacity - n) + 1);
            } else if (pOld->nLength > n) {
                std::memset(m_pText + n, 0, static_cast<size_t>(pOld->nLength - n));
                pOld->nLength = n;
            }
            return pOld;
        }
        int32_t nOldCap = pOld->nCapacity;
        int32_t nNewCap = Round16(n);
        chStringData* pNew = static_cast<chStringData*>(
            dynamicAlloc::realloc(pOld, static_cast<size_t>(nNewCap) + 16));
        pNew->nCapacity = nNewCap;
        // Zero from behind the old terminator through the new one.
        std::memset(pNew->Text() + nOldCap + 1, 0, static_cast<size_t>(nNewCap - nOldCap));
        m_pText = pNew->Text();
        return pNew;
    }

    // Shared: leave the block to the others and write into a private one. The reference goes
    // last: an arena block may be unmapped with it.
    int32_t nOldCap = pOld->nCapacity;
    int32_t nNewCap;
    if (n >= 1)
        nNewCap = Round16(n);
    else if (n == 0)
        nNewCap = 16;
    else
        nNewCap = pOld->nLength == -1 ? nOldCap : Round16(pOld->nLength);
    chStringData* pNew = AllocBlock(nNewCap);
    if (nNewCap > nOldCap) {
        std::memcpy(pNew->Text(), pOld->Text(), static_cast<size_t>(nOldCap));
        pNew->nLength = pOld->nLength;
    } else {
        std::memcpy(pNew->Text(), pOld->Text(), static_cast<size_t>(nNewCap));
        pNew->Text()[nNewCap] = '\0';
        pNew->nLength = pOld->nLength == -1 ? -1 : (pOld->nLength < nNewCap ? pOld->nLength : nNewCap);
    }
    m_pText = pNew->Text();
    DropRef(pOld);
    return pNew;
}

void chReferenceStringT<char>::CopyTextFrom(const char* szText, int nCount)
{
    if (szText == nullptr || szText[0] == '\0' || nCount == 0) {
        MakeEmpty();
        return;
    }
    if (szText == m_pText)
        return;
    // Text from inside our own block may move with PrepareTextBuffer: take a copy first.
    std::string strOwnCopy;
    if (m_pText != Sentinel()) {
        chStringData* pData = DataOf(m_pText);
        if (szText > m_pText && szText <= m_pText + pData->nCapacity) {
            strOwnCopy.assign(szText);
            szText = strOwnCopy.c_str();
        }
    }
    if (nCount < 0)
        nCount = static_cast<int>(std::strlen(szText));
    chStringData* pData = PrepareTextBuffer(nCount);
    size_t nCopy = strnlen(szText, static_cast<size_t>(nCount));
    std::memcpy(m_pText, szText, nCopy);
    std::memset(m_pText + nCopy, 0, static_cast<size_t>(nCount) - nCopy + 1);
    pData->nLength = static_cast<int32_t>(std::strlen(m_pText));
}

chReferenceStringT<char> operator+(const chReferenceStringT<char>& left, const char* szRight)
{
    chReferenceStringT<char> result(left);
    if (szRight == nullptr || szRight[0] == '\0')
        return result;
    int nLeft = left.GetLength();
    int nRight = static_cast<int>(std::strlen(szRight));
    chStringData* pData = result.PrepareTextBuffer(nLeft + nRight);
    std::memcpy(result.m_pText + nLeft, szRight, static_cast<size_t>(nRight));
    result.m_pText[nLeft + nRight] = '\0';
    pData->nLength = nLeft + nRight;
    return result;
}

namespace {

// The size pass of fmtString: what the format will need, consuming the arguments as it goes.
int EstimateFormat(const char* szFormat, va_list args)
{
    int nTotal = 0;
    const char* p = szFormat;
    while (*p != '\0') {
        if (*p != '%') {
            if (chIsLeadbyte(p) && p[1] != '\0') {
                nTotal += 2;
                p += 2;
            } else {
                nTotal += 1;
                ++p;
            }
            continue;
        }
        ++p;
        if (*p == '%') {
            nTotal += 1;
            ++p;
            continue;
        }
        for (;; ++p) {
            if (*p == '#')
                nTotal += 2;
            else if (*p == '*')
                (void)va_arg(args, int);
            else if (*p != '-' && *p != '+' && *p != '0' && *p != ' ')
                break;
        }
        int nWidth = 0;
        while (*p >= '0' && *p <= '9')
            nWidth = nWidth * 10 + (*p++ - '0');
        int nPrecision = 0;
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                (void)va_arg(args, int);
                ++p;
            } else {
                while (*p >= '0' && *p <= '9')
                    nPrecision = nPrecision * 10 + (*p++ - '0');
            }
        }
        bool b64 = false, bNarrow = false;
        int nWide = 0;
        for (;;) {
            if (p[0] == 'I' && p[1] == '6' && p[2] == '4') {
                b64 = true;
                p += 3;
            } else if (*p == 'h') {
                bNarrow = true;
                ++p;
            } else if (*p == 'l') {
                ++nWide;
                ++p;
            } else if (*p == 'F' || *p == 'L' || *p == 'N') {
                ++p;
            } else {
                break;
            }
        }
        char cConv = *p;
        if (cConv == '\0')
            break;
        ++p;
        int nItem = 0;
        bool bLimit = false;
        switch (cConv) {
        case 'c':
        case 'C':
            (void)va_arg(args, int);
            nItem = 2;
            bLimit = true;
            break;
        case 's':
        case 'S':
            if ((cConv == 's' && nWide == 0) || bNarrow) {
                const char* sz = va_arg(args, const char*);
                nItem = sz == nullptr ? 6 : static_cast<int>(std::strlen(sz));
            } else {
                const uint16_t* sz = va_arg(args, const uint16_t*);
                nItem = sz == nullptr ? 6 : 2 * static_cast<int>(Length16(sz));
            }
            if (nItem < 1)
                nItem = 1;
            bLimit = true;
            break;
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o':
            if (b64 || nWide >= 2)
                (void)va_arg(args, long long);
            else if (nWide == 1)
                (void)va_arg(args, long);
            else
                (void)va_arg(args, int);
            nItem = nWidth + nPrecision > 32 ? nWidth + nPrecision : 32;
            break;
        case 'e':
        case 'g':
        case 'G':
            (void)va_arg(args, double);
            nItem = nWidth + nPrecision > 128 ? nWidth + nPrecision : 128;
            break;
        case 'f':
            (void)va_arg(args, double);
            nItem = nPrecision + 312 > 128 ? nPrecision + 312 : 128;
            break;
        case 'p':
            (void)va_arg(args, void*);
            nItem = nWidth + nPrecision > 32 ? nWidth + nPrecision : 32;
            break;
        case 'n':
            (void)va_arg(args, void*);
            nItem = 0;
            break;
        default:
            nItem = 0;
            break;
        }
        if (bLimit) {
            if (nPrecision != 0 && nItem > nPrecision)
                nItem = nPrecision;
            if (nWidth > nItem)
                nItem = nWidth;
        }
        nTotal += nItem;
    }
    return nTotal;
}

} // namespace

int fmtEstimateLength(const char* szFormat, ...)
{
    va_list args;
    va_start(args, szFormat);
    int nEstimate = szFormat == nullptr ? 0 : EstimateFormat(szFormat, args);
    va_end(args);
    return nEstimate;
}

chReferenceStringT<char> fmtString(const char* szFormat, ...)
{
    chReferenceStringT<char> result;
    if (szFormat == nullptr)
        return result;
    va_list args;
    va_start(args, szFormat);
    va_list argsSize;
    va_copy(argsSize, args);
    int nEstimate = EstimateFormat(szFormat, argsSize);
    va_end(argsSize);
    chStringData* pData = result.PrepareTextBuffer(nEstimate);
    int nWritten = chVsprintf(pData->Text(), nEstimate + 1, szFormat, args);
    va_end(args);
    pData = result.PrepareTextBuffer(nWritten);
    pData->nLength = nWritten;
    return result;
}

} // namespace ETL_StringHelper
