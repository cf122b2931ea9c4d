// Applying an update bundle to the directory's bundle, in place.
#include "bundle/update.h"

#include <stdlib.h>
#include <string.h>

#include <string_view>
#include <vector>

#include "bundle/blob.h"
#include "bundle/bundlewriter.h"
#include "bundle/undo.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace {

std::string_view EntryName(const SFileTableEntry &entry)
{
    return std::string_view(entry.name, strnlen(entry.name, kEntryNameSize));
}

// Where each update entry finds the copy it supersedes: the first entry of
// its exact name whose mark is clear.  Per name, the positions of the
// entries that were unmarked when they entered the table, chained in
// increasing order; entries are only ever marked, never unmarked, and are
// appended at the end, so the first unmarked one is found by dropping
// marked ones from the front of the chain, each at most once.
//
// The names are found through one open-addressed table of slots and the
// chains run through one array indexed by position: a few flat blocks for
// the whole table instead of a node and a vector per name.  Positions are
// stored plus one, so that zero means none.  The names are read from the
// table, whose entries keep their names and places until it is sorted.
class UnmarkedByName {
public:
    UnmarkedByName(const SFileTableEntry *table, size_t capacity) : table_(table), next_(capacity, 0)
    {
        size_t slots = 16;
        while (slots < 2 * capacity) slots *= 2;
        slots_.assign(slots, Slot{});
        mask_ = slots - 1;
    }

    void Index(uint32_t position)
    {
        if (IsSuperseded(table_[position])) return;
        Slot &slot = Find(EntryName(table_[position]));
        const uint32_t id = position + 1;
        if (slot.name == 0) slot.name = id;
        if (slot.first == 0) slot.first = id;
        else next_[slot.last - 1] = id;
        slot.last = id;
    }

    // The position of the first unmarked entry named like entry, or -1.
    int64_t FirstUnmarked(const SFileTableEntry &entry)
    {
        Slot &slot = Find(EntryName(entry));
        while (slot.first != 0 && IsSuperseded(table_[slot.first - 1])) slot.first = next_[slot.first - 1];
        return slot.first != 0 ? (int64_t)slot.first - 1 : -1;
    }

private:
    struct Slot {
        uint32_t name = 0;   // an entry bearing the name; 0: free slot
        uint32_t first = 0;  // the chain's first position not yet dropped
        uint32_t last = 0;   // the chain's last position
    };

    static uint64_t Hash(std::string_view name)
    {
        uint64_t h = 1469598103934665603ull;
        for (unsigned char c : name) h = (h ^ c) * 1099511628211ull;
        return h ^ (h >> 29);
    }

    // The slot of name: its own, or the free one where it would go.  The
    // table holds at most half as many names as slots, so a free one exists.
    Slot &Find(std::string_view name)
    {
        for (size_t i = Hash(name) & mask_;; i = (i + 1) & mask_) {
            Slot &slot = slots_[i];
            if (slot.name == 0 || EntryName(table_[slot.name - 1]) == name) return slot;
        }
    }

    const SFileTableEntry *table_;
    std::vector<uint32_t> next_;
    std::vector<Slot> slots_;
    size_t mask_;
};

// Marks the entries of the run of M's name that starts at M (positions in
// table order, whatever their marks) and satisfy supersedes; true when any
// was marked.
template <typename Predicate>
bool MarkRun(SFileTableEntry *table, uint32_t count, uint32_t m, Predicate supersedes)
{
    bool marked = false;
    for (uint32_t j = m; j < count && SameEntryName(table[j], table[m]); j++) {
        if (!supersedes(table[j])) continue;
        table[j].flags = kEntrySuperseded;
        marked = true;
    }
    return marked;
}

double JulianDate(const ChartsBinHeader &header)
{
    char text[sizeof header.julianDate + 1];
    memcpy(text, header.julianDate, sizeof header.julianDate);
    text[sizeof header.julianDate] = '\0';
    return atof(text);
}

