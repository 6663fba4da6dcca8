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
             // Overlaps on purpose: a later range reaches into an earlier one's paths; a fixed item
             // keeps its braces; "{n" without its end is text.
             "  <item m7=\"acct.{n}.enable\" file=\"/config/voip/account{n}.cfg\" section=\"account\" key=\"Enable\" flags=\"0x2\" range=\"10-30\"/>\n"
             "  <item m7=\"key.{n}.{n+1}\" file=\"/k.xml\" section=\"item.{n}\" key=\"v{n+1}{n}\" flags=\"0x800\" range=\"0-120\"/>\n"
             "  <item m7=\"key.5.6\" file=\"/other\" section=\"s\" key=\"k\" flags=\"0x4\"/>\n"
             "  <item m7=\"literal.{n}\" file=\"/f{n}\" section=\"s\" key=\"k\"/>\n"
             "  <item m7=\"half.{n\" file=\"/h\" section=\"s{n\" key=\"k{n}\" range=\"3-4\"/>\n"
             "  <item m7=\"wide.{n}\" file=\"/w\" section=\"s\" key=\"k{n}\" range=\"99990-100005\"/>\n"
             "</configMap>\n");
    int nFlags = -1;
    const char* const kCases[][4] = {
        {"/config/voip/account0.cfg", "account", "Enable", "account.1.enable"},
        {"/config/voip/account16.cfg", "account", "Enable", "acct.16.enable"}, // past the first range
        {"/config/data/linekey.xml", "dsskey.item.29", "itemdata::line", "linekey.30.line"},
        {"/config/voip//account0.cfg", "account", "Enable", "<none>"}, // paths match byte for byte
        {"/f", "s", "k5", "<none>"},                                   // bad ranges are skipped
        {"/dup", "s", "k", "first.wins"},
        {"/config/voip/account12.cfg", "account", "Enable", "account.13.enable"}, // the first range wins
        {"/config/voip/account30.cfg", "account", "Enable", "acct.30.enable"},
        {"/config/voip/account31.cfg", "account", "Enable", "<none>"},
        {"/k.xml", "item.120", "v121120", "key.120.121"},
        {"/k.xml", "item.120", "v12112", "<none>"},
        {"/f{n}", "s", "k", "literal.{n}"},
        {"/h", "s{n", "k4", "half.{n"},
        {"/h", "s{n", "k5", "<none>"},
        {"/w", "s", "k100005", "wide.100005"},
        {"/w", "s", "k10000", "<none>"}};
    for (const auto& c : kCases)
        EXPECT_EQ(NameOf(c[0], c[1], c[2]), c[3]) << c[0] << " " << c[2];
    EXPECT_EQ(NameOf("/config/data/linekey.xml", "dsskey.item.0", "itemdata::line", 64, &nFlags), "linekey.1.line");
    EXPECT_EQ(nFlags, 0x800);
    // "account.1.enable" needs 17 bytes with its terminator.
    EXPECT_EQ(NameOf("/config/voip/account0.cfg", "account", "Enable", 16, &nFlags), "<none>");
    EXPECT_EQ(nFlags, 0x800) << "untouched by a name that does not fit";
    EXPECT_EQ(NameOf("/config/voip/account0.cfg", "account", "Enable", 17), "account.1.enable");

    const config_info_t* pInfo = get_config_info_t("phone_setting.phone_lock.unlock_pin");
    ASSERT_NE(pInfo, nullptr);
    EXPECT_EQ(pInfo->attr, 1u);
    EXPECT_EQ(get_config_info_t("no.such.item"), nullptr);
    const std::pair<const char*, long> kFlags[] = {{"linekey.30.line", 0x800}, {"linekey.31.line", -1},
        {"acct.10.enable", 2}, {"acct.9.enable", -1}, {"key.5.6", 0x800}, {"literal.{n}", 0}, {"wide.100005", 0},
        {"account.1.enablex", -1}};
    for (const auto& f : kFlags) {
        pInfo = get_config_info_t(f.first);
        EXPECT_EQ(pInfo != nullptr ? static_cast<long>(pInfo->attr) : -1L, f.second) << f.first;
    }
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
