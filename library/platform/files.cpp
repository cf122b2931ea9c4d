// Path joining and the small file helpers every subsystem uses.
#include "platform/files.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

#include "platform/newfile.h"
#include "platform/platform.h"
#include "platform/removal.h"

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
    if (SeekStream(f.get(), 0, SEEK_END) != 0) return 0;
    int64_t size = TellStream(f.get());
    return size > 0 ? (uint64_t)size : 0;
}

// Copies in large blocks; false when a read or a write failed.
static bool CopyStream(FILE *in, FILE *out)
{
    enum { kBlock = 1 << 16 };
    MallocPtr<char> block((char *)malloc(kBlock));
    if (!block) return false;
    size_t got;
    while ((got = fread(block.get(), 1, kBlock, in)) > 0) {
        if (fwrite(block.get(), 1, got, out) != got) return false;
    }
    return !ferror(in);
}

CopyResult CopyFile(const char *sourceName, const char *destinationName, const char *sourceDirectory,
                    const char *destinationDirectory)
{
    PathPtr source = JoinPath(sourceDirectory, sourceName);
    if (!source) return kCopyNoSource;
    FilePtr in(fopen(source.get(), "rb"));
    if (!in) return kCopyNoSource;  // no destination is created for a missing source
    NewFile out;
    if (!out.Create(destinationDirectory, destinationName)) return kCopyNoDestination;
    if (!CopyStream(in.get(), out.stream())) out.Fail();
    return out.Commit() ? kCopyDone : kCopyWriteFailed;
}

CopyResult CopyFile(const char *name, const char *sourceDirectory, const char *destinationDirectory)
{
    return CopyFile(name, name, sourceDirectory, destinationDirectory);
}

void RemoveIn(const char *dir, const char *name)
{
    PathPtr path = JoinPath(dir, name);
    if (path) RemoveFile(path.get());
}

bool ReplaceFile(const char *newPath, const char *oldPath)
{
    if (ReplaceName(newPath, oldPath)) return true;
    // Whatever kept the new file from moving over the old one (a missing new
    // file, an old one that is not a plain file), the old one goes, and the
    // move is tried once more in its absence.
    remove(oldPath);
    return RenameFile(newPath, oldPath) == 0;
}

bool ReplaceIn(const char *dir, const char *newName, const char *oldName)
{
    PathPtr newPath = JoinPath(dir, newName);
    PathPtr oldPath = JoinPath(dir, oldName);
    if (!newPath || !oldPath) return false;
    if (KindOf(newPath.get()) == kPathMissing) {
        RemoveFile(oldPath.get());
        return true;
    }
    return ReplaceFile(newPath.get(), oldPath.get());
}

bool EndsWithNoCase(const char *name, const char *suffix)
{
    size_t length = strlen(name);
    size_t suffixLength = strlen(suffix);
    return length >= suffixLength && strcasecmp(name + length - suffixLength, suffix) == 0;
}
