// Rebuilding the chart directory's tables for a coverage: the subset of one
// table, the NOTAM tables with their memo files, the airport link repair and
// the whole coverage subsetting of a directory.
#ifndef TARNTERMCHART_TABLES_H
#define TARNTERMCHART_TABLES_H

#include <string>
#include <vector>

#include "merge/airportlist.h"

// Writes to target the records of source whose airports (F5_6, matched
// whole) are of the table kind; countries (may be null) receives a new
// malloc'd text of the distinct J5_3 values of every record read.  The
// target takes its name only once it is written whole.
//   0, -1 target cannot be created, -2 source cannot be opened or read (its
//   header does not describe it, or it ends before its last record; the
//   target is not touched), -3 a write of the target failed
int CreateSubsetDBF(int kind, const AirportList *list, const char *source, const char *target,
                    char **countries);

// Writes to target (and its memo file, the path ending in 't') the NOTAMs of
// source kept for the coverage, renumbering their memo blocks.  Both files
// are written whole before either takes its name.
//   0, -1 target cannot be created, -2 source cannot be opened or read,
//  -3 memo file cannot be created, -4 its header block cannot be written,
//  -5 a write of the target failed, -6 a write of the memo file failed
int CreateNotamsDBF(int kind, const AirportList *list, const char *source, const char *target);

// Rewrites CHRT_IDX and CLNK_IDX of airportTable into outputTable (names in
// directory), walking the chart and link tables alongside.
//   0 (also when airportTable cannot be opened), -1 output cannot be
//   created, -2 its end-of-file byte cannot be written, -3 another write
//   of it failed, -4 a table read does not describe its file or ends
//   before its last record (nothing is written)
int FixAirportDBFLinks(const char *directory, const char *airportTable, const char *chartTable,
                       const char *linkTable, const char *outputTable);
// The same for a VFR airport table, which has CHRT_IDX only.  Its callers
// that follow the table cut's own rules ignore the result.
int FixVFRAirportDBFLinks(const char *directory, const char *airportTable,
                          const char *chartTable, const char *outputTable);

// What a table cut leaves to do once every new table is written, in order:
// a new table takes an old one's name, or an old table goes.
struct TableMove {
    enum Kind { kRename, kRemove } kind;
    std::string from;  // kRename: the new table
    std::string to;    // the name replaced or removed
};
using TableMoves = std::vector<TableMove>;

// Cuts every table of directory down to the coverage of "coverages.txt",
// writing only new tables ("chartsNEW.dbf" ... and "crcfilesNEW.txt", whose
// checksums are those of the tables the moves will leave) and listing in
// *moves what puts them in place; no table of the directory is touched.
// chartTablesDone (may be null) is called once the chart tables are cut,
// before any other table is.
//   0, -1 no service codes, -2 "regions.dat" unreadable or memory short,
//  -3 "coverags.dbf" / "coveragsNEW.dbf", -4 charts, -5 VFR charts,
//  -6 airports, -7 VFR airports, -8 chart links, -9 NOTAMs, -10 VFR NOTAMs,
//  -11 a write the cut's own codes leave unreported failed (the link
//      repair, a NOTAM memo file, the checksum list)
int PrepareSubsetDBFs(const char *directory, TableMoves *moves, void (*chartTablesDone)(void *context),
                      void *context);
// Makes the moves in order; each is idempotent (a rename whose new table is
// gone was made already).  False when a rename failed.
bool MakeTableMoves(const char *directory, const TableMoves &moves);
// The file that will stand under name once the moves are made: the new
// table that takes its place, nothing when it goes, else the table itself.
// A path, or "" for none.
std::string TableAfterMoves(const char *directory, const TableMoves &moves, const char *name);

// PrepareSubsetDBFs, then the moves: every table of directory cut down to
// the coverage of "coverages.txt".  Its codes, and -11 also when a move
// failed.
int SubsetDBFs(const char *directory);

#endif
