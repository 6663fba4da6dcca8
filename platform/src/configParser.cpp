// The configuration-name library on "/phone/resource/configMap.xml": `item` entries (standing for
// every number of their `range`) and `config` switches, with indexes for both directions of lookup.
#include "configParser.h"

#include "ETL_FileHelper.h"
#include "ETL_RegistryHelper.h"
#include "ETL_StringHelper.h"
#include "ETL_TraceHelper.h"
#include "SlotTable.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cstdint>
#include <vector>
#include <string>
#include <string_view>

namespace {

const char* const kMapPath = "/phone/resource/configMap.xml";
// A range wider than this is a typing error, not a phone with a million accounts.
const long kMaxRangeSize = 100000;
// Entries of all items together (an index slot holds 24 bits of entry number); past this the map
// is not a phone's, and later items are skipped.
const uint32_t kMaxEntries = (1u << 24) - 1;

// One `item` element: its four texts in the map's arena, unexpanded, and the entries it stands
// for. A ranged item is never expanded into stored texts: a lookup reads its number in place, so
// a map of many thousands of expanded names costs a few bytes a name (its index slots).
struct MapTemplate {
    uint32_t nTextOff[4]; // m7 name, file, section, key, each followed by a NUL
    uint32_t nFirstEntry; // entry number of its first expansion
    int32_t nFrom;        // first number of the range; the entry count is nTo - nFrom + 1
    int32_t nTo;
    bool bExpand;         // ranged: "{n}" and "{n+1}" stand for the number
    uint8_t aHeadCodes[3]; // per text 6 bits, where its first number stands (see HeadCode); in
                           // what would be padding, so that a compare need not search for it
    config_info_t info;   // the same descriptor for every expansion
};
static_assert(sizeof(MapTemplate) == 9 * sizeof(uint32_t), "a template stays 36 bytes");

// A text's head code: 0 when no number stands in it, 1 + the offset of its first number when that
// is below kHeadFar, kHeadFar when it is farther (a compare then searches for it).
const unsigned kHeadFar = 63;

unsigned HeadCode(const MapTemplate& t, int nText)
{
    unsigned nCodes = t.aHeadCodes[0] | (t.aHeadCodes[1] << 8) | (t.aHeadCodes[2] << 16);
    return (nCodes >> (6 * nText)) & 63u;
}

enum : int { TEXT_NAME = 0, TEXT_FILE = 1, TEXT_SECTION = 2, TEXT_KEY = 3 };

struct SwitchEntry {
    uint32_t nNameOff;
    uint32_t nNameLen;
    uint32_t nFileOff;
    uint32_t nSectionOff;
    uint32_t nKeyOff;
    int nDefault;
};

// Calls onText(p, n) for each literal run of a template text and onSlot(nAdd) where "{n}" (0) or
// "{n+1}" (1) stands. Stops early when a callback returns false; false then.
template <class OnText, class OnSlot>
bool SplitPieces(const char* szText, bool bExpand, OnText onText, OnSlot onSlot)
{
    const char* pRun = szText;
    const char* p = bExpand ? std::strchr(szText, '{') : nullptr;
    for (; p != nullptr; p = std::strchr(p + 1, '{')) {
        size_t nSkip = 0;
        int nAdd = 0;
        if (p[1] == 'n' && p[2] == '}') {
            nSkip = 3;
        } else if (p[1] == 'n' && p[2] == '+' && p[3] == '1' && p[4] == '}') {
            nSkip = 5;
            nAdd = 1;
        } else {
            continue;
        }
        if (p > pRun && !onText(pRun, static_cast<size_t>(p - pRun)))
            return false;
        if (!onSlot(nAdd))
            return false;
        pRun = p + nSkip;
        p = pRun - 1;
    }
    size_t nRest = std::strlen(pRun);
    return nRest == 0 || onText(pRun, nRest);
}

// Room for the decimal text of any long, sign included.
constexpr size_t kNumberRoom = 24;

// Writes the decimal text of n so that it ends at pEnd; returns its first character.
char* FormatBackwards(char* pEnd, long n)
{
    unsigned long nMagnitude = n < 0 ? 0ul - static_cast<unsigned long>(n) : static_cast<unsigned long>(n);
    do {
        *--pEnd = static_cast<char>('0' + nMagnitude % 10);
        nMagnitude /= 10;
    } while (nMagnitude != 0);
    if (n < 0)
        *--pEnd = '-';
    return pEnd;
}

// Calls fn(p, n) for each run of an expanded text: literal runs, and the decimal text of the
// number where "{n}" or "{n+1}" stands. Stops early when fn returns false; false then.
template <class Fn>
bool ForEachPiece(const char* szText, bool bExpand, long n, Fn fn)
{
    return SplitPieces(szText, bExpand, fn, [&](int nAdd) {
        char szNumber[kNumberRoom];
        char* pFirst = FormatBackwards(szNumber + sizeof(szNumber), n + nAdd);
        return fn(pFirst, static_cast<size_t>(szNumber + sizeof(szNumber) - pFirst));
    });
}

// Word-at-a-time hash: a lookup hashes its plain key in a few steps; the index hashes each
// expansion from a buffer, resuming after what stays the same (the leading parts of a path, the
// whole words of a text's head). A path is one stream: file, section and key absorbed in turn.
const uint64_t kHashMul = 0x9e3779b97f4a7c15ull;
const uint64_t kHashSeed = 0x243f6a8885a308d3ull;

// The state after the whole 8-byte words of [p, p + n).
uint64_t HashWords(uint64_t nHash, const char* p, size_t n)
{
    for (; n >= 8; n -= 8, p += 8) {
        uint64_t nWord = 0;
        std::memcpy(&nWord, p, 8);
        nHash = (nHash ^ nWord) * kHashMul;
        nHash ^= nHash >> 31;
    }
    return nHash;
}

// Absorbs the rest [p, p + n) of a text of nTotal bytes whose earlier whole words are in nHash.
uint64_t HashAbsorbRest(uint64_t nHash, const char* p, size_t n, size_t nTotal)
{
    nHash = HashWords(nHash, p, n);
    p += n & ~size_t(7);
    n &= 7;
    // The last 1 to 7 bytes in two loads without a loop: overlapping halves, or first, middle and
    // last byte; the length mixed in below tells the cases apart.
    uint64_t nTail = 0;
    if (n >= 4) {
        uint32_t nLow = 0, nHigh = 0;
        std::memcpy(&nLow, p, 4);
        std::memcpy(&nHigh, p + n - 4, 4);
        nTail = nLow | (static_cast<uint64_t>(nHigh) << 32);
    } else if (n > 0) {
        nTail = static_cast<unsigned char>(p[0]) | (static_cast<uint64_t>(static_cast<unsigned char>(p[n / 2])) << 8) |
                (static_cast<uint64_t>(static_cast<unsigned char>(p[n - 1])) << 16);
    }
    nHash = (nHash ^ nTail ^ (static_cast<uint64_t>(nTotal) << 56)) * kHashMul;
    return nHash ^ (nHash >> 29);
}

uint64_t HashAbsorb(uint64_t nHash, std::string_view text)
{
    return HashAbsorbRest(nHash, text.data(), text.size(), text.size());
}

// Spreads every input bit into the slot number (low bits) and the tag (high bits).
uint32_t HashEnd(uint64_t nHash)
{
    nHash *= 0xff51afd7ed558ccdull;
    nHash ^= nHash >> 33;
    nHash *= 0xc4ceb9fe1a85ec53ull;
    nHash ^= nHash >> 32;
    return static_cast<uint32_t>(nHash);
}

uint32_t HashOfPlainText(std::string_view text)
{
    return HashEnd(HashAbsorb(kHashSeed, text));
}

uint32_t HashOfPlainPath(std::string_view file, std::string_view section, std::string_view key)
{
    return HashEnd(HashAbsorb(HashAbsorb(HashAbsorb(kHashSeed, file), section), key));
}

// The length of the decimal text of nValue at the start of [p, pEnd), or 0 when it is not there.
// Digits are read until their value reaches nValue, so that no number is formatted: a decimal text
// has no leading zero, hence only one prefix of the digits can hold it.
size_t MatchNumber(long nValue, const char* p, const char* pEnd)
{
    if (nValue < 0) {
        char szNumber[kNumberRoom];
        char* pFirst = FormatBackwards(szNumber + sizeof(szNumber), nValue);
        size_t nLen = static_cast<size_t>(szNumber + sizeof(szNumber) - pFirst);
        return nLen <= static_cast<size_t>(pEnd - p) && std::memcmp(pFirst, p, nLen) == 0 ? nLen : 0;
    }
    const uint64_t nWant = static_cast<uint64_t>(nValue);
    if (p == pEnd || (*p == '0' && nWant != 0))
        return 0;
    uint64_t nHave = 0;
    for (const char* q = p; q != pEnd; ++q) {
        unsigned nDigit = static_cast<unsigned char>(*q) - static_cast<unsigned>('0');
        if (nDigit > 9)
            return 0;
        nHave = nHave * 10 + nDigit;
        if (nHave >= nWant)
            return nHave == nWant ? static_cast<size_t>(q + 1 - p) : 0;
    }
    return 0;
}

// Whether the expanded text equals the plain text [p, p + n). The head before the first number
// is compared in one go; what follows (short: the numbers and a few letters) byte by byte.
bool ExpandedEquals(const char* szText, unsigned nHeadCode, long nNumber, const char* p, size_t n)
{
    if (nHeadCode == 0)
        return std::strncmp(szText, p, n) == 0 && szText[n] == '\0';
    const char* pEnd = p + n;
    // Far away, the first brace is a good enough start: the loop below passes over a brace that
    // holds no number.
    size_t nHead = nHeadCode != kHeadFar ? nHeadCode - 1 : static_cast<size_t>(std::strchr(szText, '{') - szText);
    if (nHead > n || std::memcmp(szText, p, nHead) != 0)
        return false;
    p += nHead;
    for (szText += nHead;; ++szText, ++p) {
        char c = *szText;
        if (c == '{' && szText[1] == 'n') {
            size_t nSkip = szText[2] == '}' ? 3 : szText[2] == '+' && szText[3] == '1' && szText[4] == '}' ? 5 : 0;
            if (nSkip != 0) {
                size_t nDigits = MatchNumber(nSkip == 3 ? nNumber : nNumber + 1, p, pEnd);
                if (nDigits == 0)
                    return false;
                p += nDigits;
                szText += nSkip - 1;
                --p;
                continue;
            }
        }
        if (c == '\0')
            return p == pEnd;
        if (p == pEnd || *p != c)
            return false;
    }
}

// The head code of a template text (see HeadCode).
unsigned FindHeadCode(const char* szText, bool bExpand)
{
    size_t nHead = 0;
    bool bNumber = false;
    (void)SplitPieces(
        szText, bExpand,
        [&](const char*, size_t n) {
            nHead += n;
            return true;
        },
        [&](int) {
            bNumber = true;
            return false;
        });
    return !bNumber ? 0 : nHead + 1 < kHeadFar ? static_cast<unsigned>(nHead + 1) : kHeadFar;
}

// One text of a template, split once into its pieces, expanded for one number after another into
// a buffer: the literal head stays, and while the numbers keep their width only their digits are
// counted up in place.
class CTextExpander {
public:
    CTextExpander() = default;
    CTextExpander(const CTextExpander&) = delete;
    CTextExpander& operator=(const CTextExpander&) = delete;

