// Line reading, INI documents (parsed by SimpleIni) and XML documents (pugixml) of the platform.
#include "ETL_FileHelper.h"

#include "ETL_TraceHelper.h"

#include "IniBackend.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

namespace ETL_FileHelper {

// ---- chFileStdio ----

chFileStdio::~chFileStdio()
{
    Close();
    std::free(m_pLine);
}

int chFileStdio::Open(const char* szPath, int nMode)
{
    Close();
    if (szPath == nullptr)
        return 0;
    // A FIFO or a device is refused without waiting on it, a directory too.
    FILE* pFile = nMode == 0 ? etlFopenRegular(szPath) : etlFopen(szPath, "r+b");
    if (pFile == nullptr)
        return 0;
    struct stat st;
    if (fstat(fileno(pFile), &st) != 0 || !S_ISREG(st.st_mode)) {
        fclose(pFile);
        errno = EISDIR;
        return 0;
    }
    m_pFile = pFile;
    return 1;
}

void chFileStdio::Close()
{
    if (m_pFile != nullptr)
        fclose(m_pFile);
    m_pFile = nullptr;
}

int chFileStdio::ReadString(ETL_StringHelper::chReferenceStringT<char>& strLine, int nDelimiter)
{
    if (m_pFile == nullptr)
        return 0;
    ssize_t nGot = getdelim(&m_pLine, &m_nLineCap, nDelimiter, m_pFile);
    if (nGot <= 0) {
        strLine = "";
        return 0;
    }
    if (m_pLine[0] == '\0') {
        // A line that starts with NUL reads as empty, but it is a line all the same.
        strLine = "";
        return 1;
    }
    strLine.CopyTextFrom(m_pLine, static_cast<int>(nGot));
    return 1;
}

int etlReadWholeFile(const char* szPath, std::string& strOut, size_t nMaxBytes)
{
    strOut.clear();
    std::string strReal = etlResolvePath(szPath);
    if (strReal.empty())
        return -EINVAL;
    int fd = open(strReal.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return -errno;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        return -EISDIR;
    }
    if (static_cast<size_t>(st.st_size) > nMaxBytes) {
        close(fd);
        return -EFBIG;
    }
    char buf[65536];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof(buf));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            int nErr = errno;
            close(fd);
            return -nErr;
        }
        if (n == 0)
            break;
        strOut.append(buf, static_cast<size_t>(n));
        if (strOut.size() > nMaxBytes) {
            close(fd);
            return -EFBIG;
        }
    }
    close(fd);
    return 0;
}

// ---- INI ----

const char* iniKey::GetValue(const char* szDefault) const
{
    return m_strValue.empty() && szDefault != nullptr ? szDefault : m_strValue.c_str();
}

iniKey* iniSection::FindKey(const char* szName)
{
    if (szName == nullptr)
        return nullptr;
    for (iniKey& key : m_vecKeys) {
        if (std::strcmp(key.GetName(), szName) == 0)
            return &key;
    }
    return nullptr;
}

void iniSection::AddKey(std::string strName, std::string strValue)
{
    m_vecKeys.emplace_back(std::move(strName), std::move(strValue));
}

iniSection* iniDocument::FindSection(const char* szName)
{
    if (szName == nullptr)
        return nullptr;
    for (iniSection& section : m_vecSections) {
        if (std::strcmp(section.GetName(), szName) == 0)
            return &section;
    }
    return nullptr;
}

int iniFile::LoadFromFile(const char* szPath)
{
    Clear();
    std::string strText;
    // Configuration files are small; anything past 64 MiB is not one.
    if (etlReadWholeFile(szPath, strText, 64u * 1024u * 1024u) != 0)
        return 0;
    return LoadFromText(strText);
}

int iniFile::LoadFromText(const std::string& strText)
{
    Clear();
    CIniBackend ini(true, false, false);
    if (ini.LoadData(strText.data(), strText.size()) < 0)
        return 0;
    CIniBackend::TNamesDepend sections;
    ini.GetAllSections(sections);
    sections.sort(CIniBackend::Entry::LoadOrder());
    for (const CIniBackend::Entry& section : sections) {
        m_vecSections.emplace_back(section.pItem);
        iniSection& target = m_vecSections.back();
        CIniBackend::TNamesDepend keys;
        ini.GetAllKeys(section.pItem, keys);
        keys.sort(CIniBackend::Entry::LoadOrder());
        for (const CIniBackend::Entry& key : keys) {
            const char* szValue = ini.GetValue(section.pItem, key.pItem, "");
            target.AddKey(key.pItem, szValue != nullptr ? szValue : "");
        }
    }
    return 1;
}

// ---- XML ----

std::string xmlDocument::ExportToText() const
{
    std::ostringstream out;
    m_doc.save(out);
    return out.str();
}

pugi::xml_parse_result etlXmlLoadFile(pugi::xml_document& doc, const char* szPath)
{
    if (szPath == nullptr) {
        doc.reset();
        pugi::xml_parse_result result;
        result.status = pugi::status_file_not_found;
        return result;
    }
    // Read here rather than by load_file, which would wait for ever on a FIFO.
    std::string strText;
    int nErr = etlReadWholeFile(szPath, strText, 64u * 1024u * 1024u);
    if (nErr != 0) {
        doc.reset();
        pugi::xml_parse_result result;
        result.status = nErr == -ENOENT ? pugi::status_file_not_found : pugi::status_io_error;
        return result;
    }
    return doc.load_buffer(strText.data(), strText.size(), pugi::parse_default, pugi::encoding_auto);
}

int xmlFile::LoadFromFile(const char* szPath)
{
    return etlXmlLoadFile(m_doc, szPath) ? 1 : 0;
}

pugi::xml_node xmlFindElementFromRoot(pugi::xml_document& doc, const char* szName, ...)
{
    pugi::xml_node node = doc;
    va_list args;
    va_start(args, szName);
    for (const char* szStep = szName; szStep != nullptr && node; szStep = va_arg(args, const char*))
        node = node.child(szStep);
    va_end(args);
    return node;
}

pugi::xml_node xmlFindElementByName(pugi::xml_node node, const char* szName)
{
    for (; node && szName != nullptr; node = node.next_sibling()) {
        if (node.type() == pugi::node_element && std::strcmp(node.name(), szName) == 0)
            return node;
    }
    return pugi::xml_node();
}

pugi::xml_node xmlFindElementByAttribute(pugi::xml_node node, const char* szAttribute, const char* szValue)
{
    for (; node && szAttribute != nullptr && szValue != nullptr; node = node.next_sibling()) {
        if (node.type() != pugi::node_element)
            continue;
        pugi::xml_attribute attr = node.attribute(szAttribute);
        if (attr && std::strcmp(attr.value(), szValue) == 0)
            return node;
    }
    return pugi::xml_node();
}

const char* xmlAttributeNode::GetAttributeValue(const char* szName) const
{
    if (!m_node || szName == nullptr)
        return nullptr;
    pugi::xml_attribute attr = m_node.attribute(szName);
    return attr ? attr.value() : nullptr;
}

void xmlAttributeNode::SetAttributeValue(const char* szName, const char* szValue)
{
    if (!m_node || szName == nullptr)
        return;
    pugi::xml_attribute attr = m_node.attribute(szName);
    if (!attr)
        attr = m_node.append_attribute(szName);
    attr.set_value(szValue != nullptr ? szValue : "");
}

} // namespace ETL_FileHelper
