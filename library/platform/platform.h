// The operating system behind one small interface: creating, updating,
// flushing, renaming and removing files, listing and locking directories,
// telling files apart, positioned reads and writes, kernel copies and
// threads.  The rest of the library reaches the system only through this
// header (and files.h, newfile.h, removal.h beside it); standard C streams
// are used everywhere.
//
// Two switches govern what the library does beyond the results it gives:
//   flushing  whether new files, records and directories are flushed to
//             the disk before they count (on by default; off only for
//             scratch copies: TarnTermChart_SetFlushing(0) or the
//             environment variable TARN_TERMCHART_FLUSH=0);
//   threads   whether work may run on a second thread (on by default;
//             TarnTermChart_SetThreads(0) or TARN_TERMCHART_THREADS=0
//             keeps everything on the calling thread).
#ifndef TARNTERMCHART_PLATFORM_H
#define TARNTERMCHART_PLATFORM_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <atomic>
#include <string>
#include <vector>

// ---- Switches ---------------------------------------------------------

bool FlushingEnabled();
void SetFlushing(bool enabled);
bool ThreadsEnabled();
void SetThreadsEnabled(bool enabled);

// ---- Files --------------------------------------------------------------

// A stream on a file newly created at path, open for reading and writing
// ("w+b").  Null when anything already stands at the path - a symbolic
// link included, which is never followed - or the file cannot be created.
FILE *CreateNewFile(const char *path);
// "r+b" on an existing plain file; never through a symbolic link (a link
// at the path gives null, as a file that cannot be opened does).
FILE *OpenFileForUpdate(const char *path);
// Writes what the stream holds back and, with flushing on, has the file's
// data reach the disk.  False when any write of the stream failed, now or
// before (the stream's error indicator is sticky).
bool FlushFile(FILE *stream);
// The same for a file open on a descriptor only.
bool FlushDescriptor(int fd);
// With flushing on, makes the directory's entries (names created, renamed
// or removed) durable.  True with flushing off.
bool FlushDirectory(const char *directory);
// rename(): the new name replaces whatever stood there, a symbolic link
// itself rather than its target.  0, or -1 with errno.
int RenameFile(const char *from, const char *to);
// Removes one name (a file or a symbolic link, never what a link leads
// to).  0, or -1 with errno (ENOENT when nothing stood there).
int RemoveName(const char *path);
// Cuts or extends the file open on stream to length bytes.
bool TruncateFile(FILE *stream, uint64_t length);

enum PathKind { kPathMissing, kPathFile, kPathDirectory, kPathLink, kPathOther };
// What stands at path, without following a symbolic link.
PathKind KindOf(const char *path);

// Which file a path leads to (links followed).
struct FileIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;
    bool operator==(const FileIdentity &other) const { return device == other.device && inode == other.inode; }
    bool operator!=(const FileIdentity &other) const { return !(*this == other); }
    bool operator<(const FileIdentity &other) const
    {
        return device != other.device ? device < other.device : inode < other.inode;
    }
};
// False when nothing can be reached at path.
bool IdentityOf(const char *path, FileIdentity *identity);
// Whether two paths lead to the same file or directory (any spelling, a
// trailing slash, "dir/.", a link to it).  False when either leads nowhere.
bool SameFile(const char *a, const char *b);
// How many names the file open on stream has; 0 when that cannot be told.
uint64_t LinkCount(FILE *stream);

// The names of a directory's entries in the order the system lists them,
// "." and ".." included.  False when it cannot be opened for listing.
bool ListDirectory(const char *directory, std::vector<std::string> *names);

// ---- Streams and descriptors -----------------------------------------

int DescriptorOf(FILE *stream);
// Whether the stream is open on a plain file.
bool IsPlainFile(FILE *stream);
// The file's length (not the stream's position), or -1.
int64_t DescriptorLength(int fd);
// 64-bit stream positioning, as fseek and ftell.
int SeekStream(FILE *stream, int64_t offset, int whence);
int64_t TellStream(FILE *stream);
// fread and fwrite for a stream that only one thread uses, without taking
// its lock for every call where the C library offers that.
size_t ReadUnlocked(void *to, size_t n, FILE *stream);
size_t WriteUnlocked(const void *from, size_t n, FILE *stream);
// Tells the system a file will be read from start to end.
void AdviseSequential(FILE *stream);

