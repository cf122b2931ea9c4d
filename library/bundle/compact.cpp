// Finishing a bundle after updates: compaction against the chart list, then
// the header checksum.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <vector>

#include "bundle/blob.h"
#include "bundle/bundlewriter.h"
#include "bundle/crc.h"
#include "bundle/crc_runs.h"
#include "bundle/runcopy.h"
#include "bundle/update.h"
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"

namespace {

bool StopAsked(const std::atomic<bool> *stop) { return stop && stop->load(std::memory_order_relaxed); }

bool IsListed(ChartListIndex &list, const SFileTableEntry &entry)
{
    char base[kEntryNameSize + 1];
    EntryBaseName(entry.name, base);
    return list.Contains(base);
}

// Of two copies, the one written earlier (lower offset) loses.
void MarkOlder(SFileTableEntry &left, SFileTableEntry &right)
{
    (left.offset < right.offset ? left : right).flags |= kEntrySuperseded;
}

// The names the rescue compares an entry with; a missing neighbour has the
// empty name, which no entry is compared equal to unless its own is empty.
bool SameNameAt(const SFileTableEntry *table, uint32_t count, uint32_t i, int64_t j)
{
    if (j < 0 || j >= (int64_t)count) return table[i].name[0] == '\0';
    return SameEntryName(table[i], table[j]);
}

// Decides which entries stay: the chart list, then duplicate copies, then
// the rescue of listed charts that would otherwise lose every copy.
void MarkDropped(SFileTableEntry *table, uint32_t count, const ChartList *chartList)
{
    ChartListIndex list(chartList);
    for (uint32_t i = 0; i < count; i++)
        if (!IsListed(list, table[i])) table[i].flags |= kEntrySuperseded;

    for (uint32_t i = 0; i + 1 < count; i++) {
        SFileTableEntry &a = table[i], &b = table[i + 1];
        if (!SameEntryName(a, b)) continue;
        if (a.variant == b.variant) MarkOlder(a, b);
        if (a.key == b.key && a.size == b.size) MarkOlder(a, b);
    }

    for (uint32_t i = 0; i < count; i++) {
        SFileTableEntry &e = table[i];
        if (!IsSuperseded(e) || !IsListed(list, e)) continue;
        const bool likePrevious = SameNameAt(table, count, i, (int64_t)i - 1);
        const bool likeNext = SameNameAt(table, count, i, (int64_t)i + 1);
        if (!likePrevious && !likeNext) {
            e.flags = 0;  // the only copy of a listed chart
        } else if (likeNext && i + 1 < count && IsSuperseded(table[i + 1]) && !likePrevious &&
                   !SameNameAt(table, count, i, (int64_t)i + 2)) {
            e.flags = 0;  // a listed chart's only pair of copies
            table[i + 1].flags = 0;
        }
    }
}

int CompactCode(BlobResult result)
{
    switch (result) {
    case kBlobDone: return 0;
    case kBlobNoMemory: return -5;
    case kBlobSeekFailed: return -6;
    case kBlobShortRead: return -7;
    case kBlobShortWrite: break;
    }
    return -8;
}

// The kept blobs, in table order, gathered into runs of blobs that follow
// one another in the source; planned before anything is copied, up to the
// first kept entry that runs past the source's end (*cut is then set),
// where the copy stops with a short read once the blobs before it went over.
std::vector<ByteRun> KeptRuns(const SFileTableEntry *table, uint32_t count, int64_t sourceLength, bool *cut)
{
    std::vector<ByteRun> runs;
    *cut = false;
    for (uint32_t i = 0; i < count; i++) {
        const SFileTableEntry &e = table[i];
        if (IsSuperseded(e)) continue;
        if (sourceLength >= 0 && !EntryWithinFile(&e, sourceLength)) {
            *cut = true;
            break;
        }
        AddToRuns(runs, e.offset, e.size);
    }
    return runs;
}

// The kept blobs through memory, a window at a time, checksummed into copy.
// A compaction made ahead stops at the next run once told to (as a short
// read; the result is not used).
BlobResult PassRuns(RunWindow &window, const std::vector<ByteRun> &runs, bool cut, ChecksummedCopy &copy,
                    const std::atomic<bool> *stop, WriteBehind &behind)
{
    uint64_t at = kChartsBinHeaderSize;
    for (size_t i = 0; i < runs.size(); i++) {
        if (StopAsked(stop)) return kBlobShortRead;
        const BlobResult result = window.Pass(i, WriteChecksummed, &copy);
        if (result != kBlobDone) return result;
        at += runs[i].size;
        behind.Reached(at);
    }
    return cut ? kBlobShortRead : kBlobDone;
}

}  // namespace

