// The translator stand-in: <translator><method name thread id wparam lparam text/></translator>.
#include "autopTranslator.h"

#include "ETL_FileHelper.h"
#include "ETL_MsgQueueHelper.h"
#include "ETL_StringHelper.h"
#include "ETL_TraceHelper.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace {

struct TextMethod {
    std::string strThread;
    uint32_t nId = 0;
    int32_t nWparam = 0;
    int32_t nLparam = 0;
    bool bHasText = false;
    std::string strText;
};

std::map<std::string, TextMethod>& Methods()
{
    static std::map<std::string, TextMethod> s_methods;
    return s_methods;
}

bool g_bLoaded = false;

// A missing number is 0; otherwise decimal or 0x-hex within the range.
bool ParseNumber(const char* sz, long long nMin, long long nMax, long long& nOut)
{
    if (sz == nullptr || *sz == '\0') {
        nOut = 0;
        return true;
    }
    return ETL_StringHelper::etlParseInteger(sz, 0, nMin, nMax, nOut);
}

} // namespace

int load_trans(const char* szPath)
{
    release_trans();
    pugi::xml_document doc;
    pugi::xml_parse_result result = ETL_FileHelper::etlXmlLoadFile(doc, szPath);
    pugi::xml_node root = doc.child("translator");
    if (!result || !root)
        return -1;
    std::map<std::string, TextMethod> mapLoaded;
    for (pugi::xml_node node = root.child("method"); node; node = node.next_sibling("method")) {
        const char* szName = node.attribute("name").value();
        long long nId = 0, nWparam = 0, nLparam = 0;
        if (szName[0] == '\0' || node.attribute("thread").value()[0] == '\0' ||
            !ParseNumber(node.attribute("id").value(), 0, 0xffffffffLL, nId) ||
            !ParseNumber(node.attribute("wparam").value(), INT32_MIN, 0xffffffffLL, nWparam) ||
            !ParseNumber(node.attribute("lparam").value(), INT32_MIN, 0xffffffffLL, nLparam)) {
            ETL_TraceHelper::etlTrace(2, "translator: method [%s] in \"%s\" is incomplete; skipped", szName, szPath);
            continue;
        }
        TextMethod method;
        method.strThread = node.attribute("thread").value();
        method.nId = static_cast<uint32_t>(nId);
        method.nWparam = static_cast<int32_t>(nWparam);
        method.nLparam = static_cast<int32_t>(nLparam);
        method.bHasText = static_cast<bool>(node.attribute("text"));
        method.strText = node.attribute("text").value();
        mapLoaded.emplace(szName, method); // the first definition of a name wins
    }
    Methods().swap(mapLoaded);
    g_bLoaded = true;
    return 0;
}

const char* call_text_method_text(const char* szText)
{
    const char* szName = szText != nullptr ? szText : "";
    if (!g_bLoaded) {
        ETL_TraceHelper::etlTrace(2, "translator: no description loaded; [%s] not run", szName);
        return "";
    }
    auto it = Methods().find(szName);
    if (it == Methods().end()) {
        ETL_TraceHelper::etlTrace(2, "translator: unknown method [%s]", szName);
        return "";
    }
    const TextMethod& method = it->second;
    ETL_MsgQueueHelper::msgThread hThread = ETL_MsgQueueHelper::msgGetThreadByName(method.strThread.c_str());
    int nResult;
    if (method.bHasText)
        nResult = ETL_MsgQueueHelper::msgPostMsgToThreadEx(hThread, method.nId, method.nWparam, method.nLparam,
                                                            static_cast<int>(method.strText.size() + 1),
                                                            method.strText.c_str());
    else
        nResult = ETL_MsgQueueHelper::msgPostMsgToThread(hThread, method.nId, method.nWparam, method.nLparam);
    if (nResult != 0)
        ETL_TraceHelper::etlTrace(2, "translator: method [%s] could not post to [%s]", szName, method.strThread.c_str());
    return "ok";
}

void release_trans()
{
    Methods().clear();
    g_bLoaded = false;
}
