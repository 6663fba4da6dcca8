// Links between the parts of the message platform (internal).
#pragma once

#include "ETL_MsgQueueHelper.h"
#include "MsgWire.h"

#include <string>

namespace ETL_MsgQueueHelper {

// The thread of this process registered under the name, or null.
chThreadLocal::Impl* FindLocalThread(const std::string& strName);

// The thread of this process registered by the given task (kernel thread id), or null.
chThreadLocal::Impl* FindLocalThreadByTask(int nTask);

// Queues a message at a thread of this process; never blocks.
void PostToLocalThread(chThreadLocal::Impl* pThread, const wire::Header& header, const void* pData);

// The registry answers its platform messages through this hook once it exists in the process.
typedef int (*RegistryMessageHandler)(msgObject& msg);
void SetRegistryMessageHandler(RegistryMessageHandler pHandler);
int HandleRegistryMessage(msgObject& msg);

// Sends szState ("READY=1", "STOPPING=1") to the service manager named by NOTIFY_SOCKET; 0 when
// sent or when no manager listens, else a negative errno (traced once here).
int NotifyServiceManager(const char* szState);

} // namespace ETL_MsgQueueHelper
