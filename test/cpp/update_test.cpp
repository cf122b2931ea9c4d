// Applying update bundles: the three kinds of update entry, the lookup of
// the copy an entry supersedes, dates, and every failure that can be made
// to happen.
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>

#include <random>
#include <string>
#include <vector>

#include "platform/files.h"
#include "apply_model.h"
#include "bundle/blob.h"
#include "bundle/update.h"
#include "bundle_writer.h"
#include "chart_table.h"
#include "fork_util.h"
#include "test_util.h"

namespace {

// A directory with a bundle "charts.bin" and an update "new_charts.bin".
struct Update {
    TempDir dir;
    std::string bundle = dir / "charts.bin";
    std::string update = dir / "new_charts.bin";

    void Write(const FixtureBundle &b, const FixtureBundle &u)
    {
        WriteChartsBin(bundle, b);
        WriteChartsBin(update, u);
    }
    int Apply() { return AddCoverageToChartsBin(bundle.c_str(), update.c_str()); }
    ParsedBundle Read() { return ParseChartsBin(ReadFile(bundle)); }
};

// One line per entry: name, variant, flags, key and the blob, in table order.
std::vector<std::string> Rows(const std::string &bytes)
{
    std::vector<std::string> rows;
    for (const ParsedEntry &e : ParseChartsBin(bytes).entries) {
        char line[160];
        snprintf(line, sizeof line, "%s v%d f%02x k%u ", e.name.c_str(), e.variant, e.flags, e.key);
        rows.push_back(line + BlobOf(bytes, e));
    }
    return rows;
}

FixtureBundle Bundle(std::vector<FixtureEntry> entries, const char *date = "2460000.5")
{
    FixtureBundle b;
    b.entries = std::move(entries);
    b.julianDate = date;
    return b;
}

// Checks that a failing call leaves both files as they were and no stream open.
void ExpectUntouched(Update &u, int expected)
{
    std::string bundle = Exists(u.bundle) ? ReadFile(u.bundle) : "";
    std::string update = Exists(u.update) ? ReadFile(u.update) : "";
    int open = CountOpenDescriptors();
    EXPECT_EQ(u.Apply(), expected);
    EXPECT_EQ(CountOpenDescriptors(), open);
    EXPECT_EQ(Exists(u.bundle) ? ReadFile(u.bundle) : "", bundle);
    EXPECT_EQ(Exists(u.update) ? ReadFile(u.update) : "", update);
}

}  // namespace

TEST(AddCoverageToChartsBin, ReplacingAFileSupersedesEveryCopyOfItsName)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "a0", 1, 0, 0}, {"alpha.pdf", "a1", 2, 0x10, 1},
                    {"bravo.pdf", "b0", 3, 0, 0}}),
            Bundle({{"alpha.pdf", "new", 9, 0, 4}}, "2460001.5"));
    EXPECT_EQ(u.Apply(), 1);
    std::string bytes = ReadFile(u.bundle);
    EXPECT_EQ(Rows(bytes), (std::vector<std::string>{"alpha.pdf v0 f01 k1 a0", "alpha.pdf v1 f01 k2 a1",
                                                     "alpha.pdf v4 f00 k9 new", "bravo.pdf v0 f00 k3 b0"}));
    ParsedBundle b = ParseChartsBin(bytes);
    EXPECT_EQ(b.julianDate, "2460001.5");
    EXPECT_EQ(b.fileCount, 4u);
    // The new blob stands where the old table began; the new table follows it.
    uint32_t oldTable = 27 + 6;
    EXPECT_EQ(b.entries[2].offset, oldTable);
    EXPECT_EQ(b.tableOffset, oldTable + 3);
    EXPECT_EQ(bytes.size(), b.tableOffset + 4 * 40u);
}

TEST(AddCoverageToChartsBin, VariantReplacementSupersedesOnlyThatVariant)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "a0", 1, 0, 0}, {"alpha.pdf", "a1", 2, 0, 1},
                    {"alpha.pdf", "a1x", 3, 0x10, 1}, {"alpha.pdf", "a2", 4, 0, 2}}),
            Bundle({{"alpha.pdf", "n1", 9, 0x10, 1}}));
    EXPECT_EQ(u.Apply(), 1);
    // The copy that came in as a variant replacement itself is left alone;
    // the new one keeps its flag.
    EXPECT_EQ(Rows(ReadFile(u.bundle)),
              (std::vector<std::string>{"alpha.pdf v0 f00 k1 a0", "alpha.pdf v1 f01 k2 a1",
                                        "alpha.pdf v1 f10 k3 a1x", "alpha.pdf v1 f10 k9 n1",
                                        "alpha.pdf v2 f00 k4 a2"}));
}

