// Readiness for a service manager: one plain datagram ("READY=1", "STOPPING=1") to the socket
// named by NOTIFY_SOCKET, when that is set. No library: the protocol is this one sendto.
#include "MsgPlatform.h"
#include "ETL_ScopedHandle.h"
#include "ETL_TraceHelper.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace ETL_MsgQueueHelper {

int NotifyServiceManager(const char* szState)
{
    const char* szSocket = getenv("NOTIFY_SOCKET");
    if (szSocket == nullptr || szSocket[0] == '\0')
        return 0;
    size_t nLen = strlen(szSocket);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    // Either a path or an abstract name, written with a leading '@' for the leading NUL.
    if ((szSocket[0] != '/' && szSocket[0] != '@') || nLen >= sizeof(addr.sun_path)) {
        ETL_TraceHelper::etlTrace(2, "notify: NOTIFY_SOCKET \"%s\" is not a socket name", szSocket);
        return -EINVAL;
    }
    std::memcpy(addr.sun_path, szSocket, nLen);
    if (szSocket[0] == '@')
        addr.sun_path[0] = '\0';
    socklen_t nAddrLen = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + nLen + (szSocket[0] == '/' ? 1 : 0));

    ETL_BaseHelper::chScopedFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        int nErr = errno;
        ETL_TraceHelper::etlTrace(2, "notify: cannot open a socket: %s", strerror(nErr));
        return -nErr;
    }
    int nResult = 0;
    if (sendto(fd.Get(), szState, strlen(szState), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&addr), nAddrLen) < 0) {
        nResult = -errno;
        ETL_TraceHelper::etlTrace(2, "notify: cannot tell \"%s\" to \"%s\": %s", szState, szSocket, strerror(-nResult));
    }
    return nResult;
}

} // namespace ETL_MsgQueueHelper
