// The merge: every update bundle in the directory is folded into the
// directory's bundle of its family, the tables are cut to the coverage, the
// bundles are compacted and re-checksummed, and the applied updates are
// deleted last, so a merge that stops early can simply be run again.
#include "tarntermchart.h"

#include <pthread.h>
#include <string.h>
#include <sys/stat.h>
#include <strings.h>

#include <atomic>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "tables.h"
#include "../api/ahead.h"
#include "../api/files.h"
#include "../api/removal.h"
#include "../bundle/chartlist.h"
#include "../bundle/update.h"

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

// The directory's entry names in listing order; false when it cannot be opened.
bool ListDirectory(const char *directory, std::vector<std::string> &names)
{
    DirPtr dir(opendir(directory));
    if (!dir) return false;
    while (struct dirent *entry = readdir(dir.get())) names.emplace_back(entry->d_name);
    return true;
}

// The apply phase covers 0 to 90 percent; the ratio is taken in single
// precision, so 7 of 40 bytes done is 15, not 16.
int ApplyPercent(uint32_t done, uint32_t total)
{
    float ratio = (float)done / (float)total;
    int a = (int)((double)ratio * 100.0 + 0.5);
    return (int)(a * 0.9 + 0.5);
}

std::atomic<CompactionAhead> compactionAhead{CompactionAhead::kWhenFree};
std::atomic<unsigned> placedAhead{0};

// Compaction ahead (api/ahead.h): a family's compaction reads only its
// bundle and its chart table, and once the chart tables are cut nothing the
// table cut writes afterwards touches either.  So the bundles are compacted
// on a second thread while the other tables are cut, each into a file
// without a name that takes the temporary's name and the bundle's place
// when the merge gets to finishing it.  The chart list is read from the new
// chart table, which is the one that takes "charts.dbf"'s name; at the
// bundle's turn, both the bundle and the table must still be the files
// compacted from, as they stood (else the bundle is finished then as
// always).  Besides AheadIsSafeWithin: only bundles that are to be
// compacted, with no second name to the bundle or the new table (no write
// can reach them by another), the temporary's name free, and no memo file
// beside either chart table (the list would be read through another one).
struct FamilyNames {
    const char *bundle, *chartTable, *newChartTable, *temporary, *memo, *newMemo;
};
const FamilyNames kIfrNames = {"charts.bin", "charts.dbf", "chartsNEW.dbf",
                               "charts.bi2", "charts.dbt", "chartsNEW.dbt"};
const FamilyNames kVfrNames = {"vfrcharts.bin", "vfrchrts.dbf", "vfrchrtsNEW.dbf",
                               "vfrcharts.bi2", "vfrchrts.dbt", "vfrchrtsNEW.dbt"};

struct FamilyAhead : FamilyNames {
    explicit FamilyAhead(const FamilyNames &names) : FamilyNames(names) {}
    bool wanted = false;
    // Taken up by the thread ahead, or left to the turn: whichever comes
    // first takes the family.
    std::atomic<bool> taken{false};
    FileIdentity bundleAt, tableAt;  // as the compaction found them
    // The new chart table, opened when the chart tables are cut: the cut
    // may give it its final name before the thread ahead reads it.
    DBFFilePtr table;
    WrittenAhead compacted;
};

struct CompactionsAhead {
    const char *directory;
    bool compactIfr, compactVfr;
    FamilyAhead ifr{kIfrNames}, vfr{kVfrNames};
    AheadThread thread;

    // A merge that stops before its bundles' turn gives up what is under
    // way (once they were finished, this changes nothing).
    ~CompactionsAhead()
    {
        ifr.compacted.stop.store(true);
        vfr.compacted.stop.store(true);
        thread.Join(false);
    }
    // Called once the chart tables are cut: starts the compactions that
    // can go ahead.
    static void ChartTablesDone(void *context);
};

bool Wanted(const char *directory, FamilyAhead &family)
{
    for (const char *name : {family.temporary, family.memo, family.newMemo})
        if (!NameIsFree(directory, name)) return false;
    if (!family.bundleAt.Of(directory, family.bundle) || family.bundleAt.names != 1 ||
        !family.tableAt.Of(directory, family.newChartTable) || family.tableAt.names != 1)
        return false;
    PathPtr table = JoinPath(directory, family.newChartTable);
    family.table.reset(table ? DBFFile_Open(table.get()) : nullptr);
    return family.table != nullptr;
}

