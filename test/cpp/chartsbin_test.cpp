// The bundle layout, the shared reader and the two entry orders.
#include <errno.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <stddef.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>

#include "platform/files.h"
#include "bundle/chartsbin.h"
#include "bundle_writer.h"
#include "fork_util.h"
#include "test_util.h"

namespace {

struct ReadResult {
    ChartsBinHeader header;
    MallocPtr<SFileTableEntry> table;
    off_t positionAfter = -1;
};

ReadResult ReadBundle(const std::string &path, uint32_t extra = 0)
{
    ReadResult r;
    memset(&r.header, 0, sizeof r.header);
    FilePtr f(fopen(path.c_str(), "rb"));
    if (!f) return r;
    r.table.reset(ReadChartsBinHeaderAndFileTable(f.get(), extra, &r.header));
    r.positionAfter = ftello(f.get());
    return r;
}

SFileTableEntry Entry(const char *name, uint8_t variant = 0, uint8_t flags = 0)
{
    SFileTableEntry e;
    memset(&e, 0, sizeof e);
    strncpy(e.name, name, sizeof e.name);
    e.variant = variant;
    e.flags = flags;
    return e;
}

FixtureBundle ThreeCharts()
{
    FixtureBundle b;
    b.entries = {{"ZULU.PDF", "zulu data", 7, 0, 1},
                 {"alpha.pdf", "alpha", 0xFFFFFFFFu, 0x10, 2},
                 {"Mike.TIF", std::string(300, 'm'), 42, 0, 0}};
    return b;
}

}  // namespace

TEST(ChartsBinLayout, FieldsSitAtTheirOffsets)
{
    EXPECT_EQ(offsetof(ChartsBinHeader, crc), 0u);
    EXPECT_EQ(offsetof(ChartsBinHeader, size), 4u);
    EXPECT_EQ(offsetof(ChartsBinHeader, version), 6u);
    EXPECT_EQ(offsetof(ChartsBinHeader, fileCount), 8u);
    EXPECT_EQ(offsetof(ChartsBinHeader, tableOffset), 12u);
    EXPECT_EQ(offsetof(ChartsBinHeader, julianDate), 16u);
    EXPECT_EQ(sizeof(ChartsBinHeader), 27u);
    EXPECT_EQ(offsetof(SFileTableEntry, name), 0u);
    EXPECT_EQ(offsetof(SFileTableEntry, offset), 26u);
    EXPECT_EQ(offsetof(SFileTableEntry, size), 30u);
    EXPECT_EQ(offsetof(SFileTableEntry, key), 34u);
    EXPECT_EQ(offsetof(SFileTableEntry, flags), 38u);
    EXPECT_EQ(offsetof(SFileTableEntry, variant), 39u);
    EXPECT_EQ(sizeof(SFileTableEntry), 40u);
}

TEST(ReadChartsBinHeaderAndFileTable, ReadsHeaderAndTable)
{
    TempDir dir;
    FixtureBundle fixture = ThreeCharts();
    fixture.version = 0x0203;
    fixture.julianDate = "2460123.5";
    std::string bytes = BuildChartsBin(fixture);
    WriteFile(dir / "charts.bin", bytes);
    ParsedBundle expected = ParseChartsBin(bytes);

    ReadResult r = ReadBundle(dir / "charts.bin");
    ASSERT_TRUE(r.table);
    EXPECT_EQ(+r.header.crc, expected.crc);
    EXPECT_EQ(+r.header.crc, ReferenceBundleCrc(bytes));
    EXPECT_EQ(+r.header.size, 27);
    EXPECT_EQ(+r.header.version, 0x0203);
    EXPECT_EQ(+r.header.fileCount, 3u);
    EXPECT_EQ(+r.header.tableOffset, expected.tableOffset);
    EXPECT_STREQ(r.header.julianDate, "2460123.5");
    for (size_t i = 0; i < 3; i++) {
        const SFileTableEntry &e = r.table.get()[i];
        EXPECT_EQ(std::string(e.name), expected.entries[i].name);
        EXPECT_EQ(+e.offset, expected.entries[i].offset);
        EXPECT_EQ(+e.size, expected.entries[i].size);
        EXPECT_EQ(+e.key, expected.entries[i].key);
        EXPECT_EQ(+e.flags, expected.entries[i].flags);
        EXPECT_EQ(+e.variant, expected.entries[i].variant);
    }
    EXPECT_EQ(r.positionAfter, (off_t)(expected.tableOffset + 3 * 40));
}

