// The change journal: a fixed ring of the last changes to item values, each with its time and
// the request it came from. Held in memory only; the newest entry takes the oldest one's place.
#pragma once

#include "chReferenceStringT.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using ETL_StringHelper::chStringA;

struct CM7JournalEntry {
    enum : uint8_t {
        NO_OLD = 0x1,  // the item was new
        NO_NEW = 0x2,  // the item went away
        HIDDEN = 0x4,  // an encrypted item: no values kept
        OLD_CUT = 0x8, // the value kept is the start of a longer one
        NEW_CUT = 0x10,
        NAME_CUT = 0x20,
        ALL = 0x40,    // the whole table at once: cleared (strOld) or loaded (strNew), with a count
    };
    chStringA strName;
    chStringA strOld; // values up to the cut length share the table's text: no copy is made
    chStringA strNew;
    chStringA strOrigin; // shared by every entry of one request
    // The steady clock in seconds and milliseconds, packed with the flags into one word: the
    // ring's memory counts towards the idle footprint.
    uint32_t nSeconds = 0;
    uint16_t nMillis = 0;
    uint8_t nFlags = 0;
};

class CM7Journal {
public:
    // Texts longer than this are kept cut to it, so the ring's memory stays bounded.
    static constexpr int kMaxText = 256;

    explicit CM7Journal(size_t nCapacity);
    CM7Journal(const CM7Journal&) = delete;
    CM7Journal& operator=(const CM7Journal&) = delete;

    // One change of an item. pOld null: the item is new; the entry is left out when the value
    // stays the same. Encrypted items (ATTR_ENCRYPT in nAttr) are entered without their values.
    void RecordChange(const chStringA& strName, const chStringA* pOld, const chStringA& strNew, uint32_t nAttr);
    // The clearing of the whole table of nItems items: one entry.
    void RecordClear(uint32_t nItems);
    // A bulk load that set nItems items: one entry.
    void RecordLoad(uint32_t nItems);

    size_t Capacity() const { return m_nCapacity; }
    size_t Count() const { return m_vecRing.size() < m_nCapacity ? m_vecRing.size() : m_nCapacity; }
    // Entry i, 0 the oldest kept, Count() - 1 the newest.
    const CM7JournalEntry& At(size_t i) const;
    // True when the entry concerns the item named by the nLen bytes at pName (a clearing does).
    static bool Concerns(const CM7JournalEntry& entry, const char* pName, size_t nLen);
    // "time name old -> new origin\n": values quoted with C escapes, "-" for none, "<hidden>" for
    // an encrypted item, "..." after a cut value.
    static void AppendLine(const CM7JournalEntry& entry, std::string& strOut);

private:
    CM7JournalEntry& Next();
    // One "*" entry for an event of the whole table: "N items" is the old side of a clearing and
    // the new side of a load.
    void RecordWholeTable(uint32_t nItems, bool bCleared);

    std::vector<CM7JournalEntry> m_vecRing; // grows to the capacity, then wraps
    size_t m_nCapacity;
    size_t m_nNext = 0; // slot of the next entry once the ring is full
};

// The source of the changes made while it lives (a reload request, a registry key, ...). Each
// handler that changes items sets one; nested ones hide the outer one until they end.
class CM7ChangeOrigin {
public:
    enum EKind { EACH, BULK };
    // EACH: every change is an entry. BULK: the changes are counted and entered as one line when
    // the origin ends (the start-up load: thousands of first values that would only push each
    // other out of the ring, and whose entries would count towards the idle footprint).
    CM7ChangeOrigin(EKind eKind, const char* szFormat, ...) __attribute__((format(printf, 3, 4)));
    ~CM7ChangeOrigin();
    CM7ChangeOrigin(const CM7ChangeOrigin&) = delete;
    CM7ChangeOrigin& operator=(const CM7ChangeOrigin&) = delete;

    // The innermost origin alive, or "unknown".
    static const chStringA& Current();

private:
    friend class CM7Journal;
    // True when the innermost origin counts changes for the journal instead of entering them.
    static bool CountBulk(CM7Journal& journal);

    chStringA m_strText;
    CM7ChangeOrigin* m_pOuter;
    EKind m_eKind;
    CM7Journal* m_pBulkJournal = nullptr;
    uint32_t m_nBulk = 0;
};

// The service's journal; its size is fixed when the program is built.
extern CM7Journal m7Journal;
