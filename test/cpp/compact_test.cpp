// Compaction against the chart list, and finishing a bundle with its checksum.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/files.h"
#include "apply_model.h"
#include "bundle/blob.h"
#include "bundle/bundlewriter.h"
#include "bundle/runcopy.h"
#include "bundle/update.h"
#include "tarntermchart.h"
#include "bundle_writer.h"
#include "chart_table.h"
#include "fork_util.h"
#include "test_util.h"

namespace {

// The chart list of a chart table listing these base names.
ChartListPtr ListOf(const TempDir &dir, const std::vector<std::string> &charts)
{
    WriteFile(dir / "charts.dbf", ChartTableOf(charts));
    return ChartListPtr(ChartsFromChartsDBF((dir / "charts.dbf").c_str()));
}

FixtureBundle Bundle(std::vector<FixtureEntry> entries)
{
    FixtureBundle b;
    b.entries = std::move(entries);
    b.version = 0x0203;
    b.size = 31;
    b.julianDate = "2460123.5";
    return b;
}

// Entries that stay, as "name v<variant> k<key> <blob>", in table order.
std::vector<std::string> Kept(const std::string &bytes)
{
    std::vector<std::string> rows;
    for (const ParsedEntry &e : ParseChartsBin(bytes).entries)
        rows.push_back(e.name + " v" + std::to_string(e.variant) + " k" + std::to_string(e.key) + " " +
                       BlobOf(bytes, e));
    return rows;
}

struct Compaction {
    TempDir dir;
    std::string source = dir / "charts.bin";
    std::string target = dir / "charts.bi2";
    ChartListPtr list;

    // Compacts the bundle against a list of these charts.
    std::vector<std::string> Run(const FixtureBundle &bundle, const std::vector<std::string> &charts)
    {
        WriteChartsBin(source, bundle);
        list = ListOf(dir, charts);
        EXPECT_EQ(CompactFile(source.c_str(), target.c_str(), list.get()), 0);
        std::string bytes = ReadFile(target);
        EXPECT_EQ(bytes, ModelCompact(ReadFile(source), &charts));
        return Kept(bytes);
    }
};

}  // namespace

TEST(CompactFile, KeepsListedChartsWithFlagsZeroAndNoChecksum)
{
    Compaction c;
    FixtureBundle b = Bundle({{"alpha.pdf", "A", 1, 0x10, 0},
                              {"bravo.tif", "BB", 2, 0, 0},
                              {"charlie.pdf", "CCC", 3, 0, 1},
                              {"ALPHA.tif", "a2", 4, 0, 1},
                              {"delta", "D", 5, 0, 0}});
    b.gap = "gap";
    b.between = "..";
    EXPECT_EQ(c.Run(b, {"Alpha", "charlie", "delta"}),
              (std::vector<std::string>{"alpha.pdf v0 k1 A", "ALPHA.tif v1 k4 a2", "charlie.pdf v1 k3 CCC",
                                        "delta v0 k5 D"}));
    std::string bytes = ReadFile(c.target);
    ParsedBundle p = ParseChartsBin(bytes);
    EXPECT_EQ(p.crc, 0u);
    EXPECT_EQ(p.size, 31);
    EXPECT_EQ(p.version, 0x0203);
    EXPECT_EQ(p.julianDate, "2460123.5");
    EXPECT_EQ(p.fileCount, 4u);
    for (const ParsedEntry &e : p.entries) EXPECT_EQ(e.flags, 0) << e.name;
    // Kept blobs follow the header without gaps, in the source's table order;
    // the table ends the file.
    EXPECT_EQ(p.tableOffset, 27u + 1 + 2 + 3 + 1);
    EXPECT_EQ(bytes.size(), p.tableOffset + 4 * 40u);
    EXPECT_EQ(bytes.substr(27, 7), "Aa2CCCD");
}

