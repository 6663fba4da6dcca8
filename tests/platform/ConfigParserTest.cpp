// The name library on configMap.xml: ranges, both lookups, buffer sizes and switches.
#include "ETL_RegistryHelper.h"
#include "ProcessHarness.h"
#include "configParser.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

class ConfigParserTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        setenv("ETL_ROOT", m_root.Path().c_str(), 1);
        configParser_Reset();
    }
    void TearDown() override
    {
        configParser_Reset();
        unsetenv("ETL_ROOT");
    }
    void WriteMap(const std::string& strBody)
    {
        testutil::WriteFile(m_root.Join("/phone/resource/configMap.xml"), strBody);
    }
    testutil::TempDir m_root;
};

} // namespace

TEST_F(ConfigParserTest, RangesLookupsAndSizes)
{
    WriteMap("<configMap>\n"
             "  <item m7=\"account.{n+1}.enable\" file=\"/config/voip/account{n}.cfg\" section=\"account\" key=\"Enable\" flags=\"0x0\" range=\"0-15\"/>\n"
             "  <item m7=\"linekey.{n+1}.line\" file=\"/config/data/linekey.xml\" section=\"dsskey.item.{n}\" key=\"itemdata::line\" flags=\"0x800\" range=\"0-29\"/>\n"
             "  <item m7=\"phone_setting.phone_lock.unlock_pin\" file=\"/config/system/system.ini\" section=\"PhoneLock\" key=\"UnlockPIN\" flags=\"1\"/>\n"
             "  <item m7=\"bad.range\" file=\"/f\" section=\"s\" key=\"k{n}\" range=\"5-2\"/>\n"
             "  <item m7=\"bad.letters\" file=\"/f\" section=\"s\" key=\"k{n}\" range=\"a-b\"/>\n"
             "  <item m7=\"first.wins\" file=\"/dup\" section=\"s\" key=\"k\" flags=\"0x2\"/>\n"
             "  <item m7=\"second.loses\" file=\"/dup\" section=\"s\" key=\"k\" flags=\"0x1\"/>\n"
             "</configMap>\n");
    char szName[512] = {0};
    int nFlags = -1;
    ASSERT_EQ(get_config_name_by_path("/config/voip/account0.cfg", "account", "Enable", szName, 64, &nFlags), 0);
    EXPECT_STREQ(szName, "account.1.enable");
    EXPECT_EQ(nFlags, 0);
    ASSERT_EQ(get_config_name_by_path("/config/voip/account15.cfg", "account", "Enable", szName, 64, &nFlags), 0);
    EXPECT_STREQ(szName, "account.16.enable");
    EXPECT_NE(get_config_name_by_path("/config/voip/account16.cfg", "account", "Enable", szName, 64, &nFlags), 0);
    ASSERT_EQ(get_config_name_by_path("/config/data/linekey.xml", "dsskey.item.29", "itemdata::line", szName, 512, &nFlags), 0);
    EXPECT_STREQ(szName, "linekey.30.line");
    EXPECT_EQ(nFlags, 0x800);
    EXPECT_NE(get_config_name_by_path("/config/voip//account0.cfg", "account", "Enable", szName, 64, &nFlags), 0)
        << "paths match byte for byte";
    EXPECT_NE(get_config_name_by_path("/config/voip/account0.cfg", "account", "enable", szName, 64, &nFlags), 0);

    // "account.1.enable" needs 17 bytes with its terminator.
    EXPECT_NE(get_config_name_by_path("/config/voip/account0.cfg", "account", "Enable", szName, 16, &nFlags), 0);
    EXPECT_EQ(get_config_name_by_path("/config/voip/account0.cfg", "account", "Enable", szName, 17, &nFlags), 0);

    EXPECT_NE(get_config_name_by_path("/f", "s", "k5", szName, 64, &nFlags), 0) << "bad ranges are skipped";
    ASSERT_EQ(get_config_name_by_path("/dup", "s", "k", szName, 64, &nFlags), 0);
    EXPECT_STREQ(szName, "first.wins");

    const config_info_t* pInfo = get_config_info_t("phone_setting.phone_lock.unlock_pin");
    ASSERT_NE(pInfo, nullptr);
    EXPECT_EQ(pInfo->attr, 1u);
    EXPECT_EQ(get_config_info_t("no.such.item"), nullptr);
    EXPECT_EQ(get_config_info_t("linekey.30.line")->attr, 0x800u);
}

TEST_F(ConfigParserTest, SwitchesAndMissingMap)
{
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomSync"), 0) << "no map: every switch is 0";
    char szName[64];
    int nFlags = 0;
    EXPECT_NE(get_config_name_by_path("/a", "b", "c", szName, 64, &nFlags), 0);

    configParser_Reset();
    WriteMap("<configMap>"
             "<config name=\"AutoProvisionCustomSync\" file=\"/config/system/switches.ini\" section=\"AutoProvision\" key=\"CustomSync\" default=\"1\"/>"
             "<config name=\"AutoProvisionCustomProtect\" file=\"/config/system/switches.ini\" section=\"AutoProvision\" key=\"CustomProtect\" default=\"0\"/>"
             "</configMap>");
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomSync"), 1) << "missing key: the default";
    testutil::WriteFile(m_root.Join("/config/system/switches.ini"), "[AutoProvision]\nCustomProtect = 7\n");
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomProtect"), 7) << "from the file";
    regSetValue("/config/system/switches.ini", "AutoProvision", "CustomProtect", "12", false);
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomProtect"), 12) << "the registry's document wins once loaded";
    EXPECT_EQ(configParser_GetConfigInt("NotASwitch"), 0);

    configParser_Reset();
    WriteMap("this is not xml <");
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomSync"), 0);
    EXPECT_EQ(get_config_info_t("anything"), nullptr);
}
