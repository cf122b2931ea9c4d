// The shared bundle-writing steps and the blob copy.
#include <gtest/gtest.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <vector>

#include "platform/files.h"
#include "bundle/blob.h"
#include "bundle/bundlewriter.h"
#include "bundle_writer.h"
#include "fork_util.h"
#include "test_util.h"

namespace {

// Runs a test on the kernel copy (where the file system offers it) and on
// the chunked copy.
class CopyPaths : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override { BlobAllowKernelCopy(GetParam()); }
    void TearDown() override { BlobAllowKernelCopy(true); }
};

std::string CopyPathName(const ::testing::TestParamInfo<bool> &info)
{
    return info.param ? "Kernel" : "Chunked";
}

FixtureBundle MixedSource()
{
    FixtureBundle b;
    b.gap = "gap before the blobs";
    b.between = "--";
    b.julianDate = "2460400.5";
    b.version = 0x0102;
    b.entries = {{"XRAY.PDF", RandomBytes(5000, 1), 11, 0, 0},
                 {"alpha.tif", RandomBytes(1, 2), 12, 0, 3},
                 {"Alpha.TIF", RandomBytes(0, 3), 13, 0, 1},
                 {"mike.pdf", RandomBytes((3 << 20) / 2 + 7, 4), 14, 0x10, 0},
                 {"bravo.pdf", RandomBytes(77, 5), 15, 0, 0}};
    return b;
}

// Rewrites source into target with the steps every writer takes, leaving
// out the entries whose names are listed in drop.
void Rewrite(const std::string &source, const std::string &target,
             const std::vector<std::string> &drop = {})
{
    FilePtr in(fopen(source.c_str(), "rb"));
    ASSERT_TRUE(in);
    ChartsBinHeader header;
    MallocPtr<SFileTableEntry> table(ReadChartsBinHeaderAndFileTable(in.get(), 0, &header));
    ASSERT_TRUE(table);
    int64_t length = StreamLength(in.get());
    FilePtr out(fopen(target.c_str(), "wb"));
    ASSERT_TRUE(out);
    ASSERT_TRUE(WriteChartsBinHeader(out.get(), &header));
    uint32_t kept = 0;
    for (uint32_t i = 0; i < header.fileCount; i++) {
        SFileTableEntry &e = table.get()[i];
        if (std::find(drop.begin(), drop.end(), std::string(e.name)) != drop.end()) {
            MarkEntryDropped(&e);
            continue;
        }
        uint32_t from = e.offset;
        e.offset = WritePosition(out.get());
        ASSERT_EQ(CopyBlob(in.get(), length, from, e.size, out.get()), kBlobDone);
        kept++;
    }
    SortFileTable(table.get(), header.fileCount);
    header.crc = 0;
    header.fileCount = kept;
    header.tableOffset = WritePosition(out.get());
    ASSERT_TRUE(WriteFileTable(out.get(), table.get(), kept));
    ASSERT_EQ(RewriteChartsBinHeader(out.get(), &header), kHeaderWritten);
    ASSERT_EQ(fclose(out.release()), 0);
    ASSERT_TRUE(WriteChartsBinCrc(target.c_str()));
}

std::string Key(const ParsedEntry &e) { return e.name + "/" + std::to_string(e.variant); }

}  // namespace

INSTANTIATE_TEST_SUITE_P(BundleWriter, CopyPaths, ::testing::Bool(), CopyPathName);

TEST_P(CopyPaths, SharedStepsWriteAFinishedBundle)
{
    TempDir dir;
    std::string sourceBytes = BuildChartsBin(MixedSource());
    WriteFile(dir / "source.bin", sourceBytes);
    Rewrite(dir / "source.bin", dir / "target.bin");

    std::string bytes = ReadFile(dir / "target.bin");
    ParsedBundle source = ParseChartsBin(sourceBytes), target = ParseChartsBin(bytes);
    EXPECT_EQ(target.crc, ReferenceBundleCrc(bytes));
    EXPECT_EQ(target.version, 0x0102);
    EXPECT_EQ(target.julianDate, "2460400.5");
    ASSERT_EQ(target.fileCount, 5u);
    std::map<std::string, std::string> blobs;
    for (const ParsedEntry &e : source.entries) blobs[Key(e)] = BlobOf(sourceBytes, e);
    // Blobs follow the header without gaps, in source table order; the table
    // comes last, in bundle order.
    uint32_t next = 27;
    for (const ParsedEntry &e : target.entries) EXPECT_EQ(BlobOf(bytes, e), blobs[Key(e)]) << e.name;
    for (const ParsedEntry &e : source.entries) {
        auto it = std::find_if(target.entries.begin(), target.entries.end(),
                               [&](const ParsedEntry &t) { return Key(t) == Key(e); });
        ASSERT_NE(it, target.entries.end());
        EXPECT_EQ(it->offset, next) << e.name;
        next += e.size;
    }
    EXPECT_EQ(target.tableOffset, next);
    EXPECT_EQ(bytes.size(), next + 5 * 40u);
    const char *order[] = {"Alpha.TIF", "alpha.tif", "bravo.pdf", "mike.pdf", "XRAY.PDF"};
    for (int i = 0; i < 5; i++) EXPECT_EQ(target.entries[i].name, order[i]);
}