TEST(AddCoverageToChartsBin, VariantReplacementWithoutAMatchSupersedesNothing)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "a0", 1, 0, 0}}), Bundle({{"alpha.pdf", "n3", 9, 0x10, 3}}));
    EXPECT_EQ(u.Apply(), 0);
    EXPECT_EQ(Rows(ReadFile(u.bundle)),
              (std::vector<std::string>{"alpha.pdf v0 f00 k1 a0", "alpha.pdf v3 f10 k9 n3"}));
}

TEST(AddCoverageToChartsBin, DeleteTakesOnlyTheSameContentAndVariant)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "12345", 7, 0, 0},     // key, size and variant match: deleted
                    {"alpha.pdf", "1234", 7, 0, 0},      // other size
                    {"alpha.pdf", "12345", 8, 0, 0},     // other key
                    {"alpha.pdf", "12345", 7, 0, 1},     // other variant
                    {"alpha.pdf", "12345", 7, 0x10, 0},  // came in as a variant replacement
                    {"bravo.pdf", "12345", 7, 0, 0}}),   // other name
            Bundle({{"alpha.pdf", "xxxxx", 7, 0x20, 0}}));
    std::string before = ReadFile(u.bundle);
    EXPECT_EQ(u.Apply(), 1);
    std::string bytes = ReadFile(u.bundle);
    EXPECT_EQ(Rows(bytes), (std::vector<std::string>{"alpha.pdf v0 f00 k7 1234", "alpha.pdf v0 f00 k8 12345",
                                                     "alpha.pdf v0 f01 k7 12345", "alpha.pdf v0 f10 k7 12345",
                                                     "alpha.pdf v1 f00 k7 12345", "bravo.pdf v0 f00 k7 12345"}));
    // Nothing is appended: the same table is written again where it stood.
    EXPECT_EQ(ParseChartsBin(bytes).fileCount, 6u);
    EXPECT_EQ(ParseChartsBin(bytes).tableOffset, ParseChartsBin(before).tableOffset);
    EXPECT_EQ(bytes.size(), before.size());
}

TEST(AddCoverageToChartsBin, DeleteWithoutAMatchSupersedesNothing)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "12345", 7, 0, 0}}),
            Bundle({{"alpha.pdf", "xxxxx", 6, 0x20, 0}, {"zulu.pdf", "xxxxx", 7, 0x20, 0}}));
    std::string before = ReadFile(u.bundle);
    EXPECT_EQ(u.Apply(), 0);
    std::string after = ReadFile(u.bundle);
    EXPECT_EQ(Rows(after), Rows(before));
    EXPECT_EQ(after.size(), before.size());
}

TEST(AddCoverageToChartsBin, DeleteNeverTakesAnEntryThatCameWithVariantReplacement)
{
    // The first update entry is appended with 0x10; the delete that follows
    // finds it as the first unmarked copy and leaves it.
    Update u;
    u.Write(Bundle({{"bravo.pdf", "b", 1, 0, 0}}),
            Bundle({{"alpha.pdf", "12345", 7, 0x10, 0}, {"alpha.pdf", "12345", 7, 0x20, 0}}));
    EXPECT_EQ(u.Apply(), 0);
    EXPECT_EQ(Rows(ReadFile(u.bundle)),
              (std::vector<std::string>{"alpha.pdf v0 f10 k7 12345", "bravo.pdf v0 f00 k1 b"}));
}

TEST(AddCoverageToChartsBin, ConsecutiveEntriesOfOneNameAreBothAdded)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "old", 1, 0, 0}}),
            Bundle({{"alpha.pdf", "new0", 2, 0, 0}, {"alpha.pdf", "new1", 3, 0, 1}}));
    EXPECT_EQ(u.Apply(), 1);
    // Without the pairing the second would supersede the first.
    EXPECT_EQ(Rows(ReadFile(u.bundle)), (std::vector<std::string>{"alpha.pdf v0 f00 k2 new0",
                                                                  "alpha.pdf v0 f01 k1 old",
                                                                  "alpha.pdf v1 f00 k3 new1"}));
}

