// Mutex and allocation operators of the platform.
#include "ETL_BaseHelper.h"

#include <chrono>
#include <mutex>
#include <new>

namespace ETL_BaseHelper {

struct chMutex::Impl {
    std::timed_mutex mutex;
};

chMutex::chMutex() : m_pImpl(new Impl) {}
chMutex::~chMutex() = default;

int chMutex::Lock(int nTimeoutMs)
{
    if (nTimeoutMs < 0) {
        m_pImpl->mutex.lock();
        return 1;
    }
    return m_pImpl->mutex.try_lock_for(std::chrono::milliseconds(nTimeoutMs)) ? 1 : 0;
}

void chMutex::Unlock()
{
    m_pImpl->mutex.unlock();
}

} // namespace ETL_BaseHelper

// The phone's allocator keeps file and line for its leak report; the stand-in has no such report
// and hands the request to the ordinary operators, so the plain delete releases it.
void* operator new(std::size_t nSize, const char* szFile, int nLine)
{
    (void)szFile;
    (void)nLine;
    return ::operator new(nSize);
}

void* operator new[](std::size_t nSize, const char* szFile, int nLine)
{
    (void)szFile;
    (void)nLine;
    return ::operator new[](nSize);
}

void operator delete(void* p, const char* szFile, int nLine) noexcept
{
    (void)szFile;
    (void)nLine;
    ::operator delete(p);
}

void operator delete[](void* p, const char* szFile, int nLine) noexcept
{
    (void)szFile;
    (void)nLine;
    ::operator delete[](p);
}