TEST_P(CopyPaths, DroppedEntriesSortLastAndAreNotWritten)
{
    TempDir dir;
    WriteChartsBin(dir / "source.bin", MixedSource());
    Rewrite(dir / "source.bin", dir / "target.bin", {"XRAY.PDF", "alpha.tif"});
    std::string bytes = ReadFile(dir / "target.bin");
    ParsedBundle target = ParseChartsBin(bytes);
    ASSERT_EQ(target.fileCount, 3u);
    EXPECT_EQ(target.entries[0].name, "Alpha.TIF");
    EXPECT_EQ(target.entries[1].name, "bravo.pdf");
    EXPECT_EQ(target.entries[2].name, "mike.pdf");
    EXPECT_EQ(bytes.size(), target.tableOffset + 3 * 40u);
    EXPECT_EQ(target.crc, ReferenceBundleCrc(bytes));
}

TEST(MarkEntryDropped, TenZsAndANulTheRestKept)
{
    SFileTableEntry e;
    memset(&e, 0, sizeof e);
    memcpy(e.name, "ABCDEFGHIJKLMNOPQRSTUVWXYZ", 26);
    MarkEntryDropped(&e);
    EXPECT_EQ(std::string(e.name, 26), std::string("zzzzzzzzzz\0LMNOPQRSTUVWXYZ", 26));
}

TEST_P(CopyPaths, LargeBlobIntoTheMiddleOfAFile)
{
    TempDir dir;
    std::string source = RandomBytes((5 << 20) / 2 + 3, 9);
    WriteFile(dir / "in", source);
    WriteFile(dir / "out", std::string(100, 'o') + std::string(source.size() + 50, 'p'));
    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    FilePtr out(fopen((dir / "out").c_str(), "r+b"));
    ASSERT_EQ(fseeko(out.get(), 100, SEEK_SET), 0);
    EXPECT_EQ(CopyBlob(in.get(), StreamLength(in.get()), 1, (uint32_t)source.size() - 1, out.get()),
              kBlobDone);
    EXPECT_EQ(WritePosition(out.get()), 100 + source.size() - 1);
    ASSERT_EQ(fwrite("!", 1, 1, out.get()), 1u);  // appending goes on from there
    out.reset();
    std::string expected = std::string(100, 'o') + source.substr(1) + "!" + std::string(50, 'p');
    EXPECT_EQ(ReadFile(dir / "out"), expected);
}

TEST_P(CopyPaths, PastTheEndIsAShortReadBeforeAnythingIsWritten)
{
    TempDir dir;
    WriteFile(dir / "in", RandomBytes(1000, 1));
    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    FilePtr out(fopen((dir / "out").c_str(), "wb"));
    int64_t length = StreamLength(in.get());
    EXPECT_EQ(CopyBlob(in.get(), length, 990, 11, out.get()), kBlobShortRead);
    EXPECT_EQ(CopyBlob(in.get(), length, 0xFFFFFFFFu, 0xFFFFFFFFu, out.get()), kBlobShortRead);
    EXPECT_EQ(CopyBlob(in.get(), length, 990, 10, out.get()), kBlobDone);
    out.reset();
    EXPECT_EQ(ReadFile(dir / "out").size(), 10u);
}

TEST_P(CopyPaths, UnknownLengthStillEndsInAShortRead)
{
    TempDir dir;
    WriteFile(dir / "in", RandomBytes(3000, 1));
    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    FilePtr out(fopen((dir / "out").c_str(), "wb"));
    EXPECT_EQ(CopyBlob(in.get(), -1, 1000, 2001, out.get()), kBlobShortRead);
}

TEST_P(CopyPaths, EmptyBlobWritesNothing)
{
    TempDir dir;
    WriteFile(dir / "in", "abc");
    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    FilePtr out(fopen((dir / "out").c_str(), "wb"));
    EXPECT_EQ(CopyBlob(in.get(), 3, 3, 0, out.get()), kBlobDone);
    EXPECT_EQ(WritePosition(out.get()), 0u);
}