void SortCompactedTable(SFileTableEntry *table, uint32_t count)
{
    const NameFold fold;
    auto before = [&fold](const SFileTableEntry &a, const SFileTableEntry &b) { return fold.CompareEntries(a, b) < 0; };
    const SFileTableEntry *lastKept = nullptr, *firstDropped = nullptr;
    bool split = true;
    for (uint32_t i = 0; i < count && split; i++) {
        const SFileTableEntry &e = table[i];
        if (IsSuperseded(e)) {
            if (!firstDropped || before(e, *firstDropped)) firstDropped = &e;
        } else {
            if (lastKept && before(e, *lastKept)) split = false;
            lastKept = &e;
        }
    }
    if (split && lastKept && firstDropped) split = before(*lastKept, *firstDropped);
    if (!split) {
        SortFileTable(table, count);
        return;
    }
    SFileTableEntry *dropped = std::stable_partition(table, table + count,
                                                     [](const SFileTableEntry &e) { return !IsSuperseded(e); });
    SortFileTable(dropped, (uint32_t)(table + count - dropped));
}

namespace {

// Compaction into target, a new file the caller created and commits.  The
// blobs of the entries kept go over in table order; with checksum, the
// Tarn checksum of bytes 4..end of what was written is worked out on the
// way (set only when the result is 0).  stop gives up a compaction under
// way (as a short read; the result is then not used).
int Compact(const char *sourcePath, NewFile &out, const ChartList *list, uint32_t *checksum,
            const std::atomic<bool> *stop)
{
    FILE *target = out.stream();
    FilePtr source(fopen(sourcePath, "rb"));
    if (!source) return -1;
    // Every read and write here is a large block (runs of blobs, the table)
    // or a header: stdio's buffers would only split each into more calls.
    setvbuf(source.get(), nullptr, _IONBF, 0);
    ChartsBinHeader header;
    MallocPtr<SFileTableEntry> table(ReadChartsBinHeaderAndFileTable(source.get(), 0, &header));
    if (!table) return -2;
    const int64_t sourceLength = StreamLength(source.get());
    SFileTableEntry *entries = table.get();
    const uint32_t count = header.fileCount;
    MarkDropped(entries, count, list);
    if (!target) return -3;

    // How the blobs go over when a checksum is wanted: long runs by kernel
    // copy, checksummed from the source on another thread; short runs
    // through a buffer, checksummed on their way.
    std::vector<ByteRun> runs;
    RunChecksum fromSource;
    RunWindow window(DescriptorOf(source.get()), runs);
    bool inPassing = false, cut = false;
    if (checksum) {
        runs = KeptRuns(entries, count, sourceLength, &cut);
        inPassing = RunsPassThroughMemory(runs);
    }
    // Copied by the kernel, the blobs never pass through a stdio buffer.
    // Checksummed in passing they do, in many short runs, through a buffer
    // of our own.
    if (!inPassing || !out.UseBuffer(kBlobChunk)) setvbuf(target, nullptr, _IONBF, 0);
    // Flushed at once, so that a placeholder written short shows here.
    if (!WriteChartsBinHeader(target, &header) || fflush(target) != 0) return -4;
    // The checksum's buffer stands for the one a copy in passing would have
    // needed: without it, compaction fails here as that copy would.
    const bool fromSourceWanted = checksum && !inPassing && !runs.empty();
    if (fromSourceWanted && !fromSource.Start(DescriptorOf(source.get()), runs)) return CompactCode(kBlobNoMemory);
    uint32_t kept = 0;
    // A bundle compacted before keeps its blobs in table order, so most of
    // them go over in a few long runs.  A producer's bundle keeps them near
    // each other in another order: through memory they are read a window
    // at a time, each window serving many.
    ChecksummedCopy copy = {target, 0};
    const bool windowed = inPassing && window.Prepare();
    // Through memory, blobs before a failing read may still wait in the
    // buffer: their writes come first, as they would have copied by the
    // kernel, and fail first.
    auto code = [&](BlobResult result) {
        const bool readFailed = result == kBlobShortRead || result == kBlobSeekFailed;
        if (readFailed && inPassing && fflush(target) != 0) result = kBlobShortWrite;
        return CompactCode(result);
    };
    BlobRun run = inPassing ? StartBlobRun(source.get(), sourceLength, target, WriteChecksummed, &copy)
                            : StartBlobRun(source.get(), sourceLength, target);
    WriteBehind behind(target);
    for (uint32_t i = 0; i < count; i++) {
        SFileTableEntry &e = entries[i];
        if (IsSuperseded(e)) {
            MarkEntryDropped(&e);
            continue;
        }
        const uint32_t from = e.offset;
        e.offset = (uint32_t)run.outAt;
        e.flags = 0;
        kept++;
        if (windowed) {
            run.outAt += e.size;
            continue;
        }
        if (StopAsked(stop)) return CompactCode(kBlobShortRead);
        if (int failed = code(AddToBlobRun(run, from, e.size))) return failed;
        behind.Reached(run.outAt - run.size);
    }
    if (windowed) {
        if (int failed = code(PassRuns(window, runs, cut, copy, stop, behind))) return failed;
    }
    if (int failed = code(FlushBlobRun(run))) return failed;
    // A blob write the buffer held back fails here, still as a blob write.
    if (fflush(target) != 0) return CompactCode(kBlobShortWrite);

    SortCompactedTable(entries, count);
    header.crc = 0;
    header.fileCount = kept;
    header.tableOffset = WritePosition(target);
    if (!WriteFileTable(target, entries, kept) || fflush(target) != 0) return -9;
    switch (RewriteChartsBinHeader(target, &header)) {
    case kHeaderWritten: break;
    case kHeaderSeekFailed: return -10;
    case kHeaderShortWrite: return -11;
    }
    if (fflush(target) != 0) return -11;
    if (checksum) {
        uint32_t blobCrc = copy.crc;
        // The source read short on the checksum's side: compaction fails
        // as a copy in passing would have.
        if (fromSourceWanted && !fromSource.Finish(&blobCrc)) return CompactCode(kBlobShortRead);
        *checksum = BundleChecksum(header, blobCrc, run.outAt - kChartsBinHeaderSize, entries, kept);
    }
    return 0;
}

// Compaction into a new file at targetPath, committed only when it
// succeeded; the commit's failure is the header's (-11).
int CompactInto(const char *sourcePath, const char *targetPath, const ChartList *list, uint32_t *checksum,
                bool storeChecksum, const std::atomic<bool> *stop)
{
    NewFile out;
    out.Create(targetPath);
    uint32_t crc = 0;
    const int code = Compact(sourcePath, out, list, storeChecksum ? &crc : checksum, stop);
    if (code != 0) return code;
    if (storeChecksum) {
        if (!StoreChartsBinCrc(out.stream(), crc)) return -11;
        if (checksum) *checksum = crc;
    }
    return out.Commit() ? 0 : -11;
}

}  // namespace

