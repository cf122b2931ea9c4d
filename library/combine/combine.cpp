// TarnTermChart_CombineVFRintoIFR: writes into the destination a chart
// directory whose IFR files also carry the VFR charts, airports and NOTAMs,
// so that a reader of the IFR files alone sees both.  No VFR file is
// written there, and no file of the source: the destination must be
// another directory.
#include "bundle/crcfiles.h"
#include "combine/combine.h"
#include "merge/tables.h"
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"
#include "platform/removal.h"
#include "tarntermchart.h"

namespace {

// Files the combined directory shares unchanged with the source.
const char *const kUnchangedFiles[] = {
    "charts.ini",  "chrtlink.dbf", "country.dbf",  "coverags.dbf", "ctypes.dbf", "tarnwick.tfl",
    "tarnwick.tls", "lssdef.tcl",  "regions.dat",  "revision.txt", "sbscrips.dbf", "state.dbf",
};

// The bundle is merged while the tables are: it reads only the source
// bundles and the source "charts.ini", which no step writes, so a second
// thread merges it from the start into its new file, which takes its name
// when the combine gets to the bundle; a combine that fails at a table
// leaves no bundle.  Without a thread it is merged at its turn.
struct BundleMerge {
    const char *sourceDirectory, *destinationDirectory;
    NewFile out;
    int code = 0;
    BackgroundWork work{Run, this};

    static void Run(void *context)
    {
        BundleMerge &merge = *(BundleMerge *)context;
        merge.code = MergeChartsBinInto(merge.sourceDirectory, merge.destinationDirectory, merge.out,
                                        merge.work.Stopping());
        // Flushed here, beside the tables' work, so that only its name is
        // left for its turn.
        if (merge.code == 0 && merge.out.Created() && !merge.out.Finish()) merge.code = -11;
    }
    // The bundle's turn: merged (or waited for) and given its name.
    int Place()
    {
        work.Finish();
        if (code != 0 || !out.Created()) return code;
        return out.Commit() ? 0 : -11;
    }
};

int Combine(const char *sourceDirectory, const char *destinationDirectory)
{
    BundleMerge bundle;
    bundle.sourceDirectory = sourceDirectory;
    bundle.destinationDirectory = destinationDirectory;
    bundle.work.Start();
    for (const char *name : kUnchangedFiles)
        if (CopyFile(name, sourceDirectory, destinationDirectory) == kCopyWriteFailed) return -11;

    int code = MergeChartsDBF(sourceDirectory, destinationDirectory);
    if (code != 0) return code;
    code = MergeAirportsDBF(sourceDirectory, destinationDirectory);
    if (code != 0) return code;
    // The merged airports get links into the merged chart table and the
    // copied link table.
    code = FixAirportDBFLinks(destinationDirectory, "airports.dbf", "charts.dbf", "chrtlink.dbf",
                              "airportsNEW.dbf");
    if (code != 0) return code;
    // Renamed over the old table, so the directory never lacks one; with no
    // new table the old one goes.
    if (!ReplaceIn(destinationDirectory, "airportsNEW.dbf", "airports.dbf")) return -11;

    code = MergeNotamsDBF(sourceDirectory, destinationDirectory);
    if (code != 0) return code;
    code = MergeNotamsDBT(sourceDirectory, destinationDirectory);
    if (code != 0) return code;
    code = bundle.Place();
    if (code != 0) return code;

    // The checksums of the source's list, renewed over the combined tables.
    PathPtr newList = JoinPath(destinationDirectory, "crcfiles.txt");
    PathPtr oldList = JoinPath(sourceDirectory, "crcfiles.txt");
    if (!newList || !oldList) return -1;
    return FixCRCFilesTxt(newList.get(), oldList.get(), destinationDirectory);
}

}  // namespace

extern "C" int TarnTermChart_CombineVFRintoIFR(const char *sourceDirectory,
                                               const char *destinationDirectory)
{
    if (!sourceDirectory || !destinationDirectory) return -1;
    WaitForRemovedFiles();
    // Combined into its own source, a directory would be emptied as it is read.
    if (SameFile(sourceDirectory, destinationDirectory)) return -12;
    DirectoryLock sourceLock, destinationLock;
    LockSourceAndDestination(sourceDirectory, destinationDirectory, &sourceLock, &destinationLock);
    const int code = Combine(sourceDirectory, destinationDirectory);
    // What took its name is made durable with the directory's entries.
    if (!FlushDirectory(destinationDirectory) && code == 0) return -11;
    return code;
}
