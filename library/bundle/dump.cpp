// Text listing of a chart bundle: the header fields, then one tab-separated
// line per file-table entry, optionally with its data offset and a checksum
// of its data.
#include <stdint.h>

#include "platform/files.h"
#include "platform/removal.h"
#include "bundle/blob.h"
#include "bundle/chartsbin.h"
#include "bundle/crc.h"
#include "tarntermchart.h"

namespace {

// The register over one blob, fed chunk by chunk.  CalcCRC32 takes a signed
// length and leaves the register alone for a blob of 2 GiB or more; such a
// blob is still read whole, so read failures are reported all the same.
struct BlobChecksum {
    uint32_t reg;
    bool counted;
};

bool FeedChecksum(void *context, const unsigned char *data, size_t n)
{
    BlobChecksum *sum = (BlobChecksum *)context;
    if (sum->counted) sum->reg = StandardCrcUpdate(sum->reg, data, n);
    return true;
}

int DumpCode(BlobResult result)
{
    switch (result) {
    case kBlobNoMemory: return -4;
    case kBlobSeekFailed: return -5;
    default: return -6;
    }
}

}  // namespace

extern "C" int TarnTermChart_DumpChartsBin(const char *chartsBinPath, const char *outputPath,
                                           int option1, int option2)
{
    WaitForRemovedFiles();
    FilePtr bundle(fopen(chartsBinPath, "rb"));
    if (!bundle) return -1;
    ChartsBinHeader header;
    MallocPtr<SFileTableEntry> table(ReadChartsBinHeaderAndFileTable(bundle.get(), 0, &header));
    if (!table) return -2;
    FilePtr out(fopen(outputPath, "w"));
    if (!out) return -3;
    int64_t bundleLength = StreamLength(bundle.get());

    // Every line goes through this one buffer.  An entry line whose flags
    // match no format leaves it as it is, so the line before is written again.
    char line[256];
    auto emit = [&] { fputs(line, out.get()); };
    snprintf(line, sizeof line, "; Header CRC:          %x\r\n", header.crc);
    emit();
    snprintf(line, sizeof line, "; Header Size:         %d\r\n", header.size);
    emit();
    snprintf(line, sizeof line, "; Header Version:      %x\r\n", header.version);
    emit();
    snprintf(line, sizeof line, "; Header File Count:   %d\r\n", (int)header.fileCount);
    emit();
    snprintf(line, sizeof line, "; Header Table Offset: %d\r\n", (int)header.tableOffset);
    emit();
    snprintf(line, sizeof line, "; Header Julian Date:  %.11s\r\n", header.julianDate);
    emit();
    snprintf(line, sizeof line, ";\r\n");
    emit();

    const unsigned offsets = (unsigned)option1, checksums = (unsigned)option2;
    for (uint32_t i = 0; i < header.fileCount; i++) {
        const SFileTableEntry &e = table.get()[i];
        BlobChecksum sum = {0xFFFFFFFFu, (int32_t)e.size >= 1};
        if (checksums == 1) {
            BlobResult read = ReadBlob(bundle.get(), bundleLength, e.offset, e.size, FeedChecksum, &sum);
            if (read != kBlobDone) return DumpCode(read);
        }
        const int size = (int32_t)e.size, key = (int32_t)e.key, offset = (int32_t)e.offset;
        if (offsets == 0 && checksums == 0)
            snprintf(line, sizeof line, "%.26s\t%010d\t%010d\t%03d\t%03d\r\n", e.name, size, key,
                     e.flags, e.variant);
        else if (offsets == 0 && checksums == 1)
            snprintf(line, sizeof line, "%.26s\t%010d\t%010d\t%03d\t%03d\t%x\r\n", e.name, size, key,
                     e.flags, e.variant, sum.reg);
        else if (offsets == 1 && checksums == 0)
            snprintf(line, sizeof line, "%.26s\t%010d\t%010d\t%03d\t%03d\t%010d\r\n", e.name, size,
                     key, e.flags, e.variant, offset);
        else if (offsets == 1 && checksums == 1)
            snprintf(line, sizeof line, "%.26s\t%010d\t%010d\t%03d\t%03d\t%010d\t%x\r\n", e.name,
                     size, key, e.flags, e.variant, offset, sum.reg);
        emit();
    }
    return (int)header.fileCount;
}
