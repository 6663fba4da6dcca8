// CConfigServer: the service object. One lives on the stack of main for the whole run; every
// message and timer of the service is handled by one of its operations, on the one thread.
#pragma once

#include "ETL_MsgQueueHelper.h"
#include "ETL_RegistryHelper.h"

#include <list>
#include <string>

// Ids of the messages the service handles, in the order the dispatcher tests them.
enum : uint32_t {
    CONFIG_MSG_REGISTRY_CHANGED = 0x9001,
    CONFIG_MSG_UPLOAD_USER_CFG = 0xd0001,
    CONFIG_MSG_RELOAD_USER_CFG = 0xd0003,
    CONFIG_MSG_CLEAR_USER_CFG = 0xd0004,
    CONFIG_MSG_EXPORT_CFG = 0xd0006,
    CONFIG_MSG_CONVERT_KEY_LAYOUT = 0xd0008,
};

class CConfigServer : public ETL_MsgQueueHelper::chThreadLocal {
public:
    CConfigServer();
    ~CConfigServer() override;
    CConfigServer(const CConfigServer&) = delete;
    CConfigServer& operator=(const CConfigServer&) = delete;

    // The dispatcher: 1 when the service or the base class handled the message, else 0.
    int TryThreadMessage(ETL_MsgQueueHelper::msgObject& msg) override;
    // Start-up hook; always 1.
    int OnServiceStart() override;
    // Stop hook: ends the watches, stops the upload check, releases the translator.
    int OnServiceStop() override;

    int m_bNeedUpload;
    ETL_MsgQueueHelper::chThreadTimer m_timerUpload;
    std::string m_strUserCfgName;
    std::string m_strUserCfgPath;
    std::list<HREGISTRY> m_listPendingDocs;
    ETL_MsgQueueHelper::chThreadTimer m_timerSave;
};

// The one service object while it exists (for the item setter, which marks uploads due).
CConfigServer* GetConfigServer();
