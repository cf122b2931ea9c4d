// The merge's commit journal and the recovery of a merge that was stopped.
//
// A merge works in two halves.  Before its commit it only adds: updates go
// into the bundles in place (each bundle's undo record saved first,
// bundle/undo.h), new tables and compacted bundles are written under
// temporary names.  Any failure, and any merge found stopped in this half,
// is taken back whole: every bundle is put back from its record and the
// temporaries go, so the directory is as it was before the merge.
//
// The commit is the journal "merge.journal" taking its name: the list of
// what is left to do, each step idempotent - new tables and compacted
// bundles take their names, old tables and applied update bundles go,
// checksums are stored.  After the commit the merge only goes forward: a
// merge found stopped in this half is finished from its journal.  The
// undo records and then the journal go last.
//
// Layout of the journal, little-endian: "TARNJRNL", a version (1), the
// number of steps, then per step a kind byte (1 rename, 2 remove, 3 store
// a checksum) with one or two names (each a 4-byte length and its bytes,
// relative to the directory), for kind 1 the 8-byte device and inode of
// the file that moves, for kind 3 the 4-byte checksum; last the Tarn
// checksum of everything before it.  Its name ends in no update
// bundle's suffix and holds no "NEW.db".
#ifndef TARNTERMCHART_MERGE_JOURNAL_H
#define TARNTERMCHART_MERGE_JOURNAL_H

#include <stdint.h>

#include <string>
#include <vector>

#define TARN_MERGE_JOURNAL "merge.journal"

struct JournalStep {
    enum Kind : uint8_t { kRename = 1, kRemove = 2, kStoreChecksum = 3 } kind;
    std::string name;   // kRename: the file that takes the name; else the file
    std::string to;     // kRename: the name it takes
    uint32_t crc = 0;   // kStoreChecksum: the checksum stored at offset 0
    // kRename: which file is to take the name (its device and inode when
    // the journal was committed).  A rename may be made by exchanging the
    // two names and then removing the old file: a file under name that is
    // another one is that old file, and only goes.
    uint64_t device = 0, inode = 0;
};
using Journal = std::vector<JournalStep>;

// Writes the journal whole and flushed, then gives it its name and
// flushes the directory: the merge's commit.  The identity of every file a
// rename moves is taken here.  False when any of it failed (nothing is
// committed then).
bool CommitJournal(const char *directory, Journal &journal);
// Carries the steps out in order.  False when a step that must succeed
// (a rename, a checksum) failed; the journal then stays for the next merge.
bool CarryOutJournal(const char *directory, const Journal &journal);
// Lets the journal go once its steps are made and durable.
void RemoveJournal(const char *directory);
// Whether a committed journal stands in the directory.
bool HasMergeJournal(const char *directory);

// The undo records of the directory's two bundles go once the bundles are
// final, then the journal: the merge is over.
void EndMerge(const char *directory);

enum RecoveryResult {
    kNothingToRecover = 0,
    kRecovered,     // a stopped merge was finished or taken back
    kUnrecoverable, // its journal or an undo record is damaged, or a step
                    // failed: the directory is left as it stands
};
// Before a merge does anything else: finishes a committed merge from its
// journal, or takes back one that was stopped before its commit (bundles
// put back from their records, temporaries removed).
RecoveryResult RecoverMerge(const char *directory);

// For tests: called with "committed" once the journal has its name, and
// with "carried out" once its steps are made, so that a test can stop the
// process there.  Null (the default) calls nothing.
void SetMergeStageHook(void (*hook)(const char *stage));
void MergeStage(const char *stage);

// Takes back the first half of a merge: the bundles put back, the undo
// records and every temporary the merge writes removed.  keepNewTables
// leaves the new tables the table cut wrote (a failed cut leaves them, as
// the directory's tables are untouched by them).  False when a bundle
// could not be put back.
bool TakeBackMerge(const char *directory, bool keepNewTables);

#endif
