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
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

namespace {

const char* const kMapPath = "/phone/resource/configMap.xml";
// A range wider than this is a typing error, not a phone with a million accounts.
const long kMaxRangeSize = 100000;

struct MapEntry {
    std::string strPathKey; // file, section and key joined by NULs
    std::string strName;
    config_info_t info;
};

struct SwitchEntry {
    std::string strFile;
    std::string strSection;
    std::string strKey;
    int nDefault;
};

struct NameMap {
    bool bLoaded = false;
    bool bFailureTraced = false;
    // A deque: descriptors handed out, and the texts the views below point into, never move.
    std::deque<MapEntry> entries;
    // Views, so that a lookup builds no string of its own.
    std::unordered_map<std::string_view, const MapEntry*> byPath;
    std::unordered_map<std::string_view, const MapEntry*> byName;
    std::unordered_map<std::string, SwitchEntry> switches;
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

// "0x800" or "2048"; false for anything else.
bool ParseFlags(const char* sz, unsigned int& nOut)
{
    long n = 0;
    if (sz == nullptr || *sz == '\0') {
        nOut = 0;
        return true;
    }
    if (!ParseLong(sz, 0, n) || n < 0 || n > static_cast<long>(UINT_MAX))
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
    MapEntry entry;
    entry.strName = Text("m7");
    entry.strPathKey = PathKey(Text("file").c_str(), Text("section").c_str(), Text("key").c_str());
    entry.info.attr = 0;
    (void)ParseFlags(item.attribute("flags").value(), entry.info.attr);
    map.entries.push_back(std::move(entry));
    MapEntry& stored = map.entries.back();
    stored.info.name = stored.strName.c_str();
    // The first entry wins in both directions.
    map.byPath.emplace(std::string_view(stored.strPathKey), &stored);
    map.byName.emplace(std::string_view(stored.strName), &stored);
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
    size_t nExpected = 0;
    for (pugi::xml_node node = root.child("item"); node; node = node.next_sibling("item")) {
        long nFrom = 0, nTo = 0;
        nExpected += ParseRange(node.attribute("range").value(), nFrom, nTo) ? static_cast<size_t>(nTo - nFrom + 1) : 1;
    }
    map.byPath.reserve(nExpected);
    map.byName.reserve(nExpected);
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
}

} // namespace

int get_config_name_by_path(const char* szFile, const char* szSection, const char* szKey, char* szBuf, int nSize,
                            int* pFlags)
{
    if (szFile == nullptr || szSection == nullptr || szKey == nullptr || szBuf == nullptr || nSize <= 0)
        return -1;
    LoadMap();
    const NameMap& map = Map();
    auto it = map.byPath.find(std::string_view(PathKey(szFile, szSection, szKey)));
    if (it == map.byPath.end())
        return -1;
    const MapEntry& entry = *it->second;
    if (entry.strName.size() + 1 > static_cast<size_t>(nSize))
        return -2;
    std::memcpy(szBuf, entry.strName.c_str(), entry.strName.size() + 1);
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
    auto it = map.byName.find(std::string_view(szName));
    return it == map.byName.end() ? nullptr : &it->second->info;
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
    map.byPath.clear();
    map.byName.clear();
    map.entries.clear();
    map.switches.clear();
    map.bLoaded = false;
}
