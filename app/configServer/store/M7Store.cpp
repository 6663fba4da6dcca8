// The item table's containers and operations. The three containers are defined here, in this
// order, so that static initialisation builds them in it and exit tears them down in reverse.
#include "M7Store.h"

#include "ETL_BaseHelper.h"
#include "M7Journal.h"
#include "M7Mapping.h"

#include <cstring>
#include <new>
#include <type_traits>

CM7ItemList m7ItemList;
CM7ItemMap m7ItemMap;
CM7IgnoreList ignoreM7List;
int32_t m7ModelChanged = 0;

// ---- blocks ----

namespace {

// The pools' blocks, of one size each, go here when the table is cleared, up to 4 MiB a size (a
// table of 100,000 items), and are taken again by the next load: a cleared table is nearly always
// loaded again at once, and blocks fresh from the heap would each fault their pages in anew. Past
// that they go back, so that one outsized load does not stay with the phone for good.
template <size_t kBytes>
struct CM7SpareBlocks {
    static constexpr size_t kMaxSpares = (4u << 20) / kBytes;
    struct CList {
        void* pHead = nullptr;
        size_t nCount = 0;
    };
    static CList& Spares()
    {
        static CList s_spares;
        return s_spares;
    }
    static void* Take()
    {
        CList& spares = Spares();
        void* pBlock = spares.pHead;
        if (pBlock == nullptr)
            return ETL_NEW char[kBytes];
        spares.pHead = *static_cast<void**>(pBlock);
        --spares.nCount;
        return pBlock;
    }
    static void Give(void* pBlock)
    {
        CList& spares = Spares();
        if (spares.nCount == kMaxSpares) {
            delete[] static_cast<char*>(pBlock);
            return;
        }
        *static_cast<void**>(pBlock) = spares.pHead;
        spares.pHead = pBlock;
        ++spares.nCount;
    }
};

} // namespace

// ---- the sentinel lists ----

template <typename TNode, typename TPayload>
CM7SentinelList<TNode, TPayload>::CM7SentinelList(const TPayload& sentinel)
    : m_pHead(ETL_NEW TNode{nullptr, nullptr, sentinel}), m_pTail(ETL_NEW TNode{nullptr, nullptr, sentinel}), m_nCount(0)
{
    m_pHead->pNext = m_pTail;
    m_pTail->pPrev = m_pHead;
}

template <typename TNode, typename TPayload>
CM7SentinelList<TNode, TPayload>::~CM7SentinelList()
{
    Clear();
    delete m_pHead;
    delete m_pTail;
}

namespace {

const uint32_t kListNodesPerBlock = 128;

template <typename TNode>
using CM7ListBlocks = CM7SpareBlocks<sizeof(void*) + alignof(TNode) + sizeof(TNode) * kListNodesPerBlock>;

// Where a block's nodes start: after the link to the block before, aligned for the node.
template <typename TNode>
TNode* ListBlockNodes(void* pBlock)
{
    const size_t nHeader = (sizeof(void*) + alignof(TNode) - 1) / alignof(TNode) * alignof(TNode);
    return reinterpret_cast<TNode*>(static_cast<char*>(pBlock) + nHeader);
}

} // namespace

template <typename TNode, typename TPayload>
void CM7SentinelList<TNode, TPayload>::Append(const TPayload& payload)
{
    if (m_pBlocks == nullptr || m_nUsedInBlock == kListNodesPerBlock) {
        void* pBlock = CM7ListBlocks<TNode>::Take();
        *static_cast<void**>(pBlock) = m_pBlocks;
        m_pBlocks = pBlock;
        m_nUsedInBlock = 0;
    }
    TNode* pNode = new (ListBlockNodes<TNode>(m_pBlocks) + m_nUsedInBlock++) TNode{m_pTail, m_pTail->pPrev, payload};
    m_pTail->pPrev->pNext = pNode;
    m_pTail->pPrev = pNode;
    ++m_nCount;
}

template <typename TNode, typename TPayload>
void CM7SentinelList<TNode, TPayload>::Clear()
{
    if (!std::is_trivially_destructible<TNode>::value) {
        for (TNode* pNode = m_pHead->pNext; pNode != m_pTail;) {
            TNode* pNext = pNode->pNext;
            pNode->~TNode();
            pNode = pNext;
        }
    }
    m_pHead->pNext = m_pTail;
    m_pTail->pPrev = m_pHead;
    m_nCount = 0;
    while (m_pBlocks != nullptr) {
        void* pNext = *static_cast<void**>(m_pBlocks);
        CM7ListBlocks<TNode>::Give(m_pBlocks);
        m_pBlocks = pNext;
    }
    m_nUsedInBlock = 0;
}

