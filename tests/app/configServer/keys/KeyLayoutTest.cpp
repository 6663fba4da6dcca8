// Key layouts: converting selected keys into items, and the export of changed configuration,
// which compares every layout with its factory copy.
#include "KeyLayout.h"
#include "ServiceFixture.h"

#include <unistd.h>

namespace {

const char* const kAttrs[] = {"type", "line", "value", "label", "extension", "xml_phonebook", "pickup_value"};
const char* const kKeys[] = {"type", "itemdata::line", "itemdata::value", "itemdata::label", "itemdata::extension",
                             "itemdata::xml_phonebook", "itemdata::pickup_value"};

class KeyLayoutTest : public ItemTableTest {
protected:
    void SetUp() override
    {
        ItemTableTest::SetUp();
        std::string strMap;
        auto AddSet = [&](const std::string& strName, const std::string& strFile, const std::string& strPrefix,
                          bool bLineFlag) {
            for (int i = 0; i < 7; ++i)
                strMap += " <item m7=\"" + strName + ".{n+1}." + kAttrs[i] + "\" file=\"" + strFile + "\" section=\"" +
                          strPrefix + ".item.{n}\" key=\"" + kKeys[i] + "\"" +
                          (i == 1 && bLineFlag ? " flags=\"0x800\"" : "") + " range=\"0-299\"/>\n";
        };
        AddSet("linekey", "/config/data/linekey.xml", "dsskey", true);
        AddSet("programablekey", "/config/data/programkey.xml", "programkey", false);
        AddSet("expminus", "/config/data/expkey-1.xml", "dsskey", true);
        AddSet("exp3", "/config/data/expkey3.xml", "dsskey", true);
        WriteMap(strMap +
                 " <item m7=\"phone_setting.phone_lock.unlock_pin\" file=\"/config/t.ini\" section=\"Lock\" key=\"PIN\"/>\n"
                 " <item m7=\"test.newsection\" file=\"/config/t.ini\" section=\"New\" key=\"k\"/>\n"
                 " <item m7=\"sub.key\" file=\"/config/sub/s.cfg\" section=\"S\" key=\"k\"/>\n");
    }

    static std::string Key(const std::string& strType, const std::string& strItemdata)
    {
        return "<item type=\"" + strType + "\">" + strItemdata + "</item>";
    }
    static std::string Data(const std::string& strLine, const std::string& strLabel, const std::string& strPickup = "")
    {
        return "<itemdata line=\"" + strLine + "\" value=\"v\" label=\"" + strLabel +
               "\" extension=\"e\" xml_phonebook=\"x\" pickup_value=\"" + strPickup + "\"/>";
    }
    static std::string Layout(const std::string& strRoot, int nKeys, const std::string& strLabelPrefix = "L")
    {
        std::string strXml = "<" + strRoot + ">";
        for (int i = 0; i < nKeys; ++i)
            strXml += Key("15", Data("0", strLabelPrefix + std::to_string(i)));
        return strXml + "</" + strRoot + ">";
    }
    int Convert(std::vector<unsigned char>& vecSelection, uint32_t nKeySet, int32_t nModule = 0)
    {
        return m_server.LoadKeyLayoutToM7(vecSelection.data(), static_cast<int>(vecSelection.size()), nKeySet, nModule);
    }
};

} // namespace

