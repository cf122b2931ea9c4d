#include "bundle/blob.h"


#include <atomic>

#include "platform/files.h"
#include "platform/platform.h"

namespace {

std::atomic<bool> kernelCopyAllowed{true};

bool WriteSink(void *context, const unsigned char *data, size_t n)
{
    return fwrite(data, 1, n, (FILE *)context) == n;
}

// Copies what the kernel will copy of the blob to out from start, where
// out's stream stands; *copied tells how far it got (the rest is left to
// the chunked copy).  The output stream is flushed first and repositioned
// after, so stdio's idea of the position matches the file's.
// kBlobShortRead: the source held fewer bytes than asked for.
BlobResult KernelCopyFrom(FILE *in, uint32_t offset, uint32_t size, FILE *out, int64_t start, uint32_t *copied)
{
    *copied = 0;
    if (fflush(out) != 0) return kBlobDone;
    uint64_t inAt = offset, outAt = (uint64_t)start;
    bool sourceEnded = false;
    while (*copied < size) {
        int64_t n = KernelCopy(DescriptorOf(in), &inAt, DescriptorOf(out), &outAt, size - *copied);
        if (n > 0) {
            *copied += (uint32_t)n;
            continue;
        }
        // An error (other file systems, no support, no room) leaves the rest
        // to the chunked copy, which finds out whether reading or writing fails.
        sourceEnded = n == 0;
        break;
    }
    // stdio must not lose track of bytes the kernel already appended.
    if (SeekStream(out, start + (int64_t)*copied, SEEK_SET) != 0) return kBlobShortWrite;
    return sourceEnded ? kBlobShortRead : kBlobDone;
}

bool KernelCopyAllowed() { return kernelCopyAllowed.load(std::memory_order_relaxed); }

// The rest of a blob the kernel did not copy, through a chunk buffer.
BlobResult CopyRest(FILE *in, uint32_t offset, uint32_t size, FILE *out, BlobResult kernel, uint32_t copied)
{
    if (kernel != kBlobDone || copied == size) return kernel;
    return ReadBlob(in, -1, offset + copied, size - copied, WriteSink, out);
}

}  // namespace

void BlobAllowKernelCopy(bool allowed) { kernelCopyAllowed.store(allowed, std::memory_order_relaxed); }

BlobResult ReadBlob(FILE *in, int64_t sourceLength, uint32_t offset, uint32_t size,
                    BlobSink sink, void *context)
{
    if (sourceLength >= 0 && (uint64_t)offset + size > (uint64_t)sourceLength)
        return kBlobShortRead;
    size_t chunk = size < (uint32_t)kBlobChunk ? size : (size_t)kBlobChunk;
    MallocPtr<unsigned char> buffer((unsigned char *)malloc(chunk > 0 ? chunk : 1));
    if (!buffer) return kBlobNoMemory;
    if (SeekStream(in, (int64_t)offset, SEEK_SET) != 0) return kBlobSeekFailed;
    uint32_t left = size;
    while (left > 0) {
        size_t want = left < chunk ? left : chunk;
        if (fread(buffer.get(), 1, want, in) != want) return kBlobShortRead;
        if (!sink(context, buffer.get(), want)) return kBlobShortWrite;
        left -= (uint32_t)want;
    }
    return kBlobDone;
}

BlobResult CopyBlobTo(FILE *in, int64_t sourceLength, uint32_t offset, uint32_t size, FILE *out, int64_t at)
{
    if (sourceLength >= 0 && (uint64_t)offset + size > (uint64_t)sourceLength)
        return kBlobShortRead;
    if (size == 0) return kBlobDone;
    uint32_t copied;
    BlobResult kernel = KernelCopyFrom(in, offset, size, out, at, &copied);
    return CopyRest(in, offset, size, out, kernel, copied);
}

bool KernelCanCopy(FILE *in, FILE *out) { return KernelCopyAllowed() && IsPlainFile(in) && IsPlainFile(out); }