// The two lists of the store; nothing else instantiates the template.
template class CM7SentinelList<CM7ListNode, CM7Item*>;
template class CM7SentinelList<CM7IgnoreNode, CM7IgnoreItem>;

// ---- the records ----

namespace {

// Records come from blocks and go back all together when the table is cleared, the only time a
// record goes: one costs its own size and no allocator header.
const uint32_t kItemsPerBlock = 128;

struct CM7ItemBlock {
    CM7ItemBlock* pBefore;
    alignas(CM7Item) unsigned char aRaw[sizeof(CM7Item) * kItemsPerBlock];
};

CM7ItemBlock* g_pItemBlocks = nullptr; // newest first
uint32_t g_nItemsInBlock = 0;

void FreeM7ItemBlocks()
{
    while (g_pItemBlocks != nullptr) {
        CM7ItemBlock* pBefore = g_pItemBlocks->pBefore;
        CM7SpareBlocks<sizeof(CM7ItemBlock)>::Give(g_pItemBlocks);
        g_pItemBlocks = pBefore;
    }
    g_nItemsInBlock = 0;
}

} // namespace

CM7Item* NewM7Item(const chStringA& strName, const chStringA& strValue, uint32_t nAttr)
{
    if (g_pItemBlocks == nullptr || g_nItemsInBlock == kItemsPerBlock) {
        CM7ItemBlock* pBlock = static_cast<CM7ItemBlock*>(CM7SpareBlocks<sizeof(CM7ItemBlock)>::Take());
        pBlock->pBefore = g_pItemBlocks;
        g_pItemBlocks = pBlock;
        g_nItemsInBlock = 0;
    }
    void* pRaw = g_pItemBlocks->aRaw + sizeof(CM7Item) * g_nItemsInBlock++;
    return new (pRaw) CM7Item{strName, strValue, nAttr};
}

// ---- CM7ItemMap ----

namespace {

const uint32_t kNodesPerBlock = 64;
// A slot keeps the node number (plus one) in its low 24 bits and a tag of the hash above them.
const uint32_t kNumberBits = 24;
const uint32_t kNumberMask = (1u << kNumberBits) - 1;
// Past this many items the index would overflow its slots: names are then found by their chains.
const uint32_t kIndexLimit = kNumberMask - 1;

// The names' hash is made for the 1000 buckets; the index needs its bits spread.
uint32_t Mix(uint32_t h)
{
    h ^= h >> 16;
    h *= 0x7feb352du;
    h ^= h >> 15;
    h *= 0x846ca68bu;
    h ^= h >> 16;
    return h;
}

uint32_t TagOf(uint32_t nMixed)
{
    return nMixed & ~kNumberMask;
}

} // namespace

CM7ItemMap::CM7ItemMap() : m_ppBuckets(nullptr), m_nBucketCount(1000), m_nCount(0)
{
}

CM7ItemMap::~CM7ItemMap()
{
    // Exit-time teardown: keys, buckets and blocks; the records go with the process.
    ReleaseAll(false);
}

uint32_t CM7ItemMap::Hash(const char* szName, size_t nLen)
{
    uint32_t h = 0;
    for (size_t i = 0; i < nLen; ++i)
        h = h * 131u + static_cast<unsigned char>(szName[i]);
    return h;
}

uint32_t CM7ItemMap::BucketOf(const char* szName, size_t nLen) const
{
    return (Hash(szName, nLen) & 0x7fffffffu) % m_nBucketCount;
}

CM7MapNode* CM7ItemMap::Find(const char* szName, size_t nLen) const
{
    if (m_ppBuckets == nullptr || szName == nullptr)
        return nullptr;
    return FindHashed(szName, nLen, Hash(szName, nLen));
}

bool CM7ItemMap::Matches(const CM7MapNode* pNode, const char* szName, size_t nLen, uint32_t nHash)
{
    return pNode->nKeyHash == nHash && static_cast<size_t>(pNode->strKey.GetLength()) == nLen &&
           std::memcmp(pNode->strKey.c_str(), szName, nLen) == 0;
}

CM7MapNode* CM7ItemMap::NodeAt(uint32_t nNumber) const
{
    return m_ppBlocks[nNumber / kNodesPerBlock] + nNumber % kNodesPerBlock;
}