TEST(AddCoverageToChartsBin, ThePairedEntryIsAddedWhateverItsFlags)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "old", 1, 0, 1}}),
            Bundle({{"alpha.pdf", "new0", 2, 0, 0}, {"alpha.pdf", "del", 3, 0x20, 1}}));
    EXPECT_EQ(u.Apply(), 1);
    EXPECT_EQ(Rows(ReadFile(u.bundle)), (std::vector<std::string>{"alpha.pdf v0 f00 k2 new0",
                                                                  "alpha.pdf v1 f01 k1 old",
                                                                  "alpha.pdf v1 f20 k3 del"}));
}

TEST(AddCoverageToChartsBin, OnlyThePairIsTakenTogether)
{
    // Three entries of one name: the first two come in together, the third
    // supersedes the first of them (the first unmarked copy) and the run of
    // its name that follows in the table.
    Update u;
    u.Write(Bundle({{"bravo.pdf", "b", 1, 0, 0}}),
            Bundle({{"alpha.pdf", "n0", 2, 0, 0}, {"alpha.pdf", "n1", 3, 0, 1}, {"alpha.pdf", "n2", 4, 0, 2}}));
    EXPECT_EQ(u.Apply(), 1);
    EXPECT_EQ(Rows(ReadFile(u.bundle)),
              (std::vector<std::string>{"alpha.pdf v0 f01 k2 n0", "alpha.pdf v1 f01 k3 n1",
                                        "alpha.pdf v2 f00 k4 n2", "bravo.pdf v0 f00 k1 b"}));
}

TEST(AddCoverageToChartsBin, NamesMatchWithTheirCase)
{
    Update u;
    u.Write(Bundle({{"ALPHA.pdf", "old", 1, 0, 0}}), Bundle({{"alpha.pdf", "new", 2, 0, 0}}));
    EXPECT_EQ(u.Apply(), 0);
    EXPECT_EQ(Rows(ReadFile(u.bundle)),
              (std::vector<std::string>{"ALPHA.pdf v0 f00 k1 old", "alpha.pdf v0 f00 k2 new"}));
}

TEST(AddCoverageToChartsBin, TheRunEndsWhereTheExactNameChanges)
{
    // Sorted ignoring case, the copies of "Alpha.pdf" are split by one of
    // "alpha.pdf"; the run from the first copy stops there.
    Update u;
    u.Write(Bundle({{"Alpha.pdf", "A0", 1, 0, 0}, {"alpha.pdf", "a1", 2, 0, 1}, {"Alpha.pdf", "A2", 3, 0, 2}}),
            Bundle({{"Alpha.pdf", "new", 4, 0, 5}}));
    EXPECT_EQ(u.Apply(), 1);
    EXPECT_EQ(Rows(ReadFile(u.bundle)),
              (std::vector<std::string>{"Alpha.pdf v0 f01 k1 A0", "alpha.pdf v1 f00 k2 a1",
                                        "Alpha.pdf v2 f00 k3 A2", "Alpha.pdf v5 f00 k4 new"}));
}

TEST(AddCoverageToChartsBin, TheSearchStartsAtTheFirstUnmarkedCopy)
{
    // A copy marked by an earlier update is passed over; the walk starts at
    // the first unmarked copy and never goes back to the marked one, which
    // would otherwise be marked again and count as superseded.
    Update w;
    w.Write(Bundle({{"alpha.pdf", "m0", 1, 1, 0}, {"alpha.pdf", "a1", 2, 0, 1}}),
            Bundle({{"alpha.pdf", "n0", 4, 0x10, 0}}));
    EXPECT_EQ(w.Apply(), 0);
    EXPECT_EQ(Rows(ReadFile(w.bundle)), (std::vector<std::string>{"alpha.pdf v0 f01 k1 m0",
                                                                  "alpha.pdf v0 f10 k4 n0",
                                                                  "alpha.pdf v1 f00 k2 a1"}));
}

TEST(AddCoverageToChartsBin, AppendedEntriesAreFoundByLaterOnes)
{
    // "A" and "a" sort together; the second "A" is not next to the first in
    // the update, so it supersedes the copy appended a moment before, and the
    // run of that name ends at the appended "a".
    Update u;
    u.Write(Bundle({{"bravo.pdf", "b", 1, 0, 0}}),
            Bundle({{"A.pdf", "A0", 2, 0, 0}, {"a.pdf", "a0", 3, 0, 0}, {"A.pdf", "A1", 4, 0, 1}}));
    EXPECT_EQ(u.Apply(), 1);
    EXPECT_EQ(Rows(ReadFile(u.bundle)),
              (std::vector<std::string>{"a.pdf v0 f00 k3 a0", "A.pdf v0 f01 k2 A0", "A.pdf v1 f00 k4 A1",
                                        "bravo.pdf v0 f00 k1 b"}));
}

