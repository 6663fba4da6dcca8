// chThreadTimer on an asio steady timer of the process loop.
#include "ETL_MsgQueueHelper.h"
#include "MsgLoop.h"

#include <asio/steady_timer.hpp>

namespace ETL_MsgQueueHelper {

struct chThreadTimer::Impl {
    explicit Impl(unsigned int nTimerId) : nId(nTimerId), timer(PlatformLoop()) {}

    void Schedule()
    {
        timer.expires_at(timer.expiry() + std::chrono::milliseconds(nIntervalMs));
        uint64_t nGen = nGeneration;
        timer.async_wait([this, nGen](const asio::error_code& ec) { OnExpiry(ec, nGen); });
    }

    void OnExpiry(const asio::error_code& ec, uint64_t nGen)
    {
        if (ec == asio::error::operation_aborted || nGen != nGeneration || !bArmed)
            return;
        // Re-arm before the handler runs, so that a KillTimer inside the handler wins.
        Schedule();
        msgObject msg(MSG_PLATFORM_TIMER, static_cast<int32_t>(nId), 0, nullptr, 0);
        if (pTarget != nullptr && pHandler != nullptr)
            (void)(pTarget->*pHandler)(msg);
    }

    unsigned int nId;
    asio::steady_timer timer;
    uint64_t nIntervalMs = 0;
    uint64_t nGeneration = 0; // stale expiries of an earlier arming are ignored
    bool bArmed = false;
    chMsgProcesser* pTarget = nullptr;
    chMsgProcesser::msgHandler pHandler = nullptr;
};

chThreadTimer::chThreadTimer(unsigned int nId) : m_pImpl(new Impl(nId)) {}

chThreadTimer::~chThreadTimer()
{
    KillTimer();
}

void chThreadTimer::SetTimer(uint64_t nIntervalMs, void* pData, chMsgProcesser* pTarget,
                             chMsgProcesser::msgHandler pHandler)
{
    (void)pData;
    Impl& impl = *m_pImpl;
    impl.timer.cancel();
    ++impl.nGeneration;
    impl.nIntervalMs = nIntervalMs == 0 ? 1 : nIntervalMs;
    impl.pTarget = pTarget;
    impl.pHandler = pHandler;
    impl.bArmed = true;
    impl.timer.expires_at(std::chrono::steady_clock::now());
    impl.Schedule();
}

void chThreadTimer::KillTimer()
{
    Impl& impl = *m_pImpl;
    if (!impl.bArmed)
        return;
    impl.bArmed = false;
    ++impl.nGeneration;
    impl.timer.cancel();
}

int chThreadTimer::IsTimerRuning() const
{
    return m_pImpl->bArmed ? 1 : 0;
}

} // namespace ETL_MsgQueueHelper