    void Split(const char* szText, bool bExpand)
    {
        m_vecPieces.clear();
        m_strBuf.clear();
        size_t nRoom = 0;
        (void)SplitPieces(
            szText, bExpand,
            [&](const char* p, size_t n) {
                if (m_vecPieces.empty())
                    m_strBuf.append(p, n);
                else
                    m_vecPieces.push_back(Piece{p, n, 0, 0});
                nRoom += n;
                return true;
            },
            [&](int nAdd) {
                m_vecPieces.push_back(Piece{nullptr, 0, nAdd, 0});
                nRoom += kNumberRoom;
                return true;
            });
        m_nHead = m_strBuf.size();
        m_strBuf.resize(nRoom);
        m_nLen = m_nHead;
        m_bCounting = false;
        m_nHeadWords = m_nHead & ~size_t(7);
        m_nHeadIn = kHashSeed;
        m_nHeadState = HashWords(kHashSeed, m_strBuf.data(), m_nHeadWords);
    }

    bool HasNumbers() const { return !m_vecPieces.empty(); }

    // Spells the text out for n (a text without numbers is whole already).
    void Expand(long n)
    {
        if (m_vecPieces.empty())
            return;
        if (!(m_bCounting && n == m_nLast + 1 && CountUp()))
            Write(n);
        m_nLast = n;
    }

