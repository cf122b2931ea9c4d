// TarnTermChart_CombineVFRintoIFR: writes into the destination a chart
// directory whose IFR files also carry the VFR charts, airports and NOTAMs,
// so that a reader of the IFR files alone sees both.  No VFR file is
// written there.
#include <atomic>
#include <initializer_list>

#include "api/ahead.h"
#include "api/files.h"
#include "api/removal.h"
#include "bundle/crcfiles.h"
#include "combine/combine.h"
#include "merge/tables.h"
#include "tarntermchart.h"

namespace {

// Files the combined directory shares unchanged with the source.
const char *const kUnchangedFiles[] = {
    "charts.ini",  "chrtlink.dbf", "country.dbf",  "coverags.dbf", "ctypes.dbf", "tarnwick.tfl",
    "tarnwick.tls", "lssdef.tcl",  "regions.dat",  "revision.txt", "sbscrips.dbf", "state.dbf",
};

std::atomic<bool> bundleAheadAllowed{true};

// The bundle is merged while the tables are (api/ahead.h): it reads only
// the source bundles and the source "charts.ini", which no step writes, so
// a second thread merges it from the start into a file without a name,
// named when the combine gets to the bundle; a combine that fails at a
// table leaves no bundle.  Besides AheadIsSafe, the files it reads must
// have no second name that a write could reach them by, and the
// destination's bundle name must be free (a file there is written over in
// place, not replaced).
struct BundleAhead {
    const char *sourceDirectory, *destinationDirectory;
    WrittenAhead bundle;
    AheadThread thread;

    ~BundleAhead() { Finish(true); }
    void Start()
    {
        if (!bundleAheadAllowed.load(std::memory_order_relaxed) ||
            !AheadIsSafe(sourceDirectory, destinationDirectory) ||
            !NameIsFree(destinationDirectory, "charts.bin"))
            return;
        for (const char *read : {"charts.bin", "vfrcharts.bin", "charts.ini"})
            if (!SingleNamed(sourceDirectory, read)) return;
        thread.Start(Run, this);
    }
    // Waits for the bundle's merge; a combine that failed gives it up
    // (waiting again does nothing).
    void Finish(bool failed)
    {
        if (failed) bundle.stop.store(true);
        thread.Join(!failed);
    }
    static void *Run(void *context)
    {
        BundleAhead &ahead = *(BundleAhead *)context;
        MergeChartsBinAhead(ahead.sourceDirectory, ahead.destinationDirectory, &ahead.bundle);
        return nullptr;
    }
};

}  // namespace

void CombineBundleAheadAllowed(bool allowed) { bundleAheadAllowed.store(allowed); }

extern "C" int TarnTermChart_CombineVFRintoIFR(const char *sourceDirectory,
                                               const char *destinationDirectory)
{
    WaitForRemovedFiles();
    BundleAhead ahead;
    ahead.sourceDirectory = sourceDirectory;
    ahead.destinationDirectory = destinationDirectory;
    ahead.Start();
    for (const char *name : kUnchangedFiles) CopyFile(name, sourceDirectory, destinationDirectory);

    int code = MergeChartsDBF(sourceDirectory, destinationDirectory);
    if (code != 0) return code;
    code = MergeAirportsDBF(sourceDirectory, destinationDirectory);
    if (code != 0) return code;
    // The merged airports get links into the merged chart table and the
    // copied link table.
    code = FixAirportDBFLinks(destinationDirectory, "airports.dbf", "charts.dbf", "chrtlink.dbf",
                              "airportsNEW.dbf");
    if (code != 0) return code;
    // Renamed over the old table, so a crash never leaves the directory
    // without one; with no new table the old one goes.
    ReplaceIn(destinationDirectory, "airportsNEW.dbf", "airports.dbf");

    code = MergeNotamsDBF(sourceDirectory, destinationDirectory);
    if (code != 0) return code;
    code = MergeNotamsDBT(sourceDirectory, destinationDirectory);
    if (code != 0) return code;
    ahead.Finish(false);
    code = PlaceMergedChartsBin(sourceDirectory, destinationDirectory, &ahead.bundle);
    if (code != 0) return code;

    // The checksums of the source's list, renewed over the combined tables.
    PathPtr newList = JoinPath(destinationDirectory, "crcfiles.txt");
    PathPtr oldList = JoinPath(sourceDirectory, "crcfiles.txt");
    if (!newList || !oldList) return -1;
    return FixCRCFilesTxt(newList.get(), oldList.get(), destinationDirectory);
}