// The bundle's header and table with room for extra more entries, or null.
SFileTableEntry *ReadTableWithRoom(FILE *bundle, uint32_t extra, ChartsBinHeader *header)
{
    uint64_t extraBytes = (uint64_t)extra * kFileTableEntrySize;
    if (extraBytes > UINT32_MAX) return nullptr;
    SFileTableEntry *table = ReadChartsBinHeaderAndFileTable(bundle, (uint32_t)extraBytes, header);
    // File Count must still be able to count every entry.
    if (table && (uint64_t)header->fileCount + extra > UINT32_MAX) {
        free(table);
        return nullptr;
    }
    return table;
}

int AppendCode(BlobResult result)
{
    switch (result) {
    case kBlobDone: return 0;
    case kBlobSeekFailed: return -8;
    case kBlobNoMemory: return -9;
    case kBlobShortRead: return -10;
    case kBlobShortWrite: break;
    }
    return -11;
}

}  // namespace

int AddEntry(const SFileTableEntry *update, SFileTableEntry *table, ChartsBinHeader *header, BlobRun &run)
{
    SFileTableEntry &copy = table[header->fileCount];
    copy = *update;
    copy.offset = (uint32_t)run.outAt;
    header->fileCount++;
    return AppendCode(AddToBlobRun(run, update->offset, update->size));
}

int AddEntry(const SFileTableEntry *update, SFileTableEntry *table, ChartsBinHeader *header,
             FILE *out, FILE *in, int64_t inLength)
{
    BlobRun run = StartBlobRun(in, inLength, out);
    if (int code = AddEntry(update, table, header, run)) return code;
    return AppendCode(FlushBlobRun(run));
}

int AddEntry(const SFileTableEntry *update, SFileTableEntry *table, ChartsBinHeader *header,
             FILE *out, FILE *in)
{
    return AddEntry(update, table, header, out, in, StreamLength(in));
}

namespace {

// The writing half of an apply, on the bundle open for update: the update's
// blobs over the old table, the new table, the header.  Returns the apply's
// result (1 or 0) or its failure code.
int WriteApplied(FILE *bundle, FILE *update, SFileTableEntry *entries, ChartsBinHeader &header,
                 const SFileTableEntry *u, const ChartsBinHeader &updateHeader, bool flush)
{
    // The new blobs go over the old table, which is held in memory.
    if (SeekStream(bundle, (int64_t)header.tableOffset, SEEK_SET) != 0) return -7;
    // The update's blobs mostly follow one another as they are appended,
    // so they go over in a few long runs.
    BlobRun run = StartBlobRun(update, StreamLength(update), bundle);

    UnmarkedByName index(entries, (size_t)header.fileCount + updateHeader.fileCount);
    for (uint32_t j = 0; j < header.fileCount; j++) index.Index(j);
    auto append = [&](const SFileTableEntry &e) {
        int result = AddEntry(&e, entries, &header, run);
        if (result == 0) index.Index(header.fileCount - 1);
        return result;
    };

    bool superseded = false;
    for (uint32_t i = 0; i < updateHeader.fileCount; i++) {
        const int64_t m = index.FirstUnmarked(u[i]);
        const uint32_t count = header.fileCount;
        if (u[i].flags & kEntryDelete) {
            // Only a copy of the same content and variant goes; an entry
            // that came in as a variant replacement is never deleted.
            if (m >= 0)
                superseded |= MarkRun(entries, count, (uint32_t)m, [&](const SFileTableEntry &e) {
                    return e.key == u[i].key && e.size == u[i].size &&
                           !(e.flags & kEntryReplaceVariant) && e.variant == u[i].variant;
                });
            continue;
        }
        if (u[i].flags & kEntryReplaceVariant) {
            if (m >= 0)
                superseded |= MarkRun(entries, count, (uint32_t)m, [&](const SFileTableEntry &e) {
                    return !(e.flags & kEntryReplaceVariant) && e.variant == u[i].variant;
                });
            if (int result = append(u[i])) return result;
            continue;
        }
        if (m >= 0) superseded |= MarkRun(entries, count, (uint32_t)m, [](const SFileTableEntry &) { return true; });
        if (int result = append(u[i])) return result;
        // The next entry of the same name is another variant of the same
        // file: it comes in beside this one instead of displacing it.
        if (i + 1 < updateHeader.fileCount && SameEntryName(u[i + 1], u[i])) {
            if (int result = append(u[++i])) return result;
        }
    }

    if (int result = AppendCode(FlushBlobRun(run))) return result;

    SortFileTable(entries, header.fileCount);
    header.tableOffset = WritePosition(bundle);
    // Flushed here, so that a short table write is told from a failed seek.
    if (!WriteFileTable(bundle, entries, header.fileCount) || fflush(bundle) != 0) return -11;

    strncpy(header.julianDate, updateHeader.julianDate, sizeof header.julianDate);
    switch (RewriteChartsBinHeader(bundle, &header)) {
    case kHeaderWritten: break;
    case kHeaderSeekFailed: return -12;
    case kHeaderShortWrite: return -13;
    }
    // On its own, the bundle counts as applied only once its bytes are on
    // the disk.  Within a merge nothing relies on them before the commit:
    // the undo record guards them, and the bundle is then either replaced
    // by its compacted copy or flushed when its checksum is stored.
    if (fflush(bundle) != 0 || (flush && !FlushFile(bundle))) return -13;
    return superseded ? 1 : 0;
}

// The directory of a path, for flushing its entries.
std::string DirectoryOfPath(const char *path)
{
    const char *slash = strrchr(path, '/');
    if (!slash) return ".";
    return slash == path ? "/" : std::string(path, (size_t)(slash - path));
}

}  // namespace

