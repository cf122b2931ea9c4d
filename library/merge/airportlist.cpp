// The airport list.  Airports are only ever looked up by code, so a hash map
// keyed by the lower-cased code serves every lookup the sorted list would,
// with the same answers and without a walk from the head.
#include "airportlist.h"

#include <stdlib.h>
#include <string.h>

#include <new>
#include <string>
#include <unordered_map>

#include "../api/files.h"
#include "../dbf/dbf.h"
#include "../directory/regions.h"

static const uint32_t kAirportListMagic = 0x57571414;

struct AirportList {
    uint32_t magic;
    std::unordered_map<std::string, uint32_t> types;  // lower-cased code -> type bits
    char *countries[2];
};

static std::string LowerCode(const char *code)
{
    std::string key(code);
    for (char &c : key)
        if (c >= 'A' && c <= 'Z') c = (char)(c - 'A' + 'a');
    return key;
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
        auto found = list->types.find(LowerCode(code));
        if (found == list->types.end())
            list->types.emplace(LowerCode(code), isRestricted ? 4u : isVfr ? 2u : 1u);
        else
            found->second = NextType(found->second, isVfr, isRestricted);
    }
    DBFFile_Close(table);
    return list;
}

uint32_t GetAirportType(const AirportList *list, const char *code)
{
    if (!IsValid(list) || !code) return 0;
    auto found = list->types.find(LowerCode(code));
    return found == list->types.end() ? 0 : found->second;
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
