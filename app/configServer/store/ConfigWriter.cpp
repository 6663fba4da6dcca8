// Writing the item table as configuration text: the user configuration file (with its ".bak"
// step) and the whole-table export. Files are rewritten whole.
#include "ConfigWriter.h"

#include "ConfigText.h"
#include "ETL_FileAccess.h"
#include "ETL_MiscHelper.h"
#include "ETL_TraceHelper.h"
#include "M7Mapping.h"
#include "M7Store.h"
#include "fwTrace.h"

#include <cstdio>
#include <cstring>

using ETL_StringHelper::chStringA;

namespace {

// Item lines of every item that may reach a text file; encrypted and reboot items are left out
// (and reported when bReportSkips). Lines are gathered in a buffer of our own and handed to the
// stream a chunk at a time: the stream would buffer them the same way, at a higher cost per line.
// False when a chunk could not be written; the rest is still tried, each failure traced.
bool WriteItems(FILE* pFile, bool bAllNull, bool bReportSkips)
{
    bool bWritten = true;
    const size_t kChunk = 256 * 1024;
    std::string strChunk;
    strChunk.reserve(kChunk + 4096);
    std::string strLine;
    size_t nLastStart = 0;
    for (CM7ListNode* pNode = m7ItemList.First(); pNode != m7ItemList.End(); pNode = pNode->pNext) {
        const CM7Item& item = *pNode->pItem;
        if ((item.attr & (ATTR_ENCRYPT | ATTR_REBOOT)) != 0) {
            if (bReportSkips)
                printf("skip: %s [%s]\n", item.name.c_str(), SkipReasonText(item.attr));
            continue;
        }
        nLastStart = strChunk.size();
        AppendM7ItemLine(strChunk, item.name, item.value, bAllNull);
        if (strChunk.size() >= kChunk && !FlushLines(pFile, strChunk, nLastStart, strLine)) {
            ETL_TraceHelper::etlTrace(2, "can't write buff[%s]\n", strLine.c_str());
            bWritten = false;
        }
    }
    if (!FlushLines(pFile, strChunk, nLastStart, strLine)) {
        ETL_TraceHelper::etlTrace(2, "can't write buff[%s]\n", strLine.c_str());
        bWritten = false;
    }
    return bWritten;
}

} // namespace

EM7WriteResult WriteM7File(const char* szTarget, bool bAllNull, bool bReportSkips, uint64_t& nBytes)
{
    ETL_FileHelper::chFileReplacer replacer;
    FILE* pFile = replacer.Open(szTarget);
    if (pFile == nullptr) {
        ETL_TraceHelper::etlTrace(2, "open [%s] failed.", szTarget);
        return M7_WRITE_NOT_STARTED;
    }
    // Flushed at once, so that a file that cannot grow shows here and not lines later.
    if (fwrite(kM7Header, 1, kM7HeaderLength, pFile) != kM7HeaderLength || fflush(pFile) != 0) {
        ETL_TraceHelper::etlTrace(2, "can't write M7 header");
        return M7_WRITE_NOT_STARTED;
    }
    if (!WriteItems(pFile, bAllNull, bReportSkips))
        return M7_WRITE_FAILED;
    int nErr = replacer.Commit();
    if (nErr != 0) {
        ETL_TraceHelper::etlTrace(2, "replace [%s] failed: %s", szTarget, strerror(-nErr));
        return M7_WRITE_FAILED;
    }
    struct stat st;
    if (ETL_FileHelper::etlStat(szTarget, &st) == 0)
        nBytes = static_cast<uint64_t>(st.st_size);
    return M7_WRITE_DONE;
}

EM7WriteResult SaveM7Table(const std::string& strUserPath, const char* szPath, bool bAllNull, uint64_t& nBytes)
{
    // Keep the previous content in ".bak" first; a missing user file comes back from it.
    if (!strUserPath.empty()) {
        std::string strBackup = strUserPath + ".bak";
        // A second name for the user file rather than a copy of it: the rewrite below puts a new
        // file in its place, so the old one lives on as ".bak" alone, and no byte is written twice.
        if (ETL_MiscHelper::pathFileExist(strUserPath.c_str()) != 0) {
            if (ETL_FileHelper::etlReplaceByLink(strUserPath.c_str(), strBackup.c_str()) != 0)
                (void)fwCopyFile(strUserPath.c_str(), strBackup.c_str());
        }
        else if (ETL_MiscHelper::pathFileExist(strBackup.c_str()) != 0)
            (void)fwCopyFile(strBackup.c_str(), strUserPath.c_str());
    }
    EM7WriteResult eResult = WriteM7File(szPath != nullptr ? szPath : strUserPath.c_str(), bAllNull, true, nBytes);
    if (eResult != M7_WRITE_NOT_STARTED)
        m7ModelChanged = 0;
    return eResult;
}
