// Attribute flags of configuration items, and the conversions between registry values and item
// values.
#pragma once

#include <cstddef>
#include <cstdint>

enum : uint32_t {
    ATTR_ENCRYPT = 0x1,
    ATTR_REBOOT = 0x2,
    ATTR_BASE0 = 0x800,  // the registry counts from 0, the item from 1
    ATTR_INVERT = 0x1000, // the item is the boolean inverse of the registry value
};

// A value read as a base-10 integer the way a 32-bit strtol does (no number reads as 0).
int32_t M7ValueToInt(const char* szValue);

// "%d" of the value plus one, into szOut.
void FormatBase0Value(const char* szValue, char* szOut, size_t nSize);
// "1" when the value reads as 0, else "0".
void FormatInvertedValue(const char* szValue, char* szOut, size_t nSize);
// Registry value to item value: ATTR_BASE0 first, then ATTR_INVERT. Writes into szOut (64 bytes
// are plenty) and returns it, or returns szValue unchanged when neither bit is set.
const char* RegistryToItemValue(const char* szValue, uint32_t nFlags, char* szOut, size_t nSize);

// "ATTR_ENCRYPT" when the low eight bits are exactly 1, else "ATTR_REBOOT".
const char* SkipReasonText(uint32_t nFlags);
