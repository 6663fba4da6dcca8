// The one integer reader that the name library, the translator and etlmsg share.
#include "ETL_StringHelper.h"

#include <climits>
#include <gtest/gtest.h>

using ETL_StringHelper::etlParseInteger;

TEST(StringHelper, ParseIntegerTakesWholeTextsInRangeOnly)
{
    struct Case {
        const char* sz;
        int nBase;
        long long nMin, nMax;
        bool bOk;
        long long nWant;
    };
    const Case aCases[] = {
        {"2048", 0, 0, UINT_MAX, true, 2048},     {"0x800", 0, 0, UINT_MAX, true, 0x800},
        {"010", 0, 0, 100, true, 8},              {"010", 10, 0, 100, true, 10},
        {"ff", 16, 0, 0xffffffffLL, true, 255},   {"-5", 10, -10, 10, true, -5},
        {"-1", 0, 0, UINT_MAX, false, 0},         {"4294967296", 0, 0, UINT_MAX, false, 0},
        {"12abc", 10, 0, 1000, false, 0},         {"", 10, 0, 10, false, 0},
        {"0x", 0, 0, 10, false, 0},               {"99999999999999999999", 10, LLONG_MIN, LLONG_MAX, false, 0},
        {nullptr, 10, 0, 10, false, 0},
    };
    for (const Case& c : aCases) {
        long long n = -7;
        EXPECT_EQ(etlParseInteger(c.sz, c.nBase, c.nMin, c.nMax, n), c.bOk) << (c.sz ? c.sz : "(null)");
        EXPECT_EQ(n, c.bOk ? c.nWant : -7) << "written only on success: " << (c.sz ? c.sz : "(null)");
    }
}