int ApplyUpdate(const char *bundlePath, const char *updatePath, ApplyGuard guard)
{
    const bool merges = guard == ApplyGuard::kMergeRecord;
    FilePtr bundle(fopen(bundlePath, "rb"));
    if (!bundle) {
        // A bundle that is there but cannot be read is not replaced.
        if (KindOf(bundlePath) == kPathFile) return -4;
        // The update becomes the bundle, in one rename; within a merge the
        // record says so first, so that the merge can give it back.
        if (merges && !HasUndoRecord(bundlePath) && !SaveUndoRecord(bundlePath, updatePath)) return -1;
        if (!ReplaceFile(updatePath, bundlePath)) return -1;
        FlushDirectory(DirectoryOfPath(bundlePath).c_str());
        return 0;
    }

    FilePtr update(fopen(updatePath, "rb"));
    if (!update) return -2;
    ChartsBinHeader updateHeader;
    MallocPtr<SFileTableEntry> updates(ReadChartsBinHeaderAndFileTable(update.get(), 0, &updateHeader));
    if (!updates) return -3;
    ChartsBinHeader header;
    MallocPtr<SFileTableEntry> table(ReadTableWithRoom(bundle.get(), updateHeader.fileCount, &header));
    if (!table) return -4;
    bundle.reset();

    // Equal dates are applied, so a merge that stopped half-way can run again.
    if (JulianDate(header) > JulianDate(updateHeader)) return -5;

    // Written in place, never through a link.
    bundle.reset(OpenFileForUpdate(bundlePath));
    if (!bundle) return -6;
    // Before the first byte goes in, the bytes it goes over are saved; a
    // bundle that cannot be made safe to write is not written.
    const bool ownRecord = !merges;
    if ((ownRecord || !HasUndoRecord(bundlePath)) && !SaveUndoRecord(bundlePath)) return -6;

    const int result =
        WriteApplied(bundle.get(), update.get(), table.get(), header, updates.get(), updateHeader, ownRecord);
    const bool closed = fclose(bundle.release()) == 0;
    const int code = result >= 0 && !closed ? -13 : result;
    if (ownRecord) {
        // Put back on failure; let the record go once the bundle is final.
        if (code < 0) RestoreFromUndoRecord(bundlePath);
        else RemoveUndoRecord(bundlePath);
        FlushDirectory(DirectoryOfPath(bundlePath).c_str());
    }
    return code;
}

int AddCoverageToChartsBin(const char *bundlePath, const char *updatePath)
{
    return ApplyUpdate(bundlePath, updatePath, ApplyGuard::kOwnRecord);
}
