// The tables of an area subset.  A new "coverags.dbf" in the destination
// lists the selected airports under one IFR and one VFR coverage key; the
// coverage machinery of the merge then cuts every other table down to the
// airports of that file.
#include <stdlib.h>
#include <string.h>

#include "bundle/crcfiles.h"
#include "dbf/dbf.h"
#include "directory/regions.h"
#include "merge/tables.h"
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"
#include "subset/subset.h"

namespace {

// A coverage key as it goes into the new coverage table: at most 29
// characters; nine zeros when the source has none of its kind.
struct CoverageKey {
    char text[30] = "000000000";
    void Set(const char *value)
    {
        text[0] = '\0';
        strncat(text, value, sizeof text - 1);
    }
};

// The keys of the source's coverage records: a key listed among the VFR
// coverages of "regions.dat" is the VFR key, any other the IFR key; the
// last record of each kind decides.
void FindCoverageKeys(const char *sourceDirectory, CoverageKey *ifrKey, CoverageKey *vfrKey)
{
    PathPtr path = JoinPath(sourceDirectory, "coverags.dbf");
    DBFFilePtr coverage(path ? DBFFile_Open(path.get()) : nullptr);
    if (!coverage) return;
    char *vfrKeys = nullptr, *restrictedKeys = nullptr;
    if (PathPtr regions = JoinPath(sourceDirectory, "regions.dat"))
        RegionFile_GetAccessKeyTypes(regions.get(), &vfrKeys, &restrictedKeys);
    MallocPtr<char> vfrGuard(vfrKeys), restrictedGuard(restrictedKeys);
    const int keyField = DBFFile_GetFieldNumber(coverage.get(), "KEY");
    while (DBFFile_ReadRecord(coverage.get()) == 1) {
        const char *key = DBFFile_GetFieldValueByPos(coverage.get(), keyField);
        if (!key) key = "";
        if (vfrKeys && strstr(vfrKeys, key)) vfrKey->Set(key);
        else ifrKey->Set(key);
    }
}

// The new coverage table.  Its records are made in the record buffer of a
// freshly opened source coverage table, so the fields other than KEY and
// F5_6 hold what that buffer holds: blanks.
struct CoverageWriter {
    DBFFile *source;
    int keyField, codeField;
    FILE *out;
    uint32_t count;

