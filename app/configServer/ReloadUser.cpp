// Reload of user configuration (0xd0003) and the upload request (0xd0001 and the upload timer).
#include "ConfigServer.h"
#include "ConfigPaths.h"

#include "ConfigText.h"
#include "ETL_FileAccess.h"
#include "ETL_MiscHelper.h"
#include "ETL_TraceHelper.h"
#include "M7Journal.h"
#include "MessageText.h"
#include "configParser.h"
#include "fwTrace.h"
#include "netDevice.h"

#include <cstdio>
#include <cstring>
#include <string>

using ETL_MsgQueueHelper::msgGetThreadByName;
using ETL_MsgQueueHelper::msgObject;

namespace {


void PostUpgrade(const char* szPath)
{
    (void)ETL_MsgQueueHelper::msgPostMsgToThreadEx(msgGetThreadByName(kAutoServer), AP_MSG_UPGRADE_USER_CFG, 0, 0,
                                                    static_cast<int>(std::strlen(szPath) + 1), szPath);
}

} // namespace

int CConfigServer::OnUploadUserConfig(msgObject& msg)
{
    (void)msg;
    if (configParser_GetConfigInt("AutoProvisionCustomSync") == 0 || m_bNeedUpload == 0)
        return 0;
    if (ETL_MiscHelper::pathFileExist(m_strUserCfgPath.c_str()) == 0) {
        ETL_TraceHelper::etlTrace(2, "Not backup config file! [%s]", m_strUserCfgPath.c_str());
        return 1;
    }
    ETL_TraceHelper::etlTrace(2, "CSM_UPLOAD_USERCFG...");
    (void)ETL_MsgQueueHelper::msgPostMsgToThread(msgGetThreadByName(kAutoServer), CSM_UPLOAD_USERCFG, 0, 0);
    m_bNeedUpload = 0;
    return 1;
}

int CConfigServer::OnReloadUserConfig(msgObject& msg)
{
    std::string strExtra;
    bool bHasExtra = GetMessageText(msg, strExtra);
    printf("CConfigServer::OnReloadUserConfig:%d, %s\n", msg.lParam, bHasExtra ? strExtra.c_str() : "(null)");
    std::string strPath = bHasExtra ? strExtra : m_strUserCfgPath;
    if (IsNonTextConfigFile(strPath.c_str()) != 0)
        return 0;

    CM7ChangeOrigin origin(CM7ChangeOrigin::EACH, "reload mode %d %s", static_cast<int>(msg.lParam),
                           strPath.c_str());
    if (msg.lParam == 3) {
        // Hand the complete provisioning text back, with the model's values when protected.
        if (configParser_GetConfigInt("AutoProvisionCustomProtect") == 1) {
            OnReloadAllConfig(strPath.c_str());
            strPath = kAllAutopPath;
        }
        PostUpgrade(strPath.c_str());
        return 1;
    }

    ETL_TraceHelper::etlTrace(2, "OnReloadUserConfig[%d][%d][%s]\n", msg.wParam, msg.lParam, strPath.c_str());
    if (msg.lParam == 2) {
        // Move to the MAC-named local file.
        const char* szMac = netGetMACText(0, 0);
        std::string strName = UserCfgFileName(szMac != nullptr ? szMac : "");
        std::string strFull = "/config/" + strName;
        if (ETL_MiscHelper::pathFileExist(strFull.c_str()) == 0) {
            ETL_TraceHelper::etlTrace(2, "not found:[%s]\n", strName.c_str());
            return 0;
        }
        ETL_TraceHelper::etlTrace(2, "merge [%s] [%s] \n", kLegacyUserFile, strFull.c_str());
        m_bNeedUpload = 1;
        CM7ChangeOrigin originMac(CM7ChangeOrigin::EACH, "reload mode 2 %s", strFull.c_str());
        (void)MergeLoadM7Model(strFull.c_str(), 1, 1);
        m_strUserCfgName = strName;
        m_strUserCfgPath = strFull;
        printf("change User Config Path = %s\n", m_strUserCfgPath.c_str());
        (void)ETL_FileHelper::etlRemove(kLegacyUserFile);
        (void)ETL_FileHelper::etlRemove(kLegacyUserBackup);
        SaveUserConfig(nullptr, 0);
        (void)OnUploadUserConfig(msg);
        return 1;
    }

    ETL_TraceHelper::etlTrace(2, "ConfigServer::LoadM7Model");
    if (MergeLoadM7Model(strPath.c_str(), 0, msg.lParam == 1 ? 1 : 0) == 0) {
        ETL_TraceHelper::etlTrace(2, "failed to reload user config.");
        return 1;
    }
    // Copying a file onto itself would empty it.
    if (ETL_FileHelper::etlResolvePath(strPath.c_str()) != ETL_FileHelper::etlResolvePath(kLocalAutopPath))
        (void)fwCopyFile(strPath.c_str(), kLocalAutopPath);
    SaveUserConfig(nullptr, 0);
    m_bNeedUpload = 1;
    if (msg.lParam == 1)
        return 1;
    (void)OnUploadUserConfig(msg);
    ETL_TraceHelper::etlTrace(2, "Post AP_MSG_UPGRADE_USER_CFG to autop thread.");
    PostUpgrade(kLocalAutopPath);
    return 1;
}