TEST_P(CopyPaths, ShortWriteAtTheFileSizeLimit)
{
    TempDir dir;
    std::string blob = RandomBytes(200000, 3);
    WriteFile(dir / "in", blob);
    std::string outPath = dir / "out";
    int result = RunInChild([&] {
        FilePtr in(fopen((dir / "in").c_str(), "rb"));
        FilePtr out(fopen(outPath.c_str(), "wb"));
        if (!in || !out || !WriteChartsBinHeader(out.get(), nullptr)) return 10;
        LimitFileSize(1000);
        return (int)CopyBlob(in.get(), (int64_t)blob.size(), 0, (uint32_t)blob.size(), out.get());
    });
    EXPECT_EQ(result, (int)kBlobShortWrite);
}

TEST(CopyBlob, IntoAPipe)
{
    TempDir dir;
    std::string blob = RandomBytes(10000, 5);
    WriteFile(dir / "in", "xx" + blob);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    FilePtr out(fdopen(fds[1], "wb"));
    EXPECT_EQ(CopyBlob(in.get(), StreamLength(in.get()), 2, (uint32_t)blob.size(), out.get()), kBlobDone);
    out.reset();
    std::string got;
    char buffer[4096];
    ssize_t n;
    while ((n = read(fds[0], buffer, sizeof buffer)) > 0) got.append(buffer, (size_t)n);
    close(fds[0]);
    EXPECT_EQ(got, blob);
}

TEST(CopyBlob, SourceThatCannotBePositioned)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(write(fds[1], "abcdef", 6), 6);
    close(fds[1]);
    TempDir dir;
    FilePtr in(fdopen(fds[0], "rb"));
    FilePtr out(fopen((dir / "out").c_str(), "wb"));
    EXPECT_EQ(CopyBlob(in.get(), -1, 2, 3, out.get()), kBlobSeekFailed);
}

TEST(ReadBlob, HandsOverBoundedChunksInOrder)
{
    TempDir dir;
    std::string data = RandomBytes(3 * kBlobChunk + 17, 8);
    WriteFile(dir / "in", data);
    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    struct Collected {
        std::string bytes;
        size_t largest = 0;
    } collected;
    auto sink = [](void *context, const unsigned char *p, size_t n) {
        Collected *c = (Collected *)context;
        c->bytes.append((const char *)p, n);
        c->largest = std::max(c->largest, n);
        return true;
    };
    EXPECT_EQ(ReadBlob(in.get(), (int64_t)data.size(), 5, (uint32_t)data.size() - 5, sink, &collected),
              kBlobDone);
    EXPECT_EQ(collected.bytes, data.substr(5));
    EXPECT_LE(collected.largest, (size_t)kBlobChunk);
}

TEST(ReadBlob, RefusingSinkIsAShortWrite)
{
    TempDir dir;
    WriteFile(dir / "in", "abcdef");
    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    auto refuse = [](void *, const unsigned char *, size_t) { return false; };
    EXPECT_EQ(ReadBlob(in.get(), 6, 0, 6, refuse, nullptr), kBlobShortWrite);
}

TEST(ReadBlob, NoMemoryForTheChunk)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    TempDir dir;
    std::string data = RandomBytes(2 * kBlobChunk, 8);
    WriteFile(dir / "in", data);
    int result = RunInChild([&] {
        FilePtr in(fopen((dir / "in").c_str(), "rb"));
        if (!in) return 10;
        auto sink = [](void *, const unsigned char *, size_t) { return true; };
        LimitAddressSpace(0);
        ExhaustMemory(0);
        return (int)ReadBlob(in.get(), (int64_t)data.size(), 0, (uint32_t)data.size(), sink, nullptr);
    });
    EXPECT_EQ(result, (int)kBlobNoMemory);
}

TEST(BundleHeader, ZerosWhenNoHeaderIsGiven)
{
    TempDir dir;
    FilePtr out(fopen((dir / "out").c_str(), "wb"));
    ASSERT_TRUE(WriteChartsBinHeader(out.get(), nullptr));
    out.reset();
    EXPECT_EQ(ReadFile(dir / "out"), std::string(27, '\0'));
}

TEST(BundleHeader, RewriteGoesToOffsetZero)
{
    TempDir dir;
    WriteFile(dir / "out", std::string(60, 'x'));
    FilePtr out(fopen((dir / "out").c_str(), "r+b"));
    ASSERT_EQ(fseeko(out.get(), 40, SEEK_SET), 0);
    ChartsBinHeader header;
    memset(&header, 'h', sizeof header);
    EXPECT_EQ(RewriteChartsBinHeader(out.get(), &header), kHeaderWritten);
    out.reset();
    EXPECT_EQ(ReadFile(dir / "out"), std::string(27, 'h') + std::string(33, 'x'));
}

