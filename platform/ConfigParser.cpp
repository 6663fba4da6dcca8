// The configuration-name library on "/phone/resource/configMap.xml": `item` entries (expanded
// over their `range`) and `config` switches, with indexes for both directions of lookup.
#include "configParser.h"

#include "ETL_FileHelper.h"
#include "ETL_RegistryHelper.h"
#include "ETL_TraceHelper.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cstdint>
#include <vector>
#include <string>
#include <string_view>
#include <unordered_map>

namespace {

const char* const kMapPath = "/phone/resource/configMap.xml";
// A range wider than this is a typing error, not a phone with a million accounts.
const long kMaxRangeSize = 100000;

// One expanded entry: offsets of its texts in the map's arena, and its descriptor.
struct MapEntry {
    uint32_t nPathOff; // file, section and key joined by NULs
    uint32_t nPathLen;
    uint32_t nNameOff;
    uint32_t nNameLen;
    config_info_t info;
};

struct SwitchEntry {
    std::string strFile;
    std::string strSection;
    std::string strKey;
    int nDefault;
};

// Open addressing over entry numbers (plus one; 0 is empty), keyed by a text of the arena. A map
// of many thousands of expanded entries stays a few flat arrays instead of a node per entry.
class CTextIndex {
public:
    void Reserve(size_t nEntries)
    {
        size_t nSlots = 16;
        while (nSlots < nEntries * 2)
            nSlots *= 2;
        m_vecSlots.assign(nSlots, 0);
    }

    static uint32_t Hash(const char* p, size_t n)
    {
        uint32_t h = 2166136261u;
        for (size_t i = 0; i < n; ++i)
            h = (h ^ static_cast<unsigned char>(p[i])) * 16777619u;
        return h;
    }

    // Enters the entry unless its key is there already (the first entry wins).
    template <class KeyOf>
    void Insert(uint32_t nEntry, const char* p, size_t n, KeyOf keyOf)
    {
        if (m_nUsed * 2 >= m_vecSlots.size())
            Grow(keyOf);
        size_t nMask = m_vecSlots.size() - 1;
        for (size_t i = Hash(p, n) & nMask;; i = (i + 1) & nMask) {
            if (m_vecSlots[i] == 0) {
                m_vecSlots[i] = nEntry + 1;
                ++m_nUsed;
                return;
            }
            std::string_view other = keyOf(m_vecSlots[i] - 1);
            if (other.size() == n && std::memcmp(other.data(), p, n) == 0)
                return;
        }
    }

    // The entry number of the key, or -1.
    template <class KeyOf>
    long Find(const char* p, size_t n, KeyOf keyOf) const
    {
        if (m_vecSlots.empty())
            return -1;
        size_t nMask = m_vecSlots.size() - 1;
        for (size_t i = Hash(p, n) & nMask; m_vecSlots[i] != 0; i = (i + 1) & nMask) {
            std::string_view other = keyOf(m_vecSlots[i] - 1);
            if (other.size() == n && std::memcmp(other.data(), p, n) == 0)
                return static_cast<long>(m_vecSlots[i] - 1);
        }
        return -1;
    }

    void Clear()
    {
        std::vector<uint32_t>().swap(m_vecSlots);
        m_nUsed = 0;
    }

private:
    template <class KeyOf>
    void Grow(KeyOf keyOf)
    {
        std::vector<uint32_t> vecOld;
        vecOld.swap(m_vecSlots);
        m_vecSlots.assign(vecOld.empty() ? 16 : vecOld.size() * 2, 0);
        m_nUsed = 0;
        for (uint32_t nSlot : vecOld) {
            if (nSlot != 0) {
                std::string_view key = keyOf(nSlot - 1);
                Insert(nSlot - 1, key.data(), key.size(), keyOf);
            }
        }
    }

    std::vector<uint32_t> m_vecSlots;
    size_t m_nUsed = 0;
};

struct NameMap {
    bool bLoaded = false;
    bool bFailureTraced = false;
    std::vector<char> vecArena; // every text, each followed by a NUL
    std::vector<MapEntry> entries;
    CTextIndex byPath;
    CTextIndex byName;
    std::unordered_map<std::string, SwitchEntry> switches;

    std::string_view PathOf(uint32_t n) const { return {&vecArena[entries[n].nPathOff], entries[n].nPathLen}; }
    std::string_view NameOf(uint32_t n) const { return {&vecArena[entries[n].nNameOff], entries[n].nNameLen}; }

