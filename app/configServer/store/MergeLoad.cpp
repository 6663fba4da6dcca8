// Merging configuration texts into the item table, and loading the ignore list.
#include "MergeLoad.h"

#include "ConfigText.h"
#include "ETL_BaseHelper.h"
#include "ETL_FileHelper.h"
#include "ETL_MiscHelper.h"
#include "M7Ignore.h"
#include "M7Mapping.h"
#include "M7Store.h"
#include "chTextArena.h"
#include "configParser.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

using ETL_StringHelper::chStringA;

namespace {

// Lines of a merge are taken in batches, so that the names of a batch are looked up together
// (CM7ItemMap::FindMany); each line is then applied, and its message printed, in file order.
constexpr size_t kMergeBatch = 32;

// The texts a merge brings in live as long as their items and are only read: they go into
// arenas, names apart from values, so that the chunks of values a later merge replaces empty out
// whole and serve again.
ETL_StringHelper::chTextArena g_nameArena;
ETL_StringHelper::chTextArena g_valueArena;

enum EMergeLine { MERGE_ITEM, MERGE_IGNORED, MERGE_FLAGGED };

struct CMergeLine {
    chStringA strName;
    chStringA strValue;
    uint32_t nFlags = 0;
    EMergeLine eKind = MERGE_ITEM;
};

void ApplyMergeBatch(CMergeLine* pLines, size_t nLines, int bSkipRepetition)
{
    CM7Lookup lookups[kMergeBatch];
    size_t nLookups = 0;
    for (size_t i = 0; i < nLines; ++i) {
        if (pLines[i].eKind != MERGE_ITEM)
            continue;
        lookups[nLookups].szName = pLines[i].strName.c_str();
        lookups[nLookups].nLen = static_cast<size_t>(pLines[i].strName.GetLength());
        ++nLookups;
    }
    m7ItemMap.FindMany(lookups, nLookups);
    const CM7Lookup* pLookup = lookups;
    for (size_t i = 0; i < nLines; ++i) {
        CMergeLine& line = pLines[i];
        const char* szName = line.strName.c_str();
        if (line.eKind == MERGE_IGNORED) {
            printf("IgnoreUserCfg: skip:[%s]\n", szName);
            continue;
        }
        if (line.eKind == MERGE_FLAGGED) {
            printf("MergeLoadM7Model: skip:[%s]\n", szName);
            continue;
        }
        // A name absent before the batch may have come in with an earlier line of it.
        const CM7Lookup& lookup = *pLookup++;
        CM7MapNode* pNode = lookup.pFound != nullptr ? lookup.pFound : m7ItemMap.FindSince(lookup);
        if (pNode == nullptr) {
            AppendM7Item(NewM7Item(line.strName, line.strValue, line.nFlags), lookup.nHash);
        } else if (bSkipRepetition != 0) {
            printf("MergeLoadM7Model: skip repetition:[%s] \n", szName);
        } else {
            SetM7ItemValue(*pNode->pValue, line.strValue);
        }
    }
}

} // namespace

int MergeM7Text(const char* szPath, int bSkipRepetition, int bInvert)
{
    CM7LineReader reader;
    if (szPath == nullptr || reader.Open(szPath) == 0) {
        printf("open[%s] failed!\n", szPath != nullptr ? szPath : "(null)");
        return 0;
    }
    // Into an empty table every line brings a record, a list node and a map node, about 2.5 times
    // the line's bytes: that much heap is faulted in at once rather than a page at a time.
    if (m7ItemList.Count() == 0)
        ETL_MiscHelper::etlPrefaultHeap(reader.FileSize() * 5 / 2);
    CMergeLine lines[kMergeBatch];
    size_t nLines = 0;
    const char* pName = nullptr;
    const char* pValue = nullptr;
    size_t nName = 0, nValue = 0;
    while (reader.NextInPlace(pName, nName, pValue, nValue) != 0) {
        // Copied straight from the reader's buffer: a line's texts are copied once.
        CMergeLine& line = lines[nLines++];
        line.strName = g_nameArena.Make(pName, static_cast<int>(nName));
        line.strValue = g_valueArena.Make(pValue, static_cast<int>(nValue));
        line.nFlags = 0;
        line.eKind = MERGE_ITEM;
        if (IgnoreUserCfg(line.strName.c_str()) != 0) {
            line.eKind = MERGE_IGNORED;
        } else {
            const config_info_t* pInfo = get_config_info_t(line.strName.c_str());
            line.nFlags = pInfo != nullptr ? pInfo->attr : 0;
            if ((line.nFlags & (ATTR_ENCRYPT | ATTR_REBOOT)) != 0) {
                line.eKind = MERGE_FLAGGED;
            } else if (bInvert != 0 && (line.nFlags & ATTR_INVERT) != 0) {
                char szInverted[64];
                FormatInvertedValue(line.strValue.c_str(), szInverted, sizeof(szInverted));
                line.strValue = szInverted;
            }
        }
        if (nLines == kMergeBatch) {
            ApplyMergeBatch(lines, nLines, bSkipRepetition);
            nLines = 0;
        }
    }
    ApplyMergeBatch(lines, nLines, bSkipRepetition);
    return 1;
}

int LoadM7IgnoreList(const char* szPath)
{
    if (ETL_MiscHelper::pathFileExist(szPath) == 0)
        return 0;
    pugi::xml_document doc;
    if (!ETL_FileHelper::etlXmlLoadFile(doc, szPath))
        return 0;
    pugi::xml_node data = doc.child("data");
    if (!data)
        return 0;
    for (pugi::xml_node item = data.child("item"); item; item = item.next_sibling("item")) {
        pugi::xml_attribute length = item.attribute("length");
        int32_t nLength = length ? M7ValueToInt(length.value()) : -1;
        ignoreM7List.Append(item.attribute("M7").value(), nLength);
    }
    return 1;
}
