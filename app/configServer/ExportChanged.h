// The export of changed configuration: the walk over "/config" and the comparison of INI files
// with their factory twins.
#pragma once

#include <cstdio>

// The walk of the changed-configuration export over one directory level (recursing), and the
// comparison of one INI file with its factory twin (ExportChanged.cpp).
void ExportChangedDir(const char* szConfigDir, const char* szFactoryDir, FILE* pStream);
void ExportChangedIniFile(const char* szConfigFile, const char* szFactoryFile, FILE* pStream);

