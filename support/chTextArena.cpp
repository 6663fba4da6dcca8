// Chunks of text blocks for read-mostly strings. A chunk is mapped at an address aligned to its
// size, so that a block finds its chunk's header from its own address.
#include "chTextArena.h"

#include "ETL_MiscHelper.h"

#include <cstring>
#include <new>
#include <sys/mman.h>

namespace ETL_StringHelper {

struct chTextArena::Chunk {
    uint32_t nLive;   // blocks still owned by some string
    uint32_t nUsed;   // bytes handed out, the header included
    bool bCurrent;    // the arena still carves from it, so it stays in use while empty
    uint32_t nFaulted; // bytes from the start whose pages are faulted in
    Chunk* pNextSpare;
};

// Emptied chunks wait here for the next load, up to 8 MiB (the texts of 100,000 items), instead of
// going back to the system: a table cleared and loaded again would otherwise fault in every page
// anew. Past that they go back, so that one outsized load does not stay with the phone for good.
chTextArena::Chunk* chTextArena::s_pSpares = nullptr;

namespace {

const size_t kChunkSize = 64 * 1024;
const size_t kMaxSpares = 128;
const size_t kHeaderSize = 24; // the chunk's own words; blocks follow, 4-aligned
size_t g_nChunksInUse = 0;
size_t g_nSpares = 0;

size_t BlockBytes(int nLength)
{
    // Header, text, terminator, rounded to the header words' alignment.
    return (sizeof(chStringData) + static_cast<size_t>(nLength) + 1 + 3) & ~static_cast<size_t>(3);
}

void* MapAligned()
{
    // Twice the size, then the unaligned ends go back.
    void* pRaw = mmap(nullptr, 2 * kChunkSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pRaw == MAP_FAILED)
        return nullptr;
    uintptr_t nRaw = reinterpret_cast<uintptr_t>(pRaw);
    uintptr_t nAligned = (nRaw + kChunkSize - 1) & ~(kChunkSize - 1);
    if (nAligned > nRaw)
        (void)munmap(pRaw, nAligned - nRaw);
    size_t nTail = nRaw + 2 * kChunkSize - (nAligned + kChunkSize);
    if (nTail > 0)
        (void)munmap(reinterpret_cast<void*>(nAligned + kChunkSize), nTail);
    return reinterpret_cast<void*>(nAligned);
}

} // namespace

chTextArena::Chunk* chTextArena::TakeChunk()
{
    void* pChunk = s_pSpares;
    if (pChunk != nullptr) {
        s_pSpares = s_pSpares->pNextSpare;
        --g_nSpares;
    } else if ((pChunk = MapAligned()) == nullptr) {
        return nullptr;
    }
    ++g_nChunksInUse;
    return new (pChunk) Chunk{0, static_cast<uint32_t>(kHeaderSize), true, 0, nullptr};
}

void chTextArena::RetireChunk(Chunk* pChunk)
{
    --g_nChunksInUse;
    if (g_nSpares == kMaxSpares) {
        (void)munmap(pChunk, kChunkSize);
        return;
    }
    pChunk->pNextSpare = s_pSpares;
    s_pSpares = pChunk;
    ++g_nSpares;
}

chTextArena::~chTextArena()
{
    if (m_pCurrent == nullptr)
        return;
    m_pCurrent->bCurrent = false;
    if (m_pCurrent->nLive == 0)
        RetireChunk(m_pCurrent);
}

size_t chTextArena::ChunksInUse()
{
    return g_nChunksInUse;
}

chReferenceStringT<char> chTextArena::Make(const char* pText, int nCount)
{
    static_assert(sizeof(Chunk) <= kHeaderSize, "chunk header");
    chReferenceStringT<char> str;
    if (pText == nullptr || nCount <= 0)
        return str;
    int nLength = static_cast<int>(strnlen(pText, static_cast<size_t>(nCount)));
    if (nLength == 0)
        return str;
    size_t nBytes = BlockBytes(nLength);
    if (nBytes > kChunkSize - kHeaderSize) {
        str.CopyTextFrom(pText, nLength);
        return str;
    }
    if (m_pCurrent == nullptr || m_pCurrent->nUsed + nBytes > kChunkSize) {
        Chunk* pOld = m_pCurrent;
        Chunk* pNew = TakeChunk();
        if (pNew == nullptr) {
            str.CopyTextFrom(pText, nLength);
            return str;
        }
        m_pCurrent = pNew;
        if (pOld != nullptr) {
            pOld->bCurrent = false;
            if (pOld->nLive == 0)
                RetireChunk(pOld);
        }
    }
    if (m_pCurrent->nUsed + nBytes > m_pCurrent->nFaulted) {
        // A quarter of a chunk at a time: one call instead of four page faults, and the pages of
        // the last chunk that no block reaches stay untouched.
        const uint32_t kStep = kChunkSize / 4;
        uint32_t nFrom = m_pCurrent->nFaulted;
        uint32_t nTo = (m_pCurrent->nUsed + static_cast<uint32_t>(nBytes) + kStep - 1) / kStep * kStep;
        ETL_MiscHelper::etlPrefault(reinterpret_cast<char*>(m_pCurrent) + nFrom, nTo - nFrom);
        m_pCurrent->nFaulted = nTo;
    }
    chStringData* pData = reinterpret_cast<chStringData*>(reinterpret_cast<char*>(m_pCurrent) + m_pCurrent->nUsed);
    m_pCurrent->nUsed += static_cast<uint32_t>(nBytes);
    ++m_pCurrent->nLive;
    // Capacity is the text itself: nothing is ever written into an arena block after this.
    pData->nCapacity = nLength;
    pData->nRefs = kRefBase + 1;
    pData->nLength = nLength;
    std::memcpy(pData->Text(), pText, static_cast<size_t>(nLength));
    std::memset(pData->Text() + nLength, 0, nBytes - sizeof(chStringData) - static_cast<size_t>(nLength));
    str.m_pText = pData->Text();
    return str;
}

void chTextArena::ReleaseBlock(chStringData* pData)
{
    Chunk* pChunk = reinterpret_cast<Chunk*>(reinterpret_cast<uintptr_t>(pData) & ~(kChunkSize - 1));
    if (--pChunk->nLive != 0)
        return;
    if (pChunk->bCurrent)
        pChunk->nUsed = static_cast<uint32_t>(kHeaderSize); // carve it again from the start
    else
        RetireChunk(pChunk);
}

} // namespace ETL_StringHelper