TEST(CompactFile, NullListDropsEveryEntry)
{
    TempDir dir;
    WriteChartsBin(dir / "charts.bin", Bundle({{"alpha.pdf", "A", 1, 0, 0}, {"bravo.pdf", "B", 2, 0, 0}}));
    EXPECT_EQ(CompactFile((dir / "charts.bin").c_str(), (dir / "out.bin").c_str(), nullptr), 0);
    std::string bytes = ReadFile(dir / "out.bin");
    ParsedBundle p = ParseChartsBin(bytes);
    EXPECT_EQ(p.fileCount, 0u);
    EXPECT_EQ(p.tableOffset, 27u);
    EXPECT_EQ(bytes.size(), 27u);
    EXPECT_EQ(bytes, ModelCompact(ReadFile(dir / "charts.bin"), nullptr));
}

TEST(CompactFile, SameNameAndVariantKeepsTheNewerCopy)
{
    Compaction c;
    // Left older: the left goes.
    EXPECT_EQ(c.Run(Bundle({{"alpha.pdf", "old", 1, 0, 0}, {"alpha.pdf", "new", 2, 0, 0}}), {"alpha"}),
              std::vector<std::string>{"alpha.pdf v0 k2 new"});
    // The flags order the copies the other way round: the right one is older.
    Compaction d;
    EXPECT_EQ(d.Run(Bundle({{"alpha.pdf", "old", 1, 0x10, 0}, {"alpha.pdf", "new", 2, 0, 0}}), {"alpha"}),
              std::vector<std::string>{"alpha.pdf v0 k2 new"});
}

TEST(CompactFile, SameNameKeyAndSizeKeepsTheNewerCopy)
{
    // In table order v0 ("cd", written second) comes first; "ab" is older.
    Compaction c;
    EXPECT_EQ(c.Run(Bundle({{"alpha.pdf", "ab", 7, 0, 1}, {"alpha.pdf", "cd", 7, 0, 0}, {"alpha.pdf", "efg", 7, 0, 2},
                            {"alpha.pdf", "hi", 8, 0, 3}}),
                    {"alpha"}),
              (std::vector<std::string>{"alpha.pdf v0 k7 cd", "alpha.pdf v2 k7 efg", "alpha.pdf v3 k8 hi"}));
}

TEST(CompactFile, OnlyNeighboursAreCompared)
{
    // Sorted ignoring case, "A.pdf" v0 twice is split by "a.pdf": no pair of
    // neighbours has one name, so every copy stays.
    Compaction c;
    EXPECT_EQ(c.Run(Bundle({{"A.pdf", "1", 1, 0, 0}, {"a.pdf", "2", 1, 0, 0}, {"A.pdf", "3", 1, 0x10, 0}}), {"a"}),
              (std::vector<std::string>{"A.pdf v0 k1 1", "a.pdf v0 k1 2", "A.pdf v0 k1 3"}));
}

TEST(CompactFile, TheOnlyCopyOfAListedChartIsRescued)
{
    Compaction c;
    // Superseded (marked) copies: a listed chart's only copy stays, an
    // unlisted one goes, and so does a marked copy beside a kept one.
    EXPECT_EQ(c.Run(Bundle({{"alpha.pdf", "A", 1, 1, 0},
                            {"bravo.pdf", "B", 2, 1, 0},
                            {"charlie.pdf", "C0", 3, 0, 0},
                            {"charlie.pdf", "C1", 4, 1, 1}}),
                    {"alpha", "charlie"}),
              (std::vector<std::string>{"alpha.pdf v0 k1 A", "charlie.pdf v0 k3 C0"}));
}

TEST(CompactFile, TheOnlyPairOfAListedChartIsRescued)
{
    Compaction c;
    EXPECT_EQ(c.Run(Bundle({{"alpha.pdf", "A0", 1, 1, 0}, {"alpha.pdf", "A1", 2, 1, 1}, {"bravo.pdf", "B", 3, 0, 0}}),
                    {"alpha", "bravo"}),
              (std::vector<std::string>{"alpha.pdf v0 k1 A0", "alpha.pdf v1 k2 A1", "bravo.pdf v0 k3 B"}));
    // Three marked copies are no pair: all go.
    Compaction d;
    EXPECT_EQ(d.Run(Bundle({{"alpha.pdf", "A0", 1, 1, 0}, {"alpha.pdf", "A1", 2, 1, 1}, {"alpha.pdf", "A2", 3, 1, 2},
                            {"bravo.pdf", "B", 3, 0, 0}}),
                    {"alpha", "bravo"}),
              std::vector<std::string>{"bravo.pdf v0 k3 B"});
    // A marked copy beside an unmarked one is no pair either.
    Compaction e;
    EXPECT_EQ(e.Run(Bundle({{"alpha.pdf", "A0", 1, 1, 0}, {"alpha.pdf", "A1", 2, 0, 1}}), {"alpha"}),
              std::vector<std::string>{"alpha.pdf v1 k2 A1"});
    // Nor are the second and third of three copies.
    Compaction f;
    EXPECT_EQ(f.Run(Bundle({{"alpha.pdf", "A0", 1, 0, 0}, {"alpha.pdf", "A1", 2, 1, 1}, {"alpha.pdf", "A2", 3, 1, 2}}),
                    {"alpha"}),
              std::vector<std::string>{"alpha.pdf v0 k1 A0"});
}

