// The sniffing of files that do not start as configuration text.
#include "ConfigText.h"
#include "FuzzRoot.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FuzzRoot();
    FuzzWrite("/tmp/sniff", pData, nSize);
    int nResult = IsNonTextConfigFile("/tmp/sniff");
    if (nResult != 0 && nResult != 1)
        __builtin_trap();
    if (nSize < 23 && nResult != 0)
        __builtin_trap();
    return 0;
}