    // The state with the current text absorbed after nHash; the words of the head are absorbed
    // once for as long as nHash stays the same.
    uint64_t Absorb(uint64_t nHash)
    {
        if (nHash != m_nHeadIn) {
            m_nHeadIn = nHash;
            m_nHeadState = HashWords(nHash, m_strBuf.data(), m_nHeadWords);
        }
        return HashAbsorbRest(m_nHeadState, m_strBuf.data() + m_nHeadWords, m_nLen - m_nHeadWords, m_nLen);
    }

    std::string_view Text() const { return std::string_view(m_strBuf.data(), m_nLen); }

private:
    struct Piece {
        const char* pText; // null: the number
        size_t nLen;       // of the text, or of the number's digits where it was written last
        int nAdd;
        size_t nAt;        // where the number's digits are in the buffer
    };

    void Write(long n)
    {
        char* pOut = &m_strBuf[m_nHead];
        m_bCounting = n >= 0;
        for (Piece& piece : m_vecPieces) {
            if (piece.pText != nullptr) {
                std::memcpy(pOut, piece.pText, piece.nLen);
                pOut += piece.nLen;
                continue;
            }
            char szNumber[kNumberRoom];
            char* pFirst = FormatBackwards(szNumber + sizeof(szNumber), n + piece.nAdd);
            piece.nLen = static_cast<size_t>(szNumber + sizeof(szNumber) - pFirst);
            piece.nAt = static_cast<size_t>(pOut - m_strBuf.data());
            std::memcpy(pOut, pFirst, piece.nLen);
            pOut += piece.nLen;
        }
        m_nLen = static_cast<size_t>(pOut - m_strBuf.data());
    }

