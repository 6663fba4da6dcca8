// Comparison of key layouts with their factory copies, for the export of changed configuration:
// keys are paired by position and a changed key contributes all its mapped lines.
#include "KeyLayout.h"

#include "ConfigText.h"
#include "ETL_FileHelper.h"
#include "ETL_MiscHelper.h"
#include "M7Mapping.h"
#include "configParser.h"

#include <cstring>
#include <string>

using ETL_StringHelper::chStringA;

namespace {

// The compare order differs from the write (lookup) order: value before line.
const int kCompareOrder[KEY_ATTR_COUNT] = {0, 2, 1, 3, 4, 5, 6};

bool LoadLayout(pugi::xml_document& doc, const std::string& strPath)
{
    return ETL_MiscHelper::pathFileExist(strPath.c_str()) != 0 && ETL_FileHelper::etlXmlLoadFile(doc, strPath.c_str());
}

} // namespace

int CompareKeyItem(pugi::xml_node current, pugi::xml_node factory, int nIndex, const char* szCurrentPath,
                   const char* szPrefix, chStringA& strText)
{
    if (!current || !factory || szPrefix == nullptr)
        return 0;
    CKeyAttrs cur, fac;
    ReadKeyAttrs(current, cur);
    ReadKeyAttrs(factory, fac);
    bool bDiffer = false;
    for (int i = 0; i < KEY_ATTR_COUNT && !bDiffer; ++i) {
        int n = kCompareOrder[i];
        bDiffer = std::strcmp(cur.text[n].c_str(), fac.text[n].c_str()) != 0;
    }
    if (!bDiffer)
        return 0;
    char szSection[128];
    std::memset(szSection, 0, sizeof(szSection));
    (void)snprintf(szSection, sizeof(szSection), "%s.item.%d", szPrefix, nIndex);
    int nFlags = 0;
    for (int i = 0; i < KEY_ATTR_COUNT; ++i) {
        char szName[512];
        std::memset(szName, 0, sizeof(szName));
        if (get_config_name_by_path(szCurrentPath, szSection, kKeyAttrMapKeys[i], szName, sizeof(szName), &nFlags) != 0)
            continue;
        const char* szValue = cur.text[i].c_str();
        if (szValue[0] == '\0') {
            std::string strLine;
            AppendM7ItemLine(strLine, chStringA(szName), chStringA(), false);
            strText = strText + strLine.c_str();
            continue;
        }
        char szBase0[64];
        if (i == KEY_ATTR_LINE && (static_cast<uint32_t>(nFlags) & ATTR_BASE0) != 0) {
            FormatBase0Value(szValue, szBase0, sizeof(szBase0));
            szValue = szBase0;
        }
        strText = strText + szName;
        strText = strText + " = ";
        strText = strText + szValue;
        strText = strText + "\n";
    }
    return 1;
}

void ExportChangedKeyLayout(FILE* pStream, uint32_t nKeySet, int32_t nModule)
{
    if (pStream == nullptr)
        return;
    CKeySetFiles files = GetKeySetFiles(nKeySet, nModule);
    pugi::xml_document current, factory;
    if (!LoadLayout(current, files.strCurrent)) {
        // No line end here, so the line buffer would hold the text back.
        printf("Load failed:[%s]", files.strCurrent.c_str());
        (void)fflush(stdout);
        return;
    }
    if (!LoadLayout(factory, files.strFactory)) {
        printf("Load failed:[%s]", files.strFactory.c_str());
        (void)fflush(stdout);
        return;
    }
    printf("cmp:[%s] [%s]\n", files.strCurrent.c_str(), files.strFactory.c_str());
    pugi::xml_node currentRoot = current.child(files.szRoot);
    pugi::xml_node factoryRoot = factory.child(files.szRoot);
    if (!currentRoot || !factoryRoot) {
        printf("Get Node [%s] failed!\n", files.szRoot);
        return;
    }
    pugi::xml_node cur = currentRoot.child("item");
    pugi::xml_node fac = factoryRoot.child("item");
    for (int nIndex = 0; cur && fac; ++nIndex, cur = cur.next_sibling(), fac = fac.next_sibling()) {
        chStringA strText;
        if (CompareKeyItem(cur, fac, nIndex, files.strCurrent.c_str(), files.szPrefix, strText) != 0)
            (void)fwrite(strText.c_str(), 1, static_cast<size_t>(strText.GetLength()), pStream);
    }
}
