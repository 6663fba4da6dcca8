// A socket descriptor that closes itself.
#pragma once

#include "ETL_ScopedHandle.h"

namespace ETL_SocketHelper {

class chSocket {
public:
    chSocket() = default;
    ~chSocket();
    chSocket(const chSocket&) = delete;
    chSocket& operator=(const chSocket&) = delete;

    // Opens a socket (close-on-exec); the descriptor, or -1 with errno set.
    int CreateSocket(int nDomain, int nType, int nProtocol);
    void Close();
    operator int() const { return m_fd.Get(); }

private:
    ETL_BaseHelper::chScopedFd m_fd;
};

} // namespace ETL_SocketHelper