TEST(AddCoverageToChartsBin, FullLengthNames)
{
    const std::string full = "abcdefghijklmnopqrstuv.pdf";  // 26 bytes, no terminator
    ASSERT_EQ(full.size(), 26u);
    Update u;
    u.Write(Bundle({{full, "old", 1, 0, 0}, {full.substr(0, 25), "short", 2, 0, 0}}),
            Bundle({{full, "new", 3, 0, 0}}));
    EXPECT_EQ(u.Apply(), 1);
    EXPECT_EQ(Rows(ReadFile(u.bundle)),
              (std::vector<std::string>{"abcdefghijklmnopqrstuv.pd v0 f00 k2 short", full + " v0 f00 k3 new",
                                        full + " v0 f01 k1 old"}));
}

TEST(AddCoverageToChartsBin, EqualDatesAreApplied)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "old", 1, 0, 0}}, "2460000.5"), Bundle({{"alpha.pdf", "new", 2, 0, 0}}, "2460000.50"));
    EXPECT_EQ(u.Apply(), 1);
    EXPECT_EQ(u.Read().julianDate, "2460000.50");
    // The same update once more: the copy it brought is superseded in turn.
    EXPECT_EQ(u.Apply(), 1);
    EXPECT_EQ(u.Read().fileCount, 3u);
}

TEST(AddCoverageToChartsBin, AnOlderUpdateChangesNothing)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "old", 1, 0, 0}}, "2460000.5"), Bundle({{"alpha.pdf", "new", 2, 0, 0}}, "2459999.5"));
    ExpectUntouched(u, -5);
}

TEST(AddCoverageToChartsBin, WithoutABundleTheUpdateTakesItsName)
{
    Update u;
    WriteChartsBin(u.update, Bundle({{"alpha.pdf", "new", 2, 0x10, 0}}));
    std::string update = ReadFile(u.update);
    EXPECT_EQ(u.Apply(), 0);
    EXPECT_FALSE(Exists(u.update));
    EXPECT_EQ(ReadFile(u.bundle), update);
    EXPECT_EQ(ListDir(u.dir.path()), std::vector<std::string>{"charts.bin"});
}

TEST(AddCoverageToChartsBin, VfrUpdateWithoutABundle)
{
    TempDir dir;
    WriteChartsBin(dir / "x_vfrcharts.bin", Bundle({{"v.pdf", "v", 2, 0, 0}}));
    EXPECT_EQ(AddCoverageToChartsBin((dir / "vfrcharts.bin").c_str(), (dir / "x_vfrcharts.bin").c_str()), 0);
    EXPECT_EQ(ListDir(dir.path()), std::vector<std::string>{"vfrcharts.bin"});
}

TEST(AddCoverageToChartsBin, WithoutABundleOrAnUpdate)
{
    Update u;
    ExpectUntouched(u, -1);
    EXPECT_TRUE(ListDir(u.dir.path()).empty());
}

TEST(AddCoverageToChartsBin, AnUnreadableBundleIsNeverReplacedByTheUpdate)
{
    // A bundle that is there but cannot be read is not taken as missing:
    // the update would replace charts nobody read.
    Update u;
    u.Write(Bundle({{"alpha.pdf", "old", 1, 0, 0}}), Bundle({{"alpha.pdf", "new", 2, 0, 0}}));
    std::string bundle = ReadFile(u.bundle), update = ReadFile(u.update);
    chmod(u.dir.c_str(), 0777);
    chmod(u.bundle.c_str(), 0200);
    int result = RunInChild([&] {
        DropPrivileges();
        return u.Apply();
    });
    chmod(u.bundle.c_str(), 0600);
    EXPECT_EQ(result, -4);
    EXPECT_EQ(ReadFile(u.bundle), bundle);
    EXPECT_EQ(ReadFile(u.update), update);
}

TEST(AddCoverageToChartsBin, UpdateCannotBeOpened)
{
    Update u;
    WriteChartsBin(u.bundle, Bundle({{"alpha.pdf", "old", 1, 0, 0}}));
    ExpectUntouched(u, -2);
}