    // Adds one to every number in place; false when one would grow a digit (the caller rewrites).
    bool CountUp()
    {
        for (Piece& piece : m_vecPieces) {
            if (piece.pText != nullptr)
                continue;
            char* pFirst = &m_strBuf[piece.nAt];
            char* p = pFirst + piece.nLen;
            for (;;) {
                if (p == pFirst)
                    return false; // every digit was a 9
                if (*--p != '9')
                    break;
                *p = '0';
            }
            ++*p;
        }
        return true;
    }

    std::string m_strBuf;
    size_t m_nHead = 0; // literal bytes before the first number
    size_t m_nLen = 0;
    size_t m_nHeadWords = 0;    // bytes of the head's whole words, hashed once
    uint64_t m_nHeadIn = 0;     // the state they were absorbed after
    uint64_t m_nHeadState = 0;  // the state after them
    bool m_bCounting = false;   // the buffer holds the expansion of m_nLast, which is not negative
    long m_nLast = 0;
    std::vector<Piece> m_vecPieces; // what follows the head
};

// Open addressing over entry numbers. A slot holds the entry number plus one (0 is empty) in its
// low 24 bits and the top 8 bits of the key's hash above them, so that nearly every slot of
// another key is passed over without expanding that key. The keys themselves are not stored: the
// owner hashes and compares an entry's key through the callbacks it passes.
class CEntryIndex {
public:
    static constexpr uint32_t kEntryBits = 24;
    static constexpr uint32_t kEntryMask = (1u << kEntryBits) - 1;

    void Reserve(size_t nEntries)
    {
        size_t nSlots = 16;
        while (nSlots * 2 < nEntries * 3)
            nSlots *= 2;
        m_vecSlots.assign(nSlots, 0);
        m_nUsed = 0;
    }

    // Enters the entry unless an entry of the same key is there already (the first one wins).
    // hashOf(entry) gives an entry's key hash, sameKey(entry) compares it with the new key.
    template <class HashOf, class SameKey>
    void Insert(uint32_t nEntry, uint32_t nHash, HashOf hashOf, SameKey sameKey)
    {
        if ((m_nUsed + 1) * 3 > m_vecSlots.size() * 2)
            Grow(hashOf);
        size_t nMask = m_vecSlots.size() - 1;
        uint32_t nTag = Tag(nHash);
        for (size_t i = nHash & nMask;; i = (i + 1) & nMask) {
            uint32_t nSlot = m_vecSlots[i];
            if (nSlot == 0) {
                m_vecSlots[i] = nTag | (nEntry + 1);
                ++m_nUsed;
                return;
            }
            if ((nSlot & ~kEntryMask) == nTag && sameKey((nSlot & kEntryMask) - 1))
                return;
        }
    }

