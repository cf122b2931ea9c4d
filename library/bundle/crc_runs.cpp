#include "bundle/crc_runs.h"

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include "bundle/crc.h"

RunChecksum::~RunChecksum()
{
    if (threaded_) pthread_join(thread_, nullptr);
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
    threaded_ = pthread_create(&thread_, nullptr, Work, this) == 0;
    return true;
}

bool RunChecksum::Finish(uint32_t *crc)
{
    if (!started_) return false;
    if (threaded_) {
        pthread_join(thread_, nullptr);
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
            const ssize_t got = pread(fd_, block_, want, (off_t)at);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return;
            crc_ = TarnCrcUpdate(crc_, block_, (size_t)got);
            at += (uint64_t)got;
            left -= (uint64_t)got;
        }
    }
    ok_ = true;
}
