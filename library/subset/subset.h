// The area subset: a chart directory cut down to the airports inside a
// latitude/longitude box (optionally a runway threshold or an explicit
// airport list), written into another directory.
//
//   TarnTermChart_SubsetChartsEx (driver.cpp)  copies the fixed files, then
//     SubsetDBFsForArea (subsetdbfs.cpp)       the tables, then
//     CreateSubsetChartsBin (subsetbundle.cpp) each chart bundle.
#ifndef TARNTERMCHART_SUBSET_H
#define TARNTERMCHART_SUBSET_H

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

// Writes into destinationDirectory the bundle ("vfrcharts.bin" when the
// source path contains that text, else "charts.bin") holding the charts
// that the destination's chart table ("vfrchrts.dbf" or "charts.dbf")
// names.
//   0 (also when the checksum cannot be stored), -1 source cannot be opened,
//   -2 its header or table cannot be read, -3 chart table cannot be opened,
//   -4 no chart of the bundle is named (nothing written), -5 destination
//   bundle cannot be created
int CreateSubsetChartsBin(const char *sourceBundlePath, const char *destinationDirectory);

#endif