    uint32_t Keep(const std::string& strText)
    {
        uint32_t nOff = static_cast<uint32_t>(vecArena.size());
        vecArena.insert(vecArena.end(), strText.begin(), strText.end());
        vecArena.push_back('\0');
        return nOff;
    }
};

NameMap& Map()
{
    static NameMap s_map;
    return s_map;
}

// file, section and key joined by NULs, in a buffer reused from call to call.
const std::string& PathKey(const char* szFile, const char* szSection, const char* szKey)
{
    static std::string s_strKey;
    s_strKey.assign(szFile);
    s_strKey += '\0';
    s_strKey += szSection;
    s_strKey += '\0';
    s_strKey += szKey;
    return s_strKey;
}

std::string Expand(const char* szText, long n)
{
    std::string strOut;
    for (const char* p = szText; *p != '\0';) {
        if (std::strncmp(p, "{n}", 3) == 0) {
            strOut += std::to_string(n);
            p += 3;
        } else if (std::strncmp(p, "{n+1}", 5) == 0) {
            strOut += std::to_string(n + 1);
            p += 5;
        } else {
            strOut += *p++;
        }
    }
    return strOut;
}

bool ParseLong(const char* sz, int nBase, long& nOut)
{
    if (sz == nullptr || *sz == '\0')
        return false;
    errno = 0;
    char* pEnd = nullptr;
    long n = std::strtol(sz, &pEnd, nBase);
    if (errno != 0 || pEnd == sz || *pEnd != '\0')
        return false;
    nOut = n;
    return true;
}

// "0x800" or "2048"; false for anything else. Read in 64 bits: long is 32 bits on the phone.
bool ParseFlags(const char* sz, unsigned int& nOut)
{
    if (sz == nullptr || *sz == '\0') {
        nOut = 0;
        return true;
    }
    errno = 0;
    char* pEnd = nullptr;
    long long n = std::strtoll(sz, &pEnd, 0);
    if (errno != 0 || pEnd == sz || *pEnd != '\0' || n < 0 || n > static_cast<long long>(UINT_MAX))
        return false;
    nOut = static_cast<unsigned int>(n);
    return true;
}

bool ParseRange(const char* sz, long& nFrom, long& nTo)
{
    const char* pDash = std::strchr(sz, '-');
    if (pDash == nullptr || pDash == sz)
        return false;
    std::string strFrom(sz, pDash);
    return ParseLong(strFrom.c_str(), 10, nFrom) && ParseLong(pDash + 1, 10, nTo) && nFrom >= 0 && nTo >= nFrom &&
           nTo - nFrom < kMaxRangeSize;
}

void AddItem(NameMap& map, pugi::xml_node item, long n, bool bExpand)
{
    auto Text = [&](const char* szAttr) {
        const char* szValue = item.attribute(szAttr).value();
        return bExpand ? Expand(szValue, n) : std::string(szValue);
    };
    std::string strName = Text("m7");
    std::string strPath = PathKey(Text("file").c_str(), Text("section").c_str(), Text("key").c_str());
    MapEntry entry;
    entry.nPathOff = map.Keep(strPath);
    entry.nPathLen = static_cast<uint32_t>(strPath.size());
    entry.nNameOff = map.Keep(strName);
    entry.nNameLen = static_cast<uint32_t>(strName.size());
    entry.info.attr = 0;
    entry.info.name = nullptr; // set once the arena no longer moves
    (void)ParseFlags(item.attribute("flags").value(), entry.info.attr);
    uint32_t nEntry = static_cast<uint32_t>(map.entries.size());
    map.entries.push_back(entry);
    // The first entry wins in both directions.
    map.byPath.Insert(nEntry, strPath.data(), strPath.size(), [&map](uint32_t n) { return map.PathOf(n); });
    map.byName.Insert(nEntry, strName.data(), strName.size(), [&map](uint32_t n) { return map.NameOf(n); });
}

void LoadMap()
{
    NameMap& map = Map();
    if (map.bLoaded)
        return;
    map.bLoaded = true;
    pugi::xml_document doc;
    pugi::xml_parse_result result = ETL_FileHelper::etlXmlLoadFile(doc, kMapPath);
    pugi::xml_node root = doc.child("configMap");
    if (!result || !root) {
        if (!map.bFailureTraced)
            ETL_TraceHelper::etlTrace(2, "configParser: cannot load \"%s\": %s", kMapPath,
                                      result ? "no configMap element" : result.description());
        map.bFailureTraced = true;
        return;
    }
    // Size the indexes once: a large map would otherwise be rehashed a dozen times.
    size_t nExpected = 0, nTextBytes = 0;
    for (pugi::xml_node node = root.child("item"); node; node = node.next_sibling("item")) {
        long nFrom = 0, nTo = 0;
        size_t nCount = ParseRange(node.attribute("range").value(), nFrom, nTo) ? static_cast<size_t>(nTo - nFrom + 1) : 1;
        size_t nBytes = 16; // terminators and the digits that replace the placeholders
        for (const char* szAttr : {"m7", "file", "section", "key"})
            nBytes += std::strlen(node.attribute(szAttr).value());
        nExpected += nCount;
        nTextBytes += nCount * nBytes;
    }
    map.vecArena.reserve(nTextBytes);
    map.entries.reserve(nExpected);
    map.byPath.Reserve(nExpected);
    map.byName.Reserve(nExpected);
    for (pugi::xml_node node = root.first_child(); node; node = node.next_sibling()) {
        if (std::strcmp(node.name(), "item") == 0) {
            unsigned int nFlags = 0;
            if (!ParseFlags(node.attribute("flags").value(), nFlags)) {
                ETL_TraceHelper::etlTrace(2, "configParser: item [%s] has bad flags [%s]; skipped",
                                          node.attribute("m7").value(), node.attribute("flags").value());
                continue;
            }
            pugi::xml_attribute range = node.attribute("range");
            if (!range) {
                AddItem(map, node, 0, false);
                continue;
            }
            long nFrom = 0, nTo = 0;
            if (!ParseRange(range.value(), nFrom, nTo)) {
                ETL_TraceHelper::etlTrace(2, "configParser: item [%s] has bad range [%s]; skipped",
                                          node.attribute("m7").value(), range.value());
                continue;
            }
            for (long n = nFrom; n <= nTo; ++n)
                AddItem(map, node, n, true);
        } else if (std::strcmp(node.name(), "config") == 0) {
            SwitchEntry sw;
            sw.strFile = node.attribute("file").value();
            sw.strSection = node.attribute("section").value();
            sw.strKey = node.attribute("key").value();
            long nDefault = 0;
            sw.nDefault = ParseLong(node.attribute("default").value(), 10, nDefault) ? static_cast<int>(nDefault) : 0;
            map.switches.emplace(node.attribute("name").value(), sw);
        }
    }
    map.vecArena.shrink_to_fit();
    map.entries.shrink_to_fit();
    for (MapEntry& entry : map.entries)
        entry.info.name = &map.vecArena[entry.nNameOff];
}

} // namespace