TEST(ReadChartsBinHeaderAndFileTable, EmptyBundleYieldsAnEmptyTable)
{
    TempDir dir;
    WriteChartsBin(dir / "charts.bin", FixtureBundle());
    ReadResult r = ReadBundle(dir / "charts.bin");
    ASSERT_TRUE(r.table);
    EXPECT_EQ(+r.header.fileCount, 0u);
    EXPECT_EQ(+r.header.tableOffset, 27u);
}

TEST(ReadChartsBinHeaderAndFileTable, ExtraRoomIsAllocatedBehindTheTable)
{
    TempDir dir;
    WriteChartsBin(dir / "charts.bin", ThreeCharts());
    ReadResult r = ReadBundle(dir / "charts.bin", 5 * 40);
    ASSERT_TRUE(r.table);
    EXPECT_GE(malloc_usable_size(r.table.get()), 8u * 40);
    memset(r.table.get() + 3, 0xAB, 5 * 40);  // the room is the caller's to fill
}

TEST(ReadChartsBinHeaderAndFileTable, ShortFilesAreRejected)
{
    TempDir dir;
    std::string bytes = BuildChartsBin(FixtureBundle());
    for (size_t length : {0, 1, 26}) {
        WriteFile(dir / "short.bin", bytes.substr(0, length));
        EXPECT_FALSE(ReadBundle(dir / "short.bin").table) << length;
    }
}

TEST(ReadChartsBinHeaderAndFileTable, TablePastTheEndIsRejected)
{
    TempDir dir;
    FixtureBundle pastEnd = ThreeCharts();
    pastEnd.tableOffset = 100000;
    WriteChartsBin(dir / "offset.bin", pastEnd);
    EXPECT_FALSE(ReadBundle(dir / "offset.bin").table);

    FixtureBundle tooMany = ThreeCharts();
    tooMany.fileCount = 4;
    WriteChartsBin(dir / "count.bin", tooMany);
    EXPECT_FALSE(ReadBundle(dir / "count.bin").table);

    // A table whose last entry is cut by one byte.
    std::string bytes = BuildChartsBin(ThreeCharts());
    WriteFile(dir / "cut.bin", bytes.substr(0, bytes.size() - 1));
    EXPECT_FALSE(ReadBundle(dir / "cut.bin").table);

    // Offset and count that only overflow 32-bit arithmetic.
    FixtureBundle wraps = ThreeCharts();
    wraps.tableOffset = 0xFFFFFFF0u;
    wraps.fileCount = 0x06666667u;  // * 40 wraps to a small number in 32 bits
    WriteChartsBin(dir / "wraps.bin", wraps);
    EXPECT_FALSE(ReadBundle(dir / "wraps.bin").table);
}

TEST(ReadChartsBinHeaderAndFileTable, HugeCountsAreRejectedBeforeAllocating)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    TempDir dir;
    FixtureBundle huge = ThreeCharts();
    huge.fileCount = 0xFFFFFFFFu;
    WriteChartsBin(dir / "huge.bin", huge);
    FixtureBundle large = ThreeCharts();
    large.fileCount = 20000000;  // an 800 MB table in a file of a few hundred bytes
    WriteChartsBin(dir / "large.bin", large);
    // With little address space left, any attempt to allocate such a table
    // fails with ENOMEM; a reader that checks first never gets there.
    for (const std::string &path : {dir / "huge.bin", dir / "large.bin"}) {
        int result = RunInChild([&] {
            LimitAddressSpace(64u << 20);
            errno = 0;
            ReadResult r = ReadBundle(path);
            if (r.table) return 1;
            return errno == ENOMEM ? 2 : 0;
        });
        EXPECT_EQ(result, 0) << path;
    }
}

