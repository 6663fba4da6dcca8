// etlmsg: talk to message threads from a shell (post, send, listen, ping, wait, quit, registry).
#include "CfgVersion.h"
#include "ETL_MsgQueueHelper.h"
#include "ETL_MiscHelper.h"
#include "ETL_ScopedHandle.h"
#include "ETL_StringHelper.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace ETL_MsgQueueHelper;

namespace {

enum { EXIT_DONE = 0, EXIT_USAGE = 1, EXIT_FAILED = 2, EXIT_TIMEOUT = 3 };

const char* const kUsage =
    "usage: etlmsg post|send THREAD ID [WPARAM [LPARAM]] [--text T|--hex HEX|--file F] [--timeout MS]\n"
    "       etlmsg listen THREAD [--count N] [--timeout MS]\n"
    "       etlmsg ping|wait THREAD [--timeout MS]\n"
    "       etlmsg quit THREAD [--status N]\n"
    "       etlmsg reg-set FILE SECTION KEY VALUE [--now] [--to THREAD]\n"
    "       etlmsg reg-get FILE SECTION KEY [--to THREAD]\n"
    "       etlmsg items THREAD [PREFIX]\n"
    "       etlmsg stats THREAD\n"
    "       etlmsg journal THREAD [--item NAME] [--count N]\n";

int Usage(const char* szWhy)
{
    if (szWhy != nullptr)
        fprintf(stderr, "etlmsg: %s\n", szWhy);
    fputs(kUsage, stderr);
    return EXIT_USAGE;
}

// -h, --help and --version stand alone as the first word; asked for, the usage goes to stdout.
// Returns the exit status, or -1 when the first word is a command.
int HandleInfoOption(const char* szFirst)
{
    if (strcmp(szFirst, "-h") == 0 || strcmp(szFirst, "--help") == 0) {
        fputs(kUsage, stdout);
        fputs("Exit status: 0 done, 1 bad usage, 2 no such thread or not sent, 3 timed out.\n"
              "Threads are found below $ETL_ROOT/tmp/msgq (ETL_ROOT unset: /). See etlmsg(1).\n",
              stdout);
        return EXIT_DONE;
    }
    if (strcmp(szFirst, "--version") == 0) {
        printf("etlmsg %s\n", CFG_VERSION);
        return EXIT_DONE;
    }
    if (szFirst[0] == '-')
        return Usage("unknown option");
    return -1;
}

// Decimal, negative decimal or 0x-hex, within 32 bits (hex up to 0xffffffff wraps to signed).
bool ParseNumber(const char* sz, long long nMin, long long nMax, long long& nOut)
{
    if (sz == nullptr || *sz == '\0')
        return false;
    long long n = 0;
    if (sz[0] == '0' && (sz[1] == 'x' || sz[1] == 'X')) {
        if (!ETL_StringHelper::etlParseInteger(sz + 2, 16, 0, 0xffffffffLL, n))
            return false;
        if (nMin < 0 && n > 0x7fffffffLL)
            n -= 0x100000000LL;
    } else if (!ETL_StringHelper::etlParseInteger(sz, 10, nMin, nMax, n)) {
        return false;
    }
    if (n < nMin || n > nMax)
        return false;
    nOut = n;
    return true;
}

bool ParseHex(const char* sz, std::string& strOut)
{
    size_t nLen = strlen(sz);
    if (nLen % 2 != 0)
        return false;
    strOut.clear();
    for (size_t i = 0; i < nLen; i += 2) {
        char szByte[3] = {sz[i], sz[i + 1], 0};
        char* pEnd = nullptr;
        if (!isxdigit(static_cast<unsigned char>(sz[i])) || !isxdigit(static_cast<unsigned char>(sz[i + 1])))
            return false;
        strOut += static_cast<char>(strtoul(szByte, &pEnd, 16));
    }
    return true;
}

bool ReadWholeFile(const char* szPath, std::string& strOut)
{
    ETL_BaseHelper::chScopedFile file(fopen(szPath, "rb"));
    if (!file)
        return false;
    char buf[65536];
    size_t nGot;
    strOut.clear();
    while ((nGot = fread(buf, 1, sizeof(buf), file.Get())) > 0) {
        strOut.append(buf, nGot);
        if (strOut.size() > static_cast<size_t>(MSG_MAX_EXTRA) + 1)
            break;
    }
    return !ferror(file.Get());
}

// Options shared by the commands; positional words are kept in order.
struct Args {
    std::vector<const char*> vecWords;
    bool bHasExtra = false;
    std::string strExtra;
    int nTimeoutMs = 5000;
    bool bTimeoutGiven = false;
    long long nCount = -1;
    long long nStatus = 0;
    bool bNow = false;
    const char* szItem = nullptr;
    std::string strTo = "configServer";
};

const char* ParseArgs(int argc, char** argv, Args& args)
{
    for (int i = 2; i < argc; ++i) {
        std::string strArg = argv[i];
        bool bHasValue = i + 1 < argc;
        long long n = 0;
        if (strArg == "--text" || strArg == "--hex" || strArg == "--file") {
            if (!bHasValue)
                return "option needs a value";
            if (args.bHasExtra)
                return "only one of --text, --hex, --file";
            args.bHasExtra = true;
            const char* szValue = argv[++i];
            if (strArg == "--text") {
                args.strExtra.assign(szValue, strlen(szValue) + 1);
            } else if (strArg == "--hex") {
                if (!ParseHex(szValue, args.strExtra))
                    return "--hex takes two hex digits per byte";
            } else if (!ReadWholeFile(szValue, args.strExtra)) {
                return "cannot read the --file";
            }
        } else if (strArg == "--timeout") {
            if (!bHasValue || !ParseNumber(argv[++i], 0, 0x7fffffff, n))
                return "--timeout takes milliseconds";
            args.nTimeoutMs = static_cast<int>(n);
            args.bTimeoutGiven = true;
        } else if (strArg == "--count") {
            // 0 is refused by each command, so that journal can name its limit.
            if (!bHasValue || !ParseNumber(argv[++i], 0, 0x7fffffff, n))
                return "--count takes a positive number";
            args.nCount = n;
        } else if (strArg == "--status") {
            if (!bHasValue || !ParseNumber(argv[++i], -0x80000000LL, 0x7fffffff, n))
                return "--status takes a number";
            args.nStatus = n;
        } else if (strArg == "--item") {
            if (!bHasValue)
                return "--item takes an item name";
            args.szItem = argv[++i];
        } else if (strArg == "--now") {
            args.bNow = true;
        } else if (strArg == "--to") {
            if (!bHasValue)
                return "--to takes a thread name";
            args.strTo = argv[++i];
        } else if (strArg.size() > 2 && strArg[0] == '-' && strArg[1] == '-') {
            return "unknown option";
        } else {
            args.vecWords.push_back(argv[i]);
        }
    }
    return nullptr;
}

int ReportSend(int nResult, const char* szThread)
{
    if (nResult == MSG_SEND_TIMEOUT) {
        fprintf(stderr, "etlmsg: no answer from [%s] in time\n", szThread);
        return EXIT_TIMEOUT;
    }
    fprintf(stderr, "etlmsg: no thread [%s], or the message could not be sent\n", szThread);
    return EXIT_FAILED;
}

// post / send: THREAD ID [WPARAM [LPARAM]]
int CmdPostOrSend(bool bSend, const Args& args)
{
    if (args.vecWords.size() < 2 || args.vecWords.size() > 4)
        return Usage("post and send take THREAD ID [WPARAM [LPARAM]]");
    long long nId = 0, nWparam = 0, nLparam = 0;
    if (!ParseNumber(args.vecWords[1], 0, 0xffffffffLL, nId))
        return Usage("bad message id");
    if (args.vecWords.size() > 2 && !ParseNumber(args.vecWords[2], -0x80000000LL, 0x7fffffff, nWparam))
        return Usage("bad wparam");
    if (args.vecWords.size() > 3 && !ParseNumber(args.vecWords[3], -0x80000000LL, 0x7fffffff, nLparam))
        return Usage("bad lparam");
    const char* szThread = args.vecWords[0];
    if (args.strExtra.size() > static_cast<size_t>(MSG_MAX_EXTRA)) {
        fprintf(stderr, "etlmsg: extra data of %zu bytes is over the limit of %d\n", args.strExtra.size(),
                MSG_MAX_EXTRA);
        return EXIT_FAILED;
    }
    msgThread hThread = msgGetThreadByName(szThread);
    if (hThread == 0)
        return ReportSend(MSG_SEND_NO_THREAD, szThread);
    int nSize = static_cast<int>(args.strExtra.size());
    const void* pData = nSize > 0 ? args.strExtra.data() : nullptr;
    if (!bSend) {
        int nResult = msgPostMsgToThreadEx(hThread, static_cast<uint32_t>(nId), static_cast<int32_t>(nWparam),
                                           static_cast<int32_t>(nLparam), nSize, pData);
        return nResult == 0 ? EXIT_DONE : ReportSend(MSG_SEND_NO_THREAD, szThread);
    }
    int nReply = 0;
    int nResult = msgSendMsgToThread(hThread, static_cast<uint32_t>(nId), static_cast<int32_t>(nWparam),
                                     static_cast<int32_t>(nLparam), nSize, pData, args.nTimeoutMs, &nReply, nullptr);
    if (nResult != MSG_SEND_OK)
        return ReportSend(nResult, szThread);
    printf("%d\n", nReply);
    return EXIT_DONE;
}

// One line per message: id, parameters, size and the bytes quoted as the platform documents.
std::string FormatMessageLine(const msgObject& msg)
{
    char szHead[128];
    snprintf(szHead, sizeof(szHead), "id=0x%x wparam=%d lparam=%d size=%d data=\"", msg.message, msg.wParam,
             msg.lParam, msg.GetExtraSize());
    std::string strLine = szHead;
    const unsigned char* p = static_cast<const unsigned char*>(msg.GetExtraData());
    for (int i = 0; i < msg.GetExtraSize(); ++i) {
        unsigned char c = p[i];
        if (c == '\\' || c == '"') {
            strLine += '\\';
            strLine += static_cast<char>(c);
        } else if (c == 0) {
            strLine += "\\0";
        } else if (c >= 0x20 && c < 0x7f) {
            strLine += static_cast<char>(c);
        } else {
            char szHex[8];
            snprintf(szHex, sizeof(szHex), "\\x%02x", c);
            strLine += szHex;
        }
    }
    strLine += "\"";
    return strLine;
}

class CListener : public chThreadLocal {
public:
    CListener(const char* szName, long long nCount) : chThreadLocal(szName, nullptr), m_nLeft(nCount) {}

