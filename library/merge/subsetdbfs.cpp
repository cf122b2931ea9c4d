// Coverage subsetting of a directory's tables: the service codes of
// "coverages.txt" become coverage keys through "regions.dat", the coverage
// table keeps the records of those keys, and every other table keeps the
// records of the airports the coverage lists.  New tables are written beside
// the old ones ("NEW", then "NEWEST" for a second rewrite) and moved into
// place only when every one of them is written, so a failing step leaves
// the old tables untouched; the merge moves them only once the rest of its
// work is ready as well.
#include <string.h>
#include <strings.h>

#include <string>
#include <vector>

#include "bundle/crcfiles.h"
#include "dbf/dbf.h"
#include "directory/regions.h"
#include "merge/tables.h"
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"

namespace {

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
    DBFFilePtr table(sourcePath ? DBFFile_Open(sourcePath.get()) : nullptr);
    if (!table || !DBFFile_IsSound(table.get())) return -3;
    NewFile out;
    if (!out.Create(directory, "coveragsNEW.dbf", true)) return -3;
    DBFFile_Writeheader(table.get(), out.stream());
    int keyField = DBFFile_GetFieldNumber(table.get(), "KEY");
    uint32_t count = 0;
    while (DBFFile_ReadRecord(table.get()) == 1) {
        const char *key = DBFFile_GetFieldValueByPos(table.get(), keyField);
        if (!key || !strstr(keys.c_str(), key)) continue;
        DBFFile_WriteRecord(table.get(), out.stream());
        count++;
    }
    if (!DBFFile_ReadToEnd(table.get())) return -3;
    if (DBFFile_WriteNumRecords(out.stream(), count) != 0) out.Fail();
    return out.Commit() ? 0 : -3;
}

int Subset(int kind, const AirportList *list, const char *directory, const char *source,
           const char *target, char **countries = nullptr)
{
    PathPtr sourcePath = JoinPath(directory, source);
    PathPtr targetPath = JoinPath(directory, target);
    if (!sourcePath || !targetPath) return -1;
    return CreateSubsetDBF(kind, list, sourcePath.get(), targetPath.get(), countries);
}

// A NOTAM build; a failed memo file is told from the table's other failures.
enum NotamOutcome { kNotamsDone, kNotamsFailed, kNotamMemoFailed };

NotamOutcome Notams(int kind, const AirportList *list, const char *directory, const char *source,
                    const char *target)
{
    PathPtr sourcePath = JoinPath(directory, source);
    PathPtr targetPath = JoinPath(directory, target);
    if (!sourcePath || !targetPath) return kNotamsFailed;
    const int code = CreateNotamsDBF(kind, list, sourcePath.get(), targetPath.get());
    if (code == 0) return kNotamsDone;
    return code == -6 ? kNotamMemoFailed : kNotamsFailed;
}

// The names the cut writes, in the directory beside the tables.  Whatever
// an earlier cut that was stopped left under them is no one's table: they
// go before anything is written, so that a new table exists only if this
// cut wrote it.
const char *const kWrittenNames[] = {
    "coveragsNEW.dbf", "chartsNEW.dbf",  "vfrchrtsNEW.dbf", "airportsNEW.dbf", "airportsNEWEST.dbf",
    "vfraptsNEW.dbf",  "vfraptsNEWEST.dbf", "chrtlinkNEW.dbf", "notamsNEW.dbf", "notamsNEW.dbt",
    "vfrntmsNEW.dbf",  "vfrntmsNEW.dbt", "crcfilesNEW.txt",
};

// The replacements at the end of the cut, in order: each new table takes
// its table's name, or - where no new table was written - the table goes.
const struct {
    const char *from, *to;
} kReplacements[] = {
    {"coveragsNEW.dbf", "coverags.dbf"}, {"chartsNEW.dbf", "charts.dbf"},
    {"vfrchrtsNEW.dbf", "vfrchrts.dbf"}, {nullptr, "airportsNEW.dbf"},
    {"airportsNEWEST.dbf", "airports.dbf"}, {nullptr, "vfraptsNEW.dbf"},
    {"vfraptsNEWEST.dbf", "vfrapts.dbf"}, {"chrtlinkNEW.dbf", "chrtlink.dbf"},
    {"notamsNEW.dbf", "notams.dbf"}, {"notamsNEW.dbt", "notams.dbt"},
    {"vfrntmsNEW.dbf", "vfrntms.dbf"}, {"vfrntmsNEW.dbt", "vfrntms.dbt"},
};

bool ExistsIn(const char *directory, const char *name)
{
    PathPtr path = JoinPath(directory, name);
    return path && KindOf(path.get()) != kPathMissing;
}

void Remove(TableMoves *moves, const char *name) { moves->push_back({TableMove::kRemove, "", name}); }

// Each new table takes its table's name; where none was written, the table
// goes (a rename with nothing to rename leaves the old table deleted).
void Replace(const char *directory, TableMoves *moves, const char *from, const char *to)
{
    if (from && ExistsIn(directory, from)) moves->push_back({TableMove::kRename, from, to});
    else Remove(moves, to);
}

}  // namespace

std::string TableAfterMoves(const char *directory, const TableMoves &moves, const char *name)
{
    std::string standing = name;  // the name whose file stands there now
    for (const TableMove &move : moves) {
        if (move.to != name) continue;
        standing = move.kind == TableMove::kRename ? move.from : std::string();
    }
    if (standing.empty()) return std::string();
    PathPtr path = JoinPath(directory, standing.c_str());
    return path ? std::string(path.get()) : std::string();
}

