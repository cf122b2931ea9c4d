// Applying update bundles to a directory's chart bundle, and finishing the
// bundle afterwards: compaction against the chart list and the checksum.
//
// Applying works in place: the update's blobs and a new table are written
// over the old table, superseded entries stay in the file with their mark
// bit (kEntrySuperseded) set, and the header's checksum goes stale until
// FinalizeChartsBin rewrites it.  What an apply writes over is saved first
// in the bundle's undo record (undo.h), so a failed or interrupted apply
// can be taken back whole.
#ifndef TARNTERMCHART_BUNDLE_UPDATE_H
#define TARNTERMCHART_BUNDLE_UPDATE_H

#include <stdint.h>
#include <stdio.h>

#include <atomic>

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
//  -13 the header was written short (or the bundle could not be flushed)
// A bundle is never written through a symbolic link (-6), and a bundle that
// is there but cannot be read is never replaced by the update (-4).  Before
// the first write the bytes it goes over are saved in the bundle's undo
// record; a failed apply puts them back (-6 when no record can be made:
// nothing is written then), and the record goes once the apply is done.
int AddCoverageToChartsBin(const char *bundlePath, const char *updatePath);

// How an apply keeps the bundle it writes into restorable.
enum class ApplyGuard {
    // As AddCoverageToChartsBin: a record of its own, put back on failure,
    // removed on success.
    kOwnRecord,
    // Within a merge: the record of the bundle as it was before the merge,
    // made before the first write (or before the update takes a missing
    // bundle's place) unless it exists already, and kept either way: the
    // merge puts back every bundle it wrote or lets every record go.
    kMergeRecord,
};
int ApplyUpdate(const char *bundlePath, const char *updatePath, ApplyGuard guard);

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

// Finishes a bundle after updates: when compact is non-zero it is compacted
// by CompactFile into a temporary (the path with its last character
// replaced by "2"), which gets the Tarn checksum of its bytes 4..end at
// offset 0 and then takes the bundle's place; a compaction that fails
// leaves the bundle as it was.  Without compaction the checksum is written
// into the bundle in place.  0 when the bundle is final; EOF when the
// compaction or the checksum failed.
int FinalizeChartsBin(const char *bundlePath, int compact, const ChartList *list);

// Writes targetPath as sourcePath less the entries that are marked, whose
// chart is not in list (a null list drops every entry), or that an equal
// newer copy supersedes - except the only copy, or only pair of copies, of a
// listed chart.  Kept entries get flags 0, the header CRC 0.  targetPath
// takes the compacted bundle only once it is whole.
//   0 done, -1 source cannot be opened, -2 its header or table cannot be
//   read, -3 target cannot be created, -4 header placeholder written short,
//   -5 no memory, -6 source cannot be positioned, -7 short read (or a blob
//   running past the source's end), -8 blob written short, -9 table written
//   short, -10 target cannot be positioned at its header, -11 header written
//   short (or the target could not be flushed or named)
int CompactFile(const char *sourcePath, const char *targetPath, const ChartList *list);
// The same, also giving the Tarn checksum of bytes 4..end of the target
// (what finalising stores at offset 0), computed from the bytes as they
// were written; set only when the result is 0.  The blobs then pass through
// memory instead of being copied by the kernel.
int CompactFile(const char *sourcePath, const char *targetPath, const ChartList *list, uint32_t *checksum);

// The compaction temporary of a bundle: "charts.bin" -> "charts.bi2".
PathPtr CompactionTemporaryOf(const char *bundlePath);
// Compacts the bundle into its temporary, complete with its checksum at
// offset 0 and flushed, for the merge to move into the bundle's place once
// everything else is ready.  CompactFile's codes; stop (may be null) gives
// up a compaction under way.
int CompactToTemporary(const char *bundlePath, const ChartList *list, const std::atomic<bool> *stop);

#endif
