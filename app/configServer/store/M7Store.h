// The configuration item table: every item the service has learnt, in the order of first
// insertion (m7ItemList) and by name (m7ItemMap), the ignore list, and the flag that says the
// user configuration file is behind the table. All of it lives on the service thread.
#pragma once

#include "chReferenceStringT.h"

#include <cstddef>
#include <cstdint>

using ETL_StringHelper::chStringA;

// One configuration item; made by NewM7Item, released with the whole table by ClearM7Model.
struct CM7Item {
    chStringA name;
    chStringA value; // exactly as a configuration text carries it; may be empty
    uint32_t attr;   // attribute flags as the name library reports them; 0 when unknown
};

struct CM7ListNode {
    CM7ListNode* pNext;
    CM7ListNode* pPrev;
    CM7Item* pItem;
};

// Doubly linked list between two sentinel nodes; TNode is {pNext, pPrev, payload}. Element nodes
// are carved from blocks, as they only ever go all together: a node costs its own size and no
// allocator header. Payloads are copied in and not owned beyond that.
template <typename TNode, typename TPayload>
class CM7SentinelList {
public:
    // The sentinels carry this payload, which no walk from First() to End() ever sees.
    explicit CM7SentinelList(const TPayload& sentinel);
    ~CM7SentinelList();
    CM7SentinelList(const CM7SentinelList&) = delete;
    CM7SentinelList& operator=(const CM7SentinelList&) = delete;

    void Append(const TPayload& payload);
    // Unlinks every element node and frees their blocks; the sentinels stay.
    void Clear();
    uint32_t Count() const { return m_nCount; }
    // Walk in insertion order: for (n = First(); n != End(); n = n->pNext).
    TNode* First() const { return m_pHead->pNext; }
    const TNode* End() const { return m_pTail; }

private:
    TNode* m_pHead;
    TNode* m_pTail;
    uint32_t m_nCount;
    void* m_pBlocks = nullptr; // newest first; each block starts with the link to the one before
    uint32_t m_nUsedInBlock = 0;
};

// The items in insertion order; does not own the records.
class CM7ItemList : public CM7SentinelList<CM7ListNode, CM7Item*> {
public:
    CM7ItemList() : CM7SentinelList(nullptr) {}
};

// A map node. The key is the name's text plus its full hash, which sits in what would be padding:
// with 1000 fixed buckets a chain holds a hundred names at 100,000 items, many of one length, and
// the hash settles nearly every comparison without touching the text (a cache miss per node).
struct CM7MapNode {
    CM7MapNode* pNext; // next in the same bucket chain (or in the free list)
    uint32_t nBucket;
    uint32_t nKeyHash;
    chStringA strKey;
    CM7Item* pValue;
};

// One name of a batch looked up with CM7ItemMap::FindMany.
struct CM7Lookup {
    const char* szName;
    size_t nLen;
    uint32_t nHash;
    CM7MapNode* pHead;  // the chain's head when it was walked
    CM7MapNode* pFound; // the name's node then, or null
    CM7MapNode* pAt;    // walk cursor
};

// Chained hash map with 1000 fixed buckets, the chains giving the order of a full walk, and an
// open-addressing index beside them that finds a name without walking its chain (a chain holds a
// hundred names at 100,000 items, each visit a cache miss). Nodes are numbered in insertion order
// and pooled in blocks; nothing is erased singly, the map grows until the whole model is cleared.
class CM7ItemMap {
public:
    CM7ItemMap();
    ~CM7ItemMap();
    CM7ItemMap(const CM7ItemMap&) = delete;
    CM7ItemMap& operator=(const CM7ItemMap&) = delete;

    static uint32_t Hash(const char* szName, size_t nLen);
    uint32_t BucketOf(const char* szName, size_t nLen) const;

    CM7MapNode* Find(const char* szName, size_t nLen) const;

    // Looks up a batch of names (szName, nLen set) at once; the index slots are fetched for the
    // whole batch first, so that their cache misses overlap.
    void FindMany(CM7Lookup* pLookups, size_t nCount) const;
    // A name FindMany did not find, looked up again among the nodes linked since that walk.
    CM7MapNode* FindSince(const CM7Lookup& lookup) const;
    // Inserts a key the caller knows to be absent, without walking its chain; nHash is its
    // Hash() when the caller has it already.
    void InsertAbsent(const chStringA& strKey, CM7Item* pItem);
    void InsertAbsent(const chStringA& strKey, uint32_t nHash, CM7Item* pItem);

