// The ignore-list rule: whether an item name matches an entry of the ignore list.
#include "M7Ignore.h"

#include "M7Store.h"

#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <unordered_set>

namespace {

const char kAccountPrefix[] = "account.";
const size_t kAccountPrefixLen = sizeof(kAccountPrefix) - 1;
// Per-account patterns skip "account.N." up to index 12, whatever N is.
const size_t kAccountPatternSkip = 12;

bool EntryMatches(const CM7IgnoreItem& entry, const char* szName)
{
    if (entry.length < 0)
        return false;
    const char* szPattern = entry.pattern.c_str();
    if (entry.length == 0)
        return std::strcmp(szPattern, szName) == 0;
    size_t nLength = static_cast<size_t>(entry.length);
    if (std::strncmp(szName, kAccountPrefix, kAccountPrefixLen) != 0)
        return std::strncmp(szPattern, szName, nLength) == 0;
    const char* pDot = std::strchr(szName + kAccountPrefixLen, '.');
    if (pDot == nullptr)
        return false;
    const char* szNameTail = pDot + 1;
    // A pattern that begins with "account." but is shorter than 12 characters has no tail of
    // its own: it is compared as an empty tail, which never reads past its terminator.
    const char* szPatternTail = "";
    if (std::strncmp(szPattern, kAccountPrefix, kAccountPrefixLen) == 0 &&
        static_cast<size_t>(entry.pattern.GetLength()) >= kAccountPatternSkip)
        szPatternTail = szPattern + kAccountPatternSkip;
    return std::strncmp(szPatternTail, szNameTail, nLength) == 0;
}

} // namespace

int IgnoreUserCfgByWalk(const char* szName)
{
    if (szName == nullptr)
        return 0;
    for (CM7IgnoreNode* pNode = ignoreM7List.First(); pNode != ignoreM7List.End(); pNode = pNode->pNext) {
        if (EntryMatches(pNode->item, szName))
            return 1;
    }
    return 0;
}

namespace {

// Every name passes the list on each load, so the list is turned into hash sets once: strncmp
// over n characters is equality of the first n characters when the pattern has at least n, and
// equality of the whole texts when it is shorter.
// A set that knows the lengths of its texts: most names have none of them, and are then passed
// without being hashed.
class ViewSet {
public:
    void insert(std::string_view text)
    {
        m_nLengths |= LengthBit(text.size());
        m_set.insert(text);
    }
    size_t count(std::string_view text) const
    {
        return (m_nLengths & LengthBit(text.size())) == 0 ? 0 : m_set.count(text);
    }
    void clear()
    {
        m_set.clear();
        m_nLengths = 0;
    }

private:
    // Bit n for length n; the top bit stands for every length from 63 up.
    static uint64_t LengthBit(size_t nLength) { return uint64_t(1) << (nLength < 63 ? nLength : 63); }

    std::unordered_set<std::string_view> m_set;
    uint64_t m_nLengths = 0;
};

struct IgnoreIndex {
    uint64_t nVersion = UINT64_MAX;
    std::deque<std::string> texts;             // what the views point into
    ViewSet setWhole;                          // length 0: the whole name
    ViewSet setPlainExact;                     // other names, whole
    std::map<size_t, ViewSet> mapPlainPrefix;  // other names, by prefix length
    ViewSet setTailExact;                      // account names, whole tail
    std::map<size_t, ViewSet> mapTailPrefix;   // account names, tail prefix

    std::string_view Keep(const std::string& strText)
    {
        texts.push_back(strText);
        return texts.back();
    }

    void Add(const std::string& strText, size_t nLength, ViewSet& setExact, std::map<size_t, ViewSet>& mapPrefix)
    {
        if (strText.size() < nLength)
            setExact.insert(Keep(strText));
        else
            mapPrefix[nLength].insert(Keep(strText.substr(0, nLength)));
    }

    void Rebuild()
    {
        texts.clear();
        setWhole.clear();
        setPlainExact.clear();
        mapPlainPrefix.clear();
        setTailExact.clear();
        mapTailPrefix.clear();
        nVersion = ignoreM7List.Version();
        for (CM7IgnoreNode* pNode = ignoreM7List.First(); pNode != ignoreM7List.End(); pNode = pNode->pNext) {
            const CM7IgnoreItem& entry = pNode->item;
            std::string strPattern = entry.pattern.c_str();
            if (entry.length < 0)
                continue;
            if (entry.length == 0) {
                setWhole.insert(Keep(strPattern));
                continue;
            }
            size_t nLength = static_cast<size_t>(entry.length);
            Add(strPattern, nLength, setPlainExact, mapPlainPrefix);
            std::string strTail;
            if (strPattern.compare(0, kAccountPrefixLen, kAccountPrefix) == 0 && strPattern.size() >= kAccountPatternSkip)
                strTail = strPattern.substr(kAccountPatternSkip);
            Add(strTail, nLength, setTailExact, mapTailPrefix);
        }
    }

    static bool Lookup(std::string_view text, const ViewSet& setExact, const std::map<size_t, ViewSet>& mapPrefix)
    {
        if (setExact.count(text) != 0)
            return true;
        for (const auto& entry : mapPrefix) {
            if (text.size() >= entry.first && entry.second.count(text.substr(0, entry.first)) != 0)
                return true;
        }
        return false;
    }
};

} // namespace

int IgnoreUserCfg(const char* szName)
{
    if (szName == nullptr)
        return 0;
    static IgnoreIndex s_index;
    if (s_index.nVersion != ignoreM7List.Version())
        s_index.Rebuild();
    std::string_view strName(szName);
    if (s_index.setWhole.count(strName) != 0)
        return 1;
    if (strName.compare(0, kAccountPrefixLen, kAccountPrefix) != 0)
        return IgnoreIndex::Lookup(strName, s_index.setPlainExact, s_index.mapPlainPrefix) ? 1 : 0;
    size_t nDot = strName.find('.', kAccountPrefixLen);
    if (nDot == std::string_view::npos)
        return 0;
    return IgnoreIndex::Lookup(strName.substr(nDot + 1), s_index.setTailExact, s_index.mapTailPrefix) ? 1 : 0;
}