    // The entry whose key matches (sameKey), or -1.
    template <class SameKey>
    long Find(uint32_t nHash, SameKey sameKey) const
    {
        if (m_vecSlots.empty())
            return -1;
        size_t nMask = m_vecSlots.size() - 1;
        uint32_t nTag = Tag(nHash);
        for (size_t i = nHash & nMask; m_vecSlots[i] != 0; i = (i + 1) & nMask) {
            uint32_t nSlot = m_vecSlots[i];
            if ((nSlot & ~kEntryMask) == nTag && sameKey((nSlot & kEntryMask) - 1))
                return static_cast<long>((nSlot & kEntryMask) - 1);
        }
        return -1;
    }

    void Clear()
    {
        std::vector<uint32_t>().swap(m_vecSlots);
        m_nUsed = 0;
    }

private:
    static uint32_t Tag(uint32_t nHash) { return nHash & ~kEntryMask; }

    template <class HashOf>
    void Grow(HashOf hashOf)
    {
        ETL_PlatformSlots::GrowSlots(m_vecSlots, 16, [&](uint32_t nSlot) { return hashOf((nSlot & kEntryMask) - 1); });
    }

    std::vector<uint32_t> m_vecSlots;
    size_t m_nUsed = 0;
};

struct NameMap {
    bool bLoaded = false;
    bool bFailureTraced = false;
    std::vector<char> vecArena; // every text, each followed by a NUL
    std::vector<MapTemplate> templates;
    std::vector<uint32_t> vecTemplateOf; // per entry, so that a lookup never searches the templates
    uint32_t nEntries = 0;
    CEntryIndex byPath; // built at the first lookup by path
    bool bPathsIndexed = false;
    CEntryIndex byName;
    std::vector<SwitchEntry> switches;
    CEntryIndex switchByName;

    const char* Text(uint32_t nOff) const { return &vecArena[nOff]; }

    uint32_t Keep(const char* szText)
    {
        uint32_t nOff = static_cast<uint32_t>(vecArena.size());
        vecArena.insert(vecArena.end(), szText, szText + std::strlen(szText) + 1);
        return nOff;
    }

    // The template of an entry, and the entry's number within its range.
    const MapTemplate& TemplateOf(uint32_t nEntry, long& nNumber) const
    {
        const MapTemplate& t = templates[vecTemplateOf[nEntry]];
        nNumber = t.nFrom + static_cast<long>(nEntry - t.nFirstEntry);
        return t;
    }

    // An entry's text spelled out afresh: only an index that grows hashes its keys again.
    std::string ExpandedText(uint32_t nEntry, int nText) const
    {
        long n = 0;
        const MapTemplate& t = TemplateOf(nEntry, n);
        std::string strText;
        (void)ForEachPiece(Text(t.nTextOff[nText]), t.bExpand, n, [&strText](const char* p, size_t nLen) {
            strText.append(p, nLen);
            return true;
        });
        return strText;
    }

    uint32_t HashOfPath(uint32_t nEntry) const
    {
        return HashOfPlainPath(ExpandedText(nEntry, TEXT_FILE), ExpandedText(nEntry, TEXT_SECTION),
                               ExpandedText(nEntry, TEXT_KEY));
    }

    uint32_t HashOfName(uint32_t nEntry) const { return HashOfPlainText(ExpandedText(nEntry, TEXT_NAME)); }

    bool PathEquals(uint32_t nEntry, std::string_view file, std::string_view section, std::string_view key) const
    {
        long n = 0;
        const MapTemplate& t = TemplateOf(nEntry, n);
        return ExpandedEquals(Text(t.nTextOff[TEXT_KEY]), HeadCode(t, TEXT_KEY), n, key.data(), key.size()) &&
               ExpandedEquals(Text(t.nTextOff[TEXT_SECTION]), HeadCode(t, TEXT_SECTION), n, section.data(),
                              section.size()) &&
               ExpandedEquals(Text(t.nTextOff[TEXT_FILE]), HeadCode(t, TEXT_FILE), n, file.data(), file.size());
    }

