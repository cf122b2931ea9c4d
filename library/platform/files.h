// Path and file helpers shared by the whole library, and the scope guards
// that release streams, directory handles and heap blocks on every return.
#ifndef TARNTERMCHART_FILES_H
#define TARNTERMCHART_FILES_H

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <memory>

struct FileCloser {
    void operator()(FILE *f) const { if (f) fclose(f); }
};
struct FreeDeleter {
    void operator()(void *p) const { free(p); }
};

// A stream closed when it leaves scope; release() hands it back.
using FilePtr = std::unique_ptr<FILE, FileCloser>;
// A malloc block freed when it leaves scope.
template <typename T>
using MallocPtr = std::unique_ptr<T, FreeDeleter>;
using PathPtr = MallocPtr<char>;

// Joins dir and name with one "/" (never doubled); malloc block or null.
char *FullPath(const char *dir, const char *name);
// FullPath owned by a scope guard.
inline PathPtr JoinPath(const char *dir, const char *name) { return PathPtr(FullPath(dir, name)); }
// Gives a stream written in many small pieces (records, lines) a buffer of
// its own (256 KB), so that they go out in few, large writes.  The buffer returned must
// outlive the stream: declare it first.  Null (the stream keeps its own,
// smaller buffer) where none can be had.
MallocPtr<char> GiveLargeBuffer(FILE *stream);
// Opens dir joined with name in the given mode; null when the join or the open fails.
FilePtr OpenIn(const char *dir, const char *name, const char *mode);

int FileExists(const char *path);
uint64_t FileSize(const char *dir, const char *name);
// Copies sourceDirectory/sourceName to destinationDirectory/destinationName
// through a new file (newfile.h): the destination name takes the copy only
// once it is whole.  A missing source creates nothing, and a destination
// that cannot be created is left alone; callers that must know whether the
// copy happened look at the result.
enum CopyResult {
    kCopyDone = 0,
    kCopyNoSource,       // the source cannot be opened: nothing happened
    kCopyNoDestination,  // the destination cannot be created: nothing written
    kCopyWriteFailed,    // a read or write failed: the destination keeps what it had
};
CopyResult CopyFile(const char *name, const char *sourceDirectory, const char *destinationDirectory);
CopyResult CopyFile(const char *sourceName, const char *destinationName, const char *sourceDirectory,
                    const char *destinationDirectory);

// Removes dir/name with RemoveFile; the result is not reported, as every
// caller ignores it.
void RemoveIn(const char *dir, const char *name);
// Moves newPath to oldPath's name in one step, so that the name never
// stands empty and never holds half a file: the new file is renamed over
// the old one (a link there is replaced, not followed).  Where that fails
// (no new file, something other than a file in the way) the old name is
// removed and the move tried once more.  True when the new file took the
// name.
bool ReplaceFile(const char *newPath, const char *oldPath);
// Replaces dir/oldName by dir/newName with ReplaceFile; with no new file
// the old one is removed.  False when a new file was there and could not
// take the name.
bool ReplaceIn(const char *dir, const char *newName, const char *oldName);

// Case-insensitive test that name ends in suffix.
bool EndsWithNoCase(const char *name, const char *suffix);

#endif
