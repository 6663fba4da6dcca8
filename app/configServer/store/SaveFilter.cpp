// The filter through which saved registry keys reach the item table.
#include "SaveFilter.h"

#include "ETL_BaseHelper.h"
#include "ETL_TraceHelper.h"
#include "M7Journal.h"
#include "M7Ignore.h"
#include "M7Mapping.h"
#include "M7Store.h"
#include "configParser.h"

#include <cstring>

using ETL_StringHelper::chStringA;

int RegistrySaveFilter(const char* szFile, const char* szSection, const char* szKey, const char* szValue)
{
    char szName[512];
    std::memset(szName, 0, sizeof(szName));
    int nFlags = 0;
    if (get_config_name_by_path(szFile, szSection, szKey, szName, 64, &nFlags) != 0 || szName[0] == '\0') {
        ETL_TraceHelper::etlTrace(2, "getname faile, name:[%s] %s, %s, %s\n", szName, szFile, szSection, szKey);
        return -1;
    }
    uint32_t nAttr = static_cast<uint32_t>(nFlags);
    if ((nAttr & (ATTR_ENCRYPT | ATTR_REBOOT)) != 0) {
        ETL_TraceHelper::etlTrace(2, "skip [%s] [%d]", szName, static_cast<int>(nAttr & 0xff));
        return 0;
    }
    if (IgnoreUserCfg(szName) != 0) {
        ETL_TraceHelper::etlTrace(2, "Ignore the special config [%s]", szName);
        return -1;
    }
    char szConverted[64];
    const char* szItemValue = RegistryToItemValue(szValue != nullptr ? szValue : "", nAttr, szConverted,
                                                  sizeof(szConverted));
    m7ModelChanged = 1;
    CM7ChangeOrigin origin(CM7ChangeOrigin::EACH, "registry %s [%s] %s", szFile != nullptr ? szFile : "",
                           szSection != nullptr ? szSection : "", szKey != nullptr ? szKey : "");
    if (CM7Item* pItem = FindM7Item(szName)) {
        pItem->attr = nAttr;
        SetM7ItemValue(*pItem, chStringA(szItemValue));
    } else {
        AppendM7Item(NewM7Item(chStringA(szName), chStringA(szItemValue), nAttr));
    }
    return 0;
}
