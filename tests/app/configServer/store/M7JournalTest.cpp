// The change journal's ring (bound, wrap, cuts, hidden values, origins; the bulk origin is
// InspectTest's) and the item listing the inspection messages answer with.
#include "LiveView.h"
#include "M7Journal.h"
#include "M7Mapping.h"
#include "M7Store.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string Lines(const CM7Journal& journal)
{
    std::string strOut;
    for (size_t i = 0; i < journal.Count(); ++i) {
        std::string strLine;
        CM7Journal::AppendLine(journal.At(i), strLine);
        strOut += strLine.substr(strLine.find(' ') + 1); // without the time
    }
    return strOut;
}

} // namespace

TEST(M7Journal, RingKeepsTheNewestInOrderSkipsUnchangedValuesCutsAndHides)
{
    // Long texts are cut, secrets hidden, and origins nest (none is in force at first).
    CM7Journal cut(8);
    std::string strLong(5000, 'L');
    chStringA strQuoted("a\"b\\c\td");
    {
        CM7ChangeOrigin outer(CM7ChangeOrigin::EACH, "registry /config/t.ini [S] plain");
        cut.RecordChange(chStringA("long.item"), &strQuoted, chStringA(strLong.c_str()), 0);
        {
            CM7ChangeOrigin inner(CM7ChangeOrigin::EACH, "key layout set 3 module -1 keys 1,2");
            cut.RecordChange(chStringA("secret.item"), &strQuoted, chStringA("pw"), ATTR_ENCRYPT);
            cut.RecordChange(chStringA("secret.new"), nullptr, chStringA("pw"), ATTR_ENCRYPT);
        }
        cut.RecordChange(chStringA("back.outer"), nullptr, chStringA(""), 0);
    }
    cut.RecordChange(chStringA("no.origin"), nullptr, chStringA("1"), 0);
    EXPECT_EQ(cut.At(0).strNew.GetLength(), CM7Journal::kMaxText);
    EXPECT_EQ(Lines(cut), "long.item \"a\\\"b\\\\c\\x09d\" -> \"" + std::string(CM7Journal::kMaxText, 'L') +
                          "\"... registry /config/t.ini [S] plain\n"
                          "secret.item <hidden> -> <hidden> key layout set 3 module -1 keys 1,2\n"
                          "secret.new - -> <hidden> key layout set 3 module -1 keys 1,2\n"
                          "back.outer - -> \"\" registry /config/t.ini [S] plain\n"
                          "no.origin - -> \"1\" unknown\n");
    EXPECT_FALSE(CM7Journal::Concerns(cut.At(1), "secret.ite", 10));
    EXPECT_TRUE(CM7Journal::Concerns(cut.At(1), "secret.item", 11));

    // The ring.
    CM7Journal journal(4);
    CM7ChangeOrigin origin(CM7ChangeOrigin::EACH, "reload mode 0 /tmp/a.cfg");
    chStringA strName("a.item");
    journal.RecordChange(strName, nullptr, chStringA("v0"), 0);
    for (int i = 1; i <= 5; ++i) {
        chStringA strPrev(("v" + std::to_string(i - 1)).c_str());
        journal.RecordChange(strName, &strPrev, chStringA(("v" + std::to_string(i)).c_str()), 0);
        journal.RecordChange(strName, &strPrev, strPrev, 0); // same value: no entry
    }
    EXPECT_EQ(journal.Count(), 4u);
    EXPECT_EQ(journal.Capacity(), 4u);
    EXPECT_EQ(Lines(journal), "a.item \"v1\" -> \"v2\" reload mode 0 /tmp/a.cfg\n"
                              "a.item \"v2\" -> \"v3\" reload mode 0 /tmp/a.cfg\n"
                              "a.item \"v3\" -> \"v4\" reload mode 0 /tmp/a.cfg\n"
                              "a.item \"v4\" -> \"v5\" reload mode 0 /tmp/a.cfg\n");
    // Wrapping many times over leaves the same bound and order.
    for (int i = 0; i < 1001; ++i)
        journal.RecordClear(static_cast<uint32_t>(i));
    EXPECT_EQ(journal.Count(), 4u);
    EXPECT_EQ(Lines(journal), "* (997 items) -> - reload mode 0 /tmp/a.cfg\n* (998 items) -> - reload mode 0 /tmp/a.cfg\n"
                              "* (999 items) -> - reload mode 0 /tmp/a.cfg\n* (1000 items) -> - reload mode 0 /tmp/a.cfg\n");
    EXPECT_TRUE(CM7Journal::Concerns(journal.At(0), "any.item", 8)) << "a clearing concerns every item";
}

// The store's journal entries and the listing's limit are followed with the running service
// (InspectTest).
TEST(M7Journal, TheListingHidesSecrets)
{
    ClearM7Model();
    SetM7Item("insp.a", "1", 0);
    SetM7Item("insp.a", "2", 0);
    SetM7Item("insp.secret", "pw", ATTR_ENCRYPT);
    SetM7Item("insp.reboot", "r", ATTR_REBOOT);
    SetM7Item("other", "", 0);

    ETL_MsgQueueHelper::chInspectProvider& inspector = ConfigInspector();
    std::string strOut;
    int nLeft = 0;
    EXPECT_EQ(inspector.AppendItems("insp.", 5, 65000, strOut, nLeft), 3);
    EXPECT_EQ(strOut, "insp.a = 2\ninsp.secret = <hidden>\ninsp.reboot = r\n");
    EXPECT_EQ(nLeft, 0);
    ClearM7Model();
}
