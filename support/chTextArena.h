// Text blocks carved from large chunks, for strings that are made once and then only read: the
// names and values a configuration text brings into the item table. A block costs its header and
// its text, with no allocator header and no rounding, and a chunk is free for new blocks again
// when the last string using any of its blocks lets go.
#pragma once

#include "chReferenceStringT.h"

#include <cstddef>
#include <cstdint>

namespace ETL_StringHelper {

class chTextArena {
public:
    chTextArena() = default;
    // Chunks whose blocks are still in use stay until those strings let go of them.
    ~chTextArena();
    chTextArena(const chTextArena&) = delete;
    chTextArena& operator=(const chTextArena&) = delete;

    // A string holding the first nCount characters of pText (fewer when a NUL comes first).
    // Texts too long for a chunk get an ordinary block.
    chReferenceStringT<char> Make(const char* pText, int nCount);

    // Chunks that hold blocks or are being carved, for the arena's own checks.
    static size_t ChunksInUse();

    // An arena block carries this on top of its owners in its reference count, so that the
    // string never writes into it in place, never reallocates it and never frees it itself.
    static constexpr int32_t kRefBase = 0x40000000;
    // Called by the string, and only by it, when the last owner of an arena block lets go.
    static void ReleaseBlock(chStringData* pData);

private:
    struct Chunk;
    static Chunk* TakeChunk();
    static void RetireChunk(Chunk* pChunk);

    static Chunk* s_pSpares;
    Chunk* m_pCurrent = nullptr;
};

} // namespace ETL_StringHelper
