// The shared bundle reader and the two entry orders.
#include "bundle/chartsbin.h"

#include <stdlib.h>
#include <ctype.h>
#include <string.h>
#include <strings.h>

#include "platform/platform.h"

int64_t StreamLength(FILE *stream)
{
    int64_t at = TellStream(stream);
    if (at < 0 || SeekStream(stream, 0, SEEK_END) != 0) return -1;
    int64_t end = TellStream(stream);
    if (SeekStream(stream, at, SEEK_SET) != 0) return -1;
    return end;
}

bool EntryWithinFile(const SFileTableEntry *entry, int64_t fileLength)
{
    return fileLength >= 0 && (uint64_t)entry->offset + entry->size <= (uint64_t)fileLength;
}

SFileTableEntry *ReadChartsBinHeaderAndFileTable(FILE *stream, uint32_t extraBytes,
                                                 ChartsBinHeader *header)
{
    if (SeekStream(stream, 0, SEEK_SET) != 0) return nullptr;
    if (fread(header, 1, kChartsBinHeaderSize, stream) != kChartsBinHeaderSize) return nullptr;
    // A table that does not fit in the file could never be read whole; it is
    // refused before its size is trusted for an allocation.
    int64_t length = StreamLength(stream);
    uint64_t tableBytes = (uint64_t)header->fileCount * kFileTableEntrySize;
    if (length < 0 || (uint64_t)header->tableOffset + tableBytes > (uint64_t)length) return nullptr;
    if (SeekStream(stream, (int64_t)header->tableOffset, SEEK_SET) != 0) return nullptr;
    size_t blockBytes = (size_t)tableBytes + extraBytes;
    SFileTableEntry *table = (SFileTableEntry *)malloc(blockBytes > 0 ? blockBytes : 1);
    if (!table) return nullptr;
    if (fread(table, 1, (size_t)tableBytes, stream) != (size_t)tableBytes) {
        free(table);
        return nullptr;
    }
    return table;
}

int CompareSFileTableEntries(const void *a, const void *b)
{
    const SFileTableEntry *x = (const SFileTableEntry *)a;
    const SFileTableEntry *y = (const SFileTableEntry *)b;
    // A name may fill all 26 bytes without a terminator.
    int byName = strncasecmp(x->name, y->name, kEntryNameSize);
    if (byName != 0) return byName;
    if (x->variant != y->variant) return x->variant < y->variant ? -1 : 1;
    if (x->flags != y->flags) return x->flags < y->flags ? -1 : 1;
    return 0;
}

NameFold::NameFold()
{
    for (int c = 0; c < 256; c++) to[c] = (unsigned char)tolower(c);
}

// The length of a name's base: its first 26 bytes at most, up to its last ".".
static size_t BaseLength(const unsigned char *name)
{
    size_t length = 0, dot = kEntryNameSize + 1;
    for (; length < kEntryNameSize && name[length] != 0; length++)
        if (name[length] == '.') dot = length;
    return dot <= kEntryNameSize ? dot : length;
}

void EntryBaseName(const char *name, char (&base)[kEntryNameSize + 1])
{
    size_t length = BaseLength((const unsigned char *)name);
    memcpy(base, name, length);
    base[length] = '\0';
}

bool SameEntryName(const SFileTableEntry &a, const SFileTableEntry &b)
{
    return strncmp(a.name, b.name, kEntryNameSize) == 0;
}

// strcasecmp of the two base names, without copying them: the search calls
// this for every probe of every chart record.
int CompareSFileTableEntriesByName(const void *a, const void *b)
{
    const unsigned char *x = (const unsigned char *)a, *y = (const unsigned char *)b;
    const size_t nx = BaseLength(x), ny = BaseLength(y);
    const size_t n = nx < ny ? nx : ny;
    for (size_t i = 0; i < n; i++) {
        const int d = FoldCase(x[i]) - FoldCase(y[i]);
        if (d != 0) return d;
    }
    return (nx > n ? FoldCase(x[n]) : 0) - (ny > n ? FoldCase(y[n]) : 0);
}
