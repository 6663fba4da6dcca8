// Reading a message's extra data as text without trusting it to be terminated.
#include "MessageText.h"

#include <cstring>

bool GetMessageText(const ETL_MsgQueueHelper::msgObject& msg, std::string& strText)
{
    const char* p = static_cast<const char*>(msg.GetExtraData());
    if (p == nullptr)
        return false;
    size_t nSize = static_cast<size_t>(msg.GetExtraSize());
    const void* pNul = std::memchr(p, '\0', nSize);
    strText.assign(p, pNul != nullptr ? static_cast<size_t>(static_cast<const char*>(pNul) - p) : nSize);
    return true;
}
