// The change journal's ring, its lines, and the current origin of changes.
#include "M7Journal.h"

#include "M7Mapping.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#ifndef CFG_JOURNAL_SIZE
#define CFG_JOURNAL_SIZE 256
#endif

CM7Journal m7Journal(CFG_JOURNAL_SIZE);

namespace {

CM7ChangeOrigin* g_pCurrentOrigin = nullptr;

// Puts the text itself in strKept when short enough (shared, no copy), else a copy of its start.
// Assigned in place: a reload changes a hundred thousand items, each one an entry.
bool KeepText(chStringA& strKept, const chStringA& str)
{
    if (str.GetLength() <= CM7Journal::kMaxText) {
        strKept = str;
        return false;
    }
    strKept.CopyTextFrom(str.c_str(), CM7Journal::kMaxText);
    return true;
}

bool SameText(const chStringA& a, const chStringA& b)
{
    return a.GetLength() == b.GetLength() && std::memcmp(a.c_str(), b.c_str(), static_cast<size_t>(a.GetLength())) == 0;
}

void AppendQuoted(std::string& strOut, const chStringA& str, bool bCut)
{
    strOut += '"';
    const unsigned char* p = reinterpret_cast<const unsigned char*>(str.c_str());
    for (int i = 0, n = str.GetLength(); i < n; ++i) {
        unsigned char c = p[i];
        if (c == '\\' || c == '"') {
            strOut += '\\';
            strOut += static_cast<char>(c);
        } else if (c >= 0x20 && c < 0x7f) {
            strOut += static_cast<char>(c);
        } else {
            char szHex[8];
            (void)snprintf(szHex, sizeof(szHex), "\\x%02x", c);
            strOut += szHex;
        }
    }
    strOut += '"';
    if (bCut)
        strOut += "...";
}

void Stamp(CM7JournalEntry& entry)
{
    int64_t nMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                      std::chrono::steady_clock::now().time_since_epoch())
                      .count();
    entry.nSeconds = static_cast<uint32_t>(nMs / 1000);
    entry.nMillis = static_cast<uint16_t>(nMs % 1000);
}

} // namespace

CM7Journal::CM7Journal(size_t nCapacity) : m_nCapacity(nCapacity > 0 ? nCapacity : 1)
{
}

CM7JournalEntry& CM7Journal::Next()
{
    // The ring fills as changes come, so a service that changes little holds little.
    if (m_vecRing.size() < m_nCapacity) {
        // One block of the final size: growing by doubling would leave the smaller ones behind.
        if (m_vecRing.empty())
            m_vecRing.reserve(m_nCapacity);
        m_vecRing.emplace_back();
        return m_vecRing.back();
    }
    CM7JournalEntry& entry = m_vecRing[m_nNext];
    m_nNext = m_nNext + 1 == m_nCapacity ? 0 : m_nNext + 1;
    return entry;
}

const CM7JournalEntry& CM7Journal::At(size_t i) const
{
    return m_vecRing.size() < m_nCapacity ? m_vecRing[i] : m_vecRing[(m_nNext + i) % m_nCapacity];
}

void CM7Journal::RecordChange(const chStringA& strName, const chStringA* pOld, const chStringA& strNew, uint32_t nAttr)
{
    if ((pOld != nullptr && SameText(*pOld, strNew)) || CM7ChangeOrigin::CountBulk(*this))
        return;
    CM7JournalEntry& entry = Next();
    Stamp(entry);
    uint8_t nFlags = KeepText(entry.strName, strName) ? CM7JournalEntry::NAME_CUT : 0;
    entry.strOrigin = CM7ChangeOrigin::Current();
    if (pOld == nullptr)
        nFlags |= CM7JournalEntry::NO_OLD;
    if ((nAttr & ATTR_ENCRYPT) != 0) {
        entry.strOld = chStringA();
        entry.strNew = chStringA();
        entry.nFlags = nFlags | CM7JournalEntry::HIDDEN;
        return;
    }
    if (pOld == nullptr)
        entry.strOld = chStringA();
    else if (KeepText(entry.strOld, *pOld))
        nFlags |= CM7JournalEntry::OLD_CUT;
    if (KeepText(entry.strNew, strNew))
        nFlags |= CM7JournalEntry::NEW_CUT;
    entry.nFlags = nFlags;
}