    bool NameEquals(uint32_t nEntry, std::string_view name) const
    {
        long n = 0;
        const MapTemplate& t = TemplateOf(nEntry, n);
        return ExpandedEquals(Text(t.nTextOff[TEXT_NAME]), HeadCode(t, TEXT_NAME), n, name.data(), name.size());
    }
};

NameMap& Map()
{
    static NameMap s_map;
    return s_map;
}

bool ParseLong(const char* sz, int nBase, long& nOut)
{
    long long n = 0;
    if (!ETL_StringHelper::etlParseInteger(sz, nBase, LONG_MIN, LONG_MAX, n))
        return false;
    nOut = static_cast<long>(n);
    return true;
}

// "0x800" or "2048"; false for anything else. Read in 64 bits: long is 32 bits on the phone.
bool ParseFlags(const char* sz, unsigned int& nOut)
{
    if (sz == nullptr || *sz == '\0') {
        nOut = 0;
        return true;
    }
    long long n = 0;
    if (!ETL_StringHelper::etlParseInteger(sz, 0, 0, static_cast<long long>(UINT_MAX), n))
        return false;
    nOut = static_cast<unsigned int>(n);
    return true;
}

bool ParseRange(const char* sz, long& nFrom, long& nTo)
{
    const char* pDash = std::strchr(sz, '-');
    if (pDash == nullptr || pDash == sz)
        return false;
    std::string strFrom(sz, pDash);
    return ParseLong(strFrom.c_str(), 10, nFrom) && ParseLong(pDash + 1, 10, nTo) && nFrom >= 0 && nTo >= nFrom &&
           nTo - nFrom < kMaxRangeSize;
}

// Enters every expansion of the template into one index, in range order. Each text is split
// once; per number only the texts with a number are spelled out and hashed again.
void IndexTemplate(NameMap& map, size_t nTemplate, bool bByPath, CTextExpander (&aTexts)[4])
{
    const MapTemplate& t = map.templates[nTemplate];
    auto HashOfPath = [&map](uint32_t nEntry) { return map.HashOfPath(nEntry); };
    auto HashOfName = [&map](uint32_t nEntry) { return map.HashOfName(nEntry); };
    for (int i = 0; i < 4; ++i)
        aTexts[i].Split(map.Text(t.nTextOff[i]), t.bExpand);
    CTextExpander& name = aTexts[TEXT_NAME];
    CTextExpander& file = aTexts[TEXT_FILE];
    CTextExpander& section = aTexts[TEXT_SECTION];
    CTextExpander& key = aTexts[TEXT_KEY];
    // The path parts before the first one with a number are absorbed once.
    int nFirstVarying = TEXT_FILE;
    uint64_t nFixedState = kHashSeed;
    for (; nFirstVarying <= TEXT_KEY && !aTexts[nFirstVarying].HasNumbers(); ++nFirstVarying)
        nFixedState = aTexts[nFirstVarying].Absorb(nFixedState);
    for (long n = t.nFrom; n <= t.nTo; ++n) {
        uint32_t nEntry = t.nFirstEntry + static_cast<uint32_t>(n - t.nFrom);
        if (!bByPath) {
            name.Expand(n);
            map.byName.Insert(nEntry, HashEnd(name.Absorb(kHashSeed)), HashOfName,
                              [&](uint32_t nOther) { return map.NameEquals(nOther, name.Text()); });
            continue;
        }
        uint64_t nState = nFixedState;
        for (int i = nFirstVarying; i <= TEXT_KEY; ++i) {
            aTexts[i].Expand(n);
            nState = aTexts[i].Absorb(nState);
        }
        map.byPath.Insert(nEntry, HashEnd(nState), HashOfPath, [&](uint32_t nOther) {
            return map.PathEquals(nOther, file.Text(), section.Text(), key.Text());
        });
    }
}

// The index by path serves the registry's side only (saves, exports): it is built at its first
// lookup, so that a service that never gets there neither spends the time nor holds the memory.
void IndexPaths(NameMap& map)
{
    if (map.bPathsIndexed)
        return;
    map.bPathsIndexed = true;
    // Sized once: a large map would otherwise be rehashed a dozen times.
    map.byPath.Reserve(map.nEntries);
    CTextExpander aTexts[4];
    for (size_t i = 0; i < map.templates.size(); ++i)
        IndexTemplate(map, i, true, aTexts);
}

void LoadMap()
{
    NameMap& map = Map();
    if (map.bLoaded)
        return;
    map.bLoaded = true;
    // The document lives only while the map is built: the indexes and the arena are all we keep.
    pugi::xml_document doc;
    pugi::xml_parse_result result = ETL_FileHelper::etlXmlLoadFile(doc, kMapPath);
    pugi::xml_node root = doc.child("configMap");
    if (!result || !root) {
        if (!map.bFailureTraced)
            ETL_TraceHelper::etlTrace(2, "configParser: cannot load \"%s\": %s", kMapPath,
                                      result ? "no configMap element" : result.description());
        map.bFailureTraced = true;
        return;
    }
    size_t nTemplates = 0, nTextBytes = 0, nSwitches = 0, nExpected = 0;
    for (pugi::xml_node node = root.first_child(); node; node = node.next_sibling()) {
        bool bItem = std::strcmp(node.name(), "item") == 0;
        if (!bItem && std::strcmp(node.name(), "config") != 0)
            continue;
        (bItem ? nTemplates : nSwitches) += 1;
        long nFrom = 0, nTo = 0;
        if (bItem && ParseRange(node.attribute("range").value(), nFrom, nTo))
            nExpected += static_cast<size_t>(nTo - nFrom);
        nExpected += bItem ? 1 : 0;
        for (const char* szAttr : {"m7", "name", "file", "section", "key"})
            nTextBytes += std::strlen(node.attribute(szAttr).value()) + 1;
    }
    map.vecArena.reserve(nTextBytes);
    map.templates.reserve(nTemplates);
    map.vecTemplateOf.reserve(std::min<size_t>(nExpected, kMaxEntries));
    map.switches.reserve(nSwitches);
    for (pugi::xml_node node = root.first_child(); node; node = node.next_sibling()) {
        if (std::strcmp(node.name(), "item") == 0) {
            MapTemplate t{};
            if (!ParseFlags(node.attribute("flags").value(), t.info.attr)) {
                ETL_TraceHelper::etlTrace(2, "configParser: item [%s] has bad flags [%s]; skipped",
                                          node.attribute("m7").value(), node.attribute("flags").value());
                continue;
            }
            long nFrom = 0, nTo = 0;
            pugi::xml_attribute range = node.attribute("range");
            if (range && !ParseRange(range.value(), nFrom, nTo)) {
                ETL_TraceHelper::etlTrace(2, "configParser: item [%s] has bad range [%s]; skipped",
                                          node.attribute("m7").value(), range.value());
                continue;
            }
            if (static_cast<uint32_t>(nTo - nFrom + 1) > kMaxEntries - map.nEntries) {
                ETL_TraceHelper::etlTrace(2, "configParser: item [%s] exceeds %u entries in all; skipped",
                                          node.attribute("m7").value(), kMaxEntries);
                continue;
            }
            t.bExpand = static_cast<bool>(range);
            t.nFrom = static_cast<int32_t>(nFrom);
            t.nTo = static_cast<int32_t>(nTo);
            t.nFirstEntry = map.nEntries;
            const char* const aszAttrs[4] = {"m7", "file", "section", "key"};
            unsigned nCodes = 0;
            for (int i = 0; i < 4; ++i) {
                t.nTextOff[i] = map.Keep(node.attribute(aszAttrs[i]).value());
                nCodes |= FindHeadCode(map.Text(t.nTextOff[i]), t.bExpand) << (6 * i);
            }
            for (int i = 0; i < 3; ++i)
                t.aHeadCodes[i] = static_cast<uint8_t>(nCodes >> (8 * i));
            map.nEntries += static_cast<uint32_t>(nTo - nFrom + 1);
            map.vecTemplateOf.resize(map.nEntries, static_cast<uint32_t>(map.templates.size()));
            map.templates.push_back(t);
        } else if (std::strcmp(node.name(), "config") == 0) {
            SwitchEntry sw{};
            const char* szName = node.attribute("name").value();
            sw.nNameOff = map.Keep(szName);
            sw.nNameLen = static_cast<uint32_t>(std::strlen(szName));
            sw.nFileOff = map.Keep(node.attribute("file").value());
            sw.nSectionOff = map.Keep(node.attribute("section").value());
            sw.nKeyOff = map.Keep(node.attribute("key").value());
            long nDefault = 0;
            sw.nDefault = ParseLong(node.attribute("default").value(), 10, nDefault) ? static_cast<int>(nDefault) : 0;
            map.switches.push_back(sw);
        }
    }
    // Sized once: a large map would otherwise be rehashed a dozen times.
    map.byName.Reserve(map.nEntries);
    CTextExpander aTexts[4];
    for (size_t i = 0; i < map.templates.size(); ++i)
        IndexTemplate(map, i, false, aTexts);
    map.switchByName.Reserve(map.switches.size());
    auto SwitchName = [&map](uint32_t n) {
        return std::string_view(map.Text(map.switches[n].nNameOff), map.switches[n].nNameLen);
    };
    for (uint32_t n = 0; n < map.switches.size(); ++n) {
        std::string_view name = SwitchName(n);
        map.switchByName.Insert(
            n, HashOfPlainText(name), [&](uint32_t nOther) { return HashOfPlainText(SwitchName(nOther)); },
            [&](uint32_t nOther) { return SwitchName(nOther) == name; });
    }
}

} // namespace

