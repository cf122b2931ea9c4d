// The merged NOTAM memo file: the IFR memo file, then the VFR one, then one
// end-of-file byte.  The VFR file is copied whole, its header block
// included, so its block N lands at block N + (IFR blocks) - the shift that
// the NOTAM table merge applies to the VFR memo pointers.
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"
#include "bundle/blob.h"
#include "bundle/chartsbin.h"
#include "combine/combine.h"

namespace {

// Appends the memo file in to out, less its end-of-file byte when it has
// one behind whole blocks.  The file passes through one bounded buffer,
// however long it is.  0, -3 no memory, -4 short read or write.
int AppendMemoFile(FILE *in, FILE *out)
{
    int64_t length = StreamLength(in);
    if (length < 0) return -4;
    if (length % kDbtBlockSize == 1) length--;
    size_t chunk = length < (int64_t)kBlobChunk ? (size_t)length : (size_t)kBlobChunk;
    MallocPtr<unsigned char> buffer((unsigned char *)malloc(chunk > 0 ? chunk : 1));
    if (!buffer) return -3;
    if (SeekStream(in, 0, SEEK_SET) != 0) return -4;
    for (int64_t left = length; left > 0;) {
        size_t want = left < (int64_t)chunk ? (size_t)left : chunk;
        if (fread(buffer.get(), 1, want, in) != want) return -4;
        if (fwrite(buffer.get(), 1, want, out) != want) return -4;
        left -= (int64_t)want;
    }
    // A write that only filled the stream's buffer fails here, if at all.
    return fflush(out) == 0 ? 0 : -4;
}

}  // namespace

int MergeNotamsDBT(const char *sourceDirectory, const char *destinationDirectory)
{
    FilePtr ifr = OpenIn(sourceDirectory, "notams.dbt", "rb");
    NewFile out;
    if (!out.Create(destinationDirectory, "notams.dbt")) return -2;
    if (ifr) {
        int code = AppendMemoFile(ifr.get(), out.stream());
        if (code != 0) return code;
        ifr.reset();
    }
    FilePtr vfr = OpenIn(sourceDirectory, "vfrntms.dbt", "rb");
    if (vfr) {
        int code = AppendMemoFile(vfr.get(), out.stream());
        if (code != 0) return code;
    }
    // The end-of-file byte is written last; the memo file takes its name
    // only once every byte of it is written.
    fputc(kDbfEndMarker, out.stream());
    return out.Commit() ? 0 : -11;
}