TEST_F(KeyLayoutTest, ConversionOfSelectedKeys)
{
    Write("/config/data/linekey.xml",
          "<dsskey>" + Key("15", Data("0", "first")) + Key("16", Data("-1", "")) + Key("17", "") +
              Key("18", Data("3", "fourth")) + "</dsskey>");
    // (A first zero byte converting nothing is the message test's zero list.)
    std::vector<unsigned char> vecSelection{2, 2, 0, 1};
    EXPECT_EQ(Convert(vecSelection, 7), 1) << "key set 7 reads linekey.xml";
    EXPECT_EQ(vecSelection, (std::vector<unsigned char>{255, 255, 0, 1})) << "bytes after a zero are not read";
    EXPECT_EQ(Value("linekey.1.type"), "<absent>");
    vecSelection = {3, 1};
    EXPECT_EQ(Convert(vecSelection, 0), 1);
    // -1 counted from 0 is 0, and so is a missing itemdata; an empty attribute sets empty text.
    const char* const kValues[][2] = {{"linekey.2.type", "16"}, {"linekey.2.line", "0"}, {"linekey.2.label", ""},
                                      {"linekey.3.type", "17"}, {"linekey.3.line", "0"}, {"linekey.3.value", ""},
                                      {"linekey.1.line", "1"},  {"linekey.1.label", "first"}, {"linekey.4.type", "<absent>"}};
    for (const auto& v : kValues)
        EXPECT_EQ(Value(v[0]), v[1]) << v[0];

    // Text and other elements take indexes of their own; no base-0 flag: the line as written.
    Write("/config/data/programkey.xml", "<programkey>" + Key("1", Data("0", "a")) + "visible text" + "<other/>" +
                                             Key("2", Data("5", "b")) + "</programkey>");
    vecSelection = {4};
    EXPECT_EQ(Convert(vecSelection, 3), 1);
    EXPECT_EQ(Value("programablekey.4.type"), "2");
    EXPECT_EQ(Value("programablekey.4.line"), "5");
    Write("/config/data/linekey.xml", Layout("dsskey", 256));
    vecSelection = {255};
    EXPECT_EQ(Convert(vecSelection, 0), 1);
    EXPECT_EQ(Value("linekey.255.label"), "L254");
    Write("/config/data/expkey-1.xml", Layout("dsskey", 2, "M"));
    vecSelection = {2};
    EXPECT_EQ(Convert(vecSelection, 2, -1), 1);
    EXPECT_EQ(Value("expminus.2.label"), "M1");
}

TEST_F(KeyLayoutTest, ConversionFailuresAndTheMessage)
{
    std::vector<unsigned char> vecSelection{1};
    EXPECT_EQ(m_server.LoadKeyLayoutToM7(nullptr, 3, 0, 0), 0);
    EXPECT_EQ(m_server.LoadKeyLayoutToM7(vecSelection.data(), 0, 0, 0), 0);
    std::string strOut = Printed([&] {
        EXPECT_EQ(Convert(vecSelection, 1), 0);
        for (const char* szBad : {"not xml <", "<programkey/>"}) {
            Write("/config/data/linekey.xml", szBad);
            EXPECT_EQ(Convert(vecSelection, 0), 0) << szBad;
        }
    });
    EXPECT_EQ(strOut, "Load failed:[/config/data/memkey.xml]Load failed:[/config/data/linekey.xml]"
                      "Get Node [dsskey] failed!\n");

    // The message: no extra data is not handled and writes nothing; a zero list rewrites the file.
    ETL_MsgQueueHelper::msgObject empty(CONFIG_MSG_CONVERT_KEY_LAYOUT, 0, 0, nullptr, 0);
    EXPECT_EQ(m_server.TryThreadMessage(empty), 0);
    EXPECT_FALSE(Exists("/config/user-local.cfg"));
    Write("/config/data/linekey.xml", Layout("dsskey", 3));
    unsigned char zero[2] = {0, 3}, two[1] = {2};
    ETL_MsgQueueHelper::msgObject none(CONFIG_MSG_CONVERT_KEY_LAYOUT, 0, 0, zero, 2);
    EXPECT_EQ(m_server.TryThreadMessage(none), 1);
    EXPECT_EQ(Read("/config/user-local.cfg"), "#!version:1.0.0.1\n");
    ETL_MsgQueueHelper::msgObject one(CONFIG_MSG_CONVERT_KEY_LAYOUT, 0, 0, two, 1);
    EXPECT_EQ(m_server.TryThreadMessage(one), 1);
    EXPECT_NE(Read("/config/user-local.cfg").find("linekey.2.line = 1\nlinekey.2.value = v\nlinekey.2.label = L1\n"),
              std::string::npos);
}