TEST(CompactFile, DuplicatesAreNotRescued)
{
    // The older of two copies is marked, but its newer twin stays, so it is
    // not the only copy.
    Compaction c;
    EXPECT_EQ(c.Run(Bundle({{"alpha.pdf", "old", 1, 0, 0}, {"alpha.pdf", "new", 2, 0, 0}}), {"alpha"}),
              std::vector<std::string>{"alpha.pdf v0 k2 new"});
    // Two copies both marked by updates and alike in variant: the pair is
    // rescued whole, duplicates or not.
    Compaction d;
    EXPECT_EQ(d.Run(Bundle({{"alpha.pdf", "old", 1, 1, 0}, {"alpha.pdf", "new", 2, 1, 0}}), {"alpha"}),
              (std::vector<std::string>{"alpha.pdf v0 k1 old", "alpha.pdf v0 k2 new"}));
}

TEST(CompactFile, FullLengthNamesAndDottedBaseNames)
{
    Compaction c;
    EXPECT_EQ(c.Run(Bundle({{"abcdefghijklmnopqrstuvwxyz", "full", 1, 0, 0},
                            {"f.x.pdf", "dots", 2, 0, 0},
                            {"f.pdf", "f", 3, 0, 0},
                            {"noext", "n", 4, 0, 0}}),
                    {"ABCDEFGHIJKLMNOPQRSTUVWXYZ", "f.x", "noext"}),
              (std::vector<std::string>{"abcdefghijklmnopqrstuvwxyz v0 k1 full", "f.x.pdf v0 k2 dots",
                                        "noext v0 k4 n"}));
}

TEST(CompactFile, FailureCodes)
{
    TempDir dir;
    std::string source = dir / "charts.bin", target = dir / "charts.bi2";
    int open = CountOpenDescriptors();
    EXPECT_EQ(CompactFile(source.c_str(), target.c_str(), nullptr), -1);
    WriteFile(source, "too short for a header");
    EXPECT_EQ(CompactFile(source.c_str(), target.c_str(), nullptr), -2);
    WriteChartsBin(source, Bundle({{"alpha.pdf", "A", 1, 0, 0}}));
    EXPECT_EQ(CompactFile(source.c_str(), (dir / "missing/out.bin").c_str(), nullptr), -3);
    FixtureEntry forged("bravo.pdf", "B", 2, 0, 0);
    forged.size = 1000;
    WriteChartsBin(source, Bundle({{"alpha.pdf", "A", 1, 0, 0}, forged}));
    ChartListPtr list = ListOf(dir, {"alpha", "bravo"});
    EXPECT_EQ(CompactFile(source.c_str(), target.c_str(), list.get()), -7);
    // A compaction that failed never takes the target's name.
    EXPECT_FALSE(Exists(target));
    WriteFile(target, "stale");
    EXPECT_EQ(CompactFile(source.c_str(), target.c_str(), list.get()), -7);
    EXPECT_EQ(ReadFile(target), "stale");
    EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"charts.bi2", "charts.bin", "charts.dbf"}));
    EXPECT_EQ(CountOpenDescriptors(), open);
}

