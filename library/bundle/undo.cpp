// Saving and putting back a bundle's undo record (undo.h).
#include "bundle/undo.h"

#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "bundle/chartsbin.h"
#include "bundle/crc.h"
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"

namespace {

const char kMagic[8] = {'T', 'A', 'R', 'N', 'U', 'N', 'D', 'O'};
const uint32_t kVersion = 1;
const uint32_t kExisted = 1;
// Bytes pass through memory a chunk at a time, whatever the bundle's size.
const size_t kChunk = 1 << 20;

void PutLe(unsigned char *to, uint64_t value, int bytes)
{
    for (int i = 0; i < bytes; i++) to[i] = (unsigned char)(value >> (8 * i));
}

uint64_t GetLe(const unsigned char *from, int bytes)
{
    uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; i--) value = value << 8 | from[i];
    return value;
}

// The directory part of a path ("." for a bare name).
std::string DirectoryOf(const char *path)
{
    const char *slash = strrchr(path, '/');
    if (!slash) return ".";
    if (slash == path) return "/";
    return std::string(path, (size_t)(slash - path));
}

std::string NameOf(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

// Writes bytes to the record and feeds them to its checksum.
struct RecordWriter {
    FILE *out;
    uint32_t crc = 0;

    void Put(const void *bytes, size_t n)
    {
        if (n == 0) return;
        fwrite(bytes, 1, n, out);  // a failure stays in the stream's error indicator
        crc = TarnCrcUpdate(crc, bytes, n);
    }
    void PutNumber(uint64_t value, int bytes)
    {
        unsigned char b[8];
        PutLe(b, value, bytes);
        Put(b, (size_t)bytes);
    }
};

// Reads the record's fields in order from a buffer that holds it whole
// (checksum verified before).
struct RecordReader {
    const unsigned char *at, *end;
    bool ok = true;

    const unsigned char *Take(uint64_t n)
    {
        if (!ok || (uint64_t)(end - at) < n) {
            ok = false;
            return nullptr;
        }
        const unsigned char *taken = at;
        at += n;
        return taken;
    }
    uint64_t Number(int bytes)
    {
        const unsigned char *b = Take((uint64_t)bytes);
        return b ? GetLe(b, bytes) : 0;
    }
};

// What a record holds, with the saved bytes left in the record file (at
// bytesAt) rather than in memory.
struct Record {
    bool existed = false;
    std::string origin;  // the update's name, when the bundle did not exist
    uint64_t length = 0;
    uint32_t headerBytes = 0;
    unsigned char header[kChartsBinHeaderSize] = {0};
    uint64_t start = 0;
    uint64_t count = 0;
    uint64_t bytesAt = 0;  // where the saved bytes start in the record file
};

// Reads and checks the record at path: its checksum over everything but
// the last four bytes, then its fields.
bool ReadRecord(FILE *in, Record *record)
{
    const int64_t size = DescriptorLength(DescriptorOf(in));
    if (size < 4) return false;
    const size_t chunkSize = (size_t)std::min<uint64_t>(kChunk, (uint64_t)size);
    MallocPtr<unsigned char> chunk((unsigned char *)malloc(chunkSize));
    if (!chunk) return false;
    const int fd = DescriptorOf(in);
    uint32_t crc = 0;
    for (uint64_t at = 0; at < (uint64_t)size - 4;) {
        const size_t want = (size_t)std::min<uint64_t>(chunkSize, (uint64_t)size - 4 - at);
        if (ReadFullyAt(fd, chunk.get(), want, at) != want) return false;
        crc = TarnCrcUpdate(crc, chunk.get(), want);
        at += want;
    }
    unsigned char stored[4];
    if (ReadFullyAt(fd, stored, 4, (uint64_t)size - 4) != 4 || GetLe(stored, 4) != crc) return false;

    // The fields before the saved bytes are small: read them into memory.
    unsigned char head[8 + 4 + 4 + 4 + 4096];
    const size_t headBytes = (size_t)std::min<uint64_t>(sizeof head, (uint64_t)size - 4);
    if (ReadFullyAt(fd, head, headBytes, 0) != headBytes) return false;
    RecordReader r = {head, head + headBytes};
    const unsigned char *magic = r.Take(8);
    if (!magic || memcmp(magic, kMagic, 8) != 0 || r.Number(4) != kVersion) return false;
    record->existed = (r.Number(4) & kExisted) != 0;
    const uint64_t nameLength = r.Number(4);
    if (nameLength > 4096) return false;
    const unsigned char *name = r.Take(nameLength);
    if (!r.ok) return false;
    // A record whose own name part is longer than the head read cannot be whole.
    record->origin.assign((const char *)name, (size_t)nameLength);
    unsigned char rest[8 + 4 + kChartsBinHeaderSize + 8 + 8];
    const uint64_t restAt = (uint64_t)(r.at - head);
    if (ReadFullyAt(fd, rest, sizeof rest, restAt) != sizeof rest) return false;
    RecordReader f = {rest, rest + sizeof rest};
    record->length = f.Number(8);
    record->headerBytes = (uint32_t)f.Number(4);
    memcpy(record->header, f.Take(kChartsBinHeaderSize), kChartsBinHeaderSize);
    record->start = f.Number(8);
    record->count = f.Number(8);
    record->bytesAt = restAt + sizeof rest;
    if (record->headerBytes > kChartsBinHeaderSize || record->start > record->length ||
        record->count != record->length - record->start || (record->existed != record->origin.empty()))
        return false;
    // Everything that follows is the saved bytes and the checksum.
    return record->bytesAt + record->count + 4 == (uint64_t)size;
}

// Writes the record's bytes back into the file open on bundle, cut to its
// recorded length, and flushes it.  Only bytes that differ are written: a
// bundle the apply never reached is left untouched, and putting back costs
// no more writes than the apply made.
bool PutBack(FILE *bundle, FILE *recordFile, const Record &record)
{
    const int in = DescriptorOf(recordFile), out = DescriptorOf(bundle);
    if (DescriptorLength(out) != (int64_t)record.length && !TruncateFile(bundle, record.length)) return false;
    const size_t chunkSize = (size_t)std::min<uint64_t>(kChunk, std::max<uint64_t>(record.count, 1));
    MallocPtr<unsigned char> saved((unsigned char *)malloc(chunkSize)), standing((unsigned char *)malloc(chunkSize));
    if (!saved || !standing) return false;
    // Writes back the span from the first to the last byte that differs.
    auto restore = [&](const unsigned char *bytes, size_t n, uint64_t at) {
        const size_t got = ReadFullyAt(out, standing.get(), n, at);
        size_t first = 0, end = n;
        while (first < got && standing.get()[first] == bytes[first]) first++;
        if (got == n)
            while (end > first && standing.get()[end - 1] == bytes[end - 1]) end--;
        return first == end || WriteFullyAt(out, bytes + first, end - first, at + first);
    };
    for (uint64_t done = 0; done < record.count;) {
        const size_t want = (size_t)std::min<uint64_t>(chunkSize, record.count - done);
        if (ReadFullyAt(in, saved.get(), want, record.bytesAt + done) != want) return false;
        if (!restore(saved.get(), want, record.start + done)) return false;
        done += want;
    }
    if (record.headerBytes > 0) {
        if (record.headerBytes > chunkSize) return false;
        if (!restore(record.header, record.headerBytes, 0)) return false;
    }
    return FlushDescriptor(out);
}

}  // namespace

