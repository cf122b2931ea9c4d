// Blobs that pass through memory on their way from one bundle to another.
//
// Long runs of blobs go over fastest by kernel copy (blob.h), checksummed
// from the source on another thread (crc_runs.h).  Short ones do not: the
// scattered blobs an area cut keeps, or a producer's bundle in no particular
// order, would cost a few system calls each that way.  They are read a
// window at a time instead, written through a buffer of the writer's own and
// checksummed as they pass.
#ifndef TARNTERMCHART_BUNDLE_RUNCOPY_H
#define TARNTERMCHART_BUNDLE_RUNCOPY_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <vector>

#include "platform/files.h"
#include "bundle/blob.h"
#include "bundle/crc_runs.h"

// Whether runs holding bytes in all, count of them, go over faster through
// memory than by kernel copy: when they are shorter than 16 KB on average.
// Through memory the bytes are copied twice and checksummed on the
// writer's thread; by kernel copy once, checksummed on another, for two
// system calls a run.
bool RunsPassThroughMemory(uint64_t bytes, size_t count);
bool RunsPassThroughMemory(const std::vector<ByteRun> &runs);

// Lets tests send every run by kernel copy, however short, to check that
// both ways write the same files.  Not for production use.
void RunsForceKernelCopy(bool force);

// The sink of blobs passing through memory: each piece written to target
// and added to the Tarn register of everything passed so far.
struct ChecksummedCopy {
    FILE *target;
    uint32_t crc;  // from 0
};
bool WriteChecksummed(void *context, const unsigned char *data, size_t n);

// Reads the runs of a file, taken in order, through two windows of
// kBlobChunk bytes, the one used longer ago read over.  A read takes in the
// run asked for and the runs after it that lie close to those taken, ahead
// or behind (each adding at most kWindowGap bytes no run asked for), while
// they fit, passing over runs elsewhere in the file (up to kRunsPassedOver
// in a row): the scattered blobs an area cut keeps, and the blobs of a
// producer's bundle, which lie near each other in another order than the
// table's, cost a read per window, not a system call each.  A run found
// in a window already is not read again.  A run longer than a window is
// read through one in chunks of its size.
class RunWindow {
public:
    // Gaps up to this size are read through rather than skipped by a
    // second read: reading them costs less than the call.
    enum { kWindowGap = 16 * 1024 };
    // Runs in a row that do not fit a window before its search ends.
    enum { kRunsPassedOver = 16 };

    // The runs stay the caller's and must outlive the window; fd stays open.
    RunWindow(int fd, const std::vector<ByteRun> &runs) : fd_(fd), runs_(runs) {}
    // Allocates the windows' memory; false when it is short.
    bool Prepare();
    // Hands the bytes of runs[i] to sink in order.  kBlobShortRead when the
    // file ended or failed within them (nothing of the failing window or
    // chunk reaches the sink), kBlobSeekFailed for a file that cannot be
    // read at a position, kBlobShortWrite when the sink refused.
    BlobResult Pass(size_t i, BlobSink sink, void *context);

private:
    struct Window {
        unsigned char *bytes;  // kBlobChunk bytes of memory_
        uint64_t from;         // the file offset of the first byte held
        size_t length;         // bytes held
        uint64_t used;         // when a run was last passed from it
    };
    Window *Holding(const ByteRun &run);

    int fd_;
    const std::vector<ByteRun> &runs_;
    MallocPtr<unsigned char> memory_;  // both windows
    Window windows_[2] = {};
    uint64_t used_ = 0;  // runs passed so far
};

// The blobs of one source bundle appended to a new one, gathered into runs
// in the order they are written, and the Tarn register over their bytes: by
// kernel copy while a second thread checksums them from the source, or, for
// runs short on average, through memory and checksummed on the way.  Either
// way a failing run leaves the output as a kernel copy of it would, and the
// register is only given when every run went over.
class RunCopy {
public:
    // in is the source (inLength its file length; in may be null when there
    // are no runs), out the new bundle; the runs stay the caller's.  All must
    // outlive this object.
    RunCopy(FILE *in, int64_t inLength, const std::vector<ByteRun> &runs, FILE *out);
    // Chooses how the runs go over: through memory when throughMemory is
    // set and the window's memory can be had (out should then have a
    // a buffer of kBlobChunk bytes), else by kernel copy with the checksum thread started.
    void Start(bool throughMemory);
    // Appends runs[i] at out's position.  Through memory, bytes may wait in
    // out's buffer: Flush sends them, and a failure to write them may show
    // at a later run.
    BlobResult Copy(size_t i);
    // Writes what out's buffer holds; false when that fails.
    bool Flush();
    // The register over all the runs, from 0; false when it cannot be
    // given (a run failed or was copied around the checksum, a read of the
    // checksum thread failed, or Start was not called).
    bool Finish(uint32_t *crc);

private:
    FILE *in_;
    int64_t inLength_;
    const std::vector<ByteRun> &runs_;
    FILE *out_;
    RunWindow window_;
    RunChecksum sum_;
    ChecksummedCopy copy_;
    bool started_ = false;
    bool throughMemory_ = false;
    bool kernelCopy_ = false;  // by kernel copy, both files found plain once
    int64_t outAt_ = -1;         // out's position after the last run, -1 unknown
    bool passedAll_ = true;  // every run went over whole (through memory: and was checksummed)
};

#endif
