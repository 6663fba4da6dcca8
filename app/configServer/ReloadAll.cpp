// Rewriting a delivered provisioning text into "/tmp/mac-all-autop.cfg" with the model's values
// winning for every item the model holds.
#include "ConfigServer.h"
#include "ConfigPaths.h"

#include "ConfigText.h"
#include "ETL_FileHelper.h"
#include "ETL_TraceHelper.h"
#include "M7Store.h"

#include <cstdio>
#include <cstring>

using ETL_StringHelper::chStringA;

namespace {


// The line end of a name=value line: none when the value already ends with a line feed, or holds
// nothing but carriage returns and NUL bytes.
bool NeedsLineEnd(const char* szValue)
{
    size_t nLength = std::strlen(szValue);
    if (nLength == 0)
        return true;
    while (nLength > 0 && (szValue[nLength - 1] == '\r' || szValue[nLength - 1] == '\0'))
        --nLength;
    return nLength > 0 && szValue[nLength - 1] != '\n';
}

} // namespace

void CConfigServer::OnReloadAllConfig(const char* szPath)
{
    printf("CConfigServer::OnReloadAllConfig:%s\n", szPath != nullptr ? szPath : "(null)");
    if (szPath == nullptr)
        return;
    CM7LineReader reader;
    if (reader.Open(szPath) == 0) {
        printf("open[%s] failed!\n", szPath);
        return;
    }
    FILE* pOut = ETL_FileHelper::etlFopen(kAllAutopPath, "w+");
    if (pOut == nullptr) {
        ETL_TraceHelper::etlTrace(2, "open [%s] failed.", kAllAutopPath);
        return;
    }
    (void)fwrite(kM7Header, 1, kM7HeaderLength, pOut);
    (void)fwrite("\n", 1, 1, pOut);
    chStringA strName, strValue;
    while (reader.Next(strName, strValue) != 0) {
        (void)fputs(strName.c_str(), pOut);
        (void)fputs("=", pOut);
        const char* szWritten = strValue.c_str();
        if (CM7Item* pItem = FindM7Item(strName.c_str())) {
            printf("conflict: %s = [%s]->[%s]\n", strName.c_str(), strValue.c_str(), pItem->value.c_str());
            szWritten = pItem->value.c_str();
        }
        (void)fputs(szWritten, pOut);
        if (NeedsLineEnd(szWritten))
            (void)fputs("\n", pOut);
    }
    (void)fclose(pOut);
    (void)ETL_FileHelper::etlRemove(szPath);
}