bool MakeTableMoves(const char *directory, const TableMoves &moves)
{
    bool made = true;
    for (const TableMove &move : moves) {
        if (move.kind == TableMove::kRemove) {
            RemoveIn(directory, move.to.c_str());
        } else if (ExistsIn(directory, move.from.c_str())) {
            // A rename whose new table is gone was made before.
            made &= ReplaceIn(directory, move.from.c_str(), move.to.c_str());
        }
    }
    return made;
}

int SubsetDBFs(const char *directory)
{
    TableMoves moves;
    const int code = PrepareSubsetDBFs(directory, &moves, nullptr, nullptr);
    if (code < 0) return code;
    if (!MakeTableMoves(directory, moves)) return -11;
    return FlushDirectory(directory) ? 0 : -11;
}

int PrepareSubsetDBFs(const char *directory, TableMoves *moves, void (*chartTablesDone)(void *context),
                      void *context)
{
    moves->clear();
    for (const char *name : kWrittenNames) {
        // Files only: a directory in the way makes that table's step fail.
        PathPtr path = JoinPath(directory, name);
        if (path) RemoveName(path.get());
        RemoveTemporaryOf(directory, name);
    }
    MallocPtr<char> codes(GetCoverageServiceCodes(directory));
    if (!codes) return -1;
    std::string keys;
    if (!CoverageKeys(directory, codes.get(), keys)) return -2;

    int code = SubsetCoverageTable(directory, keys);
    if (code < 0) return code;

    int ifrCount = 0, vfrCount = 0;
    ListPtr list(AirportsFromCoveragsDBF(directory, "coveragsNEW.dbf", &ifrCount, &vfrCount),
                 FreeAirportList);

    // Tables of a kind the coverage has no airport of go; the others are
    // cut into new tables.  Nothing goes until every new table is written.
    if (ifrCount < 1) {
        Remove(moves, "charts.dbf");
    } else if (Subset(kTableIfr, list.get(), directory, "charts.dbf", "chartsNEW.dbf") < 0) {
        return -4;
    }
    if (vfrCount < 1) {
        Remove(moves, "vfrchrts.dbf");
    } else if (Subset(kTableVfr, list.get(), directory, "vfrchrts.dbf", "vfrchrtsNEW.dbf") < 0) {
        return -5;
    }
    if (chartTablesDone) chartTablesDone(context);
    if (ifrCount < 1) {
        for (const char *name : {"airports.dbf", "notams.dbf", "notams.dbt"}) Remove(moves, name);
    } else {
        char *countries = nullptr;
        code = Subset(kTableIfr, list.get(), directory, "airports.dbf", "airportsNEW.dbf",
                      &countries);
        AddCountries(list.get(), countries);
        if (code < 0) return -6;
    }
    if (vfrCount < 1) {
        Remove(moves, "vfrapts.dbf");
    } else {
        char *countries = nullptr;
        code = Subset(kTableVfr, list.get(), directory, "vfrapts.dbf", "vfraptsNEW.dbf",
                      &countries);
        AddCountries(list.get(), countries);
        if (code < 0) return -7;
    }
    if (Subset(kTableShared, list.get(), directory, "chrtlink.dbf", "chrtlinkNEW.dbf") < 0)
        return -8;

    // The link repairs' own results are left aside by the cut; a write of
    // theirs that failed is not.
    bool unreported = FixAirportDBFLinks(directory, "airportsNEW.dbf", "chartsNEW.dbf",
                                         "chrtlinkNEW.dbf", "airportsNEWEST.dbf") < 0;
    unreported |= FixVFRAirportDBFLinks(directory, "vfraptsNEW.dbf", "vfrchrtsNEW.dbf",
                                        "vfraptsNEWEST.dbf") < 0;
    if (unreported) return -11;

    if (ifrCount < 1) {
        for (const char *name : {"notams.dbf", "notams.dbt"}) Remove(moves, name);
    } else {
        NotamOutcome built = Notams(kTableIfr, list.get(), directory, "notams.dbf", "notamsNEW.dbf");
        if (built == kNotamMemoFailed) return -11;
        if (built != kNotamsDone) return -9;
    }
    if (vfrCount < 1) {
        for (const char *name : {"vfrntms.dbf", "vfrntms.dbt"}) Remove(moves, name);
    } else {
        NotamOutcome built = Notams(kTableVfr, list.get(), directory, "vfrntms.dbf", "vfrntmsNEW.dbf");
        if (built == kNotamMemoFailed) return -11;
        if (built != kNotamsDone) return -10;
    }
    list.reset();

    for (const auto &replacement : kReplacements)
        Replace(directory, moves, replacement.from, replacement.to);

    // The checksum list, over the tables as the moves will leave them.
    PathPtr newList = JoinPath(directory, "crcfilesNEW.txt");
    PathPtr oldList = JoinPath(directory, "crcfiles.txt");
    if (!newList || !oldList) return -11;
    const int listed = RewriteCrcList(newList.get(), oldList.get(), [&](const char *name) {
        return TableAfterMoves(directory, *moves, name);
    });
    if (listed != 0 && listed != kCrcListNoOldList) return -11;
    Replace(directory, moves, "crcfilesNEW.txt", "crcfiles.txt");
    return 0;
}
