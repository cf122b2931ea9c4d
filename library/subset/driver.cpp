// The area subset entry: a second chart directory holding only what concerns
// the airports in a box.  The destination directory must exist, and must
// not be the source: no file of the source is ever written.
#include <stdlib.h>
#include <string.h>

#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"
#include "platform/removal.h"
#include "subset/subset.h"
#include "tarntermchart.h"

namespace {

// The files every chart directory carries unchanged.  "chrtlink.dbf" and
// "coverags.dbf" are not among them: the table cut writes its own.
const char *const kUnchangedFiles[] = {"charts.ini",   "regions.dat", "country.dbf",
                                       "ctypes.dbf",   "tarnwick.tfl", "tarnwick.tls",
                                       "lssdef.tcl",   "sbscrips.dbf", "state.dbf"};

// The bundles are cut while the tables are: a bundle cut reads only the
// source bundle and the destination's chart table, and once the chart
// tables are cut nothing else the subset does writes either.  So a second
// thread cuts both into their new files from then on; each takes its name
// when the subset gets to that cut, and a subset that fails at a later
// table leaves no bundle.  Without a thread they are cut at their turn.
struct BundleCuts {
    struct Cut {
        explicit Cut(const char *bundle) : name(bundle) {}
        const char *name;
        NewFile out;
        int code = 0;
    };
    const char *sourceDirectory, *destinationDirectory;
    Cut ifr{"charts.bin"}, vfr{"vfrcharts.bin"};
    BackgroundWork work{Run, this};

    static void Run(void *context)
    {
        BundleCuts &cuts = *(BundleCuts *)context;
        for (Cut *cut : {&cuts.ifr, &cuts.vfr}) {
            // A path that cannot be made counts as a missing bundle.
            PathPtr source = JoinPath(cuts.sourceDirectory, cut->name);
            cut->code = source ? CutSubsetChartsBin(source.get(), cuts.destinationDirectory, cut->out,
                                                    cuts.work.Stopping())
                               : -1;
            // Flushed here, beside the tables' work, so that only its name
            // is left for its turn.
            if (cut->code == 0 && !cut->out.Finish()) cut->code = -11;
        }
    }
    static void ChartTablesDone(void *context) { ((BundleCuts *)context)->work.Start(); }
    // The cut's turn: the bundle takes its name.
    static int Place(Cut &cut)
    {
        if (cut.code != 0) return cut.code;
        return cut.out.Commit() ? 0 : -11;
    }
};

int Cut(const char *sourceDirectory, const char *destinationDirectory, int minimumRunway,
        const char *airportList, double north, double west, double south, double east)
{
    BundleCuts cuts;
    cuts.sourceDirectory = sourceDirectory;
    cuts.destinationDirectory = destinationDirectory;
    for (const char *name : kUnchangedFiles)
        if (CopyFile(name, sourceDirectory, destinationDirectory) == kCopyWriteFailed) return -11;

    // Identifiers in the tables are upper case; the list is matched as it
    // stands, so it is brought to upper case first (ASCII letters only).
    MallocPtr<char> list(airportList ? strdup(airportList) : nullptr);
    if (airportList && !list) return -1;  // memory short: nothing can be cut
    for (char *c = list.get(); c && *c; c++)
        if (*c >= 'a' && *c <= 'z') *c = (char)(*c - 'a' + 'A');

    const int tables = SubsetDBFsForAreaThen(sourceDirectory, destinationDirectory, minimumRunway,
                                             list.get(), north, west, south, east,
                                             BundleCuts::ChartTablesDone, &cuts, true);
    if (tables < 0) return tables;
    list.reset();
    cuts.work.Finish();

    // A missing source bundle (-1) is no failure on either side; with both
    // missing the IFR cut's -1 stands.
    const int ifr = BundleCuts::Place(cuts.ifr);
    if (ifr != 0 && ifr != -1) return ifr;
    const int vfr = BundleCuts::Place(cuts.vfr);
    const int code = vfr == -1 ? ifr : vfr;
    // The VFR airport table takes its name last, once every table is
    // written (with both bundles missing too).
    if (code != 0 && code != -1) return code;
    return MoveVfrAirports(destinationDirectory) ? code : -11;
}

}  // namespace

extern "C" int TarnTermChart_SubsetChartsEx(const char *sourceDirectory,
                                            const char *destinationDirectory, int minimumRunway,
                                            const char *airportList, double north, double west,
                                            double south, double east)
{
    if (!sourceDirectory || !destinationDirectory) return -1;
    WaitForRemovedFiles();
    // Cut into its own source, a directory would be emptied as it is read.
    if (SameFile(sourceDirectory, destinationDirectory)) return -12;
    DirectoryLock sourceLock, destinationLock;
    LockSourceAndDestination(sourceDirectory, destinationDirectory, &sourceLock, &destinationLock);
    const int code = Cut(sourceDirectory, destinationDirectory, minimumRunway, airportList, north, west,
                         south, east);
    // What took its name is made durable with the directory's entries.
    if (!FlushDirectory(destinationDirectory) && code == 0) return -11;
    return code;
}