std::string UndoRecordPath(const char *bundlePath) { return std::string(bundlePath) + TARN_UNDO_SUFFIX; }

bool SaveUndoRecord(const char *bundlePath, const char *fromUpdate)
{
    const char *sourcePath = fromUpdate ? fromUpdate : bundlePath;
    FilePtr source(fopen(sourcePath, "rb"));
    if (!source) return false;
    const int64_t length = DescriptorLength(DescriptorOf(source.get()));
    if (length < 0) return false;
    unsigned char header[kChartsBinHeaderSize] = {0};
    const size_t headerBytes = ReadFullyAt(DescriptorOf(source.get()), header, sizeof header, 0);
    uint64_t start = (uint64_t)length;
    if (headerBytes == kChartsBinHeaderSize) {
        const uint64_t tableOffset = GetLe(header + 12, 4);
        if (tableOffset < start) start = tableOffset;
    }

    NewFile out;
    if (!out.Create(UndoRecordPath(bundlePath))) return false;
    RecordWriter w = {out.stream()};
    const std::string origin = fromUpdate ? NameOf(fromUpdate) : std::string();
    w.Put(kMagic, sizeof kMagic);
    w.PutNumber(kVersion, 4);
    w.PutNumber(fromUpdate ? 0 : kExisted, 4);
    w.PutNumber(origin.size(), 4);
    w.Put(origin.data(), origin.size());
    w.PutNumber((uint64_t)length, 8);
    w.PutNumber(headerBytes, 4);
    w.Put(header, sizeof header);
    w.PutNumber(start, 8);
    w.PutNumber((uint64_t)length - start, 8);
    // A chunk no larger than the bytes saved: most records hold a table.
    const size_t chunkSize = (size_t)std::min<uint64_t>(kChunk, std::max<uint64_t>((uint64_t)length - start, 1));
    MallocPtr<unsigned char> chunk((unsigned char *)malloc(chunkSize));
    if (!chunk) return false;
    for (uint64_t at = start; at < (uint64_t)length;) {
        const size_t want = (size_t)std::min<uint64_t>(chunkSize, (uint64_t)length - at);
        if (ReadFullyAt(DescriptorOf(source.get()), chunk.get(), want, at) != want) return false;
        w.Put(chunk.get(), want);
        at += want;
    }
    const uint32_t crc = w.crc;
    w.PutNumber(crc, 4);
    if (!out.Commit()) return false;
    return FlushDirectory(DirectoryOf(bundlePath).c_str());
}

