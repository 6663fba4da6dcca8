// File access of the platform: the system-root resolver and the thin file functions through which
// the service touches the file system. Callers pass logical paths ("/config/x.cfg"); only this
// layer knows where the system root lies.
#pragma once

#include <cstdio>
#include <string>
#include <dirent.h>
#include <sys/stat.h>

namespace ETL_FileHelper {

// Maps a logical path to the real one. Absolute paths land under $ETL_ROOT (unset or empty: "/"),
// with ".." applied first and never climbing above the root; relative paths stay as they are.
std::string etlResolvePath(const char* szLogical);

// The same calls as the C library, on logical paths. Results and errno as the C library gives them.
FILE* etlFopen(const char* szPath, const char* szMode);
int etlRemove(const char* szPath);
int etlAccess(const char* szPath, int nMode);
int etlStat(const char* szPath, struct stat* pStat);
int etlLstat(const char* szPath, struct stat* pStat);
DIR* etlOpendir(const char* szPath);
int etlMkdir(const char* szPath, mode_t nMode);

} // namespace ETL_FileHelper