int get_config_name_by_path(const char* szFile, const char* szSection, const char* szKey, char* szBuf, int nSize,
                            int* pFlags)
{
    if (szFile == nullptr || szSection == nullptr || szKey == nullptr || szBuf == nullptr || nSize <= 0)
        return -1;
    LoadMap();
    const NameMap& map = Map();
    const std::string& strPath = PathKey(szFile, szSection, szKey);
    long nEntry = map.byPath.Find(strPath.data(), strPath.size(), [&map](uint32_t n) { return map.PathOf(n); });
    if (nEntry < 0)
        return -1;
    const MapEntry& entry = map.entries[static_cast<size_t>(nEntry)];
    if (entry.nNameLen + 1 > static_cast<size_t>(nSize))
        return -2;
    std::memcpy(szBuf, entry.info.name, entry.nNameLen + 1);
    if (pFlags != nullptr)
        *pFlags = static_cast<int>(entry.info.attr);
    return 0;
}

const config_info_t* get_config_info_t(const char* szName)
{
    if (szName == nullptr)
        return nullptr;
    LoadMap();
    const NameMap& map = Map();
    long nEntry = map.byName.Find(szName, std::strlen(szName), [&map](uint32_t n) { return map.NameOf(n); });
    return nEntry < 0 ? nullptr : &map.entries[static_cast<size_t>(nEntry)].info;
}

int configParser_GetConfigInt(const char* szName)
{
    if (szName == nullptr)
        return 0;
    LoadMap();
    const NameMap& map = Map();
    auto it = map.switches.find(szName);
    if (it == map.switches.end())
        return 0;
    const SwitchEntry& sw = it->second;
    std::string strValue;
    if (!regGetValue(sw.strFile.c_str(), sw.strSection.c_str(), sw.strKey.c_str(), strValue))
        return sw.nDefault;
    return static_cast<int>(std::strtol(strValue.c_str(), nullptr, 10));
}

void configParser_Reset()
{
    NameMap& map = Map();
    map.byPath.Clear();
    map.byName.Clear();
    std::vector<MapEntry>().swap(map.entries);
    std::vector<char>().swap(map.vecArena);
    map.switches.clear();
    map.bLoaded = false;
}