CM7MapNode* CM7ItemMap::FindHashed(const char* szName, size_t nLen, uint32_t nHash) const
{
    if (m_pIndex != nullptr) {
        uint32_t nMixed = Mix(nHash);
        for (uint32_t i = nMixed & m_nIndexMask;; i = (i + 1) & m_nIndexMask) {
            uint32_t nSlot = m_pIndex[i];
            if (nSlot == 0)
                return nullptr;
            if (TagOf(nSlot) == TagOf(nMixed)) {
                CM7MapNode* pNode = NodeAt((nSlot & kNumberMask) - 1);
                if (Matches(pNode, szName, nLen, nHash))
                    return pNode;
            }
        }
    }
    for (CM7MapNode* pNode = m_ppBuckets[(nHash & 0x7fffffffu) % m_nBucketCount]; pNode != nullptr; pNode = pNode->pNext) {
        if (Matches(pNode, szName, nLen, nHash))
            return pNode;
    }
    return nullptr;
}

void CM7ItemMap::FindMany(CM7Lookup* pLookups, size_t nCount) const
{
    for (size_t i = 0; i < nCount; ++i) {
        CM7Lookup& lookup = pLookups[i];
        lookup.nHash = Hash(lookup.szName, lookup.nLen);
        lookup.pFound = nullptr;
        lookup.pHead = nullptr;
        lookup.pAt = nullptr;
        if (m_pIndex != nullptr)
            __builtin_prefetch(&m_pIndex[Mix(lookup.nHash) & m_nIndexMask]);
    }
    if (m_ppBuckets == nullptr)
        return;
    for (size_t i = 0; i < nCount; ++i) {
        CM7Lookup& lookup = pLookups[i];
        lookup.pFound = FindHashed(lookup.szName, lookup.nLen, lookup.nHash);
    }
}

CM7MapNode* CM7ItemMap::FindSince(const CM7Lookup& lookup) const
{
    // Absent when the batch was looked up, so whatever is found now was linked since.
    if (m_ppBuckets == nullptr)
        return nullptr;
    return FindHashed(lookup.szName, lookup.nLen, lookup.nHash);
}

CM7MapNode* CM7ItemMap::TakeNode()
{
    uint32_t nBlock = m_nCount / kNodesPerBlock;
    if (m_nCount % kNodesPerBlock == 0) {
        if (nBlock == m_nBlockSlots) {
            uint32_t nSlots = m_nBlockSlots == 0 ? 16 : m_nBlockSlots * 2;
            CM7MapNode** ppBlocks = ETL_NEW CM7MapNode*[nSlots];
            if (m_nBlockSlots > 0)
                std::memcpy(ppBlocks, m_ppBlocks, sizeof(CM7MapNode*) * m_nBlockSlots);
            delete[] m_ppBlocks;
            m_ppBlocks = ppBlocks;
            m_nBlockSlots = nSlots;
        }
        m_ppBlocks[nBlock] = static_cast<CM7MapNode*>(CM7SpareBlocks<sizeof(CM7MapNode) * kNodesPerBlock>::Take());
    }
    CM7MapNode* pRaw = m_ppBlocks[nBlock] + m_nCount % kNodesPerBlock;
    ++m_nCount;
    return new (pRaw) CM7MapNode{nullptr, 0, 0, chStringA(), nullptr};
}

void CM7ItemMap::InsertAbsent(const chStringA& strKey, CM7Item* pItem)
{
    InsertAbsent(strKey, Hash(strKey.c_str(), static_cast<size_t>(strKey.GetLength())), pItem);
}

void CM7ItemMap::InsertAbsent(const chStringA& strKey, uint32_t nHash, CM7Item* pItem)
{
    LinkNew(strKey, nHash)->pValue = pItem;
}

CM7MapNode* CM7ItemMap::LinkNew(const chStringA& strKey, uint32_t nHash)
{
    if (m_ppBuckets == nullptr) {
        m_ppBuckets = ETL_NEW CM7MapNode*[m_nBucketCount];
        std::memset(m_ppBuckets, 0, sizeof(CM7MapNode*) * m_nBucketCount);
    }
    CM7MapNode* pNode = TakeNode();
    pNode->nKeyHash = nHash;
    pNode->nBucket = (nHash & 0x7fffffffu) % m_nBucketCount;
    pNode->strKey = strKey;
    pNode->pNext = m_ppBuckets[pNode->nBucket];
    m_ppBuckets[pNode->nBucket] = pNode;
    IndexAdd(m_nCount - 1, nHash);
    return pNode;
}

void CM7ItemMap::IndexPut(uint32_t nNumber, uint32_t nHash)
{
    uint32_t nMixed = Mix(nHash);
    uint32_t i = nMixed & m_nIndexMask;
    while (m_pIndex[i] != 0)
        i = (i + 1) & m_nIndexMask;
    m_pIndex[i] = TagOf(nMixed) | (nNumber + 1);
}

