// Work done ahead of its turn: a step whose inputs are already final runs
// on a second thread while the steps before it still run, and writes its
// file without a name; the file takes its name when the step's turn comes.
// The directory thus goes through the same states as when the steps run one
// after the other, and a run that stops before the step's turn leaves no
// trace of it.  The checks below say where that cannot change what is
// written.
#ifndef TARNTERMCHART_AHEAD_H
#define TARNTERMCHART_AHEAD_H

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>
#include <time.h>

#include <atomic>

// Whether steps writing into destinationDirectory can run side by side
// with what they read from sourceDirectory: the two are different
// directories, the destination holds no symbolic link (no write there can
// reach another file), no file size limit is set (a file passing it ends
// the process, which must not happen before the earlier steps are done),
// and the destination's disk has room for the whole source twice over (no
// write may run short because a file written ahead took its room).
bool AheadIsSafe(const char *sourceDirectory, const char *destinationDirectory);
// The same where one directory is both read and written: no symbolic link
// in it, no file size limit, room for all its files twice over.
bool AheadIsSafeWithin(const char *directory);
// A plain file with no second name, or no file at all: no write through
// another name can reach it.
bool SingleNamed(const char *directory, const char *name);
// No entry of that name in the directory.
bool NameIsFree(const char *directory, const char *name);

// Which file a name leads to and how it stood: the same identity later
// means the same file, not written since (short of a write that kept its
// size within the clock's resolution).
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    struct timespec modified = {0, 0};
    nlink_t names = 0;  // how many names the file has (not compared)

    // False when the name leads to no plain file.
    bool Of(const char *directory, const char *name);
    bool operator==(const FileIdentity &other) const;
};

// A file without a name in a directory, made as fopen's "w" makes one.
class UnnamedFile {
public:
    UnnamedFile() = default;
    UnnamedFile(const UnnamedFile &) = delete;
    UnnamedFile &operator=(const UnnamedFile &) = delete;
    ~UnnamedFile() { Discard(); }

    // Makes the file and a stream writing it, with a descriptor of its own
    // (closing the stream keeps the file); null where the file system
    // cannot make one.
    FILE *Create(const char *directory);
    bool Made() const { return fd_ >= 0; }
    // Gives the file the name path, which must be free; the file is let go
    // either way (false: it could not be named and is gone).
    bool Name(const char *path);
    // Lets the file go unnamed; it vanishes.
    void Discard();

private:
    int fd_ = -1;
};

// Whether work done ahead has been told to give up (never, without a flag).
inline bool StopAsked(const std::atomic<bool> *stop)
{
    return stop && stop->load(std::memory_order_relaxed);
}

// What a step done ahead leaves for its turn.
struct WrittenAhead {
    static constexpr int kInPlace = 1;  // not done ahead: the step runs at its turn
    int code = kInPlace;                // else the step's code
    UnnamedFile file;                   // the file written, when there is one
    uint32_t crc = 0;                   // a bundle's checksum
    std::atomic<bool> stop{false};      // set to give up a step under way
    // Called by a step that must wait for some of its inputs: returns once
    // they are final, and tells whether to go on.
    bool (*ready)(void *context) = nullptr;
    void *readyContext = nullptr;
};

// The second thread that does work ahead, and the word that lets work
// waiting for its inputs go on (or give up).
class AheadThread {
public:
    AheadThread() = default;
    AheadThread(const AheadThread &) = delete;
    AheadThread &operator=(const AheadThread &) = delete;
    ~AheadThread() { Join(false); }

    // Runs work(context); false when no thread can be started (the work is
    // then done at its turn).
    bool Start(void *(*work)(void *context), void *context);
    // The inputs are final (go) or will never be; the first word counts.
    void Tell(bool go);
    // Waits for the work to end.  Without the word "go" said, waiting work
    // is told to give up first (and work under way must be stopped by its
    // own flags).
    void Join(bool go);
    // Waits for the word; true for "go".  A WrittenAhead::ready for work on
    // this thread, with the thread as its context.
    static bool WaitForWord(void *thread);

private:
    enum Word { kWait, kGo, kGiveUp };
    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t told_ = PTHREAD_COND_INITIALIZER;
    Word word_ = kWait;
    pthread_t thread_;
    bool running_ = false;
};

#endif
