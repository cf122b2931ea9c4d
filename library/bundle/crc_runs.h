// The Tarn checksum of ranges of a file taken one after another, worked out
// on a second thread while the caller copies the same ranges elsewhere.
//
// A bundle writer that lets the kernel copy the blobs never holds their
// bytes, so its checksum would otherwise be a second read of the whole file
// after writing it.  Reading the source ranges on another processor while
// the copy runs costs no time on the writer's side; the writer combines the
// result with the checksums of its header and table (TarnCrcCombine).  Where
// no thread can be started, Finish reads the ranges itself: the result is
// the same, only later.
#ifndef TARNTERMCHART_BUNDLE_CRC_RUNS_H
#define TARNTERMCHART_BUNDLE_CRC_RUNS_H

#include <stdint.h>

#include <vector>

// size bytes of a file from offset.
struct ByteRun {
    uint64_t offset;
    uint64_t size;
};

// Adds size bytes at offset to the runs: to the last run when they follow
// it directly in the file and the run stays countable in 32 bits (as blob
// copies count), else as a run of their own.  Nothing is added for 0 bytes.
void AddToRuns(std::vector<ByteRun> &runs, uint64_t offset, uint64_t size);
// The bytes the runs hold together.
uint64_t RunBytes(const std::vector<ByteRun> &runs);

class RunChecksum {
public:
    RunChecksum() = default;
    RunChecksum(const RunChecksum &) = delete;
    RunChecksum &operator=(const RunChecksum &) = delete;
    // Waits for the thread, if Finish did not, and frees the buffer.
    ~RunChecksum();

    // Starts on the runs, in order, of the file open on fd; the runs are
    // copied, the descriptor must stay open until Finish (or destruction).
    // False when memory for the read buffer is short or a computation is
    // under way; nothing is started then.
    bool Start(int fd, const std::vector<ByteRun> &runs);
    // The Tarn register over all the runs, from 0; false when a read failed,
    // the file ended inside a run, or nothing was started.
    bool Finish(uint32_t *crc);

private:
    static void *Work(void *self);
    void Compute();

    int fd_ = -1;
    std::vector<ByteRun> runs_;
    unsigned char *block_ = nullptr;  // the read buffer, kCrcFileBlock bytes
    struct ThreadHandle *thread_ = nullptr;
    bool started_ = false;   // Start was called
    bool threaded_ = false;  // a thread is computing, not yet joined
    bool ok_ = false;
    uint32_t crc_ = 0;
};

#endif
