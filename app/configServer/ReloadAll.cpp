// Rewriting a delivered provisioning text into "/tmp/mac-all-autop.cfg" with the model's values
// winning for every item the model holds.
#include "ConfigServer.h"
#include "ConfigPaths.h"

#include "ConfigText.h"
#include "ETL_FileAccess.h"
#include "ETL_TraceHelper.h"
#include "M7Store.h"

#include <cstdio>
#include <cstring>
#include <sys/stat.h>

using ETL_StringHelper::chStringA;

bool CConfigServer::IsUserConfigFile(const char* szPath) const
{
    if (m_strUserCfgPath.empty())
        return false;
    if (ETL_FileHelper::etlResolvePath(szPath) == ETL_FileHelper::etlResolvePath(m_strUserCfgPath.c_str()))
        return true;
    struct stat stPath, stUser;
    return ETL_FileHelper::etlStat(szPath, &stPath) == 0 && ETL_FileHelper::etlStat(m_strUserCfgPath.c_str(), &stUser) == 0 &&
           stPath.st_dev == stUser.st_dev && stPath.st_ino == stUser.st_ino;
}

void CConfigServer::OnReloadAllConfig(const char* szPath)
{
    printf("CConfigServer::OnReloadAllConfig:%s\n", szPath != nullptr ? szPath : "(null)");
    if (szPath == nullptr)
        return;
    CM7LineReader reader;
    if (reader.Open(szPath) == 0) {
        printf("open[%s] failed!\n", szPath);
        return;
    }
    // Replaced whole, never rewritten in place: the provisioning service may be reading it.
    ETL_FileHelper::chFileReplacer replacer;
    FILE* pOut = replacer.Open(kAllAutopPath);
    if (pOut == nullptr) {
        ETL_TraceHelper::etlTrace(2, "open [%s] failed.", kAllAutopPath);
        return;
    }
    (void)fwrite(kM7Header, 1, kM7HeaderLength, pOut);
    (void)fwrite("\n", 1, 1, pOut);
    chStringA strName, strValue;
    while (reader.Next(strName, strValue) != 0) {
        (void)fputs(strName.c_str(), pOut);
        (void)fputs("=", pOut);
        const char* szWritten = strValue.c_str();
        if (CM7Item* pItem = FindM7Item(strName.c_str())) {
            printf("conflict: %s = [%s]->[%s]\n", strName.c_str(), strValue.c_str(), pItem->value.c_str());
            szWritten = pItem->value.c_str();
        }
        (void)fputs(szWritten, pOut);
        // A value of carriage returns only stands as its own line end; an empty one does not.
        size_t nLength = std::strlen(szWritten);
        if (!M7EndsWithLineFeed(szWritten, nLength) && (nLength == 0 || std::strspn(szWritten, "\r") != nLength))
            (void)fputs("\n", pOut);
    }
    int nErr = replacer.Commit();
    if (nErr != 0)
        ETL_TraceHelper::etlTrace(2, "replace [%s] failed: %s", kAllAutopPath, strerror(-nErr));
    // The delivered file may be the user configuration itself: that one is the user's, not ours
    // to delete.
    if (IsUserConfigFile(szPath)) {
        ETL_TraceHelper::etlTrace(2, "kept [%s]: it is the user configuration file.", szPath);
        return;
    }
    (void)ETL_FileHelper::etlRemove(szPath);
}
