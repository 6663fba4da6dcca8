// The configuration text format: "#!version:1.0.0.1" header, item lines "name = value", "%NULL%"
// for an empty value, '#' comments, and a section line that ends the text.
#pragma once

#include "ETL_ScopedHandle.h"
#include "chReferenceStringT.h"

#include <cstddef>
#include <cstdio>
#include <string>

extern const char kM7Header[];       // "#!version:1.0.0.1\n"
extern const size_t kM7HeaderLength; // 18
extern const char kM7NullValue[];    // "%NULL%"

// Reads item lines of a configuration text in file order. The text is read in large chunks and
// names and values are found in place, so a line costs no allocation of its own.
class CM7LineReader {
public:
    CM7LineReader() = default;
    ~CM7LineReader();
    CM7LineReader(const CM7LineReader&) = delete;
    CM7LineReader& operator=(const CM7LineReader&) = delete;

    // Nonzero when the file could be opened for reading.
    int Open(const char* szPath);
    // 1 with the next item's name and value; 0 at end of file or at a section line.
    int Next(ETL_StringHelper::chStringA& strName, ETL_StringHelper::chStringA& strValue);
    // As Next, with name and value left in the reader's buffer: valid until the next call.
    int NextInPlace(const char*& pName, size_t& nName, const char*& pValue, size_t& nValue);
    // Size of the open file in bytes; 0 when unknown.
    size_t FileSize() const;

private:
    // The next line, its line feed and anything from a NUL byte on left out; false at the end.
    bool NextLine(const char*& pLine, size_t& nLength);
    // Moves the unread rest to the front and reads more behind it; false when nothing came.
    bool Refill();

    ETL_BaseHelper::chScopedFile m_file;
    // Mapped, not allocated: its pages go back to the system with the reader and do not stay in
    // the heap of a service that reads its user file once at start.
    char* m_pBuffer = nullptr;
    size_t m_nCapacity = 0;
    size_t m_nStart = 0; // first unread byte
    size_t m_nEnd = 0;   // end of the bytes read
    bool m_bEof = false;
};

// True when a line ending in this text needs no further line feed: its last character, trailing
// carriage returns and NUL bytes not counted, is a line feed.
bool M7EndsWithLineFeed(const char* pText, size_t nLength);

// Appends "name = value" ("%NULL%" for an empty value, or always with bAllNull) to a buffer of
// lines, then "\n" unless the line already ends with a line feed.
void AppendM7ItemLine(std::string& strLines, const ETL_StringHelper::chStringA& strName,
                      const ETL_StringHelper::chStringA& strValue, bool bAllNull);
// Writes a buffer of lines and empties it. False when the write did not complete; strLastLine is
// then the buffer's last line (from nLastStart, without its line feed), for the caller's trace.
bool FlushLines(FILE* pFile, std::string& strLines, size_t nLastStart, std::string& strLastLine);

// 1 when the file does not start as plain configuration text (or the path is null), else 0.
int IsNonTextConfigFile(const char* szPath);
