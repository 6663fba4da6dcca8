// Answers to the inspection messages from the service's own data: the live item table as
// configuration text, the service's counters, and the change journal.
#include "LiveView.h"

#include "ConfigServer.h"
#include "ConfigText.h"
#include "M7Journal.h"
#include "M7Mapping.h"
#include "M7Store.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

CServiceCounters g_serviceCounters;

namespace {

void AppendStat(std::string& strOut, const char* szKey, uint64_t nValue)
{
    char szLine[96];
    int n = snprintf(szLine, sizeof(szLine), "%s %" PRIu64 "\n", szKey, nValue);
    strOut.append(szLine, static_cast<size_t>(n));
}

class CConfigInspector : public ETL_MsgQueueHelper::chInspectProvider {
public:
    int AppendItems(const char* pPrefix, size_t nPrefixLen, size_t nLimit, std::string& strOut, int& nLeft) override
    {
        int nMatched = 0;
        for (CM7ListNode* pNode = m7ItemList.First(); pNode != m7ItemList.End(); pNode = pNode->pNext) {
            const CM7Item& item = *pNode->pItem;
            if (static_cast<size_t>(item.name.GetLength()) < nPrefixLen ||
                (nPrefixLen > 0 && std::memcmp(item.name.c_str(), pPrefix, nPrefixLen) != 0))
                continue;
            ++nMatched;
            size_t nBefore = strOut.size();
            // Only encrypted values are secret. Reboot items are shown with their value: the user
            // file leaves them out because they take effect at the next start, but what the
            // service holds for them is exactly what someone debugging wants to see.
            if ((item.attr & ATTR_ENCRYPT) != 0) {
                strOut += item.name.c_str();
                strOut += " = <hidden>\n";
            } else {
                AppendM7ItemLine(strOut, item.name, item.value, false);
            }
            if (strOut.size() > nLimit || nLeft > 0) {
                strOut.resize(nBefore);
                ++nLeft;
            }
        }
        return nMatched;
    }

    void AppendStats(std::string& strOut) override
    {
#if CFG_COUNTERS
        AppendStat(strOut, "userfile.rewrites", g_serviceCounters.nUserFileRewrites);
        AppendStat(strOut, "bytes_written", g_serviceCounters.nBytesWritten);
        AppendStat(strOut, "registry.saves", g_serviceCounters.nRegistrySaves);
        if (g_serviceCounters.nUserFileRewrites == 0) {
            strOut += "userfile.last_rewrite never\n";
        } else {
            long long nMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                                g_serviceCounters.tLastRewrite.time_since_epoch())
                                .count();
            char szLine[80];
            (void)snprintf(szLine, sizeof(szLine), "userfile.last_rewrite %lld.%03lld\n", nMs / 1000, nMs % 1000);
            strOut += szLine;
        }
#endif
        AppendStat(strOut, "items", m7ItemList.Count());
        AppendStat(strOut, "journal.entries", m7Journal.Count());
        AppendStat(strOut, "journal.size", m7Journal.Capacity());
    }

    int AppendJournal(const char* pItem, size_t nItemLen, int nCount, size_t nLimit, std::string& strOut,
                      int& nLeft) override
    {
        // The newest matching entries first, up to the count, then written oldest first.
        std::vector<const CM7JournalEntry*> vecPicked;
        size_t nWanted = nCount > 0 ? static_cast<size_t>(nCount) : m7Journal.Capacity();
        for (size_t i = m7Journal.Count(); i > 0 && vecPicked.size() < nWanted; --i) {
            const CM7JournalEntry& entry = m7Journal.At(i - 1);
            if (nItemLen == 0 || CM7Journal::Concerns(entry, pItem, nItemLen))
                vecPicked.push_back(&entry);
        }
        // Past the limit the oldest give way: the lines are measured newest first.
        std::vector<std::string> vecLines;
        size_t nTotal = 0;
        for (const CM7JournalEntry* pEntry : vecPicked) {
            std::string strLine;
            CM7Journal::AppendLine(*pEntry, strLine);
            if (nTotal + strLine.size() > nLimit) {
                nLeft = static_cast<int>(vecPicked.size() - vecLines.size());
                break;
            }
            nTotal += strLine.size();
            vecLines.push_back(std::move(strLine));
        }
        for (size_t i = vecLines.size(); i > 0; --i)
            strOut += vecLines[i - 1];
        return static_cast<int>(m7Journal.Capacity());
    }

    const char* MessageName(uint32_t nId) override
    {
        switch (nId) {
        case CONFIG_MSG_REGISTRY_CHANGED: return "CONFIG_MSG_REGISTRY_CHANGED";
        case CONFIG_MSG_UPLOAD_USER_CFG: return "CONFIG_MSG_UPLOAD_USER_CFG";
        case CONFIG_MSG_RELOAD_USER_CFG: return "CONFIG_MSG_RELOAD_USER_CFG";
        case CONFIG_MSG_CLEAR_USER_CFG: return "CONFIG_MSG_CLEAR_USER_CFG";
        case CONFIG_MSG_EXPORT_CFG: return "CONFIG_MSG_EXPORT_CFG";
        case CONFIG_MSG_CONVERT_KEY_LAYOUT: return "CONFIG_MSG_CONVERT_KEY_LAYOUT";
        default: return nullptr;
        }
    }
};

} // namespace

ETL_MsgQueueHelper::chInspectProvider& ConfigInspector()
{
    static CConfigInspector s_inspector;
    return s_inspector;
}
