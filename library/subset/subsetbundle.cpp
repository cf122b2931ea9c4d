// The chart bundle of an area subset: the entries of the source bundle that
// the destination's (already cut) chart table still names.
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <vector>

#include "api/files.h"
#include "bundle/blob.h"
#include "bundle/bundlewriter.h"
#include "bundle/chartsbin.h"
#include "bundle/runcopy.h"
#include "dbf/dbf.h"
#include "subset.h"

namespace {

bool SameFullName(const SFileTableEntry &a, const SFileTableEntry &b)
{
    return strncasecmp(a.name, b.name, kEntryNameSize) == 0;
}

// Whether the entry's name, cut at its last ".", is the whole key.
bool BaseNameIs(const SFileTableEntry &entry, const char *key)
{
    char base[kEntryNameSize + 1];
    EntryBaseName(entry.name, base);
    return strcasecmp(base, key) == 0;
}

// A base name cut and letter-folded as the base-name order compares it
// (ASCII letters lower-cased), with its length.
struct FoldedBase {
    char bytes[kEntryNameSize];
    uint8_t length;
};

void FoldBase(const char *name, FoldedBase &folded)
{
    char base[kEntryNameSize + 1];
    EntryBaseName(name, base);
    folded.length = (uint8_t)strlen(base);
    for (size_t i = 0; i < folded.length; i++) folded.bytes[i] = (char)FoldCase((unsigned char)base[i]);
}

// The key bsearch is given: the searched base name already folded, and the
// folded base names of the whole table, so that each probe is one memcmp.
// The comparison has the sign CompareSFileTableEntriesByName gives for the
// same key and entry, so the search lands where it would land with that.
struct Probe {
    FoldedBase key;
    const SFileTableEntry *table;
    const FoldedBase *bases;
};

int CompareProbe(const void *probe, const void *entry)
{
    const Probe &p = *(const Probe *)probe;
    const FoldedBase &b = p.bases[(const SFileTableEntry *)entry - p.table];
    const size_t n = p.key.length < b.length ? p.key.length : b.length;
    // Bytes compare as unsigned, as the folded letters do; base names hold
    // no NUL, so of two names equal over the shorter, the shorter is less.
    const int byBytes = memcmp(p.key.bytes, b.bytes, n);
    if (byBytes != 0) return byBytes;
    return (int)p.key.length - (int)b.length;
}

// The working state of one cut: a mark per entry, made by this selection
// alone (flags the source entries arrive with play no part), and for each
// entry the first of its run of identical names, found once so that a
// search landing inside a long run never walks it.
struct EntryMarks {
    const SFileTableEntry *table;
    uint32_t count;
    MallocPtr<unsigned char> marked;
    MallocPtr<uint32_t> runStart;
    MallocPtr<FoldedBase> bases;

    bool Prepare()
    {
        const size_t slots = count ? count : 1;
        marked.reset((unsigned char *)calloc(slots, 1));
        runStart.reset((uint32_t *)malloc(slots * sizeof(uint32_t)));
        bases.reset((FoldedBase *)malloc(slots * sizeof(FoldedBase)));
        if (!marked || !runStart || !bases) return false;
        for (uint32_t i = 0; i < count; i++) {
            runStart.get()[i] = i > 0 && SameFullName(table[i - 1], table[i]) ? runStart.get()[i - 1] : i;
            FoldBase(table[i].name, bases.get()[i]);
        }
        return true;
    }

