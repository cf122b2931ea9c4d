// Applying update bundles to a directory's chart bundle, and finishing the
// bundle afterwards: compaction against the chart list and the checksum.
//
// Applying works in place: the update's blobs and a new table are written
// over the old table, superseded entries stay in the file with their mark
// bit (kEntrySuperseded) set, and the header's checksum goes stale until
// FinalizeChartsBin rewrites it.
#ifndef TARNTERMCHART_BUNDLE_UPDATE_H
#define TARNTERMCHART_BUNDLE_UPDATE_H

#include <stdint.h>
#include <stdio.h>

#include "api/ahead.h"
#include "bundle/blob.h"
#include "bundle/chartlist.h"
#include "bundle/chartsbin.h"

// Folds the update bundle at updatePath into the bundle at bundlePath.
//   1  applied; some existing entries were superseded
//   0  applied, nothing superseded; or there was no bundle and the update
//      was renamed to the bundle's name
//  -1  there was no bundle and the update could not be renamed
//  -2  the update cannot be opened
//  -3  the update's header or table cannot be read
//  -4  the bundle's header or table cannot be read (or no memory for them)
//  -5  the update is older than the bundle (its Julian date is smaller);
//      nothing is changed
//  -6  the bundle cannot be opened for writing
//  -7  the bundle cannot be positioned at its table
//  -8 .. -11  an AddEntry failure; -11 also: the new table was written short
//  -12 the bundle cannot be positioned at its header
//  -13 the header was written short
// From -8 on the bundle is left half-written: blobs may stand over the old
// table while the header still points at it.
int AddCoverageToChartsBin(const char *bundlePath, const char *updatePath);

// Appends one update entry: copies *update to table[header->fileCount] (the
// caller leaves room there), points the copy's offset at out's position,
// counts it in header->fileCount, then copies its blob from in to out.  The
// copy keeps the update entry's flags.
//   0 done, -8 in cannot be positioned, -9 no memory, -10 the blob runs past
//   the end of in or its read is short, -11 short write to out
// inLength is in's file length (StreamLength); the form without it finds
// it out on every call.
int AddEntry(const SFileTableEntry *update, SFileTableEntry *table, ChartsBinHeader *header,
             FILE *out, FILE *in, int64_t inLength);
int AddEntry(const SFileTableEntry *update, SFileTableEntry *table, ChartsBinHeader *header,
             FILE *out, FILE *in);
// The same with the blob joining run, which stands for the two streams:
// the copy's offset is run.outAt, and the blob may be copied only when the
// run is flushed (FlushBlobRun, whose result maps to the same codes), so a
// failure may show at a later entry.
int AddEntry(const SFileTableEntry *update, SFileTableEntry *table, ChartsBinHeader *header, BlobRun &run);

// The order CompactFile writes its table in: that of SortFileTable of the
// whole table, the dropped entries renamed (MarkEntryDropped) and still
// carrying their superseded mark, the kept ones none.  Where the kept
// entries are in order (they keep it from a table that was) and all sort
// strictly before every dropped one, that is the kept entries as they stand
// followed by the dropped ones sorted, found in linear time; otherwise (a
// kept name sorting after the dropped entries' name, say) the whole table
// is sorted as it is.
void SortCompactedTable(SFileTableEntry *table, uint32_t count);

// Finishes a bundle after updates: when compact is non-zero it is rewritten
// by CompactFile through a temporary (the path with its last character
// replaced by "2") that then takes the bundle's place, whatever CompactFile
// returned; then the Tarn checksum of bytes 4..end is written at offset 0.
// 0 when the checksum was written; EOF when the bundle could not be
// reopened or closing it failed.  Callers ignore the result.
int FinalizeChartsBin(const char *bundlePath, int compact, const ChartList *list);

// Writes targetPath as sourcePath less the entries that are marked, whose
// chart is not in list (a null list drops every entry), or that an equal
// newer copy supersedes - except the only copy, or only pair of copies, of a
// listed chart.  Kept entries get flags 0, the header CRC 0.
//   0 done, -1 source cannot be opened, -2 its header or table cannot be
//   read, -3 target cannot be created, -4 header placeholder written short,
//   -5 no memory, -6 source cannot be positioned, -7 short read (or a blob
//   running past the source's end), -8 blob written short, -9 table written
//   short, -10 target cannot be positioned at its header, -11 header written
//   short
int CompactFile(const char *sourcePath, const char *targetPath, const ChartList *list);
// The same, also giving the Tarn checksum of bytes 4..end of the target
// (what finalising stores at offset 0), computed from the bytes as they
// were written; set only when the result is 0.  The blobs then pass through
// memory instead of being copied by the kernel.
int CompactFile(const char *sourcePath, const char *targetPath, const ChartList *list, uint32_t *checksum);

// Compaction ahead of its turn (api/ahead.h): the bundle compacted into a
// file without a name in directory (ahead->file), with its checksum
// (ahead->crc).  ahead->code is 0 only when compaction finished; any other
// result leaves kInPlace and no file, for the bundle to be finished at its
// turn instead; so does ahead->stop, which gives up a compaction under way.
// The list must be the one finishing would use then.
void CompactChartsBinAhead(const char *bundlePath, const char *directory, const ChartList *list,
                           WrittenAhead *ahead);
// Finishes the bundle with what compaction ahead left: the file takes the
// temporary's name (which must be free) and, as in FinalizeChartsBin, the
// bundle's place, and the checksum is stored.  False, with nothing
// changed, where the file cannot be named or nothing was compacted ahead:
// FinalizeChartsBin is then to be called.
bool FinalizeChartsBinAhead(const char *bundlePath, WrittenAhead *ahead);

#endif
