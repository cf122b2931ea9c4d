// Coverage subsetting of a directory's tables: the service codes of
// "coverages.txt" become coverage keys through "regions.dat", the coverage
// table keeps the records of those keys, and every other table keeps the
// records of the airports the coverage lists.  New tables are written beside
// the old ones ("NEW", then "NEWEST" for a second rewrite) and moved into
// place at the end, so a failing step leaves the old tables untouched.
#include <string.h>
#include <strings.h>

#include <string>
#include <vector>

#include "tables.h"
#include "../api/files.h"
#include "../bundle/crcfiles.h"
#include "../dbf/dbf.h"
#include "../directory/regions.h"

namespace {

using DbfPtr = std::unique_ptr<DBFFile, void (*)(DBFFile *)>;
using ListPtr = std::unique_ptr<AirportList, void (*)(AirportList *)>;

// The coverage keys of the listed service codes, space-separated: for each
// code the key of the first catalogue record with that service code.
bool CoverageKeys(const char *directory, const char *codes, std::string &keys)
{
    PathPtr path = JoinPath(directory, "regions.dat");
    RegionFile *region = path ? RegionFile_Open(path.get()) : nullptr;
    if (!region) return false;
    std::unique_ptr<RegionFile, void (*)(RegionFile *)> guard(region, RegionFile_Close);

    struct Entry {
        char key[kRegionKeySize], code[kRegionCodeSize];
    };
    std::vector<Entry> catalogue;
    Entry entry;
    char description[kRegionDescSize];
    while (RegionFile_ReadLine(region, entry.key, entry.code, description))
        catalogue.push_back(entry);

    for (const std::string &code : SplitCoverageCodes(codes)) {
        for (const Entry &e : catalogue) {
            if (strcasecmp(e.code, code.c_str()) != 0) continue;
            if (!keys.empty()) keys += ' ';
            keys += e.key;
            break;
        }
    }
    return true;
}

// Copies "coverags.dbf" to "coveragsNEW.dbf", keeping the records whose KEY
// is part of the key text.
int SubsetCoverageTable(const char *directory, const std::string &keys)
{
    PathPtr sourcePath = JoinPath(directory, "coverags.dbf");
    DbfPtr table(sourcePath ? DBFFile_Open(sourcePath.get()) : nullptr, DBFFile_Close);
    if (!table) return -3;
    FilePtr out = OpenIn(directory, "coveragsNEW.dbf", "w+b");
    if (!out) return -3;
    DBFFile_Writeheader(table.get(), out.get());
    int keyField = DBFFile_GetFieldNumber(table.get(), "KEY");
    uint32_t count = 0;
    while (DBFFile_ReadRecord(table.get()) == 1) {
        const char *key = DBFFile_GetFieldValueByPos(table.get(), keyField);
        if (!key || !strstr(keys.c_str(), key)) continue;
        DBFFile_WriteRecord(table.get(), out.get());
        count++;
    }
    DBFFile_WriteNumRecords(out.get(), count);
    return 0;
}

int Subset(int kind, const AirportList *list, const char *directory, const char *source,
           const char *target, char **countries = nullptr)
{
    PathPtr sourcePath = JoinPath(directory, source);
    PathPtr targetPath = JoinPath(directory, target);
    if (!sourcePath || !targetPath) return -1;
    return CreateSubsetDBF(kind, list, sourcePath.get(), targetPath.get(), countries);
}

int Notams(int kind, const AirportList *list, const char *directory, const char *source,
           const char *target)
{
    PathPtr sourcePath = JoinPath(directory, source);
    PathPtr targetPath = JoinPath(directory, target);
    if (!sourcePath || !targetPath) return -1;
    return CreateNotamsDBF(kind, list, sourcePath.get(), targetPath.get());
}

}  // namespace

int SubsetDBFs(const char *directory) { return SubsetDBFsThen(directory, nullptr, nullptr); }

