// Replacing a file whole through a temporary beside it, and opening regular files for reading
// without waiting on FIFOs or devices.
#include "ETL_FileAccess.h"
#include "ETL_ScopedHandle.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace ETL_FileHelper {

namespace {

bool WriteAll(int fd, const char* p, size_t n)
{
    while (n > 0) {
        ssize_t nDone = write(fd, p, n);
        if (nDone < 0 && errno == EINTR)
            continue;
        if (nDone < 0)
            return false;
        if (nDone == 0) {
            errno = EIO;
            return false;
        }
        p += nDone;
        n -= static_cast<size_t>(nDone);
    }
    return true;
}

// The mode fopen would give a new file. umask() cannot be read without changing it, and another
// thread may create a file meanwhile, so the kernel's own record is asked first.
mode_t NewFileMode()
{
    mode_t nMask = 022;
    ETL_BaseHelper::chScopedFile status(std::fopen("/proc/self/status", "re"));
    if (status) {
        char szLine[128];
        while (std::fgets(szLine, sizeof(szLine), status.Get()) != nullptr) {
            unsigned int nRead = 0;
            if (std::sscanf(szLine, "Umask: %o", &nRead) == 1) {
                nMask = static_cast<mode_t>(nRead);
                break;
            }
        }
    }
    return 0666 & ~nMask;
}

std::string FolderOf(const std::string& strPath)
{
    size_t nSlash = strPath.rfind('/');
    if (nSlash == std::string::npos)
        return ".";
    return nSlash == 0 ? "/" : strPath.substr(0, nSlash);
}

// Temporaries are named after their target with this mark and six random characters.
const char kTempMark[] = ".tmp-";
const size_t kTempRandom = 6;

// Removes what a killed writer or a power cut left of earlier replacements of the target: such a
// temporary never became the file, and a phone that loses power often would fill its flash.
void RemoveStaleTemps(const std::string& strTarget)
{
    std::string strFolder = FolderOf(strTarget);
    std::string strPrefix = strTarget.substr(strTarget.rfind('/') + 1) + kTempMark;
    ETL_BaseHelper::chScopedDir dir(opendir(strFolder.c_str()));
    if (!dir)
        return;
    while (const dirent* pEntry = readdir(dir.Get())) {
        if (std::strlen(pEntry->d_name) == strPrefix.size() + kTempRandom &&
            std::strncmp(pEntry->d_name, strPrefix.c_str(), strPrefix.size()) == 0)
            (void)unlinkat(dirfd(dir.Get()), pEntry->d_name, 0);
    }
}

// The file a replacement of szPath writes: a symbolic link's target, so that the link goes on
// naming the live file. nMode is the existing file's mode, 0 when there is none yet. False with
// errno set for a target that is not a regular file or cannot be looked at.
bool ResolveTarget(const char* szPath, std::string& strTarget, mode_t& nMode)
{
    strTarget = etlResolvePath(szPath);
    nMode = 0;
    struct stat st;
    if (lstat(strTarget.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        char* szReal = realpath(strTarget.c_str(), nullptr);
        if (szReal == nullptr)
            return false;
        strTarget = szReal;
        std::free(szReal);
    }
    if (stat(strTarget.c_str(), &st) == 0) {
        if (!S_ISREG(st.st_mode)) {
            errno = EINVAL;
            return false;
        }
        nMode = st.st_mode & 07777;
        return true;
    }
    return errno == ENOENT;
}

// Makes a new empty temporary beside the target, named as RemoveStaleTemps expects; its descriptor
// (invalid on failure) and its name in strTemp.
int MakeTemp(const std::string& strTarget, std::string& strTemp)
{
    std::string strTemplate = strTarget + kTempMark + "XXXXXX";
    std::vector<char> vecTemp(strTemplate.begin(), strTemplate.end());
    vecTemp.push_back('\0');
    int fd = mkostemp(vecTemp.data(), O_CLOEXEC);
    strTemp = vecTemp.data();
    return fd;
}

void SyncFolderOf(const std::string& strPath)
{
    ETL_BaseHelper::chScopedFd fdDir(open(FolderOf(strPath).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fdDir)
        (void)fsync(fdDir.Get());
}

} // namespace

FILE* etlFopenRegular(const char* szPath)
{
    if (szPath == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    // Non-blocking, so that a FIFO without a writer opens at once and can be turned away.
    ETL_BaseHelper::chScopedFd fd(open(etlResolvePath(szPath).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd)
        return nullptr;
    struct stat st;
    if (fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return nullptr;
    }
    FILE* pFile = fdopen(fd.Get(), "rb");
    if (pFile != nullptr)
        (void)fd.Release(); // the stream owns it now
    return pFile;
}

chFileReplacer::~chFileReplacer()
{
    Abort();
}

ssize_t chFileReplacer::CookieWrite(void* pCookie, const char* pData, size_t nSize)
{
    chFileReplacer* pThis = static_cast<chFileReplacer*>(pCookie);
    return WriteAll(pThis->m_fd.Get(), pData, nSize) ? static_cast<ssize_t>(nSize) : -1;
}

FILE* chFileReplacer::Open(const char* szPath)
{
    Abort();
    if (szPath == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    mode_t nMode = 0;
    if (!ResolveTarget(szPath, m_strTarget, nMode))
        return nullptr;
    if (nMode == 0)
        nMode = NewFileMode();
    RemoveStaleTemps(m_strTarget);
    std::string strTemp;
    m_fd.Reset(MakeTemp(m_strTarget, strTemp));
    if (!m_fd)
        return nullptr;
    m_strTemp = strTemp;
    cookie_io_functions_t functions = {nullptr, &chFileReplacer::CookieWrite, nullptr, nullptr};
    if (fchmod(m_fd.Get(), nMode) == 0)
        m_pStream.Reset(fopencookie(this, "w", functions));
    if (!m_pStream) {
        int nErr = errno;
        Abort();
        errno = nErr;
        return nullptr;
    }
    return m_pStream.Get();
}

int chFileReplacer::CopyFrom(int fdSource, int* pnCalls)
{
    int nCalls = 0;
    int nErr = !m_pStream ? -EBADF : fflush(m_pStream.Get()) != 0 ? -EIO : 0;
    bool bKernel = true;
    std::vector<char> vecBuffer;
    while (nErr == 0) {
        ++nCalls;
        ssize_t nDone = -1;
        if (bKernel) {
            nDone = copy_file_range(fdSource, nullptr, m_fd.Get(), nullptr, 1u << 30, 0);
            // Across file systems or on one that cannot: the plain way, from where it stopped.
            if (nDone < 0 && (errno == EXDEV || errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL)) {
                bKernel = false;
                continue;
            }
        } else {
            vecBuffer.resize(512 * 1024);
            nDone = read(fdSource, vecBuffer.data(), vecBuffer.size());
            if (nDone > 0 && !WriteAll(m_fd.Get(), vecBuffer.data(), static_cast<size_t>(nDone)))
                nDone = -1;
        }
        if (nDone < 0 && errno == EINTR)
            continue;
        if (nDone < 0)
            nErr = errno != 0 ? -errno : -EIO;
        if (nDone == 0)
            break;
    }
    if (pnCalls != nullptr)
        *pnCalls = nCalls;
    // Commit must not replace the target with part of the copy.
    if (nErr != 0 && m_pStream) {
        Abort();
        errno = -nErr;
    }
    return nErr;
}

int chFileReplacer::Commit()
{
    if (!m_pStream)
        return -EBADF;
    errno = 0;
    int nErr = 0;
    if (fflush(m_pStream.Get()) != 0 || ferror(m_pStream.Get()) != 0)
        nErr = errno != 0 ? -errno : -EIO;
    (void)m_pStream.Close(); // the cookie has no close of its own: the descriptor is ours
    if (nErr == 0 && fsync(m_fd.Get()) != 0)
        nErr = -errno;
    if (m_fd.Close() != 0 && nErr == 0)
        nErr = -errno;
    if (nErr == 0 && rename(m_strTemp.c_str(), m_strTarget.c_str()) != 0)
        nErr = -errno;
    if (nErr != 0) {
        Abort();
        return nErr;
    }
    m_strTemp.clear();
    // The rename itself lasts only once the folder is on disk.
    SyncFolderOf(m_strTarget);
    return 0;
}

void chFileReplacer::Abort()
{
    // Whatever is still buffered must not reach the file: the descriptor goes first.
    m_fd.Reset();
    m_pStream.Reset();
    if (!m_strTemp.empty())
        (void)unlink(m_strTemp.c_str());
    m_strTemp.clear();
}

int etlReplaceFile(const char* szPath, const std::string& strText)
{
    chFileReplacer replacer;
    FILE* pStream = replacer.Open(szPath);
    if (pStream == nullptr)
        return errno != 0 ? -errno : -EIO;
    if (!strText.empty() && fwrite(strText.data(), 1, strText.size(), pStream) != strText.size()) {
        int nErr = errno != 0 ? -errno : -EIO;
        replacer.Abort();
        return nErr;
    }
    return replacer.Commit();
}

int etlReplaceByLink(const char* szSource, const char* szTarget)
{
    if (szSource == nullptr || szTarget == nullptr)
        return -EINVAL;
    std::string strSource = etlResolvePath(szSource);
    ETL_BaseHelper::chScopedFd fdSource(open(strSource.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat st;
    if (!fdSource || fstat(fdSource.Get(), &st) != 0)
        return -errno;
    if (!S_ISREG(st.st_mode))
        return -EINVAL;
    std::string strTarget;
    mode_t nMode = 0;
    if (!ResolveTarget(szTarget, strTarget, nMode))
        return errno != 0 ? -errno : -EIO;
    // Already a name of the same file: renaming one link over another of it would do nothing and
    // leave the temporary behind.
    struct stat stTarget;
    if (stat(strTarget.c_str(), &stTarget) == 0 && stTarget.st_dev == st.st_dev && stTarget.st_ino == st.st_ino)
        return 0;
    // The content must be on disk before a second name for it is: a writer elsewhere may not have
    // synced it. Nothing is written when it is clean already.
    if (fdatasync(fdSource.Get()) != 0)
        return -errno;
    RemoveStaleTemps(strTarget);
    // A free temporary name the way the replacer makes one; the link then takes it over.
    std::string strTemp;
    for (int nTry = 0;; ++nTry) {
        ETL_BaseHelper::chScopedFd fdTemp(MakeTemp(strTarget, strTemp));
        if (!fdTemp)
            return -errno;
        fdTemp.Reset();
        (void)unlink(strTemp.c_str());
        if (linkat(AT_FDCWD, strSource.c_str(), AT_FDCWD, strTemp.c_str(), AT_SYMLINK_FOLLOW) == 0)
            break;
        if (errno != EEXIST || nTry == 3)
            return -errno;
    }
    if (rename(strTemp.c_str(), strTarget.c_str()) != 0) {
        int nErr = -errno;
        (void)unlink(strTemp.c_str());
        return nErr;
    }
    SyncFolderOf(strTarget);
    return 0;
}

} // namespace ETL_FileHelper
