// Key-layout files to configuration items (0xd0008): the keys named by the selection list are
// copied into the item table under the names the name library gives their attributes.
#include "KeyLayout.h"

#include "ETL_FileHelper.h"
#include "ETL_MiscHelper.h"
#include "configParser.h"

#include <cstring>
#include <string>

using ETL_StringHelper::chStringA;

const char* const kKeyAttrMapKeys[KEY_ATTR_COUNT] = {
    "type", "itemdata::line", "itemdata::value", "itemdata::label", "itemdata::extension",
    "itemdata::xml_phonebook", "itemdata::pickup_value"};

namespace {

// Attribute names in lookup order; the first is read from the item, the others from itemdata.
const char* const kKeyAttrNames[KEY_ATTR_COUNT] = {"type", "line", "value", "label", "extension", "xml_phonebook",
                                                   "pickup_value"};
const char* const kKeyAttrDefaults[KEY_ATTR_COUNT] = {"-1", "-1", "", "", "", "", ""};

} // namespace

CKeySetFiles GetKeySetFiles(uint32_t nKeySet, int32_t nModule)
{
    CKeySetFiles files;
    files.szRoot = "dsskey";
    files.szPrefix = "dsskey";
    switch (nKeySet) {
    case 1:
        files.strCurrent = "/config/data/memkey.xml";
        files.strFactory = "/phone/factory/data/memkey.xml";
        break;
    case 2: {
        char szBuffer[512];
        (void)snprintf(szBuffer, sizeof(szBuffer), "%s%d.xml", "/config/data/expkey", nModule);
        files.strCurrent = szBuffer;
        (void)snprintf(szBuffer, sizeof(szBuffer), "%s%d.xml", "/phone/factory/data/expkey", nModule);
        files.strFactory = szBuffer;
        break;
    }
    case 3:
        files.strCurrent = "/config/data/programkey.xml";
        files.strFactory = "/phone/factory/data/programkey.xml";
        files.szRoot = "programkey";
        files.szPrefix = "programkey";
        break;
    default:
        files.strCurrent = "/config/data/linekey.xml";
        files.strFactory = "/phone/factory/data/linekey.xml";
        break;
    }
    return files;
}

chStringA GetXmlAttribute(pugi::xml_node node, const char* szName, const char* szDefault)
{
    if (!node || szName == nullptr)
        return chStringA(szDefault);
    return chStringA(node.attribute(szName).value());
}

void ReadKeyAttrs(pugi::xml_node item, CKeyAttrs& attrs)
{
    pugi::xml_node itemdata = item.child("itemdata");
    for (int i = 0; i < KEY_ATTR_COUNT; ++i)
        attrs.text[i] = GetXmlAttribute(i == 0 ? item : itemdata, kKeyAttrNames[i], kKeyAttrDefaults[i]);
}

int LoadKeyLayout(unsigned char* pSelection, int nSize, uint32_t nKeySet, int32_t nModule, const CKeyItemSetter& setItem)
{
    if (pSelection == nullptr || nSize <= 0)
        return 0;
    CKeySetFiles files = GetKeySetFiles(nKeySet, nModule);
    const char* szPath = files.strCurrent.c_str();
    pugi::xml_document doc;
    if (ETL_MiscHelper::pathFileExist(szPath) == 0 || !ETL_FileHelper::etlXmlLoadFile(doc, szPath)) {
        // No line end here, so the line buffer would hold the text back.
        printf("Load failed:[%s]", szPath);
        (void)fflush(stdout);
        return 0;
    }
    pugi::xml_node root = doc.child(files.szRoot);
    if (!root) {
        printf("Get Node [%s] failed!\n", files.szRoot);
        return 0;
    }
    int nIndex = 0;
    for (pugi::xml_node node = root.child("item"); node; node = node.next_sibling(), ++nIndex) {
        bool bSelected = false;
        for (int i = 0; i < nSize && pSelection[i] != 0; ++i) {
            if (pSelection[i] - 1 == nIndex) {
                pSelection[i] = 255;
                bSelected = true;
            }
        }
        if (!bSelected)
            continue;
        CKeyAttrs attrs;
        ReadKeyAttrs(node, attrs);
        char szSection[128];
        std::memset(szSection, 0, sizeof(szSection));
        (void)snprintf(szSection, sizeof(szSection), "%s.item.%d", files.szPrefix, nIndex);
        int nFlags = 0;
        for (int i = 0; i < KEY_ATTR_COUNT; ++i) {
            char szName[512];
            std::memset(szName, 0, sizeof(szName));
            if (get_config_name_by_path(szPath, szSection, kKeyAttrMapKeys[i], szName, sizeof(szName), &nFlags) == 0)
                setItem(szName, attrs.text[i].c_str(), static_cast<uint32_t>(nFlags));
        }
    }
    return 1;
}
