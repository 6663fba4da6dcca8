// configMap.xml: ranges, flags, switches, and lookups in both directions.
#include "FuzzRoot.h"
#include "configParser.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FuzzRoot();
    FuzzWrite("/phone/resource/configMap.xml", pData, nSize);
    configParser_Reset();
    char szName[64];
    int nFlags = 0;
    for (const char* szFile : {"/config/voip/account0.cfg", "/config/t.ini", "/f"}) {
        if (get_config_name_by_path(szFile, "account", "Enable", szName, sizeof(szName), &nFlags) == 0) {
            if (std::strlen(szName) >= sizeof(szName))
                __builtin_trap();
            const config_info_t* pInfo = get_config_info_t(szName);
            if (pInfo == nullptr)
                __builtin_trap(); // a name found by path is found by name
        }
    }
    (void)get_config_info_t("account.1.enable");
    (void)configParser_GetConfigInt("AutoProvisionCustomSync");
    return 0;
}
