// Merging configuration texts into the item table: precedence, skipped items and their lines,
// inversion, and the ignore-list loader.
#include "ServiceFixture.h"

#include <map>

using MergeLoadTest = ItemTableTest;

// Which line wins, within a file and over what was loaded before, is the repeated-names test's.
TEST_F(MergeLoadTest, MissingFiles)
{
    EXPECT_EQ(Printed([&] { EXPECT_EQ(m_server.MergeLoadM7Model("/tmp/missing.cfg", 0, 0), 0); }),
              "open[/tmp/missing.cfg] failed!\n");
    EXPECT_EQ(m_server.LoadM7Model(nullptr, 0), 0);
}

TEST_F(MergeLoadTest, SkippedItemsInversionAndKeptFlags)
{
    ASSERT_EQ(m_server.LoadIgnoreM7List(), 1);
    SetM7Item("test.reboot", "kept", 0);
    Write("/tmp/c.cfg", "test.ignored = x\ntest.encrypt = secret\ntest.reboot = new\ntest.encreboot = y\n"
                        "test.invert = 1\ntest.both = 7\nunknown.item = u\n");
    EXPECT_EQ(Printed([&] { EXPECT_EQ(m_server.MergeLoadM7Model("/tmp/c.cfg", 0, 1), 1); }),
              "IgnoreUserCfg: skip:[test.ignored]\nMergeLoadM7Model: skip:[test.encrypt]\n"
              "MergeLoadM7Model: skip:[test.reboot]\nMergeLoadM7Model: skip:[test.encreboot]\n");
    EXPECT_EQ(Value("test.ignored"), "<absent>");
    EXPECT_EQ(Value("test.encrypt"), "<absent>");
    EXPECT_EQ(Value("test.reboot"), "kept");
    EXPECT_EQ(Value("test.invert"), "0");
    EXPECT_EQ(Value("test.both"), "0") << "inverted: 7 is not 0";
    EXPECT_EQ(FindM7Item("test.invert")->attr, 0x1000u);
    EXPECT_EQ(FindM7Item("unknown.item")->attr, 0u);

    // Without the switch values stay as written; a re-merge keeps the flags the item has.
    FindM7Item("test.invert")->attr = 0x4;
    Write("/tmp/d.cfg", "test.invert = 1\n");
    EXPECT_EQ(m_server.MergeLoadM7Model("/tmp/d.cfg", 0, 0), 1);
    EXPECT_EQ(Value("test.invert"), "1");
    EXPECT_EQ(FindM7Item("test.invert")->attr, 0x4u);
}

TEST_F(MergeLoadTest, IgnoreListLoader)
{
    Write("/phone/resource/autopIgnroeM7.xml",
          "<data><item M7=\"a.b\" length=\"3\"/><other M7=\"x\"/><item length=\"0\"/><item M7=\"no.length\"/></data>");
    ASSERT_EQ(m_server.LoadIgnoreM7List(), 1);
    ASSERT_EQ(ignoreM7List.Count(), 3u);
    CM7IgnoreNode* pNode = ignoreM7List.First();
    EXPECT_STREQ(pNode->item.pattern.c_str(), "a.b");
    EXPECT_EQ(pNode->item.length, 3);
    EXPECT_STREQ(pNode->pNext->item.pattern.c_str(), "");
    EXPECT_EQ(pNode->pNext->item.length, 0);
    EXPECT_EQ(pNode->pNext->pNext->item.length, -1);
    for (const char* szBad : {"<notdata/>", "not xml <<"}) {
        ignoreM7List.Clear();
        Write("/phone/resource/autopIgnroeM7.xml", szBad);
        EXPECT_EQ(m_server.LoadIgnoreM7List(), 0) << szBad;
        EXPECT_EQ(ignoreM7List.Count(), 0u);
    }
}

// Names are looked up a batch of lines at a time; a name that comes back within a batch, across
// a batch's end or much later must behave as if every line were applied on its own, and the
// messages must keep the file's order.
TEST_F(MergeLoadTest, RepeatedNamesNearAndFarKeepLineOrder)
{
    ASSERT_EQ(m_server.LoadIgnoreM7List(), 1);
    // Line i names item (i * 7) % 23, so repeats come at distances 23, 46, ... and mix with
    // the batch boundaries; every 10th line is ignored, every 13th repeats its predecessor.
    std::string strText = "#!version:1.0.0.1\n";
    std::vector<std::string> vecNames;
    for (int i = 0; i < 300; ++i) {
        std::string strName = "rep." + std::to_string((i * 7) % 23);
        strName = i == 150 ? "old.item" : i % 10 == 0 ? "test.ignored" : i % 13 == 0 ? vecNames.back() : strName;
        vecNames.push_back(strName);
        strText += strName + " = v" + std::to_string(i) + "\n";
    }
    Write("/tmp/rep.cfg", strText);
    for (int bSkip = 0; bSkip <= 1; ++bSkip) {
        ClearM7Model();
        SetM7Item("old.item", "before", 0);
        std::vector<std::string> vecOrder = {"old.item"};
        std::map<std::string, std::string> mapValue = {{"old.item", "before"}};
        std::string strExpected;
        for (size_t i = 0; i < vecNames.size(); ++i) {
            const std::string& strName = vecNames[i];
            if (strName == "test.ignored")
                strExpected += "IgnoreUserCfg: skip:[test.ignored]\n";
            else if (mapValue.count(strName) == 0)
                vecOrder.push_back(strName);
            else if (bSkip != 0)
                strExpected += "MergeLoadM7Model: skip repetition:[" + strName + "] \n";
            if (strName != "test.ignored" && (bSkip == 0 || mapValue.count(strName) == 0))
                mapValue[strName] = "v" + std::to_string(i);
        }
        EXPECT_EQ(Printed([&] { EXPECT_EQ(m_server.MergeLoadM7Model("/tmp/rep.cfg", bSkip, 0), 1); }), strExpected);
        ASSERT_EQ(m7ItemList.Count(), vecOrder.size());
        EXPECT_EQ(m7ItemMap.Count(), vecOrder.size());
        size_t n = 0;
        for (CM7ListNode* pNode = m7ItemList.First(); pNode != m7ItemList.End(); pNode = pNode->pNext, ++n) {
            EXPECT_EQ(pNode->pItem->name.c_str(), vecOrder[n]);
            EXPECT_EQ(Value(vecOrder[n]), mapValue[vecOrder[n]]) << vecOrder[n] << " skip " << bSkip;
        }
    }
}
