// The POSIX implementation of platform.h, with the Linux fast paths
// (copy_file_range, unlocked stdio) where the system has them.
#include "platform/platform.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

namespace {

// -1: not decided yet (the environment is read at the first question).
std::atomic<int> flushing{-1};
std::atomic<int> threads{-1};

bool SwitchFromEnvironment(std::atomic<int> &setting, const char *variable)
{
    int value = setting.load(std::memory_order_relaxed);
    if (value < 0) {
        const char *text = getenv(variable);
        // Anything but "0", "off", "false" or "no" leaves the switch on.
        const bool off = text && (strcmp(text, "0") == 0 || strcasecmp(text, "off") == 0 ||
                                  strcasecmp(text, "false") == 0 || strcasecmp(text, "no") == 0);
        int expected = -1;
        setting.compare_exchange_strong(expected, off ? 0 : 1);
        value = setting.load(std::memory_order_relaxed);
    }
    return value != 0;
}

}  // namespace

bool FlushingEnabled() { return SwitchFromEnvironment(flushing, "TARN_TERMCHART_FLUSH"); }
void SetFlushing(bool enabled) { flushing.store(enabled ? 1 : 0); }
bool ThreadsEnabled() { return SwitchFromEnvironment(threads, "TARN_TERMCHART_THREADS"); }
void SetThreadsEnabled(bool enabled) { threads.store(enabled ? 1 : 0); }

FILE *CreateNewFile(const char *path)
{
    const int fd = open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    FILE *stream = fdopen(fd, "w+b");
    if (!stream) {
        const int error = errno;
        close(fd);
        unlink(path);
        errno = error;
    }
    return stream;
}

FILE *OpenFileForUpdate(const char *path)
{
    const int fd = open(path, O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat st;
    FILE *stream = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) ? fdopen(fd, "r+b") : nullptr;
    if (!stream) close(fd);
    return stream;
}

