// The registry: INI documents in memory (parsed and serialised by SimpleIni), handles, safe
// saving, section watches, and the platform messages behind etlmsg reg-set and reg-get.
#include "ETL_RegistryHelper.h"

#include "ETL_FileAccess.h"
#include "ETL_FileHelper.h"
#include "ETL_TraceHelper.h"
#include "MsgPlatform.h"

#include "IniBackend.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using ETL_MsgQueueHelper::msgObject;

namespace ETL_RegistryHelper {

namespace {

struct RegDocument {
    std::string strFile; // logical path
    uint32_t nHandle = 0;
    CIniBackend ini{false, false, false};
    std::map<std::string, uint32_t> mapSections;
    uint32_t nSetsSinceCompact = 0;
    uint32_t nKeysAtCompact = 0;
};

// SimpleIni keeps every string it ever copied until the document is reset, so a key set a
// thousand times holds a thousand values. Once the changes outnumber twice the keys the document
// had (and at least 32), it is written out and read back in the same order, keeping only what it
// holds now: memory stays within a small multiple of the document, at a cost spread thinly.
void CompactIfDue(RegDocument& doc)
{
    uint32_t nLimit = doc.nKeysAtCompact * 2 > 32 ? doc.nKeysAtCompact * 2 : 32;
    if (++doc.nSetsSinceCompact < nLimit)
        return;
    doc.nSetsSinceCompact = 0;
    std::string strText;
    if (doc.ini.Save(strText, false) < 0)
        return;
    doc.ini.Reset();
    (void)doc.ini.LoadData(strText.data(), strText.size());
    doc.nKeysAtCompact = 0;
    CIniBackend::TNamesDepend sections;
    doc.ini.GetAllSections(sections);
    for (const CIniBackend::Entry& section : sections)
        doc.nKeysAtCompact += static_cast<uint32_t>(doc.ini.GetSectionSize(section.pItem) > 0 ? doc.ini.GetSectionSize(section.pItem) : 0);
}

struct RegistryState {
    std::recursive_mutex mutex;
    std::vector<std::unique_ptr<RegDocument>> vecDocs;
    std::map<std::string, RegDocument*> mapByFile;
    std::map<uint32_t, std::pair<RegDocument*, std::string>> mapSectionHandles;
    uint32_t nNextHandle = 1;
    std::set<chRegistryMonitor*> setMonitors;
};

RegistryState& State()
{
    static RegistryState s_state;
    return s_state;
}

const size_t kMaxDocumentBytes = 64u * 1024u * 1024u;

// The document of a file, read from disk on first use (a missing file gives an empty one).
RegDocument* DocumentOf(const char* szFile)
{
    RegistryState& state = State();
    auto it = state.mapByFile.find(szFile);
    if (it != state.mapByFile.end())
        return it->second;
    std::unique_ptr<RegDocument> pDoc(new RegDocument);
    pDoc->strFile = szFile;
    pDoc->nHandle = state.nNextHandle++;
    std::string strText;
    int nErr = ETL_FileHelper::etlReadWholeFile(szFile, strText, kMaxDocumentBytes);
    if (nErr == 0) {
        if (pDoc->ini.LoadData(strText.data(), strText.size()) < 0)
            ETL_TraceHelper::etlTrace(2, "registry: cannot parse \"%s\"; starting empty", szFile);
    } else if (nErr != -ENOENT) {
        ETL_TraceHelper::etlTrace(2, "registry: cannot read \"%s\": %s; starting empty", szFile, strerror(-nErr));
    }
    RegDocument* pRaw = pDoc.get();
    state.vecDocs.push_back(std::move(pDoc));
    state.mapByFile[pRaw->strFile] = pRaw;
    return pRaw;
}

uint32_t SectionHandle(RegDocument* pDoc, const std::string& strSection)
{
    auto it = pDoc->mapSections.find(strSection);
    if (it != pDoc->mapSections.end())
        return it->second;
    RegistryState& state = State();
    uint32_t nHandle = state.nNextHandle++;
    pDoc->mapSections[strSection] = nHandle;
    state.mapSectionHandles[nHandle] = std::make_pair(pDoc, strSection);
    return nHandle;
}

// A document handle, or a section handle standing for its document.
RegDocument* DocumentOfHandle(uint32_t nHandle)
{
    RegistryState& state = State();
    for (auto& pDoc : state.vecDocs) {
        if (pDoc->nHandle == nHandle)
            return pDoc.get();
    }
    auto it = state.mapSectionHandles.find(nHandle);
    return it == state.mapSectionHandles.end() ? nullptr : it->second.first;
}

HREGISTRY ToHandle(uint32_t n)
{
    return reinterpret_cast<HREGISTRY>(static_cast<uintptr_t>(n));
}

uint32_t FromHandle(HREGISTRY h)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(h));
}

