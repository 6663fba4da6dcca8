// The ignore-list rule over ignoreM7List: names that never reach the item table from a text or a
// saved registry key.
#pragma once

// 1 when the name matches an entry of the ignore list, else 0.
int IgnoreUserCfg(const char* szName);
// The same answer by walking the list entry by entry: the rule in its plain form, against which
// the index behind IgnoreUserCfg is checked.
int IgnoreUserCfgByWalk(const char* szName);
