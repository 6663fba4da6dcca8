// Test program, "rewrite_loop ITEMS FIRST GO SEED": fills the item table with ITEMS items; then for
// every byte read from the FIFO GO, a forked writer rewrites the user configuration file
// "/config/mac-local.cfg" without end, the item "version" taking the values FIRST + K * 1000000,
// and onwards, until killed with SIGKILL at a random moment; then "killed K" is printed.
#include "ConfigServer.h"
#include "ETL_MsgQueueHelper.h"
#include "M7Store.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Writes one byte to fdDone (when given) after the first rewrite.
void Rewrite(CConfigServer& server, long nFirst, long nCount, int fdDone = -1)
{
    for (long n = nFirst; nCount == 0 || n < nFirst + nCount; ++n) {
        SetM7Item("version", std::to_string(n).c_str(), 0);
        server.SaveUserConfig(nullptr, 0);
        if (n == nFirst && fdDone >= 0 && write(fdDone, "d", 1) != 1)
            _exit(1);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    // The platform's process settings (a write past the size limit fails instead of killing).
    (void)ETL_MsgQueueHelper::uCSystemShareHelper::getGlobalObject();
    CConfigServer server;
    server.SetUserCfgPath("/config/mac-local.cfg");
    for (long i = 0; i < std::atol(argv[1]); ++i)
        SetM7Item(("item." + std::to_string(i)).c_str(), "value", 0);
    // Built once, the table is shared with every writer: each round costs a fork, not a load.
    // A writer's first rewrite is slow (it pays for the data its killed predecessor left): kills
    // fall anywhere in the two rewrites after it, timed here on this machine.
    Rewrite(server, 0, 1);
    auto tStart = std::chrono::steady_clock::now();
    Rewrite(server, 0, 1);
    auto nWindow = 2 * std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - tStart);
    int fdGo = open(argv[3], O_RDONLY | O_CLOEXEC);
    int fdsDone[2];
    if (pipe2(fdsDone, O_CLOEXEC) != 0)
        return 1;
    std::mt19937 rng(static_cast<unsigned int>(std::strtoul(argv[4], nullptr, 10)));
    char cGo = 0;
    for (long k = 0; fdGo >= 0 && read(fdGo, &cGo, 1) == 1; ++k) {
        pid_t pid = fork();
        if (pid == 0) {
            Rewrite(server, std::atol(argv[2]) + k * 1000000L, 0, fdsDone[1]);
            _exit(0);
        }
        if (read(fdsDone[0], &cGo, 1) != 1)
            return 1;
        usleep(static_cast<useconds_t>(rng() % static_cast<unsigned long>(nWindow.count() + 1)));
        (void)kill(pid, SIGKILL);
        int nStatus = 0;
        (void)waitpid(pid, &nStatus, 0);
        printf("killed %ld\n", k);
        (void)fflush(stdout);
    }
    return 0;
}