int get_config_name_by_path(const char* szFile, const char* szSection, const char* szKey, char* szBuf, int nSize,
                            int* pFlags)
{
    if (szFile == nullptr || szSection == nullptr || szKey == nullptr || szBuf == nullptr || nSize <= 0)
        return -1;
    LoadMap();
    IndexPaths(Map());
    const NameMap& map = Map();
    std::string_view file(szFile), section(szSection), key(szKey);
    long nEntry = map.byPath.Find(HashOfPlainPath(file, section, key), [&](uint32_t n) {
        return map.PathEquals(n, file, section, key);
    });
    if (nEntry < 0)
        return -1;
    long nNumber = 0;
    const MapTemplate& t = map.TemplateOf(static_cast<uint32_t>(nEntry), nNumber);
    const char* szName = map.Text(t.nTextOff[TEXT_NAME]);
    // Spelled out once into a local buffer: szBuf is written only when the whole name fits.
    char szLocal[256];
    size_t nLen = 0;
    (void)ForEachPiece(szName, t.bExpand, nNumber, [&](const char* p, size_t n) {
        if (nLen + n < sizeof(szLocal))
            std::memcpy(szLocal + nLen, p, n);
        nLen += n;
        return true;
    });
    if (nLen + 1 > static_cast<size_t>(nSize))
        return -2;
    char* pOut = szBuf;
    if (nLen < sizeof(szLocal)) {
        std::memcpy(pOut, szLocal, nLen);
        pOut += nLen;
    } else {
        (void)ForEachPiece(szName, t.bExpand, nNumber, [&pOut](const char* p, size_t n) {
            std::memcpy(pOut, p, n);
            pOut += n;
            return true;
        });
    }
    *pOut = '\0';
    if (pFlags != nullptr)
        *pFlags = static_cast<int>(t.info.attr);
    return 0;
}

