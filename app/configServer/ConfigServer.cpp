// Construction, destruction and the stop hook of the service object.
#include "ConfigServer.h"

namespace {
CConfigServer* g_pConfigServer = nullptr;
} // namespace

CConfigServer* GetConfigServer()
{
    return g_pConfigServer;
}

CConfigServer::CConfigServer()
    : ETL_MsgQueueHelper::chThreadLocal("configServer", nullptr), m_bNeedUpload(0), m_timerUpload(0),
      m_timerSave(0)
{
    m_bNeedUpload = 1;
    m_strUserCfgName.clear();
    m_strUserCfgPath.clear();
    g_pConfigServer = this;
}

CConfigServer::~CConfigServer()
{
    if (g_pConfigServer == this)
        g_pConfigServer = nullptr;
}

int CConfigServer::OnServiceStart()
{
    return 1;
}

int CConfigServer::OnServiceStop()
{
    m_timerUpload.KillTimer();
    return 1;
}
