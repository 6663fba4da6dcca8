// The service object as constructed, and the dispatcher's answers for ids it does not handle.
#include "ConfigServer.h"

#include <gtest/gtest.h>

using ETL_MsgQueueHelper::msgObject;

TEST(Dispatch, ConstructedStateAndUnknownIds)
{
    CConfigServer server;
    EXPECT_EQ(server.m_bNeedUpload, 1);
    EXPECT_TRUE(server.m_strUserCfgName.empty());
    EXPECT_TRUE(server.m_strUserCfgPath.empty());
    EXPECT_TRUE(server.m_listPendingDocs.empty());
    EXPECT_EQ(server.m_timerUpload.IsTimerRuning(), 0);
    EXPECT_EQ(server.m_timerSave.IsTimerRuning(), 0);
    EXPECT_EQ(GetConfigServer(), &server);

    // Not in the table: left to the base class, which does not know it either.
    msgObject unknown(0xd0002, 0, 0, nullptr, 0);
    EXPECT_EQ(server.TryThreadMessage(unknown), 0);
    // A platform message passes the table and is handled by the base: exactly 1.
    msgObject ping(ETL_MsgQueueHelper::MSG_PLATFORM_PING, 0, 0, nullptr, 0);
    EXPECT_EQ(server.TryThreadMessage(ping), 1);
}
