// The one event loop of the process (internal to the platform). Message handling, timers and
// signals all run on the thread that calls chThreadLocal::Run.
#pragma once

#include <asio/io_context.hpp>

namespace ETL_MsgQueueHelper {

asio::io_context& PlatformLoop();

} // namespace ETL_MsgQueueHelper
