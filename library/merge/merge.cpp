// The merge: every update bundle in the directory is folded into the
// directory's bundle of its family, the tables are cut to the coverage, the
// bundles are compacted and re-checksummed, and the applied updates are
// deleted last.
//
// It runs as a transaction (journal.h): everything up to the commit only
// adds - applies guarded by the bundles' undo records, new tables and
// compacted bundles under temporary names - and is taken back whole when
// any step fails, so a failed merge leaves the directory as it found it.
// The commit journal then lists the renames and removals that put the new
// files in place; a merge stopped at any instant is taken back or finished
// by the next one, which thus ends with the tree of one merge that ran
// through.  Only one merge (or subset or combine) works on a directory at a
// time: the directory is locked for the whole call.
#include "tarntermchart.h"

#include <string.h>
#include <strings.h>

#include <atomic>
#include <initializer_list>
#include <string>
#include <vector>

#include "bundle/chartlist.h"
#include "bundle/crc.h"
#include "bundle/update.h"
#include "dbf/dbf.h"
#include "merge/journal.h"
#include "merge/tables.h"
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"
#include "platform/removal.h"

namespace {

enum Family { kNotUpdate, kIfrUpdate, kVfrUpdate };

// Update bundles are named "*_vfrcharts.bin" (VFR) or "*_charts.bin" (IFR),
// in any case; "charts.bin" and "vfrcharts.bin" themselves are too short.
Family UpdateFamily(const char *name)
{
    if (EndsWithNoCase(name, "_vfrcharts.bin")) return kVfrUpdate;
    if (EndsWithNoCase(name, "_charts.bin")) return kIfrUpdate;
    return kNotUpdate;
}

// The apply phase covers 0 to 90 percent; the ratio is taken in single
// precision, so 7 of 40 bytes done is 15, not 16.
int ApplyPercent(uint32_t done, uint32_t total)
{
    float ratio = (float)done / (float)total;
    int a = (int)((double)ratio * 100.0 + 0.5);
    return (int)(a * 0.9 + 0.5);
}

// The files of one family.
struct FamilyFiles {
    const char *bundle, *chartTable, *newChartTable, *compacted;
    const char *tables[4];  // removed when the family has no bundle
};
const FamilyFiles kIfr = {"charts.bin", "charts.dbf", "chartsNEW.dbf", "charts.bi2",
                          {"airports.dbf", "charts.dbf", "notams.dbf", "notams.dbt"}};
const FamilyFiles kVfr = {"vfrcharts.bin", "vfrchrts.dbf", "vfrchrtsNEW.dbf", "vfrcharts.bi2",
                          {"vfrapts.dbf", "vfrchrts.dbf", "vfrntms.dbf", "vfrntms.dbt"}};

// How one family's bundle is finished before the commit: compacted into its
// temporary, or its checksum worked out to be stored in place.
struct Finishing {
    const FamilyFiles *files;
    bool compact = false;
    bool present = false;  // the bundle exists: it is finished
    int code = 0;          // 0, or -10 when it cannot be finished
    uint32_t crc = 0;      // without compaction, the checksum to store
};

// The chart list a family's bundle is compacted against: that of the chart
// table the table cut leaves under the family's name (newChartTable, when
// the cut wrote one).  Without one - the cut removed the table - the list
// is null and compaction keeps nothing.  A table that is there but cannot
// be read whole gives no list at all: false.
bool ChartListFor(const char *directory, const FamilyFiles &files, ChartListPtr *list)
{
    PathPtr path = JoinPath(directory, files.newChartTable);
    if (!path) return false;
    if (KindOf(path.get()) == kPathMissing) return true;
    DBFFilePtr table(DBFFile_Open(path.get()));
    if (!table || !DBFFile_IsSound(table.get())) return false;
    list->reset(ChartsFromOpenChartsDBF(table.get()));
    return *list && DBFFile_ReadToEnd(table.get());
}

void Finish(const char *directory, Finishing &f, const std::atomic<bool> *stop)
{
    PathPtr bundle = JoinPath(directory, f.files->bundle);
    f.present = bundle && FileExists(bundle.get());
    if (!f.present) return;
    f.code = -10;
    if (!f.compact) {
        // Stored in place after the commit: the bundle must be a plain file
        // that can be written, never a link.
        FilePtr writable(OpenFileForUpdate(bundle.get()));
        if (!writable) return;
        writable.reset();
        f.crc = FileCRCTarnStartingAt(bundle.get(), 4);
        f.code = 0;
        return;
    }
    ChartListPtr list;
    if (!ChartListFor(directory, *f.files, &list)) return;
    if (CompactToTemporary(bundle.get(), list.get(), stop) == 0) f.code = 0;
}

// Each family finished on a thread of its own while the tables after the
// chart tables are cut: a family's finishing reads only its bundle, which
// the cut does not touch, and its new chart table, which is final once the
// chart tables are cut; the two families share no file they write.  Where
// no thread can be had, or the cut never reaches that point, they are
// finished at their turn.
struct FamilyFinishing {
    const char *directory;
    Finishing finishing;
    BackgroundWork work{Run, this};

    static void Run(void *context)
    {
        FamilyFinishing &f = *(FamilyFinishing *)context;
        Finish(f.directory, f.finishing, f.work.Stopping());
    }
};

struct Finishings {
    FamilyFinishing ifr, vfr;

