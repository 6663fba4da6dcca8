// Decoding of message datagrams: whatever is accepted re-encodes to the same bytes.
#include "FuzzRoot.h"
#include "MsgWire.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    using namespace ETL_MsgQueueHelper::wire;
    Header header;
    if (DecodeDatagram(pData, nSize, header) != nullptr)
        return 0;
    if (header.nSize > MAX_EXTRA || HEADER_SIZE + header.nSize != nSize)
        __builtin_trap();
    std::string strAgain = EncodeDatagram(header, pData + HEADER_SIZE);
    // The reserved word is not kept; everything else is.
    if (strAgain.size() != nSize || std::memcmp(strAgain.data(), pData, 28) != 0 ||
        std::memcmp(strAgain.data() + HEADER_SIZE, pData + HEADER_SIZE, header.nSize) != 0)
        __builtin_trap();
    return 0;
}
