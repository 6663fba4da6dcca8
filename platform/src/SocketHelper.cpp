// chSocket: RAII over a socket descriptor.
#include "ETL_SocketHelper.h"

#include <sys/socket.h>
#include <unistd.h>

namespace ETL_SocketHelper {

chSocket::~chSocket()
{
    Close();
}

int chSocket::CreateSocket(int nDomain, int nType, int nProtocol)
{
    Close();
    m_fd = ::socket(nDomain, nType | SOCK_CLOEXEC, nProtocol);
    return m_fd;
}

void chSocket::Close()
{
    if (m_fd >= 0)
        (void)::close(m_fd);
    m_fd = -1;
}

} // namespace ETL_SocketHelper
