// Reading and writing configuration text lines, and sniffing files that are not text.
#include "ConfigText.h"

#include "ETL_FileAccess.h"
#include "ETL_StringHelper.h"

#include <cstring>

using ETL_StringHelper::chIsWhiteSpace;
using ETL_StringHelper::chStringA;

const char kM7Header[] = "#!version:1.0.0.1\n";
const size_t kM7HeaderLength = sizeof(kM7Header) - 1;
const char kM7NullValue[] = "%NULL%";

int CM7LineReader::Open(const char* szPath)
{
    return m_file.Open(szPath, 0);
}

int CM7LineReader::Next(chStringA& strName, chStringA& strValue)
{
    while (m_file.ReadString(m_strLine, '\n') != 0) {
        const char* p = m_strLine.c_str();
        while (*p != '\0' && chIsWhiteSpace(static_cast<unsigned char>(*p)))
            ++p;
        if (*p == '#')
            continue;
        if (*p == '[' && std::strchr(p, ']') != nullptr)
            return 0;
        if (ETL_StringHelper::etlPeekPhraseByCharTokens(p, strName, "=") != 0 || strName.IsEmpty())
            continue;
        // The value: the rest after "=", trailing white space (the line end with it) removed
        // first, then leading white space.
        const char* pEnd = p + std::strlen(p);
        while (pEnd > p && chIsWhiteSpace(static_cast<unsigned char>(pEnd[-1])))
            --pEnd;
        while (p < pEnd && chIsWhiteSpace(static_cast<unsigned char>(*p)))
            ++p;
        if (pEnd == p)
            strValue = "";
        else
            strValue.CopyTextFrom(p, static_cast<int>(pEnd - p));
        return 1;
    }
    return 0;
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
    FILE* pFile = ETL_FileHelper::etlFopenRegular(szPath);
    if (pFile == nullptr)
        return 0;
    size_t nGot = fread(buf, 1, sizeof(buf), pFile);
    fclose(pFile);
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
