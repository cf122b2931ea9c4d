// Rebuilding the chart directory's tables for a coverage: the subset of one
// table, the NOTAM tables with their memo files, the airport link repair and
// the whole coverage subsetting of a directory.
#ifndef TARNTERMCHART_TABLES_H
#define TARNTERMCHART_TABLES_H

#include "airportlist.h"

// Writes to target the records of source whose airports (F5_6, matched
// whole) are of the table kind; countries (may be null) receives a new
// malloc'd text of the distinct J5_3 values of every record read.
//   0, -1 target cannot be created, -2 source cannot be opened
int CreateSubsetDBF(int kind, const AirportList *list, const char *source, const char *target,
                    char **countries);

// Writes to target (and its memo file, the path ending in 't') the NOTAMs of
// source kept for the coverage, renumbering their memo blocks.
//   0, -1 target cannot be created, -2 source cannot be opened,
//  -3 memo file cannot be created, -4 its header block cannot be written
int CreateNotamsDBF(int kind, const AirportList *list, const char *source, const char *target);

// Rewrites CHRT_IDX and CLNK_IDX of airportTable into outputTable (names in
// directory), walking the chart and link tables alongside.
//   0 (also when airportTable cannot be opened), -1 output cannot be
//   created, -2 its end-of-file byte cannot be written
int FixAirportDBFLinks(const char *directory, const char *airportTable, const char *chartTable,
                       const char *linkTable, const char *outputTable);
// The same for a VFR airport table, which has CHRT_IDX only; silent.
void FixVFRAirportDBFLinks(const char *directory, const char *airportTable,
                           const char *chartTable, const char *outputTable);

// Cuts every table of directory down to the coverage of "coverages.txt".
//   0, -1 no service codes, -2 "regions.dat" unreadable or memory short,
//  -3 "coverags.dbf" / "coveragsNEW.dbf", -4 charts, -5 VFR charts,
//  -6 airports, -7 VFR airports, -8 chart links, -9 NOTAMs, -10 VFR NOTAMs
int SubsetDBFs(const char *directory);
// The same, calling chartTablesDone(context) once the chart tables are cut
// ("chartsNEW.dbf" and "vfrchrtsNEW.dbf" written, or the tables removed
// where the coverage has no airport of their kind), before any other table
// is cut.  Not called when the cut fails before.
int SubsetDBFsThen(const char *directory, void (*chartTablesDone)(void *context), void *context);

// Whether the files the two families' finishing touches ("charts.bin",
// "charts.bi2", "charts.dbf" and the VFR three) are all different files in
// directory: none of the names is a link, and no two name one file.  Only
// then does the merge finish the two bundles at the same time; a directory
// where, say, "vfrcharts.bin" leads to "charts.bin" is finished one family
// after the other, as the second then reads what the first wrote.
bool FamiliesShareNoFile(const char *directory);

// Whether the merge compacts its bundles ahead, while the tables after the
// chart tables are cut: never, where it is safe with a bundle the thread
// ahead has not taken up by the bundles' turn compacted then (the default),
// or where it is safe always, the turn waiting for it.  For tests that
// compare both ways or count what was done ahead.
enum class CompactionAhead { kNever, kWhenFree, kAlways };
void SetMergeCompactionAhead(CompactionAhead mode);
// How many bundles the merge has finished with a compaction made ahead,
// since the process began; for tests.
unsigned MergeCompactionsPlacedAhead();

#endif
