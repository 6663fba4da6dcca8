// Line reading, INI documents (a direct one-pass parser) and XML documents (pugixml) of the platform.
#include "ETL_FileAccess.h"
#include "ETL_ScopedHandle.h"
#include "ETL_FileHelper.h"

#include "ETL_TraceHelper.h"
#include "SlotTable.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <sstream>
#include <string_view>
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
    ETL_BaseHelper::chScopedFile file(nMode == 0 ? etlFopenRegular(szPath) : etlFopen(szPath, "r+b"));
    if (!file)
        return 0;
    struct stat st;
    if (fstat(fileno(file.Get()), &st) != 0 || !S_ISREG(st.st_mode)) {
        errno = EISDIR;
        return 0;
    }
    m_file = std::move(file);
    return 1;
}

void chFileStdio::Close()
{
    // A file only read: nothing to learn from its close.
    m_file.Reset();
}

int chFileStdio::ReadLine(const char*& pLine, int& nLen, int nDelimiter)
{
    pLine = nullptr;
    nLen = 0;
    if (!m_file)
        return 0;
    ssize_t nGot = getdelim(&m_pLine, &m_nLineCap, nDelimiter, m_file.Get());
    if (nGot <= 0) {
        pLine = "";
        return 0;
    }
    // A line that starts with NUL reads as empty text, but it is a line all the same.
    pLine = m_pLine;
    nLen = static_cast<int>(nGot);
    return 1;
}

int etlReadWholeFile(const char* szPath, std::string& strOut, size_t nMaxBytes)
{
    strOut.clear();
    std::string strReal = etlResolvePath(szPath);
    if (strReal.empty())
        return -EINVAL;
    ETL_BaseHelper::chScopedFd fd(open(strReal.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd)
        return -errno;
    struct stat st;
    if (fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode))
        return -EISDIR;
    if (static_cast<size_t>(st.st_size) > nMaxBytes)
        return -EFBIG;
    // Read straight into the string: a buffer on the stack would stay resident for the
    // process's life. The file may still grow while it is read, up to the limit.
    size_t nHave = 0;
    strOut.resize(static_cast<size_t>(st.st_size) + 1);
    for (;;) {
        if (nHave == strOut.size())
            strOut.resize(std::min(nMaxBytes, nHave * 2) + 1); // one past the limit shows it was passed
        ssize_t n = read(fd.Get(), &strOut[nHave], strOut.size() - nHave);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            strOut.clear();
            return -errno;
        }
        if (n == 0)
            break;
        nHave += static_cast<size_t>(n);
        if (nHave > nMaxBytes) {
            strOut.clear();
            return -EFBIG;
        }
    }
    strOut.resize(nHave);
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

namespace {

bool IsIniSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool IsIniNewLine(char c)
{
    return c == '\n' || c == '\r';
}

// Names seen so far, found by hash: repeated sections merge into the first, repeated keys of a
// section keep the first one's place and take the last value.
class CIniNameIndex {
public:
    // The id stored for (nOwner, name), or the id given when the name is new.
    template <class FName>
    uint32_t FindOrAdd(uint32_t nOwner, std::string_view name, uint32_t nNewId, FName nameOf)
    {
        if ((m_nCount + 1) * 2 > m_vecSlots.size())
            Grow(nameOf);
        size_t nMask = m_vecSlots.size() - 1;
        for (size_t i = Hash(nOwner, name) & nMask;; i = (i + 1) & nMask) {
            uint32_t nSlot = m_vecSlots[i];
            if (nSlot == 0) {
                m_vecSlots[i] = nNewId + 1;
                ++m_nCount;
                return nNewId;
            }
            uint32_t nOwnerOf = 0;
            if (nameOf(nSlot - 1, nOwnerOf) == name && nOwnerOf == nOwner)
                return nSlot - 1;
        }
    }

private:
    static size_t Hash(uint32_t nOwner, std::string_view name)
    {
        uint64_t h = 1469598103934665603ull ^ nOwner;
        for (char c : name)
            h = (h ^ static_cast<unsigned char>(c)) * 1099511628211ull;
        return static_cast<size_t>(h ^ (h >> 29));
    }

    template <class FName>
    void Grow(FName nameOf)
    {
        ETL_PlatformSlots::GrowSlots(m_vecSlots, 64, [&](uint32_t nSlot) {
            uint32_t nOwner = 0;
            std::string_view name = nameOf(nSlot - 1, nOwner);
            return Hash(nOwner, name);
        });
    }

    std::vector<uint32_t> m_vecSlots;
    size_t m_nCount = 0;
};

// The text a comment block starting at p reads as once its lines are joined by single '\n':
// blank lines between its comment lines count as line breaks, indents before them vanish.
std::string JoinedComment(const char* p)
{
    std::string strOut;
    for (;;) {
        if (*p != ';' && *p != '#') {
            const char* pAhead = p;
            size_t nBreaks = 0;
            while (IsIniSpace(*pAhead)) {
                if (IsIniNewLine(*pAhead)) {
                    ++nBreaks;
                    pAhead += (*pAhead == '\r' && pAhead[1] == '\n') ? 2 : 1;
                } else {
                    ++pAhead;
                }
            }
            if (*pAhead != ';' && *pAhead != '#')
                break;
            strOut.append(nBreaks, '\n');
            p = pAhead;
            continue;
        }
        const char* pLine = p;
        while (*p != '\0' && !IsIniNewLine(*p))
            ++p;
        strOut.append(pLine, static_cast<size_t>(p - pLine));
        if (*p == '\0')
            return strOut;
        p += (*p == '\r' && p[1] == '\n') ? 2 : 1;
        strOut += '\n';
    }
    strOut.pop_back();
    return strOut;
}

} // namespace

