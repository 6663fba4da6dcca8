// The message table of the service: one case per message id, in table order, one handler each.
#include "ConfigServer.h"

using ETL_MsgQueueHelper::msgObject;

int CConfigServer::TryThreadMessage(msgObject& msg)
{
    int nHandled = 0;
    switch (msg.message) {
    default:
        break;
    }
    if (nHandled != 0)
        return 1;
    return ETL_MsgQueueHelper::chThreadLocal::TryThreadMessage(msg) != 0 ? 1 : 0;
}