TEST(AddCoverageToChartsBin, UnreadableUpdate)
{
    Update u;
    WriteChartsBin(u.bundle, Bundle({{"alpha.pdf", "old", 1, 0, 0}}));
    WriteFile(u.update, std::string(26, '\0'));  // shorter than a header
    ExpectUntouched(u, -3);
    FixtureBundle past = Bundle({{"alpha.pdf", "new", 2, 0, 0}});
    past.tableOffset = 1000;
    WriteChartsBin(u.update, past);
    ExpectUntouched(u, -3);
    FixtureBundle huge = Bundle({{"alpha.pdf", "new", 2, 0, 0}});
    huge.fileCount = 0xFFFFFFFFu;
    WriteChartsBin(u.update, huge);
    ExpectUntouched(u, -3);
}

TEST(AddCoverageToChartsBin, UnreadableBundle)
{
    Update u;
    WriteChartsBin(u.update, Bundle({{"alpha.pdf", "new", 2, 0, 0}}));
    WriteFile(u.bundle, "short");
    ExpectUntouched(u, -4);
    FixtureBundle past = Bundle({{"alpha.pdf", "old", 1, 0, 0}});
    past.fileCount = 2;
    WriteChartsBin(u.bundle, past);
    ExpectUntouched(u, -4);
}

TEST(AddCoverageToChartsBin, BundleCannotBeOpenedForWriting)
{
    Update u;
    u.Write(Bundle({{"alpha.pdf", "old", 1, 0, 0}}), Bundle({{"alpha.pdf", "new", 2, 0, 0}}));
    chmod(u.dir.c_str(), 0777);
    chmod(u.bundle.c_str(), 0444);
    chmod(u.update.c_str(), 0444);
    std::string bundle = ReadFile(u.bundle);
    int result = RunInChild([&] {
        DropPrivileges();
        return u.Apply();
    });
    EXPECT_EQ(result, -6);
    EXPECT_EQ(ReadFile(u.bundle), bundle);
}

TEST(AddCoverageToChartsBin, EntryRunningPastTheUpdatesEnd)
{
    for (uint32_t offset : {27u, 0xFFFFFFF0u}) {
        Update u;
        FixtureEntry forged("bravo.pdf", "new", 2, 0, 0);
        forged.offset = offset;
        forged.size = 0x100000;  // far more than the file holds
        u.Write(Bundle({{"alpha.pdf", "old", 1, 0, 0}}), Bundle({{"alpha.pdf", "a", 3, 0, 0}, forged}));
        int open = CountOpenDescriptors();
        EXPECT_EQ(u.Apply(), -10) << offset;
        EXPECT_EQ(CountOpenDescriptors(), open);
        // The blob before it went over the old table; the header still
        // points there.
        std::string bytes = ReadFile(u.bundle);
        EXPECT_EQ(bytes.substr(27 + 3, 1), "a");
        EXPECT_EQ(ParseChartsBin(bytes.substr(0, 27 + 3) + std::string(40, '\0')).tableOffset, 30u);
    }
}

TEST(AddCoverageToChartsBin, NoMemoryForABlob)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    Update u;
    u.Write(Bundle({{"alpha.pdf", "old", 1, 0, 0}}), Bundle({{"alpha.pdf", RandomBytes(4 << 20, 1), 2, 0, 0}}));
    int result = RunInChild([&] {
        BlobAllowKernelCopy(false);
        LimitAddressSpace(0);
        ExhaustMemory(1 << 20);
        return -u.Apply();
    });
    EXPECT_EQ(result, 9);
}

TEST(AddCoverageToChartsBin, ShortWrites)
{
    // The blob, then the table, then the header meet the file size limit.
    struct Case {
        uint64_t limit;
        int expected;
    };
    std::string big = RandomBytes(100000, 2);
    for (bool kernel : {true, false}) {
        for (Case c : {Case{27 + 3 + 50000, -11}, Case{27 + 3 + 100000 + 20, -11}}) {
            Update u;
            u.Write(Bundle({{"alpha.pdf", "old", 1, 0, 0}}), Bundle({{"alpha.pdf", big, 2, 0, 0}}));
            int result = RunInChild([&] {
                BlobAllowKernelCopy(kernel);
                LimitFileSize(c.limit);
                return -u.Apply();
            });
            EXPECT_EQ(-result, c.expected) << c.limit;
        }
    }
    // Too small a limit for the undo record itself: nothing is written
    // into a bundle that could not be put back (-6), and it stays as it was.
    Update empty;
    empty.Write(Bundle({}), Bundle({}, "2460001.5"));
    const std::string before = ReadFile(empty.bundle);
    int result = RunInChild([&] {
        LimitFileSize(10);
        return -empty.Apply();
    });
    EXPECT_EQ(result, 6);
    EXPECT_EQ(ReadFile(empty.bundle), before);
    EXPECT_EQ(ListDir(empty.dir.path()).size(), 2u);
}

