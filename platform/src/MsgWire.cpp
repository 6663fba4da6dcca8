// Encoding and checking of message datagrams, and where thread sockets live.
#include "MsgWire.h"

#include "ETL_FileAccess.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

namespace ETL_MsgQueueHelper {
namespace wire {

namespace {

void Put16(unsigned char* p, uint16_t n)
{
    p[0] = static_cast<unsigned char>(n);
    p[1] = static_cast<unsigned char>(n >> 8);
}

void Put32(unsigned char* p, uint32_t n)
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<unsigned char>(n >> (8 * i));
}

uint16_t Get16(const unsigned char* p)
{
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

uint32_t Get32(const unsigned char* p)
{
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

int MkdirOne(const std::string& strPath, mode_t nMode)
{
    if (mkdir(strPath.c_str(), nMode) == 0 || errno == EEXIST)
        return 0;
    return -errno;
}

} // namespace

void EncodeHeader(const Header& header, unsigned char* p)
{
    std::memcpy(p, "ETLM", 4);
    Put16(p + 4, 1);
    Put16(p + 6, header.nKind);
    Put32(p + 8, header.nId);
    Put32(p + 12, static_cast<uint32_t>(header.nWparam));
    Put32(p + 16, static_cast<uint32_t>(header.nLparam));
    Put32(p + 20, header.nSeq);
    Put32(p + 24, header.nSize);
    Put32(p + 28, 0);
}

std::string EncodeDatagram(const Header& header, const void* pExtra)
{
    std::string strOut(HEADER_SIZE + header.nSize, '\0');
    unsigned char* p = reinterpret_cast<unsigned char*>(&strOut[0]);
    EncodeHeader(header, p);
    if (header.nSize > 0 && pExtra != nullptr)
        std::memcpy(p + HEADER_SIZE, pExtra, header.nSize);
    return strOut;
}

const char* DecodeDatagram(const unsigned char* pData, size_t nLen, Header& header)
{
    if (pData == nullptr || nLen < HEADER_SIZE)
        return "short datagram";
    if (std::memcmp(pData, "ETLM", 4) != 0)
        return "bad magic";
    if (Get16(pData + 4) != 1)
        return "unknown version";
    uint16_t nKind = Get16(pData + 6);
    if (nKind > KIND_REPLY)
        return "unknown kind";
    uint32_t nSize = Get32(pData + 24);
    if (nSize > MAX_EXTRA)
        return "extra size over 65536";
    if (nSize != nLen - HEADER_SIZE)
        return "extra size does not match the datagram";
    header.nKind = nKind;
    header.nId = Get32(pData + 8);
    header.nWparam = static_cast<int32_t>(Get32(pData + 12));
    header.nLparam = static_cast<int32_t>(Get32(pData + 16));
    header.nSeq = Get32(pData + 20);
    header.nSize = nSize;
    return nullptr;
}

std::string QueueDir()
{
    return ETL_FileHelper::etlResolvePath("/tmp/msgq");
}

std::string ThreadSocketPath(const char* szName)
{
    if (szName == nullptr || szName[0] == '\0' || std::strchr(szName, '/') != nullptr ||
        std::strcmp(szName, ".") == 0 || std::strcmp(szName, "..") == 0)
        return std::string();
    std::string strPath = QueueDir() + "/" + szName;
    if (strPath.size() >= sizeof(sockaddr_un::sun_path))
        return std::string();
    return strPath;
}

int EnsureQueueDir()
{
    std::string strTmp = ETL_FileHelper::etlResolvePath("/tmp");
    // Create the root's parents as ordinary folders; only the queue folder itself is private.
    for (size_t nPos = 1; nPos < strTmp.size(); ++nPos) {
        if (strTmp[nPos] == '/')
            (void)MkdirOne(strTmp.substr(0, nPos), 0755);
    }
    int nErr = MkdirOne(strTmp, 01777);
    if (nErr != 0)
        return nErr;
    return MkdirOne(QueueDir(), 0700);
}

int OpenMessageSocket(int nSendTimeoutMs)
{
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (nSendTimeoutMs > 0) {
        timeval tv{nSendTimeoutMs / 1000, (nSendTimeoutMs % 1000) * 1000};
        (void)setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
    }
    // Room beyond the default for the largest datagrams; a smaller buffer only slows bursts.
    int nBuf = 4 * static_cast<int>(MAX_DATAGRAM);
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &nBuf, sizeof(nBuf));
    (void)setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &nBuf, sizeof(nBuf));
    return fd;
}

} // namespace wire
} // namespace ETL_MsgQueueHelper