void CM7Journal::RecordClear(uint32_t nItems)
{
    RecordWholeTable(nItems, true);
}

void CM7Journal::RecordLoad(uint32_t nItems)
{
    RecordWholeTable(nItems, false);
}

void CM7Journal::RecordWholeTable(uint32_t nItems, bool bCleared)
{
    CM7JournalEntry& entry = Next();
    char szCount[32];
    (void)snprintf(szCount, sizeof(szCount), "%u items", nItems);
    Stamp(entry);
    entry.strName = "*";
    entry.strOld = bCleared ? chStringA(szCount) : chStringA();
    entry.strNew = bCleared ? chStringA() : chStringA(szCount);
    entry.strOrigin = CM7ChangeOrigin::Current();
    entry.nFlags = CM7JournalEntry::ALL | (bCleared ? CM7JournalEntry::NO_NEW : CM7JournalEntry::NO_OLD);
}

bool CM7Journal::Concerns(const CM7JournalEntry& entry, const char* pName, size_t nLen)
{
    if ((entry.nFlags & CM7JournalEntry::ALL) != 0)
        return true;
    return static_cast<size_t>(entry.strName.GetLength()) == nLen && std::memcmp(entry.strName.c_str(), pName, nLen) == 0;
}

void CM7Journal::AppendLine(const CM7JournalEntry& entry, std::string& strOut)
{
    char szTime[40];
    (void)snprintf(szTime, sizeof(szTime), "%u.%03u ", static_cast<unsigned>(entry.nSeconds),
             static_cast<unsigned>(entry.nMillis));
    strOut += szTime;
    strOut += entry.strName.c_str();
    if ((entry.nFlags & CM7JournalEntry::NAME_CUT) != 0)
        strOut += "...";
    strOut += ' ';
    if ((entry.nFlags & CM7JournalEntry::ALL) != 0) {
        const bool bLoad = (entry.nFlags & CM7JournalEntry::NO_OLD) != 0;
        strOut += bLoad ? "- -> (" : "(";
        strOut += bLoad ? entry.strNew.c_str() : entry.strOld.c_str();
        strOut += bLoad ? ")" : ") -> -";
    } else if ((entry.nFlags & CM7JournalEntry::HIDDEN) != 0) {
        strOut += (entry.nFlags & CM7JournalEntry::NO_OLD) != 0 ? "- -> <hidden>" : "<hidden> -> <hidden>";
    } else {
        if ((entry.nFlags & CM7JournalEntry::NO_OLD) != 0)
            strOut += '-';
        else
            AppendQuoted(strOut, entry.strOld, (entry.nFlags & CM7JournalEntry::OLD_CUT) != 0);
        strOut += " -> ";
        AppendQuoted(strOut, entry.strNew, (entry.nFlags & CM7JournalEntry::NEW_CUT) != 0);
    }
    strOut += ' ';
    strOut += entry.strOrigin.c_str();
    strOut += '\n';
}

CM7ChangeOrigin::CM7ChangeOrigin(EKind eKind, const char* szFormat, ...)
    : m_pOuter(g_pCurrentOrigin), m_eKind(eKind)
{
    // Paths and keys are bounded by the buffer; the journal keeps the origin as it is.
    char szText[512];
    va_list args;
    va_start(args, szFormat);
    (void)vsnprintf(szText, sizeof(szText), szFormat, args);
    va_end(args);
    m_strText = szText;
    g_pCurrentOrigin = this;
}

CM7ChangeOrigin::~CM7ChangeOrigin()
{
    // The bulk line is entered while this origin is still current, so that it carries its text.
    if (m_pBulkJournal != nullptr) {
        m_eKind = EACH;
        m_pBulkJournal->RecordLoad(m_nBulk);
    }
    g_pCurrentOrigin = m_pOuter;
}

bool CM7ChangeOrigin::CountBulk(CM7Journal& journal)
{
    CM7ChangeOrigin* pOrigin = g_pCurrentOrigin;
    if (pOrigin == nullptr || pOrigin->m_eKind != BULK)
        return false;
    pOrigin->m_pBulkJournal = &journal;
    ++pOrigin->m_nBulk;
    return true;
}

const chStringA& CM7ChangeOrigin::Current()
{
    static const chStringA s_strUnknown("unknown");
    return g_pCurrentOrigin != nullptr ? g_pCurrentOrigin->m_strText : s_strUnknown;
}
