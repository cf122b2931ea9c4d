// TarnTermChart_CombineVFRintoIFR: writes into the destination a chart
// directory whose IFR files also carry the VFR charts, airports and NOTAMs,
// so that a reader of the IFR files alone sees both.  No VFR file is
// written there.
#include "api/files.h"
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

}  // namespace

extern "C" int TarnTermChart_CombineVFRintoIFR(const char *sourceDirectory,
                                               const char *destinationDirectory)
{
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
    code = MergeChartsBin(sourceDirectory, destinationDirectory);
    if (code != 0) return code;

    // The checksums of the source's list, renewed over the combined tables.
    PathPtr newList = JoinPath(destinationDirectory, "crcfiles.txt");
    PathPtr oldList = JoinPath(sourceDirectory, "crcfiles.txt");
    if (!newList || !oldList) return -1;
    return FixCRCFilesTxt(newList.get(), oldList.get(), destinationDirectory);
}
