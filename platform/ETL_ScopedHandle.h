// Owners of a descriptor, a stdio stream and a directory stream: closed once, when the owner goes,
// unless handed on with Release. Move-only, so an owner is never closed twice.
#pragma once

#include <cstdio>
#include <dirent.h>
#include <unistd.h>
#include <utility>

namespace ETL_BaseHelper {

template <typename T, T kNone, int (*Closer)(T)>
class chScopedHandle {
public:
    chScopedHandle() = default;
    explicit chScopedHandle(T handle) : m_handle(handle) {}
    ~chScopedHandle() { (void)Close(); }
    chScopedHandle(const chScopedHandle&) = delete;
    chScopedHandle& operator=(const chScopedHandle&) = delete;
    chScopedHandle(chScopedHandle&& other) noexcept : m_handle(other.Release()) {}
    chScopedHandle& operator=(chScopedHandle&& other) noexcept
    {
        if (this != &other)
            Reset(other.Release());
        return *this;
    }

    T Get() const { return m_handle; }
    explicit operator bool() const { return m_handle != kNone; }
    // Gives the handle up without closing it.
    T Release() { return std::exchange(m_handle, kNone); }
    // Closes the handle held (its result dropped) and takes another.
    void Reset(T handle = kNone)
    {
        (void)Close();
        m_handle = handle;
    }
    // Closes now and says how it went, for writes whose close must be checked: 0 or the closer's
    // nonzero result; 0 when nothing was held.
    int Close() { return m_handle == kNone ? 0 : Closer(std::exchange(m_handle, kNone)); }

private:
    T m_handle = kNone;
};

inline int CloseFd(int fd) { return ::close(fd); }
inline int CloseFile(FILE* pFile) { return std::fclose(pFile); }
inline int CloseDir(DIR* pDir) { return ::closedir(pDir); }

typedef chScopedHandle<int, -1, CloseFd> chScopedFd;
typedef chScopedHandle<FILE*, nullptr, CloseFile> chScopedFile;
typedef chScopedHandle<DIR*, nullptr, CloseDir> chScopedDir;

} // namespace ETL_BaseHelper