BlobResult CopyBlob(FILE *in, int64_t sourceLength, uint32_t offset, uint32_t size, FILE *out)
{
    if (sourceLength >= 0 && (uint64_t)offset + size > (uint64_t)sourceLength)
        return kBlobShortRead;
    if (size == 0) return kBlobDone;
    // The kernel copies from out's current position, when both are plain
    // files and that position is known; otherwise the chunk buffer does.
    if (KernelCanCopy(in, out) && fflush(out) == 0) {
        const int64_t at = TellStream(out);
        if (at >= 0) return CopyBlobTo(in, sourceLength, offset, size, out, at);
    }
    return ReadBlob(in, -1, offset, size, WriteSink, out);
}

BlobResult PositionedReadFailure(int error)
{
    return IsUnseekableError(error) ? kBlobSeekFailed : kBlobShortRead;
}

BlobResult ReadAtToSink(int fd, unsigned char *buffer, uint64_t offset, uint64_t size, BlobSink sink, void *context)
{
    while (size > 0) {
        const size_t want = size < (uint64_t)kBlobChunk ? (size_t)size : (size_t)kBlobChunk;
        int error;
        if (ReadFullyAt(fd, buffer, want, offset, &error) != want) return PositionedReadFailure(error);
        if (!sink(context, buffer, want)) return kBlobShortWrite;
        offset += want;
        size -= want;
    }
    return kBlobDone;
}

namespace {

// Longest run copied at once; the copies count in 32 bits.
const uint64_t kLongestRun = (uint64_t)1 << 30;

}  // namespace

BlobRun StartBlobRun(FILE *in, int64_t inLength, FILE *out, BlobSink sink, void *context)
{
    int64_t at = TellStream(out);
    // Whether the kernel may copy is found once for the whole run; without
    // a known start in out it never does, and the chunked copy follows the
    // stream wherever it stands.
    const bool kernel = !sink && at >= 0 && KernelCanCopy(in, out);
    return BlobRun{in, inLength, out, at < 0 ? 0 : (uint64_t)at, sink, context, 0, 0, nullptr, kernel};
}

namespace {

// CopyBlob for a run: the checks made once at its start, and the place in
// out known from the run, so that a run of one small blob costs two system
// calls (the copy and the stream's repositioning).
BlobResult CopyRunToOut(BlobRun &run, uint32_t offset, uint32_t size)
{
    if (!run.kernelCopy) return CopyBlob(run.in, run.inLength, offset, size, run.out);
    // The run is taken off run.size already: it starts size bytes back.
    return CopyBlobTo(run.in, run.inLength, offset, size, run.out, (int64_t)(run.outAt - size));
}

// ReadBlob for a run's sink, through the run's own buffer and with reads at
// a position (pread), so a run of one small blob costs one system call.
BlobResult ReadRunToSink(BlobRun &run, uint32_t offset, uint32_t size)
{
    if (run.inLength >= 0 && (uint64_t)offset + size > (uint64_t)run.inLength) return kBlobShortRead;
    if (!run.buffer) run.buffer.reset((unsigned char *)malloc(kBlobChunk));
    if (!run.buffer) return kBlobNoMemory;
    return ReadAtToSink(DescriptorOf(run.in), run.buffer.get(), offset, size, run.sink, run.context);
}

}  // namespace

BlobResult FlushBlobRun(BlobRun &run)
{
    if (run.size == 0) return kBlobDone;
    const uint32_t from = (uint32_t)run.from, size = (uint32_t)run.size;
    run.size = 0;
    return run.sink ? ReadRunToSink(run, from, size) : CopyRunToOut(run, from, size);
}

BlobResult AddToBlobRun(BlobRun &run, uint32_t offset, uint32_t size)
{
    const bool within = run.inLength < 0 || (uint64_t)offset + size <= (uint64_t)run.inLength;
    if (!within || run.from + run.size != offset || run.size + size > kLongestRun) {
        BlobResult before = FlushBlobRun(run);
        if (before != kBlobDone) return before;
        run.from = offset;
    }
    run.size += size;
    run.outAt += size;
    return within ? kBlobDone : FlushBlobRun(run);
}
