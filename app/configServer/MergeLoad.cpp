// Merging configuration texts into the item table, and loading the ignore list.
#include "ConfigServer.h"
#include "ConfigPaths.h"

#include "ConfigText.h"
#include "ETL_BaseHelper.h"
#include "ETL_FileHelper.h"
#include "ETL_MiscHelper.h"
#include "ETL_TraceHelper.h"
#include "M7Mapping.h"
#include "M7Store.h"
#include "configParser.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

using ETL_StringHelper::chStringA;

int CConfigServer::MergeLoadM7Model(const char* szPath, int bSkipRepetition, int bInvert)
{
    CM7LineReader reader;
    if (szPath == nullptr || reader.Open(szPath) == 0) {
        printf("open[%s] failed!\n", szPath != nullptr ? szPath : "(null)");
        return 0;
    }
    chStringA strName, strValue;
    while (reader.Next(strName, strValue) != 0) {
        const char* szName = strName.c_str();
        if (IgnoreUserCfg(szName) != 0) {
            printf("IgnoreUserCfg: skip:[%s]\n", szName);
            continue;
        }
        const config_info_t* pInfo = get_config_info_t(szName);
        uint32_t nFlags = pInfo != nullptr ? pInfo->attr : 0;
        if ((nFlags & (ATTR_ENCRYPT | ATTR_REBOOT)) != 0) {
            printf("MergeLoadM7Model: skip:[%s]\n", szName);
            continue;
        }
        if (bInvert != 0 && (nFlags & ATTR_INVERT) != 0) {
            char szInverted[64];
            FormatInvertedValue(strValue.c_str(), szInverted, sizeof(szInverted));
            strValue = szInverted;
        }
        CM7Item* pItem = FindM7Item(szName);
        if (pItem == nullptr) {
            AppendM7Item(ETL_NEW CM7Item{strName, strValue, nFlags});
        } else if (bSkipRepetition != 0) {
            printf("MergeLoadM7Model: skip repetition:[%s] \n", szName);
        } else {
            pItem->value = strValue;
        }
    }
    return 1;
}

int CConfigServer::LoadM7Model(const char* szPath, int bInvert)
{
    if (szPath == nullptr)
        return 0;
    ETL_TraceHelper::etlTrace(2, "ConfigServer::LoadM7Model");
    return MergeLoadM7Model(szPath, 0, bInvert);
}

int CConfigServer::LoadIgnoreM7List()
{
    if (ETL_MiscHelper::pathFileExist(kIgnoreListPath) == 0)
        return 0;
    pugi::xml_document doc;
    if (!ETL_FileHelper::etlXmlLoadFile(doc, kIgnoreListPath))
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
