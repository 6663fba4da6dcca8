// Key-layout files: which file, root element and item prefix a key set has, and how attributes
// are read from them.
#pragma once

#include "chReferenceStringT.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <pugixml.hpp>
#include <string>

struct CKeySetFiles {
    std::string strCurrent; // under /config/data/
    std::string strFactory; // under /phone/factory/data/
    const char* szRoot;     // root element
    const char* szPrefix;   // item prefix of the section names
};

// Key set 1 memory keys, 2 expansion module nModule, 3 programmable keys, anything else line keys.
CKeySetFiles GetKeySetFiles(uint32_t nKeySet, int32_t nModule);

// The attribute's text when the node exists (empty when the attribute is missing); the default
// only when the node itself is missing or the name is null.
ETL_StringHelper::chStringA GetXmlAttribute(pugi::xml_node node, const char* szName, const char* szDefault);

// The seven attributes of a key, in the order of their name-mapping lookups.
enum { KEY_ATTR_COUNT = 7 };
struct CKeyAttrs {
    ETL_StringHelper::chStringA text[KEY_ATTR_COUNT];
};
extern const char* const kKeyAttrMapKeys[KEY_ATTR_COUNT]; // "type", "itemdata::line", ...
enum { KEY_ATTR_LINE = 1 };
void ReadKeyAttrs(pugi::xml_node item, CKeyAttrs& attrs);

// Takes one key attribute into the item table: item name, value, attribute flags.
typedef std::function<void(const char* szName, const char* szValue, uint32_t nAttr)> CKeyItemSetter;
// Reads the key set's layout file and hands every mapped attribute of each selected key (the
// selection holds 1-based key numbers up to a zero byte; each one used becomes 255) to setItem.
// 1 when the file was read through to its last key, 0 otherwise.
int LoadKeyLayout(unsigned char* pSelection, int nSize, uint32_t nKeySet, int32_t nModule, const CKeyItemSetter& setItem);

// Compares two keys; when they differ, fills strText with the current key's configuration lines
// and returns 1, else 0.
int CompareKeyItem(pugi::xml_node current, pugi::xml_node factory, int nIndex, const char* szCurrentPath,
                   const char* szPrefix, ETL_StringHelper::chStringA& strText);

// Appends the lines of every key that differs from its factory copy to the stream.
void ExportChangedKeyLayout(FILE* pStream, uint32_t nKeySet, int32_t nModule);
