// The merge's commit journal and recovery (journal.h).
#include "merge/journal.h"

#include <string.h>

#include "bundle/bundlewriter.h"
#include "bundle/crc.h"
#include "bundle/undo.h"
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"

namespace {

const char kMagic[8] = {'T', 'A', 'R', 'N', 'J', 'R', 'N', 'L'};
const uint32_t kVersion = 1;
// Far above what any journal holds (a few dozen names).
const int64_t kLargestJournal = 16 << 20;

const char *const kBundles[] = {"charts.bin", "vfrcharts.bin"};
// The temporaries a merge writes besides the new tables.
const char *const kCompacted[] = {"charts.bi2", "vfrcharts.bi2"};
// The new tables of the table cut.
const char *const kNewTables[] = {
    "coveragsNEW.dbf", "chartsNEW.dbf",  "vfrchrtsNEW.dbf", "airportsNEW.dbf", "airportsNEWEST.dbf",
    "vfraptsNEW.dbf",  "vfraptsNEWEST.dbf", "chrtlinkNEW.dbf", "notamsNEW.dbf", "notamsNEW.dbt",
    "vfrntmsNEW.dbf",  "vfrntmsNEW.dbt", "crcfilesNEW.txt",
};

void PutNumber(std::string &out, uint64_t value, int bytes)
{
    for (int i = 0; i < bytes; i++) out += (char)(unsigned char)(value >> (8 * i));
}

void PutName(std::string &out, const std::string &name)
{
    PutNumber(out, name.size(), 4);
    out += name;
}

struct Reader {
    const std::string &bytes;
    size_t at = 0;
    bool ok = true;

    uint64_t Number(int n)
    {
        if (!ok || bytes.size() - at < (size_t)n) {
            ok = false;
            return 0;
        }
        uint64_t value = 0;
        for (int i = n - 1; i >= 0; i--) value = value << 8 | (unsigned char)bytes[at + (size_t)i];
        at += (size_t)n;
        return value;
    }
    std::string Name()
    {
        const uint64_t n = Number(4);
        if (!ok || bytes.size() - at < n) {
            ok = false;
            return std::string();
        }
        std::string name = bytes.substr(at, (size_t)n);
        at += (size_t)n;
        // A name is one entry of the directory: no separator, no NUL.
        if (name.empty() || name.find('/') != std::string::npos || name.find('\0') != std::string::npos)
            ok = false;
        return name;
    }
};

std::string Encode(const Journal &journal)
{
    std::string out(kMagic, sizeof kMagic);
    PutNumber(out, kVersion, 4);
    PutNumber(out, journal.size(), 4);
    for (const JournalStep &step : journal) {
        out += (char)step.kind;
        PutName(out, step.name);
        if (step.kind == JournalStep::kRename) {
            PutName(out, step.to);
            PutNumber(out, step.device, 8);
            PutNumber(out, step.inode, 8);
        }
        if (step.kind == JournalStep::kStoreChecksum) PutNumber(out, step.crc, 4);
    }
    PutNumber(out, TarnCrcUpdate(0, out.data(), out.size()), 4);
    return out;
}

bool Decode(const std::string &bytes, Journal *journal)
{
    if (bytes.size() < sizeof kMagic + 12 || memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) return false;
    Reader tail{bytes, bytes.size() - 4};
    if (tail.Number(4) != TarnCrcUpdate(0, bytes.data(), bytes.size() - 4)) return false;
    Reader r{bytes, sizeof kMagic};
    if (r.Number(4) != kVersion) return false;
    const uint64_t count = r.Number(4);
    for (uint64_t i = 0; r.ok && i < count; i++) {
        JournalStep step;
        const uint64_t kind = r.Number(1);
        step.name = r.Name();
        if (kind == JournalStep::kRename) {
            step.to = r.Name();
            step.device = r.Number(8);
            step.inode = r.Number(8);
        } else if (kind == JournalStep::kStoreChecksum) step.crc = (uint32_t)r.Number(4);
        else if (kind != JournalStep::kRemove) return false;
        step.kind = (JournalStep::Kind)kind;
        journal->push_back(step);
    }
    return r.ok && r.at == bytes.size() - 4;
}

std::string JournalPath(const char *directory)
{
    PathPtr path = JoinPath(directory, TARN_MERGE_JOURNAL);
    return path ? std::string(path.get()) : std::string();
}

// Reads the journal whole; false when it is not there or damaged.
bool ReadJournal(const std::string &path, Journal *journal)
{
    FilePtr in(fopen(path.c_str(), "rb"));
    if (!in) return false;
    const int64_t size = DescriptorLength(DescriptorOf(in.get()));
    if (size < 0 || size > kLargestJournal) return false;
    std::string bytes((size_t)size, '\0');
    if (ReadFullyAt(DescriptorOf(in.get()), &bytes[0], bytes.size(), 0) != bytes.size()) return false;
    return Decode(bytes, journal);
}

std::string PathIn(const char *directory, const std::string &name)
{
    PathPtr path = JoinPath(directory, name.c_str());
    return path ? std::string(path.get()) : std::string();
}

void (*stageHook)(const char *stage) = nullptr;

}  // namespace

