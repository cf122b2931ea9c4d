// Removing a large file costs whoever removes it the time to give back its
// blocks and cached pages: about 0.17 s per gigabyte, most of what is left
// of a merge once its new bundle is written.  RemoveFile takes the name away
// at once, as remove() does, and leaves the giving back to a thread of its
// own, which holds the last descriptor of the file and closes it.  Every
// call into the library that writes files waits for those threads first
// (WaitForRemovedFiles), so that no operation finds the disk's room still
// taken by a file already gone; the calls that only read do not wait.
#ifndef TARNTERMCHART_REMOVAL_H
#define TARNTERMCHART_REMOVAL_H

#include <stdint.h>

// remove(path), with its result and errno.  A plain file of at least
// RemovedInBackgroundBytes() with no second name, on a disk with room to
// spare (twice its size free), is given back on a background thread; any
// other name, or where that thread cannot be had, is removed as remove()
// removes it.
int RemoveFile(const char *path);

// Moves the file at from to the name to in one step, replacing what stood
// there (a link itself, not its target): the name is never empty.  Where
// the system can exchange two names, the two plain files exchange theirs
// and the old file is then removed from the new one's former name, which
// spares the new file's data being written out and the old file's blocks
// being given back within the call; the old file is given back as
// RemoveFile gives a file back.  A process stopped between the two steps
// leaves the old file under from.  False, with nothing moved, on failure.
bool ReplaceName(const char *from, const char *to);

// While a ReleaseAfterwards is open on a thread, the files RemoveFile and
// ReplaceName take away there are given back only when it closes: a caller
// that flushes the directory first does not have that flush wait for the
// giving back of large files' blocks.
class ReleaseAfterwards {
public:
    ReleaseAfterwards();
    ReleaseAfterwards(const ReleaseAfterwards &) = delete;
    ReleaseAfterwards &operator=(const ReleaseAfterwards &) = delete;
    ~ReleaseAfterwards();

private:
    friend void Release(int fd);
    ReleaseAfterwards *outer_;
    int held_[64];
    int count_ = 0;
};

// Waits until every file RemoveFile left to the background is given back.
void WaitForRemovedFiles();

// The smallest file worth a thread of its own: 16 MB.  Tests lower it to
// have small files removed in the background too.
uint64_t RemovedInBackgroundBytes();
void SetRemovedInBackgroundBytes(uint64_t bytes);
// How many files were given back in the background so far (for tests).
uint64_t RemovedInBackgroundCount();

#endif
