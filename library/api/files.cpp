// Path joining and the small file helpers every subsystem uses.
#include "files.h"
#include "removal.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

char *FullPath(const char *dir, const char *name)
{
    size_t dirLength = strlen(dir);
    size_t nameLength = strlen(name);
    char *path = (char *)malloc(dirLength + nameLength + 2);
    if (!path) return nullptr;
    memcpy(path, dir, dirLength);
    size_t at = dirLength;
    // Only "/" separates; an empty directory gets one so the name stays relative to root.
    if (dirLength == 0 || dir[dirLength - 1] != '/') path[at++] = '/';
    memcpy(path + at, name, nameLength + 1);
    return path;
}

FilePtr OpenIn(const char *dir, const char *name, const char *mode)
{
    PathPtr path = JoinPath(dir, name);
    if (!path) return nullptr;
    return FilePtr(fopen(path.get(), mode));
}

MallocPtr<char> GiveLargeBuffer(FILE *stream)
{
    enum { kLargeBuffer = 256 * 1024 };
    MallocPtr<char> buffer((char *)malloc(kLargeBuffer));
    if (buffer && setvbuf(stream, buffer.get(), _IOFBF, kLargeBuffer) != 0) buffer.reset();
    return buffer;
}

int FileExists(const char *path)
{
    FilePtr f(fopen(path, "rb"));
    return f ? 1 : 0;
}

uint64_t FileSize(const char *dir, const char *name)
{
    FilePtr f = OpenIn(dir, name, "rb");
    if (!f) return 0;
    if (fseeko(f.get(), 0, SEEK_END) != 0) return 0;
    off_t size = ftello(f.get());
    return size > 0 ? (uint64_t)size : 0;
}

// Copies in large blocks; the result (the bytes of the source) is what counts.
static void CopyStream(FILE *in, FILE *out)
{
    enum { kBlock = 1 << 16 };
    MallocPtr<char> block((char *)malloc(kBlock));
    if (!block) return;
    size_t got;
    while ((got = fread(block.get(), 1, kBlock, in)) > 0) {
        if (fwrite(block.get(), 1, got, out) != got) return;
    }
}

void CopyFile(const char *sourceName, const char *destinationName, const char *sourceDirectory,
              const char *destinationDirectory)
{
    PathPtr source = JoinPath(sourceDirectory, sourceName);
    PathPtr destination = JoinPath(destinationDirectory, destinationName);
    if (!source || !destination) return;
    FilePtr in(fopen(source.get(), "rb"));
    if (!in) return;  // no destination is created for a missing source
    FilePtr out(fopen(destination.get(), "wb"));
    if (!out) return;
    CopyStream(in.get(), out.get());
}

void CopyFile(const char *name, const char *sourceDirectory, const char *destinationDirectory)
{
    CopyFile(name, name, sourceDirectory, destinationDirectory);
}

void RemoveIn(const char *dir, const char *name)
{
    PathPtr path = JoinPath(dir, name);
    if (path) RemoveFile(path.get());
}

namespace {

bool IsRegularFile(const char *path)
{
    struct stat st;
    return lstat(path, &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

bool ReplaceFile(const char *newPath, const char *oldPath)
{
#ifdef RENAME_EXCHANGE
    // Renaming over an existing file makes some file systems (ext4) write
    // the new file's data out before the rename returns: most of a second
    // for a bundle of a gigabyte.  Exchanging the two names and removing
    // the old file leaves the same files, with the name never empty
    // either, and lets the data be written back in the background as any
    // other.  The old file's blocks are given back on a thread of their
    // own (RemoveFile).  Where the names cannot be exchanged, the rename
    // does it.
    if (IsRegularFile(newPath) && IsRegularFile(oldPath) &&
        renameat2(AT_FDCWD, newPath, AT_FDCWD, oldPath, RENAME_EXCHANGE) == 0) {
        RemoveFile(newPath);
        return true;
    }
#endif
    if (rename(newPath, oldPath) == 0) return true;
    // Whatever kept the new file from moving over the old one (a missing new
    // file, an old one that is not a plain file), the old one goes, and the
    // move is tried once more in its absence.
    remove(oldPath);
    return rename(newPath, oldPath) == 0;
}

void ReplaceIn(const char *dir, const char *newName, const char *oldName)
{
    PathPtr newPath = JoinPath(dir, newName);
    PathPtr oldPath = JoinPath(dir, oldName);
    if (newPath && oldPath) ReplaceFile(newPath.get(), oldPath.get());
}

bool EndsWithNoCase(const char *name, const char *suffix)
{
    size_t length = strlen(name);
    size_t suffixLength = strlen(suffix);
    return length >= suffixLength && strcasecmp(name + length - suffixLength, suffix) == 0;
}

size_t ReadFullyAt(int fd, void *to, size_t n, uint64_t offset, int *error)
{
    size_t got = 0;
    int failure = 0;
    while (got < n) {
        ssize_t r = pread(fd, (char *)to + got, n - got, (off_t)(offset + got));
        if (r > 0) {
            got += (size_t)r;
            continue;
        }
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) failure = errno;
        break;
    }
    if (error) *error = failure;
    return got;
}
