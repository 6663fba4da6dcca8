// File access of the platform: the system-root resolver and the thin file functions through which
// the service touches the file system. Callers pass logical paths ("/config/x.cfg"); only this
// layer knows where the system root lies. The documents read from files are in ETL_FileHelper.h.
#pragma once

#include "ETL_ScopedHandle.h"

#include <cstdio>
#include <string>
#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

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

// Opens a regular file for reading without ever waiting: a FIFO, socket or device is refused
// (errno EINVAL) instead of blocking the caller. Null on failure, errno set.
FILE* etlFopenRegular(const char* szPath);

// A file replaced whole: the text goes to a temporary file in the target's folder, which takes
// the target's place only once it is complete and on disk, so a reader or a power cut sees the
// old file or the new one, never a part. A symbolic link keeps pointing at the replaced file; an
// existing target that is not a regular file is refused. The old file's mode is kept, a new file
// gets 0666 less the umask, as fopen would give it. The temporary is the target's name with
// ".tmp-" and six random characters; one left by a killed writer goes at the next replacement.
class chFileReplacer {
public:
    chFileReplacer() = default;
    // An uncommitted temporary is removed: the target stays as it was.
    ~chFileReplacer();
    chFileReplacer(const chFileReplacer&) = delete;
    chFileReplacer& operator=(const chFileReplacer&) = delete;

    // Creates the temporary for the logical path. Returns its stream (owned by this object;
    // failed writes are reported by the stream and make Commit fail), or null with errno set.
    FILE* Open(const char* szPath);
    // Appends the rest of the file open on fdSource, copied by the kernel where it can be (no
    // pass through our memory). 0, or -errno with the stream marked failed; *pnCalls, when
    // given, counts the copy calls made.
    int CopyFrom(int fdSource, int* pnCalls = nullptr);
    // Flushes and syncs the temporary, renames it over the target and syncs the folder.
    // 0, or -errno with the temporary removed and the target untouched.
    int Commit();
    // Drops the temporary.
    void Abort();

private:
    static ssize_t CookieWrite(void* pCookie, const char* pData, size_t nSize);
    // Declared stream first, so that the descriptor goes first: what the stream still buffers must
    // never reach the temporary after an abort.
    ETL_BaseHelper::chScopedFile m_pStream;
    ETL_BaseHelper::chScopedFd m_fd;
    std::string m_strTemp;
    std::string m_strTarget;
};

// Replaces the file by the text in one step, as above. 0 or -errno.
int etlReplaceFile(const char* szPath, const std::string& strText);

// Replaces the target, as above, by a second name for the source file itself, so that no byte is
// copied: the target then holds the source's content for as long as the source is not written in
// place. 0 or -errno; the caller copies instead when the file system cannot link the two (another
// file system, no hard links, a read-only target). The target keeps the source's mode.
int etlReplaceByLink(const char* szSource, const char* szTarget);

// Reads a whole regular file through the root, at most nMaxBytes. 0 or -errno.
int etlReadWholeFile(const char* szPath, std::string& strOut, size_t nMaxBytes);

} // namespace ETL_FileHelper
