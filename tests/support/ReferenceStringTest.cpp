// The text string: sharing, private copies, cutting, growth, concatenation and formatting.
#include "chReferenceStringT.h"
#include "chTextArena.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using ETL_StringHelper::chStringA;
using ETL_StringHelper::chStringData;
using ETL_StringHelper::fmtEstimateLength;
using ETL_StringHelper::fmtString;

namespace {

// Every byte behind the text, through the terminator position, must stay zero.
bool ZeroBehindText(const chStringA& str)
{
    chStringData* pData = str.GetData();
    for (int i = static_cast<int>(std::strlen(str.c_str())); pData != nullptr && i <= pData->nCapacity; ++i) {
        if (pData->Text()[i] != '\0')
            return false;
    }
    return true;
}

} // namespace

TEST(ReferenceString, CopiesShareUntilOneWritesAndCutsKeepAZeroTail)
{
    chStringA a("abc");
    chStringA b(a);
    EXPECT_EQ(a.GetData(), b.GetData());
    EXPECT_EQ(a.GetData()->nRefs, 2);
    // The first writer gets a private block that still holds the whole text; then the same
    // request cuts.
    chStringData* pPrivate = b.PrepareTextBuffer(1);
    EXPECT_NE(pPrivate, a.GetData());
    EXPECT_STREQ(b.c_str(), "abc");
    EXPECT_EQ(a.GetData()->nRefs, 1);
    b.PrepareTextBuffer(1);
    EXPECT_STREQ(b.c_str(), "a");
    EXPECT_EQ(b.GetLength(), 1);
    EXPECT_TRUE(ZeroBehindText(b));
    EXPECT_STREQ(a.c_str(), "abc");

    // Round-16 capacities, never doubled; growth keeps the text.
    chStringA g("0123456789abcdef");
    g.PrepareTextBuffer(20);
    EXPECT_EQ(g.GetData()->nCapacity, 32);
    EXPECT_STREQ(g.c_str(), "0123456789abcdef");
    EXPECT_TRUE(ZeroBehindText(g));
    chStringA h;
    h.PrepareTextBuffer(33);
    EXPECT_EQ(h.GetData()->nCapacity, 48);

    // Empty text: a sole owner keeps its block, zeroed; a shared string becomes the sentinel.
    chStringA sole("abcdef");
    chStringData* pBlock = sole.GetData();
    sole = "";
    EXPECT_EQ(sole.GetData(), pBlock);
    EXPECT_EQ(pBlock->nLength, 0);
    EXPECT_TRUE(ZeroBehindText(sole));
    chStringA shared("abcdef");
    chStringA other(shared);
    shared = "";
    EXPECT_EQ(shared.GetData(), nullptr);
    EXPECT_EQ(shared.c_str(), ETL_StringHelper::szNULL);
    EXPECT_STREQ(other.c_str(), "abcdef");
}

TEST(ReferenceString, CopyFromOwnTextAndConcatenation)
{
    chStringA t("hello world, this text is longer than sixteen");
    t.CopyTextFrom(t.c_str() + 6, -1);
    EXPECT_STREQ(t.c_str(), "world, this text is longer than sixteen");
    t.CopyTextFrom("abcdef", 3);
    EXPECT_STREQ(t.c_str(), "abc");
    EXPECT_EQ(t.GetLength(), 3);

    chStringA ab("ab");
    chStringA abcd = ab + "cd";
    EXPECT_STREQ(abcd.c_str(), "abcd");
    EXPECT_EQ(abcd.GetLength(), 4);
    EXPECT_STREQ(ab.c_str(), "ab") << "the left string never changes";
    chStringA same = ab + "";
    EXPECT_EQ(same.GetData(), ab.GetData());
    chStringA empty;
    EXPECT_EQ((empty + "").GetData(), nullptr);
    EXPECT_STREQ((empty + "xyz").c_str(), "xyz");

    // A length of -1 is measured when the string is appended to.
    chStringA m;
    chStringData* pData = m.PrepareTextBuffer(10);
    std::memcpy(pData->Text(), "12345", 5);
    pData->nLength = -1;
    chStringA joined = m + "67";
    EXPECT_STREQ(joined.c_str(), "1234567");
    EXPECT_EQ(joined.GetLength(), 7);
}

TEST(ReferenceString, FormatEstimateAndResult)
{
    // Results of the common conversions are compared with snprintf by the fuzz target; here the
    // estimate itself and the cases the target does not build.
    const char* volatile szNull = nullptr;
    EXPECT_EQ(fmtEstimateLength("%s", szNull), 6);
    EXPECT_EQ(fmtEstimateLength("%5.2s", "abcdef"), 5);
    EXPECT_EQ(fmtEstimateLength("100%%"), 4);
    std::string strLong(10000, 'x');
    EXPECT_EQ(std::string(fmtString("<%s>", strLong.c_str()).c_str()), "<" + strLong + ">");

    // A star width is consumed but not counted: the result is cut to the estimate, never overrun.
    EXPECT_EQ(fmtEstimateLength("%*d", 100, 5), 32);
    chStringA star = fmtString("%*d", 100, 5);
    EXPECT_EQ(star.GetLength(), 32);
    EXPECT_EQ(std::strlen(star.c_str()), 32u);
}

// Arena strings behave as ordinary ones, are never written in place, and their chunk is free again
// once the last string holding one of its blocks is gone, whatever path let go of it.
TEST(TextArena, StringsReadAsOrdinaryOnesAndChunksGoBackWithTheirLastBlock)
{
    size_t nBefore = ETL_StringHelper::chTextArena::ChunksInUse();
    {
        ETL_StringHelper::chTextArena arena;
        chStringA name = arena.Make("account.1.label=x", 15);
        EXPECT_STREQ(name.c_str(), "account.1.label");
        EXPECT_EQ(name.GetLength(), 15);
        EXPECT_TRUE(ZeroBehindText(name));
        EXPECT_TRUE(arena.Make("", 3).IsEmpty());
        EXPECT_STREQ(arena.Make("ab\0cd", 5).c_str(), "ab");

        chStringA copy = name;
        copy.PrepareTextBuffer(4); // a writer gets its own block; the arena's stays as it was
        copy.PrepareTextBuffer(4);
        EXPECT_NE(copy.GetData(), name.GetData());
        EXPECT_STREQ(copy.c_str(), "acco");
        EXPECT_STREQ(name.c_str(), "account.1.label");
        chStringA grown = name + ".2";
        EXPECT_STREQ(grown.c_str(), "account.1.label.2");

        // Enough blocks to fill more than one chunk; each let go by a different path.
        std::vector<chStringA> vecTexts;
        for (int i = 0; i < 3000; ++i)
            vecTexts.push_back(arena.Make("value_of_some_length_0123456789", 31));
        EXPECT_GE(ETL_StringHelper::chTextArena::ChunksInUse(), nBefore + 2);
        for (size_t i = 0; i < vecTexts.size(); ++i) {
            if (i % 3 == 0)
                vecTexts[i] = "";
            else if (i % 3 == 1)
                vecTexts[i].CopyTextFrom("other", -1);
        }
        vecTexts.clear();
        name = "";
        copy = chStringA();
    }
    EXPECT_EQ(ETL_StringHelper::chTextArena::ChunksInUse(), nBefore);
}
