// The chart bundle of an area subset: the entries of the source bundle that
// the destination's (already cut) chart table still names.
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <atomic>
#include <vector>

#include "bundle/blob.h"
#include "bundle/bundlewriter.h"
#include "bundle/chartsbin.h"
#include "bundle/crc.h"
#include "bundle/runcopy.h"
#include "dbf/dbf.h"
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"
#include "subset/subset.h"

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

// Appends the runs to out.  True when every byte went over.  A cut made on
// a second thread stops at the next run once told to.
bool CopyRuns(RunCopy &blobs, const std::vector<ByteRun> &runs, const std::atomic<bool> *stop, WriteBehind &behind)
{
    bool whole = true;
    uint64_t at = kChartsBinHeaderSize;
    for (size_t i = 0; i < runs.size(); i++) {
        if (stop && stop->load(std::memory_order_relaxed)) return false;
        whole &= blobs.Copy(i) == kBlobDone;
        behind.Reached(at += runs[i].size);
    }
    return blobs.Flush() && whole;
}

}  // namespace

const char *SubsetBundleName(const char *sourceBundlePath)
{
    return strstr(sourceBundlePath, "vfrcharts.bin") ? "vfrcharts.bin" : "charts.bin";
}

int CutSubsetChartsBin(const char *sourceBundlePath, const char *destinationDirectory, NewFile &out,
                       const std::atomic<bool> *stop)
{
    FilePtr in(fopen(sourceBundlePath, "rb"));
    if (!in) return -1;
    ChartsBinHeader header;
    MallocPtr<SFileTableEntry> table(ReadChartsBinHeaderAndFileTable(in.get(), 0, &header));
    if (!table) return -2;
    EntryMarks marks = {table.get(), header.fileCount, nullptr, nullptr, nullptr};
    if (!marks.Prepare()) return -2;

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

    if (!out.Create(destinationDirectory, SubsetBundleName(sourceBundlePath))) return -5;
    FILE *stream = out.stream();
    // The blobs are checksummed as they go over: from the source on another
    // thread while the kernel copies them, or, when a small box keeps them
    // scattered, as they pass through memory.
    const int64_t sourceLength = StreamLength(in.get());
    const std::vector<ByteRun> runs = MarkedRuns(marks, sourceLength);
    RunCopy blobs(in.get(), sourceLength, runs, stream);
    blobs.Start(RunsPassThroughMemory(runs) && out.UseBuffer(kBlobChunk));
    ChartsBinHeader written = header;
    written.crc = 0;
    bool whole = WriteChartsBinHeader(stream, &written);
    WriteBehind behind(stream);
    whole &= CopyRuns(blobs, runs, stop, behind);

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
    written.tableOffset = WritePosition(stream);
    written.fileCount = kept;
    whole &= WriteFileTable(stream, table.get(), kept);
    whole &= RewriteChartsBinHeader(stream, &written) == kHeaderWritten;
    whole &= fflush(stream) == 0;
    uint32_t blobCrc;
    const bool checksummed = blobs.Finish(&blobCrc);
    in.reset();
    // Read errors of the source are not the cut's: its entries are written
    // as if their blobs had arrived.  A write that failed is.
    if (!whole || out.Failed()) {
        out.Discard();
        return -11;
    }
    // The checksum follows from the blobs' sums; only where those could not
    // be worked out is the file read back.
    const uint32_t crc = checksummed ? BundleChecksum(written, blobCrc, RunBytes(runs), table.get(), kept)
                                     : FileCRCTarnStartingAt(out.TemporaryPath().c_str(), 4);
    if (!StoreChartsBinCrc(stream, crc)) {
        out.Discard();
        return -11;
    }
    return 0;
}

int CreateSubsetChartsBin(const char *sourceBundlePath, const char *destinationDirectory)
{
    NewFile out;
    const int code = CutSubsetChartsBin(sourceBundlePath, destinationDirectory, out, nullptr);
    if (code != 0) return code;
    return out.Commit() ? 0 : -11;
}