// The folders of a new document are made first; the file itself is replaced safely.
int SaveDocumentFile(const std::string& strFile, const std::string& strText)
{
    std::string strReal = ETL_FileHelper::etlResolvePath(strFile.c_str());
    size_t nSlash = strReal.rfind('/');
    for (size_t nPos = 1; nSlash != std::string::npos && nPos <= nSlash; ++nPos) {
        if (nPos == nSlash || strReal[nPos] == '/')
            (void)mkdir(strReal.substr(0, nPos).c_str(), 0755);
    }
    return ETL_FileHelper::etlReplaceFile(strFile.c_str(), strText);
}

// What a change reports once it is made: taken when the value is set, delivered afterwards.
struct ChangeReport {
    int nOwnerTask = 0;
    uint32_t nChangedMsgId = 0;
    uint32_t nDocument = 0;
    uint32_t nSection = 0;
    std::vector<chRegistryMonitor::msgEntryPair> vecWatches;
};

bool ApplySet(const char* szFile, const char* szSection, const char* szKey, const char* szValue, ChangeReport& report);
void DeliverReport(const ChangeReport& report, bool bNow);

// Texts that would not survive a round trip through an INI file are refused.
bool IsStorableName(const char* sz, const char* szForbidden)
{
    if (sz == nullptr || sz[0] == '\0')
        return false;
    for (const char* p = sz; *p != '\0'; ++p) {
        if (*p == '\n' || *p == '\r' || std::strchr(szForbidden, *p) != nullptr)
            return false;
    }
    return true;
}

// Splits the NUL-separated texts of a registry request, never reading past its size.
bool SplitTexts(const msgObject& msg, size_t nCount, std::vector<const char*>& vecOut)
{
    const char* p = static_cast<const char*>(msg.GetExtraData());
    size_t nLeft = static_cast<size_t>(msg.GetExtraSize());
    vecOut.clear();
    while (vecOut.size() < nCount) {
        if (p == nullptr || nLeft == 0)
            return false;
        const void* pEnd = std::memchr(p, '\0', nLeft);
        if (pEnd == nullptr)
            return false;
        vecOut.push_back(p);
        size_t nUsed = static_cast<size_t>(static_cast<const char*>(pEnd) - p) + 1;
        p += nUsed;
        nLeft -= nUsed;
    }
    return nLeft == 0;
}

int HandleRegistryRequest(msgObject& msg)
{
    std::vector<const char*> vecTexts;
    if (msg.message == ETL_MsgQueueHelper::MSG_PLATFORM_REG_GET) {
        if (!SplitTexts(msg, 3, vecTexts)) {
            ETL_TraceHelper::etlTrace(2, "registry: malformed reg-get request of %d bytes", msg.GetExtraSize());
            msg.ReplyMessage(0);
            return 1;
        }
        std::string strValue;
        if (regGetValue(vecTexts[0], vecTexts[1], vecTexts[2], strValue))
            msg.ReplyMessageEx(1, strValue.data(), static_cast<int>(strValue.size()));
        else
            msg.ReplyMessage(0);
        return 1;
    }
    if (!SplitTexts(msg, 4, vecTexts)) {
        ETL_TraceHelper::etlTrace(2, "registry: malformed reg-set request of %d bytes", msg.GetExtraSize());
        msg.ReplyMessage(0);
        return 1;
    }
    if (vecTexts[0][0] != '/' || !IsStorableName(vecTexts[1], "[]") || !IsStorableName(vecTexts[2], "=[;#") ||
        std::strpbrk(vecTexts[3], "\r\n") != nullptr) {
        ETL_TraceHelper::etlTrace(2, "registry: refused reg-set of \"%s\" [%s] %s: not storable in an INI file",
                                  vecTexts[0], vecTexts[1], vecTexts[2]);
        msg.ReplyMessage(0);
        return 1;
    }
    // The value is set and the owner read before the answer; the reports follow it.
    ChangeReport report;
    if (!ApplySet(vecTexts[0], vecTexts[1], vecTexts[2], vecTexts[3], report)) {
        msg.ReplyMessage(0);
        return 1;
    }
    msg.ReplyMessage(1);
    DeliverReport(report, msg.wParam == 1);
    return 1;
}

