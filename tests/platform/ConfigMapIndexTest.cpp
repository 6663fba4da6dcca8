// The name library's indexes against a plain walk of the expanded map: overlapping ranges,
// duplicates, placeholders of every kind, names that only nearly match.
#include "ProcessHarness.h"
#include "configParser.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct RefEntry {
    std::string strName, strFile, strSection, strKey;
    unsigned int nFlags;
};

struct RefItem {
    const char* szName;
    const char* szFile;
    const char* szSection;
    const char* szKey;
    unsigned int nFlags;
    int nFrom; // -1: no range
    int nTo;
};

std::string RefExpand(const std::string& strText, int n)
{
    std::string strOut;
    for (size_t i = 0; i < strText.size();) {
        if (strText.compare(i, 3, "{n}") == 0) {
            strOut += std::to_string(n);
            i += 3;
        } else if (strText.compare(i, 5, "{n+1}") == 0) {
            strOut += std::to_string(n + 1);
            i += 5;
        } else {
            strOut += strText[i++];
        }
    }
    return strOut;
}

// Overlaps on purpose: a later range reaches into an earlier one's names and paths; the fixed
// item keeps its braces; "{n" without its end is text.
const RefItem kItems[] = {
    {"acct.{n+1}.enable", "/config/voip/account{n}.cfg", "account", "Enable", 0x0, 0, 15},
    {"acct.{n}.enable", "/config/voip/account{n}.cfg", "account", "Enable", 0x2, 10, 30},
    {"key.{n}.{n+1}", "/config/data/k.xml", "item.{n}", "v{n+1}{n}", 0x800, 0, 120},
    {"literal.{n}", "/f{n}", "s", "k", 0x1, -1, 0},
    {"half.{n", "/h", "s{n", "k{n}", 0x1000, 3, 4},
    {"key.5.6", "/other", "s", "k", 0x4, -1, 0},
    {"wide.{n}", "/w", "s", "k{n}", 0x8, 99990, 100005},
};

} // namespace

TEST(ConfigMapIndexTest, LookupsAgreeWithAPlainWalk)
{
    testutil::TempDir root;
    setenv("ETL_ROOT", root.Path().c_str(), 1);
    std::string strMap = "<configMap>\n";
    std::vector<RefEntry> vecRef;
    for (const RefItem& item : kItems) {
        strMap += std::string(" <item m7=\"") + item.szName + "\" file=\"" + item.szFile + "\" section=\"" +
                  item.szSection + "\" key=\"" + item.szKey + "\" flags=\"" + std::to_string(item.nFlags) + "\"";
        if (item.nFrom >= 0)
            strMap += " range=\"" + std::to_string(item.nFrom) + "-" + std::to_string(item.nTo) + "\"";
        strMap += "/>\n";
        for (int n = std::max(item.nFrom, 0); n <= item.nTo; ++n) {
            auto Text = [&](const char* sz) { return item.nFrom >= 0 ? RefExpand(sz, n) : std::string(sz); };
            vecRef.push_back({Text(item.szName), Text(item.szFile), Text(item.szSection), Text(item.szKey), item.nFlags});
        }
    }
    testutil::WriteFile(root.Join("/phone/resource/configMap.xml"), strMap + "</configMap>\n");
    configParser_Reset();

    // Every expanded entry, and near misses of it, against the first entry of the walk.
    size_t nFound = 0;
    for (const RefEntry& entry : vecRef) {
        for (const std::string& strKey : {entry.strKey, entry.strKey + "0", entry.strKey.substr(1)}) {
            auto itByPath = std::find_if(vecRef.begin(), vecRef.end(), [&](const RefEntry& other) {
                return other.strFile == entry.strFile && other.strSection == entry.strSection && other.strKey == strKey;
            });
            const RefEntry* pByPath = itByPath != vecRef.end() ? &*itByPath : nullptr;
            char szName[128] = "untouched";
            int nFlags = -1;
            int nResult = get_config_name_by_path(entry.strFile.c_str(), entry.strSection.c_str(), strKey.c_str(), szName,
                                                  sizeof(szName), &nFlags);
            std::string strGot = nResult == 0 ? std::string(szName) + "|" + std::to_string(nFlags) : "absent";
            std::string strWant = pByPath != nullptr ? pByPath->strName + "|" + std::to_string(pByPath->nFlags) : "absent";
            EXPECT_EQ(strGot, strWant) << entry.strFile << " " << entry.strSection << " " << strKey;
            nFound += pByPath != nullptr ? 1 : 0;
        }
        for (const std::string& strName : {entry.strName, entry.strName + "x"}) {
            auto itByName = std::find_if(vecRef.begin(), vecRef.end(), [&](const RefEntry& o) { return o.strName == strName; });
            const config_info_t* pInfo = get_config_info_t(strName.c_str());
            EXPECT_EQ(pInfo != nullptr ? static_cast<long>(pInfo->attr) : -1L,
                      itByName != vecRef.end() ? static_cast<long>(itByName->nFlags) : -1L)
                << strName;
        }
    }
    EXPECT_GE(nFound, vecRef.size()) << "each entry is found by its own path at least";

    // A name that does not fit leaves the buffer as it was.
    char szSmall[8] = "same";
    int nFlags = -1;
    EXPECT_NE(get_config_name_by_path("/config/voip/account3.cfg", "account", "Enable", szSmall, sizeof(szSmall), &nFlags), 0);
    EXPECT_STREQ(szSmall, "same");
    EXPECT_EQ(nFlags, -1);

    configParser_Reset();
    unsetenv("ETL_ROOT");
}
