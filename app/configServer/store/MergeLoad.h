// Merging configuration texts into the item table, and loading the ignore list.
#pragma once

// Merges the item lines of a configuration text into the table, in file order: ignored names and
// encrypted or reboot items are passed over (and printed), existing items take the new value
// unless bSkipRepetition, and with bInvert values of ATTR_INVERT items are inverted first.
// 1 when the file was read, 0 when it could not be opened (null path included).
int MergeM7Text(const char* szPath, int bSkipRepetition, int bInvert);

// Appends the entries of the ignore list file to ignoreM7List. 1 when it was read, 0 when the
// file is missing, unreadable or has no "data" root.
int LoadM7IgnoreList(const char* szPath);