    int TryThreadMessage(msgObject& msg) override
    {
        if (msg.message == MSG_PLATFORM_PING || msg.message == MSG_PLATFORM_QUIT)
            return chThreadLocal::TryThreadMessage(msg);
        printf("%s\n", FormatMessageLine(msg).c_str());
        (void)fflush(stdout);
        if (m_nLeft > 0 && --m_nLeft == 0)
            ExitLoop(EXIT_DONE);
        return 1;
    }

    int OnTimeout(msgObject& msg)
    {
        (void)msg;
        ExitLoop(EXIT_TIMEOUT);
        return 1;
    }

private:
    long long m_nLeft;
};

int CmdListen(const Args& args)
{
    if (args.vecWords.size() != 1)
        return Usage("listen takes one THREAD");
    if (args.nCount == 0)
        return Usage("--count takes a positive number");
    CListener listener(args.vecWords[0], args.nCount);
    uCSystemShareHelper& helper = uCSystemShareHelper::getGlobalObject();
    if (helper.CreateLocalThread(listener) != 0)
        return EXIT_FAILED;
    chThreadTimer timer(1);
    if (args.bTimeoutGiven)
        timer.SetTimer(static_cast<uint64_t>(args.nTimeoutMs), nullptr, &listener, MSG_HANDLER(&CListener::OnTimeout));
    int nStatus = listener.Run();
    timer.KillTimer();
    helper.DestroyLocalThread(listener);
    return nStatus;
}

int CmdPing(const Args& args)
{
    if (args.vecWords.size() != 1)
        return Usage("ping takes one THREAD");
    const char* szThread = args.vecWords[0];
    msgThread hThread = msgGetThreadByName(szThread);
    if (hThread == 0)
        return ReportSend(MSG_SEND_NO_THREAD, szThread);
    int nReply = 0;
    int nResult = msgSendMsgToThread(hThread, MSG_PLATFORM_PING, 0, 0, 0, nullptr, args.nTimeoutMs, &nReply, nullptr);
    if (nResult != MSG_SEND_OK)
        return ReportSend(nResult, szThread);
    printf("%d\n", nReply);
    return EXIT_DONE;
}

int CmdWait(const Args& args)
{
    if (args.vecWords.size() != 1)
        return Usage("wait takes one THREAD");
    auto tEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(args.nTimeoutMs);
    while (msgGetThreadByName(args.vecWords[0]) == 0) {
        if (std::chrono::steady_clock::now() >= tEnd) {
            fprintf(stderr, "etlmsg: thread [%s] did not appear in time\n", args.vecWords[0]);
            return EXIT_TIMEOUT;
        }
        ETL_MiscHelper::etlSleep(10);
    }
    return EXIT_DONE;
}

int CmdQuit(const Args& args)
{
    if (args.vecWords.size() != 1)
        return Usage("quit takes one THREAD");
    const char* szThread = args.vecWords[0];
    msgThread hThread = msgGetThreadByName(szThread);
    if (hThread == 0 || msgPostMsgToThread(hThread, MSG_PLATFORM_QUIT, static_cast<int32_t>(args.nStatus), 0) != 0)
        return ReportSend(MSG_SEND_NO_THREAD, szThread);
    return EXIT_DONE;
}

// Registry requests carry their texts NUL-separated: file, section, key[, value].
int CmdRegistry(bool bSet, const Args& args)
{
    size_t nWords = bSet ? 4 : 3;
    if (args.vecWords.size() != nWords)
        return Usage(bSet ? "reg-set takes FILE SECTION KEY VALUE" : "reg-get takes FILE SECTION KEY");
    std::string strPayload;
    for (size_t i = 0; i < nWords; ++i)
        strPayload.append(args.vecWords[i], strlen(args.vecWords[i]) + 1);
    if (strPayload.size() > static_cast<size_t>(MSG_MAX_EXTRA)) {
        fprintf(stderr, "etlmsg: the request is over %d bytes\n", MSG_MAX_EXTRA);
        return EXIT_FAILED;
    }
    const char* szThread = args.strTo.c_str();
    msgThread hThread = msgGetThreadByName(szThread);
    if (hThread == 0)
        return ReportSend(MSG_SEND_NO_THREAD, szThread);
    int nReply = 0;
    std::string strValue;
    int nResult = msgSendMsgToThread(hThread, bSet ? MSG_PLATFORM_REG_SET : MSG_PLATFORM_REG_GET, args.bNow ? 1 : 0, 0,
                                     static_cast<int>(strPayload.size()), strPayload.data(), args.nTimeoutMs, &nReply,
                                     &strValue);
    if (nResult != MSG_SEND_OK)
        return ReportSend(nResult, szThread);
    if (nReply != 1) {
        if (bSet)
            fprintf(stderr, "etlmsg: the registry refused the change\n");
        else
            fprintf(stderr, "etlmsg: no such key\n");
        return EXIT_FAILED;
    }
    if (!bSet)
    {
        (void)fwrite(strValue.data(), 1, strValue.size(), stdout);
        (void)fputc('\n', stdout);
    }
    return EXIT_DONE;
}

// Item names are printable ASCII without blanks and '=': anything else cannot name an item.
bool IsItemText(const char* sz)
{
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(sz); *p != 0; ++p) {
        if (*p <= 0x20 || *p >= 0x7f || *p == '=')
            return false;
    }
    return true;
}

