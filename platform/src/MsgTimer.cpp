// chThreadTimer on the process loop's timer list.
#include "ETL_MsgQueueHelper.h"
#include "MsgLoop.h"

namespace ETL_MsgQueueHelper {

struct chThreadTimer::Impl final : LoopTimer {
    explicit Impl(unsigned int nTimerId) : nId(nTimerId) {}

    void Expire() override
    {
        // Re-arm before the handler runs, so that a KillTimer inside the handler wins. Due times
        // advance by whole intervals from the arming, so a late expiry does not shift later ones.
        tDue += std::chrono::milliseconds(nIntervalMs);
        msgObject msg(MSG_PLATFORM_TIMER, static_cast<int32_t>(nId), 0, nullptr, 0);
        if (pTarget != nullptr && pHandler != nullptr)
            (void)(pTarget->*pHandler)(msg);
    }

    unsigned int nId;
    uint64_t nIntervalMs = 0;
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
    impl.nIntervalMs = nIntervalMs == 0 ? 1 : nIntervalMs;
    impl.pTarget = pTarget;
    impl.pHandler = pHandler;
    impl.tDue = std::chrono::steady_clock::now() + std::chrono::milliseconds(impl.nIntervalMs);
    ListLoopTimer(impl);
}

void chThreadTimer::KillTimer()
{
    UnlistLoopTimer(*m_pImpl);
}

int chThreadTimer::IsTimerRuning() const
{
    return m_pImpl->bListed ? 1 : 0;
}

} // namespace ETL_MsgQueueHelper