void CM7ItemMap::IndexAdd(uint32_t nNumber, uint32_t nHash)
{
    if (m_nCount > kIndexLimit) {
        delete[] m_pIndex;
        m_pIndex = nullptr;
        m_nIndexMask = 0;
        return;
    }
    uint64_t nSlots = static_cast<uint64_t>(m_nIndexMask) + 1;
    if (m_pIndex == nullptr || static_cast<uint64_t>(m_nCount) * 4 > nSlots * 3) {
        nSlots = m_pIndex == nullptr ? 64 : nSlots * 2;
        delete[] m_pIndex;
        m_pIndex = ETL_NEW uint32_t[nSlots];
        std::memset(m_pIndex, 0, sizeof(uint32_t) * nSlots);
        m_nIndexMask = static_cast<uint32_t>(nSlots - 1);
        for (uint32_t n = 0; n < nNumber; ++n)
            IndexPut(n, NodeAt(n)->nKeyHash);
    }
    IndexPut(nNumber, nHash);
}

size_t CM7ItemMap::BlockCount() const
{
    return (m_nCount + kNodesPerBlock - 1) / kNodesPerBlock;
}

void CM7ItemMap::ReleaseAll(bool bReleaseRecords)
{
    // 1. The records, in bucket order.
    if (bReleaseRecords && m_nCount >= 1 && m_nBucketCount != 0 && m_ppBuckets != nullptr) {
        for (uint32_t b = 0; b < m_nBucketCount; ++b) {
            for (CM7MapNode* pNode = m_ppBuckets[b]; pNode != nullptr; pNode = pNode->pNext) {
                if (pNode->pValue != nullptr)
                    pNode->pValue->~CM7Item();
                pNode->pValue = nullptr;
            }
        }
        FreeM7ItemBlocks();
    }
    // 2. The keys, then the bucket array and the index.
    for (uint32_t n = 0; n < m_nCount; ++n)
        NodeAt(n)->~CM7MapNode();
    delete[] m_ppBuckets;
    m_ppBuckets = nullptr;
    delete[] m_pIndex;
    m_pIndex = nullptr;
    m_nIndexMask = 0;
    // 3. The pool and its blocks.
    size_t nBlocks = BlockCount();
    for (size_t i = 0; i < nBlocks; ++i)
        CM7SpareBlocks<sizeof(CM7MapNode) * kNodesPerBlock>::Give(m_ppBlocks[i]);
    delete[] m_ppBlocks;
    m_ppBlocks = nullptr;
    m_nBlockSlots = 0;
    m_nCount = 0;
}

// ---- CM7IgnoreList ----

void CM7IgnoreList::Append(const char* szPattern, int32_t nLength)
{
    CM7SentinelList::Append(CM7IgnoreItem{chStringA(szPattern), nLength});
    ++m_nVersion;
}

void CM7IgnoreList::Clear()
{
    ++m_nVersion;
    CM7SentinelList::Clear();
}

// ---- operations ----

CM7Item* FindM7Item(const char* szName)
{
    if (szName == nullptr)
        return nullptr;
    CM7MapNode* pNode = m7ItemMap.Find(szName, std::strlen(szName));
    return pNode != nullptr ? pNode->pValue : nullptr;
}

void AppendM7Item(CM7Item* pItem)
{
    AppendM7Item(pItem, CM7ItemMap::Hash(pItem->name.c_str(), static_cast<size_t>(pItem->name.GetLength())));
}

void AppendM7Item(CM7Item* pItem, uint32_t nNameHash)
{
    m7Journal.RecordChange(pItem->name, nullptr, pItem->value, pItem->attr);
    m7ItemList.Append(pItem);
    m7ItemMap.InsertAbsent(pItem->name, nNameHash, pItem);
}

bool SetM7Item(const char* szName, const char* szValue, uint32_t nAttr)
{
    if (szName == nullptr || szValue == nullptr)
        return false;
    char szBase0[64];
    if ((nAttr & ATTR_BASE0) != 0) {
        FormatBase0Value(szValue, szBase0, sizeof(szBase0));
        szValue = szBase0;
    }
    CM7Item* pItem = FindM7Item(szName);
    if (pItem == nullptr) {
        AppendM7Item(NewM7Item(chStringA(szName), chStringA(szValue), nAttr));
        return true;
    }
    pItem->attr = nAttr;
    SetM7ItemValue(*pItem, chStringA(szValue));
    return true;
}

void SetM7ItemValue(CM7Item& item, const chStringA& strValue)
{
    m7Journal.RecordChange(item.name, &item.value, strValue, item.attr);
    item.value = strValue;
}

void ClearM7Model()
{
    m7Journal.RecordClear(m7ItemList.Count());
    m7ItemMap.ReleaseAll(true);
    m7ItemList.Clear();
}
