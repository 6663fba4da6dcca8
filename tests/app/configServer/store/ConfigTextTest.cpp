// The configuration text: how lines split into names and values, where reading stops, how lines
// are written, and which files count as not being text.
#include "ConfigText.h"
#include "ServiceFixture.h"

#include <utility>
#include <vector>

using ETL_StringHelper::chStringA;

namespace {

class ConfigTextTest : public ServiceRootTest {
protected:
    std::vector<std::pair<std::string, std::string>> ReadAll(const std::string& strContent)
    {
        Write("/tmp/in.cfg", strContent);
        std::vector<std::pair<std::string, std::string>> vecItems;
        CM7LineReader reader;
        EXPECT_NE(reader.Open("/tmp/in.cfg"), 0);
        chStringA strName, strValue;
        while (reader.Next(strName, strValue) != 0)
            vecItems.emplace_back(strName.c_str(), strValue.c_str());
        return vecItems;
    }
};

typedef std::vector<std::pair<std::string, std::string>> Items;

} // namespace

TEST_F(ConfigTextTest, SplittingAndTrimming)
{
    // Each line and the item it gives (none for a null name).
    const char* const kLines[][3] = {{"#!version:1.0.0.1\n", nullptr, nullptr},
                                     {"a.b = 1\n", "a.b", "1"},
                                     {"a.c=1\n", "a.c", "1"},
                                     {"  spaced.name   =   inner  blanks  \t\n", "spaced.name", "inner  blanks"},
                                     {"url = http://x/?a=b\n", "url", "http://x/?a=b"},
                                     {"empty =\n", "empty", ""},
                                     {"blank =    \n", "blank", ""},
                                     {"= no name\n", nullptr, nullptr},
                                     {"no equals sign\n", nullptr, nullptr},
                                     {"   # indented comment = x\n", nullptr, nullptr},
                                     {"hash = value # not a comment\n", "hash", "value # not a comment"},
                                     {"crlf = dos\r\n", "crlf", "dos"},
                                     {"null = %NULL%\n", "null", "%NULL%"},
                                     {"[no closing bracket = still an item\n", "[no closing bracket", "still an item"},
                                     {"last = no line end", "last", "no line end"}};
    std::string strText;
    Items expected;
    for (const auto& line : kLines) {
        strText += line[0];
        if (line[1] != nullptr)
            expected.emplace_back(line[1], line[2]);
    }
    EXPECT_EQ(ReadAll(strText), expected);
}

TEST_F(ConfigTextTest, SectionLineEndsTheTextAndMarksAreKept)
{
    EXPECT_EQ(ReadAll("a = 1\n  [section]\nb = 2\n"), (Items{{"a", "1"}}));
    EXPECT_EQ(ReadAll("\xEF\xBB\xBF#x = 1\nb = 2\n"), (Items{{"\xEF\xBB\xBF#x", "1"}, {"b", "2"}}))
        << "a byte-order mark is not removed, so the first line is no comment";
    // A 3 MiB line read whole, then 440 KB of lines of every length up to 292 bytes: the reader's
    // chunk borders fall inside names, values and line ends alike.
    Items many{{"big", std::string(3 * 1024 * 1024, 'v')}};
    std::string strMany = "big = " + many[0].second + "\n";
    for (int i = 0; i < 3000; ++i) {
        many.emplace_back("n" + std::to_string(i), std::string(static_cast<size_t>(i % 293), static_cast<char>('a' + i % 26)));
        strMany += many.back().first + " = " + many.back().second + (i % 7 == 0 ? "\r\n" : "\n");
    }
    strMany += "tail = end";
    many.emplace_back("tail", "end");
    EXPECT_EQ(ReadAll(strMany), many);
    Items nul = ReadAll(std::string("x = a\0b\n", 8) + std::string("\0y = 1\n", 7) + "z = 2\n");
    EXPECT_EQ(nul, (Items{{"x", "a"}, {"z", "2"}})) << "text after a NUL byte is not read";

    CM7LineReader reader;
    EXPECT_EQ(reader.Open("/tmp/missing.cfg"), 0);
    testutil::MakeParents(Real("/tmp/dir.cfg/x"));
    EXPECT_EQ(reader.Open("/tmp/dir.cfg"), 0) << "a directory is not a configuration text";
}

TEST_F(ConfigTextTest, LineWriterLineFeedRule)
{
    std::string strLines;
    auto Line = [&](const char* szName, const char* szValue, bool bAllNull) {
        AppendM7ItemLine(strLines, chStringA(szName), chStringA(szValue), bAllNull);
    };
    Line("a", "1", false);
    Line("b", "", false);
    Line("c", "x", true);
    Line("d", "ends\n", false);
    Line("e", "ends\n\r\r", false);
    Line("f", "cr\r", false);
    EXPECT_EQ(strLines, "a = 1\nb = %NULL%\nc = %NULL%\nd = ends\ne = ends\n\r\rf = cr\r\n");
}

TEST_F(ConfigTextTest, NonTextSniffing)
{
    EXPECT_EQ(IsNonTextConfigFile(nullptr), 1);
    EXPECT_EQ(IsNonTextConfigFile("/tmp/does-not-exist"), 0);
    const std::pair<std::string, int> kCases[] = {
        {std::string(22, '\xff'), 0},                        // too short to judge
        {"#comment \xff\xfe and more bytes", 0},
        {"abcdefghij\xff" "klmnopqrstuvwxyz", 1},
        {"\xEF\xBB\xBF;comment \xff and more text", 0},
        {"\n#comment \xff more bytes here", 1},                // a line feed clears the start
        {" \t\r#x \xff\xff\xff more bytes here", 0},          // blanks keep the start
        {"plain = text, nothing odd here", 0},
        {std::string(19, 'a') + "\xff\xff\xff\xff", 1},
        {std::string(20, 'a') + "\xff\xff\xff", 0}};         // only the first 20 bytes count
    for (const auto& c : kCases) {
        Write("/tmp/sniff", c.first);
        EXPECT_EQ(IsNonTextConfigFile("/tmp/sniff"), c.second) << c.first;
    }
}
