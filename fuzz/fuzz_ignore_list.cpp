// The ignore-list loader, and the index behind IgnoreUserCfg against the plain walk.
#include "ConfigServer.h"
#include "FuzzRoot.h"
#include "M7Ignore.h"
#include "M7Mapping.h"
#include "M7Store.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    static CConfigServer* s_pServer = [] {
        FuzzRoot();
        return new CConfigServer();
    }();
    FuzzWrite("/phone/resource/autopIgnroeM7.xml", pData, nSize);
    ignoreM7List.Clear();
    (void)s_pServer->LoadIgnoreM7List();
    // Names from the input itself, cut at every NUL and line feed, plus a few fixed ones.
    std::string strInput(reinterpret_cast<const char*>(pData), nSize);
    std::string strName;
    auto Check = [](const std::string& strCandidate) {
        if (IgnoreUserCfg(strCandidate.c_str()) != IgnoreUserCfgByWalk(strCandidate.c_str()))
            __builtin_trap();
    };
    for (char c : strInput) {
        if (c == '\0' || c == '\n' || c == '"') {
            Check(strName);
            strName.clear();
        } else {
            strName += c;
        }
    }
    for (const char* sz : {"account.1.sip_server.1.address", "account.", "account.12.", "network.vlan", ""})
        Check(sz);
    return 0;
}