TEST(ReadChartsBinHeaderAndFileTable, UnreadableStreamIsRejected)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::string bytes = BuildChartsBin(ThreeCharts());
    ASSERT_EQ(write(fds[1], bytes.data(), bytes.size()), (ssize_t)bytes.size());
    close(fds[1]);
    FilePtr f(fdopen(fds[0], "rb"));
    ChartsBinHeader header;
    // A pipe cannot be positioned.
    EXPECT_EQ(ReadChartsBinHeaderAndFileTable(f.get(), 0, &header), nullptr);
}

TEST(CompareSFileTableEntries, NamesIgnoreCaseThenVariantThenFlags)
{
    SFileTableEntry a = Entry("ABC.PDF", 2, 0), b = Entry("abc.pdf", 1, 9);
    EXPECT_GT(CompareSFileTableEntries(&a, &b), 0);  // equal names: variant decides
    SFileTableEntry c = Entry("abc.PDF", 2, 1);
    EXPECT_LT(CompareSFileTableEntries(&a, &c), 0);  // then flags
    SFileTableEntry d = Entry("Abc.pdf", 2, 0);
    EXPECT_EQ(CompareSFileTableEntries(&a, &d), 0);
    SFileTableEntry e = Entry("ABD.PDF"), f = Entry("abc.pdf", 200, 200);
    EXPECT_GT(CompareSFileTableEntries(&e, &f), 0);  // names first
    // Unsigned bytes: 200 after 1.
    SFileTableEntry g = Entry("x", 200), h = Entry("x", 1);
    EXPECT_GT(CompareSFileTableEntries(&g, &h), 0);
    // Letters fold to lower case: "_" (0x5F) sorts before "a" (0x61), though after "A" (0x41).
    SFileTableEntry u = Entry("A_"), l = Entry("Aa");
    EXPECT_LT(CompareSFileTableEntries(&u, &l), 0);
}

TEST(CompareSFileTableEntries, QsortOrdersATable)
{
    SFileTableEntry table[] = {Entry("b.pdf", 0, 1), Entry("B.PDF", 0, 0), Entry("a.pdf", 3),
                               Entry("A.PDF", 1), Entry("zzzzzzzzzz"), Entry("c.pdf")};
    qsort(table, 6, sizeof table[0], CompareSFileTableEntries);
    const char *names[] = {"A.PDF", "a.pdf", "B.PDF", "b.pdf", "c.pdf", "zzzzzzzzzz"};
    for (int i = 0; i < 6; i++) EXPECT_STREQ(table[i].name, names[i]) << i;
}

TEST(CompareSFileTableEntries, FullLengthNamesWithoutTerminator)
{
    SFileTableEntry a, b;
    memset(&a, 0, sizeof a);
    memset(&b, 0, sizeof b);
    memset(a.name, 'Q', 26);
    memset(b.name, 'q', 26);
    a.offset = 1;  // the bytes after the name must not count
    b.offset = 2;
    EXPECT_EQ(CompareSFileTableEntries(&a, &b), 0);
    b.variant = 1;
    EXPECT_LT(CompareSFileTableEntries(&a, &b), 0);
}

TEST(CompareSFileTableEntriesByName, ComparesBaseNames)
{
    SFileTableEntry pdf = Entry("ABC.PDF"), tif = Entry("abc.tif"), abd = Entry("ABD.PDF");
    EXPECT_EQ(CompareSFileTableEntriesByName(&pdf, &tif), 0);
    EXPECT_LT(CompareSFileTableEntriesByName(&pdf, &abd), 0);
    EXPECT_EQ(CompareSFileTableEntriesByName("abc", &pdf), 0);
    EXPECT_EQ(CompareSFileTableEntriesByName("abc.x", &pdf), 0);  // the key is cut too
    // A base name holding a point is cut at it too, so it does not find itself.
    SFileTableEntry dotted = Entry("A.B.PDF");
    EXPECT_NE(CompareSFileTableEntriesByName("a.b", &dotted), 0);
    EXPECT_EQ(CompareSFileTableEntriesByName("a.b.x", &dotted), 0);
    EXPECT_EQ(CompareSFileTableEntriesByName("A", &dotted), -'.');
}