TEST(BundleHeader, SeekFailureAndShortWrite)
{
    ChartsBinHeader header;
    memset(&header, 0, sizeof header);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    FilePtr pipeOut(fdopen(fds[1], "wb"));
    EXPECT_EQ(RewriteChartsBinHeader(pipeOut.get(), &header), kHeaderSeekFailed);
    close(fds[0]);

    FilePtr full(fopen("/dev/full", "wb"));
    ASSERT_TRUE(full);
    setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(RewriteChartsBinHeader(full.get(), &header), kHeaderShortWrite);
    EXPECT_FALSE(WriteChartsBinHeader(full.get(), &header));
}

TEST(WriteFileTable, WritesTheEntriesInOnePiece)
{
    TempDir dir;
    SFileTableEntry table[2];
    memset(table, 'e', sizeof table);
    FilePtr out(fopen((dir / "out").c_str(), "wb"));
    EXPECT_TRUE(WriteFileTable(out.get(), table, 0));
    EXPECT_TRUE(WriteFileTable(out.get(), table, 2));
    out.reset();
    EXPECT_EQ(ReadFile(dir / "out"), std::string(80, 'e'));

    FilePtr full(fopen("/dev/full", "wb"));
    setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_FALSE(WriteFileTable(full.get(), table, 2));
}

TEST(WriteChartsBinCrc, ChecksumOfBytesFourOnAtOffsetZero)
{
    TempDir dir;
    std::string rest = RandomBytes(5000, 4);
    WriteFile(dir / "b.bin", "\xDE\xAD\xBE\xEF" + rest);
    ASSERT_TRUE(WriteChartsBinCrc((dir / "b.bin").c_str()));
    EXPECT_EQ(ReadFile(dir / "b.bin"), U32(ReferenceTarnCrc(rest)) + rest);
    // The CRC field is not part of its own checksum: writing it again changes nothing.
    ASSERT_TRUE(WriteChartsBinCrc((dir / "b.bin").c_str()));
    EXPECT_EQ(ReadFile(dir / "b.bin"), U32(ReferenceTarnCrc(rest)) + rest);
}

TEST(WriteChartsBinCrc, FalseWhenTheBundleCannotBeReopened)
{
    TempDir dir;
    EXPECT_FALSE(WriteChartsBinCrc((dir / "missing.bin").c_str()));
    EXPECT_FALSE(Exists(dir / "missing.bin"));
    EXPECT_FALSE(WriteChartsBinCrc(dir.c_str()));  // a directory opens for reading only
}

TEST(WriteChartsBinCrc, AnyChangeFromOffsetFourOnChangesTheChecksum)
{
    TempDir dir;
    std::string bytes = BuildChartsBin(MixedSource());
    uint32_t original = ParseChartsBin(bytes).crc;
    for (size_t at : {(size_t)4, (size_t)20, bytes.size() / 2, bytes.size() - 1}) {
        std::string changed = bytes;
        changed[at] ^= 0x01;
        WriteFile(dir / "b.bin", changed);
        ASSERT_TRUE(WriteChartsBinCrc((dir / "b.bin").c_str()));
        EXPECT_NE(ParseChartsBin(ReadFile(dir / "b.bin")).crc, original) << at;
    }
}

TEST(SortFileTable, EqualEntriesKeepTheirOrder)
{
    // Many entries equal in name (ignoring case), variant and flags, told
    // apart by their offsets, among others that sort around them.
    std::vector<SFileTableEntry> table(3000);
    for (uint32_t i = 0; i < table.size(); i++) {
        SFileTableEntry &e = table[i];
        memset(&e, 0, sizeof e);
        const char *name = i % 3 == 0 ? "SAME.PDF" : i % 3 == 1 ? "same.pdf" : (i % 2 ? "A.PDF" : "Z.PDF");
        strncpy(e.name, name, sizeof e.name);
        e.offset = i;
    }
    SortFileTable(table.data(), (uint32_t)table.size());
    uint32_t last = 0;
    bool first = true;
    for (const SFileTableEntry &e : table) {
        if (strcasecmp(e.name, "same.pdf") != 0) continue;
        uint32_t offset = e.offset;  // a copy: the packed field is not aligned
        if (!first) {
            EXPECT_LT(last, offset);
        }
        last = offset;
        first = false;
    }
    EXPECT_STREQ(table.front().name, "A.PDF");
    EXPECT_STREQ(table.back().name, "Z.PDF");
}