TEST(CompactFile, ShortWrites)
{
    struct Case {
        uint64_t limit;
        int expected;
    };
    std::string big = RandomBytes(100000, 4);
    for (int path = 0; path < 3; path++) {  // kernel copy, chunked copy, checksummed copy
        for (Case c : {Case{10, -4}, Case{27 + 5000, -8}, Case{27 + 100000 + 1 + 30, -9}}) {
            TempDir dir;
            WriteChartsBin(dir / "charts.bin", Bundle({{"alpha.pdf", big, 1, 0, 0}, {"bravo.pdf", "B", 2, 0, 0}}));
            ChartListPtr list = ListOf(dir, {"alpha", "bravo"});
            int result = RunInChild([&] {
                BlobAllowKernelCopy(path == 0);
                LimitFileSize(c.limit);
                uint32_t crc;
                return -CompactFile((dir / "charts.bin").c_str(), (dir / "charts.bi2").c_str(), list.get(),
                                    path == 2 ? &crc : nullptr);
            });
            EXPECT_EQ(-result, c.expected) << c.limit << " path " << path;
            // Nothing cut short takes the name, and nothing is left behind.
            EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"charts.bin", "charts.dbf"})) << c.limit;
        }
    }
}

TEST(CompactFile, ChecksumOfTheBytesAsTheyWereWritten)
{
    TempDir dir;
    std::vector<FixtureBundle> bundles = {
        Bundle({}),
        Bundle({{"alpha.pdf", RandomBytes(3 * kBlobChunk + 5, 1), 1, 0, 0}, {"bravo.pdf", "B", 2, 1, 0},
                {"charlie.pdf", RandomBytes(70000, 2), 3, 0, 2}, {"gone.pdf", "G", 4, 0, 0}}),
    };
    bundles[1].gap = "gap";
    bundles[1].between = std::string(5000, '-');
    for (bool kernel : {true, false}) {
        BlobAllowKernelCopy(kernel);
        for (const FixtureBundle &b : bundles) {
            for (bool withList : {true, false}) {
                WriteChartsBin(dir / "charts.bin", b);
                ChartListPtr list = ListOf(dir, {"alpha", "bravo", "charlie"});
                uint32_t crc = 0x5A5A5A5Au;
                ASSERT_EQ(CompactFile((dir / "charts.bin").c_str(), (dir / "out.bin").c_str(),
                                      withList ? list.get() : nullptr, &crc),
                          0);
                EXPECT_EQ(crc, FileCRCTarnStartingAt((dir / "out.bin").c_str(), 4));
                EXPECT_EQ(crc, ReferenceBundleCrc(ReadFile(dir / "out.bin")));
                // The file is the one CompactFile writes without a checksum.
                std::string checksummed = ReadFile(dir / "out.bin");
                ASSERT_EQ(CompactFile((dir / "charts.bin").c_str(), (dir / "out.bin").c_str(),
                                      withList ? list.get() : nullptr),
                          0);
                EXPECT_EQ(ReadFile(dir / "out.bin"), checksummed);
            }
        }
    }
    BlobAllowKernelCopy(true);
    // No checksum comes back from a compaction that failed.
    FixtureEntry forged("bravo.pdf", "B", 2, 0, 0);
    forged.size = 1000;
    WriteChartsBin(dir / "charts.bin", Bundle({{"alpha.pdf", "A", 1, 0, 0}, forged}));
    ChartListPtr list = ListOf(dir, {"alpha", "bravo"});
    uint32_t crc = 0x5A5A5A5Au;
    EXPECT_EQ(CompactFile((dir / "charts.bin").c_str(), (dir / "out.bin").c_str(), list.get(), &crc), -7);
    EXPECT_EQ(crc, 0x5A5A5A5Au);
}