    static void ChartTablesDone(void *context)
    {
        Finishings &f = *(Finishings *)context;
        f.ifr.work.Start();
        f.vfr.work.Start();
    }
};

// The rest of the merge, once the updates are applied: the tables cut,
// the bundles finished, the commit and what follows it.  Its failures are
// the merge's codes; the caller takes the merge back.
int CutFinishAndCommit(const char *directory, bool compactIfr, bool compactVfr)
{
    Finishings finishings;
    finishings.ifr.directory = finishings.vfr.directory = directory;
    finishings.ifr.finishing.files = &kIfr;
    finishings.ifr.finishing.compact = compactIfr;
    finishings.vfr.finishing.files = &kVfr;
    finishings.vfr.finishing.compact = compactVfr;

    TableMoves moves;
    {
        // The new tables have temporary names of their own: they are written
        // under them and flushed together once the bundles are finished,
        // rather than each behind the bundles' writes.
        NewFileBatch tables;
        const int cut = PrepareSubsetDBFs(directory, &moves, Finishings::ChartTablesDone, &finishings);
        if (cut < 0) return cut == -11 ? -10 : -9;
        finishings.ifr.work.Finish();
        finishings.vfr.work.Finish();
        if (!tables.Flush()) return -10;
    }

    Journal journal;
    for (const TableMove &move : moves) {
        if (move.kind == TableMove::kRename) journal.push_back({JournalStep::kRename, move.from, move.to});
        else journal.push_back({JournalStep::kRemove, move.to, ""});
    }
    for (const Finishing *f : {&finishings.ifr.finishing, &finishings.vfr.finishing}) {
        if (!f->present) continue;
        if (f->code != 0) return -10;
        if (f->compact) journal.push_back({JournalStep::kRename, f->files->compacted, f->files->bundle});
        else journal.push_back({JournalStep::kStoreChecksum, f->files->bundle, "", f->crc});
    }
    // The update bundles are deleted last, and the tables of a family that
    // has no bundle.  The names are those of the directory as it stands:
    // an entry named "charts.bin" in any case keeps the IFR tables.
    std::vector<std::string> names;
    ListDirectory(directory, &names);
    bool haveCharts = false, haveVfrCharts = false;
    for (const std::string &name : names) {
        if (UpdateFamily(name.c_str()) != kNotUpdate) journal.push_back({JournalStep::kRemove, name, ""});
        if (strcasecmp(name.c_str(), "charts.bin") == 0) haveCharts = true;
        if (strcasecmp(name.c_str(), "vfrcharts.bin") == 0) haveVfrCharts = true;
    }
    for (const FamilyFiles *files : {&kIfr, &kVfr}) {
        if (files == &kIfr ? haveCharts : haveVfrCharts) continue;
        for (const char *table : files->tables) journal.push_back({JournalStep::kRemove, table, ""});
    }

    if (!CommitJournal(directory, journal)) return -10;
    MergeStage("committed");
    // From here on the merge only goes forward; a step that fails leaves
    // the journal for the next merge to finish.  The old bundles' blocks are
    // given back once the directory is flushed, not within its flushes.
    ReleaseAfterwards release;
    if (!CarryOutJournal(directory, journal)) return -10;
    MergeStage("carried out");
    EndMerge(directory);
    return 0;
}

}  // namespace

extern "C" int TarnTermChart_Merge(const char *directory, TarnTermChart_Progress progress,
                                   void *context)
{
    if (!directory) return -1;
    WaitForRemovedFiles();
    DirectoryLock lock;
    lock.Acquire(directory, true);
    // A merge that was stopped is finished or taken back before anything
    // else; one that cannot be is left as it stands.
    if (RecoverMerge(directory) == kUnrecoverable) return -10;

    PathPtr chartsBin = JoinPath(directory, "charts.bin");
    PathPtr vfrChartsBin = JoinPath(directory, "vfrcharts.bin");
    PathPtr coverages = JoinPath(directory, "coverages.txt");
    if (!chartsBin || !vfrChartsBin || !coverages || !FileExists(coverages.get())) return -1;
    if (progress && progress(context, 0) < 0) return -2;

    // The listing is taken once and walked in its own order, so that the
    // bundles renamed and written while applying cannot disturb it.
    std::vector<std::string> names;
    if (!ListDirectory(directory, &names)) return -3;
    if (names.empty()) return -4;
    uint32_t total = 0;
    for (const std::string &name : names)
        if (UpdateFamily(name.c_str()) != kNotUpdate)
            total += (uint32_t)FileSize(directory, name.c_str());
    if (total == 0) return -4;

    // From the first apply on, a failure takes the merge back.
    auto fail = [directory](int code, bool keepNewTables = false) {
        TakeBackMerge(directory, keepNewTables);
        return code;
    };
    uint32_t done = 0;
    bool supersededIfr = false, supersededVfr = false;
    for (const std::string &name : names) {
        Family family = UpdateFamily(name.c_str());
        if (family == kNotUpdate) continue;
        bool vfr = family == kVfrUpdate;
        uint32_t size = (uint32_t)FileSize(directory, name.c_str());
        PathPtr update = JoinPath(directory, name.c_str());
        if (!update) return fail(vfr ? -5 : -7);
        int result = ApplyUpdate(vfr ? vfrChartsBin.get() : chartsBin.get(), update.get(),
                                 ApplyGuard::kMergeRecord);
        if (result < 0) return fail(vfr ? -5 : -7);
        done += size;
        if (result == 1) (vfr ? supersededVfr : supersededIfr) = true;
        if (progress && progress(context, ApplyPercent(done, total)) < 0) return fail(vfr ? -6 : -8);
    }

    const int code = CutFinishAndCommit(directory, supersededIfr, supersededVfr);
    // A table cut that failed leaves its new tables, as the old ones are
    // untouched by them.
    if (code == -9) return fail(code, true);
    if (code != 0) {
        // Failed before the commit: taken back.  After it (the journal
        // stands), the next merge finishes what is left.
        if (!HasMergeJournal(directory)) TakeBackMerge(directory, false);
        return code;
    }

    if (progress) progress(context, 100);
    return 0;
}