// A source of ten bytes, an output that already holds "head", and a zeroed
// header, table of three entries and update entry to append with.
struct Appending {
    TempDir dir;
    FilePtr in, out;
    ChartsBinHeader header;
    SFileTableEntry table[3], update;

    Appending()
    {
        WriteFile(dir / "in", "0123456789");
        in.reset(fopen((dir / "in").c_str(), "rb"));
        out.reset(fopen((dir / "out").c_str(), "wb"));
        if (out) fwrite("head", 1, 4, out.get());
        memset(&header, 0, sizeof header);
        memset(table, 0, sizeof table);
        memset(&update, 0, sizeof update);
    }
};

TEST(AddEntry, AppendsAtTheWritePositionAndCounts)
{
    Appending a;
    ASSERT_TRUE(a.in && a.out);
    auto &[dir, in, out, header, table, update] = a;
    header.fileCount = 1;
    strcpy(update.name, "x.pdf");
    update.offset = 3;
    update.size = 4;
    update.key = 77;
    update.flags = 0x30;
    update.variant = 2;
    EXPECT_EQ(AddEntry(&update, table, &header, out.get(), in.get()), 0);
    EXPECT_EQ((uint32_t)header.fileCount, 2u);
    EXPECT_EQ((uint32_t)table[1].offset, 4u);
    EXPECT_EQ((uint32_t)table[1].size, 4u);
    EXPECT_EQ((uint32_t)table[1].key, 77u);
    EXPECT_EQ((int)table[1].flags, 0x30);
    EXPECT_EQ((int)table[1].variant, 2);
    EXPECT_STREQ(table[1].name, "x.pdf");
    update.offset = 8;  // runs past the end
    EXPECT_EQ(AddEntry(&update, table, &header, out.get(), in.get(), 10), -10);
    EXPECT_EQ((uint32_t)header.fileCount, 3u);
    out.reset();
    EXPECT_EQ(ReadFile(dir / "out"), "head3456");
}

TEST(AddEntry, BlobsOfARunGoOutWhenItIsFlushed)
{
    Appending a;
    ASSERT_TRUE(a.in && a.out);
    auto &[dir, in, out, header, table, update] = a;
    BlobRun run = StartBlobRun(in.get(), 10, out.get());
    const uint32_t at[] = {2, 4, 0}, sizes[] = {2, 3, 1};
    for (int i = 0; i < 3; i++) {
        update.offset = at[i];
        update.size = sizes[i];
        update.variant = (uint8_t)i;
        EXPECT_EQ(AddEntry(&update, table, &header, run), 0);
    }
    EXPECT_EQ(FlushBlobRun(run), kBlobDone);
    EXPECT_EQ((uint32_t)header.fileCount, 3u);
    EXPECT_EQ((uint32_t)table[0].offset, 4u);
    EXPECT_EQ((uint32_t)table[1].offset, 6u);
    EXPECT_EQ((uint32_t)table[2].offset, 9u);
    out.reset();
    EXPECT_EQ(ReadFile(dir / "out"), "head234560");
}

