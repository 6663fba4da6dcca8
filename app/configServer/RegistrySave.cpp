// Saved registry keys into the item table (the save filter), and the save of changed registry
// documents (0x9001): at once, or once per burst after 500 ms.
#include "ConfigServer.h"

#include "ETL_BaseHelper.h"
#include "ETL_TraceHelper.h"
#include "LiveView.h"
#include "M7Journal.h"
#include "M7Mapping.h"
#include "M7Store.h"
#include "configParser.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <unistd.h>

using ETL_StringHelper::chStringA;

namespace {

const uint64_t kSaveDelayMs = 500;

HREGISTRY DocumentOf(int32_t nWparam)
{
    return reinterpret_cast<HREGISTRY>(static_cast<uintptr_t>(static_cast<uint32_t>(nWparam)));
}

} // namespace

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
        AppendM7Item(ETL_NEW CM7Item{chStringA(szName), chStringA(szItemValue), nAttr});
    }
    return 0;
}

int CConfigServer::OnRegistryChanged(msgObject& msg)
{
    HREGISTRY hDocument = DocumentOf(msg.wParam);
    if (msg.lParam == 2) {
        (void)regSaveRegistryDocumentEx(hDocument, RegistrySaveFilter);
        CFG_COUNT(++g_serviceCounters.nRegistrySaves);
        sync();
        if (m7ModelChanged != 0) {
            SaveUserConfig(nullptr, 0);
            m_bNeedUpload = 1;
        }
        return 1;
    }
    if (std::find(m_listPendingDocs.begin(), m_listPendingDocs.end(), hDocument) == m_listPendingDocs.end())
        m_listPendingDocs.push_back(hDocument);
    // A running timer already covers this change; the burst is not prolonged.
    if (m_timerSave.IsTimerRuning() != 0)
        return 1;
    m_timerSave.SetTimer(kSaveDelayMs, nullptr, this, MSG_HANDLER(&CConfigServer::OnSaveTimer));
    return 1;
}

int CConfigServer::OnSaveTimer(msgObject& msg)
{
    (void)msg;
    for (HREGISTRY hDocument : m_listPendingDocs) {
        (void)regSaveRegistryDocumentEx(hDocument, RegistrySaveFilter);
        CFG_COUNT(++g_serviceCounters.nRegistrySaves);
    }
    sync();
    if (m7ModelChanged != 0) {
        SaveUserConfig(nullptr, 0);
        m_bNeedUpload = 1;
    }
    m_timerSave.KillTimer();
    m_listPendingDocs.clear();
    return 1;
}
