#include "bundle/crc_runs.h"

#include <stdlib.h>

#include "platform/files.h"
#include "platform/platform.h"
#include "bundle/crc.h"

void AddToRuns(std::vector<ByteRun> &runs, uint64_t offset, uint64_t size)
{
    if (size == 0) return;
    if (!runs.empty() && runs.back().offset + runs.back().size == offset && runs.back().size + size <= UINT32_MAX)
        runs.back().size += size;
    else
        runs.push_back({offset, size});
}

uint64_t RunBytes(const std::vector<ByteRun> &runs)
{
    uint64_t bytes = 0;
    for (const ByteRun &run : runs) bytes += run.size;
    return bytes;
}

RunChecksum::~RunChecksum()
{
    JoinThread(thread_);
    free(block_);
}

bool RunChecksum::Start(int fd, const std::vector<ByteRun> &runs)
{
    if (started_) return false;  // one computation at a time
    if (!block_) block_ = (unsigned char *)malloc(kCrcFileBlock);
    if (!block_) return false;
    fd_ = fd;
    runs_ = runs;
    started_ = true;
    thread_ = StartThread(Work, this);
    threaded_ = thread_ != nullptr;
    return true;
}

bool RunChecksum::Finish(uint32_t *crc)
{
    if (!started_) return false;
    if (threaded_) {
        JoinThread(thread_);
        thread_ = nullptr;
        threaded_ = false;
    } else {
        Compute();
    }
    started_ = false;
    *crc = crc_;
    return ok_;
}

void *RunChecksum::Work(void *self)
{
    ((RunChecksum *)self)->Compute();
    return nullptr;
}

void RunChecksum::Compute()
{
    ok_ = false;
    crc_ = 0;
    for (const ByteRun &run : runs_) {
        uint64_t at = run.offset, left = run.size;
        while (left > 0) {
            const size_t want = left < (uint64_t)kCrcFileBlock ? (size_t)left : (size_t)kCrcFileBlock;
            if (ReadFullyAt(fd_, block_, want, at) != want) return;
            crc_ = TarnCrcUpdate(crc_, block_, want);
            at += want;
            left -= want;
        }
    }
    ok_ = true;
}
