// Reading and writing configuration text lines, and sniffing files that are not text.
#include "ConfigText.h"

#include "ETL_FileAccess.h"
#include "ETL_FileHelper.h"
#include "ETL_MiscHelper.h"
#include "ETL_ScopedHandle.h"
#include "ETL_StringHelper.h"

#include <cstring>
#include <sys/mman.h>
#include <sys/stat.h>

using ETL_StringHelper::chIsWhiteSpace;
using ETL_StringHelper::chStringA;

const char kM7Header[] = "#!version:1.0.0.1\n";
const size_t kM7HeaderLength = sizeof(kM7Header) - 1;
const char kM7NullValue[] = "%NULL%";

namespace {

// Large enough that a read costs little per line, small enough to stay out of the idle footprint
// (the buffer goes with the reader).
const size_t kReadChunk = 64 * 1024;

bool IsBlank(char c)
{
    return chIsWhiteSpace(static_cast<unsigned char>(c));
}

} // namespace

CM7LineReader::~CM7LineReader()
{
    if (m_pBuffer != nullptr)
        (void)munmap(m_pBuffer, m_nCapacity);
}

int CM7LineReader::Open(const char* szPath)
{
    m_file.Reset(szPath != nullptr ? ETL_FileHelper::etlFopenRegular(szPath) : nullptr);
    m_nStart = m_nEnd = 0;
    m_bEof = false;
    return m_file ? 1 : 0;
}

size_t CM7LineReader::FileSize() const
{
    struct stat st;
    if (!m_file || fstat(fileno(m_file.Get()), &st) != 0)
        return 0;
    return static_cast<size_t>(st.st_size);
}

