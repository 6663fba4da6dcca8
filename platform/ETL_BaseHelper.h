// Base platform services: the mutex and the allocation operators that record file and line.
#pragma once

#include <cstddef>
#include <memory>

namespace ETL_BaseHelper {

// A process-local mutex. Lock(-1) waits without limit; Lock(ms) gives up after ms milliseconds.
class chMutex {
public:
    chMutex();
    ~chMutex();
    chMutex(const chMutex&) = delete;
    chMutex& operator=(const chMutex&) = delete;

    // 1 when the lock was taken, 0 when the wait ran out.
    int Lock(int nTimeoutMs);
    void Unlock();

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

} // namespace ETL_BaseHelper

// Allocation that records where it was made; release with the plain operators.
void* operator new(std::size_t nSize, const char* szFile, int nLine);
void* operator new[](std::size_t nSize, const char* szFile, int nLine);
void operator delete(void* p, const char* szFile, int nLine) noexcept;
void operator delete[](void* p, const char* szFile, int nLine) noexcept;

#define ETL_NEW new (__FILE__, __LINE__)