    // The four steps of clearing the model, on the map's side: records, keys, buckets, blocks.
    void ReleaseAll(bool bReleaseRecords);

    uint32_t Count() const { return m_nCount; }
    uint32_t BucketCount() const { return m_nBucketCount; }
    bool HasBuckets() const { return m_ppBuckets != nullptr; }
    size_t BlockCount() const;
    CM7MapNode* BucketHead(uint32_t nBucket) const { return m_ppBuckets != nullptr ? m_ppBuckets[nBucket] : nullptr; }

private:
    CM7MapNode* TakeNode();
    // Takes a node for an absent key and links it at the head of its chain.
    CM7MapNode* LinkNew(const chStringA& strKey, uint32_t nHash);
    CM7MapNode* FindHashed(const char* szName, size_t nLen, uint32_t nHash) const;
    static bool Matches(const CM7MapNode* pNode, const char* szName, size_t nLen, uint32_t nHash);
    CM7MapNode* NodeAt(uint32_t nNumber) const;
    // Enters node nNumber in the index, growing it first when it would fill past three quarters.
    void IndexAdd(uint32_t nNumber, uint32_t nHash);
    void IndexPut(uint32_t nNumber, uint32_t nHash);

    CM7MapNode** m_ppBuckets;
    uint32_t m_nBucketCount;
    uint32_t m_nCount;
    CM7MapNode** m_ppBlocks = nullptr; // node n is m_ppBlocks[n / block size][n % block size]
    uint32_t m_nBlockSlots = 0;
    // Slots: 0 empty, else the top 8 bits of the mixed hash over (node number + 1).
    uint32_t* m_pIndex = nullptr;
    uint32_t m_nIndexMask = 0;
};

struct CM7IgnoreItem {
    chStringA pattern; // empty when the ignore list's element had no "M7" attribute
    int32_t length;    // 0 exact, > 0 compare that many characters, < 0 never matches
};

struct CM7IgnoreNode {
    CM7IgnoreNode* pNext;
    CM7IgnoreNode* pPrev;
    CM7IgnoreItem item;
};

class CM7IgnoreList : public CM7SentinelList<CM7IgnoreNode, CM7IgnoreItem> {
public:
    CM7IgnoreList() : CM7SentinelList(CM7IgnoreItem{chStringA(), -1}) {}

    void Append(const char* szPattern, int32_t nLength);
    // Unlinks and frees every entry from the back; the sentinels stay.
    void Clear();
    // Changes with every Append and Clear, so that an index built from the list knows it is stale.
    uint64_t Version() const { return m_nVersion; }

private:
    uint64_t m_nVersion = 0;
};

extern CM7ItemList m7ItemList;
extern CM7ItemMap m7ItemMap;
extern CM7IgnoreList ignoreM7List;
// Nonzero while registry saves have changed the table since the user file was last written.
extern int32_t m7ModelChanged;

// A record from the table's pool. Records are only ever released all together, by ClearM7Model.
CM7Item* NewM7Item(const chStringA& strName, const chStringA& strValue, uint32_t nAttr);
// The record of the name, or null.
CM7Item* FindM7Item(const char* szName);
// Appends a fully built record to the list, then enters it in the map. Every caller has just
// looked the name up and found it absent, so the map links it without walking its chain again.
void AppendM7Item(CM7Item* pItem);
// The same, for a caller that has hashed the name already (CM7ItemMap::Hash).
void AppendM7Item(CM7Item* pItem, uint32_t nNameHash);
// Sets (or creates) an item; with ATTR_BASE0 the value is stored plus one. True when the item was
// set, the same value again included (an upload is then due), false for a null name or value.
bool SetM7Item(const char* szName, const char* szValue, uint32_t nAttr);
// Replaces the value of an item in the table. Every change of a value goes through here, through
// AppendM7Item or through ClearM7Model, so that the journal sees them all.
void SetM7ItemValue(CM7Item& item, const chStringA& strValue);
// Empties the table.
void ClearM7Model();
