// The registry: saving through the filter in document order, and replacing the file whole.
#include "ETL_RegistryHelper.h"
#include "ProcessHarness.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace ETL_MsgQueueHelper;

namespace {

std::vector<std::string> g_vecFiltered;

int RecordingFilter(const char* szFile, const char* szSection, const char* szKey, const char* szValue)
{
    g_vecFiltered.push_back(std::string(szFile) + "|" + szSection + "|" + szKey + "=" + szValue);
    return -1; // the answer must not change what is written
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
    auto entries = std::filesystem::directory_iterator(root.Join("/config/reg"));
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1) << "no temporary file is left";

    // A document in a folder that does not exist yet, saved with a section handle.
    HREGISTRY hFresh = registryOpen("/config/fresh/dir/doc.ini", "S");
    regSetValue("/config/fresh/dir/doc.ini", "S", "key", "value", false);
    ASSERT_EQ(regSaveRegistryDocumentEx(hFresh, nullptr), 0);
    EXPECT_NE(testutil::ReadFile(root.Join("/config/fresh/dir/doc.ini")).find("key = value"), std::string::npos);
    EXPECT_EQ(regSaveRegistryDocumentEx(reinterpret_cast<HREGISTRY>(99999), nullptr), -1);
    unsetenv("ETL_ROOT");
}

