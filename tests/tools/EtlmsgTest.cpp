// etlmsg: the listen line format, exit statuses and usage errors.
#include "ProcessHarness.h"

#include <gtest/gtest.h>
#include <utility>

using testutil::Etlmsg;
using testutil::TempDir;
using testutil::ToolResult;

TEST(Etlmsg, ListenPrintsOneExactLinePerMessageAndExitStatuses)
{
    TempDir root;
    testutil::Child listener;
    ASSERT_TRUE(listener.Start({testutil::EtlmsgBin(), "listen", "autoServer", "--count", "3"}, root.Path(),
                               root.Path()));
    ASSERT_EQ(Etlmsg(root.Path(), {"wait", "autoServer"}).nExit, 0);
    EXPECT_EQ(Etlmsg(root.Path(), {"post", "autoServer", "0xb0209", "0", "0", "--text", "/tmp/mac-locl-autop.cfg"}).nExit, 0);
    EXPECT_EQ(Etlmsg(root.Path(), {"post", "autoServer", "0xb020a", "1"}).nExit, 0);
    EXPECT_EQ(Etlmsg(root.Path(), {"post", "autoServer", "17", "-3", "0x7fffffff", "--hex", "005c22ff41"}).nExit, 0);
    ASSERT_EQ(listener.Wait(10000), 0);
    EXPECT_EQ(listener.Stdout(),
              "id=0xb0209 wparam=0 lparam=0 size=24 data=\"/tmp/mac-locl-autop.cfg\\0\"\n"
              "id=0xb020a wparam=1 lparam=0 size=0 data=\"\"\n"
              "id=0x11 wparam=-3 lparam=2147483647 size=5 data=\"\\0\\\\\\\"\\xffA\"\n");

    // 2: no such thread, 3: timed out, 1: bad usage (with the usage text), all before any service.
    const std::pair<std::vector<std::string>, int> kCases[] = {
        {{"send", "nothere", "5"}, 2}, {{"post", "nothere", "5"}, 2}, {{"ping", "nothere"}, 2},
        {{"items", "nothere"}, 2}, {{"stats", "nothere"}, 2}, {{"journal", "nothere"}, 2},
        {{"wait", "nothere", "--timeout", "100"}, 3}, {{"listen", "quietThread", "--timeout", "200"}, 3},
        {{}, 1}, {{"post", "x", "notanumber"}, 1}, {{"post", "x", "1", "2", "3", "4"}, 1},
        {{"post", "x", "1", "--hex", "abc"}, 1}, {{"frobnicate"}, 1}, {{"post", "x", "0x100000000"}, 1},
        {{"items", "x", "a=b"}, 1}, {{"items", "x", "a b"}, 1}, {{"items", "x", "a\x01"}, 1},
        {{"items", "x", "caf\xc3\xa9"}, 1}, {{"journal", "x", "--item", ""}, 1}, {{"journal", "x", "--item", "x\t"}, 1},
        {{"stats", "x", "extra"}, 1}, {{"items"}, 1},
    };
    for (const auto& c : kCases) {
        ToolResult result = Etlmsg(root.Path(), c.first);
        SCOPED_TRACE(c.first.empty() ? "" : c.first.back());
        EXPECT_EQ(result.nExit, c.second);
        EXPECT_EQ(result.strErr.find("usage: etlmsg") != std::string::npos, c.second == 1) << result.strErr;
    }

    // Over the extra-data limit: refused at the sender, even to a live thread.
    ASSERT_TRUE(listener.Start({testutil::EtlmsgBin(), "listen", "bigThread", "--count", "1"}, root.Path(), root.Path()));
    ASSERT_EQ(Etlmsg(root.Path(), {"wait", "bigThread"}).nExit, 0);
    testutil::WriteFile(root.Join("big.bin"), std::string(65537, 'b'));
    ToolResult big = Etlmsg(root.Path(), {"post", "bigThread", "1", "--file", root.Join("big.bin")});
    EXPECT_EQ(big.nExit, 2);
    testutil::WriteFile(root.Join("max.bin"), std::string(65536, 'm'));
    EXPECT_EQ(Etlmsg(root.Path(), {"post", "bigThread", "2", "--file", root.Join("max.bin")}).nExit, 0);
    ASSERT_EQ(listener.Wait(10000), 0);
    EXPECT_NE(listener.Stdout().find("id=0x2 wparam=0 lparam=0 size=65536 data=\"mmm"), std::string::npos);
}
