// INI documents: the platform's parser (which must read every input as SimpleIni does), and a
// registry document loaded, changed and saved.
#include "ETL_FileHelper.h"
#include "ETL_RegistryHelper.h"
#include "FuzzRoot.h"
#include "IniBackend.h"

#include <string>

namespace {
// Sections and keys in SimpleIni's load order, each checked against the platform's document.
bool SameAsSimpleIni(const std::string& strText, ETL_FileHelper::iniFile& ini)
{
    CIniBackend ref(true, false, false);
    if (ref.LoadData(strText.data(), strText.size()) < 0)
        return false;
    CIniBackend::TNamesDepend sections;
    ref.GetAllSections(sections);
    sections.sort(CIniBackend::Entry::LoadOrder());
    if (sections.size() != ini.GetSectionCount())
        return false;
    size_t s = 0;
    for (const CIniBackend::Entry& section : sections) {
        ETL_FileHelper::iniSection* pSection = ini.GetSection(s++);
        if (std::string(section.pItem) != pSection->GetName())
            return false;
        CIniBackend::TNamesDepend keys;
        ref.GetAllKeys(section.pItem, keys);
        keys.sort(CIniBackend::Entry::LoadOrder());
        if (keys.size() != pSection->GetKeyCount())
            return false;
        size_t k = 0;
        for (const CIniBackend::Entry& key : keys) {
            ETL_FileHelper::iniKey* pKey = pSection->GetKey(k++);
            if (std::string(key.pItem) != pKey->GetName() ||
                std::string(ref.GetValue(section.pItem, key.pItem, "")) != pKey->GetValue(""))
                return false;
        }
    }
    return true;
}

int CountingFilter(const char*, const char*, const char*, const char*)
{
    return 0;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    FuzzRoot();
    ETL_FileHelper::iniFile ini;
    std::string strText(reinterpret_cast<const char*>(pData), nSize);
    if (ini.LoadFromText(strText) != 1 || !SameAsSimpleIni(strText, ini))
        __builtin_trap();
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
