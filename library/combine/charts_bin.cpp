// The chart bundle merge: one bundle with every chart file of the IFR and
// the VFR bundle, written through the shared bundle-writing steps.  Entries
// are never merged or dropped: a chart in both bundles is kept twice.
#include <string.h>

#include "api/files.h"
#include "bundle/blob.h"
#include "bundle/bundlewriter.h"
#include "bundle/chartsbin.h"
#include "combine/combine.h"
#include "directory/textfile.h"

namespace {

// A source bundle, its header and its table.
struct SourceBundle {
    FilePtr file;
    ChartsBinHeader header;
    MallocPtr<SFileTableEntry> table;  // null when the bundle cannot be read
    int64_t length = -1;

    // Opens dir/name and reads header and table; false when it does not open.
    bool Open(const char *dir, const char *name)
    {
        memset(&header, 0, sizeof header);
        file = OpenIn(dir, name, "rb");
        if (!file) return false;
        table.reset(ReadChartsBinHeaderAndFileTable(file.get(), 0, &header));
        length = StreamLength(file.get());
        return true;
    }
};

// The codes of one source's blob failures.
struct BlobCodes {
    int noMemory, shortRead, shortWrite;
};
const BlobCodes kIfrBlobCodes = {-4, -5, -6};
const BlobCodes kVfrBlobCodes = {-7, -8, -9};

int CodeOf(BlobResult result, const BlobCodes &codes)
{
    switch (result) {
    case kBlobDone: return 0;
    case kBlobNoMemory: return codes.noMemory;
    case kBlobSeekFailed:
    case kBlobShortRead: return codes.shortRead;
    case kBlobShortWrite: return codes.shortWrite;
    }
    return codes.shortRead;
}

// Appends the blobs of entries (count of them, in table order) from source
// to out and points each entry at its new place.  Blobs that lie back to
// back in the source, as a bundle producer writes them, go over as one run:
// they land back to back as well, so their new offsets follow from the
// sizes.  The chunk buffer is bounded, whatever size an entry claims.  An
// entry running past the end of its bundle is a short read once every blob
// before it has been copied.
int CopyBlobs(const SourceBundle &source, SFileTableEntry *entries, uint32_t count, FILE *out,
              const BlobCodes &codes)
{
    uint32_t at = WritePosition(out);  // where the next blob lands
    uint32_t from = 0;                 // the run not yet copied: its source offset
    uint64_t pending = 0;              // and its length
    auto flush = [&] {
        BlobResult result = kBlobDone;
        if (pending > 0) result = CopyBlob(source.file.get(), source.length, from, (uint32_t)pending, out);
        pending = 0;
        return CodeOf(result, codes);
    };
    for (uint32_t i = 0; i < count; i++) {
        SFileTableEntry &entry = entries[i];
        // An empty blob has nothing to read, wherever it claims to be.
        if (entry.size == 0) {
            entry.offset = at;
            continue;
        }
        bool within = EntryWithinFile(&entry, source.length);
        bool joins = within && pending > 0 && (uint64_t)from + pending == entry.offset &&
                     pending + entry.size <= UINT32_MAX;
        if (!joins) {
            int code = flush();
            if (code != 0) return code;
            from = entry.offset;
        }
        entry.offset = at;
        at += entry.size;
        pending += entry.size;
        if (!within) return flush();
    }
    return flush();
}

// The number after "Database_Begin_Date=" in dir's "charts.ini"; 0 when the
// file is missing or empty or has no such key.
double BeginDate(const char *dir)
{
    MallocPtr<char> text;
    if (ReadTextFile(dir, "charts.ini", text) != 0) return 0.0;
    static const char kKey[] = "Database_Begin_Date=";
    const char *found = strstr(text.get(), kKey);
    return found ? strtod(found + sizeof kKey - 1, nullptr) : 0.0;
}

}  // namespace

int MergeChartsBin(const char *sourceDirectory, const char *destinationDirectory)
{
    SourceBundle ifr, vfr;
    bool haveIfr = ifr.Open(sourceDirectory, "charts.bin");
    if (!vfr.Open(sourceDirectory, "vfrcharts.bin")) return haveIfr ? 0 : -1;
    // A bundle that opens but whose table cannot be read has blobs that
    // cannot be read either.
    if (haveIfr && !ifr.table) return kIfrBlobCodes.shortRead;
    if (!vfr.table) return kVfrBlobCodes.shortRead;

    // The combined table: the IFR entries, then the VFR entries.
    uint32_t ifrCount = haveIfr ? ifr.header.fileCount : 0;
    uint32_t vfrCount = vfr.header.fileCount;
    uint64_t count = (uint64_t)ifrCount + vfrCount;
    if (count > UINT32_MAX) return -1;
    MallocPtr<SFileTableEntry> combined;
    if (haveIfr) {
        void *grown = realloc(ifr.table.get(), count > 0 ? (size_t)count * kFileTableEntrySize : 1);
        if (!grown) return -1;
        ifr.table.release();
        combined.reset((SFileTableEntry *)grown);
        memcpy(combined.get() + ifrCount, vfr.table.get(), (size_t)vfrCount * kFileTableEntrySize);
    } else {
        combined = std::move(vfr.table);
    }

    PathPtr outPath = JoinPath(destinationDirectory, "charts.bin");
    FilePtr out(outPath ? fopen(outPath.get(), "wb") : nullptr);
    if (!out) return -2;

    ChartsBinHeader header;
    if (haveIfr) {
        // The two data regions one after the other behind one header; the
        // offset comes from the headers, not from where the table lands.
        header = ifr.header;
        header.fileCount = (uint32_t)count;
        header.tableOffset = ifr.header.tableOffset + vfr.header.tableOffset - kChartsBinHeaderSize;
    } else {
        // The date text is formatted over the VFR one: bytes behind its
        // terminator keep the VFR values, and a text longer than the field
        // allows is cut.
        header = vfr.header;
        snprintf(header.julianDate, sizeof header.julianDate, "%2.1f", BeginDate(sourceDirectory));
    }
    // Flushed at once, so that a full disk shows at the header.
    if (!WriteChartsBinHeader(out.get(), &header) || fflush(out.get()) != 0) return -3;

    int code = CopyBlobs(ifr, combined.get(), ifrCount, out.get(), kIfrBlobCodes);
    if (code != 0) return code;
    ifr.file.reset();
    code = CopyBlobs(vfr, combined.get() + ifrCount, vfrCount, out.get(), kVfrBlobCodes);
    if (code != 0) return code;
    vfr.file.reset();

    SortFileTable(combined.get(), (uint32_t)count);
    // The table is the last thing written; a close that fails to flush it
    // leaves it short.
    if (!WriteFileTable(out.get(), combined.get(), (uint32_t)count)) return -10;
    if (fclose(out.release()) != 0) return -10;
    combined.reset();
    // Without a checksum the CRC field keeps the header's value.
    WriteChartsBinCrc(outPath.get());
    return 0;
}
