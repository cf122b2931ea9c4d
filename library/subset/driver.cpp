// The area subset entry: a second chart directory holding only what concerns
// the airports in a box.  The destination directory must exist.
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <initializer_list>

#include "api/ahead.h"
#include "api/files.h"
#include "api/removal.h"
#include "subset.h"
#include "tarntermchart.h"

namespace {

// The files every chart directory carries unchanged.  "chrtlink.dbf" and
// "coverags.dbf" are not among them: the table cut writes its own.
const char *const kUnchangedFiles[] = {"charts.ini",   "regions.dat", "country.dbf",
                                       "ctypes.dbf",   "tarnwick.tfl", "tarnwick.tls",
                                       "lssdef.tcl",   "sbscrips.dbf", "state.dbf"};

std::atomic<bool> cutsAheadAllowed{true};

// The bundles are cut while the tables are (api/ahead.h): a bundle cut
// reads only the source bundle and the destination's chart table, and once
// the chart tables are cut nothing else the subset does writes either.  So
// a second thread reads the source bundles from the start and cuts each
// into a file without a name once the chart tables are final; the file
// takes its name when the subset gets to that cut, and a subset that fails
// at a later table leaves no bundle.  Besides AheadIsSafe, the files the
// cuts read must have no second name that a write could reach them by.
struct CutsAhead {
    const char *sourceDirectory, *destinationDirectory;
    WrittenAhead ifr, vfr;
    bool ifrAhead = false, vfrAhead = false;
    AheadThread thread;

    ~CutsAhead() { Finish(true); }
    // Starts the cuts where cutting ahead is safe.
    void Start();
    // The chart tables are final: the cuts may read them.
    static void ChartTablesDone(void *cuts) { ((CutsAhead *)cuts)->thread.Tell(true); }
    // Waits for the cuts; a subset that failed gives them up (waiting
    // again does nothing).
    void Finish(bool failed);
};

// Whether one bundle can be cut ahead: besides, its name in the destination
// must be free (a file there is written over in place, not replaced).
bool CanCutAhead(const char *sourceDirectory, const char *destinationDirectory, const char *bundle,
                 const char *chartTable)
{
    return NameIsFree(destinationDirectory, bundle) && SingleNamed(sourceDirectory, bundle) &&
           SingleNamed(destinationDirectory, chartTable);
}

void *CutAhead(void *context)
{
    CutsAhead &cuts = *(CutsAhead *)context;
    const struct {
        bool wanted;
        const char *name;
        WrittenAhead *cut;
    } bundles[] = {{cuts.ifrAhead, "charts.bin", &cuts.ifr},
                   {cuts.vfrAhead, "vfrcharts.bin", &cuts.vfr}};
    for (const auto &bundle : bundles) {
        PathPtr source = JoinPath(cuts.sourceDirectory, bundle.name);
        if (bundle.wanted && source)
            CutSubsetChartsBinAhead(source.get(), cuts.destinationDirectory, bundle.cut);
    }
    return nullptr;
}

void CutsAhead::Start()
{
    if (!cutsAheadAllowed.load(std::memory_order_relaxed) ||
        !AheadIsSafe(sourceDirectory, destinationDirectory))
        return;
    ifrAhead = CanCutAhead(sourceDirectory, destinationDirectory, "charts.bin", "charts.dbf");
    vfrAhead = CanCutAhead(sourceDirectory, destinationDirectory, "vfrcharts.bin", "vfrchrts.dbf");
    for (WrittenAhead *cut : {&ifr, &vfr}) {
        cut->ready = AheadThread::WaitForWord;
        cut->readyContext = &thread;
    }
    if (ifrAhead || vfrAhead) thread.Start(CutAhead, this);
}

void CutsAhead::Finish(bool failed)
{
    if (failed) {
        ifr.stop.store(true);
        vfr.stop.store(true);
    }
    thread.Join(!failed);
}

// The bundle cut of one source bundle at its turn; a path that cannot be
// made counts as a missing bundle.
int CutBundle(const char *sourceDirectory, const char *name, const char *destinationDirectory,
              WrittenAhead *ahead)
{
    PathPtr source = JoinPath(sourceDirectory, name);
    return source ? PlaceSubsetChartsBin(source.get(), destinationDirectory, ahead) : -1;
}

}  // namespace

void SubsetCutsAheadAllowed(bool allowed) { cutsAheadAllowed.store(allowed); }

extern "C" int TarnTermChart_SubsetChartsEx(const char *sourceDirectory,
                                            const char *destinationDirectory, int minimumRunway,
                                            const char *airportList, double north, double west,
                                            double south, double east)
{
    WaitForRemovedFiles();
    CutsAhead cuts;
    cuts.sourceDirectory = sourceDirectory;
    cuts.destinationDirectory = destinationDirectory;
    cuts.Start();
    for (const char *name : kUnchangedFiles) CopyFile(name, sourceDirectory, destinationDirectory);

    // Identifiers in the tables are upper case; the list is matched as it
    // stands, so it is brought to upper case first (ASCII letters only).
    MallocPtr<char> list(airportList ? strdup(airportList) : nullptr);
    if (airportList && !list) return -1;  // memory short: nothing can be cut
    for (char *c = list.get(); c && *c; c++)
        if (*c >= 'a' && *c <= 'z') *c = (char)(*c - 'a' + 'A');

    const int tables = SubsetDBFsForAreaThen(sourceDirectory, destinationDirectory, minimumRunway,
                                             list.get(), north, west, south, east,
                                             CutsAhead::ChartTablesDone, &cuts);
    cuts.Finish(tables < 0);
    if (tables < 0) return tables;
    list.reset();

    // A missing source bundle (-1) is no failure on either side; with both
    // missing the IFR cut's -1 stands.
    const int ifr = CutBundle(sourceDirectory, "charts.bin", destinationDirectory, &cuts.ifr);
    if (ifr != 0 && ifr != -1) return ifr;
    const int vfr = CutBundle(sourceDirectory, "vfrcharts.bin", destinationDirectory, &cuts.vfr);
    return vfr == -1 ? ifr : vfr;
}
