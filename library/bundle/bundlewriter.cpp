#include "bundle/bundlewriter.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "platform/files.h"
#include "platform/platform.h"
#include "bundle/crc.h"
#include "tarntermchart.h"

bool WriteChartsBinHeader(FILE *out, const ChartsBinHeader *header)
{
    ChartsBinHeader zeros;
    memset(&zeros, 0, sizeof zeros);
    return fwrite(header ? header : &zeros, 1, kChartsBinHeaderSize, out) == kChartsBinHeaderSize;
}

HeaderRewriteResult RewriteChartsBinHeader(FILE *out, const ChartsBinHeader *header)
{
    if (SeekStream(out, 0, SEEK_SET) != 0) return kHeaderSeekFailed;
    return WriteChartsBinHeader(out, header) ? kHeaderWritten : kHeaderShortWrite;
}

uint32_t WritePosition(FILE *out) { return (uint32_t)TellStream(out); }

void SortFileTable(SFileTableEntry *table, uint32_t count)
{
    const NameFold fold;
    auto before = [&fold](const SFileTableEntry &a, const SFileTableEntry &b) {
        return fold.CompareEntries(a, b) < 0;
    };
    // A table read from a bundle is in order already and entries appended
    // to it follow: only those are sorted, then merged in.  Entries equal in
    // name, variant and flags (old and new copies of one file) keep their
    // table order, exactly as a stable sort of the whole table would leave
    // them, so the result is the same whichever platform sorts it.
    SFileTableEntry *end = table + count;
    SFileTableEntry *unsorted = std::is_sorted_until(table, end, before);
    if (unsorted == end) return;
    std::stable_sort(unsorted, end, before);
    std::inplace_merge(table, unsorted, end, before);
}

bool WriteFileTable(FILE *out, const SFileTableEntry *table, uint32_t count)
{
    size_t bytes = (size_t)count * kFileTableEntrySize;
    return bytes == 0 || fwrite(table, 1, bytes, out) == bytes;
}

uint32_t BundleChecksum(const ChartsBinHeader &header, uint32_t blobCrc, uint64_t blobBytes,
                        const SFileTableEntry *table, uint32_t count)
{
    const uint64_t tableBytes = (uint64_t)count * kFileTableEntrySize;
    const uint32_t body = TarnCrcUpdate(blobCrc, table, (size_t)tableBytes);
    const uint32_t head = TarnCrcUpdate(0, (const unsigned char *)&header + 4, kChartsBinHeaderSize - 4);
    return TarnCrcCombine(head, body, blobBytes + tableBytes);
}

void MarkEntryDropped(SFileTableEntry *entry)
{
    memcpy(entry->name, TARN_DROPPED_ENTRY_NAME, sizeof TARN_DROPPED_ENTRY_NAME);
}

bool StoreChartsBinCrc(FILE *out, uint32_t crc)
{
    unsigned char bytes[4] = {(unsigned char)crc, (unsigned char)(crc >> 8),
                              (unsigned char)(crc >> 16), (unsigned char)(crc >> 24)};
    return SeekStream(out, 0, SEEK_SET) == 0 && fwrite(bytes, 1, 4, out) == 4 && fflush(out) == 0;
}

bool WriteChartsBinCrc(const char *path, uint32_t crc)
{
    // Updated in place, never through a link, and flushed before it counts.
    FilePtr f(OpenFileForUpdate(path));
    if (!f) return false;
    bool written = StoreChartsBinCrc(f.get(), crc) && FlushFile(f.get());
    return fclose(f.release()) == 0 && written;
}

bool WriteChartsBinCrc(const char *path)
{
    // The checksum is read over a file that must stay the one written to.
    if (KindOf(path) != kPathFile) return false;
    return WriteChartsBinCrc(path, FileCRCTarnStartingAt(path, 4));
}
