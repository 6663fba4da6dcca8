// Open-addressing slot arrays of the platform's indexes (internal): slot values are entry numbers
// plus one (0 is free), probed linearly; only the growth is shared, each index hashes its own way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ETL_PlatformSlots {

// Doubles the slots (nFirstSize when there are none) and places every used slot again at
// hashOf(slot) within the new size.
template <class FHash>
void GrowSlots(std::vector<uint32_t>& vecSlots, size_t nFirstSize, FHash hashOf)
{
    std::vector<uint32_t> vecOld;
    vecOld.swap(vecSlots);
    vecSlots.assign(vecOld.empty() ? nFirstSize : vecOld.size() * 2, 0);
    size_t nMask = vecSlots.size() - 1;
    for (uint32_t nSlot : vecOld) {
        if (nSlot == 0)
            continue;
        size_t i = hashOf(nSlot) & nMask;
        while (vecSlots[i] != 0)
            i = (i + 1) & nMask;
        vecSlots[i] = nSlot;
    }
}

} // namespace ETL_PlatformSlots