    void Add(const char *key, const char *identifier)
    {
        DBFFile_SetFieldValueByPos(source, keyField, key);
        DBFFile_SetFieldValueByPos(source, codeField, identifier);
        DBFFile_WriteRecord(source, out);
        count++;
    }
};

// Adds every selected airport of one airport table; a missing table adds
// none.  False for a table that is there but cannot be read whole.
bool AddSelectedAirports(const char *sourceDirectory, const char *table, const char *key,
                         const AreaSelection &selection, CoverageWriter *writer)
{
    PathPtr path = JoinPath(sourceDirectory, table);
    DBFFilePtr airports(path ? DBFFile_Open(path.get()) : nullptr);
    if (!airports) return true;
    if (!DBFFile_IsSound(airports.get())) return false;
    const int latitudeField = DBFFile_GetFieldNumber(airports.get(), "F5_36");
    const int longitudeField = DBFFile_GetFieldNumber(airports.get(), "F5_37");
    const int runwayField = DBFFile_GetFieldNumber(airports.get(), "F5_54");
    const int codeField = DBFFile_GetFieldNumber(airports.get(), "F5_6");
    while (DBFFile_ReadRecord(airports.get()) == 1) {
        // Each value is used before the next value call replaces it.
        const double latitude =
            LatitudeFromString(DBFFile_GetFieldValueByPos(airports.get(), latitudeField));
        const double longitude =
            LongitudeFromString(DBFFile_GetFieldValueByPos(airports.get(), longitudeField));
        const char *runwayText = DBFFile_GetFieldValueByPos(airports.get(), runwayField);
        const int runway = runwayText ? (int)strtol(runwayText, nullptr, 10) : 0;
        const char *identifier = DBFFile_GetFieldValueByPos(airports.get(), codeField);
        if (!identifier) identifier = "";
        if (IsAirportSelected(selection, identifier, latitude, longitude, runway))
            writer->Add(key, identifier);
    }
    return DBFFile_ReadToEnd(airports.get());
}

// Writes the new "coverags.dbf": its header is the source's, its record
// count is patched in at byte 4, and no end marker follows the records.
//   count of airports written, or -1 / -2 as SubsetDBFsForArea, -6 / -7
//   an airport table that cannot be read whole, -11 a write that failed
int WriteAreaCoverage(const char *sourceDirectory, const char *destinationDirectory,
                      const AreaSelection &selection)
{
    CoverageKey ifrKey, vfrKey;
    FindCoverageKeys(sourceDirectory, &ifrKey, &vfrKey);

    PathPtr sourcePath = JoinPath(sourceDirectory, "coverags.dbf");
    DBFFilePtr source(sourcePath ? DBFFile_Open(sourcePath.get()) : nullptr);
    if (!source || !DBFFile_IsSound(source.get())) return -1;
    NewFile out;
    if (!out.Create(destinationDirectory, "coverags.dbf", true)) return -2;
    DBFFile_Writeheader(source.get(), out.stream());

    CoverageWriter writer = {source.get(), DBFFile_GetFieldNumber(source.get(), "KEY"),
                             DBFFile_GetFieldNumber(source.get(), "F5_6"), out.stream(), 0};
    if (!AddSelectedAirports(sourceDirectory, "airports.dbf", ifrKey.text, selection, &writer)) return -6;
    if (!AddSelectedAirports(sourceDirectory, "vfrapts.dbf", vfrKey.text, selection, &writer)) return -7;

    const unsigned char count[4] = {(unsigned char)writer.count, (unsigned char)(writer.count >> 8),
                                    (unsigned char)(writer.count >> 16),
                                    (unsigned char)(writer.count >> 24)};
    if (SeekStream(out.stream(), 4, SEEK_SET) != 0 || fwrite(count, 1, sizeof count, out.stream()) != sizeof count)
        out.Fail();
    if (!out.Commit()) return -11;
    return writer.count > INT32_MAX ? INT32_MAX : (int)writer.count;
}

// Which airports of the new coverage a step needs before it is done.
enum Needs { kNeedsIfr, kNeedsVfr, kNeedsNothing };

bool Wanted(Needs needs, int ifrCount, int vfrCount)
{
    return needs == kNeedsNothing || (needs == kNeedsIfr ? ifrCount : vfrCount) > 0;
}

// One table cut by the coverage of the new "coverags.dbf".
struct TableCut {
    Needs needs;
    int kind;            // CreateSubsetDBF's table kind
    const char *source;  // in the source directory
    const char *target;  // in the destination directory
    bool countries;      // the countries read are added to the airport list
    int failure;         // the code when the cut fails
};

const TableCut kTableCuts[] = {
    {kNeedsIfr, kTableIfr, "charts.dbf", "charts.dbf", false, -4},
    {kNeedsVfr, kTableVfr, "vfrchrts.dbf", "vfrchrts.dbf", false, -5},
    {kNeedsIfr, kTableIfr, "airports.dbf", "airports.dbf", true, -6},
    // The VFR airports stay under a temporary name until the links are
    // repaired; see the repair below.
    {kNeedsVfr, kTableVfr, "vfrapts.dbf", "vfraptsNEW.dbf", true, -7},
    {kNeedsNothing, kTableShared, "chrtlink.dbf", "chrtlink.dbf", false, -8},
};
// The chart tables come first; nothing after them writes either.
const size_t kChartTableCuts = 2;

struct NotamBuild {
    Needs needs;
    int kind;
    const char *table;  // the same name in both directories
    int failure;
};

const NotamBuild kNotamBuilds[] = {
    {kNeedsIfr, kTableIfr, "notams.dbf", -9},
    {kNeedsVfr, kTableVfr, "vfrntms.dbf", -10},
};

struct AirportListDeleter {
    void operator()(AirportList *list) const { FreeAirportList(list); }
};
using AirportListPtr = std::unique_ptr<AirportList, AirportListDeleter>;

}  // namespace

