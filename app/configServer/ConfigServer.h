// CConfigServer: the service object. One lives on the stack of main for the whole run; every
// message and timer of the service is handled by one of its operations, on the one thread.
#pragma once

#include "ETL_MsgQueueHelper.h"
#include "ETL_RegistryHelper.h"
#include "sectionMonitor.h"

#include <cstdint>
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

// Messages the service posts to "autoServer".
enum : uint32_t {
    AP_MSG_UPGRADE_USER_CFG = 0xb0209,
    CSM_UPLOAD_USERCFG = 0xb020a,
};

class CConfigServer : public ETL_MsgQueueHelper::chThreadLocal {
public:
    typedef ETL_MsgQueueHelper::msgObject msgObject;

    CConfigServer();
    ~CConfigServer() override;
    CConfigServer(const CConfigServer&) = delete;
    CConfigServer& operator=(const CConfigServer&) = delete;

    // The dispatcher (Dispatch.cpp): 1 when the service or the base class handled the message.
    int TryThreadMessage(msgObject& msg) override;
    // Start-up hook (StartUp.cpp); always 1.
    int OnServiceStart() override;
    // Stop hook: ends the watches, stops the upload check, releases the translator.
    int OnServiceStop() override;

    // Merge load (ModelCalls.cpp, done by the store): 1 when the file was read, 0 when it could not be opened.
    int MergeLoadM7Model(const char* szPath, int bSkipRepetition, int bInvert);
    int LoadM7Model(const char* szPath, int bInvert);
    int LoadIgnoreM7List();

    // Configuration file writer (ModelCalls.cpp, done by the store).
    void SaveUserConfig(const char* szPath, int bAllNull);
    int ExportCustomConfig(const char* szPath);

    // Export of changed configuration (ExportChanged.cpp): 1 when the file was written.
    int OnExportAllChangedConfig(const char* szPath);

    // Key layouts (ModelCalls.cpp, read by keys/): 1 when the file was read through.
    int LoadKeyLayoutToM7(unsigned char* pSelection, int nSize, uint32_t nKeySet, int32_t nModule);

    // Names the user configuration file without the start-up, for programs that drive the
    // operations above directly (tests, benchmarks).
    void SetUserCfgPath(const std::string& strPath) { m_strUserCfgPath = strPath; }

    // The upload check's period; only a test build of the program shortens it.
    static uint64_t s_nUploadIntervalMs;

private:
    // Hardware address of "esw0", else "eth0" (StartUp.cpp): 1 when read.
    int ReadHwMacAddress(unsigned char* pMac);

    // Reload and upload (ReloadUser.cpp, ReloadAll.cpp).
    int OnUploadUserConfig(msgObject& msg);
    int OnReloadUserConfig(msgObject& msg);
    void OnReloadAllConfig(const char* szPath);
    // True when the path names the current user configuration file (by name or by inode).
    bool IsUserConfigFile(const char* szPath) const;

    // Clearing (ClearUser.cpp).
    int OnClearUserConfig(msgObject& msg);

    // Deferred registry save (RegistrySave.cpp).
    int OnRegistryChanged(msgObject& msg);
    int OnSaveTimer(msgObject& msg);
    // Saves the documents through the save filter, then rewrites the user file when the filter
    // changed the table.
    void SaveDocuments(const std::list<HREGISTRY>& listDocs);

    // Export request (ExportChanged.cpp) and key-layout conversion request (ModelCalls.cpp).
    int OnExportCfg(msgObject& msg);
    int OnConvertKeyLayout(msgObject& msg);

    int m_bNeedUpload;
    ETL_MsgQueueHelper::chThreadTimer m_timerUpload;
    std::string m_strUserCfgName;
    std::string m_strUserCfgPath;
    std::list<HREGISTRY> m_listPendingDocs;
    sectionMonitor m_sectionMonitor;
    ETL_MsgQueueHelper::chThreadTimer m_timerSave;
};