    // Marks what one chart table record keeps; returns the marks made.
    // The search cuts the key at its last "." too, so a base name that holds
    // a point is searched by the part before it.  Among several entries of
    // the base name the platform's bsearch decides where it lands; from
    // there only the first of the landed run of identical names and the one
    // entry after that first are examined.
    int Mark(const char *key)
    {
        if (count == 0) return 0;
        Probe probe;
        FoldBase(key, probe.key);
        probe.table = table;
        probe.bases = bases.get();
        const void *found = bsearch(&probe, table, count, sizeof *table, CompareProbe);
        if (!found) return 0;
        const uint32_t first = runStart.get()[(const SFileTableEntry *)found - table];
        marked.get()[first] = 1;
        int made = 1;
        if (first + 1 < count && BaseNameIs(table[first + 1], key)) {
            marked.get()[first + 1] = 1;
            made++;
        }
        return made;
    }
};

// The blobs of the marked entries in table order, gathered into runs: blobs
// that lie back to back in the source go in one copy.  An entry whose blob
// runs past the source's end gets none of its bytes copied.
std::vector<ByteRun> MarkedRuns(const EntryMarks &marks, int64_t sourceLength)
{
    std::vector<ByteRun> runs;
    for (uint32_t i = 0; i < marks.count; i++) {
        const SFileTableEntry &entry = marks.table[i];
        if (marks.marked.get()[i] && EntryWithinFile(&entry, sourceLength)) AddToRuns(runs, entry.offset, entry.size);
    }
    return runs;
}

// Appends the runs to out.  Copy failures are not reported: the table and
// header are written as if every blob had arrived.  True when every byte
// went over.  A cut made ahead stops at the next run once told to.
bool CopyRuns(RunCopy &blobs, size_t count, const std::atomic<bool> *stop)
{
    bool whole = true;
    for (size_t i = 0; i < count; i++) {
        if (StopAsked(stop)) return false;
        whole &= blobs.Copy(i) == kBlobDone;
    }
    return blobs.Flush() && whole;
}

const char *BundleName(const char *sourceBundlePath)
{
    return strstr(sourceBundlePath, "vfrcharts.bin") ? "vfrcharts.bin" : "charts.bin";
}

// The cut, at its turn (ahead null) or ahead of it.  Ahead, a bundle that
// cannot be created or is not written whole gives kInPlace.
int Cut(const char *sourceBundlePath, const char *destinationDirectory, WrittenAhead *ahead)
{
    FilePtr in(fopen(sourceBundlePath, "rb"));
    if (!in) return -1;
    ChartsBinHeader header;
    MallocPtr<SFileTableEntry> table(ReadChartsBinHeaderAndFileTable(in.get(), 0, &header));
    if (!table) return -2;
    EntryMarks marks = {table.get(), header.fileCount, nullptr, nullptr, nullptr};
    if (!marks.Prepare()) return -2;
    if (ahead && ahead->ready && !ahead->ready(ahead->readyContext))
        return WrittenAhead::kInPlace;

    const bool vfr = strstr(sourceBundlePath, "vfrcharts.bin") != nullptr;
    PathPtr chartTablePath = JoinPath(destinationDirectory, vfr ? "vfrchrts.dbf" : "charts.dbf");
    DBFFilePtr charts(chartTablePath ? DBFFile_Open(chartTablePath.get()) : nullptr);
    if (!charts) return -3;
    const int nameField = DBFFile_GetFieldNumber(charts.get(), "FILENAM_BA");
    uint64_t made = 0;
    while (DBFFile_ReadRecord(charts.get()) == 1) {
        const char *key = DBFFile_GetFieldValueByPos(charts.get(), nameField);
        made += marks.Mark(key ? key : "");
    }
    charts.reset();
    if (made == 0) return -4;

    PathPtr outPath = JoinPath(destinationDirectory, BundleName(sourceBundlePath));
    StreamBuffer outBuffer;  // outlives out
    FilePtr out(ahead ? ahead->file.Create(destinationDirectory)
                      : outPath ? fopen(outPath.get(), "wb") : nullptr);
    if (!out) return ahead ? WrittenAhead::kInPlace : -5;
    // The blobs are checksummed as they go over: from the source on another
    // thread while the kernel copies them, or, when a small box keeps them
    // scattered, as they pass through memory.
    const int64_t sourceLength = StreamLength(in.get());
    const std::vector<ByteRun> runs = MarkedRuns(marks, sourceLength);
    RunCopy blobs(in.get(), sourceLength, runs, out.get());
    blobs.Start(RunsPassThroughMemory(runs) && outBuffer.GiveTo(out.get()));
    ChartsBinHeader written = header;
    written.crc = 0;
    bool whole = WriteChartsBinHeader(out.get(), &written);
    whole &= CopyRuns(blobs, runs.size(), ahead ? &ahead->stop : nullptr);

    // The kept entries, in source order (a subsequence of a sorted table
    // stays sorted), flags cleared.  Their offsets are a running sum from the
    // header's Size: the producer's Size is the header length, where the
    // first blob went.
    uint32_t kept = 0;
    uint32_t offset = header.size;
    for (uint32_t i = 0; i < marks.count; i++) {
        if (!marks.marked.get()[i]) continue;
        SFileTableEntry entry = table.get()[i];
        entry.flags = 0;
        entry.offset = offset;
        offset += entry.size;
        table.get()[kept++] = entry;
    }
    written.tableOffset = WritePosition(out.get());
    written.fileCount = kept;
    whole &= WriteFileTable(out.get(), table.get(), kept);
    whole &= RewriteChartsBinHeader(out.get(), &written) == kHeaderWritten;
    whole &= fclose(out.release()) == 0;
    uint32_t blobCrc;
    const bool checksummed = blobs.Finish(&blobCrc);
    in.reset();
    if (ahead) {
        if (!whole || !checksummed) return WrittenAhead::kInPlace;
        ahead->crc = BundleChecksum(written, blobCrc, RunBytes(runs), table.get(), kept);
        return 0;
    }
    // Only a file written whole is the bytes checksummed; anything else is
    // read back as it stands.
    if (whole && checksummed) {
        WriteChartsBinCrc(outPath.get(), BundleChecksum(written, blobCrc, RunBytes(runs), table.get(), kept));
    } else {
        WriteChartsBinCrc(outPath.get());
    }
    return 0;
}

std::atomic<unsigned> placedAhead{0};

}  // namespace

unsigned SubsetBundlesPlacedAhead() { return placedAhead.load(std::memory_order_relaxed); }

int CreateSubsetChartsBin(const char *sourceBundlePath, const char *destinationDirectory)
{
    return Cut(sourceBundlePath, destinationDirectory, nullptr);
}

void CutSubsetChartsBinAhead(const char *sourceBundlePath, const char *destinationDirectory,
                             WrittenAhead *ahead)
{
    ahead->code = Cut(sourceBundlePath, destinationDirectory, ahead);
    if (ahead->code != 0) ahead->file.Discard();
}

int PlaceSubsetChartsBin(const char *sourceBundlePath, const char *destinationDirectory,
                         WrittenAhead *ahead)
{
    if (ahead->code == WrittenAhead::kInPlace)
        return CreateSubsetChartsBin(sourceBundlePath, destinationDirectory);
    if (ahead->code != 0) return ahead->code;
    // Named now, the bundle appears where the cut would have created it.
    PathPtr outPath = JoinPath(destinationDirectory, BundleName(sourceBundlePath));
    if (!outPath || !NameBundleWrittenAhead(ahead, outPath.get()))
        return CreateSubsetChartsBin(sourceBundlePath, destinationDirectory);
    placedAhead.fetch_add(1, std::memory_order_relaxed);
    return 0;
}