// Reads up to n bytes at offset of the file open on fd with positioned
// reads (no stream position is used or moved), going on after short reads
// and interruptions.  The bytes read: fewer than n at the end of the file,
// or on an error, whose errno *error receives (0 at the end).
size_t ReadFullyAt(int fd, void *to, size_t n, uint64_t offset, int *error = nullptr);
// Writes n bytes at offset; false when any of them could not be written.
bool WriteFullyAt(int fd, const void *from, size_t n, uint64_t offset);
// The errno of a positioned read that cannot be made at all (a pipe).
bool IsUnseekableError(int error);

// Has the kernel copy up to n bytes from inFd at *inAt to outFd at *outAt,
// both positions advanced by what was copied.  The bytes copied; 0 at the
// end of the input; -1 where the kernel declines (no such call, other file
// systems, no room): the caller then copies through memory, which tells
// reading from writing failures.
int64_t KernelCopy(int inFd, uint64_t *inAt, int outFd, uint64_t *outAt, size_t n);

// Starts writing a file's data out while the file is still being written,
// a stretch at a time, so that the flush at its end finds most of it on
// the disk already and the disk works while the caller does.  Only with
// flushing on; a hint, whose failure changes nothing.
class WriteBehind {
public:
    explicit WriteBehind(FILE *stream) : stream_(stream) {}
    // The file holds its data up to position: what passed since the last
    // stretch is sent on its way once it makes a stretch.
    void Reached(uint64_t position);

private:
    FILE *stream_;
    uint64_t started_ = 0;
};

// With flushing on, starts writing out the whole file open on fd without
// waiting for it, for a flush that comes later to find it done.  A hint.
void StartWritingOut(int fd);

// ---- Threads ------------------------------------------------------------

struct ThreadHandle;
// Runs work(context) on a thread of its own; null where threads are off or
// none can be had (the caller then does the work itself).
ThreadHandle *StartThread(void *(*work)(void *context), void *context);
// Waits for the thread to end and releases it; a null handle is ignored.
void JoinThread(ThreadHandle *thread);

// Work that may run on a second thread while the caller goes on.  Start
// hands it to a thread (where threads are on and one can be had); Finish
// waits for it, or, where it never started, does it there and then, once.
// Work left unfinished is told to stop (it watches Stopping()) and waited
// for when the object goes.
class BackgroundWork {
public:
    BackgroundWork(void (*work)(void *context), void *context) : work_(work), context_(context) {}
    BackgroundWork(const BackgroundWork &) = delete;
    BackgroundWork &operator=(const BackgroundWork &) = delete;
    ~BackgroundWork();

    void Start();
    void Finish();
    const std::atomic<bool> *Stopping() const { return &stop_; }

private:
    static void *Run(void *self);

    void (*work_)(void *context);
    void *context_;
    std::atomic<bool> stop_{false};
    ThreadHandle *thread_ = nullptr;
    bool done_ = false;
};

// ---- Directory locks ------------------------------------------------

// An advisory lock on a directory, shared (readers) or exclusive (the one
// writer), held until Release or destruction.  Between processes it is the
// system's lock on the directory itself, so no file is left behind; within
// a process, the same lock taken through another descriptor, so threads
// wait for each other as processes do.  Acquiring waits for the lock.
class DirectoryLock {
public:
    DirectoryLock() = default;
    DirectoryLock(const DirectoryLock &) = delete;
    DirectoryLock &operator=(const DirectoryLock &) = delete;
    ~DirectoryLock() { Release(); }

    // False where the directory cannot be opened (nothing is locked then).
    bool Acquire(const char *directory, bool exclusive);
    void Release();

private:
    int fd_ = -1;
};

// Locks a source directory shared and a destination exclusive, always in
// the same order of the two directories' identities, so that two calls
// crossing the same directories in opposite directions cannot wait for
// each other.
void LockSourceAndDestination(const char *source, const char *destination, DirectoryLock *sourceLock,
                              DirectoryLock *destinationLock);

#endif