// Sends an inspection message and prints the text of the reply. Returns an exit status, or -1
// with the reply value in nReply (the text then still unprinted in strText).
int SendInspect(const Args& args, uint32_t nId, int32_t nWparam, const char* szExtra, int& nReply,
                std::string& strText)
{
    const char* szThread = args.vecWords[0];
    msgThread hThread = msgGetThreadByName(szThread);
    if (hThread == 0)
        return ReportSend(MSG_SEND_NO_THREAD, szThread);
    int nSize = szExtra != nullptr ? static_cast<int>(strlen(szExtra)) : 0;
    int nResult = msgSendMsgToThread(hThread, nId, nWparam, 0, nSize, nSize > 0 ? szExtra : nullptr, args.nTimeoutMs,
                                     &nReply, &strText);
    if (nResult != MSG_SEND_OK)
        return ReportSend(nResult, szThread);
    if (nReply < 0) {
        fprintf(stderr, "etlmsg: [%s] keeps no item table\n", szThread);
        return EXIT_FAILED;
    }
    return -1;
}

int PrintText(const std::string& strText)
{
    (void)fwrite(strText.data(), 1, strText.size(), stdout);
    return EXIT_DONE;
}

// items THREAD [PREFIX]: the live item table as configuration text lines.
int CmdItems(const Args& args)
{
    if (args.vecWords.empty() || args.vecWords.size() > 2)
        return Usage("items takes THREAD [PREFIX]");
    const char* szPrefix = args.vecWords.size() > 1 ? args.vecWords[1] : nullptr;
    if (szPrefix != nullptr && !IsItemText(szPrefix))
        return Usage("PREFIX holds a byte no item name has (blank, '=', control or non-ASCII)");
    int nReply = 0;
    std::string strText;
    int nExit = SendInspect(args, MSG_PLATFORM_ITEMS, 0, szPrefix, nReply, strText);
    return nExit >= 0 ? nExit : PrintText(strText);
}

