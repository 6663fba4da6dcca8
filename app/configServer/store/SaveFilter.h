// The filter through which saved registry keys reach the item table.
#pragma once

// Of the callback type regSaveRegistryDocumentEx takes. Maps the key to its item name; skips
// encrypted and reboot items (0) and names it cannot map or that are ignored (-1); otherwise
// sets or appends the item with the converted value, raises m7ModelChanged and returns 0.
int RegistrySaveFilter(const char* szFile, const char* szSection, const char* szKey, const char* szValue);
