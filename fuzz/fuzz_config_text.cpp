// The configuration text reader with a merge into the model.
#include "ConfigServer.h"
#include "FuzzRoot.h"
#include "M7Store.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    static CConfigServer* s_pServer = [] {
        FuzzRoot();
        return new CConfigServer();
    }();
    FuzzWrite("/tmp/in.cfg", pData, nSize);
    (void)s_pServer->MergeLoadM7Model("/tmp/in.cfg", nSize % 2, (nSize / 2) % 2);
    (void)s_pServer->MergeLoadM7Model("/tmp/in.cfg", 1, 0);
    // Every item the reader produced must be found again by its name.
    for (CM7ListNode* pNode = m7ItemList.First(); pNode != m7ItemList.End(); pNode = pNode->pNext) {
        if (FindM7Item(pNode->pItem->name.c_str()) != pNode->pItem)
            __builtin_trap();
    }
    if (m7ItemList.Count() > 10000)
        ClearM7Model();
    return 0;
}
