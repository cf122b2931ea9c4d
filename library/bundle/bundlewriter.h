// The steps every bundle writer of the library takes, as small functions that
// each operation strings together in its own order, with its own codes:
//
//   1. WriteChartsBinHeader    27-byte placeholder at offset 0 (source header or zeros)
//   2. WritePosition, CopyBlob  record each entry's new offset, then append its blob (blob.h)
//   3. SortFileTable           bundle order; entries to leave out renamed by MarkEntryDropped first
//   4. WritePosition, WriteFileTable   Table Offset and File Count into the header, then the table
//   5. RewriteChartsBinHeader  seek to 0 and write the header
//   6. WriteChartsBinCrc       after closing: the Tarn checksum of bytes 4..end, at offset 0
//
// A writer that knows the checksum of its blobs (CompactFile checksums them
// as they pass, the writers that let the kernel copy have them checksummed
// from the source on another thread, crc_runs.h) gets the whole file's from
// BundleChecksum instead of reading the file back; it does so only when
// every write succeeded, so that the file holds exactly those bytes.  Every
// writer writes a new file (platform/newfile.h) and stores the checksum in
// it (StoreChartsBinCrc) before the file takes its name, so that no bundle
// under its final name ever lacks its checksum.
//
// Reading the source's header and table is ReadChartsBinHeaderAndFileTable
// (chartsbin.h).
#ifndef TARNTERMCHART_BUNDLE_BUNDLEWRITER_H
#define TARNTERMCHART_BUNDLE_BUNDLEWRITER_H

#include <stdint.h>
#include <stdio.h>

#include "bundle/blob.h"
#include "bundle/chartsbin.h"

// Writes the 27 header bytes at the current position; a null header writes
// zeros.  False when the stream took fewer bytes.
bool WriteChartsBinHeader(FILE *out, const ChartsBinHeader *header);

enum HeaderRewriteResult {
    kHeaderWritten = 0,
    kHeaderSeekFailed,
    kHeaderShortWrite,
};
// Seeks to offset 0 and writes the header there.
HeaderRewriteResult RewriteChartsBinHeader(FILE *out, const ChartsBinHeader *header);

// The position of the next write, as stored in an entry's offset or the
// header's Table Offset (offsets are 32-bit in the format).
uint32_t WritePosition(FILE *out);

// Sorts a table into bundle order (CompareSFileTableEntries), stably.
void SortFileTable(SFileTableEntry *table, uint32_t count);

// Writes count entries at the current position in one piece; false when the
// stream took fewer bytes.
bool WriteFileTable(FILE *out, const SFileTableEntry *table, uint32_t count);

// The checksum WriteChartsBinCrc would read back from a bundle written as
// header, blobs and table one after the other, given the Tarn register over
// the blobs from 0 (blobCrc) and their length.
uint32_t BundleChecksum(const ChartsBinHeader &header, uint32_t blobCrc, uint64_t blobBytes,
                        const SFileTableEntry *table, uint32_t count);

// Renames an entry that is to be left out to TARN_DROPPED_ENTRY_NAME (ten
// characters and a NUL; the bytes after the NUL stay), so that after sorting
// it stands behind every kept entry and writing the first kept-count entries
// leaves it out.
void MarkEntryDropped(SFileTableEntry *entry);

// Writes the checksum as 4 little-endian bytes at offset 0 of a bundle
// being written (a new file not yet given its name).  False when the seek
// or the write fails.
bool StoreChartsBinCrc(FILE *out, uint32_t crc);
// Computes FileCRCTarnStartingAt(path, 4) of the closed bundle, opens it for
// update (never through a symbolic link) and writes the checksum at offset
// 0, flushed to the disk.  False when it cannot be opened or written; the
// CRC field then keeps the value it had.
bool WriteChartsBinCrc(const char *path);
// The same with a checksum the writer computed while writing the bundle.
bool WriteChartsBinCrc(const char *path, uint32_t crc);

#endif
