// The one event loop of the process (internal to the platform). Message handling, timers and
// signals all run on the thread that calls chThreadLocal::Run.
#pragma once

#include <asio/io_context.hpp>

namespace ETL_MsgQueueHelper {

asio::io_context& PlatformLoop();

// Once a message thread catches SIGTERM and SIGINT, sleeps up to nMs, ending early when one of
// them arrives, and returns true; before that, does nothing and returns false.
bool PlatformSleep(int nMs);
// True once SIGTERM or SIGINT arrived during (or before) such a sleep.
bool PlatformStopRequested();

} // namespace ETL_MsgQueueHelper
