// Message threads: the datagram checks (a busy receiver is the flood of the fault tests).
#include "ETL_MsgQueueHelper.h"
#include "MsgWire.h"

#include <gtest/gtest.h>

using namespace ETL_MsgQueueHelper;

TEST(MsgWire, DecodeRejectsMalformedDatagrams)
{
    wire::Header header;
    header.nKind = wire::KIND_SEND;
    header.nId = 0xd0003;
    header.nWparam = -5;
    header.nLparam = 3;
    header.nSeq = 77;
    header.nSize = 4;
    std::string strGood = wire::EncodeDatagram(header, "abc");
    ASSERT_EQ(strGood.size(), 36u);
    EXPECT_EQ(strGood.substr(0, 4), "ETLM");
    EXPECT_EQ(static_cast<unsigned char>(strGood[8]), 0x03) << "little-endian id";
    auto Decode = [](const std::string& str, wire::Header& out) {
        return wire::DecodeDatagram(reinterpret_cast<const unsigned char*>(str.data()), str.size(), out);
    };
    wire::Header out;
    ASSERT_EQ(Decode(strGood, out), nullptr);
    EXPECT_EQ(std::vector<int64_t>({out.nId, out.nWparam, out.nLparam, out.nSeq, out.nSize}),
              std::vector<int64_t>({0xd0003, -5, 3, 77, 4}));

    header.nSize = 65537;
    std::string strHuge = wire::EncodeDatagram(header, std::string(65537, 'a').data());
    auto Patched = [&](size_t nAt, char c) { std::string str = strGood; str[nAt] = c; return str; };
    const std::pair<std::string, const char*> kBad[] = {
        {strGood.substr(0, 31), "short"}, {strGood.substr(0, 35), "size mismatch"}, {strGood + "x", "size mismatch"},
        {Patched(0, 'X'), "magic"}, {Patched(4, 2), "version"}, {Patched(6, 3), "kind"}, {strHuge, "over 65536"}};
    for (const auto& bad : kBad)
        EXPECT_NE(Decode(bad.first, out), nullptr) << bad.second;
}