int SubsetDBFsThen(const char *directory, void (*chartTablesDone)(void *context), void *context)
{
    MallocPtr<char> codes(GetCoverageServiceCodes(directory));
    if (!codes) return -1;
    std::string keys;
    if (!CoverageKeys(directory, codes.get(), keys)) return -2;

    int code = SubsetCoverageTable(directory, keys);
    if (code < 0) return code;

    int ifrCount = 0, vfrCount = 0;
    ListPtr list(AirportsFromCoveragsDBF(directory, "coveragsNEW.dbf", &ifrCount, &vfrCount),
                 FreeAirportList);

    if (ifrCount < 1) {
        RemoveIn(directory, "charts.dbf");
    } else if (Subset(kTableIfr, list.get(), directory, "charts.dbf", "chartsNEW.dbf") < 0) {
        return -4;
    }
    if (vfrCount < 1) {
        RemoveIn(directory, "vfrchrts.dbf");
    } else if (Subset(kTableVfr, list.get(), directory, "vfrchrts.dbf", "vfrchrtsNEW.dbf") < 0) {
        return -5;
    }
    if (chartTablesDone) chartTablesDone(context);
    if (ifrCount < 1) {
        RemoveIn(directory, "airports.dbf");
        RemoveIn(directory, "notams.dbf");
        RemoveIn(directory, "notams.dbt");
    } else {
        char *countries = nullptr;
        code = Subset(kTableIfr, list.get(), directory, "airports.dbf", "airportsNEW.dbf",
                      &countries);
        AddCountries(list.get(), countries);
        if (code < 0) return -6;
    }
    if (vfrCount < 1) {
        RemoveIn(directory, "vfrapts.dbf");
    } else {
        char *countries = nullptr;
        code = Subset(kTableVfr, list.get(), directory, "vfrapts.dbf", "vfraptsNEW.dbf",
                      &countries);
        AddCountries(list.get(), countries);
        if (code < 0) return -7;
    }
    if (Subset(kTableShared, list.get(), directory, "chrtlink.dbf", "chrtlinkNEW.dbf") < 0)
        return -8;

    FixAirportDBFLinks(directory, "airportsNEW.dbf", "chartsNEW.dbf", "chrtlinkNEW.dbf",
                       "airportsNEWEST.dbf");
    FixVFRAirportDBFLinks(directory, "vfraptsNEW.dbf", "vfrchrtsNEW.dbf", "vfraptsNEWEST.dbf");

    if (ifrCount < 1) {
        RemoveIn(directory, "notams.dbf");
        RemoveIn(directory, "notams.dbt");
    } else if (Notams(kTableIfr, list.get(), directory, "notams.dbf", "notamsNEW.dbf") < 0) {
        return -9;
    }
    if (vfrCount < 1) {
        RemoveIn(directory, "vfrntms.dbf");
        RemoveIn(directory, "vfrntms.dbt");
    } else if (Notams(kTableVfr, list.get(), directory, "vfrntms.dbf", "vfrntmsNEW.dbf") < 0) {
        return -10;
    }
    list.reset();

    ReplaceIn(directory, "coveragsNEW.dbf", "coverags.dbf");
    ReplaceIn(directory, "chartsNEW.dbf", "charts.dbf");
    ReplaceIn(directory, "vfrchrtsNEW.dbf", "vfrchrts.dbf");
    RemoveIn(directory, "airportsNEW.dbf");
    ReplaceIn(directory, "airportsNEWEST.dbf", "airports.dbf");
    RemoveIn(directory, "vfraptsNEW.dbf");
    ReplaceIn(directory, "vfraptsNEWEST.dbf", "vfrapts.dbf");
    ReplaceIn(directory, "chrtlinkNEW.dbf", "chrtlink.dbf");
    ReplaceIn(directory, "notamsNEW.dbf", "notams.dbf");
    ReplaceIn(directory, "notamsNEW.dbt", "notams.dbt");
    ReplaceIn(directory, "vfrntmsNEW.dbf", "vfrntms.dbf");
    ReplaceIn(directory, "vfrntmsNEW.dbt", "vfrntms.dbt");

    PathPtr newList = JoinPath(directory, "crcfilesNEW.txt");
    PathPtr oldList = JoinPath(directory, "crcfiles.txt");
    if (newList && oldList) FixCRCFilesTxt(newList.get(), oldList.get(), directory);
    ReplaceIn(directory, "crcfilesNEW.txt", "crcfiles.txt");
    return 0;
}