void SetMergeStageHook(void (*hook)(const char *stage)) { stageHook = hook; }

void MergeStage(const char *stage)
{
    if (stageHook) stageHook(stage);
}

bool CommitJournal(const char *directory, Journal &journal)
{
    for (JournalStep &step : journal) {
        if (step.kind != JournalStep::kRename) continue;
        FileIdentity identity;
        if (!IdentityOf(PathIn(directory, step.name).c_str(), &identity)) return false;
        step.device = identity.device;
        step.inode = identity.inode;
    }
    const std::string bytes = Encode(journal);
    NewFile out;
    if (!out.Create(JournalPath(directory))) return false;
    fwrite(bytes.data(), 1, bytes.size(), out.stream());
    return out.Commit() && FlushDirectory(directory);
}

bool CarryOutJournal(const char *directory, const Journal &journal)
{
    bool done = true;
    for (const JournalStep &step : journal) {
        const std::string path = PathIn(directory, step.name);
        if (path.empty()) return false;
        switch (step.kind) {
        case JournalStep::kRename: {
            // A file that is gone already took its name; another file
            // under the name is the old one an exchange of names left.
            if (KindOf(path.c_str()) == kPathMissing) break;
            FileIdentity identity;
            const bool ours = IdentityOf(path.c_str(), &identity) && identity.device == step.device &&
                              identity.inode == step.inode;
            if (ours) done &= ReplaceFile(path.c_str(), PathIn(directory, step.to).c_str());
            else RemoveName(path.c_str());
            break;
        }
        case JournalStep::kRemove:
            RemoveIn(directory, step.name.c_str());
            break;
        case JournalStep::kStoreChecksum:
            done &= WriteChartsBinCrc(path.c_str(), step.crc);
            break;
        }
    }
    return FlushDirectory(directory) && done;
}

void RemoveJournal(const char *directory)
{
    const std::string path = JournalPath(directory);
    RemoveName(path.c_str());
    RemoveName((path + TARN_TEMPORARY_SUFFIX).c_str());
    FlushDirectory(directory);
}

bool HasMergeJournal(const char *directory)
{
    const std::string path = JournalPath(directory);
    return !path.empty() && KindOf(path.c_str()) != kPathMissing;
}

void EndMerge(const char *directory)
{
    for (const char *bundle : kBundles) {
        const std::string path = PathIn(directory, bundle);
        if (!path.empty()) RemoveUndoRecord(path.c_str());
    }
    FlushDirectory(directory);
    RemoveJournal(directory);
}

bool TakeBackMerge(const char *directory, bool keepNewTables)
{
    bool restored = true;
    for (const char *bundle : kBundles) {
        const std::string path = PathIn(directory, bundle);
        if (path.empty()) return false;
        const UndoResult result = RestoreFromUndoRecord(path.c_str());
        restored &= result == kUndoNone || result == kUndoRestored;
    }
    // Files only; whatever else stands under these names is not the merge's.
    for (const char *name : kCompacted) {
        RemoveName(PathIn(directory, name).c_str());
        RemoveTemporaryOf(directory, name);
    }
    for (const char *name : kNewTables) {
        if (!keepNewTables) RemoveName(PathIn(directory, name).c_str());
        RemoveTemporaryOf(directory, name);
    }
    RemoveTemporaryOf(directory, TARN_MERGE_JOURNAL);
    FlushDirectory(directory);
    return restored;
}

RecoveryResult RecoverMerge(const char *directory)
{
    const std::string journalPath = JournalPath(directory);
    if (journalPath.empty()) return kUnrecoverable;
    if (KindOf(journalPath.c_str()) != kPathMissing) {
        // Committed: only forward.  A journal that cannot be read is never
        // guessed at; the directory is left as it stands.
        Journal journal;
        if (!ReadJournal(journalPath, &journal)) return kUnrecoverable;
        if (!CarryOutJournal(directory, journal)) return kUnrecoverable;
        EndMerge(directory);
        return kRecovered;
    }
    bool stopped = KindOf((journalPath + TARN_TEMPORARY_SUFFIX).c_str()) != kPathMissing;
    for (const char *bundle : kBundles) {
        const std::string path = PathIn(directory, bundle);
        stopped |= !path.empty() && HasUndoRecord(path.c_str());
    }
    if (!stopped) return kNothingToRecover;
    return TakeBackMerge(directory, false) ? kRecovered : kUnrecoverable;
}