const config_info_t* get_config_info_t(const char* szName)
{
    if (szName == nullptr)
        return nullptr;
    LoadMap();
    const NameMap& map = Map();
    std::string_view name(szName);
    long nEntry = map.byName.Find(HashOfPlainText(name), [&](uint32_t n) { return map.NameEquals(n, name); });
    if (nEntry < 0)
        return nullptr;
    long nNumber = 0;
    return &map.TemplateOf(static_cast<uint32_t>(nEntry), nNumber).info;
}

int configParser_GetConfigInt(const char* szName)
{
    if (szName == nullptr)
        return 0;
    LoadMap();
    const NameMap& map = Map();
    std::string_view name(szName);
    long nSwitch = map.switchByName.Find(HashOfPlainText(name), [&](uint32_t n) {
        return std::string_view(map.Text(map.switches[n].nNameOff), map.switches[n].nNameLen) == name;
    });
    if (nSwitch < 0)
        return 0;
    const SwitchEntry& sw = map.switches[static_cast<size_t>(nSwitch)];
    std::string strValue;
    if (!regGetValue(map.Text(sw.nFileOff), map.Text(sw.nSectionOff), map.Text(sw.nKeyOff), strValue))
        return sw.nDefault;
    return static_cast<int>(std::strtol(strValue.c_str(), nullptr, 10));
}

bool configParser_IsLoaded()
{
    return Map().bLoaded;
}

void configParser_Reset()
{
    NameMap& map = Map();
    map.byPath.Clear();
    map.bPathsIndexed = false;
    map.byName.Clear();
    map.switchByName.Clear();
    std::vector<MapTemplate>().swap(map.templates);
    std::vector<uint32_t>().swap(map.vecTemplateOf);
    std::vector<SwitchEntry>().swap(map.switches);
    std::vector<char>().swap(map.vecArena);
    map.nEntries = 0;
    map.bLoaded = false;
}
