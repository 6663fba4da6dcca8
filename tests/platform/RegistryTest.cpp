// The registry: saving through the filter in document order, reports of changes to the owner
// task and to section watches.
#include "ETL_MiscHelper.h"
#include "ETL_RegistryHelper.h"
#include "ProcessHarness.h"

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using namespace ETL_MsgQueueHelper;

namespace {

std::vector<std::string> g_vecFiltered;

int RecordingFilter(const char* szFile, const char* szSection, const char* szKey, const char* szValue)
{
    g_vecFiltered.push_back(std::string(szFile) + "|" + szSection + "|" + szKey + "=" + szValue);
    return -1; // the answer must not change what is written
}

size_t EntriesIn(const std::string& strDir)
{
    size_t n = 0;
    DIR* pDir = opendir(strDir.c_str());
    while (pDir != nullptr && readdir(pDir) != nullptr)
        ++n;
    if (pDir != nullptr)
        closedir(pDir);
    return n - 2;
}

} // namespace

TEST(Registry, SaveCallsTheFilterPerKeyInDocumentOrderAndReplacesTheFile)
{
    testutil::TempDir root;
    setenv("ETL_ROOT", root.Path().c_str(), 1);
    testutil::WriteFile(root.Join("/config/reg/save.ini"), "[Zeta]\nb = 2\na = 1\n\n[Alpha]\nx = old\n");
    HREGISTRY hSection = registryOpen("/config/reg/save.ini", "Alpha");
    ASSERT_NE(hSection, nullptr);
    EXPECT_EQ(registryOpen("/config/reg/save.ini", "Alpha"), hSection) << "handles are stable";
    HREGISTRY hDoc = regSetValue("/config/reg/save.ini", "Alpha", "x", "new", false);
    regSetValue("/config/reg/save.ini", "New", "k", std::string(10000, 'v').c_str(), false);
    regSetValue("/config/reg/save.ini", "Zeta", "c", "3", false);
    EXPECT_NE(hDoc, hSection);
    EXPECT_NE(testutil::ReadFile(root.Join("/config/reg/save.ini")).find("x = old"), std::string::npos)
        << "the file changes only when saved";

    g_vecFiltered.clear();
    ASSERT_EQ(regSaveRegistryDocumentEx(hDoc, RecordingFilter), 0);
    std::vector<std::string> vecExpected = {
        "/config/reg/save.ini|Zeta|b=2", "/config/reg/save.ini|Zeta|a=1", "/config/reg/save.ini|Zeta|c=3",
        "/config/reg/save.ini|Alpha|x=new", "/config/reg/save.ini|New|k=" + std::string(10000, 'v')};
    EXPECT_EQ(g_vecFiltered, vecExpected);
    std::string strSaved = testutil::ReadFile(root.Join("/config/reg/save.ini"));
    EXPECT_LT(strSaved.find("[Zeta]"), strSaved.find("[Alpha]"));
    EXPECT_LT(strSaved.find("b = 2"), strSaved.find("a = 1"));
    EXPECT_LT(strSaved.find("a = 1"), strSaved.find("c = 3"));
    EXPECT_NE(strSaved.find("x = new"), std::string::npos);
    EXPECT_EQ(EntriesIn(root.Join("/config/reg")), 1u) << "no temporary file is left";

    // A document in a folder that does not exist yet, saved with a section handle.
    HREGISTRY hFresh = registryOpen("/config/fresh/dir/doc.ini", "S");
    regSetValue("/config/fresh/dir/doc.ini", "S", "key", "value", false);
    ASSERT_EQ(regSaveRegistryDocumentEx(hFresh, nullptr), 0);
    EXPECT_NE(testutil::ReadFile(root.Join("/config/fresh/dir/doc.ini")).find("key = value"), std::string::npos);
    EXPECT_EQ(regSaveRegistryDocumentEx(reinterpret_cast<HREGISTRY>(99999), nullptr), -1);
    unsetenv("ETL_ROOT");
}

namespace {

int g_nHostTask = 0;

class CRegistryHost : public chThreadLocal {
public:
    CRegistryHost() : chThreadLocal("regHost", nullptr) {}

    int TryThreadMessage(msgObject& msg) override
    {
        if (msg.message == 0x9001) {
            m_vecReports.push_back({msg.wParam, msg.lParam});
            return 1;
        }
        return chThreadLocal::TryThreadMessage(msg);
    }