// Long runs go over by kernel copy while another thread checksums them from
// the source: the checksum is that of the file written, also with the
// kernel copy turned off, and a blob past the source's end still fails the
// compaction with no checksum handed back.
TEST(CompactFile, LongRunsAreChecksummedFromTheSource)
{
    TempDir dir;
    FixtureBundle b = Bundle({{"alpha.pdf", RandomBytes(600000, 7), 1, 0, 0},
                              {"bravo.pdf", RandomBytes(900000, 8), 2, 0, 0},
                              {"bravo.pdf", RandomBytes(900000, 9), 2, 0, 0},
                              {"charlie.pdf", RandomBytes(300000, 10), 3, 0, 0}});
    WriteChartsBin(dir / "charts.bin", b);
    ChartListPtr list = ListOf(dir, {"alpha", "bravo", "charlie"});
    for (bool kernel : {true, false}) {
        BlobAllowKernelCopy(kernel);
        uint32_t crc = 0;
        ASSERT_EQ(CompactFile((dir / "charts.bin").c_str(), (dir / "out.bin").c_str(), list.get(), &crc), 0);
        EXPECT_EQ(crc, FileCRCTarnStartingAt((dir / "out.bin").c_str(), 4)) << kernel;
        EXPECT_EQ(crc, ReferenceBundleCrc(ReadFile(dir / "out.bin"))) << kernel;
        ASSERT_EQ(CompactFile((dir / "charts.bin").c_str(), (dir / "plain.bin").c_str(), list.get()), 0);
        EXPECT_EQ(ReadFile(dir / "out.bin"), ReadFile(dir / "plain.bin")) << kernel;
    }
    BlobAllowKernelCopy(true);

    FixtureEntry forged("delta.pdf", "D", 4, 0, 0);
    forged.size = 1 << 20;
    b.entries.push_back(forged);
    WriteChartsBin(dir / "charts.bin", b);
    list = ListOf(dir, {"alpha", "bravo", "charlie", "delta"});
    uint32_t crc = 0x5A5A5A5Au;
    EXPECT_EQ(CompactFile((dir / "charts.bin").c_str(), (dir / "out.bin").c_str(), list.get(), &crc), -7);
    EXPECT_EQ(crc, 0x5A5A5A5Au);
}

// A producer's bundle has its blobs in no particular order: every blob is a
// run of its own, and the checksummed copy gathers them in its output buffer,
// far more than one buffer's worth here.  The bytes must be those of the
// plain copy, and a write failing with blobs still held back must answer as
// a blob write.
TEST(CompactFile, ManyBlobsOutOfTableOrder)
{
    FixtureBundle bundle;
    std::vector<std::string> listed;
    for (int i = 2999; i >= 0; i--) {
        char name[32];
        snprintf(name, sizeof name, "c%04d.pdf", i);
        bundle.entries.push_back({name, RandomBytes(700 + i % 13, (uint32_t)i), (uint32_t)i, 0, 0});
        if (i % 7 != 0) listed.push_back(std::string(name, 5));
    }
    TempDir dir;
    WriteChartsBin(dir / "charts.bin", bundle);
    ChartListPtr list = ListOf(dir, listed);
    std::string expected = ModelCompact(ReadFile(dir / "charts.bin"), &listed);
    for (bool kernel : {true, false}) {
        BlobAllowKernelCopy(kernel);
        ASSERT_EQ(CompactFile((dir / "charts.bin").c_str(), (dir / "plain.bin").c_str(), list.get()), 0);
        EXPECT_EQ(ReadFile(dir / "plain.bin"), expected);
    }
    BlobAllowKernelCopy(true);
    uint32_t crc = 0;
    ASSERT_EQ(CompactFile((dir / "charts.bin").c_str(), (dir / "summed.bin").c_str(), list.get(), &crc), 0);
    EXPECT_EQ(ReadFile(dir / "summed.bin"), expected);
    EXPECT_EQ(crc, FileCRCTarnStartingAt((dir / "summed.bin").c_str(), 4));
    EXPECT_GT(expected.size(), (size_t)kBlobChunk);

    // Limits inside the first buffer, across a later one, and in the last.
    const uint64_t tableBytes = (uint64_t)ParseChartsBin(expected).entries.size() * 40;
    for (uint64_t limit : {(uint64_t)27 + 1000, (uint64_t)kBlobChunk + 333, expected.size() - tableBytes - 500}) {
        int result = RunInChild([&] {
            LimitFileSize(limit);
            uint32_t ignored;
            return -CompactFile((dir / "charts.bin").c_str(), (dir / "cut.bin").c_str(), list.get(), &ignored);
        });
        EXPECT_EQ(result, 8) << limit;
        // Nothing cut short takes the target's name.
        EXPECT_FALSE(Exists(dir / "cut.bin")) << limit;
    }
}