struct HookRegistration {
    HookRegistration() { ETL_MsgQueueHelper::SetRegistryMessageHandler(HandleRegistryRequest); }
};
HookRegistration g_hookRegistration;

} // namespace

uCRegistryHelper* uCRegistryHelpergetGlobalObject()
{
    static uCRegistryHelper s_registry;
    ETL_MsgQueueHelper::SetRegistryMessageHandler(HandleRegistryRequest);
    return &s_registry;
}

chRegistryMonitor::chRegistryMonitor()
{
    std::lock_guard<std::recursive_mutex> lock(State().mutex);
    State().setMonitors.insert(this);
}

chRegistryMonitor::~chRegistryMonitor()
{
    // The platform forgets the watcher with it, so no change can reach a destroyed object.
    std::lock_guard<std::recursive_mutex> lock(State().mutex);
    State().setMonitors.erase(this);
}

int chRegistryMonitor::MonitorSection(const char* szFile, const char* szSection,
                                      ETL_MsgQueueHelper::chMsgProcesser* pProcessor,
                                      ETL_MsgQueueHelper::chMsgProcesser::msgHandler pHandler)
{
    if (szFile == nullptr || szSection == nullptr || pProcessor == nullptr || pHandler == nullptr)
        return -1;
    std::lock_guard<std::recursive_mutex> lock(State().mutex);
    m_mapWatches[regSection(szFile, szSection)] = msgEntryPair(pProcessor, pHandler);
    return 0;
}

void chRegistryMonitor::UnmonitorAllSection()
{
    std::lock_guard<std::recursive_mutex> lock(State().mutex);
    m_mapWatches.clear();
}

} // namespace ETL_RegistryHelper

using namespace ETL_RegistryHelper;

HREGISTRY registryOpen(const char* szFile, const char* szSection)
{
    if (szFile == nullptr || szSection == nullptr)
        return nullptr;
    std::lock_guard<std::recursive_mutex> lock(State().mutex);
    return ToHandle(SectionHandle(DocumentOf(szFile), szSection));
}

int regSaveRegistryDocumentEx(HREGISTRY hRegistry, regSaveFilter pFilter)
{
    std::lock_guard<std::recursive_mutex> lock(State().mutex);
    RegDocument* pDoc = DocumentOfHandle(FromHandle(hRegistry));
    if (pDoc == nullptr) {
        ETL_TraceHelper::etlTrace(2, "registry: save of unknown handle %u", FromHandle(hRegistry));
        return -1;
    }
    CIniBackend::TNamesDepend sections;
    pDoc->ini.GetAllSections(sections);
    sections.sort(CIniBackend::Entry::LoadOrder());
    for (const CIniBackend::Entry& section : sections) {
        CIniBackend::TNamesDepend keys;
        pDoc->ini.GetAllKeys(section.pItem, keys);
        keys.sort(CIniBackend::Entry::LoadOrder());
        for (const CIniBackend::Entry& key : keys) {
            const char* szValue = pDoc->ini.GetValue(section.pItem, key.pItem, "");
            if (pFilter != nullptr)
                (void)pFilter(pDoc->strFile.c_str(), section.pItem, key.pItem, szValue != nullptr ? szValue : "");
        }
    }
    std::string strText;
    if (pDoc->ini.Save(strText, false) < 0) {
        ETL_TraceHelper::etlTrace(2, "registry: cannot serialise \"%s\"", pDoc->strFile.c_str());
        return -1;
    }
    int nErr = SaveDocumentFile(pDoc->strFile, strText);
    if (nErr != 0) {
        ETL_TraceHelper::etlTrace(2, "registry: cannot write \"%s\": %s", pDoc->strFile.c_str(), strerror(-nErr));
        return -1;
    }
    return 0;
}

