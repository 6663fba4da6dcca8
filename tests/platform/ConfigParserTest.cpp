// The name library on configMap.xml: ranges, both lookups, buffer sizes and switches.
#include "ETL_RegistryHelper.h"
#include "ServiceFixture.h"

namespace {

class ConfigParserTest : public ServiceRootTest {
protected:
    void WriteRaw(const std::string& strBody) const
    {
        Write("/phone/resource/configMap.xml", strBody);
        configParser_Reset();
    }
    // The name a path maps to, or "<none>".
    static std::string NameOf(const char* szFile, const char* szSection, const char* szKey, int nSize = 64,
                              int* pFlags = nullptr)
    {
        char szName[512] = {0};
        int nFlags = -1;
        int nResult = get_config_name_by_path(szFile, szSection, szKey, szName, nSize, pFlags != nullptr ? pFlags : &nFlags);
        return nResult == 0 ? szName : "<none>";
    }
};

} // namespace

TEST_F(ConfigParserTest, RangesLookupsAndSizes)
{
    WriteRaw("<configMap>\n"
             "  <item m7=\"account.{n+1}.enable\" file=\"/config/voip/account{n}.cfg\" section=\"account\" key=\"Enable\" flags=\"0x0\" range=\"0-15\"/>\n"
             "  <item m7=\"linekey.{n+1}.line\" file=\"/config/data/linekey.xml\" section=\"dsskey.item.{n}\" key=\"itemdata::line\" flags=\"0x800\" range=\"0-29\"/>\n"
             "  <item m7=\"phone_setting.phone_lock.unlock_pin\" file=\"/config/system/system.ini\" section=\"PhoneLock\" key=\"UnlockPIN\" flags=\"1\"/>\n"
             "  <item m7=\"bad.range\" file=\"/f\" section=\"s\" key=\"k{n}\" range=\"5-2\"/>\n"
             "  <item m7=\"bad.letters\" file=\"/f\" section=\"s\" key=\"k{n}\" range=\"a-b\"/>\n"
             "  <item m7=\"first.wins\" file=\"/dup\" section=\"s\" key=\"k\" flags=\"0x2\"/>\n"
             "  <item m7=\"second.loses\" file=\"/dup\" section=\"s\" key=\"k\" flags=\"0x1\"/>\n"
             "</configMap>\n");
    int nFlags = -1;
    const char* const kCases[][4] = {
        {"/config/voip/account0.cfg", "account", "Enable", "account.1.enable"},
        {"/config/voip/account15.cfg", "account", "Enable", "account.16.enable"},
        {"/config/voip/account16.cfg", "account", "Enable", "<none>"},
        {"/config/data/linekey.xml", "dsskey.item.29", "itemdata::line", "linekey.30.line"},
        {"/config/voip//account0.cfg", "account", "Enable", "<none>"}, // paths match byte for byte
        {"/config/voip/account0.cfg", "account", "enable", "<none>"},
        {"/f", "s", "k5", "<none>"},                                   // bad ranges are skipped
        {"/dup", "s", "k", "first.wins"}};
    for (const auto& c : kCases)
        EXPECT_EQ(NameOf(c[0], c[1], c[2]), c[3]) << c[0] << " " << c[2];
    EXPECT_EQ(NameOf("/config/data/linekey.xml", "dsskey.item.0", "itemdata::line", 64, &nFlags), "linekey.1.line");
    EXPECT_EQ(nFlags, 0x800);
    // "account.1.enable" needs 17 bytes with its terminator.
    EXPECT_EQ(NameOf("/config/voip/account0.cfg", "account", "Enable", 16), "<none>");
    EXPECT_EQ(NameOf("/config/voip/account0.cfg", "account", "Enable", 17), "account.1.enable");

    const config_info_t* pInfo = get_config_info_t("phone_setting.phone_lock.unlock_pin");
    ASSERT_NE(pInfo, nullptr);
    EXPECT_EQ(pInfo->attr, 1u);
    EXPECT_EQ(get_config_info_t("no.such.item"), nullptr);
    EXPECT_EQ(get_config_info_t("linekey.30.line")->attr, 0x800u);
}

TEST_F(ConfigParserTest, SwitchesAndMissingMap)
{
    ASSERT_EQ(std::remove(Real("/phone/resource/configMap.xml").c_str()), 0);
    configParser_Reset();
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomSync"), 0) << "no map: every switch is 0";
    EXPECT_EQ(NameOf("/config/t.ini", "S", "plain"), "<none>");
    WriteRaw("<configMap>"
             "<config name=\"AutoProvisionCustomSync\" file=\"/config/system/switches.ini\" section=\"AutoProvision\" key=\"CustomSync\" default=\"1\"/>"
             "<config name=\"AutoProvisionCustomProtect\" file=\"/config/system/switches.ini\" section=\"AutoProvision\" key=\"CustomProtect\" default=\"0\"/>"
             "</configMap>");
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomSync"), 1) << "missing key: the default";
    Write("/config/system/switches.ini", "[AutoProvision]\nCustomProtect = 7\n");
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomProtect"), 7) << "from the file";
    regSetValue("/config/system/switches.ini", "AutoProvision", "CustomProtect", "12", false);
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomProtect"), 12) << "the registry's document wins once loaded";
    EXPECT_EQ(configParser_GetConfigInt("NotASwitch"), 0);

    WriteRaw("this is not xml <");
    EXPECT_EQ(configParser_GetConfigInt("AutoProvisionCustomSync"), 0);
    EXPECT_EQ(get_config_info_t("anything"), nullptr);
}
