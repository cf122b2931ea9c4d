// The area subset: a chart directory cut down to the airports inside a
// latitude/longitude box (optionally a runway threshold or an explicit
// airport list), written into another directory.
//
//   TarnTermChart_SubsetChartsEx (driver.cpp)  copies the fixed files, then
//     SubsetDBFsForArea (subsetdbfs.cpp)       the tables, then
//     CreateSubsetChartsBin (subsetbundle.cpp) each chart bundle.
#ifndef TARNTERMCHART_SUBSET_H
#define TARNTERMCHART_SUBSET_H

#include <atomic>

class NewFile;

// Signed degrees of the fixed-width coordinate texts of the airport tables:
// a hemisphere letter, then degrees (2 digits for a latitude, 3 for a
// longitude), minutes (2) and hundredths of seconds (4).  "S"/"s" and
// "W"/"w" give negative results, any other letter a positive one.  The
// characters are not validated: each counts as its code minus "0".  A text
// shorter than its layout is read up to its terminator and no further; the
// positions it lacks count as 0 (so "N47" is 47 degrees, "N4" 40).  A null
// text gives 0.
double LatitudeFromString(const char *text);
double LongitudeFromString(const char *text);

// What decides whether one airport record goes into the subset.
struct AreaSelection {
    const char *airportList;  // null when no list was given
    int minimumRunway;        // 0: no threshold
    double north, west, south, east;
};

// The selection rule: an airport whose identifier occurs in the list (plain
// substring search) is selected whatever its position; otherwise it must
// lie inside the box (bounds inclusive; west > east is a box across the
// 180th meridian; a box narrower than 0.0001 degrees is no box) and pass the
// runway threshold (a runway figure of 0 always passes).
bool IsAirportSelected(const AreaSelection &selection, const char *identifier, double latitude,
                       double longitude, int runway);

// Writes the tables of sourceDirectory cut down to the selected airports
// into destinationDirectory, with a new "coverags.dbf" listing them, and
// rewrites "crcfiles.txt" there.  airportList is already upper case.  Every
// table takes its name only once it is written whole.
//   0, -1 source "coverags.dbf" cannot be opened (or read), -2 destination
//   one cannot be created, -3 no airport selected, -4 "charts.dbf", -5
//   "vfrchrts.dbf", -6 "airports.dbf", -7 "vfrapts.dbf", -8 "chrtlink.dbf"
//   (each: its subset failed, or the table is damaged), -9 "notams.dbf",
//   -10 "vfrntms.dbf" (building failed), -11 a write the steps above do not
//   report failed (the new coverage table, the link repair, the checksum
//   list)
int SubsetDBFsForArea(const char *sourceDirectory, const char *destinationDirectory,
                      int minimumRunway, const char *airportList, double north, double west,
                      double south, double east);
// The same, calling chartTablesDone(context) once the destination's chart
// tables are as the subset leaves them ("charts.dbf" and "vfrchrts.dbf" cut,
// or left alone where the coverage has no airport of their kind), before
// any other table is cut.  Not called when the subset fails before.
//
// With leaveVfrAirports, the VFR airport table is left under
// "vfraptsNEW.dbf" for the caller to move into place (MoveVfrAirports)
// as its very last step, the checksum list counting it under its final
// name already.  A subset relinks a VFR airport table it finds in its
// destination; left to the end, the one it writes can only be found there
// by a later subset once this one is complete, never by a second run after
// it was stopped half-way.
int SubsetDBFsForAreaThen(const char *sourceDirectory, const char *destinationDirectory,
                          int minimumRunway, const char *airportList, double north, double west,
                          double south, double east, void (*chartTablesDone)(void *context),
                          void *context, bool leaveVfrAirports = false);
// The move the table cut leaves with leaveVfrAirports: "vfraptsNEW.dbf"
// becomes "vfrapts.dbf" (which goes where there is no new table).  False
// when the rename failed.
bool MoveVfrAirports(const char *destinationDirectory);

// Writes into destinationDirectory the bundle ("vfrcharts.bin" when the
// source path contains that text, else "charts.bin") holding the charts
// that the destination's chart table ("vfrchrts.dbf" or "charts.dbf")
// names; the bundle takes its name only once it is written whole, with its
// checksum.
//   0, -1 source cannot be opened, -2 its header or table cannot be read,
//   -3 chart table cannot be opened, -4 no chart of the bundle is named
//   (nothing written), -5 destination bundle cannot be created, -11 a
//   write of it failed (nothing under its name changes)
int CreateSubsetChartsBin(const char *sourceBundlePath, const char *destinationDirectory);
// The bundle's name in the destination.
const char *SubsetBundleName(const char *sourceBundlePath);
// CreateSubsetChartsBin up to the bundle's name: written whole into out
// (with its checksum) but not committed, so that it can be made on a second
// thread and take its name at its turn.  stop (may be null) gives up a cut
// under way (-11).
int CutSubsetChartsBin(const char *sourceBundlePath, const char *destinationDirectory, NewFile &out,
                       const std::atomic<bool> *stop);

#endif