UndoResult RestoreFromUndoRecord(const char *bundlePath)
{
    const std::string path = UndoRecordPath(bundlePath);
    const std::string directory = DirectoryOf(bundlePath);
    // A record that never got its name was never relied on.
    RemoveName((path + TARN_TEMPORARY_SUFFIX).c_str());
    FilePtr recordFile(fopen(path.c_str(), "rb"));
    if (!recordFile) return KindOf(path.c_str()) == kPathMissing ? kUndoNone : kUndoDamaged;
    Record record;
    if (!ReadRecord(recordFile.get(), &record)) return kUndoDamaged;

    const std::string origin = directory + "/" + record.origin;
    const PathKind bundleKind = KindOf(bundlePath);
    if (!record.existed && bundleKind == kPathMissing) {
        // The update never took the bundle's name (or has been given its
        // own back already): it stands as it was.
    } else {
        FilePtr bundle(OpenFileForUpdate(bundlePath));
        if (!bundle || !PutBack(bundle.get(), recordFile.get(), record)) return kUndoWriteFailed;
        bundle.reset();
        if (!record.existed && RenameFile(bundlePath, origin.c_str()) != 0) return kUndoWriteFailed;
        if (!FlushDirectory(directory.c_str())) return kUndoWriteFailed;
    }
    recordFile.reset();
    if (RemoveName(path.c_str()) != 0) return kUndoWriteFailed;
    FlushDirectory(directory.c_str());
    return kUndoRestored;
}

void RemoveUndoRecord(const char *bundlePath)
{
    const std::string path = UndoRecordPath(bundlePath);
    RemoveName(path.c_str());
    RemoveName((path + TARN_TEMPORARY_SUFFIX).c_str());
}

bool HasUndoRecord(const char *bundlePath)
{
    const std::string path = UndoRecordPath(bundlePath);
    return KindOf(path.c_str()) != kPathMissing ||
           KindOf((path + TARN_TEMPORARY_SUFFIX).c_str()) != kPathMissing;
}
