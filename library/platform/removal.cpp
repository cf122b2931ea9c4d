// Files removed with their giving back left to a thread: see removal.h.
#include "platform/removal.h"

#include "platform/platform.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <pthread.h>
#include <stdio.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>

namespace {

// At most this many files are given back at once; a file beyond them is
// closed by the caller, as remove() would have done.
const int kMaxPending = 16;
// A thread that only closes a descriptor needs little stack.
const size_t kCloserStack = 64 * 1024;

struct Pending {
    pthread_t thread;
    int fd;
    bool closing;  // set by the thread, under gLock, before it closes fd
};

pthread_mutex_t gLock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t gJoined = PTHREAD_COND_INITIALIZER;
Pending gPending[kMaxPending];
int gPendingCount = 0;
// Threads taken off gPending by a waiter and not joined yet.
int gJoining = 0;
std::atomic<uint64_t> gThreshold{16u << 20};
std::atomic<uint64_t> gRemovedCount{0};

// A thread finds its slot by its descriptor: no two open pending files
// share one, and a slot whose descriptor was closed is marked already.
void *CloseInBackground(void *argument)
{
    int fd = (int)(intptr_t)argument;
    pthread_mutex_lock(&gLock);
    for (int i = 0; i < gPendingCount; i++)
        if (gPending[i].fd == fd) gPending[i].closing = true;
    pthread_mutex_unlock(&gLock);
    close(fd);
    gRemovedCount++;
    return nullptr;
}

// fork() copies the list but none of its threads.  The child closes its
// copies of the descriptors no thread has begun to close (the same open
// files as the parent's, since only their thread closes them) and forgets
// the threads, which it could never join.
void LockBeforeFork() { pthread_mutex_lock(&gLock); }
void UnlockInParent() { pthread_mutex_unlock(&gLock); }
void ForgetInChild()
{
    for (int i = 0; i < gPendingCount; i++)
        if (!gPending[i].closing) close(gPending[i].fd);
    gPendingCount = 0;
    gJoining = 0;
    pthread_mutex_unlock(&gLock);
}

// Nothing is left behind when the library is unloaded or the process ends.
struct WaitAtExit {
    WaitAtExit() { pthread_atfork(LockBeforeFork, UnlockInParent, ForgetInChild); }
    ~WaitAtExit() { WaitForRemovedFiles(); }
} gWaitAtExit;

bool SameFile(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Hands fd to a thread of its own; false where none can be had.
bool CloseLater(int fd)
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setstacksize(&attributes, kCloserStack);
    bool handed = false;
    pthread_mutex_lock(&gLock);
    if (gPendingCount < kMaxPending) {
        Pending &slot = gPending[gPendingCount];
        slot.fd = fd;
        slot.closing = false;
        if (pthread_create(&slot.thread, &attributes, CloseInBackground, (void *)(intptr_t)fd) == 0) {
            gPendingCount++;
            handed = true;
        }
    }
    pthread_mutex_unlock(&gLock);
    pthread_attr_destroy(&attributes);
    return handed;
}

}  // namespace

uint64_t RemovedInBackgroundBytes() { return gThreshold; }
void SetRemovedInBackgroundBytes(uint64_t bytes) { gThreshold = bytes; }
uint64_t RemovedInBackgroundCount() { return gRemovedCount; }

namespace {

// A descriptor of the plain file at path, taken to give its room back on a
// background thread once its last name is gone: only a file of the
// threshold's size or more, with one name, on a disk with room to spare
// (twice its size free); -1 for any other.
int HoldForRelease(const char *path)
{
    struct stat named;
    if (!ThreadsEnabled() || lstat(path, &named) != 0 || !S_ISREG(named.st_mode) || named.st_nlink != 1 ||
        (uint64_t)named.st_size < gThreshold)
        return -1;
    // Where the disk is short of room, the caller may need it at once.
    struct statvfs disk;
    if (statvfs(path, &disk) != 0 ||
        (uint64_t)disk.f_bavail * disk.f_frsize / 2 < (uint64_t)named.st_size)
        return -1;
    int fd = open(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return -1;
    struct stat opened;
    if (fstat(fd, &opened) != 0 || !SameFile(named, opened) || opened.st_nlink != 1) {
        close(fd);
        return -1;
    }
    return fd;
}

bool IsPlain(const char *path)
{
    struct stat st;
    return lstat(path, &st) == 0 && S_ISREG(st.st_mode);
}

thread_local ReleaseAfterwards *openRelease = nullptr;

}  // namespace

// Gives fd's file back now, or when the ReleaseAfterwards open on this
// thread closes.
void Release(int fd)
{
    if (fd < 0) return;
    ReleaseAfterwards *scope = openRelease;
    if (scope && scope->count_ < (int)(sizeof scope->held_ / sizeof scope->held_[0])) {
        scope->held_[scope->count_++] = fd;
        return;
    }
    if (!CloseLater(fd)) close(fd);
}

ReleaseAfterwards::ReleaseAfterwards() : outer_(openRelease) { openRelease = this; }

ReleaseAfterwards::~ReleaseAfterwards()
{
    openRelease = outer_;
    for (int i = 0; i < count_; i++) Release(held_[i]);
}

int RemoveFile(const char *path)
{
    const int fd = HoldForRelease(path);
    if (fd < 0) return remove(path);
    if (unlink(path) != 0) {
        int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    Release(fd);
    return 0;
}

bool ReplaceName(const char *from, const char *to)
{
    const int held = HoldForRelease(to);
#ifdef RENAME_EXCHANGE
    // A rename over an existing file makes some file systems (ext4) start
    // writing the new file's data out before it returns, and frees the old
    // file's blocks there and then.  Exchanging the two names, then
    // removing the old file from the name the new one had, leaves the same
    // names with neither cost; the name is never empty either.
    if (IsPlain(from) && IsPlain(to) && renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_EXCHANGE) == 0) {
        unlink(from);
        Release(held);
        return true;
    }
#endif
    const bool moved = rename(from, to) == 0;
    if (moved) Release(held);
    else if (held >= 0) close(held);
    return moved;
}

void WaitForRemovedFiles()
{
    Pending taken[kMaxPending];
    pthread_mutex_lock(&gLock);
    int count = gPendingCount;
    for (int i = 0; i < count; i++) taken[i] = gPending[i];
    gPendingCount = 0;
    gJoining += count;
    pthread_mutex_unlock(&gLock);

    for (int i = 0; i < count; i++) pthread_join(taken[i].thread, nullptr);

    // Threads another caller took are waited for as well.
    pthread_mutex_lock(&gLock);
    gJoining -= count;
    if (gJoining == 0)
        pthread_cond_broadcast(&gJoined);
    else
        while (gJoining > 0) pthread_cond_wait(&gJoined, &gLock);
    pthread_mutex_unlock(&gLock);
}
