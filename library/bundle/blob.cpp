#include "bundle/blob.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "api/files.h"

namespace {

std::atomic<bool> kernelCopyAllowed{true};

bool IsPlainFile(FILE *f)
{
    struct stat st;
    return fstat(fileno(f), &st) == 0 && S_ISREG(st.st_mode);
}

bool WriteSink(void *context, const unsigned char *data, size_t n)
{
    return fwrite(data, 1, n, (FILE *)context) == n;
}

// Copies what the kernel will copy of the blob; *copied tells how far it
// got (the rest is left to the chunked copy).  The output stream is flushed
// first and repositioned after, so stdio's idea of the position matches the
// file's.  kBlobShortRead: the source held fewer bytes than asked for.
BlobResult KernelCopy(FILE *in, uint32_t offset, uint32_t size, FILE *out, uint32_t *copied)
{
    *copied = 0;
    if (!kernelCopyAllowed.load(std::memory_order_relaxed)) return kBlobDone;
    if (!IsPlainFile(in) || !IsPlainFile(out) || fflush(out) != 0) return kBlobDone;
    off_t start = ftello(out);
    if (start < 0) return kBlobDone;
    off_t inAt = (off_t)offset, outAt = start;
    bool sourceEnded = false;
    while (*copied < size) {
        ssize_t n = copy_file_range(fileno(in), &inAt, fileno(out), &outAt, size - *copied, 0);
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
    if (fseeko(out, start + (off_t)*copied, SEEK_SET) != 0) return kBlobShortWrite;
    return sourceEnded ? kBlobShortRead : kBlobDone;
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
    if (fseeko(in, (off_t)offset, SEEK_SET) != 0) return kBlobSeekFailed;
    uint32_t left = size;
    while (left > 0) {
        size_t want = left < chunk ? left : chunk;
        if (fread(buffer.get(), 1, want, in) != want) return kBlobShortRead;
        if (!sink(context, buffer.get(), want)) return kBlobShortWrite;
        left -= (uint32_t)want;
    }
    return kBlobDone;
}

BlobResult CopyBlob(FILE *in, int64_t sourceLength, uint32_t offset, uint32_t size, FILE *out)
{
    if (sourceLength >= 0 && (uint64_t)offset + size > (uint64_t)sourceLength)
        return kBlobShortRead;
    if (size == 0) return kBlobDone;
    uint32_t copied;
    BlobResult kernel = KernelCopy(in, offset, size, out, &copied);
    if (kernel != kBlobDone || copied == size) return kernel;
    return ReadBlob(in, -1, offset + copied, size - copied, WriteSink, out);
}
