// The provisioning translator library: named text methods read from an XML description, each
// posting one message to a thread. Nothing is ever run through a shell.
#pragma once

#include "chReferenceStringT.h"

// Loads the description (replacing what was loaded). 0 on success; nonzero when the file is
// missing or malformed, and then nothing is loaded.
int load_trans(const char* szPath);

// Carries out the method named by the text: posts its message and returns "ok". An unknown name,
// or a call before a successful load_trans, traces one line and returns empty text.
ETL_StringHelper::chStringA call_text_method(const char* szText);

// Forgets the methods.
void release_trans();