TEST(CompareSFileTableEntriesByName, ServesBsearchOverASortedTable)
{
    SFileTableEntry table[] = {Entry("AAA.PDF"), Entry("ABC.PDF"), Entry("ABC.PDF", 1),
                               Entry("ABD.PDF"), Entry("XYZ.TIF")};
    qsort(table, 5, sizeof table[0], CompareSFileTableEntries);
    void *hit = bsearch("abc", table, 5, sizeof table[0], CompareSFileTableEntriesByName);
    ASSERT_NE(hit, nullptr);
    EXPECT_STREQ(((SFileTableEntry *)hit)->name, "ABC.PDF");
    EXPECT_EQ(bsearch("abe", table, 5, sizeof table[0], CompareSFileTableEntriesByName), nullptr);
    EXPECT_NE(bsearch("xyz", table, 5, sizeof table[0], CompareSFileTableEntriesByName), nullptr);
}

TEST(EntryWithinFile, OffsetPlusSizeMustNotPassTheEnd)
{
    SFileTableEntry e = Entry("a");
    e.offset = 90;
    e.size = 10;
    EXPECT_TRUE(EntryWithinFile(&e, 100));
    EXPECT_FALSE(EntryWithinFile(&e, 99));
    EXPECT_FALSE(EntryWithinFile(&e, -1));
    e.offset = 0xFFFFFFFFu;
    e.size = 0xFFFFFFFFu;  // no 32-bit wrap-around
    EXPECT_FALSE(EntryWithinFile(&e, 100));
    EXPECT_TRUE(EntryWithinFile(&e, (int64_t)0x1FFFFFFFEll));
}

TEST(StreamLength, KeepsThePosition)
{
    TempDir dir;
    WriteFile(dir / "f", "0123456789");
    FilePtr f(fopen((dir / "f").c_str(), "rb"));
    ASSERT_EQ(fseeko(f.get(), 3, SEEK_SET), 0);
    EXPECT_EQ(StreamLength(f.get()), 10);
    EXPECT_EQ(ftello(f.get()), 3);
    EXPECT_EQ(fgetc(f.get()), '3');
}

// The folding table compares as strncasecmp does: random names over letters
// of both cases, points, bytes above 0x7F and early terminators.
TEST(NameFold, ComparesWithTheSignOfStrncasecmp)
{
    const char alphabet[] = "aAbBzZ.._09\x80\xC9\xE9\xFF";
    const NameFold fold;
    auto sign = [](int v) { return (v > 0) - (v < 0); };
    uint32_t state = 99;
    auto next = [&state]() { return (state = state * 1103515245u + 12345u) >> 16; };
    for (int i = 0; i < 100000; i++) {
        char a[kEntryNameSize], b[kEntryNameSize];
        for (char *name : {a, b}) {
            for (size_t k = 0; k < kEntryNameSize; k++) name[k] = alphabet[next() % (sizeof alphabet - 1)];
            if (next() % 4 != 0) name[next() % kEntryNameSize] = '\0';
        }
        if (next() % 2) memcpy(b, a, next() % kEntryNameSize);  // a shared beginning
        const size_t n = next() % (kEntryNameSize + 1);
        ASSERT_EQ(sign(fold.Compare(a, b, n)), sign(strncasecmp(a, b, n))) << i;
    }
}

TEST(NameFold, OrdersEntriesAsCompareSFileTableEntries)
{
    const NameFold fold;
    auto sign = [](int v) { return (v > 0) - (v < 0); };
    auto entry = [](const char *name, uint8_t variant, uint8_t flags) {
        SFileTableEntry e;
        memset(&e, 0, sizeof e);
        memcpy(e.name, name, strnlen(name, sizeof e.name));
        e.variant = variant;
        e.flags = flags;
        return e;
    };
    const SFileTableEntry entries[] = {entry("ABC.PDF", 0, 0), entry("abc.pdf", 1, 0), entry("abc.pdf", 1, 16),
                                       entry("abd", 0, 0), entry("ab", 9, 1),
                                       entry("zzzzzzzzzzzzzzzzzzzzzzzzzz", 0, 0)};
    for (const SFileTableEntry &a : entries)
        for (const SFileTableEntry &b : entries)
            EXPECT_EQ(sign(fold.CompareEntries(a, b)), sign(CompareSFileTableEntries(&a, &b)))
                << a.name << " / " << b.name;
}
