// Value conversions and the ignore-list rule (the skip reasons show in the writer's output).
#include "M7Ignore.h"
#include "M7Mapping.h"
#include "M7Store.h"

#include <gtest/gtest.h>
#include <string>
#include <tuple>

namespace {

std::string Convert(const char* szValue, uint32_t nFlags)
{
    char szOut[64];
    return RegistryToItemValue(szValue, nFlags, szOut, sizeof(szOut));
}

} // namespace

TEST(M7Mapping, RegistryToItemConversions)
{
    // strtol's reading: no number is 0, leading blanks and trailing letters are passed over.
    const std::tuple<const char*, uint32_t, const char*> kCases[] = {
        {"0", ATTR_BASE0, "1"},    {"abc", ATTR_BASE0, "1"},   {"7", 0, "7"},
        {"0", ATTR_INVERT, "1"},   {"1", ATTR_INVERT, "0"},    {"5", ATTR_INVERT, "0"},
        {"-1", ATTR_INVERT, "0"},  {"xyz", ATTR_INVERT, "1"},  {"0", ATTR_BASE0 | ATTR_INVERT, "0"},
        {"-1", ATTR_BASE0 | ATTR_INVERT, "1"}, {" 12abc", ATTR_BASE0, "13"}};
    for (const auto& c : kCases)
        EXPECT_EQ(Convert(std::get<0>(c), std::get<1>(c)), std::get<2>(c)) << std::get<0>(c) << " " << std::get<1>(c);
}

TEST(M7Mapping, IgnoreListRules)
{
    ignoreM7List.Clear();
    EXPECT_EQ(IgnoreUserCfg("anything"), 0) << "an empty list ignores nothing";

    ignoreM7List.Append("network.vlan", 0);
    ignoreM7List.Append("features.", 9);
    ignoreM7List.Append("never.matches", -1);
    ignoreM7List.Append("account.NN..sip_server", 10);
    ignoreM7List.Append("account.", 3);

    EXPECT_EQ(IgnoreUserCfg("network.vlan"), 1) << "length 0: exact";
    EXPECT_EQ(IgnoreUserCfg("network.vlan.id"), 0);
    EXPECT_EQ(IgnoreUserCfg("features.dnd"), 1) << "positive length: prefix";
    EXPECT_EQ(IgnoreUserCfg("features"), 0);
    EXPECT_EQ(IgnoreUserCfg("never.matches"), 0) << "negative length never matches";

    // Account names compare what follows the second dot with the pattern from index 12, here
    // "sip_server": the first twelve characters stand for "account.N." of any width.
    EXPECT_EQ(IgnoreUserCfg("account.1.sip_server.1.address"), 1);
    EXPECT_EQ(IgnoreUserCfg("account.15.sip_server.2.port"), 1) << "whatever the account number";
    EXPECT_EQ(IgnoreUserCfg("account.3.sip_serve"), 0);
    EXPECT_EQ(IgnoreUserCfg("account.3"), 0) << "no second dot: no positive-length match";
    // "account." is shorter than 12: its tail is empty, so it matches only an empty name tail.
    EXPECT_EQ(IgnoreUserCfg("account.2."), 1);
    EXPECT_EQ(IgnoreUserCfg("account.2.x"), 0);
    ignoreM7List.Clear();
    EXPECT_EQ(ignoreM7List.Count(), 0u);
}
