// The side-by-side walk of an IFR table and its VFR counterpart, shared by
// the chart, airport and NOTAM merges.  Both tables are sorted by the same
// key, so one forward pass over each writes the merged table in key order;
// neither table is ever read twice.
#ifndef TARNTERMCHART_COMBINE_WALK_H
#define TARNTERMCHART_COMBINE_WALK_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <strings.h>

#include "platform/files.h"
#include "platform/newfile.h"
#include "dbf/dbf.h"

// Room for a merge key: "J5_3:F5_6" of a NOTAM fits 49 characters.
enum { kMergeKeySize = 50 };

enum class MergeKey {
    // The airport identifier F5_6.  Identifiers have at most 9 characters;
    // a longer one is a fault of the data and is compared by its first 9.
    Airport,
    // "J5_3:F5_6", or "J5_3:zzzz" for a country-wide NOTAM (no F5_6), so
    // that under one country these follow every airport that sorts below
    // "zzzz".
    Notam,
};

// What an airport in both tables gets.
enum class EqualKeys {
    KeepBoth,  // the IFR record, then the VFR record
    IfrOnly,   // the IFR record; the VFR record is dropped
};

// One table of the walk with its current record's key.
class WalkSide {
public:
    WalkSide(DBFFile *table, MergeKey kind);
    // Reads the next record; any result below 1 ends the table.
    void Advance();

    bool current = false;  // a record is current
    char key[kMergeKeySize] = "";

private:
    DBFFile *table_;
    MergeKey kind_;
    int airportField_, countryField_;  // looked up once per table
};

// Writes the records of ifr and vfr to out in key order (keys compared as
// strcasecmp does), IFR records as they are and VFR records through
// writeVfr(vfr); returns the number of records written.
template <typename WriteVfr>
uint32_t MergeByKey(DBFFile *ifr, DBFFile *vfr, MergeKey kind, EqualKeys equal, FILE *out,
                    WriteVfr writeVfr)
{
    WalkSide a(ifr, kind), b(vfr, kind);
    uint32_t written = 0;
    while (a.current && b.current) {
        int order = strcasecmp(a.key, b.key);
        if (order <= 0) {
            DBFFile_WriteRecord(ifr, out);
            a.Advance();
            if (order == 0 && equal == EqualKeys::IfrOnly) b.Advance();
        } else {
            writeVfr(vfr);
            b.Advance();
        }
        written++;
    }
    for (; a.current; a.Advance(), written++) DBFFile_WriteRecord(ifr, out);
    for (; b.current; b.Advance(), written++) writeVfr(vfr);
    return written;
}

// A merged table being written ("w+b") as a new file, its records leaving
// in large writes rather than one small write per few records; it takes its
// name only once it is whole.
class TableOutput {
public:
    // False when dir/name cannot be created.
    bool Create(const char *dir, const char *name) { return file_.Create(dir, name, true) != nullptr; }
    FILE *get() const { return file_.stream(); }
    // Gives the table its name: 0, or -11 when a write of it failed.
    int Commit() { return file_.Commit() ? 0 : -11; }

private:
    NewFile file_;
};

// The tables of one merge.
struct MergeTables {
    DBFFilePtr vfr, ifr;
    // A second handle on the IFR table, never read: converted VFR records
    // are built in its record, which between conversions keeps what the
    // last one left in it.
    DBFFilePtr ifrTemplate;
    TableOutput out;
};

// Opens the source tables vfrName and ifrName (and, withTemplate, the
// template handle) and creates ifrName in the destination with the IFR
// header.  True when the tables are ready to merge.  Otherwise *result is
// the merge's result: 0 without the VFR table (nothing is written), 0
// without the IFR table (the VFR table is copied under the IFR name; -11
// when that copy could not be written), -2 when the merged table cannot be
// created or a source table's header does not describe its file.
bool StartMerge(const char *sourceDirectory, const char *destinationDirectory, const char *vfrName,
                const char *ifrName, bool withTemplate, MergeTables &tables, int *result);

// Stores the record count at byte 4 of a table being written, without the
// end-of-file byte that DBFFile_WriteNumRecords would add.  The merged
// tables end with their last record.  False when it could not be written.
bool WriteRecordCount(FILE *out, uint32_t count);

// The end of a merge: the record count stored (with the end-of-file byte
// when endMarker), then the merged table given its name.  0, -2 when a
// source table ended before its last record (nothing is written), -11
// when a write failed.
int FinishMerge(MergeTables &tables, uint32_t count, bool endMarker);

#endif
