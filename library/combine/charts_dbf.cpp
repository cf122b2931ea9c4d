// The chart table merge.  VFR chart records are written as they are, so the
// VFR chart table must have the IFR table's record layout; the merged table
// carries the IFR header.
#include "api/files.h"
#include "combine/combine.h"
#include "combine/walk.h"

int MergeChartsDBF(const char *sourceDirectory, const char *destinationDirectory)
{
    DBFFilePtr vfr = OpenTableIn(sourceDirectory, "vfrchrts.dbf");
    if (!vfr) return 0;
    DBFFilePtr ifr = OpenTableIn(sourceDirectory, "charts.dbf");
    if (!ifr) {
        vfr.reset();
        CopyFile("vfrchrts.dbf", "charts.dbf", sourceDirectory, destinationDirectory);
        return 0;
    }
    TableOutput out;
    if (!out.Create(destinationDirectory, "charts.dbf")) return -2;
    DBFFile_Writeheader(ifr.get(), out.get());

    // All IFR charts of an airport precede its VFR charts.
    uint32_t written = MergeByKey(ifr.get(), vfr.get(), MergeKey::Airport, EqualKeys::KeepBoth, out.get(),
                                  [&](DBFFile *table) { DBFFile_WriteRecord(table, out.get()); });
    // Every record of either table is written, so nothing written means
    // neither table had a record: that table alone is closed as an empty
    // table normally is, end-of-file byte included.
    if (written == 0)
        DBFFile_WriteNumRecords(out.get(), 0);
    else
        WriteRecordCount(out.get(), written);
    return 0;
}
