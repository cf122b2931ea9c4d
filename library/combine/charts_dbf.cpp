// The chart table merge.  VFR chart records are written as they are, so the
// VFR chart table must have the IFR table's record layout; the merged table
// carries the IFR header.
#include "combine/combine.h"
#include "combine/walk.h"

int MergeChartsDBF(const char *sourceDirectory, const char *destinationDirectory)
{
    MergeTables t;
    int result;
    if (!StartMerge(sourceDirectory, destinationDirectory, "vfrchrts.dbf", "charts.dbf", false, t, &result))
        return result;
    // All IFR charts of an airport precede its VFR charts.
    FILE *out = t.out.get();
    uint32_t written = MergeByKey(t.ifr.get(), t.vfr.get(), MergeKey::Airport, EqualKeys::KeepBoth, out,
                                  [&](DBFFile *table) { DBFFile_WriteRecord(table, out); });
    // Every record of either table is written, so nothing written means
    // neither table had a record: the merged table is then closed as any
    // empty table is, end-of-file byte included.
    return FinishMerge(t, written, written == 0);
}
