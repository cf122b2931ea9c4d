// The chart bundle layout: a 27-byte header, data blobs, and a file table of
// 40-byte entries, all integers little-endian and every structure packed.
// The structures are read and written as raw bytes, which is why the host
// must be little-endian (checked below).
#ifndef TARNTERMCHART_BUNDLE_CHARTSBIN_H
#define TARNTERMCHART_BUNDLE_CHARTSBIN_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "bundle structures are read and written as little-endian bytes");

#pragma pack(push, 1)

struct ChartsBinHeader {
    uint32_t crc;          // Tarn checksum of bytes 4..end of the file; 0 while rewriting
    uint16_t size;         // header size given by the producer; carried, never interpreted
    uint16_t version;      // format version given by the producer; carried, never interpreted
    uint32_t fileCount;    // number of table entries
    uint32_t tableOffset;  // absolute offset of the first table entry
    char julianDate[11];   // decimal text, normally NUL-terminated
};

struct SFileTableEntry {
    char name[26];    // file name with extension, NUL-padded; may fill all 26 bytes
    uint32_t offset;  // absolute offset of the data blob
    uint32_t size;    // length of the data blob
    uint32_t key;     // producer's content value; compared for equality only
    uint8_t flags;    // kEntry* bits
    uint8_t variant;  // distinguishes entries of one name
};

#pragma pack(pop)

static_assert(sizeof(ChartsBinHeader) == 27, "bundle header is 27 bytes");
static_assert(sizeof(SFileTableEntry) == 40, "file table entry is 40 bytes");

enum {
    kChartsBinHeaderSize = 27,
    kFileTableEntrySize = 40,
    kEntryNameSize = 26,
};

// Flag bits of SFileTableEntry::flags.
enum : uint8_t {
    kEntrySuperseded = 0x01,     // working mark while updates are applied or a bundle is cut
    kEntryReplaceVariant = 0x10, // update entry: replaces the same variant only
    kEntryDelete = 0x20,         // update entry: deletes matching copies
};

// Whether the entry carries the working mark.
inline bool IsSuperseded(const SFileTableEntry &entry) { return (entry.flags & kEntrySuperseded) != 0; }

// Name given to entries that are to be left out: it sorts behind every chart name.
#define TARN_DROPPED_ENTRY_NAME "zzzzzzzzzz"

// Reads the header from offset 0 and the table from its Table Offset into a
// malloc block of fileCount * 40 + extraBytes bytes (at least one byte, so an
// empty table is a valid block); the caller frees it.  Null when a seek or
// read fails, or when the header's table does not lie within the file - the
// check is made before allocating, so no header can make the reader allocate
// more than the file holds.  The stream is left just after the table.
SFileTableEntry *ReadChartsBinHeaderAndFileTable(FILE *stream, uint32_t extraBytes,
                                                 ChartsBinHeader *header);

// Table order (qsort): names case-insensitively, then variant, then flags.
int CompareSFileTableEntries(const void *a, const void *b);

// Letter folding as strncasecmp does it in the current locale, read into a
// table once, so that sorting or hashing many names does not go through the
// locale for every byte.
struct NameFold {
    unsigned char to[256];

    NameFold();
    // Has the sign of strncasecmp(a, b, n).
    int Compare(const char *a, const char *b, size_t n) const
    {
        for (size_t i = 0; i < n; i++) {
            const int d = to[(unsigned char)a[i]] - to[(unsigned char)b[i]];
            if (d != 0 || a[i] == '\0') return d;
        }
        return 0;
    }
    // Has the sign of CompareSFileTableEntries(&a, &b).
    int CompareEntries(const SFileTableEntry &a, const SFileTableEntry &b) const
    {
        if (int byName = Compare(a.name, b.name, kEntryNameSize)) return byName;
        if (a.variant != b.variant) return a.variant < b.variant ? -1 : 1;
        if (a.flags != b.flags) return a.flags < b.flags ? -1 : 1;
        return 0;
    }
};
// ASCII letters lower-cased, other bytes as they are: the letter case the
// base-name order ignores, whatever the locale.
inline unsigned char FoldCase(unsigned char c) { return c >= 'A' && c <= 'Z' ? (unsigned char)(c + ('a' - 'A')) : c; }

// Base-name order: both names cut at their last "." and compared
// case-insensitively.  Serves bsearch with a bare base name as key (a
// NUL-terminated text of at most 26 significant bytes).
int CompareSFileTableEntriesByName(const void *a, const void *b);

// The chart's base name: the entry name (at most 26 bytes) up to its last
// ".", NUL-terminated.
void EntryBaseName(const char *name, char (&base)[kEntryNameSize + 1]);
// Whether two entries have the same name byte for byte (letter case counts);
// a name may fill all 26 bytes without a terminator.
bool SameEntryName(const SFileTableEntry &a, const SFileTableEntry &b);

// Length of the stream's file (its end position), or -1; the stream's
// position is restored.
int64_t StreamLength(FILE *stream);
// Whether an entry's blob lies within a file of the given length.  Readers
// check it before reading a blob, so that an entry running past the end is
// their short read rather than a large allocation.
bool EntryWithinFile(const SFileTableEntry *entry, int64_t fileLength);

#endif
