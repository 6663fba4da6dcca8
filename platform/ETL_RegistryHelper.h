// The platform registry: INI documents kept in memory by the process that hosts the registry,
// their handles, saving through a per-key filter, and section watches.
#pragma once

#include "ETL_BaseHelper.h"
#include "ETL_MsgQueueHelper.h"

#include <map>
#include <string>
#include <utility>

// A registry handle: a small nonzero number, carried in pointer form as the phone's API does.
struct _HREGISTRY_;
typedef _HREGISTRY_* HREGISTRY;

namespace ETL_RegistryHelper {

// What the registry shares between its users.
struct regSharedState {
    // The task that receives the document-changed messages; 0 while none.
    int nOwnerTask;
    // The id of those messages, chosen by the owner; nothing is posted while it is 0.
    uint32_t nChangedMsgId;
};

// The process's registry: itself a mutex guarding its shared state.
class uCRegistryHelper : public ETL_BaseHelper::chMutex {
public:
    regSharedState* GetSharedState() { return &m_shared; }

private:
    regSharedState m_shared{0, 0};
};

uCRegistryHelper* uCRegistryHelpergetGlobalObject();

// The filter that saving hands every key to: file, section, key, value. Its answer does not
// change what is written.
typedef int (*regSaveFilter)(const char* szFile, const char* szSection, const char* szKey, const char* szValue);

// Watches of registry sections; a change calls the handler on the processor's thread with a
// message whose lparam is the section's handle.
class chRegistryMonitor {
public:
    chRegistryMonitor();
    virtual ~chRegistryMonitor();
    chRegistryMonitor(const chRegistryMonitor&) = delete;
    chRegistryMonitor& operator=(const chRegistryMonitor&) = delete;

    // One watch per (document, section): a second call for the same pair replaces the first.
    int MonitorSection(const char* szFile, const char* szSection, ETL_MsgQueueHelper::chMsgProcesser* pProcessor,
                       ETL_MsgQueueHelper::chMsgProcesser::msgHandler pHandler);
    void UnmonitorAllSection();

    typedef std::pair<std::string, std::string> regSection;
    typedef std::pair<ETL_MsgQueueHelper::chMsgProcesser*, ETL_MsgQueueHelper::chMsgProcesser::msgHandler> msgEntryPair;
    const std::map<regSection, msgEntryPair>& Watches() const { return m_mapWatches; }

private:
    std::map<regSection, msgEntryPair> m_mapWatches;
};

} // namespace ETL_RegistryHelper

// Handle of a document's section (the document is read from its file on first use).
HREGISTRY registryOpen(const char* szFile, const char* szSection);

// Writes the whole document of the handle to its file, calling the filter for every key first,
// in document order. The file is replaced safely. 0 on success, -1 when the handle is unknown or
// the file could not be written.
int regSaveRegistryDocumentEx(HREGISTRY hRegistry, ETL_RegistryHelper::regSaveFilter pFilter);

// Platform extensions behind etlmsg reg-set / reg-get and the switches of the name library.
// The current value of a key, from the document in memory when it is loaded, else from its file.
bool regGetValue(const char* szFile, const char* szSection, const char* szKey, std::string& strValue);
// Sets a key in memory (creating document, section and key) and reports the change: the changed
// message to the owner task, and every watch of that section. Returns the document handle.
HREGISTRY regSetValue(const char* szFile, const char* szSection, const char* szKey, const char* szValue, bool bNow);
