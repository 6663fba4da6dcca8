// Helpers for tests that run the real programs: a temporary system root, child processes with
// their output in files, and small file utilities.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace testutil {

// A fresh directory, removed with everything below it when the object goes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& Path() const { return m_strPath; }
    // Path + "/" + the relative or logical path.
    std::string Join(const std::string& strSub) const;

private:
    std::string m_strPath;
};

std::string ReadFile(const std::string& strPath);
void WriteFile(const std::string& strPath, const std::string& strContent);
// Creates the parents of a file path.
void MakeParents(const std::string& strPath);
bool FileExists(const std::string& strPath);

// A child process with its standard output and error in files.
class Child {
public:
    Child() = default;
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Starts argv[0] with ETL_ROOT set to strRoot (and the extra NAME=VALUE entries), in strCwd.
    bool Start(const std::vector<std::string>& vecArgs, const std::string& strRoot, const std::string& strOutDir,
               const std::string& strCwd = "", const std::vector<std::string>& vecEnv = {}, long nFileSizeLimit = -1);
    // Exit status (128 + signal for a signal), or -1 when it did not end in time.
    int Wait(int nTimeoutMs);
    void Signal(int nSignal);
    pid_t Pid() const { return m_pid; }
    std::string Stdout() const { return ReadFile(m_strOut); }
    std::string Stderr() const { return ReadFile(m_strErr); }
    const std::string& StdoutPath() const { return m_strOut; }
    const std::string& StderrPath() const { return m_strErr; }

private:
    pid_t m_pid = -1;
    int m_nStatus = -1;
    std::string m_strOut;
    std::string m_strErr;
};

struct ToolResult {
    int nExit = -1;
    std::string strOut;
    std::string strErr;
};

// Runs a program to its end (at most nTimeoutMs) under the root.
ToolResult RunTool(const std::vector<std::string>& vecArgs, const std::string& strRoot, int nTimeoutMs = 10000);

// Waits until the file holds the text; false after the timeout.
bool WaitForText(const std::string& strPath, const std::string& strText, int nTimeoutMs);
// Waits until the condition holds; false after the timeout.
bool WaitUntil(const std::function<bool()>& fnDone, int nTimeoutMs);
// How often strWhat occurs in strText.
size_t CountOf(const std::string& strText, const std::string& strWhat);

// The emulator the programs of this build run under (empty for a native build).
std::vector<std::string> EmulatorPrefix();

// Paths of the built programs.
std::string ConfigServerBin();
std::string EtlmsgBin();

// etlmsg under the root, with its arguments.
ToolResult Etlmsg(const std::string& strRoot, const std::vector<std::string>& vecArgs, int nTimeoutMs = 10000);

// How to start the service.
struct ServiceOptions {
    std::string strCwd;       // working directory (default: the root)
    std::string strHwMac;     // run in a network namespace with esw0 of this address ("" = host)
    bool bNoInterface = false; // run in a network namespace without esw0 or eth0
    bool bFastUpload = false; // the test build whose upload check runs every second
    bool bWaitReady = true;   // wait for the first ping answer (false for a long MAC wait)
    long nFileSizeLimit = -1; // RLIMIT_FSIZE of the service in bytes (-1: unchanged)
    std::vector<std::string> vecEnv; // NAME=VALUE entries added to its environment
    // Logical paths (folders or files) the service sees read-only, through a mount namespace of
    // its own: the tests run as root, which folder modes do not stop.
    std::vector<std::string> vecReadOnly;
};

// True when this machine lets a test make a mount namespace with read-only bind mounts.
bool MountNamespacesAvailable();

// True when this machine lets a test make a network namespace with a veth interface.
bool NamespacesAvailable();
// Under an emulator or a sanitizer everything runs many times slower: loops run shorter.
bool SlowBuild();
// A user file of nItems lines "item.N = strValue" under the version header.
std::string ItemText(long nItems, const std::string& strValue);
// One raw datagram to a socket path.
bool SendRaw(const std::string& strSocket, const std::string& strBytes);

// The service under a root, started and answering ping; quits it when destroyed.
class Service {
public:
    explicit Service(const std::string& strRoot, const ServiceOptions& options = ServiceOptions());
    ~Service();
    bool Started() const { return m_bStarted; }
    // Sends a ping: when it returns, every message posted before it has been handled.
    bool Ping(int nTimeoutMs = 10000);
    // Quits and returns the exit status.
    int Quit(int nStatus = 0);
    Child& Process() { return m_child; }
    std::string Stderr() const { return m_child.Stderr(); }
    std::string Stdout() const { return m_child.Stdout(); }
    // Waits for the first ping answer (after a start without bWaitReady).
    bool WaitReady(int nTimeoutMs);

private:
    std::string m_strRoot;
    Child m_child;
    bool m_bStarted = false;
};

} // namespace testutil