// Compaction with its checksum sends blobs that lie in another order than
// the table's through memory, a window at a time, and long runs by kernel
// copy: both ways leave the same bytes and codes, whole, cut short by a full
// file, and with entries the source does not hold.
TEST(CompactFile, KernelCopyAndWindowsWriteAlike)
{
    FixtureBundle bundle;
    std::vector<std::string> listed;
    std::mt19937 random(11);
    for (int i = 0; i < 400; i++) {
        char name[32];
        snprintf(name, sizeof name, "c%04d.pdf", (int)(random() % 10000));
        bundle.entries.push_back({name, RandomBytes(i % 17 == 0 ? 0 : 300 + random() % 9000, (uint32_t)i), (uint32_t)i, 0, 0});
        if (i % 5 != 0) listed.push_back(std::string(name, 5));
    }
    // The blobs lie near their table places, out of order within a few
    // dozen kilobytes.
    std::sort(bundle.entries.begin(), bundle.entries.end(), FixtureEntryBefore);
    for (size_t i = 0; i + 8 <= bundle.entries.size(); i += 8)
        std::shuffle(bundle.entries.begin() + i, bundle.entries.begin() + i + 8, random);
    TempDir dir;
    ChartListPtr list = ListOf(dir, listed);
    const std::string whole = BuildChartsBin(bundle);
    // The same bundle with an entry halfway that claims a gigabyte.
    FixtureBundle cut = bundle;
    cut.entries[201].size = 1u << 30;
    const std::string cutBytes = BuildChartsBin(cut);
    listed.push_back(cut.entries[201].name.substr(0, 5));
    list = ListOf(dir, listed);

    auto run = [&](const std::string &source, uint64_t limit, bool kernel) {
        WriteFile(dir / "charts.bin", source);
        remove((dir / "out.bin").c_str());
        int code = RunInChild([&] {
            RunsForceKernelCopy(kernel);
            if (limit) LimitFileSize(limit);
            uint32_t crc = 0;
            int result = CompactFile((dir / "charts.bin").c_str(), (dir / "out.bin").c_str(), list.get(), &crc);
            if (result == 0 && crc != FileCRCTarnStartingAt((dir / "out.bin").c_str(), 4)) return 100;
            return -result;
        });
        return std::make_pair(code, ReadFile(dir / "out.bin"));
    };
    const uint64_t wholeSize = run(whole, 0, true).second.size();
    ASSERT_GT(wholeSize, 1000u);
    for (bool isWhole : {true, false}) {
        const std::string &source = isWhole ? whole : cutBytes;
        const auto expected = run(source, 0, true);
        // The whole bundle compacts; the one with an entry past its end
        // fails at that entry and leaves no target.
        ASSERT_EQ(expected.first, isWhole ? 0 : 7);
        ASSERT_EQ(expected.second.empty(), !isWhole);
        EXPECT_TRUE(run(source, 0, false) == expected);
        for (uint64_t limit = 100; limit < wholeSize + 1000; limit += wholeSize / 17) {
            const auto windows = run(source, limit, false), kernel = run(source, limit, true);
            EXPECT_EQ(windows.first, kernel.first) << "limit " << limit;
            EXPECT_TRUE(windows.second == kernel.second)
                << "limit " << limit << ": " << windows.second.size() << " and " << kernel.second.size() << " bytes";
        }
    }
    EXPECT_EQ(run(whole, 0, false).first, 0);
    EXPECT_EQ(run(cutBytes, 0, false).first, 7);
}

TEST(CompactFile, NoMemoryForABlob)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    TempDir dir;
    WriteChartsBin(dir / "charts.bin", Bundle({{"alpha.pdf", RandomBytes(4 << 20, 5), 1, 0, 0}}));
    ChartListPtr list = ListOf(dir, {"alpha"});
    int result = RunInChild([&] {
        BlobAllowKernelCopy(false);
        LimitAddressSpace(0);
        ExhaustMemory(1 << 20);
        return -CompactFile((dir / "charts.bin").c_str(), (dir / "charts.bi2").c_str(), list.get());
    });
    EXPECT_EQ(result, 5);
    // Checksumming takes the blobs through memory whatever the copy would do.
    result = RunInChild([&] {
        LimitAddressSpace(0);
        ExhaustMemory(1 << 20);
        uint32_t crc;
        return -CompactFile((dir / "charts.bin").c_str(), (dir / "charts.bi2").c_str(), list.get(), &crc);
    });
    EXPECT_EQ(result, 5);
}