bool FlushDescriptor(int fd)
{
    if (!FlushingEnabled()) return true;
    // fdatasync would leave the size of a grown file to the journal's
    // schedule; fsync takes the size along.
    while (fsync(fd) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

bool FlushFile(FILE *stream)
{
    if (!stream) return false;
    if (fflush(stream) != 0 || ferror(stream)) return false;
    return FlushDescriptor(fileno(stream));
}

bool FlushDirectory(const char *directory)
{
    if (!FlushingEnabled()) return true;
    const int fd = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    bool flushed = true;
    while (fsync(fd) != 0) {
        // Some file systems take no flush of a directory: their entries
        // are as durable as they will get.
        if (errno == EINTR) continue;
        flushed = errno == EINVAL || errno == ENOTSUP;
        break;
    }
    close(fd);
    return flushed;
}

int RenameFile(const char *from, const char *to) { return rename(from, to); }

int RemoveName(const char *path) { return unlink(path); }

bool TruncateFile(FILE *stream, uint64_t length)
{
    if (fflush(stream) != 0) return false;
    while (ftruncate(fileno(stream), (off_t)length) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

PathKind KindOf(const char *path)
{
    struct stat st;
    if (lstat(path, &st) != 0) return kPathMissing;
    if (S_ISLNK(st.st_mode)) return kPathLink;
    if (S_ISREG(st.st_mode)) return kPathFile;
    if (S_ISDIR(st.st_mode)) return kPathDirectory;
    return kPathOther;
}

bool IdentityOf(const char *path, FileIdentity *identity)
{
    struct stat st;
    if (!path || stat(path, &st) != 0) return false;
    identity->device = (uint64_t)st.st_dev;
    identity->inode = (uint64_t)st.st_ino;
    return true;
}

bool SameFile(const char *a, const char *b)
{
    FileIdentity x, y;
    return IdentityOf(a, &x) && IdentityOf(b, &y) && x == y;
}

uint64_t LinkCount(FILE *stream)
{
    struct stat st;
    return stream && fstat(fileno(stream), &st) == 0 ? (uint64_t)st.st_nlink : 0;
}

bool ListDirectory(const char *directory, std::vector<std::string> *names)
{
    DIR *dir = opendir(directory);
    if (!dir) return false;
    while (struct dirent *entry = readdir(dir)) names->emplace_back(entry->d_name);
    closedir(dir);
    return true;
}

int DescriptorOf(FILE *stream) { return fileno(stream); }

bool IsPlainFile(FILE *stream)
{
    struct stat st;
    return stream && fstat(fileno(stream), &st) == 0 && S_ISREG(st.st_mode);
}

int64_t DescriptorLength(int fd)
{
    struct stat st;
    return fstat(fd, &st) == 0 ? (int64_t)st.st_size : -1;
}

int SeekStream(FILE *stream, int64_t offset, int whence) { return fseeko(stream, (off_t)offset, whence); }

int64_t TellStream(FILE *stream) { return (int64_t)ftello(stream); }

size_t ReadUnlocked(void *to, size_t n, FILE *stream)
{
#if defined(__GLIBC__)
    return fread_unlocked(to, 1, n, stream);
#else
    return fread(to, 1, n, stream);
#endif
}

size_t WriteUnlocked(const void *from, size_t n, FILE *stream)
{
#if defined(__GLIBC__)
    return fwrite_unlocked(from, 1, n, stream);
#else
    return fwrite(from, 1, n, stream);
#endif
}

void AdviseSequential(FILE *stream)
{
#if defined(POSIX_FADV_SEQUENTIAL)
    if (stream) posix_fadvise(fileno(stream), 0, 0, POSIX_FADV_SEQUENTIAL);
#else
    (void)stream;
#endif
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

bool WriteFullyAt(int fd, const void *from, size_t n, uint64_t offset)
{
    size_t done = 0;
    while (done < n) {
        ssize_t w = pwrite(fd, (const char *)from + done, n - done, (off_t)(offset + done));
        if (w > 0) {
            done += (size_t)w;
            continue;
        }
        if (w < 0 && errno == EINTR) continue;
        return false;
    }
    return true;
}

bool IsUnseekableError(int error) { return error == ESPIPE; }

int64_t KernelCopy(int inFd, uint64_t *inAt, int outFd, uint64_t *outAt, size_t n)
{
#if defined(__linux__)
    off_t in = (off_t)*inAt, out = (off_t)*outAt;
    for (;;) {
        ssize_t copied = copy_file_range(inFd, &in, outFd, &out, n, 0);
        if (copied < 0 && errno == EINTR) continue;
        if (copied < 0) return -1;
        *inAt = (uint64_t)in;
        *outAt = (uint64_t)out;
        return copied;
    }
#else
    (void)inFd;
    (void)inAt;
    (void)outFd;
    (void)outAt;
    (void)n;
    return -1;
#endif
}

void WriteBehind::Reached(uint64_t position)
{
    const uint64_t kStretch = 8u << 20;
    if (!stream_ || position < started_ + kStretch || !FlushingEnabled()) return;
#if defined(__linux__)
    if (fflush(stream_) != 0) return;
    sync_file_range(fileno(stream_), (off_t)started_, (off_t)(position - started_), SYNC_FILE_RANGE_WRITE);
#endif
    started_ = position;
}

void StartWritingOut(int fd)
{
#if defined(__linux__)
    if (FlushingEnabled()) sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
#else
    (void)fd;
#endif
}

struct ThreadHandle {
    pthread_t thread;
};

ThreadHandle *StartThread(void *(*work)(void *context), void *context)
{
    if (!ThreadsEnabled()) return nullptr;
    ThreadHandle *handle = (ThreadHandle *)malloc(sizeof(ThreadHandle));
    if (!handle) return nullptr;
    if (pthread_create(&handle->thread, nullptr, work, context) != 0) {
        free(handle);
        return nullptr;
    }
    return handle;
}

void JoinThread(ThreadHandle *thread)
{
    if (!thread) return;
    pthread_join(thread->thread, nullptr);
    free(thread);
}

void *BackgroundWork::Run(void *self)
{
    BackgroundWork &work = *(BackgroundWork *)self;
    work.work_(work.context_);
    return nullptr;
}

void BackgroundWork::Start()
{
    if (!thread_ && !done_) thread_ = StartThread(Run, this);
}

void BackgroundWork::Finish()
{
    if (thread_) {
        JoinThread(thread_);
        thread_ = nullptr;
    } else if (!done_) {
        Run(this);
    }
    done_ = true;
}

BackgroundWork::~BackgroundWork()
{
    stop_.store(true);
    JoinThread(thread_);
}

bool DirectoryLock::Acquire(const char *directory, bool exclusive)
{
    Release();
    fd_ = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd_ < 0) return false;
    while (flock(fd_, exclusive ? LOCK_EX : LOCK_SH) != 0) {
        if (errno == EINTR) continue;
        // A file system without locks: nothing to wait for.
        break;
    }
    return true;
}

void DirectoryLock::Release()
{
    if (fd_ >= 0) close(fd_);  // closing the last descriptor drops the lock
    fd_ = -1;
}

void LockSourceAndDestination(const char *source, const char *destination, DirectoryLock *sourceLock,
                              DirectoryLock *destinationLock)
{
    FileIdentity s, d;
    if (IdentityOf(source, &s) && IdentityOf(destination, &d) && d < s) {
        destinationLock->Acquire(destination, true);
        sourceLock->Acquire(source, false);
        return;
    }
    sourceLock->Acquire(source, false);
    destinationLock->Acquire(destination, true);
}