int iniFile::LoadFromText(const std::string& strText)
{
    Clear();
    // One pass over the text as views; strings are made once, in the document, at the end.
    // Text ends at the first NUL; a UTF-8 BOM in front is skipped; leading and trailing blanks
    // of names and values are dropped; lines without '=' and keys that are empty are ignored;
    // keys before any section belong to the section named "".
    struct SKey {
        uint32_t nSection;
        std::string_view name;
        std::string_view value;
    };
    std::vector<std::string_view> vecSections;
    std::vector<SKey> vecKeys;
    CIniNameIndex sectionIndex;
    CIniNameIndex keyIndex;
    auto SectionName = [&](uint32_t nId, uint32_t& nOwner) {
        nOwner = 0;
        return vecSections[nId];
    };
    auto KeyName = [&](uint32_t nId, uint32_t& nOwner) {
        nOwner = vecKeys[nId].nSection;
        return vecKeys[nId].name;
    };
    auto AddSection = [&](std::string_view name) {
        uint32_t nId = sectionIndex.FindOrAdd(0, name, static_cast<uint32_t>(vecSections.size()), SectionName);
        if (nId == vecSections.size())
            vecSections.push_back(name);
        return nId;
    };

    const char* p = strText.c_str();
    if (strText.size() >= 3 && std::memcmp(p, "\xEF\xBB\xBF", 3) == 0)
        p += 3;
    std::string_view section;
    bool bSectionAdded = false;
    uint32_t nSection = 0;
    // A '[' without its ']' on the line still starts the section of the keys that follow: its
    // name runs from there up to the next key's end, or through the first comment block between.
    const char* pOpenSection = nullptr;
    bool bOpenSectionNamed = false;
    std::string strOpenSection;
    std::deque<std::string> deqOwnedNames;
    while (*p != '\0') {
        while (*p != '\0' && IsIniSpace(*p))
            ++p;
        if (*p == '\0')
            break;
        if (*p == ';' || *p == '#') {
            if (pOpenSection != nullptr && !bOpenSectionNamed) {
                strOpenSection.assign(pOpenSection, static_cast<size_t>(p - pOpenSection));
                strOpenSection += JoinedComment(p);
                bOpenSectionNamed = true;
            }
            while (*p != '\0' && !IsIniNewLine(*p))
                ++p;
            continue;
        }
        if (*p == '[') {
            // Blanks after '[' may run over line ends; the name itself may not.
            ++p;
            while (*p != '\0' && IsIniSpace(*p))
                ++p;
            const char* pName = p;
            while (*p != '\0' && *p != ']' && !IsIniNewLine(*p))
                ++p;
            if (*p != ']') {
                pOpenSection = pName;
                bOpenSectionNamed = false;
                continue;
            }
            pOpenSection = nullptr;
            const char* pEnd = p;
            while (pEnd > pName && IsIniSpace(pEnd[-1]))
                --pEnd;
            section = std::string_view(pName, static_cast<size_t>(pEnd - pName));
            nSection = AddSection(section);
            bSectionAdded = true;
            while (*p != '\0' && !IsIniNewLine(*p))
                ++p;
            continue;
        }
        const char* pKey = p;
        while (*p != '\0' && *p != '=' && !IsIniNewLine(*p))
            ++p;
        if (*p != '=')
            continue;
        if (p == pKey) {
            while (*p != '\0' && !IsIniNewLine(*p))
                ++p;
            continue;
        }
        const char* pKeyEnd = p;
        while (pKeyEnd > pKey && IsIniSpace(pKeyEnd[-1]))
            --pKeyEnd;
        ++p;
        while (*p != '\0' && !IsIniNewLine(*p) && IsIniSpace(*p))
            ++p;
        const char* pValue = p;
        while (*p != '\0' && !IsIniNewLine(*p))
            ++p;
        const char* pValueEnd = p;
        while (pValueEnd > pValue && IsIniSpace(pValueEnd[-1]))
            --pValueEnd;
        if (pOpenSection != nullptr) {
            if (bOpenSectionNamed)
                deqOwnedNames.push_back(strOpenSection);
            else
                deqOwnedNames.emplace_back(pOpenSection, static_cast<size_t>(pKeyEnd - pOpenSection));
            section = deqOwnedNames.back();
            nSection = AddSection(section);
            bSectionAdded = true;
            pOpenSection = nullptr;
        } else if (!bSectionAdded) {
            nSection = AddSection(section);
            bSectionAdded = true;
        }
        std::string_view name(pKey, static_cast<size_t>(pKeyEnd - pKey));
        std::string_view value(pValue, static_cast<size_t>(pValueEnd - pValue));
        uint32_t nId = keyIndex.FindOrAdd(nSection, name, static_cast<uint32_t>(vecKeys.size()), KeyName);
        if (nId == vecKeys.size())
            vecKeys.push_back(SKey{nSection, name, value});
        else
            vecKeys[nId].value = value;
    }

    std::vector<size_t> vecCounts(vecSections.size(), 0);
    for (const SKey& key : vecKeys)
        ++vecCounts[key.nSection];
    m_vecSections.reserve(vecSections.size());
    for (size_t s = 0; s < vecSections.size(); ++s) {
        m_vecSections.emplace_back(std::string(vecSections[s]));
        m_vecSections.back().ReserveKeys(vecCounts[s]);
    }
    for (const SKey& key : vecKeys)
        m_vecSections[key.nSection].AddKey(std::string(key.name), std::string(key.value));
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
