// Datagram layout of the message threads (internal to the platform and the etlmsg tool).
// 32-byte little-endian header, then exactly `size` extra bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ETL_MsgQueueHelper {
namespace wire {

enum : uint16_t { KIND_POST = 0, KIND_SEND = 1, KIND_REPLY = 2 };
enum : size_t { HEADER_SIZE = 32, MAX_EXTRA = 65536, MAX_DATAGRAM = HEADER_SIZE + MAX_EXTRA };

struct Header {
    uint16_t nKind = KIND_POST;
    uint32_t nId = 0;
    int32_t nWparam = 0;
    int32_t nLparam = 0;
    uint32_t nSeq = 0;
    uint32_t nSize = 0;
};

// Header followed by the extra bytes, ready to send.
std::string EncodeDatagram(const Header& header, const void* pExtra);
// The header alone, into HEADER_SIZE bytes at pOut (the extra bytes follow it in a second iovec).
void EncodeHeader(const Header& header, unsigned char* pOut);

// Checks a received datagram. Returns null and fills the header when it is well formed, else a
// short reason for the one trace line that reports the drop. Only the header is read: nLen is the
// whole datagram's length, so a header peeked alone can be checked before the rest is taken.
const char* DecodeDatagram(const unsigned char* pData, size_t nLen, Header& header);

// Folder of the thread sockets (resolved), and the socket path of a thread name; empty when the
// name cannot name a thread (empty, contains '/', or too long for a socket address).
std::string QueueDir();
std::string ThreadSocketPath(const char* szName);
// Creates the folder (mode 0700) and its parents; 0 or -errno.
int EnsureQueueDir();

// An unbound datagram socket of the message threads (close-on-exec), with buffers for four of the
// largest datagrams and, when nSendTimeoutMs > 0, sends that give up after that long. -1 on failure.
int OpenMessageSocket(int nSendTimeoutMs);

} // namespace wire
} // namespace ETL_MsgQueueHelper
