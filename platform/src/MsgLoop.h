// The one event loop of the process (internal to the platform). Message handling, timers and
// signals all run on the thread that calls chThreadLocal::Run.
#pragma once

#include <chrono>

namespace ETL_MsgQueueHelper {

// A timer of the loop. Armed timers are kept in a list that only the loop's thread touches (the
// service arms its timers before Run, on the same thread).
struct LoopTimer {
    std::chrono::steady_clock::time_point tDue;
    bool bListed = false;
    // Called once the due time has passed; the timer re-arms itself or leaves the list.
    virtual void Expire() = 0;

protected:
    ~LoopTimer() = default;
};

void ListLoopTimer(LoopTimer& timer);
void UnlistLoopTimer(LoopTimer& timer);

// Once a message thread catches SIGTERM and SIGINT, sleeps up to nMs, ending early when one of
// them arrives, and returns true; before that, does nothing and returns false.
bool PlatformSleep(int nMs);
// True once SIGTERM or SIGINT arrived during (or before) such a sleep.
bool PlatformStopRequested();

} // namespace ETL_MsgQueueHelper
