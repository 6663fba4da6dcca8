// The section monitor in one process: handles written into the document, and which action a
// notification runs.
#include "ETL_MsgQueueHelper.h"
#include "ServiceFixture.h"
#include "autopTranslator.h"
#include "sectionMonitor.h"

#include <vector>

using namespace ETL_MsgQueueHelper;

namespace {

class CActionSink : public chThreadLocal {
public:
    CActionSink() : chThreadLocal("actionSink", nullptr) {}
    int TryThreadMessage(msgObject& msg) override
    {
        if (msg.message < 0x100)
            m_vecIds.push_back(msg.message);
        return chThreadLocal::TryThreadMessage(msg);
    }
    std::vector<uint32_t> m_vecIds;
};

} // namespace

TEST_F(ServiceRootTest, SectionMonitorMatchesHandlesInDocumentOrder)
{
    Write("/phone/resource/sectionMonitor.xml",
          "<regMonitor>"
          "<section file=\"/config/sm.ini\" section=\"A\" action=\"m1\"/>"
          "<section file=\"/config/sm.ini\" section=\"A\" action=\"m2\" handle=\"x\"/>"
          "<section file=\"\" section=\"A\" action=\"m3\" handle=\"777\"/>"
          "<section file=\"/config/sm.ini\" section=\"B\" handle=\"1\"/>"
          "</regMonitor>");
    Write("/boot/bin/t.xml", "<translator>"
                             "<method name=\"m1\" thread=\"actionSink\" id=\"1\"/>"
                             "<method name=\"m2\" thread=\"actionSink\" id=\"2\"/>"
                             "<method name=\"m3\" thread=\"actionSink\" id=\"3\"/>"
                             "</translator>");
    CActionSink sink;
    ASSERT_EQ(uCSystemShareHelper::getGlobalObject().CreateLocalThread(sink), 0);
    ASSERT_EQ(load_trans("/boot/bin/t.xml"), 0);
    {
        sectionMonitor monitor;
        EXPECT_EQ(monitor.StartMonitor(), 1);
        unsigned nHandle = static_cast<unsigned>(reinterpret_cast<uintptr_t>(registryOpen("/config/sm.ini", "A")));
        pugi::xml_node first = monitor.Document().child("regMonitor").child("section");
        EXPECT_EQ(std::string(first.attribute("handle").value()), std::to_string(nHandle))
            << "an element without a handle gets one";
        EXPECT_EQ(std::string(first.next_sibling().attribute("handle").value()), std::to_string(nHandle));
        EXPECT_STREQ(first.next_sibling().next_sibling().attribute("handle").value(), "777") << "not watched";

        msgObject change(MSG_PLATFORM_SECTION_CHANGED, 0, static_cast<int32_t>(nHandle), nullptr, 0);
        EXPECT_EQ(monitor.OnSectionChanged(change), 1);
        msgObject byFileHandle(MSG_PLATFORM_SECTION_CHANGED, 0, 777, nullptr, 0);
        EXPECT_EQ(monitor.OnSectionChanged(byFileHandle), 1);
        msgObject unknown(MSG_PLATFORM_SECTION_CHANGED, 0, 123456, nullptr, 0);
        EXPECT_EQ(monitor.OnSectionChanged(unknown), 1);
        // Through the registry: one watch for the pair, so one run of the first action.
        regSetValue("/config/sm.ini", "A", "k", "v", false);
        unsigned nHandleB = static_cast<unsigned>(reinterpret_cast<uintptr_t>(registryOpen("/config/sm.ini", "B")));
        msgObject changeB(MSG_PLATFORM_SECTION_CHANGED, 0, static_cast<int32_t>(nHandleB), nullptr, 0);
        EXPECT_EQ(monitor.OnSectionChanged(changeB), 1) << "a missing action names no method: nothing runs";
        monitor.UnmonitorAllSection();
        regSetValue("/config/sm.ini", "A", "k", "w", false);
    }
    release_trans();
    msgPostMsgToThread(msgGetThreadByName("actionSink"), MSG_PLATFORM_QUIT, 0, 0);
    sink.Run();
    uCSystemShareHelper::getGlobalObject().DestroyLocalThread(sink);
    EXPECT_EQ(sink.m_vecIds, (std::vector<uint32_t>{1, 3, 1}));
}
