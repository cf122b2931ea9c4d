// The airport list.  Airports are only ever looked up by code, so a hash map
// serves every lookup the sorted list would, with the same answers and
// without a walk from the head.  Codes hold at most 4 characters, so each is
// packed, lower-cased, into one 32-bit key; a longer text cannot be listed.
#include "airportlist.h"

#include <stdlib.h>
#include <string.h>

#include <new>
#include <vector>

#include "platform/files.h"
#include "../dbf/dbf.h"
#include "../directory/regions.h"

static const uint32_t kAirportListMagic = 0x57571414;

// Packed code -> type bits, open-addressed in one block: the lookups of
// every record of every table land here.
class AirportTypes {
public:
    AirportTypes() : slots_(64) {}

    const uint32_t *Find(uint32_t code) const
    {
        const Slot &slot = slots_[SlotOf(code)];
        return slot.used ? &slot.type : nullptr;
    }
    uint32_t *Find(uint32_t code) { return const_cast<uint32_t *>(static_cast<const AirportTypes *>(this)->Find(code)); }

    void Insert(uint32_t code, uint32_t type)
    {
        if (2 * (count_ + 1) > slots_.size()) Grow();
        Slot &slot = slots_[SlotOf(code)];
        if (!slot.used) count_++;
        slot = Slot{code, type, true};
    }

private:
    struct Slot {
        uint32_t code = 0;
        uint32_t type = 0;
        bool used = false;
    };

    // The code's slot, or the free one where it would go; fewer than half
    // the slots are used, so the probe ends.
    size_t SlotOf(uint32_t code) const
    {
        const size_t mask = slots_.size() - 1;
        for (size_t i = ((uint64_t)code * 0x9E3779B97F4A7C15ull) >> 32 & mask;; i = (i + 1) & mask)
            if (!slots_[i].used || slots_[i].code == code) return i;
    }

    void Grow()
    {
        std::vector<Slot> old(slots_.size() * 2);
        old.swap(slots_);
        for (const Slot &slot : old)
            if (slot.used) slots_[SlotOf(slot.code)] = slot;
    }

    std::vector<Slot> slots_;  // a power of two of them
    size_t count_ = 0;
};

struct AirportList {
    uint32_t magic;
    AirportTypes types;
    char *countries[2];
};

// The code's bytes, ASCII letters lower-cased, in one word; false for a code
// of more than 4 characters.
static bool PackCode(const char *code, uint32_t *key)
{
    uint32_t packed = 0;
    for (int i = 0; code[i]; i++) {
        if (i == 4) return false;
        unsigned char c = (unsigned char)code[i];
        if (c >= 'A' && c <= 'Z') c = (unsigned char)(c - 'A' + 'a');
        packed |= (uint32_t)c << (8 * i);
    }
    *key = packed;
    return true;
}

static bool IsValid(const AirportList *list) { return list && list->magic == kAirportListMagic; }

// How a known airport's type changes with one more coverage record.  A
// restricted-only airport (4) is never widened, and a VFR record never makes
// an IFR airport restricted; these asymmetries are the producer's rules.
static uint32_t NextType(uint32_t old, bool isVfr, bool isRestricted)
{
    switch (old) {
    case 1: return isVfr ? 3 : 1;
    case 2:
        if (isVfr) return isRestricted ? 6 : 2;
        return isRestricted ? 7 : 3;
    case 5: return isVfr ? 7 : 5;
    case 6:
        if (isVfr) return 6;
        return isRestricted ? 7 : 3;
    default: return old;
    }
}

AirportList *AirportsFromCoveragsDBF(const char *dir, const char *name, int *ifrCount,
                                     int *vfrCount)
{
    if (ifrCount) *ifrCount = 0;
    if (vfrCount) *vfrCount = 0;
    AirportList *list = new (std::nothrow) AirportList();
    if (!list) return nullptr;
    list->magic = kAirportListMagic;
    list->countries[0] = list->countries[1] = nullptr;

    char *vfrKeys = nullptr, *restrictedKeys = nullptr;
    if (PathPtr regions = JoinPath(dir, "regions.dat"))
        RegionFile_GetAccessKeyTypes(regions.get(), &vfrKeys, &restrictedKeys);
    MallocPtr<char> vfrGuard(vfrKeys), restrictedGuard(restrictedKeys);

    PathPtr path = JoinPath(dir, name);
    DBFFile *table = path ? DBFFile_Open(path.get()) : nullptr;
    if (!table) return list;
    int codeField = DBFFile_GetFieldNumber(table, "F5_6");
    int keyField = DBFFile_GetFieldNumber(table, "KEY");
    while (DBFFile_ReadRecord(table) == 1) {
        char code[5] = "";
        if (const char *value = DBFFile_GetFieldValueByPos(table, codeField))
            strncat(code, value, 4);
        const char *key = DBFFile_GetFieldValueByPos(table, keyField);
        if (!key) key = "";
        bool isVfr = vfrKeys && strstr(vfrKeys, key);
        bool isRestricted = restrictedKeys && strstr(restrictedKeys, key);
        if (isVfr) {
            if (vfrCount) ++*vfrCount;
        } else if (ifrCount) {
            ++*ifrCount;
        }
        uint32_t packed = 0;
        PackCode(code, &packed);
        if (uint32_t *type = list->types.Find(packed))
            *type = NextType(*type, isVfr, isRestricted);
        else
            list->types.Insert(packed, isRestricted ? 4u : isVfr ? 2u : 1u);
    }
    DBFFile_Close(table);
    return list;
}

uint32_t GetAirportType(const AirportList *list, const char *code)
{
    uint32_t packed;
    if (!IsValid(list) || !code || !PackCode(code, &packed)) return 0;
    const uint32_t *type = list->types.Find(packed);
    return type ? *type : 0;
}

void AddCountries(AirportList *list, char *countries)
{
    if (!IsValid(list)) {
        free(countries);
        return;
    }
    int slot = list->countries[0] ? 1 : 0;
    free(list->countries[slot]);
    list->countries[slot] = countries;
}

int IsCountryInCoverage(const AirportList *list, const char *country)
{
    if (!IsValid(list) || !country) return 0;
    for (const char *text : list->countries)
        if (text && text[0] && strstr(text, country)) return 1;
    return 0;
}

void FreeAirportList(AirportList *list)
{
    if (!IsValid(list)) return;
    free(list->countries[0]);
    free(list->countries[1]);
    list->magic = 0;
    delete list;
}
