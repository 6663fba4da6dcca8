// The configuration text format: "#!version:1.0.0.1" header, item lines "name = value", "%NULL%"
// for an empty value, '#' comments, and a section line that ends the text.
#pragma once

#include "ETL_FileHelper.h"
#include "chReferenceStringT.h"

#include <cstddef>
#include <cstdio>
#include <string>

extern const char kM7Header[];       // "#!version:1.0.0.1\n"
extern const size_t kM7HeaderLength; // 18
extern const char kM7NullValue[];    // "%NULL%"

// Reads item lines of a configuration text in file order.
class CM7LineReader {
public:
    // Nonzero when the file could be opened for reading.
    int Open(const char* szPath);
    // 1 with the next item's name and value; 0 at end of file or at a section line.
    int Next(ETL_StringHelper::chStringA& strName, ETL_StringHelper::chStringA& strValue);

private:
    ETL_FileHelper::chFileStdio m_file;
    ETL_StringHelper::chStringA m_strLine;
};

// True when a line ending in this text needs no further line feed: its last character, trailing
// carriage returns and NUL bytes not counted, is a line feed.
bool M7EndsWithLineFeed(const char* pText, size_t nLength);

// Writes "name = value" (or "%NULL%" for an empty value, or always with bAllNull) in one write,
// then "\n" in a second unless the text already ends with a line feed. False when the first
// write did not complete; the line text is then in strLine (a buffer the caller reuses from line
// to line) for the caller's trace.
bool WriteM7ItemLine(FILE* pFile, const ETL_StringHelper::chStringA& strName,
                     const ETL_StringHelper::chStringA& strValue, bool bAllNull, std::string& strLine);

// 1 when the file does not start as plain configuration text (or the path is null), else 0.
int IsNonTextConfigFile(const char* szPath);
