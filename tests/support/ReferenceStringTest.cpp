// The text string: sharing, private copies, cutting, growth, concatenation and formatting.
#include "chReferenceStringT.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

using ETL_StringHelper::chStringA;
using ETL_StringHelper::chStringData;
using ETL_StringHelper::fmtEstimateLength;
using ETL_StringHelper::fmtString;

namespace {

// Every byte behind the text, through the terminator position, must stay zero.
bool ZeroBehindText(const chStringA& str)
{
    chStringData* pData = str.GetData();
    if (pData == nullptr)
        return true;
    size_t nLen = std::strlen(str.c_str());
    for (int i = static_cast<int>(nLen); i <= pData->nCapacity; ++i) {
        if (pData->Text()[i] != '\0')
            return false;
    }
    return true;
}

} // namespace

TEST(ReferenceString, CopiesShareUntilOneWrites)
{
    chStringA a("abc");
    chStringA b(a);
    ASSERT_NE(a.GetData(), nullptr);
    EXPECT_EQ(a.GetData(), b.GetData());
    EXPECT_EQ(a.GetData()->nRefs, 2);

    // The first writer gets a private block that still holds the whole text.
    chStringData* pPrivate = b.PrepareTextBuffer(1);
    EXPECT_NE(pPrivate, a.GetData());
    EXPECT_STREQ(b.c_str(), "abc");
    EXPECT_EQ(pPrivate->nLength, 3);
    EXPECT_EQ(pPrivate->nCapacity, 16);
    EXPECT_EQ(a.GetData()->nRefs, 1);
    EXPECT_STREQ(a.c_str(), "abc");

    // Now the sole owner: the same request cuts.
    b.PrepareTextBuffer(1);
    EXPECT_STREQ(b.c_str(), "a");
    EXPECT_EQ(b.GetLength(), 1);
    EXPECT_TRUE(ZeroBehindText(b));
}

TEST(ReferenceString, CutAndGrowKeepZeroTail)
{
    chStringA s("abcdefgh");
    s.PrepareTextBuffer(5);
    EXPECT_STREQ(s.c_str(), "abcde");
    EXPECT_EQ(s.GetLength(), 5);
    EXPECT_EQ(s.GetData()->nCapacity, 16);
    EXPECT_TRUE(ZeroBehindText(s));

    chStringA g("0123456789abcdef");
    ASSERT_EQ(g.GetData()->nCapacity, 16);
    g.PrepareTextBuffer(20);
    EXPECT_EQ(g.GetData()->nCapacity, 32);
    EXPECT_STREQ(g.c_str(), "0123456789abcdef");
    EXPECT_TRUE(ZeroBehindText(g));

    // Round-16 capacities, never doubled.
    chStringA h;
    h.PrepareTextBuffer(33);
    EXPECT_EQ(h.GetData()->nCapacity, 48);
    chStringA z;
    z.PrepareTextBuffer(0);
    EXPECT_EQ(z.GetData()->nCapacity, 16);
}

TEST(ReferenceString, EmptyTextAssignment)
{
    chStringA sole("abcdef");
    chStringData* pBlock = sole.GetData();
    sole = "";
    EXPECT_EQ(sole.GetData(), pBlock) << "a sole owner keeps its block";
    EXPECT_EQ(pBlock->nCapacity, 16);
    EXPECT_EQ(pBlock->nLength, 0);
    for (int i = 0; i <= pBlock->nCapacity; ++i)
        EXPECT_EQ(pBlock->Text()[i], '\0');

    chStringA shared("abcdef");
    chStringA other(shared);
    shared = "";
    EXPECT_EQ(shared.GetData(), nullptr) << "a shared string becomes the sentinel";
    EXPECT_STREQ(other.c_str(), "abcdef");
    EXPECT_EQ(other.GetData()->nRefs, 1);
    EXPECT_EQ(shared.c_str(), ETL_StringHelper::szNULL);
}