    int OnWatchA(msgObject& msg)
    {
        m_vecWatchA.push_back(msg.lParam);
        return 1;
    }
    int OnWatchB(msgObject& msg)
    {
        m_vecWatchB.push_back(msg.lParam);
        return 1;
    }

    std::vector<std::pair<int, int>> m_vecReports;
    std::vector<int> m_vecWatchA;
    std::vector<int> m_vecWatchB;
};

int SendRegSet(const char* szFile, const char* szSection, const char* szKey, const char* szValue, bool bNow)
{
    std::string strPayload;
    for (const char* sz : {szFile, szSection, szKey, szValue})
        strPayload.append(sz, std::strlen(sz) + 1);
    int nReply = -1;
    int nResult = msgSendMsgToThread(msgGetThreadByName("regHost"), MSG_PLATFORM_REG_SET, bNow ? 1 : 0, 0,
                                     static_cast<int>(strPayload.size()), strPayload.data(), 5000, &nReply, nullptr);
    return nResult == MSG_SEND_OK ? nReply : -100 - nResult;
}

} // namespace

TEST(Registry, ChangesReachTheOwnerTaskAndTheWatches)
{
    testutil::TempDir root;
    setenv("ETL_ROOT", root.Path().c_str(), 1);
    CRegistryHost host;
    ASSERT_EQ(uCSystemShareHelper::getGlobalObject().CreateLocalThread(host), 0);
    ETL_RegistryHelper::chRegistryMonitor monitor;
    monitor.MonitorSection("/config/w.ini", "Watched", &host, MSG_HANDLER(&CRegistryHost::OnWatchA));
    monitor.MonitorSection("/config/w.ini", "Watched", &host, MSG_HANDLER(&CRegistryHost::OnWatchB));

    std::vector<int> vecReplies;
    g_nHostTask = ETL_MiscHelper::etlGetCurrentTaskId();
    std::thread sender([&] {
        vecReplies.push_back(SendRegSet("/config/w.ini", "Other", "k", "before owner", false));
        // Bind the owner task the way the service's start-up does.
        ETL_RegistryHelper::uCRegistryHelper* pRegistry = ETL_RegistryHelper::uCRegistryHelpergetGlobalObject();
        pRegistry->Lock(-1);
        pRegistry->GetSharedState()->nOwnerTask = g_nHostTask;
        pRegistry->Unlock();
        vecReplies.push_back(SendRegSet("/config/w.ini", "Watched", "k", "v1", false));
        vecReplies.push_back(SendRegSet("/config/w.ini", "Watched", "k", "v2", true));
        vecReplies.push_back(SendRegSet("/config/w.ini", "Bad]Section", "k", "v", false));
        msgSendMsgToThread(msgGetThreadByName("regHost"), MSG_PLATFORM_QUIT, 0, 0, 0, nullptr, 5000, nullptr, nullptr);
    });
    host.Run();
    sender.join();
    uCSystemShareHelper::getGlobalObject().DestroyLocalThread(host);

    EXPECT_EQ(vecReplies, (std::vector<int>{1, 1, 1, 0}));
    HREGISTRY hWatched = registryOpen("/config/w.ini", "Watched");
    HREGISTRY hDoc = regSetValue("/config/w.ini", "Other", "k", "same doc", false);
    int nDoc = static_cast<int>(reinterpret_cast<uintptr_t>(hDoc));
    ASSERT_EQ(host.m_vecReports.size(), 2u) << "nothing was posted before the owner was set";
    EXPECT_EQ(host.m_vecReports[0], std::make_pair(nDoc, 0));
    EXPECT_EQ(host.m_vecReports[1], std::make_pair(nDoc, 2));
    int nWatched = static_cast<int>(reinterpret_cast<uintptr_t>(hWatched));
    EXPECT_TRUE(host.m_vecWatchA.empty()) << "the second watch of a pair replaces the first";
    EXPECT_EQ(host.m_vecWatchB, (std::vector<int>{nWatched, nWatched}));
    std::string strValue;
    ASSERT_TRUE(regGetValue("/config/w.ini", "Watched", "k", strValue));
    EXPECT_EQ(strValue, "v2");

    ETL_RegistryHelper::uCRegistryHelpergetGlobalObject()->GetSharedState()->nOwnerTask = 0;
    unsetenv("ETL_ROOT");
}
