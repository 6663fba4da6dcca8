// The configuration-name library: between registry keys (file, section, key) and configuration
// item names with their attribute flags, and the named switches. The mapping is the data file
// "/phone/resource/configMap.xml", read once, on first use.
#pragma once

// The descriptor of a known item name; owned by the library, shared by every name of a ranged
// entry.
struct config_info_t {
    unsigned int attr; // the item's attribute flags
};

// 0 with the name (terminated) in szBuf and its flags in *pFlags; nonzero when no entry matches or
// the name does not fit in nSize bytes.
int get_config_name_by_path(const char* szFile, const char* szSection, const char* szKey, char* szBuf, int nSize,
                            int* pFlags);

// The descriptor of the first entry with that item name, or null.
const config_info_t* get_config_info_t(const char* szName);

// The switch's current value from the registry as a base-10 integer; its default when the key is
// missing; 0 for a name the map does not have.
int configParser_GetConfigInt(const char* szName);

// Test seam: forget the loaded map, so that the next lookup reads the file again.
void configParser_Reset();

// Whether the map has been read since the start or the last reset (a lookup reads it first).
bool configParser_IsLoaded();
