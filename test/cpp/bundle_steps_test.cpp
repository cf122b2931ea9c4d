// The shared steps the update and compaction lean on: blob runs, the stable
// table order, checksum combination and moving a file into place.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "platform/files.h"
#include "bundle/blob.h"
#include "bundle/bundlewriter.h"
#include "bundle/crc.h"
#include "bundle_writer.h"
#include "fork_util.h"
#include "test_util.h"

namespace {

class RunPaths : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override { BlobAllowKernelCopy(GetParam()); }
    void TearDown() override { BlobAllowKernelCopy(true); }
};

std::string RunPathName(const ::testing::TestParamInfo<bool> &info) { return info.param ? "Kernel" : "Chunked"; }

struct Blob {
    uint32_t offset, size;
};

// Copies the blobs through a run after a two-byte lead-in; the result code
// and what the output holds.
std::pair<BlobResult, std::string> CopyThroughRun(const std::string &source, const std::vector<Blob> &blobs,
                                                  std::vector<uint64_t> *places = nullptr)
{
    TempDir dir;
    WriteFile(dir / "in", source);
    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    FilePtr out(fopen((dir / "out").c_str(), "wb"));
    fwrite("<<", 1, 2, out.get());
    BlobRun run = StartBlobRun(in.get(), StreamLength(in.get()), out.get());
    BlobResult result = kBlobDone;
    for (const Blob &b : blobs) {
        if (places) places->push_back(run.outAt);
        if ((result = AddToBlobRun(run, b.offset, b.size)) != kBlobDone) break;
    }
    if (result == kBlobDone) result = FlushBlobRun(run);
    out.reset();
    return {result, ReadFile(dir / "out")};
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(BlobRun, RunPaths, ::testing::Bool(), RunPathName);

TEST_P(RunPaths, BlobsLandBackToBackWhereverTheyCameFrom)
{
    std::string source = RandomBytes(3 * kBlobChunk + 100, 3);
    std::vector<Blob> blobs = {{10, 5}, {15, 7}, {22, 0}, {22, kBlobChunk + 3}, {0, 4}, {4, 2}, {500, 2 * kBlobChunk},
                               {100, 1}};
    std::vector<uint64_t> places;
    auto [result, out] = CopyThroughRun(source, blobs, &places);
    EXPECT_EQ(result, kBlobDone);
    std::string expected = "<<";
    for (size_t i = 0; i < blobs.size(); i++) {
        EXPECT_EQ(places[i], expected.size()) << i;
        expected += source.substr(blobs[i].offset, blobs[i].size);
    }
    EXPECT_EQ(out, expected);
}

TEST_P(RunPaths, ABlobPastTheEndFailsAfterTheOnesBeforeIt)
{
    std::string source = RandomBytes(1000, 4);
    // The third blob would join the run, but runs past the end.
    auto [result, out] = CopyThroughRun(source, {{0, 10}, {10, 10}, {20, 2000}, {40, 10}});
    EXPECT_EQ(result, kBlobShortRead);
    EXPECT_EQ(out, "<<" + source.substr(0, 20));
}

TEST_P(RunPaths, ShortWriteAtTheFileSizeLimit)
{
    TempDir dir;
    std::string source = RandomBytes(300000, 5);
    WriteFile(dir / "in", source);
    int result = RunInChild([&] {
        FilePtr in(fopen((dir / "in").c_str(), "rb"));
        FilePtr out(fopen((dir / "out").c_str(), "wb"));
        if (!in || !out) return 100;
        LimitFileSize(150000);
        BlobRun run = StartBlobRun(in.get(), (int64_t)source.size(), out.get());
        for (uint32_t at = 0; at < 300000; at += 30000)
            if (BlobResult r = AddToBlobRun(run, at, 30000)) return (int)r;
        return (int)FlushBlobRun(run);
    });
    EXPECT_EQ(result, (int)kBlobShortWrite);
    EXPECT_EQ(ReadFile(dir / "out"), source.substr(0, 150000));
}

TEST(BlobRun, SinkReceivesTheBytesInsteadOfTheOutput)
{
    TempDir dir;
    std::string source = RandomBytes(2 * kBlobChunk + 9, 6);
    WriteFile(dir / "in", source);
    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    FilePtr out(fopen((dir / "out").c_str(), "wb"));
    std::string received;
    auto sink = [](void *context, const unsigned char *data, size_t n) {
        ((std::string *)context)->append((const char *)data, n);
        return true;
    };
    BlobRun run = StartBlobRun(in.get(), (int64_t)source.size(), out.get(), sink, &received);
    EXPECT_EQ(AddToBlobRun(run, 7, kBlobChunk), kBlobDone);
    EXPECT_EQ(AddToBlobRun(run, 7 + kBlobChunk, kBlobChunk), kBlobDone);
    EXPECT_EQ(AddToBlobRun(run, 0, 3), kBlobDone);
    EXPECT_EQ(FlushBlobRun(run), kBlobDone);
    EXPECT_EQ(received, source.substr(7, 2 * kBlobChunk) + source.substr(0, 3));
    EXPECT_EQ(run.outAt, 2u * kBlobChunk + 3);
    out.reset();
    EXPECT_EQ(ReadFile(dir / "out"), "");
}

// The sink's failures: a source that cannot be positioned (a pipe), one
// that ends before the run does, and a sink that refuses the bytes.
TEST(BlobRun, SinkFailures)
{
    auto accept = [](void *, const unsigned char *, size_t) { return true; };
    auto refuse = [](void *, const unsigned char *, size_t) { return false; };
    TempDir dir;
    WriteFile(dir / "in", RandomBytes(5000, 3));
    FilePtr out(fopen((dir / "out").c_str(), "wb"));

    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    ASSERT_EQ(write(pipeEnds[1], "0123456789", 10), 10);
    close(pipeEnds[1]);
    FilePtr piped(fdopen(pipeEnds[0], "rb"));
    ASSERT_TRUE(piped);
    BlobRun fromPipe = StartBlobRun(piped.get(), -1, out.get(), accept, nullptr);
    EXPECT_EQ(AddToBlobRun(fromPipe, 0, 10), kBlobDone);
    EXPECT_EQ(FlushBlobRun(fromPipe), kBlobSeekFailed);

    FilePtr in(fopen((dir / "in").c_str(), "rb"));
    // The length is not told, so the end is found by reading.
    BlobRun pastTheEnd = StartBlobRun(in.get(), -1, out.get(), accept, nullptr);
    EXPECT_EQ(AddToBlobRun(pastTheEnd, 4000, 2000), kBlobDone);
    EXPECT_EQ(FlushBlobRun(pastTheEnd), kBlobShortRead);
    // Told, it is found before reading.
    BlobRun told = StartBlobRun(in.get(), 5000, out.get(), accept, nullptr);
    EXPECT_EQ(AddToBlobRun(told, 4000, 2000), kBlobShortRead);

    BlobRun refused = StartBlobRun(in.get(), 5000, out.get(), refuse, nullptr);
    EXPECT_EQ(AddToBlobRun(refused, 0, 100), kBlobDone);
    EXPECT_EQ(FlushBlobRun(refused), kBlobShortWrite);
}

TEST(SortFileTable, SameOrderAsAStableSortOfTheWholeTable)
{
    std::mt19937 random(11);
    const char *names[] = {"alpha.pdf", "Alpha.pdf", "ALPHA.PDF", "bravo", "charlie.tif", "zzzzzzzzzz"};
    auto before = [](const SFileTableEntry &a, const SFileTableEntry &b) { return CompareSFileTableEntries(&a, &b) < 0; };
    for (int round = 0; round < 300; round++) {
        std::vector<SFileTableEntry> table(random() % 60);
        for (size_t i = 0; i < table.size(); i++) {
            memset(&table[i], 0, sizeof table[i]);
            strcpy(table[i].name, names[random() % 6]);
            table[i].variant = (uint8_t)(random() % 3);
            table[i].flags = (uint8_t)(random() % 2 ? 0 : 0x10);
            table[i].offset = (uint32_t)i;  // tells equal entries apart
        }
        // Mostly a sorted table with entries appended, sometimes any order.
        if (round % 3 != 0) std::stable_sort(table.begin(), table.begin() + random() % (table.size() + 1), before);
        std::vector<SFileTableEntry> expected = table;
        std::stable_sort(expected.begin(), expected.end(), before);
        SortFileTable(table.data(), (uint32_t)table.size());
        for (size_t i = 0; i < table.size(); i++)
            ASSERT_EQ(memcmp(&table[i], &expected[i], sizeof table[i]), 0) << round << " " << i;
    }
}

TEST(TarnCrcCombine, AgreesWithTheChecksumOfTheWhole)
{
    std::string data = RandomBytes(3 * (1 << 20) + 77, 12);
    std::mt19937 random(13);
    std::vector<std::pair<size_t, size_t>> cuts = {{0, 0}, {0, 5}, {5, 0}, {1, 1}, {23, data.size() - 23}};
    for (int i = 0; i < 40; i++) {
        size_t a = random() % 5000, b = random() % (i < 30 ? 5000 : data.size() - a);
        cuts.emplace_back(a, b);
    }
    for (auto [a, b] : cuts) {
        uint32_t whole = TarnCrcUpdate(0, data.data(), a + b);
        uint32_t first = TarnCrcUpdate(0, data.data(), a), second = TarnCrcUpdate(0, data.data() + a, b);
        EXPECT_EQ(TarnCrcCombine(first, second, b), whole) << a << "+" << b;
    }
    EXPECT_EQ(TarnCrcCombine(0x3010BF7Fu, 0, 0), 0x3010BF7Fu);
}

TEST(ReplaceFile, MovesOverTheOldFile)
{
    TempDir dir;
    WriteFile(dir / "new", "new");
    WriteFile(dir / "old", "old");
    EXPECT_TRUE(ReplaceFile((dir / "new").c_str(), (dir / "old").c_str()));
    EXPECT_EQ(ListDir(dir.path()), std::vector<std::string>{"old"});
    EXPECT_EQ(ReadFile(dir / "old"), "new");
}

// The new file takes the name as the same file (its inode), and a reader
// holding the old one open keeps reading the old bytes.
TEST(ReplaceFile, TheNewFileItselfTakesTheName)
{
    TempDir dir;
    WriteFile(dir / "new", "new bytes");
    WriteFile(dir / "old", "old bytes");
    struct stat before;
    ASSERT_EQ(stat((dir / "new").c_str(), &before), 0);
    FilePtr reader(fopen((dir / "old").c_str(), "rb"));
    ASSERT_TRUE(reader);
    EXPECT_TRUE(ReplaceFile((dir / "new").c_str(), (dir / "old").c_str()));
    struct stat after;
    ASSERT_EQ(stat((dir / "old").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(ListDir(dir.path()), std::vector<std::string>{"old"});
    char bytes[16] = {0};
    EXPECT_EQ(fread(bytes, 1, sizeof bytes, reader.get()), 9u);
    EXPECT_STREQ(bytes, "old bytes");
}

// A link in the old place is replaced itself; what it points to stays.
TEST(ReplaceFile, ALinkInTheOldPlaceIsReplacedNotFollowed)
{
    TempDir dir;
    WriteFile(dir / "new", "new");
    WriteFile(dir / "target", "target");
    ASSERT_EQ(symlink("target", (dir / "old").c_str()), 0);
    EXPECT_TRUE(ReplaceFile((dir / "new").c_str(), (dir / "old").c_str()));
    struct stat st;
    ASSERT_EQ(lstat((dir / "old").c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_EQ(ReadFile(dir / "old"), "new");
    EXPECT_EQ(ReadFile(dir / "target"), "target");
    EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"old", "target"}));
}

TEST(ReplaceFile, WithoutANewFileTheOldOneGoes)
{
    TempDir dir;
    WriteFile(dir / "old", "old");
    EXPECT_FALSE(ReplaceFile((dir / "new").c_str(), (dir / "old").c_str()));
    EXPECT_TRUE(ListDir(dir.path()).empty());
}

TEST(ReplaceFile, WhatStandsInTheWayIsRemovedAndTheMoveTriedAgain)
{
    TempDir dir;
    WriteFile(dir / "new", "new");
    ASSERT_EQ(mkdir((dir / "old").c_str(), 0700), 0);  // a file cannot be renamed over a directory
    EXPECT_TRUE(ReplaceFile((dir / "new").c_str(), (dir / "old").c_str()));
    EXPECT_EQ(ReadFile(dir / "old"), "new");
    // A directory that cannot be removed stays, and so does the new file.
    WriteFile(dir / "new", "newer");
    ASSERT_EQ(remove((dir / "old").c_str()), 0);
    ASSERT_EQ(mkdir((dir / "old").c_str(), 0700), 0);
    WriteFile(dir / "old" + "/inside", "x");
    EXPECT_FALSE(ReplaceFile((dir / "new").c_str(), (dir / "old").c_str()));
    EXPECT_EQ(ReadFile(dir / "new"), "newer");
    EXPECT_EQ(ReadFile(dir / "old" + "/inside"), "x");
}