bool MoveVfrAirports(const char *destinationDirectory)
{
    return ReplaceIn(destinationDirectory, "vfraptsNEW.dbf", "vfrapts.dbf");
}

int SubsetDBFsForArea(const char *sourceDirectory, const char *destinationDirectory,
                      int minimumRunway, const char *airportList, double north, double west,
                      double south, double east)
{
    return SubsetDBFsForAreaThen(sourceDirectory, destinationDirectory, minimumRunway, airportList,
                                 north, west, south, east, nullptr, nullptr);
}

int SubsetDBFsForAreaThen(const char *sourceDirectory, const char *destinationDirectory,
                          int minimumRunway, const char *airportList, double north, double west,
                          double south, double east, void (*chartTablesDone)(void *context),
                          void *context, bool leaveVfrAirports)
{
    const AreaSelection selection = {airportList, minimumRunway, north, west, south, east};
    const int selected = WriteAreaCoverage(sourceDirectory, destinationDirectory, selection);
    if (selected < 0) return selected;
    if (selected < 1) return -3;

    int ifrCount = 0, vfrCount = 0;
    AirportListPtr list(
        AirportsFromCoveragsDBF(destinationDirectory, "coverags.dbf", &ifrCount, &vfrCount));

    for (const TableCut &cut : kTableCuts) {
        if (Wanted(cut.needs, ifrCount, vfrCount)) {
            PathPtr source = JoinPath(sourceDirectory, cut.source);
            PathPtr target = JoinPath(destinationDirectory, cut.target);
            if (!source || !target) return cut.failure;
            char *countries = nullptr;
            const int result = CreateSubsetDBF(cut.kind, list.get(), source.get(), target.get(),
                                               cut.countries ? &countries : nullptr);
            if (cut.countries) AddCountries(list.get(), countries);
            if (result < 0) return cut.failure;
        }
        if (&cut == &kTableCuts[kChartTableCuts - 1] && chartTablesDone) chartTablesDone(context);
    }

    // The repairs' own results are left aside; a write of theirs that
    // failed is not.
    if (FixAirportDBFLinks(destinationDirectory, "airports.dbf", "charts.dbf", "chrtlink.dbf",
                           "airportsNEW.dbf") < 0)
        return -11;
    // Deliberately the final name "vfrapts.dbf", which this subset has not
    // written yet (it wrote "vfraptsNEW.dbf"): without an older VFR airport
    // table in the destination the repair does nothing and the new VFR
    // airports keep the links the cut gave them; with one, that older table
    // is relinked over "vfraptsNEW.dbf" and ends up in place.
    if (FixVFRAirportDBFLinks(destinationDirectory, "vfrapts.dbf", "vfrchrts.dbf", "vfraptsNEW.dbf") < 0)
        return -11;

    for (const NotamBuild &build : kNotamBuilds) {
        if (!Wanted(build.needs, ifrCount, vfrCount)) continue;
        PathPtr source = JoinPath(sourceDirectory, build.table);
        PathPtr target = JoinPath(destinationDirectory, build.table);
        if (!source || !target) return build.failure;
        if (CreateNotamsDBF(build.kind, list.get(), source.get(), target.get()) < 0)
            return build.failure;
    }
    list.reset();

    if (!ReplaceIn(destinationDirectory, "airportsNEW.dbf", "airports.dbf")) return -11;
    if (!leaveVfrAirports && !MoveVfrAirports(destinationDirectory)) return -11;

    // The list's own result is left aside, unless a write of it failed.  A
    // VFR airport table left for later counts as the table it will be.
    PathPtr newList = JoinPath(destinationDirectory, "crcfiles.txt");
    PathPtr oldList = JoinPath(sourceDirectory, "crcfiles.txt");
    if (!newList || !oldList) return -11;
    const int listed = RewriteCrcList(newList.get(), oldList.get(), [&](const char *name) {
        const bool moved = leaveVfrAirports && strcmp(name, "vfrapts.dbf") == 0;
        PathPtr path = JoinPath(destinationDirectory, moved ? "vfraptsNEW.dbf" : name);
        return path ? std::string(path.get()) : std::string();
    });
    return listed == 0 || listed == kCrcListNoOldList ? 0 : -11;
}
