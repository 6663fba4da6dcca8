/* The other end of the benchmarks' floors: a plain C process on a Unix datagram socket that does
 * the least the service's path has to do, so that the ratio shows what the service adds.
 *   floor_peer echo PATH       answers every datagram with the same bytes (a "q..." one ends it)
 *   floor_peer sink PATH N     receives N datagrams, then answers the last sender once; repeats
 *   floor_peer ping PATH       answers one platform ping in the message-thread wire format, exits */
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { HEADER_SIZE = 32, KIND_SEND = 1, KIND_REPLY = 2 };
/* The socket buffers of the message threads (four of the largest datagrams), so that the floor
 * streams under the same conditions as the service. */
enum { BUF_BYTES = 4 * (HEADER_SIZE + 65536) };
static const uint32_t kPingId = 0x7f000001u;

static int Bind(const char *szPath)
{
    struct sockaddr_un addr;
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || strlen(szPath) >= sizeof(addr.sun_path)) {
        fprintf(stderr, "floor_peer: cannot make a socket for \"%s\"\n", szPath);
        exit(1);
    }
    int nBuf = BUF_BYTES;
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &nBuf, sizeof(nBuf));
    (void)setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &nBuf, sizeof(nBuf));
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    strcpy(addr.sun_path, szPath);
    (void)unlink(szPath);
    if (bind(fd, (struct sockaddr *)&addr, sizeof(addr)) != 0) {
        fprintf(stderr, "floor_peer: bind \"%s\": %s\n", szPath, strerror(errno));
        exit(1);
    }
    return fd;
}

static uint32_t Read32(const unsigned char *p)
{
    return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

static void Write32(unsigned char *p, uint32_t n)
{
    p[0] = (unsigned char)n;
    p[1] = (unsigned char)(n >> 8);
    p[2] = (unsigned char)(n >> 16);
    p[3] = (unsigned char)(n >> 24);
}

static int Echo(int fd)
{
    unsigned char buf[256];
    for (;;) {
        struct sockaddr_un from;
        socklen_t nLen = sizeof(from);
        ssize_t n = recvfrom(fd, buf, sizeof(buf), 0, (struct sockaddr *)&from, &nLen);
        if (n <= 0 || buf[0] == 'q')
            return 0;
        (void)sendto(fd, buf, (size_t)n, 0, (struct sockaddr *)&from, nLen);
    }
}

static int Sink(int fd, long nCount)
{
    unsigned char buf[256];
    for (;;) {
        struct sockaddr_un from;
        socklen_t nLen = sizeof(from);
        for (long i = 0; i < nCount; ++i) {
            nLen = sizeof(from);
            ssize_t n = recvfrom(fd, buf, sizeof(buf), 0, (struct sockaddr *)&from, &nLen);
            if (n <= 0 || buf[0] == 'q')
                return 0;
        }
        (void)sendto(fd, "d", 1, 0, (struct sockaddr *)&from, nLen);
    }
}

/* The reply a message thread gives to a ping: the sender's sequence number, the value 1. */
static int Ping(int fd, const char *szPath)
{
    unsigned char buf[HEADER_SIZE + 64];
    for (;;) {
        struct sockaddr_un from;
        socklen_t nLen = sizeof(from);
        ssize_t n = recvfrom(fd, buf, sizeof(buf), 0, (struct sockaddr *)&from, &nLen);
        if (n < HEADER_SIZE || memcmp(buf, "ETLM", 4) != 0 || buf[6] != KIND_SEND || Read32(buf + 8) != kPingId)
            continue;
        unsigned char reply[HEADER_SIZE];
        memset(reply, 0, sizeof(reply));
        memcpy(reply, "ETLM", 4);
        reply[4] = 1;
        reply[6] = KIND_REPLY;
        Write32(reply + 8, kPingId);
        Write32(reply + 16, 1);
        memcpy(reply + 20, buf + 20, 4);
        (void)sendto(fd, reply, sizeof(reply), 0, (struct sockaddr *)&from, nLen);
        (void)unlink(szPath);
        return 0;
    }
}

int main(int argc, char **argv)
{
    if (argc >= 3 && strcmp(argv[1], "echo") == 0)
        return Echo(Bind(argv[2]));
    if (argc >= 4 && strcmp(argv[1], "sink") == 0)
        return Sink(Bind(argv[2]), atol(argv[3]));
    if (argc >= 3 && strcmp(argv[1], "ping") == 0)
        return Ping(Bind(argv[2]), argv[2]);
    fprintf(stderr, "usage: floor_peer echo PATH | sink PATH N | ping PATH\n");
    return 1;
}
