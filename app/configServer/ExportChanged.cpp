// Export of the configuration on request (0xd0006): the whole item table, or every key under
// "/config" that differs from its factory copy under "/phone/factory/", key layouts included.
#include "ExportChanged.h"

#include "ConfigPaths.h"
#include "ConfigServer.h"

#include "ConfigText.h"
#include "ETL_BaseHelper.h"
#include "ETL_FileAccess.h"
#include "ETL_FileHelper.h"
#include "ETL_ScopedHandle.h"
#include "ETL_TraceHelper.h"
#include "KeyLayout.h"
#include "M7Mapping.h"
#include "MessageText.h"
#include "configParser.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using ETL_FileHelper::iniFile;
using ETL_FileHelper::iniKey;
using ETL_FileHelper::iniSection;

namespace {

const size_t kPathBuffer = 256;

// One leading "?" marks a value as not yet confirmed; it does not make the value differ.
const char* SkipQuestionMark(const char* szValue)
{
    return szValue[0] == '?' ? szValue + 1 : szValue;
}

// The lines echoed on standard output for one file, written in one go: a line-buffered stdout
// costs a system call per line. Written out before anything that may trace (the name map's
// first reading) and at the end of the file, so the lines keep their place among trace lines.
class CEchoLines {
public:
    ~CEchoLines() { Flush(); }
    void Add(const char* szName, const char* szValue)
    {
        m_strText.append(szName).append(" = ").append(szValue).push_back('\n');
    }
    void AddText(const std::string& strText) { m_strText += strText; }
    void Flush()
    {
        if (m_strText.empty())
            return;
        // Straight to the descriptor: a line-buffered stream splits a long text into a write per
        // line again. What stdout holds already goes first.
        (void)fflush(stdout);
        const char* p = m_strText.data();
        size_t nLeft = m_strText.size();
        while (nLeft > 0) {
            ssize_t nDone = write(STDOUT_FILENO, p, nLeft);
            if (nDone < 0 && errno == EINTR)
                continue;
            if (nDone <= 0)
                break;
            p += nDone;
            nLeft -= static_cast<size_t>(nDone);
        }
        m_strText.clear();
    }

private:
    std::string m_strText;
};

} // namespace

void ExportChangedDir(const char* szConfigDir, const char* szFactoryDir, FILE* pStream)
{
    if (szConfigDir == nullptr || szFactoryDir == nullptr)
        return;
    ETL_BaseHelper::chScopedDir dir(ETL_FileHelper::etlOpendir(szConfigDir));
    if (!dir)
        return;
    char* szConfigPath = ETL_NEW char[kPathBuffer];
    char* szFactoryPath = ETL_NEW char[kPathBuffer];
    while (dirent* pEntry = readdir(dir.Get())) {
        if (std::strcmp(pEntry->d_name, ".") == 0 || std::strcmp(pEntry->d_name, "..") == 0)
            continue;
        std::memset(szConfigPath, 0, kPathBuffer);
        std::memset(szFactoryPath, 0, kPathBuffer);
        int nLength = snprintf(szConfigPath, kPathBuffer, "%s/%s", szConfigDir, pEntry->d_name);
        int nFactoryLength = snprintf(szFactoryPath, kPathBuffer, "%s/%s", szFactoryDir, pEntry->d_name);
        // Paths are held in 255 characters; a longer one cannot be named and is passed over.
        if (nLength < 0 || nLength >= static_cast<int>(kPathBuffer) || nFactoryLength < 0 ||
            nFactoryLength >= static_cast<int>(kPathBuffer)) {
            printf("Path too long [%s/%s]. Skiped.\n", szConfigDir, pEntry->d_name);
            continue;
        }
        struct stat st;
        if (ETL_FileHelper::etlLstat(szConfigPath, &st) != 0)
            break;
        if (S_ISDIR(st.st_mode)) {
            if (ETL_FileHelper::etlAccess(szFactoryPath, F_OK) == 0)
                ExportChangedDir(szConfigPath, szFactoryPath, pStream);
            else
                printf("dir %s not found!\n", szFactoryPath);
        } else if (S_ISREG(st.st_mode)) {
            const char* szExtension = std::strrchr(szFactoryPath, '.');
            if (szExtension == nullptr || (std::strcmp(szExtension, ".cfg") != 0 && std::strcmp(szExtension, ".ini") != 0))
                continue;
            ExportChangedIniFile(szConfigPath, szFactoryPath, pStream);
        } else {
            printf("Not regular file [%s]. Skiped.\n", szConfigPath);
        }
    }
    delete[] szConfigPath;
    delete[] szFactoryPath;
}

