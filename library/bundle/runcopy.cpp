#include "bundle/runcopy.h"

#include <stdlib.h>

#include <atomic>

#include "bundle/crc.h"
#include "platform/platform.h"

namespace {

// Below this average length a run's system calls cost more than passing
// its bytes through memory.
const uint64_t kKernelRunBytes = 16 * 1024;

std::atomic<bool> kernelCopyForced{false};

}  // namespace

void RunsForceKernelCopy(bool force) { kernelCopyForced.store(force, std::memory_order_relaxed); }

bool RunsPassThroughMemory(uint64_t bytes, size_t count)
{
    return !kernelCopyForced.load(std::memory_order_relaxed) && bytes < kKernelRunBytes * count;
}

bool RunsPassThroughMemory(const std::vector<ByteRun> &runs)
{
    return RunsPassThroughMemory(RunBytes(runs), runs.size());
}

bool WriteChecksummed(void *context, const unsigned char *data, size_t n)
{
    ChecksummedCopy *copy = (ChecksummedCopy *)context;
    if (fwrite(data, 1, n, copy->target) != n) return false;
    copy->crc = TarnCrcUpdate(copy->crc, data, n);
    return true;
}

bool RunWindow::Prepare()
{
    if (!memory_) memory_.reset((unsigned char *)malloc(2 * (size_t)kBlobChunk));
    if (!memory_) return false;
    for (int k = 0; k < 2; k++) windows_[k] = Window{memory_.get() + k * (size_t)kBlobChunk, 0, 0, 0};
    return true;
}

RunWindow::Window *RunWindow::Holding(const ByteRun &run)
{
    for (Window &w : windows_)
        if (run.offset >= w.from && run.offset + run.size <= w.from + w.length) return &w;
    return nullptr;
}

BlobResult RunWindow::Pass(size_t i, BlobSink sink, void *context)
{
    const ByteRun &run = runs_[i];
    if (run.size == 0) return kBlobDone;
    used_++;
    if (Window *w = Holding(run)) {
        w->used = used_;
        return sink(context, w->bytes + (run.offset - w->from), (size_t)run.size) ? kBlobDone : kBlobShortWrite;
    }
    // The window used longer ago is read over.
    Window &w = windows_[windows_[0].used <= windows_[1].used ? 0 : 1];
    w.length = 0;
    w.used = used_;

    // Longer than a window: through its memory a chunk at a time, and it
    // holds nothing afterwards.
    if (run.size > (uint64_t)kBlobChunk) return ReadAtToSink(fd_, w.bytes, run.offset, run.size, sink, context);

    // The window: this run and those after it that lie close to the ones
    // taken (adding at most kWindowGap bytes that no run asked for), in
    // either direction, while they fit.  A run that does not is left for a
    // window of its own and the search goes on past it, so that two streams
    // of runs taken in turns (a compacted bundle's blobs and the updates
    // appended to it) each fill a window; it ends after a few such runs in
    // a row.
    uint64_t low = run.offset, high = run.offset + run.size;
    int passedOver = 0;
    for (size_t j = i + 1; j < runs_.size() && passedOver < kRunsPassedOver; j++) {
        const ByteRun &next = runs_[j];
        const uint64_t newLow = next.offset < low ? next.offset : low;
        const uint64_t nextEnd = next.offset + next.size;
        const uint64_t newHigh = nextEnd > high ? nextEnd : high;
        const uint64_t grown = (newHigh - newLow) - (high - low);
        if (newHigh - newLow > (uint64_t)kBlobChunk || grown > next.size + (uint64_t)kWindowGap) {
            passedOver++;
            continue;
        }
        passedOver = 0;
        low = newLow;
        high = newHigh;
    }
    int error = 0;
    const size_t got = ReadFullyAt(fd_, w.bytes, (size_t)(high - low), low, &error);
    // A window the file ends in holds what it got; the runs past that are
    // read again, and fail then.
    if (run.offset + run.size > low + got) return PositionedReadFailure(error);
    w.from = low;
    w.length = got;
    return sink(context, w.bytes + (run.offset - low), (size_t)run.size) ? kBlobDone : kBlobShortWrite;
}

RunCopy::RunCopy(FILE *in, int64_t inLength, const std::vector<ByteRun> &runs, FILE *out)
    : in_(in), inLength_(inLength), runs_(runs), out_(out), window_(in ? DescriptorOf(in) : -1, runs), copy_{out, 0}
{
}

void RunCopy::Start(bool throughMemory)
{
    started_ = true;
    throughMemory_ = throughMemory && !runs_.empty() && window_.Prepare();
    kernelCopy_ = !throughMemory_ && !runs_.empty() && KernelCanCopy(in_, out_);
    // Without memory for the sum's buffer the caller reads the file back.
    if (!throughMemory_ && !runs_.empty()) sum_.Start(DescriptorOf(in_), runs_);
}

BlobResult RunCopy::Copy(size_t i)
{
    const ByteRun &run = runs_[i];
    if (kernelCopy_) {
        // Where out stands is known after a run that went over whole; after
        // anything else it is asked.
        const int64_t at = outAt_ >= 0 ? outAt_ : TellStream(out_);
        const BlobResult copied =
            at < 0 ? CopyBlob(in_, inLength_, (uint32_t)run.offset, (uint32_t)run.size, out_)
                   : CopyBlobTo(in_, inLength_, (uint32_t)run.offset, (uint32_t)run.size, out_, at);
        outAt_ = copied == kBlobDone && at >= 0 ? at + (int64_t)run.size : -1;
        passedAll_ &= copied == kBlobDone;
        return copied;
    }
    if (!throughMemory_) {
        const BlobResult copied = CopyBlob(in_, inLength_, (uint32_t)run.offset, (uint32_t)run.size, out_);
        passedAll_ &= copied == kBlobDone;
        return copied;
    }
    const BlobResult passed = window_.Pass(i, WriteChecksummed, &copy_);
    if (passed == kBlobDone) return kBlobDone;
    passedAll_ = false;
    if (passed == kBlobShortWrite || passed == kBlobNoMemory) return passed;
    // A read that failed: what the buffer held back goes first, as it would
    // have gone before this run, and the run is then copied as the kernel
    // copy would have, as far as the source gives.
    if (fflush(out_) != 0) return kBlobShortWrite;
    return CopyBlob(in_, inLength_, (uint32_t)run.offset, (uint32_t)run.size, out_);
}

bool RunCopy::Flush()
{
    return fflush(out_) == 0;
}

bool RunCopy::Finish(uint32_t *crc)
{
    *crc = 0;
    if (!started_) return false;
    if (throughMemory_) {
        *crc = copy_.crc;
        return passedAll_;
    }
    // The checksum thread may have read a run whole before the source
    // shrank under the copy: a run that went over short has no checksum.
    const bool summed = runs_.empty() || sum_.Finish(crc);
    return summed && passedAll_;
}
