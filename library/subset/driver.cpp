// The area subset entry: a second chart directory holding only what concerns
// the airports in a box.  The destination directory must exist.
#include <stdlib.h>
#include <string.h>

#include "api/files.h"
#include "subset.h"
#include "tarntermchart.h"

namespace {

// The files every chart directory carries unchanged.  "chrtlink.dbf" and
// "coverags.dbf" are not among them: the table cut writes its own.
const char *const kUnchangedFiles[] = {"charts.ini",   "regions.dat", "country.dbf",
                                       "ctypes.dbf",   "tarnwick.tfl", "tarnwick.tls",
                                       "lssdef.tcl",   "sbscrips.dbf", "state.dbf"};

// The bundle cut of one source bundle; a path that cannot be made counts as
// a missing bundle.
int CutBundle(const char *sourceDirectory, const char *name, const char *destinationDirectory)
{
    PathPtr source = JoinPath(sourceDirectory, name);
    return source ? CreateSubsetChartsBin(source.get(), destinationDirectory) : -1;
}

}  // namespace

extern "C" int TarnTermChart_SubsetChartsEx(const char *sourceDirectory,
                                            const char *destinationDirectory, int minimumRunway,
                                            const char *airportList, double north, double west,
                                            double south, double east)
{
    for (const char *name : kUnchangedFiles) CopyFile(name, sourceDirectory, destinationDirectory);

    // Identifiers in the tables are upper case; the list is matched as it
    // stands, so it is brought to upper case first (ASCII letters only).
    MallocPtr<char> list(airportList ? strdup(airportList) : nullptr);
    if (airportList && !list) return -1;  // memory short: nothing can be cut
    for (char *c = list.get(); c && *c; c++)
        if (*c >= 'a' && *c <= 'z') *c = (char)(*c - 'a' + 'A');

    const int tables = SubsetDBFsForArea(sourceDirectory, destinationDirectory, minimumRunway,
                                         list.get(), north, west, south, east);
    if (tables < 0) return tables;
    list.reset();

    // A missing source bundle (-1) is no failure on either side; with both
    // missing the IFR cut's -1 stands.
    const int ifr = CutBundle(sourceDirectory, "charts.bin", destinationDirectory);
    if (ifr != 0 && ifr != -1) return ifr;
    const int vfr = CutBundle(sourceDirectory, "vfrcharts.bin", destinationDirectory);
    return vfr == -1 ? ifr : vfr;
}