bool regGetValue(const char* szFile, const char* szSection, const char* szKey, std::string& strValue)
{
    if (szFile == nullptr || szSection == nullptr || szKey == nullptr)
        return false;
    std::lock_guard<std::recursive_mutex> lock(State().mutex);
    auto it = State().mapByFile.find(szFile);
    if (it != State().mapByFile.end()) {
        const char* szValue = it->second->ini.GetValue(szSection, szKey, nullptr);
        if (szValue == nullptr)
            return false;
        strValue = szValue;
        return true;
    }
    ETL_FileHelper::iniFile file;
    if (file.LoadFromFile(szFile) == 0)
        return false;
    ETL_FileHelper::iniSection* pSection = file.FindSection(szSection);
    ETL_FileHelper::iniKey* pKey = pSection != nullptr ? pSection->FindKey(szKey) : nullptr;
    if (pKey == nullptr)
        return false;
    strValue = pKey->GetValue("");
    return true;
}

namespace ETL_RegistryHelper {
namespace {

bool ApplySet(const char* szFile, const char* szSection, const char* szKey, const char* szValue, ChangeReport& report)
{
    std::lock_guard<std::recursive_mutex> lock(State().mutex);
    RegDocument* pDoc = DocumentOf(szFile);
    if (pDoc->ini.SetValue(szSection, szKey, szValue) < 0)
        return false;
    CompactIfDue(*pDoc);
    report.nDocument = pDoc->nHandle;
    report.nSection = SectionHandle(pDoc, szSection);
    for (chRegistryMonitor* pMonitor : State().setMonitors) {
        auto it = pMonitor->Watches().find(chRegistryMonitor::regSection(szFile, szSection));
        if (it != pMonitor->Watches().end())
            report.vecWatches.push_back(it->second);
    }
    uCRegistryHelper* pRegistry = uCRegistryHelpergetGlobalObject();
    pRegistry->Lock(-1);
    report.nOwnerTask = pRegistry->GetSharedState()->nOwnerTask;
    report.nChangedMsgId = pRegistry->GetSharedState()->nChangedMsgId;
    pRegistry->Unlock();
    return true;
}

void DeliverReport(const ChangeReport& report, bool bNow)
{
    if (report.nOwnerTask != 0 && report.nChangedMsgId != 0) {
        if (ETL_MsgQueueHelper::chThreadLocal::Impl* pThread = ETL_MsgQueueHelper::FindLocalThreadByTask(report.nOwnerTask)) {
            ETL_MsgQueueHelper::wire::Header header;
            header.nId = report.nChangedMsgId;
            header.nWparam = static_cast<int32_t>(report.nDocument);
            header.nLparam = bNow ? 2 : 0;
            ETL_MsgQueueHelper::PostToLocalThread(pThread, header, nullptr);
        }
    }
    // Watches run here, on the thread that hosts the registry, which is the watcher's thread.
    for (const chRegistryMonitor::msgEntryPair& watch : report.vecWatches) {
        msgObject change(ETL_MsgQueueHelper::MSG_PLATFORM_SECTION_CHANGED, 0, static_cast<int32_t>(report.nSection),
                         nullptr, 0);
        (void)(watch.first->*watch.second)(change);
    }
}

} // namespace
} // namespace ETL_RegistryHelper

HREGISTRY regSetValue(const char* szFile, const char* szSection, const char* szKey, const char* szValue, bool bNow)
{
    if (szFile == nullptr || szSection == nullptr || szKey == nullptr || szValue == nullptr)
        return nullptr;
    ChangeReport report;
    if (!ApplySet(szFile, szSection, szKey, szValue, report))
        return nullptr;
    DeliverReport(report, bNow);
    return ToHandle(report.nDocument);
}
