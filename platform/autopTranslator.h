// The provisioning translator library: named text methods read from an XML description, each
// posting one message to a thread. Nothing is ever run through a shell.
#pragma once

#include "ETL_StringHelper.h"

// Loads the description (replacing what was loaded). 0 on success; nonzero when the file is
// missing or malformed, and then nothing is loaded.
int load_trans(const char* szPath);

// Carries out the method named by the text: posts its message and returns "ok". An unknown name,
// or a call before a successful load_trans, traces one line and returns empty text (static).
const char* call_text_method_text(const char* szText);

// The same as a text string. A template so that the platform needs only the string's name: the
// caller that holds the result has its header.
template <class T = char>
ETL_StringHelper::chReferenceStringT<T> call_text_method(const char* szText)
{
    return ETL_StringHelper::chReferenceStringT<T>(call_text_method_text(szText));
}

// Forgets the methods.
void release_trans();
