// The text a message carries as extra data.
#pragma once

#include "ETL_MsgQueueHelper.h"

#include <string>

// The extra bytes up to the first NUL, never past the received size. False when the message
// carries no extra data at all.
bool GetMessageText(const ETL_MsgQueueHelper::msgObject& msg, std::string& strText);
