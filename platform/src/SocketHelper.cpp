// chSocket: RAII over a socket descriptor.
#include "ETL_SocketHelper.h"

#include <sys/socket.h>

namespace ETL_SocketHelper {

chSocket::~chSocket()
{
    Close();
}

int chSocket::CreateSocket(int nDomain, int nType, int nProtocol)
{
    Close();
    m_fd.Reset(::socket(nDomain, nType | SOCK_CLOEXEC, nProtocol));
    return m_fd.Get();
}

void chSocket::Close()
{
    m_fd.Reset();
}

} // namespace ETL_SocketHelper
