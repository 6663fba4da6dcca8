// Writing the item table as configuration text: the user configuration file (with its ".bak"
// step) and the whole-table export. Files are rewritten whole, in place, as the phone expects.
#include "ConfigServer.h"
#include "ConfigPaths.h"

#include "ConfigText.h"
#include "ETL_FileHelper.h"
#include "ETL_MiscHelper.h"
#include "ETL_TraceHelper.h"
#include "Inspect.h"
#include "M7Mapping.h"
#include "M7Store.h"
#include "fwTrace.h"

#include <cstdio>
#include <memory>

using ETL_StringHelper::chStringA;

namespace {

const size_t kWriteBuffer = 256 * 1024;

struct FileCloser {
    void operator()(FILE* pFile) const { (void)fclose(pFile); }
};
typedef std::unique_ptr<FILE, FileCloser> FilePtr;

// Opens the target "w+" and writes the header; null (after the trace) when either fails.
FilePtr OpenWithHeader(const char* szTarget)
{
    FilePtr pFile(ETL_FileHelper::etlFopen(szTarget, "w+"));
    if (!pFile) {
        ETL_TraceHelper::etlTrace(2, "open [%s] failed.", szTarget);
        return FilePtr();
    }
    (void)setvbuf(pFile.get(), nullptr, _IOFBF, kWriteBuffer);
    // Flushed at once, so that a file that cannot grow shows here and not lines later.
    if (fwrite(kM7Header, 1, kM7HeaderLength, pFile.get()) != kM7HeaderLength || fflush(pFile.get()) != 0) {
        ETL_TraceHelper::etlTrace(2, "can't write M7 header");
        return FilePtr();
    }
    return pFile;
}

// Item lines of every item that may reach a text file; encrypted and reboot items are left out
// (and reported when bReportSkips). Lines are gathered in a buffer of our own and handed to the
// stream a chunk at a time: the stream would buffer them the same way, at a higher cost per line.
void WriteItems(FILE* pFile, bool bAllNull, bool bReportSkips)
{
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
        if (strChunk.size() >= kChunk && !FlushLines(pFile, strChunk, nLastStart, strLine))
            ETL_TraceHelper::etlTrace(2, "can't write buff[%s]\n", strLine.c_str());
    }
    if (!FlushLines(pFile, strChunk, nLastStart, strLine))
        ETL_TraceHelper::etlTrace(2, "can't write buff[%s]\n", strLine.c_str());
}

void CountWritten(FILE* pFile)
{
    // The stream's position is what it has taken, its buffer included: the file was opened empty.
    long nWritten = ftell(pFile);
    if (nWritten > 0)
        CFG_COUNT(g_serviceCounters.nBytesWritten += static_cast<uint64_t>(nWritten));
}

} // namespace

void CConfigServer::SaveUserConfig(const char* szPath, int bAllNull)
{
    // Keep the previous content in ".bak" first; a missing user file comes back from it.
    if (!m_strUserCfgPath.empty()) {
        std::string strBackup = m_strUserCfgPath + ".bak";
        if (ETL_MiscHelper::pathFileExist(m_strUserCfgPath.c_str()) != 0)
            (void)fwCopyFile(m_strUserCfgPath.c_str(), strBackup.c_str());
        else if (ETL_MiscHelper::pathFileExist(strBackup.c_str()) != 0)
            (void)fwCopyFile(strBackup.c_str(), m_strUserCfgPath.c_str());
    }
    const char* szTarget = szPath != nullptr ? szPath : m_strUserCfgPath.c_str();
    FilePtr pFile = OpenWithHeader(szTarget);
    if (!pFile)
        return;
    WriteItems(pFile.get(), bAllNull != 0, true);
    CountWritten(pFile.get());
    pFile.reset();
    if (szPath == nullptr) {
        CFG_COUNT(++g_serviceCounters.nUserFileRewrites);
        CFG_COUNT(g_serviceCounters.tLastRewrite = std::chrono::steady_clock::now());
    }
    m7ModelChanged = 0;
}

int CConfigServer::ExportCustomConfig(const char* szPath)
{
    FilePtr pFile = OpenWithHeader(szPath != nullptr ? szPath : kCustomConfigPath);
    if (!pFile)
        return 0;
    WriteItems(pFile.get(), false, false);
    CountWritten(pFile.get());
    return 1;
}