TEST(FinalizeChartsBin, WithoutCompactionOnlyTheChecksumIsWritten)
{
    TempDir dir;
    FixtureBundle b = Bundle({{"alpha.pdf", "A", 1, 1, 0}, {"bravo.pdf", "B", 2, 0x10, 0}});
    b.crc = 0x12345678u;
    WriteChartsBin(dir / "charts.bin", b);
    std::string before = ReadFile(dir / "charts.bin");
    ChartListPtr list = ListOf(dir, {"bravo"});
    EXPECT_EQ(FinalizeChartsBin((dir / "charts.bin").c_str(), 0, list.get()), 0);
    std::string after = ReadFile(dir / "charts.bin");
    EXPECT_EQ(after.substr(4), before.substr(4));
    EXPECT_EQ(ParseChartsBin(after).crc, ReferenceBundleCrc(after));
    EXPECT_NE(ParseChartsBin(after).crc, 0x12345678u);
}

TEST(FinalizeChartsBin, CompactsThroughTheTemporaryAndWritesTheChecksum)
{
    TempDir dir;
    WriteChartsBin(dir / "charts.bin", Bundle({{"alpha.pdf", "A", 1, 1, 0}, {"alpha.pdf", "A2", 3, 0, 0},
                                               {"bravo.pdf", "B", 2, 0x10, 0}, {"gone.pdf", "G", 4, 0, 0}}));
    // A stale temporary is overwritten and moved into place.
    WriteFile(dir / "charts.bi2", "stale");
    std::string source = ReadFile(dir / "charts.bin");
    ChartListPtr list = ListOf(dir, {"alpha", "bravo"});
    EXPECT_EQ(FinalizeChartsBin((dir / "charts.bin").c_str(), 1, list.get()), 0);
    EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"charts.bin", "charts.dbf"}));
    std::string after = ReadFile(dir / "charts.bin");
    std::vector<std::string> charts = {"alpha", "bravo"};
    EXPECT_EQ(after, ModelFinalize(source, true, &charts));
    EXPECT_EQ(Kept(after), (std::vector<std::string>{"alpha.pdf v0 k3 A2", "bravo.pdf v0 k2 B"}));
    EXPECT_EQ(ParseChartsBin(after).crc, ReferenceBundleCrc(after));
    EXPECT_EQ(ParseChartsBin(after).crc, FileCRCTarnStartingAt((dir / "charts.bin").c_str(), 4));
}

TEST(FinalizeChartsBin, WithoutAChartTableEveryEntryIsDropped)
{
    TempDir dir;
    WriteChartsBin(dir / "vfrcharts.bin", Bundle({{"alpha.pdf", "A", 1, 1, 0}, {"bravo.pdf", "B", 2, 0, 0}}));
    ChartList *list = ChartsFromChartsDBF((dir / "vfrchrts.dbf").c_str());
    ASSERT_EQ(list, nullptr);
    EXPECT_EQ(FinalizeChartsBin((dir / "vfrcharts.bin").c_str(), 1, list), 0);
    std::string after = ReadFile(dir / "vfrcharts.bin");
    ParsedBundle p = ParseChartsBin(after);
    EXPECT_EQ(p.fileCount, 0u);
    EXPECT_EQ(after.size(), 27u);
    EXPECT_EQ(p.crc, ReferenceBundleCrc(after));
    EXPECT_EQ(ListDir(dir.path()), std::vector<std::string>{"vfrcharts.bin"});
}

TEST(FinalizeChartsBin, MissingBundle)
{
    TempDir dir;
    int open = CountOpenDescriptors();
    EXPECT_EQ(FinalizeChartsBin((dir / "charts.bin").c_str(), 1, nullptr), EOF);
    EXPECT_EQ(FinalizeChartsBin((dir / "charts.bin").c_str(), 0, nullptr), EOF);
    EXPECT_TRUE(ListDir(dir.path()).empty());
    EXPECT_EQ(CountOpenDescriptors(), open);
}

