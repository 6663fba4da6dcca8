// Documents of the platform: the line reader, INI documents and XML documents, each read from a
// file named by its logical path. Plain file access by path is in ETL_FileAccess.h.
#pragma once

#include "ETL_ScopedHandle.h"
#include "ETL_StringHelper.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <pugixml.hpp>
#include <string>
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
    // 0 at end of file. Bytes after a NUL inside the line do not reach the string. A template so
    // that the platform needs only the string's name: the caller that holds one has its header.
    template <class T>
    int ReadString(ETL_StringHelper::chReferenceStringT<T>& strLine, int nDelimiter)
    {
        const char* pLine = nullptr;
        int nLen = 0;
        int nResult = ReadLine(pLine, nLen, nDelimiter);
        if (pLine != nullptr)
            strLine.CopyTextFrom(pLine, nLen);
        return nResult;
    }
    // The same into the reader's own buffer: 1 with the line in pLine (nLen bytes, terminated,
    // valid until the next read); 0 at end of file with pLine "" and nLen 0, or with pLine null
    // when no file is open.
    int ReadLine(const char*& pLine, int& nLen, int nDelimiter);

private:
    ETL_BaseHelper::chScopedFile m_file;
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

} // namespace ETL_FileHelper
