// The device stand-in: the MAC text from a file of the system root.
#include "netDevice.h"

#include "ETL_FileHelper.h"

#include <cstdlib>
#include <string>

const char* netGetMACText(int nReserved1, int nReserved2)
{
    (void)nReserved1;
    (void)nReserved2;
    static std::string s_strMac;
    ETL_FileHelper::chFileStdio file;
    if (file.Open("/etc/device/mac", 0) == 0)
        return nullptr;
    const char* pLine = nullptr;
    int nLen = 0;
    if (file.ReadLine(pLine, nLen, '\n') == 0)
        return nullptr;
    s_strMac = pLine; // up to a NUL inside the line, as the text string would hold it
    size_t nEnd = s_strMac.find_first_of("\r\n");
    if (nEnd != std::string::npos)
        s_strMac.resize(nEnd);
    return s_strMac.empty() ? nullptr : s_strMac.c_str();
}
