// The one way the library writes a file: under a temporary name beside its
// final one, created exclusively (never through a symbolic link), and moved
// to the final name only once every write of it succeeded and, with
// flushing on, its data reached the disk.  Until then the final name keeps
// whatever stood there, and a file that cannot be finished is removed.
//
//     NewFile out;
//     FILE *f = out.Create(path);          // path + kTemporarySuffix
//     ... fwrite(..., f) ...               // failures are remembered
//     if (!out.Commit()) return code;      // flushed, synced, renamed
//
// The directory's own entry for the new name is made durable by the caller
// (FlushDirectory), once for all the files an operation writes.
#ifndef TARNTERMCHART_NEWFILE_H
#define TARNTERMCHART_NEWFILE_H

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "platform/files.h"

// Appended to a final name to make its temporary: "charts.dbf.tarn-new".
// Such names end in no update bundle's suffix and hold no "NEW.db".
#define TARN_TEMPORARY_SUFFIX ".tarn-new"

class NewFileBatch;

class NewFile {
public:
    NewFile() = default;
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;
    ~NewFile() { Discard(); }

    // Creates the temporary of finalPath ("w+b"), first removing whatever
    // an earlier run left under that name (a link is removed, not
    // followed).  largeBuffer gives the stream a 256 KB buffer of its own,
    // for files written in many small pieces.  Null when the temporary
    // cannot be created, or a directory holds the final name (it could never
    // be replaced): the final name is then untouched.
    FILE *Create(const std::string &finalPath, bool largeBuffer = false);
    FILE *Create(const char *directory, const char *name, bool largeBuffer = false);
    FILE *stream() const { return stream_; }
    // Gives the stream a buffer of bytes of its own, owned here so that it
    // outlives the stream, before anything is written; false (the stream
    // keeps stdio's buffer) when memory is short.
    bool UseBuffer(size_t bytes);
    // A file was created and is not given up: open, or finished whole.
    bool Created() const { return stream_ != nullptr || finished_; }
    const std::string &TemporaryPath() const { return temporary_; }
    const std::string &FinalPath() const { return final_; }

    // Remembers a failed write the stream itself did not see (a kernel
    // copy, a positioned write): the file will not be committed.
    void Fail() { failed_ = true; }
    bool Failed() const { return failed_ || (stream_ && ferror(stream_)); }

    // Flushes and closes the file under its temporary name: the first half
    // of Commit, for files that must all be whole before any takes its
    // name (a table and its memo file).  False as Commit; the temporary is
    // then removed.
    bool Finish();
    // Finishes the file (unless Finish did) and gives it its final name,
    // replacing what stood there.  False when any write failed, the flush,
    // the close or the rename failed, or nothing was created: the
    // temporary is then removed and the final name keeps what it had.
    bool Commit();
    // Closes and removes the temporary; the final name is untouched.
    void Discard();

private:
    std::string final_, temporary_;
    FILE *stream_ = nullptr;
    bool failed_ = false;
    bool finished_ = false;  // closed whole under the temporary name
    NewFileBatch *batch_ = nullptr;  // created within this batch, under its final name
    MallocPtr<char> buffer_;  // the large buffer; outlives the stream
};

// Removes name's temporary in directory, if an earlier run left one.
void RemoveTemporaryOf(const char *directory, const char *name);

// New files written in a batch: while a NewFileBatch is open on a thread,
// every NewFile that thread creates is created under its final name itself
// (which must be a temporary name of the caller's own, as a merge's
// "...NEW.dbf" tables are: whatever stands there is no one's), and a
// commit only closes it; the batch flushes them all at once, when it is
// flushed.  A file that fails is removed as ever.  So many small files
// written while a large one is are not each flushed behind it.
class NewFileBatch {
public:
    NewFileBatch();
    NewFileBatch(const NewFileBatch &) = delete;
    NewFileBatch &operator=(const NewFileBatch &) = delete;
    // Closes the batch on this thread (flushing nothing that was not).
    ~NewFileBatch();
    // Has every file of the batch reach the disk; false when one did not.
    bool Flush();

private:
    friend class NewFile;
    NewFileBatch *outer_;
    std::vector<int> descriptors_;  // of the files closed and not yet flushed
    bool failed_ = false;
};

#endif