TEST_F(KeyLayoutTest, ExportOfChangedConfiguration)
{
    Write("/config/t.ini", "[S]\nplain = ?1\nother = ?2\nbase0 = 0\ninvert = 5\nboth = 0\nencrypt = x\nreboot = 9\n"
                           "unmapped = 1\n[Lock]\nPIN = 4321\n[New]\nk = \n");
    Write("/phone/factory/t.ini", "[S]\nplain = 1\nother = 1\nbase0 = 1\ninvert = 0\nboth = 1\nencrypt = y\nreboot = 0\n"
                                  "[Lock]\nPIN = 0000\n");
    Write("/config/sub/s.cfg", "[S]\nk = changed\n");
    for (const char* szName : {"/config/notwin.cfg", "/config/noext", "/config/ignored.txt"})
        Write(szName, "[S]\nplain = x\n");
    ASSERT_EQ(symlink(Real("/config/t.ini").c_str(), Real("/config/link.cfg").c_str()), 0);
    Write("/config/" + std::string(240, 'd') + "/deep/x.cfg", "[S]\nk = 1\n");
    Write("/phone/factory/" + std::string(240, 'd') + "/deep/x.cfg", "[S]\nk = 2\n");
    Write("/phone/factory/link.cfg", "[S]\nplain = 1\n");
    Write("/phone/factory/noext", "");
    // Layouts: key 2 differs only in pickup_value, key 3 in its line; 10 program keys against
    // 12 compare 10; module 3 has no factory copy.
    Write("/config/data/linekey.xml", "<dsskey>" + Key("15", Data("0", "L0")) + Key("15", Data("0", "", "p")) +
                                          Key("15", Data("-1", "L2")) + "</dsskey>");
    Write("/phone/factory/data/linekey.xml", "<dsskey>" + Key("15", Data("0", "L0")) + Key("15", Data("0", "")) +
                                                 Key("15", Data("0", "L2")) + "</dsskey>");
    Write("/config/data/programkey.xml", Layout("programkey", 10, "C"));
    Write("/phone/factory/data/programkey.xml", Layout("programkey", 12, "F"));
    Write("/config/data/expkey3.xml", Layout("dsskey", 2));
    std::string strOut = Printed([&] { EXPECT_EQ(m_server.OnExportAllChangedConfig("/tmp/all.cfg"), 1); });
    std::string strFile = Read("/tmp/all.cfg");
    // "?1" against 1 is no change; encrypted items and the PIN never leave; reboot items do here.
    for (const char* szAbsent : {"test.plain", "test.encrypt", "unlock_pin", "sub.key"})
        EXPECT_EQ(strFile.find(szAbsent), std::string::npos) << szAbsent;
    for (const char* szLine : {"test.other = ?2\n", "test.base0 = 1\n", "test.invert = 0\n", "test.both = 0\n",
                               "test.reboot = 9\n", "test.newsection = %NULL%\n"})
        EXPECT_NE(strFile.find(szLine), std::string::npos) << szLine;
    for (const char* szLine : {"getname faile, name:[/config/t.ini] S, unmapped\n", "dir /phone/factory//sub not found!\n",
                               "Not regular file [/config/link.cfg]. Skiped.\n", "test.other = ?2\n", "Path too long",
                               "cmp:[/config/data/linekey.xml] [/phone/factory/data/linekey.xml]\n",
                               "Load failed:[/phone/factory/data/expkey3.xml]"})
        EXPECT_NE(strOut.find(szLine), std::string::npos) << szLine;
    // All seven mapped lines of a changed key, in lookup order; without the base-0 flag the
    // line is written as it stands.
    EXPECT_NE(strFile.find("linekey.2.type = 15\nlinekey.2.line = 1\nlinekey.2.value = v\nlinekey.2.label = %NULL%\n"
                           "linekey.2.extension = e\nlinekey.2.xml_phonebook = x\nlinekey.2.pickup_value = p\n"
                           "linekey.3.type = 15\nlinekey.3.line = 0\nlinekey.3.value = v\nlinekey.3.label = L2\n"
                           "linekey.3.extension = e\nlinekey.3.xml_phonebook = x\nlinekey.3.pickup_value = %NULL%\n"),
              std::string::npos) << strFile;
    EXPECT_EQ(strFile.find("linekey.1."), std::string::npos);
    EXPECT_NE(strFile.find("programablekey.10.line = 0\n"), std::string::npos);
    EXPECT_EQ(strFile.find("programablekey.11."), std::string::npos);

    // Identical trees: the header and nothing else.
    for (const char* szFile : {"/t.ini", "/data/linekey.xml", "/data/programkey.xml"})
        Write(std::string("/phone/factory") + szFile, Read(std::string("/config") + szFile));
    ASSERT_EQ(unlink(Real("/config/link.cfg").c_str()), 0);
    (void)Printed([&] { EXPECT_EQ(m_server.OnExportAllChangedConfig(nullptr), 1); });
    EXPECT_EQ(Read("/tmp/all_config.cfg"), "#!version:1.0.0.1\n");
    EXPECT_EQ(m_server.OnExportAllChangedConfig("/nodir/x.cfg"), 0);
}
