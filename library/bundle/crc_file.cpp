// Checksums of whole files.  Files are read in large blocks through one
// bounded buffer, whatever their size; the block size does not change any
// result.
#include <stdio.h>

#include "platform/files.h"
#include "platform/platform.h"
#include "bundle/crc.h"

namespace {

using Update = uint32_t (*)(uint32_t reg, const void *data, size_t n);

FilePtr OpenForChecksum(const char *path)
{
    FilePtr f(fopen(path, "rb"));
    AdviseSequential(f.get());
    return f;
}

MallocPtr<unsigned char> NewBlock() { return MallocPtr<unsigned char>((unsigned char *)malloc(kCrcFileBlock)); }

// Feeds the rest of the stream to the register; a read error ends it like the end of file.
uint32_t UpdateToEnd(FILE *f, unsigned char *block, uint32_t reg, Update update)
{
    size_t got;
    while ((got = fread(block, 1, kCrcFileBlock, f)) > 0) reg = update(reg, block, got);
    return reg;
}

}  // namespace

extern "C" {

uint32_t FileCRC(const char *path)
{
    FilePtr f = OpenForChecksum(path);
    if (!f) return 0;
    MallocPtr<unsigned char> block = NewBlock();
    if (!block) return 0;
    // An empty file leaves 0xFFFFFFFF, which inverts to the 0 callers take for "no file".
    return UpdateToEnd(f.get(), block.get(), 0xFFFFFFFFu, StandardCrcUpdate) ^ 0xFFFFFFFFu;
}

uint32_t FileCRCTarnStartingAt(const char *path, int32_t start)
{
    FilePtr f = OpenForChecksum(path);
    if (!f) return 0;
    // A failed seek leaves the stream at the start, which is then checksummed whole.
    if (start != 0) SeekStream(f.get(), (int64_t)start, SEEK_SET);
    MallocPtr<unsigned char> block = NewBlock();
    if (!block) return 0;
    // With nothing to read the register stays 0, the result for that case.
    return UpdateToEnd(f.get(), block.get(), 0, TarnCrcUpdate);
}

uint32_t FileCRCTarn(const char *path) { return FileCRCTarnStartingAt(path, 0); }

uint32_t FileCRCskipLast4(const char *path)
{
    FilePtr f = OpenForChecksum(path);
    if (!f) return 0xFFFFFFFFu;
    if (SeekStream(f.get(), 0, SEEK_END) != 0) return 0;
    int64_t length = TellStream(f.get());
    if (length - 4 < 1) return 0;
    if (SeekStream(f.get(), 0, SEEK_SET) != 0) return 0;
    MallocPtr<unsigned char> block = NewBlock();
    if (!block) return 0;
    // The covered bytes are streamed rather than held at once; the whole
    // span must still be read, or the result is 0.
    uint64_t left = (uint64_t)(length - 4);
    uint32_t reg = 0xFFFFFFFFu;
    while (left > 0) {
        size_t want = left < (uint64_t)kCrcFileBlock ? (size_t)left : (size_t)kCrcFileBlock;
        if (fread(block.get(), 1, want, f.get()) != want) return 0;
        reg = StandardCrcUpdate(reg, block.get(), want);
        left -= want;
    }
    return reg ^ 0xFFFFFFFFu;
}

}  // extern "C"
