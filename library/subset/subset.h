// The area subset: a chart directory cut down to the airports inside a
// latitude/longitude box (optionally a runway threshold or an explicit
// airport list), written into another directory.
//
//   TarnTermChart_SubsetChartsEx (driver.cpp)  copies the fixed files, then
//     SubsetDBFsForArea (subsetdbfs.cpp)       the tables, then
//     CreateSubsetChartsBin (subsetbundle.cpp) each chart bundle.
#ifndef TARNTERMCHART_SUBSET_H
#define TARNTERMCHART_SUBSET_H

#include "api/ahead.h"

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
// rewrites "crcfiles.txt" there.  airportList is already upper case.
//   0, -1 source "coverags.dbf" cannot be opened, -2 destination one cannot
//   be created, -3 no airport selected, -4 "charts.dbf", -5 "vfrchrts.dbf",
//   -6 "airports.dbf", -7 "vfrapts.dbf", -8 "chrtlink.dbf" (each: its
//   subset failed), -9 "notams.dbf", -10 "vfrntms.dbf" (building failed)
int SubsetDBFsForArea(const char *sourceDirectory, const char *destinationDirectory,
                      int minimumRunway, const char *airportList, double north, double west,
                      double south, double east);
// The same, calling chartTablesDone(context) once the destination's chart
// tables are as the subset leaves them ("charts.dbf" and "vfrchrts.dbf" cut,
// or left alone where the coverage has no airport of their kind), before
// any other table is cut.  Not called when the subset fails before.
int SubsetDBFsForAreaThen(const char *sourceDirectory, const char *destinationDirectory,
                          int minimumRunway, const char *airportList, double north, double west,
                          double south, double east, void (*chartTablesDone)(void *context),
                          void *context);

// Writes into destinationDirectory the bundle ("vfrcharts.bin" when the
// source path contains that text, else "charts.bin") holding the charts
// that the destination's chart table ("vfrchrts.dbf" or "charts.dbf")
// names.
//   0 (also when the checksum cannot be stored), -1 source cannot be opened,
//   -2 its header or table cannot be read, -3 chart table cannot be opened,
//   -4 no chart of the bundle is named (nothing written), -5 destination
//   bundle cannot be created
int CreateSubsetChartsBin(const char *sourceBundlePath, const char *destinationDirectory);

// A bundle cut made ahead of its turn (api/ahead.h), into a file of the
// destination directory that has no name yet.  It reads the source bundle
// and the destination's chart table; once both are as they will be when
// the cut's turn comes, PlaceSubsetChartsBin then gives what
// CreateSubsetChartsBin would give at that turn.
// Cuts the bundle into an unnamed file.  The source bundle is read first,
// then, once ahead->ready (if set) agrees, the chart table.  Only a bundle
// written whole, every byte checksummed on its way, counts as cut ahead;
// anything else (a read or write that failed, a file system without
// unnamed files, the stop flag, the refusal of ready) leaves kInPlace.
void CutSubsetChartsBinAhead(const char *sourceBundlePath, const char *destinationDirectory,
                             WrittenAhead *ahead);
// The cut's turn: names the bundle cut ahead and stores its checksum as
// CreateSubsetChartsBin does.  Where the name is taken by now or the file
// cannot be named, or nothing was cut ahead, the cut is made here after
// all.  Returns CreateSubsetChartsBin's code.
int PlaceSubsetChartsBin(const char *sourceBundlePath, const char *destinationDirectory,
                         WrittenAhead *ahead);

// Whether the subset entry may cut its bundles ahead, while the tables
// after the chart tables are cut (by default it may); for tests that
// compare both ways.
void SubsetCutsAheadAllowed(bool allowed);
// How many bundles PlaceSubsetChartsBin has named after they were cut
// ahead, since the process began; for tests.
unsigned SubsetBundlesPlacedAhead();

#endif
