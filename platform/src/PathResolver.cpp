// The one place that turns logical paths into real ones, and the thin file functions built on it.
#include "ETL_FileAccess.h"
#include "PathRoot.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace ETL_FileHelper {

const char* etlRootSetting()
{
    const char* szRoot = std::getenv("ETL_ROOT");
    return szRoot != nullptr ? szRoot : "";
}

namespace {

// Root without its trailing slashes; empty for "/".
std::string RootPrefix()
{
    std::string strRoot = etlRootSetting();
    while (!strRoot.empty() && strRoot.back() == '/')
        strRoot.pop_back();
    return strRoot;
}

// Applies "." and ".." to an absolute path as chroot would: ".." at the top stays at the top.
std::string NormaliseAbsolute(const char* szPath)
{
    std::vector<std::string> vecParts;
    const char* p = szPath;
    while (*p != '\0') {
        while (*p == '/')
            ++p;
        const char* pStart = p;
        while (*p != '\0' && *p != '/')
            ++p;
        std::string strPart(pStart, p);
        if (strPart.empty() || strPart == ".")
            continue;
        if (strPart == "..") {
            if (!vecParts.empty())
                vecParts.pop_back();
            continue;
        }
        vecParts.push_back(std::move(strPart));
    }
    std::string strOut;
    for (const std::string& strPart : vecParts)
        strOut += "/" + strPart;
    // Keep a trailing slash: "/phone/factory/" names a directory and stays one.
    size_t nLen = 0;
    while (szPath[nLen] != '\0')
        ++nLen;
    if (nLen > 0 && szPath[nLen - 1] == '/')
        strOut += "/";
    return strOut.empty() ? "/" : strOut;
}

} // namespace

std::string etlResolvePath(const char* szLogical)
{
    if (szLogical == nullptr)
        return std::string();
    if (szLogical[0] != '/')
        return szLogical;
    std::string strNorm = NormaliseAbsolute(szLogical);
    std::string strRoot = RootPrefix();
    if (strRoot.empty())
        return strNorm;
    return strRoot + strNorm;
}

FILE* etlFopen(const char* szPath, const char* szMode)
{
    if (szPath == nullptr || szMode == nullptr)
        return nullptr;
    // Every descriptor the platform opens is close-on-exec ("e" is a glibc mode flag).
    std::string strMode = szMode;
    strMode += "e";
    return std::fopen(etlResolvePath(szPath).c_str(), strMode.c_str());
}

int etlRemove(const char* szPath)
{
    return szPath == nullptr ? -1 : std::remove(etlResolvePath(szPath).c_str());
}

int etlAccess(const char* szPath, int nMode)
{
    return szPath == nullptr ? -1 : access(etlResolvePath(szPath).c_str(), nMode);
}

int etlStat(const char* szPath, struct stat* pStat)
{
    return szPath == nullptr ? -1 : stat(etlResolvePath(szPath).c_str(), pStat);
}

int etlLstat(const char* szPath, struct stat* pStat)
{
    return szPath == nullptr ? -1 : lstat(etlResolvePath(szPath).c_str(), pStat);
}

DIR* etlOpendir(const char* szPath)
{
    return szPath == nullptr ? nullptr : opendir(etlResolvePath(szPath).c_str());
}

} // namespace ETL_FileHelper