TEST(ReferenceString, CopyTextFromCountsAndOwnText)
{
    chStringA s;
    s.CopyTextFrom("abcdef", 3);
    EXPECT_STREQ(s.c_str(), "abc");
    EXPECT_EQ(s.GetLength(), 3);
    EXPECT_EQ(s.GetData()->nCapacity, 16);

    // Text from inside the string's own block, behind its start.
    chStringA t("hello world, this text is longer than sixteen");
    t.CopyTextFrom(t.c_str() + 6, -1);
    EXPECT_STREQ(t.c_str(), "world, this text is longer than sixteen");
    t = t.c_str();
    EXPECT_STREQ(t.c_str(), "world, this text is longer than sixteen");
}

TEST(ReferenceString, Concatenation)
{
    chStringA ab("ab");
    chStringA abcd = ab + "cd";
    EXPECT_STREQ(abcd.c_str(), "abcd");
    EXPECT_EQ(abcd.GetData()->nCapacity, 16);
    EXPECT_EQ(abcd.GetData()->nLength, 4);
    EXPECT_NE(abcd.GetData(), ab.GetData());
    EXPECT_STREQ(ab.c_str(), "ab") << "the left string never changes";

    chStringA same = ab + "";
    EXPECT_EQ(same.GetData(), ab.GetData());
    EXPECT_EQ(ab.GetData()->nRefs, 2);

    chStringA empty;
    chStringA stillEmpty = empty + "";
    EXPECT_EQ(stillEmpty.GetData(), nullptr);
    chStringA fresh = empty + "xyz";
    EXPECT_STREQ(fresh.c_str(), "xyz");

    // A length of -1 is measured when the string is appended to.
    chStringA m;
    chStringData* pData = m.PrepareTextBuffer(10);
    std::memcpy(pData->Text(), "12345", 5);
    pData->nLength = -1;
    chStringA joined = m + "67";
    EXPECT_STREQ(joined.c_str(), "1234567");
    EXPECT_EQ(m.GetData()->nLength, 5);
    EXPECT_EQ(joined.GetLength(), 7);
}

TEST(ReferenceString, FormatEstimateAndResult)
{
    chStringA n = fmtString("%d", 7);
    EXPECT_STREQ(n.c_str(), "7");
    EXPECT_EQ(n.GetLength(), 1);
    EXPECT_EQ(n.GetData()->nCapacity, 32);

    chStringA minInt = fmtString("%d", INT_MIN);
    EXPECT_STREQ(minInt.c_str(), "-2147483648");
    EXPECT_EQ(minInt.GetLength(), 11);

    const char* volatile szNull = nullptr;
    EXPECT_EQ(fmtEstimateLength("%s", szNull), 6);
    EXPECT_EQ(fmtEstimateLength("%5.2s", "abcdef"), 5);
    chStringA cut = fmtString("%5.2s", "abcdef");
    EXPECT_STREQ(cut.c_str(), "   ab");

    std::string strLong(10000, 'x');
    chStringA big = fmtString("<%s>", strLong.c_str());
    EXPECT_EQ(big.GetLength(), 10002);
    EXPECT_EQ(std::string(big.c_str()), "<" + strLong + ">");

    chStringA mac = fmtString("%.2x%.2x%.2x%.2x%.2x%.2x", 0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f);
    EXPECT_STREQ(mac.c_str(), "0a1b2c3d4e5f");
    chStringA u = fmtString("%u", 4294967295u);
    EXPECT_STREQ(u.c_str(), "4294967295");

    // A star width is consumed but not counted: the result is cut to the estimate, never overrun.
    EXPECT_EQ(fmtEstimateLength("%*d", 100, 5), 32);
    chStringA star = fmtString("%*d", 100, 5);
    EXPECT_EQ(star.GetLength(), 32);
    EXPECT_EQ(std::strlen(star.c_str()), 32u);
    EXPECT_EQ(fmtEstimateLength("100%%"), 4);
}