void ExportChangedIniFile(const char* szConfigFile, const char* szFactoryFile, FILE* pStream)
{
    if (szConfigFile == nullptr || szFactoryFile == nullptr || ETL_FileHelper::etlAccess(szConfigFile, F_OK) != 0 ||
        ETL_FileHelper::etlAccess(szFactoryFile, F_OK) != 0)
        return;
    // Kept for the life of the process; every load replaces the whole content, so nothing of a
    // previous pair is ever compared.
    static iniFile s_configDoc;
    static iniFile s_factoryDoc;
    (void)s_configDoc.LoadFromFile(szConfigFile);
    (void)s_factoryDoc.LoadFromFile(szFactoryFile);
    CEchoLines echo;
    for (size_t s = 0; s < s_configDoc.GetSectionCount(); ++s) {
        iniSection* pSection = s_configDoc.GetSection(s);
        iniSection* pFactorySection = s_factoryDoc.FindSection(pSection->GetName());
        for (size_t k = 0; k < pSection->GetKeyCount(); ++k) {
            iniKey* pKey = pSection->GetKey(k);
            const char* szValue = pKey->GetValue("");
            // A factory twin lists its keys in the same order as a rule: try the same place before
            // a search of the section. Key names are unique within a section.
            iniKey* pFactoryKey = pFactorySection != nullptr ? pFactorySection->GetKey(k) : nullptr;
            if (pFactoryKey != nullptr && std::strcmp(pFactoryKey->GetName(), pKey->GetName()) != 0)
                pFactoryKey = pFactorySection->FindKey(pKey->GetName());
            if (pFactoryKey != nullptr &&
                std::strcmp(SkipQuestionMark(szValue), SkipQuestionMark(pFactoryKey->GetValue(""))) == 0)
                continue;
            char szName[512];
            std::memset(szName, 0, sizeof(szName));
            int nFlags = 0;
            if (!configParser_IsLoaded())
                echo.Flush();
            if (get_config_name_by_path(szConfigFile, pSection->GetName(), pKey->GetName(), szName, 64, &nFlags) != 0 ||
                szName[0] == '\0') {
                echo.AddText(std::string("getname faile, name:[") + szConfigFile + "] " + pSection->GetName() + ", " +
                             pKey->GetName() + "\n");
                continue;
            }
            uint32_t nAttr = static_cast<uint32_t>(nFlags);
            if (std::strcmp(szName, "phone_setting.phone_lock.unlock_pin") == 0 || (nAttr & ATTR_ENCRYPT) != 0)
                continue;
            char szConverted[64];
            const char* szOut = RegistryToItemValue(szValue, nAttr, szConverted, sizeof(szConverted));
            echo.Add(szName, szOut);
            std::string strLine;
            AppendM7ItemLine(strLine, ETL_StringHelper::chStringA(szName), ETL_StringHelper::chStringA(szOut), false);
            (void)fwrite(strLine.data(), 1, strLine.size(), pStream);
        }
    }
}

int CConfigServer::OnExportAllChangedConfig(const char* szPath)
{
    ETL_TraceHelper::etlTrace(2, "CConfigServer::OnExportAllChangedConfig:%s\n", szPath != nullptr ? szPath : "(null)");
    const char* szTarget = szPath != nullptr ? szPath : kAllConfigPath;
    // Replaced whole once complete: whoever asked for the export may already be reading it.
    ETL_FileHelper::chFileReplacer replacer;
    FILE* pFile = replacer.Open(szTarget);
    if (pFile == nullptr) {
        ETL_TraceHelper::etlTrace(2, "open [%s] failed.", szTarget);
        return 0;
    }
    if (fwrite(kM7Header, 1, kM7HeaderLength, pFile) != kM7HeaderLength || fflush(pFile) != 0) {
        ETL_TraceHelper::etlTrace(2, "can't write M7 header");
        return 0;
    }
    ExportChangedDir("/config", "/phone/factory/", pFile);
    // Line keys, programmable keys, then the six expansion modules; memory keys are not exported.
    ExportChangedKeyLayout(pFile, 0, -1);
    ExportChangedKeyLayout(pFile, 3, -1);
    for (int32_t nModule = 0; nModule <= 5; ++nModule)
        ExportChangedKeyLayout(pFile, 2, nModule);
    int nErr = replacer.Commit();
    if (nErr != 0) {
        ETL_TraceHelper::etlTrace(2, "replace [%s] failed: %s", szTarget, strerror(-nErr));
        return 0;
    }
    return 1;
}

int CConfigServer::OnExportCfg(msgObject& msg)
{
    std::string strPath;
    bool bHasPath = GetMessageText(msg, strPath);
    const char* szPath = bHasPath ? strPath.c_str() : nullptr;
    ETL_TraceHelper::etlTrace(2, "CConfigServer::OnExportCfg:%s, wparam:%d,lparam:%d\n",
                              szPath != nullptr ? szPath : "(null)", msg.wParam, msg.lParam);
    if (msg.lParam == 0)
        (void)ExportCustomConfig(szPath);
    else if (msg.lParam == 1)
        (void)OnExportAllChangedConfig(szPath);
    ETL_TraceHelper::etlTrace(2, "Export done!");
    return 1;
}