PathPtr CompactionTemporaryOf(const char *bundlePath)
{
    PathPtr temporary(strdup(bundlePath));
    const size_t length = temporary ? strlen(temporary.get()) : 0;
    if (length == 0) return nullptr;
    temporary.get()[length - 1] = '2';
    return temporary;
}

int CompactFile(const char *sourcePath, const char *targetPath, const ChartList *list,
                uint32_t *checksum)
{
    return CompactInto(sourcePath, targetPath, list, checksum, false, nullptr);
}

int CompactFile(const char *sourcePath, const char *targetPath, const ChartList *list)
{
    return CompactFile(sourcePath, targetPath, list, nullptr);
}

int CompactToTemporary(const char *bundlePath, const ChartList *list, const std::atomic<bool> *stop)
{
    PathPtr temporary = CompactionTemporaryOf(bundlePath);
    if (!temporary) return -3;
    return CompactInto(bundlePath, temporary.get(), list, nullptr, true, stop);
}

int FinalizeChartsBin(const char *bundlePath, int compact, const ChartList *list)
{
    if (!compact) return WriteChartsBinCrc(bundlePath) ? 0 : EOF;
    // The compacted bundle, with its checksum, takes the bundle's place
    // only once it is whole; a compaction that fails leaves the bundle as
    // it was.
    PathPtr temporary = CompactionTemporaryOf(bundlePath);
    if (!temporary || CompactToTemporary(bundlePath, list, nullptr) != 0) return EOF;
    return ReplaceFile(temporary.get(), bundlePath) ? 0 : EOF;
}
