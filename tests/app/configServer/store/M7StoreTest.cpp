// The item table: insertion order, replacement, hashing into the fixed buckets, growth and
// clearing, and the item setter's rules.
#include "M7Mapping.h"
#include "M7Store.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

std::vector<std::string> NamesInOrder()
{
    std::vector<std::string> vecNames;
    for (CM7ListNode* pNode = m7ItemList.First(); pNode != m7ItemList.End(); pNode = pNode->pNext)
        vecNames.push_back(pNode->pItem->name.c_str());
    return vecNames;
}

class M7StoreTest : public ::testing::Test {
protected:
    void SetUp() override { ClearM7Model(); }
};

} // namespace

TEST_F(M7StoreTest, ReplacementKeepsPlace)
{
    EXPECT_TRUE(SetM7Item("b.one", "1", 0)) << "a set item makes an upload due";
    EXPECT_TRUE(SetM7Item("b.one", "1", 0)) << "the same value again too";
    SetM7Item("a.two", "2", 0);
    SetM7Item("b.one", "changed", 0x2);
    SetM7Item("B.ONE", "other case", 0);
    EXPECT_FALSE(SetM7Item(nullptr, "x", 0));
    EXPECT_FALSE(SetM7Item("x.y", nullptr, 0));
    EXPECT_EQ(NamesInOrder(), (std::vector<std::string>{"b.one", "a.two", "B.ONE"})) << "a null name or value sets nothing";
    EXPECT_EQ(m7ItemMap.Count(), 3u);
    EXPECT_STREQ(FindM7Item("b.one")->value.c_str(), "changed");
    EXPECT_EQ(FindM7Item("b.one")->attr, 0x2u);
    EXPECT_EQ(FindM7Item("B.one"), nullptr);
}

TEST_F(M7StoreTest, HashBucketsMatchHandComputedValues)
{
    EXPECT_EQ(m7ItemMap.BucketOf("", 0), 0u);
    EXPECT_EQ(m7ItemMap.BucketOf("a", 1), 97u);
    EXPECT_EQ(m7ItemMap.BucketOf("ab", 2), 805u);
    EXPECT_EQ(m7ItemMap.BucketOf("\xff\xfe", 2), 659u) << "bytes above 127 count as unsigned";
    EXPECT_EQ(m7ItemMap.BucketOf("account.1.enable", 16), 961u) << "wraps in 32 bits";
    EXPECT_EQ(m7ItemMap.BucketOf("\xc3\xa9t\xc3\xa9", 5), 516u);

    SetM7Item("", "empty name", 0);
    SetM7Item("ab", "x", 0);
    ASSERT_NE(m7ItemMap.BucketHead(0), nullptr);
    EXPECT_EQ(m7ItemMap.BucketHead(0)->nBucket, 0u);
    EXPECT_STREQ(m7ItemMap.BucketHead(805)->strKey.c_str(), "ab");
    EXPECT_STREQ(FindM7Item("")->value.c_str(), "empty name");
}

TEST_F(M7StoreTest, TheSetterAppliesOnlyTheBase0Rule)
{
    const char* const kCases[][3] = {
        {"0", "1", ""}, {"abc", "1", ""}, {"-1", "0", ""}, {"2147483647", "-2147483648", " (32-bit wrap, as on the phone)"}};
    for (const auto& c : kCases) {
        SetM7Item((std::string("line.") + c[0]).c_str(), c[0], ATTR_BASE0);
        EXPECT_STREQ(FindM7Item((std::string("line.") + c[0]).c_str())->value.c_str(), c[1]) << c[0] << c[2];
    }
    SetM7Item("plain.value", "0", ATTR_INVERT);
    EXPECT_STREQ(FindM7Item("plain.value")->value.c_str(), "0") << "the setter applies only the base-0 rule";
}

TEST_F(M7StoreTest, LookupsHoldAcrossGrowthAndClear)
{
    // Enough names to grow the lookup index and the node pool many times over.
    const int kItems = 20000;
    for (int nRound = 0; nRound < 2; ++nRound) {
        for (int i = 0; i < kItems; ++i)
            SetM7Item(("grow." + std::to_string(i)).c_str(), std::to_string(i * 3 + nRound).c_str(), 0);
        ASSERT_EQ(m7ItemMap.Count(), static_cast<uint32_t>(kItems));
        for (int i = 0; i < kItems; ++i) {
            const CM7Item* pItem = FindM7Item(("grow." + std::to_string(i)).c_str());
            ASSERT_NE(pItem, nullptr) << i;
            ASSERT_STREQ(pItem->value.c_str(), std::to_string(i * 3 + nRound).c_str()) << i;
        }
        EXPECT_EQ(FindM7Item(("grow." + std::to_string(kItems)).c_str()), nullptr);
        ClearM7Model();
        EXPECT_EQ(m7ItemList.Count(), 0u);
        EXPECT_EQ(FindM7Item("grow.1"), nullptr);
    }
}
