// The message table of the service: one case per message id, in table order, one handler each.
#include "ConfigServer.h"

using ETL_MsgQueueHelper::msgObject;

int CConfigServer::TryThreadMessage(msgObject& msg)
{
    int nHandled = 0;
    switch (msg.message) {
    case CONFIG_MSG_REGISTRY_CHANGED:
        nHandled = OnRegistryChanged(msg);
        break;
    case CONFIG_MSG_UPLOAD_USER_CFG:
        nHandled = OnUploadUserConfig(msg);
        break;
    case CONFIG_MSG_RELOAD_USER_CFG:
        nHandled = OnReloadUserConfig(msg);
        break;
    case CONFIG_MSG_CLEAR_USER_CFG:
        nHandled = OnClearUserConfig(msg);
        break;
    case CONFIG_MSG_EXPORT_CFG:
        nHandled = OnExportCfg(msg);
        break;
    case CONFIG_MSG_CONVERT_KEY_LAYOUT:
        nHandled = OnConvertKeyLayout(msg);
        break;
    default:
        break;
    }
    if (nHandled != 0)
        return 1;
    return ETL_MsgQueueHelper::chThreadLocal::TryThreadMessage(msg) != 0 ? 1 : 0;
}
