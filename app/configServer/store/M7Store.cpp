// The item table's containers and operations. The three containers are defined here, in this
// order, so that static initialisation builds them in it and exit tears them down in reverse.
#include "M7Store.h"

#include "ETL_BaseHelper.h"
#include "M7Journal.h"
#include "M7Mapping.h"

#include <cstring>
#include <new>

CM7ItemList m7ItemList;
CM7ItemMap m7ItemMap;
CM7IgnoreList ignoreM7List;
int32_t m7ModelChanged = 0;

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

template <typename TNode, typename TPayload>
void CM7SentinelList<TNode, TPayload>::Append(const TPayload& payload)
{
    TNode* pNode = ETL_NEW TNode{m_pTail, m_pTail->pPrev, payload};
    m_pTail->pPrev->pNext = pNode;
    m_pTail->pPrev = pNode;
    ++m_nCount;
}

template <typename TNode, typename TPayload>
void CM7SentinelList<TNode, TPayload>::Clear()
{
    while (m_nCount > 0 && m_pTail->pPrev != m_pHead) {
        TNode* pNode = m_pTail->pPrev;
        pNode->pPrev->pNext = m_pTail;
        m_pTail->pPrev = pNode->pPrev;
        delete pNode;
        --m_nCount;
    }
}

// The two lists of the store; nothing else instantiates the template.
template class CM7SentinelList<CM7ListNode, CM7Item*>;
template class CM7SentinelList<CM7IgnoreNode, CM7IgnoreItem>;

// ---- CM7ItemMap ----

namespace {

// A block is one allocation: the link to the next block, then the nodes.
const size_t kBlockHeader = (sizeof(void*) + alignof(CM7MapNode) - 1) / alignof(CM7MapNode) * alignof(CM7MapNode);

CM7MapNode* BlockNodes(void* pBlock)
{
    return reinterpret_cast<CM7MapNode*>(static_cast<char*>(pBlock) + kBlockHeader);
}

void*& BlockNext(void* pBlock)
{
    return *static_cast<void**>(pBlock);
}

} // namespace

CM7ItemMap::CM7ItemMap()
    : m_ppBuckets(nullptr), m_nBucketCount(1000), m_nCount(0), m_pFreeNodes(nullptr), m_pBlocks(nullptr),
      m_nNodesPerBlock(10)
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

CM7MapNode* CM7ItemMap::FindHashed(const char* szName, size_t nLen, uint32_t nHash) const
{
    for (CM7MapNode* pNode = m_ppBuckets[(nHash & 0x7fffffffu) % m_nBucketCount]; pNode != nullptr; pNode = pNode->pNext) {
        if (Matches(pNode, szName, nLen, nHash))
            return pNode;
    }
    return nullptr;
}

void CM7ItemMap::FindMany(CM7Lookup* pLookups, size_t nCount) const
{
    size_t nWalking = 0;
    for (size_t i = 0; i < nCount; ++i) {
        CM7Lookup& lookup = pLookups[i];
        lookup.nHash = Hash(lookup.szName, lookup.nLen);
        lookup.pFound = nullptr;
        lookup.pHead = m_ppBuckets != nullptr ? m_ppBuckets[(lookup.nHash & 0x7fffffffu) % m_nBucketCount] : nullptr;
        lookup.pAt = lookup.pHead;
        nWalking += lookup.pAt != nullptr ? 1 : 0;
    }
    // One step of every unfinished walk per round: the loads of a round do not depend on each
    // other, so the processor has them in flight together.
    while (nWalking > 0) {
        nWalking = 0;
        for (size_t i = 0; i < nCount; ++i) {
            CM7Lookup& lookup = pLookups[i];
            CM7MapNode* pNode = lookup.pAt;
            if (pNode == nullptr)
                continue;
            if (Matches(pNode, lookup.szName, lookup.nLen, lookup.nHash)) {
                lookup.pFound = pNode;
                lookup.pAt = nullptr;
                continue;
            }
            lookup.pAt = pNode->pNext;
            nWalking += lookup.pAt != nullptr ? 1 : 0;
        }
    }
}

