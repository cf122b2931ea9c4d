// The chart bundle merge: one bundle with every chart file of the IFR and
// the VFR bundle, written through the shared bundle-writing steps.  Entries
// are never merged or dropped: a chart in both bundles is kept twice.
#include <string.h>

#include <atomic>
#include <vector>

#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"
#include "bundle/blob.h"
#include "bundle/bundlewriter.h"
#include "bundle/chartsbin.h"
#include "bundle/crc.h"
#include "bundle/runcopy.h"
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

// Where the blobs of entries (count of them, in table order) from source go
// when appended at out position at: points each entry at its new place and
// returns the runs to copy.  Blobs that lie back to back in the source, as a
// bundle producer writes them, go over as one run: they land back to back
// as well, so their new offsets follow from the sizes.  The plan ends at an
// entry running past the end of its bundle (*cut is then set), which is a
// short read once every blob before it has been copied.
std::vector<ByteRun> PlanBlobs(const SourceBundle &source, SFileTableEntry *entries, uint32_t count, uint32_t &at,
                               bool *cut)
{
    std::vector<ByteRun> runs;
    *cut = false;
    for (uint32_t i = 0; i < count; i++) {
        SFileTableEntry &entry = entries[i];
        // An empty blob has nothing to read, wherever it claims to be.
        if (entry.size == 0) {
            entry.offset = at;
            continue;
        }
        if (!EntryWithinFile(&entry, source.length)) {
            *cut = true;
            break;
        }
        AddToRuns(runs, entry.offset, entry.size);
        entry.offset = at;
        at += entry.size;
    }
    return runs;
}

// Copies the planned runs of one source to out; the codes are the source's.
// A blob write held back in out's buffer fails at the latest here, still
// as this source's.  A merge on a second thread stops at the next run once
// told to (the code is then of no account).
int CopyBlobs(RunCopy &blobs, const std::vector<ByteRun> &runs, bool cut, const BlobCodes &codes,
              const std::atomic<bool> *stop, WriteBehind &behind, uint64_t &at)
{
    for (size_t i = 0; i < runs.size(); i++) {
        if (stop && stop->load(std::memory_order_relaxed)) return codes.shortRead;
        BlobResult result = blobs.Copy(i);
        if (result != kBlobDone) return CodeOf(result, codes);
        behind.Reached(at += runs[i].size);
    }
    if (!blobs.Flush()) return codes.shortWrite;
    return cut ? codes.shortRead : 0;
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

int MergeChartsBinInto(const char *sourceDirectory, const char *destinationDirectory, NewFile &out,
                       const std::atomic<bool> *stop)
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

    // Where the blobs go: behind the header, the IFR ones, then the VFR ones.
    // Blobs that lie back to back in the source, as a bundle producer
    // writes them, go over as one run.  A cut IFR bundle ends the copy, so
    // the VFR entries are then left as they are.
    std::vector<ByteRun> ifrRuns, vfrRuns;
    uint32_t at = kChartsBinHeaderSize;
    bool ifrCut = false, vfrCut = false;
    if (haveIfr) ifrRuns = PlanBlobs(ifr, combined.get(), ifrCount, at, &ifrCut);
    if (!ifrCut) vfrRuns = PlanBlobs(vfr, combined.get() + ifrCount, vfrCount, at, &vfrCut);

    if (!out.Create(destinationDirectory, "charts.bin")) return -2;
    FILE *stream = out.stream();

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
    // Runs short on average (a producer's bundle in no particular order)
    // pass through memory and the stream's buffer; long ones go by kernel
    // copy, checksummed from the source on another thread.  The copies are
    // declared after the sources, so that their threads are done before a
    // source closes.
    const bool ifrThroughMemory = RunsPassThroughMemory(ifrRuns);
    const bool vfrThroughMemory = RunsPassThroughMemory(vfrRuns);
    const bool buffered = (ifrThroughMemory || vfrThroughMemory) && out.UseBuffer(kBlobChunk);
    RunCopy ifrBlobs(ifr.file.get(), ifr.length, ifrRuns, stream);
    RunCopy vfrBlobs(vfr.file.get(), vfr.length, vfrRuns, stream);
    // Flushed at once, so that a full disk shows at the header.
    if (!WriteChartsBinHeader(stream, &header) || fflush(stream) != 0) return -3;

    WriteBehind behind(stream);
    uint64_t written = kChartsBinHeaderSize;
    ifrBlobs.Start(buffered && ifrThroughMemory);
    int code = CopyBlobs(ifrBlobs, ifrRuns, ifrCut, kIfrBlobCodes, stop, behind, written);
    if (code != 0) return code;
    vfrBlobs.Start(buffered && vfrThroughMemory);
    code = CopyBlobs(vfrBlobs, vfrRuns, vfrCut, kVfrBlobCodes, stop, behind, written);
    if (code != 0) return code;

    SortFileTable(combined.get(), (uint32_t)count);
    // The table is the last thing written.
    if (!WriteFileTable(stream, combined.get(), (uint32_t)count) || fflush(stream) != 0 || out.Failed())
        return -10;
    // Everything was written: the checksum follows from the blobs' sums,
    // and only where those could not be worked out is the file read back.
    uint32_t ifrCrc, vfrCrc, crc;
    if (ifrBlobs.Finish(&ifrCrc) && vfrBlobs.Finish(&vfrCrc)) {
        const uint64_t ifrBytes = RunBytes(ifrRuns), vfrBytes = RunBytes(vfrRuns);
        const uint32_t blobs = TarnCrcCombine(ifrCrc, vfrCrc, vfrBytes);
        crc = BundleChecksum(header, blobs, ifrBytes + vfrBytes, combined.get(), (uint32_t)count);
    } else {
        crc = FileCRCTarnStartingAt(out.TemporaryPath().c_str(), 4);
    }
    return StoreChartsBinCrc(stream, crc) ? 0 : -11;
}

int MergeChartsBin(const char *sourceDirectory, const char *destinationDirectory)
{
    NewFile out;
    const int code = MergeChartsBinInto(sourceDirectory, destinationDirectory, out, nullptr);
    if (code != 0 || !out.Created()) return code;
    return out.Commit() ? 0 : -11;
}
