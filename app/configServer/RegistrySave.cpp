// The save of changed registry documents (0x9001): at once, or once per burst after 500 ms.
#include "ConfigServer.h"

#include "LiveView.h"
#include "M7Store.h"
#include "SaveFilter.h"

#include <algorithm>
#include <cstdint>
#include <unistd.h>

namespace {

const uint64_t kSaveDelayMs = 500;

HREGISTRY DocumentOf(int32_t nWparam)
{
    return reinterpret_cast<HREGISTRY>(static_cast<uintptr_t>(static_cast<uint32_t>(nWparam)));
}

} // namespace

void CConfigServer::SaveDocuments(const std::list<HREGISTRY>& listDocs)
{
    for (HREGISTRY hDocument : listDocs) {
        (void)regSaveRegistryDocumentEx(hDocument, RegistrySaveFilter);
        CFG_COUNT(++g_serviceCounters.nRegistrySaves);
    }
    sync();
    // The filter raised the flag when a saved key changed the table.
    if (m7ModelChanged != 0) {
        SaveUserConfig(nullptr, 0);
        m_bNeedUpload = 1;
    }
}

int CConfigServer::OnRegistryChanged(msgObject& msg)
{
    HREGISTRY hDocument = DocumentOf(msg.wParam);
    if (msg.lParam == 2) {
        SaveDocuments({hDocument});
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
    SaveDocuments(m_listPendingDocs);
    m_timerSave.KillTimer();
    m_listPendingDocs.clear();
    return 1;
}
