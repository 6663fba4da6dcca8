// Loading the watch list, registering the watches, and running actions on change.
#include "sectionMonitor.h"

#include "autopTranslator.h"
#include "chReferenceStringT.h"
#include "fwTrace.h"

#include <cstdint>
#include <cstring>

using ETL_FileHelper::xmlAttributeNode;
using ETL_StringHelper::chStringA;
using ETL_StringHelper::fmtString;

namespace {


const char* TextOr(const char* sz)
{
    return sz != nullptr ? sz : "";
}

} // namespace

int sectionMonitor::StartMonitor()
{
    fwTracePrint(3, "war[%-16s:%-4d]sectionMonitor::StartMonitor Begin\n", __FILE__, __LINE__);
    pugi::xml_node section;
    if (LoadFromFile(kSectionMonitorFile) != 0)
        section = ETL_FileHelper::xmlFindElementFromRoot(Document(), "regMonitor", "section", nullptr);
    for (; section; section = ETL_FileHelper::xmlFindElementByName(section.next_sibling(), "section")) {
        xmlAttributeNode element(section);
        const char* szFile = TextOr(element.GetAttributeValue("file"));
        const char* szSection = TextOr(element.GetAttributeValue("section"));
        if (szFile[0] == '\0' || szSection[0] == '\0')
            continue;
        HREGISTRY hSection = registryOpen(szFile, szSection);
        MonitorSection(szFile, szSection, this, MSG_HANDLER(&sectionMonitor::OnSectionChanged));
        // A watched element without a handle attribute gets one: the handle is the only link
        // from a notification back to its element.
        chStringA strHandle = fmtString("%u", static_cast<unsigned>(reinterpret_cast<uintptr_t>(hSection)));
        element.SetAttributeValue("handle", strHandle.c_str());
    }
    fwTracePrint(3, "war[%-16s:%-4d]sectionMonitor::StartMonitor End\n", __FILE__, __LINE__);
    return 1;
}

int sectionMonitor::OnSectionChanged(ETL_MsgQueueHelper::msgObject& msg)
{
    fwTracePrint(3, "war[%-16s:%-4d]sectionMonitor::OnSectionChanged  Begin\n", __FILE__, __LINE__);
    chStringA strHandle = fmtString("%u", static_cast<unsigned>(msg.lParam));
    pugi::xml_node node = ETL_FileHelper::xmlFindElementFromRoot(Document(), "regMonitor", "section", nullptr);
    for (; node; node = ETL_FileHelper::xmlFindElementByName(node.next_sibling(), "section")) {
        xmlAttributeNode element(node);
        const char* szHandle = element.GetAttributeValue("handle");
        if (szHandle != nullptr && std::strcmp(szHandle, strHandle.c_str()) == 0) {
            (void)call_text_method(TextOr(element.GetAttributeValue("action")));
            break;
        }
    }
    fwTracePrint(3, "war[%-16s:%-4d]sectionMonitor::OnSectionChanged  End\n", __FILE__, __LINE__);
    return 1;
}