TEST(FinalizeChartsBin, ACompactionThatFailsLeavesTheBundleAsItWas)
{
    // An unreadable bundle is left as it stands.
    TempDir dir;
    WriteFile(dir / "charts.bin", "not a bundle");
    EXPECT_EQ(FinalizeChartsBin((dir / "charts.bin").c_str(), 1, nullptr), EOF);
    EXPECT_EQ(ListDir(dir.path()), std::vector<std::string>{"charts.bin"});
    EXPECT_EQ(ReadFile(dir / "charts.bin"), "not a bundle");
    // A compaction that fails half-way never takes the bundle's place.
    FixtureEntry forged("bravo.pdf", "B", 2, 0, 0);
    forged.size = 1000;
    WriteChartsBin(dir / "charts.bin", Bundle({{"alpha.pdf", "A", 1, 0, 0}, forged}));
    std::string source = ReadFile(dir / "charts.bin");
    ChartListPtr list = ListOf(dir, {"alpha", "bravo"});
    EXPECT_EQ(FinalizeChartsBin((dir / "charts.bin").c_str(), 1, list.get()), EOF);
    EXPECT_EQ(ReadFile(dir / "charts.bin"), source);
    EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"charts.bin", "charts.dbf"}));
}

TEST(FinalizeChartsBin, TheChecksumIsNeverWrittenThroughALink)
{
    TempDir dir, elsewhere;
    WriteChartsBin(elsewhere / "charts.bin", Bundle({{"alpha.pdf", "A", 1, 0, 0}}));
    const std::string target = ReadFile(elsewhere / "charts.bin");
    ASSERT_EQ(symlink((elsewhere / "charts.bin").c_str(), (dir / "charts.bin").c_str()), 0);
    EXPECT_EQ(FinalizeChartsBin((dir / "charts.bin").c_str(), 0, nullptr), EOF);
    EXPECT_EQ(ReadFile(elsewhere / "charts.bin"), target);
    // Compacted, the new bundle replaces the link itself.
    ChartListPtr list = ListOf(dir, {"alpha"});
    EXPECT_EQ(FinalizeChartsBin((dir / "charts.bin").c_str(), 1, list.get()), 0);
    EXPECT_EQ(ReadFile(elsewhere / "charts.bin"), target);
    struct stat st;
    ASSERT_EQ(lstat((dir / "charts.bin").c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
}

// The compacted table's order against a stable sort of the whole table, on
// tables in order with entries dropped here and there, and on the cases the
// quick way must leave to the sort: kept entries out of order, and kept
// names sorting with or after the dropped entries' name (in any case).
TEST(SortCompactedTable, SameOrderAsSortingTheWholeTable)
{
    std::mt19937 random(5);
    const char *names[] = {"alpha.pdf", "Alpha.pdf", "bravo.tif", "charlie", "ZZZZZZZZZZ", "zzzzzzzzzzz",
                           "~tilde", "\xE9t\xE9", "zzzzzzzzz", "delta.pdf"};
    int inOrder = 0;  // rounds of the kind the quick way serves
    for (int round = 0; round < 2000; round++) {
        std::vector<SFileTableEntry> table(random() % 50);
        for (SFileTableEntry &e : table) {
            memset(&e, 0, sizeof e);
            strcpy(e.name, names[random() % (round % 3 == 0 ? 10 : 4)]);
            e.variant = (uint8_t)(random() % 3);
            e.offset = (uint32_t)random();
        }
        if (round % 5 != 4) SortFileTable(table.data(), (uint32_t)table.size());
        for (SFileTableEntry &e : table) {
            if (random() % 4 == 0) {
                e.flags = (uint8_t)(kEntrySuperseded | (random() % 2 ? kEntryReplaceVariant : 0));
                MarkEntryDropped(&e);
            } else {
                e.flags = 0;
            }
        }
        std::vector<SFileTableEntry> expected = table;
        SortFileTable(expected.data(), (uint32_t)expected.size());
        std::vector<SFileTableEntry> got = table;
        SortCompactedTable(got.data(), (uint32_t)got.size());
        if (!got.empty()) {
            ASSERT_EQ(memcmp(got.data(), expected.data(), got.size() * sizeof(SFileTableEntry)), 0) << round;
        }
        inOrder += round % 3 != 0 && round % 5 != 4;
    }
    EXPECT_GT(inOrder, 500);
}