bool CM7LineReader::Refill()
{
    if (m_bEof || !m_file)
        return false;
    if (m_nStart > 0) {
        std::memmove(m_pBuffer, m_pBuffer + m_nStart, m_nEnd - m_nStart);
        m_nEnd -= m_nStart;
        m_nStart = 0;
    }
    if (m_nCapacity - m_nEnd < kReadChunk / 2) {
        // A line longer than the buffer: grow it, so that every line is read whole.
        size_t nCapacity = m_nCapacity == 0 ? kReadChunk : m_nCapacity * 2;
        void* pMapped = m_pBuffer == nullptr
                            ? mmap(nullptr, nCapacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                            : mremap(m_pBuffer, m_nCapacity, nCapacity, MREMAP_MAYMOVE);
        if (pMapped == MAP_FAILED) {
            m_bEof = true;
            return false;
        }
        ETL_MiscHelper::etlPrefault(static_cast<char*>(pMapped) + m_nCapacity, nCapacity - m_nCapacity);
        m_pBuffer = static_cast<char*>(pMapped);
        m_nCapacity = nCapacity;
    }
    size_t nGot = fread_unlocked(m_pBuffer + m_nEnd, 1, m_nCapacity - m_nEnd, m_file.Get());
    m_nEnd += nGot;
    if (nGot == 0)
        m_bEof = true;
    return nGot > 0;
}

bool CM7LineReader::NextLine(const char*& pLine, size_t& nLength)
{
    for (;;) {
        const char* pStart = m_pBuffer + m_nStart;
        size_t nAvail = m_nEnd - m_nStart;
        const char* pFeed = nAvail > 0 ? static_cast<const char*>(std::memchr(pStart, '\n', nAvail)) : nullptr;
        if (pFeed == nullptr) {
            if (Refill())
                continue;
            // Nothing more to read; the rest may have moved to the front.
            pStart = m_pBuffer + m_nStart;
            if (nAvail == 0)
                return false;
        }
        // The last line may have no line feed.
        size_t nLine = pFeed != nullptr ? static_cast<size_t>(pFeed - pStart) : nAvail;
        m_nStart += pFeed != nullptr ? nLine + 1 : nLine;
        const char* pNul = static_cast<const char*>(std::memchr(pStart, '\0', nLine));
        pLine = pStart;
        nLength = pNul != nullptr ? static_cast<size_t>(pNul - pStart) : nLine;
        return true;
    }
}

int CM7LineReader::NextInPlace(const char*& pName, size_t& nName, const char*& pValue, size_t& nValue)
{
    const char* pLine = nullptr;
    size_t nLength = 0;
    while (NextLine(pLine, nLength)) {
        const char* p = pLine;
        const char* pEnd = pLine + nLength;
        while (p < pEnd && IsBlank(*p))
            ++p;
        if (p == pEnd || *p == '#')
            continue;
        if (*p == '[' && std::memchr(p, ']', static_cast<size_t>(pEnd - p)) != nullptr)
            return 0;
        const char* pEquals = static_cast<const char*>(std::memchr(p, '=', static_cast<size_t>(pEnd - p)));
        if (pEquals == nullptr)
            continue;
        const char* pNameEnd = pEquals;
        while (pNameEnd > p && IsBlank(pNameEnd[-1]))
            --pNameEnd;
        if (pNameEnd == p)
            continue;
        // The value: the rest after "=", trailing white space (the line end with it) removed
        // first, then leading white space.
        const char* pValueStart = pEquals + 1;
        while (pEnd > pValueStart && IsBlank(pEnd[-1]))
            --pEnd;
        while (pValueStart < pEnd && IsBlank(*pValueStart))
            ++pValueStart;
        pName = p;
        nName = static_cast<size_t>(pNameEnd - p);
        pValue = pValueStart;
        nValue = static_cast<size_t>(pEnd - pValueStart);
        return 1;
    }
    return 0;
}

int CM7LineReader::Next(chStringA& strName, chStringA& strValue)
{
    const char* pName = nullptr;
    const char* pValue = nullptr;
    size_t nName = 0, nValue = 0;
    if (NextInPlace(pName, nName, pValue, nValue) == 0)
        return 0;
    strName.CopyTextFrom(pName, static_cast<int>(nName));
    if (nValue == 0)
        strValue = "";
    else
        strValue.CopyTextFrom(pValue, static_cast<int>(nValue));
    return 1;
}

bool M7EndsWithLineFeed(const char* pText, size_t nLength)
{
    while (nLength > 0 && (pText[nLength - 1] == '\r' || pText[nLength - 1] == '\0'))
        --nLength;
    return nLength > 0 && pText[nLength - 1] == '\n';
}

void AppendM7ItemLine(std::string& strLines, const chStringA& strName, const chStringA& strValue, bool bAllNull)
{
    size_t nStart = strLines.size();
    strLines.append(strName.c_str(), static_cast<size_t>(strName.GetLength()));
    strLines += " = ";
    if (bAllNull || strValue.IsEmpty())
        strLines += kM7NullValue;
    else
        strLines.append(strValue.c_str(), static_cast<size_t>(strValue.GetLength()));
    if (!M7EndsWithLineFeed(strLines.data() + nStart, strLines.size() - nStart))
        strLines += '\n';
}

bool FlushLines(FILE* pFile, std::string& strLines, size_t nLastStart, std::string& strLastLine)
{
    bool bWritten = strLines.empty() || (fwrite_unlocked(strLines.data(), 1, strLines.size(), pFile) == strLines.size() &&
                                         fflush(pFile) == 0);
    if (!bWritten) {
        nLastStart = nLastStart < strLines.size() ? nLastStart : strLines.size();
        size_t nEnd = strLines.size();
        if (nEnd > nLastStart && strLines[nEnd - 1] == '\n')
            --nEnd;
        strLastLine.assign(strLines, nLastStart, nEnd - nLastStart);
    }
    strLines.clear();
    return bWritten;
}

int IsNonTextConfigFile(const char* szPath)
{
    if (szPath == nullptr)
        return 1;
    unsigned char buf[23];
    std::memset(buf, 0, sizeof(buf));
    ETL_BaseHelper::chScopedFile file(ETL_FileHelper::etlFopenRegular(szPath));
    if (!file)
        return 0;
    size_t nGot = fread(buf, 1, sizeof(buf), file.Get());
    if (nGot < sizeof(buf))
        return 0;
    const unsigned char* p = buf;
    if (buf[0] == 0xEF && buf[1] == 0xBB && buf[2] == 0xBF)
        p += 3;
    bool bAtStart = true;
    for (int i = 0; i < 20; ++i) {
        unsigned char c = p[i];
        if (c == '\r' || c == '\t' || c == ' ')
            continue;
        if (bAtStart && (c == ';' || c == '#'))
            return 0;
        if (c > 127)
            return 1;
        bAtStart = false;
    }
    return 0;
}
