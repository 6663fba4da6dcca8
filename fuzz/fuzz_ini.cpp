// INI documents: the platform's parser, and a registry document loaded, changed and saved.
#include "ETL_FileHelper.h"
#include "ETL_RegistryHelper.h"
#include "FuzzRoot.h"

#include <string>

namespace {
int CountingFilter(const char*, const char*, const char*, const char*)
{
    return 0;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FuzzRoot();
    ETL_FileHelper::iniFile ini;
    (void)ini.LoadFromText(std::string(reinterpret_cast<const char*>(pData), nSize));
    for (size_t s = 0; s < ini.GetSectionCount(); ++s) {
        ETL_FileHelper::iniSection* pSection = ini.GetSection(s);
        if (ini.FindSection(pSection->GetName()) == nullptr)
            __builtin_trap();
        for (size_t k = 0; k < pSection->GetKeyCount(); ++k)
            (void)pSection->FindKey(pSection->GetKey(k)->GetName())->GetValue("");
    }
    // A registry document read from such a file, changed and saved again.
    static int s_nDoc = 0;
    std::string strDoc = "/config/doc" + std::to_string(s_nDoc++ % 64) + ".ini";
    FuzzWrite(strDoc.c_str(), pData, nSize);
    if (s_nDoc <= 64) {
        HREGISTRY hDoc = regSetValue(strDoc.c_str(), "Fuzz", "key", "value", false);
        (void)regSaveRegistryDocumentEx(hDoc, CountingFilter);
    }
    return 0;
}