void *CompactAhead(void *context)
{
    CompactionsAhead &ahead = *(CompactionsAhead *)context;
    for (FamilyAhead *family : {&ahead.ifr, &ahead.vfr}) {
        if (!family->wanted || family->compacted.stop.load() || family->taken.exchange(true)) continue;
        PathPtr bundle = JoinPath(ahead.directory, family->bundle);
        // Without a list, every entry would go: that is left to the turn.
        ChartListPtr list(ChartsFromOpenChartsDBF(family->table.get()));
        family->table.reset();
        if (bundle && list)
            CompactChartsBinAhead(bundle.get(), ahead.directory, list.get(), &family->compacted);
    }
    return nullptr;
}

void CompactionsAhead::ChartTablesDone(void *context)
{
    CompactionsAhead &ahead = *(CompactionsAhead *)context;
    if (compactionAhead.load(std::memory_order_relaxed) == CompactionAhead::kNever ||
        !AheadIsSafeWithin(ahead.directory))
        return;
    ahead.ifr.wanted = ahead.compactIfr && Wanted(ahead.directory, ahead.ifr);
    ahead.vfr.wanted = ahead.compactVfr && Wanted(ahead.directory, ahead.vfr);
    if (ahead.ifr.wanted || ahead.vfr.wanted) ahead.thread.Start(CompactAhead, &ahead);
}

// Whether what was compacted ahead can finish the family now.
bool StillAsCompacted(const char *directory, const FamilyAhead &family)
{
    FileIdentity bundle, table;
    return family.compacted.code == 0 && bundle.Of(directory, family.bundle) &&
           bundle == family.bundleAt && table.Of(directory, family.chartTable) &&
           table == family.tableAt;
}

void Finalize(const char *directory, const char *bundle, const char *chartTable, bool compact,
              FamilyAhead *ahead)
{
    PathPtr bundlePath = JoinPath(directory, bundle);
    if (!bundlePath || !FileExists(bundlePath.get())) return;
    if (StillAsCompacted(directory, *ahead) &&
        FinalizeChartsBinAhead(bundlePath.get(), &ahead->compacted)) {
        placedAhead.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    PathPtr tablePath = JoinPath(directory, chartTable);
    ChartListPtr list(tablePath ? ChartsFromChartsDBF(tablePath.get()) : nullptr);
    FinalizeChartsBin(bundlePath.get(), compact ? 1 : 0, list.get());
}

// One family's finishing, as a task for a second thread.
struct FinalizeTask {
    const char *directory, *bundle, *chartTable;
    bool compact;
    FamilyAhead *ahead;
};

void *RunFinalize(void *task)
{
    const FinalizeTask &t = *(const FinalizeTask *)task;
    Finalize(t.directory, t.bundle, t.chartTable, t.compact, t.ahead);
    return nullptr;
}

// Where the two families' bundles share no file (their results are not
// used either), the VFR bundle is finished on a second thread while this
// one finishes the IFR bundle; otherwise, or where no thread can be
// started, one after the other.
//
// A family whose compaction the thread ahead has not taken up by now is
// finished at its turn, so that a VFR bundle still waiting is compacted
// beside the IFR bundle rather than after it.
void FinalizeBoth(const char *directory, CompactionsAhead &ahead)
{
    const bool takeNow = compactionAhead.load(std::memory_order_relaxed) != CompactionAhead::kAlways;
    if (takeNow) ahead.ifr.taken.store(true);
    const bool vfrAhead = takeNow ? ahead.vfr.taken.exchange(true) : ahead.vfr.wanted;
    FinalizeTask vfr = {directory, "vfrcharts.bin", "vfrchrts.dbf", ahead.compactVfr, &ahead.vfr};
    pthread_t thread;
    // Compacted ahead, the VFR bundle is finished once the thread ahead is
    // done, here; otherwise it need not wait for that.
    const bool threaded = !vfrAhead && FamiliesShareNoFile(directory) &&
                          pthread_create(&thread, nullptr, RunFinalize, &vfr) == 0;
    ahead.thread.Join(true);
    Finalize(directory, "charts.bin", "charts.dbf", ahead.compactIfr, &ahead.ifr);
    if (threaded) pthread_join(thread, nullptr);
    else RunFinalize(&vfr);
}

}  // namespace