CM7MapNode* CM7ItemMap::FindSince(const CM7Lookup& lookup) const
{
    if (m_ppBuckets == nullptr)
        return nullptr;
    // Nodes are only ever linked at a chain's head, so the new ones are those before the old head.
    for (CM7MapNode* pNode = m_ppBuckets[(lookup.nHash & 0x7fffffffu) % m_nBucketCount];
         pNode != nullptr && pNode != lookup.pHead; pNode = pNode->pNext) {
        if (Matches(pNode, lookup.szName, lookup.nLen, lookup.nHash))
            return pNode;
    }
    return nullptr;
}

CM7MapNode* CM7ItemMap::TakeNode()
{
    if (m_pFreeNodes == nullptr) {
        size_t nBytes = kBlockHeader + sizeof(CM7MapNode) * static_cast<size_t>(m_nNodesPerBlock);
        void* pBlock = ETL_NEW char[nBytes];
        BlockNext(pBlock) = m_pBlocks;
        m_pBlocks = pBlock;
        // Pushed last to first, so that the block's first node is handed out first.
        CM7MapNode* pNodes = BlockNodes(pBlock);
        for (int32_t i = m_nNodesPerBlock - 1; i >= 0; --i) {
            pNodes[i].pNext = m_pFreeNodes;
            m_pFreeNodes = &pNodes[i];
        }
    }
    CM7MapNode* pRaw = m_pFreeNodes;
    m_pFreeNodes = pRaw->pNext;
    ++m_nCount;
    return new (pRaw) CM7MapNode{nullptr, 0, 0, chStringA(), nullptr};
}

void CM7ItemMap::InsertAbsent(const chStringA& strKey, CM7Item* pItem)
{
    LinkNew(strKey, Hash(strKey.c_str(), static_cast<size_t>(strKey.GetLength())))->pValue = pItem;
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
    return pNode;
}

size_t CM7ItemMap::BlockCount() const
{
    size_t n = 0;
    for (void* pBlock = m_pBlocks; pBlock != nullptr; pBlock = BlockNext(pBlock))
        ++n;
    return n;
}

void CM7ItemMap::ReleaseAll(bool bReleaseRecords)
{
    // 1. The records, in bucket order.
    if (bReleaseRecords && m_nCount >= 1 && m_nBucketCount != 0 && m_ppBuckets != nullptr) {
        for (uint32_t b = 0; b < m_nBucketCount; ++b) {
            for (CM7MapNode* pNode = m_ppBuckets[b]; pNode != nullptr; pNode = pNode->pNext) {
                delete pNode->pValue;
                pNode->pValue = nullptr;
            }
        }
    }
    // 2. The keys, then the bucket array.
    if (m_ppBuckets != nullptr) {
        for (uint32_t b = 0; b < m_nBucketCount; ++b) {
            for (CM7MapNode* pNode = m_ppBuckets[b]; pNode != nullptr;) {
                CM7MapNode* pNext = pNode->pNext;
                pNode->~CM7MapNode();
                pNode = pNext;
            }
        }
        delete[] m_ppBuckets;
    }
    // 3. The pool and its blocks.
    m_pFreeNodes = nullptr;
    m_ppBuckets = nullptr;
    m_nCount = 0;
    while (m_pBlocks != nullptr) {
        void* pNext = BlockNext(m_pBlocks);
        delete[] static_cast<char*>(m_pBlocks);
        m_pBlocks = pNext;
    }
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
    m7Journal.RecordChange(pItem->name, nullptr, pItem->value, pItem->attr);
    m7ItemList.Append(pItem);
    m7ItemMap.InsertAbsent(pItem->name, pItem);
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
        AppendM7Item(ETL_NEW CM7Item{chStringA(szName), chStringA(szValue), nAttr});
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
