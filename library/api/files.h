// Path and file helpers shared by the whole library, and the scope guards
// that release streams, directory handles and heap blocks on every return.
#ifndef TARNTERMCHART_FILES_H
#define TARNTERMCHART_FILES_H

#include <dirent.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <memory>

struct FileCloser {
    void operator()(FILE *f) const { if (f) fclose(f); }
};
struct DirCloser {
    void operator()(DIR *d) const { if (d) closedir(d); }
};
struct FreeDeleter {
    void operator()(void *p) const { free(p); }
};

// A stream closed when it leaves scope; release() hands it back.
using FilePtr = std::unique_ptr<FILE, FileCloser>;
using DirPtr = std::unique_ptr<DIR, DirCloser>;
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
// Reads up to n bytes at offset of the file open on fd with positioned
// reads (the stream's own position is neither used nor moved), going on
// after short reads and interruptions.  The bytes read: fewer than n at the
// end of the file, or on an error, whose errno *error receives (0 at the end).
size_t ReadFullyAt(int fd, void *to, size_t n, uint64_t offset, int *error = nullptr);
void CopyFile(const char *name, const char *sourceDirectory, const char *destinationDirectory);
void CopyFile(const char *sourceName, const char *destinationName, const char *sourceDirectory,
              const char *destinationDirectory);

// Removes dir/name with RemoveFile; the result is not reported, as every
// caller ignores it.
void RemoveIn(const char *dir, const char *name);
// Moves newPath to oldPath's name so that the name never stands empty: two
// plain files exchange names and the old one is then removed; otherwise
// the new file is renamed over the old one, and only when that fails is
// the old file removed and the move tried again.  True when the new file
// took the name.
bool ReplaceFile(const char *newPath, const char *oldPath);
// Replaces dir/oldName by dir/newName with ReplaceFile, so the directory
// never lacks the file; with no new file the old one is removed.  Results
// are not reported.
void ReplaceIn(const char *dir, const char *newName, const char *oldName);

// Case-insensitive test that name ends in suffix.
bool EndsWithNoCase(const char *name, const char *suffix);

#endif
