// SimpleIni as the platform's INI parser and writer (internal). Header-only use: the templates
// are instantiated here rather than taken from Debian's shared build, which drags in ICU.
#pragma once

#define SI_NO_CONVERSION
#define SI_IMPLEMENTATION
#include <SimpleIni.h>

// Section and key names are matched exactly, case included.
typedef CSimpleIniCaseA CIniBackend;