void SetMergeCompactionAhead(CompactionAhead mode) { compactionAhead.store(mode); }
unsigned MergeCompactionsPlacedAhead() { return placedAhead.load(std::memory_order_relaxed); }

bool FamiliesShareNoFile(const char *directory)
{
    static const char *const kNames[] = {"charts.bin", "charts.bi2", "charts.dbf",
                                         "vfrcharts.bin", "vfrcharts.bi2", "vfrchrts.dbf"};
    std::vector<std::pair<dev_t, ino_t>> seen;
    for (const char *name : kNames) {
        PathPtr path = JoinPath(directory, name);
        if (!path) return false;
        struct stat st;
        if (lstat(path.get(), &st) != 0) continue;  // absent: nothing to share
        if (S_ISLNK(st.st_mode)) return false;
        for (const auto &file : seen)
            if (file.first == st.st_dev && file.second == st.st_ino) return false;
        seen.emplace_back(st.st_dev, st.st_ino);
    }
    return true;
}

extern "C" int TarnTermChart_Merge(const char *directory, TarnTermChart_Progress progress,
                                   void *context)
{
    WaitForRemovedFiles();
    PathPtr chartsBin = JoinPath(directory, "charts.bin");
    PathPtr vfrChartsBin = JoinPath(directory, "vfrcharts.bin");
    PathPtr coverages = JoinPath(directory, "coverages.txt");
    if (!chartsBin || !vfrChartsBin || !coverages || !FileExists(coverages.get())) return -1;
    if (progress && progress(context, 0) < 0) return -2;

    // The listing is taken once and walked in its own order, so that the
    // bundles renamed and written while applying cannot disturb it.
    std::vector<std::string> names;
    if (!ListDirectory(directory, names)) return -3;
    if (names.empty()) return -4;
    uint32_t total = 0;
    for (const std::string &name : names)
        if (UpdateFamily(name.c_str()) != kNotUpdate)
            total += (uint32_t)FileSize(directory, name.c_str());
    if (total == 0) return -4;

    uint32_t done = 0;
    bool supersededIfr = false, supersededVfr = false;
    for (const std::string &name : names) {
        Family family = UpdateFamily(name.c_str());
        if (family == kNotUpdate) continue;
        bool vfr = family == kVfrUpdate;
        uint32_t size = (uint32_t)FileSize(directory, name.c_str());
        PathPtr update = JoinPath(directory, name.c_str());
        if (!update) return vfr ? -5 : -7;
        int result = AddCoverageToChartsBin(vfr ? vfrChartsBin.get() : chartsBin.get(), update.get());
        if (result < 0) return vfr ? -5 : -7;
        done += size;
        if (result == 1) (vfr ? supersededVfr : supersededIfr) = true;
        if (progress && progress(context, ApplyPercent(done, total)) < 0) return vfr ? -6 : -8;
    }

    CompactionsAhead ahead;
    ahead.directory = directory;
    ahead.compactIfr = supersededIfr;
    ahead.compactVfr = supersededVfr;
    if (SubsetDBFsThen(directory, CompactionsAhead::ChartTablesDone, &ahead) < 0) return -9;
    FinalizeBoth(directory, ahead);

    bool haveCharts = false, haveVfrCharts = false;
    names.clear();
    ListDirectory(directory, names);
    for (const std::string &name : names) {
        if (UpdateFamily(name.c_str()) != kNotUpdate) RemoveIn(directory, name.c_str());
        if (strcasecmp(name.c_str(), "charts.bin") == 0) haveCharts = true;
        if (strcasecmp(name.c_str(), "vfrcharts.bin") == 0) haveVfrCharts = true;
    }
    if (!haveCharts) {
        for (const char *name : {"airports.dbf", "charts.dbf", "notams.dbf", "notams.dbt"})
            RemoveIn(directory, name);
    }
    if (!haveVfrCharts) {
        for (const char *name : {"vfrapts.dbf", "vfrchrts.dbf", "vfrntms.dbf", "vfrntms.dbt"})
            RemoveIn(directory, name);
    }

    if (progress) progress(context, 100);
    return 0;
}
