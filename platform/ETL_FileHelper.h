// File access of the platform: the system-root resolver and the thin file functions through which
// the service touches the file system. Callers pass logical paths ("/config/x.cfg"); only this
// layer knows where the system root lies.
#pragma once

#include <cstdio>
#include <string>
#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace ETL_FileHelper {

// Maps a logical path to the real one. Absolute paths land under $ETL_ROOT (unset or empty: "/"),
// with ".." applied first and never climbing above the root; relative paths stay as they are.
std::string etlResolvePath(const char* szLogical);

// The same calls as the C library, on logical paths. Results and errno as the C library gives them.
FILE* etlFopen(const char* szPath, const char* szMode);
int etlRemove(const char* szPath);
int etlAccess(const char* szPath, int nMode);
int etlStat(const char* szPath, struct stat* pStat);
int etlLstat(const char* szPath, struct stat* pStat);
DIR* etlOpendir(const char* szPath);
int etlMkdir(const char* szPath, mode_t nMode);

// Opens a regular file for reading without ever waiting: a FIFO, socket or device is refused
// (errno EINVAL) instead of blocking the caller. Null on failure, errno set.
FILE* etlFopenRegular(const char* szPath);

// A file replaced whole: the text goes to a temporary file in the target's folder, which takes
// the target's place only once it is complete and on disk, so a reader or a power cut sees the
// old file or the new one, never a part. A symbolic link keeps pointing at the replaced file; an
// existing target that is not a regular file is refused. The old file's mode is kept, a new file
// gets 0666 less the umask, as fopen would give it. The temporary is the target's name with
// ".tmp-" and six random characters; one left by a killed writer goes at the next replacement.
class chFileReplacer {
public:
    chFileReplacer() = default;
    // An uncommitted temporary is removed: the target stays as it was.
    ~chFileReplacer();
    chFileReplacer(const chFileReplacer&) = delete;
    chFileReplacer& operator=(const chFileReplacer&) = delete;

    // Creates the temporary for the logical path. Returns its stream (owned by this object;
    // failed writes are reported by the stream and make Commit fail), or null with errno set.
    FILE* Open(const char* szPath);
    // Appends the rest of the file open on fdSource, copied by the kernel where it can be (no
    // pass through our memory). 0, or -errno with the stream marked failed; *pnCalls, when
    // given, counts the copy calls made.
    int CopyFrom(int fdSource, int* pnCalls = nullptr);
    // Flushes and syncs the temporary, renames it over the target and syncs the folder.
    // 0, or -errno with the temporary removed and the target untouched.
    int Commit();
    // Drops the temporary.
    void Abort();

private:
    static ssize_t CookieWrite(void* pCookie, const char* pData, size_t nSize);
    FILE* m_pStream = nullptr;
    int m_fd = -1;
    std::string m_strTemp;
    std::string m_strTarget;
};

// Replaces the file by the text in one step, as above. 0 or -errno.
int etlReplaceFile(const char* szPath, const std::string& strText);

} // namespace ETL_FileHelper

#include "chReferenceStringT.h"

#include <cstdint>
#include <memory>
#include <pugixml.hpp>
#include <vector>

namespace ETL_FileHelper {

// A file opened for reading through the system root, read line by line.
class chFileStdio {
public:
    chFileStdio() = default;
    ~chFileStdio();
    chFileStdio(const chFileStdio&) = delete;
    chFileStdio& operator=(const chFileStdio&) = delete;

    // nMode 0: read. Nonzero on success. Directories and other non-regular files are refused.
    int Open(const char* szPath, int nMode);
    void Close();
    // Reads the next line up to and including the delimiter, whole whatever its length.
    // 0 at end of file. Bytes after a NUL inside the line do not reach the string.
    int ReadString(ETL_StringHelper::chReferenceStringT<char>& strLine, int nDelimiter);

private:
    FILE* m_pFile = nullptr;
    char* m_pLine = nullptr;
    size_t m_nLineCap = 0;
};

// ---- INI documents: sections and keys in file order, found by name. ----

class iniKey {
public:
    iniKey(std::string strName, std::string strValue) : m_strName(std::move(strName)), m_strValue(std::move(strValue)) {}
    const char* GetName() const { return m_strName.c_str(); }
    // The value text; szDefault when the key has none.
    const char* GetValue(const char* szDefault = "") const;

private:
    std::string m_strName;
    std::string m_strValue;
};

class iniSection {
public:
    explicit iniSection(std::string strName) : m_strName(std::move(strName)) {}
    const char* GetName() const { return m_strName.c_str(); }
    iniKey* FindKey(const char* szName);
    size_t GetKeyCount() const { return m_vecKeys.size(); }
    iniKey* GetKey(size_t nIndex) { return nIndex < m_vecKeys.size() ? &m_vecKeys[nIndex] : nullptr; }
    void AddKey(std::string strName, std::string strValue);
    void ReserveKeys(size_t nCount) { m_vecKeys.reserve(nCount); }

private:
    std::string m_strName;
    std::vector<iniKey> m_vecKeys;
};

class iniDocument {
public:
    virtual ~iniDocument() = default;
    iniSection* FindSection(const char* szName);
    size_t GetSectionCount() const { return m_vecSections.size(); }
    iniSection* GetSection(size_t nIndex) { return nIndex < m_vecSections.size() ? &m_vecSections[nIndex] : nullptr; }
    // Empties the document.
    void Clear() { m_vecSections.clear(); }

protected:
    std::vector<iniSection> m_vecSections;
};

class iniFile : public iniDocument {
public:
    // Replaces the content by the file's (empty when it cannot be read). Nonzero on success.
    int LoadFromFile(const char* szPath);
    // Same, from text; used by the registry too.
    int LoadFromText(const std::string& strText);
};

// ---- XML documents on pugixml. ----

class xmlDocument {
public:
    virtual ~xmlDocument() = default;
    virtual std::string ExportToText() const;
    pugi::xml_document& Document() { return m_doc; }

protected:
    pugi::xml_document m_doc;
};

class xmlFile : public xmlDocument {
public:
    xmlFile() = default;
    ~xmlFile() override = default;
    // Parses the file into the document (default options, automatic encoding). Nonzero on success.
    int LoadFromFile(const char* szPath);
};

// Loads an XML file through the system root, as pugi::xml_document::load_file would.
pugi::xml_parse_result etlXmlLoadFile(pugi::xml_document& doc, const char* szPath);

// The element reached from the top of the document by the path of names (null-terminated list).
pugi::xml_node xmlFindElementFromRoot(pugi::xml_document& doc, const char* szName, ...);
// The first element of that name at the node or among its following siblings.
pugi::xml_node xmlFindElementByName(pugi::xml_node node, const char* szName);
// The first element at the node or among its following siblings whose attribute has that text.
pugi::xml_node xmlFindElementByAttribute(pugi::xml_node node, const char* szAttribute, const char* szValue);

// An element seen through its attributes.
class xmlAttributeNode {
public:
    explicit xmlAttributeNode(pugi::xml_node node) : m_node(node) {}
    // The attribute's text, or null when the element has no such attribute.
    const char* GetAttributeValue(const char* szName) const;
    // Sets (adding when missing) the attribute's text in the document.
    void SetAttributeValue(const char* szName, const char* szValue);

private:
    pugi::xml_node m_node;
};

// Reads a whole regular file through the root, at most nMaxBytes. 0 or -errno.
int etlReadWholeFile(const char* szPath, std::string& strOut, size_t nMaxBytes);

} // namespace ETL_FileHelper
