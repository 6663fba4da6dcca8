// The key-layout loader and the comparison with the factory copy. The input is split in three at
// its first two 0xFF bytes: the current file, the factory file and the selection list.
#include "ConfigServer.h"
#include "FuzzRoot.h"
#include "KeyLayout.h"
#include "M7Store.h"

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    static CConfigServer* s_pServer = [] {
        FuzzRoot();
        std::string strMap = "<configMap>";
        for (const char* szKey : {"type", "itemdata::line", "itemdata::value", "itemdata::label", "itemdata::extension",
                                  "itemdata::xml_phonebook", "itemdata::pickup_value"})
            strMap += std::string("<item m7=\"k.{n}.") + szKey + "\" file=\"/config/data/linekey.xml\" section=\"dsskey.item.{n}\" key=\"" +
                      szKey + "\" flags=\"0x800\" range=\"0-300\"/>";
        strMap += "</configMap>";
        FuzzWrite("/phone/resource/configMap.xml", reinterpret_cast<const uint8_t*>(strMap.data()), strMap.size());
        return new CConfigServer();
    }();
    const uint8_t* pEnd = pData + nSize;
    const uint8_t* pFirst = std::find(pData, pEnd, 0xFF);
    const uint8_t* pSecond = pFirst == pEnd ? pEnd : std::find(pFirst + 1, pEnd, 0xFF);
    FuzzWrite("/config/data/linekey.xml", pData, static_cast<size_t>(pFirst - pData));
    const uint8_t* pFactory = pFirst == pEnd ? pEnd : pFirst + 1;
    FuzzWrite("/phone/factory/data/linekey.xml", pFactory, static_cast<size_t>(pSecond - pFactory));
    std::vector<unsigned char> vecSelection(pSecond == pEnd ? pEnd : pSecond + 1, pEnd);
    (void)s_pServer->LoadKeyLayoutToM7(vecSelection.data(), static_cast<int>(vecSelection.size()), 0, -1);
    static FILE* s_pSink = fopen("/dev/null", "w");
    ExportChangedKeyLayout(s_pSink, 0, -1);
    if (m7ItemList.Count() > 10000)
        ClearM7Model();
    return 0;
}
