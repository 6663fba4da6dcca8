// Construction, destruction and the stop hook of the service object.
#include "ConfigServer.h"

#include "LiveView.h"
#include "M7Store.h"
#include "autopTranslator.h"

CConfigServer::CConfigServer()
    : ETL_MsgQueueHelper::chThreadLocal("configServer", nullptr), m_bNeedUpload(0), m_timerUpload(0),
      m_timerSave(0)
{
    m_bNeedUpload = 1;
    m7ModelChanged = 0;
    m_strUserCfgName.clear();
    m_strUserCfgPath.clear();
    SetInspectProvider(&ConfigInspector());
}

CConfigServer::~CConfigServer()
{
    // The ignore list goes with the service object; the item table goes with the process.
    ignoreM7List.Clear();
}

int CConfigServer::OnServiceStop()
{
    m_sectionMonitor.UnmonitorAllSection();
    m_timerUpload.KillTimer();
    release_trans();
    return 1;
}
