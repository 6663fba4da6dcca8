// The device library: the MAC address as text.
#pragma once

// The first line of "/etc/device/mac" without its line end, read afresh at each call; null when
// the file is missing or empty. The text stays valid until the next call.
const char* netGetMACText(int nReserved1, int nReserved2);