namespace {

// A random bundle and update over a few names that differ in case, share
// contents and come in several variants.
struct Mixed {
    FixtureBundle bundle, update, second;
    std::vector<std::string> charts;
};

Mixed RandomMixed(uint32_t seed)
{
    std::mt19937 random(seed);
    const char *names[] = {"alpha.pdf", "Alpha.pdf", "bravo.tif", "charlie.pdf", "delta",
                           "echo.pdf",  "ECHO.PDF",  "abcdefghijklmnopqrstuv.pdf", "f.x.pdf"};
    auto pick = [&](int n) { return (int)(random() % (unsigned)n); };
    auto entry = [&](uint8_t flags) {
        std::string data = RandomBytes((size_t)pick(40), (uint32_t)random());
        return FixtureEntry(names[pick(9)], data, (uint32_t)pick(3), flags, (uint8_t)pick(3));
    };
    Mixed m;
    m.bundle.julianDate = "2460000.5";
    int count = pick(30);
    for (int i = 0; i < count; i++) m.bundle.entries.push_back(entry(pick(5) == 0 ? 0x10 : 0));
    for (FixtureBundle *u : {&m.update, &m.second}) {
        u->julianDate = "2460001.5";
        int updates = pick(12);
        for (int i = 0; i < updates; i++) {
            const uint8_t kinds[] = {0, 0x10, 0x20};
            FixtureEntry e = entry(kinds[pick(3)]);
            // Deletions mostly aim at a copy that is there.
            if (e.flags == 0x20 && !m.bundle.entries.empty() && pick(4) != 0) {
                const FixtureEntry &target = m.bundle.entries[(size_t)pick((int)m.bundle.entries.size())];
                e = FixtureEntry(target.name, target.data, target.key, 0x20, target.variant);
            }
            u->entries.push_back(e);
        }
    }
    for (const char *chart : {"alpha", "ECHO", "abcdefghijklmnopqrstuv", "f.x", "bravo"})
        if (pick(2)) m.charts.push_back(chart);
    return m;
}

}  // namespace

TEST(AddCoverageToChartsBin, MixedUpdatesAgreeWithTheModel)
{
    int superseded = 0;
    for (uint32_t seed = 1; seed <= 300; seed++) {
        Mixed m = RandomMixed(seed);
        Update u;
        u.Write(m.bundle, m.update);
        std::string expected = BuildChartsBin(m.bundle);
        int expectedResult = ModelApply(expected, BuildChartsBin(m.update));
        ASSERT_EQ(u.Apply(), expectedResult) << seed;
        ASSERT_EQ(ReadFile(u.bundle), expected) << seed;
        superseded += expectedResult;

        // A second update over the first, before finalising.
        WriteChartsBin(u.update, m.second);
        expectedResult = ModelApply(expected, BuildChartsBin(m.second));
        ASSERT_EQ(u.Apply(), expectedResult) << seed;
        ASSERT_EQ(ReadFile(u.bundle), expected) << seed;

        bool compact = seed % 5 != 0;
        const std::vector<std::string> *list = seed % 7 == 0 ? nullptr : &m.charts;
        ChartList *chartList = nullptr;
        if (list) {
            WriteFile(u.dir / "charts.dbf", ChartTableOf(*list));
            chartList = ChartsFromChartsDBF((u.dir / "charts.dbf").c_str());
            ASSERT_TRUE(chartList);
        }
        EXPECT_EQ(FinalizeChartsBin(u.bundle.c_str(), compact, chartList), 0);
        DoneWithChartGrouping(chartList);
        std::string finished = ReadFile(u.bundle);
        ASSERT_EQ(finished, ModelFinalize(expected, compact, list)) << seed;
        EXPECT_EQ(ParseChartsBin(finished).crc, ReferenceBundleCrc(finished));
        EXPECT_FALSE(Exists(u.dir / "charts.bi2"));
    }
    EXPECT_GT(superseded, 50);  // the random cases do exercise superseding
}

TEST(AddCoverageToChartsBin, LargeTablesAgreeWithTheModel)
{
    // Many names, each a few times, so the lookup by name is put to work.
    std::mt19937 random(5);
    FixtureBundle bundle, update;
    update.julianDate = "2460001.5";
    for (int i = 0; i < 3000; i++) {
        std::string name = "chart" + std::to_string(random() % 1000) + ".pdf";
        bundle.entries.emplace_back(name, std::string(1, (char)i), random() % 2, 0, random() % 3);
    }
    for (int i = 0; i < 600; i++) {
        std::string name = "chart" + std::to_string(random() % 1200) + ".pdf";
        const uint8_t kinds[] = {0, 0x10, 0x20};
        update.entries.emplace_back(name, std::string(1, (char)i), random() % 2, kinds[random() % 3], random() % 3);
    }
    Update u;
    u.Write(bundle, update);
    std::string expected = BuildChartsBin(bundle);
    int expectedResult = ModelApply(expected, BuildChartsBin(update));
    EXPECT_EQ(u.Apply(), expectedResult);
    EXPECT_EQ(ReadFile(u.bundle), expected);
}
