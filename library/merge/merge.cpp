// The merge: every update bundle in the directory is folded into the
// directory's bundle of its family, the tables are cut to the coverage, the
// bundles are compacted and re-checksummed, and the applied updates are
// deleted last, so a merge that stops early can simply be run again.
#include "tarntermchart.h"

#include <pthread.h>
#include <string.h>
#include <sys/stat.h>
#include <strings.h>

#include <string>
#include <utility>
#include <vector>

#include "tables.h"
#include "../api/files.h"
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

void Finalize(const char *directory, const char *bundle, const char *chartTable, bool compact)
{
    PathPtr bundlePath = JoinPath(directory, bundle);
    if (!bundlePath || !FileExists(bundlePath.get())) return;
    PathPtr tablePath = JoinPath(directory, chartTable);
    ChartListPtr list(tablePath ? ChartsFromChartsDBF(tablePath.get()) : nullptr);
    FinalizeChartsBin(bundlePath.get(), compact ? 1 : 0, list.get());
}

// One family's finishing, as a task for a second thread.
struct FinalizeTask {
    const char *directory, *bundle, *chartTable;
    bool compact;
};

void *RunFinalize(void *task)
{
    const FinalizeTask &t = *(const FinalizeTask *)task;
    Finalize(t.directory, t.bundle, t.chartTable, t.compact);
    return nullptr;
}

// Where the two families' bundles share no file (their results are not
// used either), the VFR bundle is finished on a second thread while this
// one finishes the IFR bundle; otherwise, or where no thread can be
// started, one after the other.
void FinalizeBoth(const char *directory, bool compactIfr, bool compactVfr)
{
    FinalizeTask vfr = {directory, "vfrcharts.bin", "vfrchrts.dbf", compactVfr};
    pthread_t thread;
    const bool threaded =
        FamiliesShareNoFile(directory) && pthread_create(&thread, nullptr, RunFinalize, &vfr) == 0;
    Finalize(directory, "charts.bin", "charts.dbf", compactIfr);
    if (threaded) pthread_join(thread, nullptr);
    else RunFinalize(&vfr);
}

}  // namespace

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

    if (SubsetDBFs(directory) < 0) return -9;

    FinalizeBoth(directory, supersededIfr, supersededVfr);

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
