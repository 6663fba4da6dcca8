// Test program: a message thread whose first message keeps it busy for two seconds (without
// touching the platform), then prints every message id and wparam in the order handled.
#include "ETL_MsgQueueHelper.h"

#include <chrono>
#include <cstdio>
#include <thread>

using namespace ETL_MsgQueueHelper;

namespace {

class CBusyThread : public chThreadLocal {
public:
    CBusyThread() : chThreadLocal("busyThread", nullptr) {}

    int TryThreadMessage(msgObject& msg) override
    {
        if (msg.message >= MSG_PLATFORM_PING && msg.message <= MSG_PLATFORM_QUIT)
            return chThreadLocal::TryThreadMessage(msg);
        if (!m_bSlept) {
            m_bSlept = true;
            std::this_thread::sleep_for(std::chrono::seconds(2));
        }
        printf("0x%x %d\n", msg.message, msg.wParam);
        fflush(stdout);
        return 1;
    }

private:
    bool m_bSlept = false;
};

} // namespace

int main()
{
    CBusyThread thread;
    uCSystemShareHelper::getGlobalObject().CreateLocalThread(thread);
    int nStatus = thread.Run();
    uCSystemShareHelper::getGlobalObject().DestroyLocalThread(thread);
    return nStatus;
}
