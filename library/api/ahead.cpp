// Checks and the unnamed file for work done ahead of its turn.
#include "ahead.h"

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "files.h"

namespace {

// What one pass over a directory finds: whether a name in it is a symbolic
// link, and the bytes of its plain files (also those its links lead to).
struct DirectoryScan {
    bool holdsLink = false;
    uint64_t bytes = 0;

    // False where the directory cannot be read.
    bool Of(const char *directory)
    {
        DirPtr dir(opendir(directory));
        if (!dir) return false;
        while (struct dirent *entry = readdir(dir.get())) {
            struct stat st;
            if (fstatat(dirfd(dir.get()), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
            if (S_ISLNK(st.st_mode)) {
                holdsLink = true;
                // A link to nothing has no bytes to read.
                if (fstatat(dirfd(dir.get()), entry->d_name, &st, 0) != 0) continue;
            }
            if (S_ISREG(st.st_mode)) bytes += (uint64_t)st.st_size;
        }
        return true;
    }
};

bool SameFile(const char *a, const char *b)
{
    struct stat sa, sb;
    return stat(a, &sa) == 0 && stat(b, &sb) == 0 && sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

bool NoFileSizeLimit()
{
    struct rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur == RLIM_INFINITY;
}

// Room on destination's disk for twice sourceBytes.
bool RoomForTwice(uint64_t sourceBytes, const char *destinationDirectory)
{
    struct statvfs disk;
    if (statvfs(destinationDirectory, &disk) != 0) return false;
    const uint64_t margin = 64u << 20;
    return (uint64_t)disk.f_bavail * disk.f_frsize >= 2 * sourceBytes + margin;
}

}  // namespace

bool AheadIsSafe(const char *sourceDirectory, const char *destinationDirectory)
{
    DirectoryScan source, destination;
    return NoFileSizeLimit() && !SameFile(sourceDirectory, destinationDirectory) &&
           destination.Of(destinationDirectory) && !destination.holdsLink &&
           source.Of(sourceDirectory) && RoomForTwice(source.bytes, destinationDirectory);
}

bool AheadIsSafeWithin(const char *directory)
{
    DirectoryScan scan;
    return NoFileSizeLimit() && scan.Of(directory) && !scan.holdsLink &&
           RoomForTwice(scan.bytes, directory);
}

bool FileIdentity::Of(const char *directory, const char *name)
{
    PathPtr path = JoinPath(directory, name);
    struct stat st;
    if (!path || lstat(path.get(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    device = st.st_dev;
    inode = st.st_ino;
    size = st.st_size;
    modified = st.st_mtim;
    names = st.st_nlink;
    return true;
}

bool FileIdentity::operator==(const FileIdentity &other) const
{
    return device == other.device && inode == other.inode && size == other.size &&
           modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
}

bool SingleNamed(const char *directory, const char *name)
{
    PathPtr path = JoinPath(directory, name);
    struct stat st;
    if (!path) return false;
    if (lstat(path.get(), &st) != 0) return errno == ENOENT;
    return S_ISREG(st.st_mode) && st.st_nlink == 1;
}

bool NameIsFree(const char *directory, const char *name)
{
    PathPtr path = JoinPath(directory, name);
    struct stat st;
    return path && lstat(path.get(), &st) != 0 && errno == ENOENT;
}

FILE *UnnamedFile::Create(const char *directory)
{
    Discard();
    fd_ = open(directory, O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    if (fd_ < 0) return nullptr;
    const int own = fcntl(fd_, F_DUPFD_CLOEXEC, 0);
    FILE *stream = own >= 0 ? fdopen(own, "wb") : nullptr;
    if (!stream) {
        if (own >= 0) close(own);
        Discard();
    }
    return stream;
}

bool UnnamedFile::Name(const char *path)
{
    if (fd_ < 0) return false;
    // Linking a descriptor by AT_EMPTY_PATH takes a privilege; its entry in
    // /proc does not.
    char self[40];
    snprintf(self, sizeof self, "/proc/self/fd/%d", fd_);
    const bool named = linkat(AT_FDCWD, self, AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0;
    Discard();
    return named;
}

void UnnamedFile::Discard()
{
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

bool AheadThread::Start(void *(*work)(void *context), void *context)
{
    running_ = pthread_create(&thread_, nullptr, work, context) == 0;
    return running_;
}

void AheadThread::Tell(bool go)
{
    pthread_mutex_lock(&lock_);
    if (word_ == kWait) word_ = go ? kGo : kGiveUp;
    pthread_cond_broadcast(&told_);
    pthread_mutex_unlock(&lock_);
}

void AheadThread::Join(bool go)
{
    if (!running_) return;
    if (!go) Tell(false);
    pthread_join(thread_, nullptr);
    running_ = false;
}

bool AheadThread::WaitForWord(void *context)
{
    AheadThread &thread = *(AheadThread *)context;
    pthread_mutex_lock(&thread.lock_);
    while (thread.word_ == kWait) pthread_cond_wait(&thread.told_, &thread.lock_);
    const bool go = thread.word_ == kGo;
    pthread_mutex_unlock(&thread.lock_);
    return go;
}
