// The platform registry: INI documents in memory, their handles, saving and section watches.
#pragma once

// A registry handle: a small nonzero number, carried in pointer form as the phone's API does.
struct _HREGISTRY_;
typedef _HREGISTRY_* HREGISTRY;
