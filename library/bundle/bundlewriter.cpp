#include "bundle/bundlewriter.h"

#include <stdlib.h>
#include <string.h>

#include "api/files.h"
#include "tarntermchart.h"

bool WriteChartsBinHeader(FILE *out, const ChartsBinHeader *header)
{
    ChartsBinHeader zeros;
    memset(&zeros, 0, sizeof zeros);
    return fwrite(header ? header : &zeros, 1, kChartsBinHeaderSize, out) == kChartsBinHeaderSize;
}

HeaderRewriteResult RewriteChartsBinHeader(FILE *out, const ChartsBinHeader *header)
{
    if (fseeko(out, 0, SEEK_SET) != 0) return kHeaderSeekFailed;
    return WriteChartsBinHeader(out, header) ? kHeaderWritten : kHeaderShortWrite;
}

uint32_t WritePosition(FILE *out) { return (uint32_t)ftello(out); }

void SortFileTable(SFileTableEntry *table, uint32_t count)
{
    if (count > 1) qsort(table, count, sizeof *table, CompareSFileTableEntries);
}

bool WriteFileTable(FILE *out, const SFileTableEntry *table, uint32_t count)
{
    size_t bytes = (size_t)count * kFileTableEntrySize;
    return bytes == 0 || fwrite(table, 1, bytes, out) == bytes;
}

void MarkEntryDropped(SFileTableEntry *entry)
{
    memcpy(entry->name, TARN_DROPPED_ENTRY_NAME, sizeof TARN_DROPPED_ENTRY_NAME);
}

bool WriteChartsBinCrc(const char *path)
{
    uint32_t crc = FileCRCTarnStartingAt(path, 4);
    FilePtr f(fopen(path, "r+b"));
    if (!f) return false;
    unsigned char bytes[4] = {(unsigned char)crc, (unsigned char)(crc >> 8),
                              (unsigned char)(crc >> 16), (unsigned char)(crc >> 24)};
    bool written = fwrite(bytes, 1, 4, f.get()) == 4;
    return fclose(f.release()) == 0 && written;
}
