// Clearing of user configuration (0xd0004): reset list, empty table, header-only user file, then
// the reset list and an upload request to "autoServer", then the reply.
#include "ConfigServer.h"
#include "ConfigPaths.h"

#include "ETL_TraceHelper.h"
#include "M7Journal.h"
#include "M7Store.h"

#include <cstring>

using ETL_MsgQueueHelper::msgGetThreadByName;

int CConfigServer::OnClearUserConfig(msgObject& msg)
{
    ETL_TraceHelper::etlTrace(2, "Receive Clear User Config Message.");
    CM7ChangeOrigin origin(CM7ChangeOrigin::EACH, "clear request");
    SaveUserConfig(kResetListPath, 1);
    ClearM7Model();
    SaveUserConfig(nullptr, 0);
    ETL_TraceHelper::etlTrace(2, "upload...");
    // Both files are complete and closed before the first post.
    (void)ETL_MsgQueueHelper::msgPostMsgToThreadEx(msgGetThreadByName(kAutoServer), AP_MSG_UPGRADE_USER_CFG, 0, 0,
                                                    static_cast<int>(std::strlen(kResetListPath) + 1), kResetListPath);
    (void)ETL_MsgQueueHelper::msgPostMsgToThread(msgGetThreadByName(kAutoServer), CSM_UPLOAD_USERCFG, 1, 0);
    msg.ReplyMessage(1);
    return 1;
}