int CmdStats(const Args& args)
{
    if (args.vecWords.size() != 1)
        return Usage("stats takes one THREAD");
    int nReply = 0;
    std::string strText;
    int nExit = SendInspect(args, MSG_PLATFORM_STATS, 0, nullptr, nReply, strText);
    return nExit >= 0 ? nExit : PrintText(strText);
}

// journal THREAD [--item NAME] [--count N]: the last changes to item values, newest last. The
// ring's size comes back with the reply, so a count is checked against it there.
int CmdJournal(const Args& args)
{
    if (args.vecWords.size() != 1)
        return Usage("journal takes one THREAD");
    if (args.szItem != nullptr && (args.szItem[0] == '\0' || !IsItemText(args.szItem)))
        return Usage("--item holds a byte no item name has (blank, '=', control or non-ASCII)");
    int nReply = 0;
    std::string strText;
    int32_t nCount = args.nCount > 0 ? static_cast<int32_t>(args.nCount) : 0;
    int nExit = SendInspect(args, MSG_PLATFORM_JOURNAL, nCount, args.szItem, nReply, strText);
    if (nExit >= 0)
        return nExit;
    if (args.nCount == 0 || args.nCount > nReply) {
        char szWhy[96];
        snprintf(szWhy, sizeof(szWhy), "--count takes 1 to %d (the journal's size)", nReply);
        return Usage(szWhy);
    }
    return PrintText(strText);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2)
        return Usage(nullptr);
    int nInfoStatus = HandleInfoOption(argv[1]);
    if (nInfoStatus >= 0)
        return nInfoStatus;
    Args args;
    if (const char* szWhy = ParseArgs(argc, argv, args))
        return Usage(szWhy);
    std::string strCmd = argv[1];
    if (strCmd == "post" || strCmd == "send")
        return CmdPostOrSend(strCmd == "send", args);
    if (strCmd == "listen")
        return CmdListen(args);
    if (strCmd == "ping")
        return CmdPing(args);
    if (strCmd == "wait")
        return CmdWait(args);
    if (strCmd == "quit")
        return CmdQuit(args);
    if (strCmd == "reg-set" || strCmd == "reg-get")
        return CmdRegistry(strCmd == "reg-set", args);
    if (strCmd == "items")
        return CmdItems(args);
    if (strCmd == "stats")
        return CmdStats(args);
    if (strCmd == "journal")
        return CmdJournal(args);
    return Usage("unknown command");
}
