// The service's members whose work the store and the key layouts do: loading and writing the
// item table, and the key-layout conversion request (0xd0008).
#include "ConfigServer.h"
#include "ConfigPaths.h"

#include "ConfigWriter.h"
#include "ETL_TraceHelper.h"
#include "KeyLayout.h"
#include "LiveView.h"
#include "M7Journal.h"
#include "M7Store.h"
#include "MergeLoad.h"

#include <string>

int CConfigServer::MergeLoadM7Model(const char* szPath, int bSkipRepetition, int bInvert)
{
    return MergeM7Text(szPath, bSkipRepetition, bInvert);
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
    return LoadM7IgnoreList(kIgnoreListPath);
}

void CConfigServer::SaveUserConfig(const char* szPath, int bAllNull)
{
    uint64_t nBytes = 0;
    EM7WriteResult eResult = SaveM7Table(m_strUserCfgPath, szPath, bAllNull != 0, nBytes);
    CFG_COUNT(g_serviceCounters.nBytesWritten += nBytes);
    if (eResult != M7_WRITE_NOT_STARTED && szPath == nullptr) {
        CFG_COUNT(++g_serviceCounters.nUserFileRewrites);
        CFG_COUNT(g_serviceCounters.tLastRewrite = std::chrono::steady_clock::now());
    }
}

int CConfigServer::ExportCustomConfig(const char* szPath)
{
    uint64_t nBytes = 0;
    EM7WriteResult eResult = WriteM7File(szPath != nullptr ? szPath : kCustomConfigPath, false, false, nBytes);
    CFG_COUNT(g_serviceCounters.nBytesWritten += nBytes);
    return eResult == M7_WRITE_NOT_STARTED ? 0 : 1;
}

int CConfigServer::LoadKeyLayoutToM7(unsigned char* pSelection, int nSize, uint32_t nKeySet, int32_t nModule)
{
    return LoadKeyLayout(pSelection, nSize, nKeySet, nModule, [this](const char* szName, const char* szValue, uint32_t nAttr) {
        if (SetM7Item(szName, szValue, nAttr))
            m_bNeedUpload = 1;
    });
}

int CConfigServer::OnConvertKeyLayout(msgObject& msg)
{
    // The journal names the keys asked for: the selection list up to its zero byte.
    std::string strKeys;
    const unsigned char* pSelection = static_cast<const unsigned char*>(msg.GetExtraData());
    for (int i = 0; i < msg.GetExtraSize() && pSelection[i] != 0 && strKeys.size() < 256; ++i)
        strKeys += (strKeys.empty() ? "" : ",") + std::to_string(pSelection[i]);
    CM7ChangeOrigin origin(CM7ChangeOrigin::EACH, "key layout set %u module %d keys %s", static_cast<unsigned>(msg.wParam),
                           static_cast<int>(msg.lParam), strKeys.empty() ? "none" : strKeys.c_str());
    int nResult = LoadKeyLayoutToM7(static_cast<unsigned char*>(msg.GetExtraData()), msg.GetExtraSize(),
                                    static_cast<uint32_t>(msg.wParam), msg.lParam);
    if (nResult != 0)
        SaveUserConfig(nullptr, 0);
    return nResult;
}
