// The chart bundle of an area subset.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>

#include "bundle/blob.h"
#include "bundle/chartsbin.h"
#include "fork_util.h"
#include "subset/subset.h"
#include "subset_fixture.h"

namespace {

using Names = std::vector<std::string>;

// A source bundle and the destination's chart table naming charts.
struct Cut {
    TempDir source, destination;
    std::string bundlePath;

    Cut(const FixtureBundle &bundle, const Names &chartNames, const std::string &bundleName = "charts.bin",
        const std::string &tableName = "charts.dbf")
        : bundlePath(source / bundleName)
    {
        WriteChartsBin(bundlePath, bundle);
        std::vector<DbfRecord> records;
        for (const std::string &name : chartNames) records.push_back({"KAAA", "10-1", name});
        WriteFile(destination / tableName, DbfTable(kSubsetChartFields, records));
    }

    int Run() { return CreateSubsetChartsBin(bundlePath.c_str(), destination.c_str()); }
    std::string Out(const std::string &name = "charts.bin") const { return destination / name; }
    Names Kept(const std::string &name = "charts.bin") const { return BundleNames(Out(name)); }
};

FixtureBundle Bundle(const std::vector<FixtureEntry> &entries)
{
    FixtureBundle bundle;
    bundle.entries = entries;
    return bundle;
}

FixtureEntry Entry(const std::string &name, uint8_t variant = 0, uint8_t flags = 0)
{
    return FixtureEntry(name, "blob of " + name + " " + std::to_string(variant), variant, flags, variant);
}

// Where the C library's bsearch lands for key in a table of these names (in
// the given order), or -1: the outcome of a cut depends on it where several
// entries share a base name.
int Landing(const Names &names, const char *key)
{
    std::vector<SFileTableEntry> table(names.size());
    for (size_t i = 0; i < names.size(); i++) {
        memset(&table[i], 0, sizeof table[i]);
        memcpy(table[i].name, names[i].data(), std::min<size_t>(names[i].size(), kEntryNameSize));
    }
    const void *found = bsearch(key, table.data(), table.size(), sizeof(SFileTableEntry),
                                CompareSFileTableEntriesByName);
    return found ? (int)((const SFileTableEntry *)found - table.data()) : -1;
}

Names Padding(int n)
{
    Names names;
    for (int i = 0; i < n; i++) names.push_back("AA" + std::string(1, (char)('A' + i)) + ".PDF");
    return names;
}

}  // namespace

// The search's comparison, against strcasecmp of copies cut at the last ".":
// random names over a small alphabet with points, case and bytes above 0x7F,
// some filling all 26 bytes without a terminator.
TEST(CompareSFileTableEntriesByName, AgreesWithStrcasecmpOfTheCutNames)
{
    const char alphabet[] = "aAbB..zZ09_\x80\xE9";
    auto cut = [](const char *name) {
        std::string base(name, strnlen(name, kEntryNameSize));
        size_t dot = base.rfind('.');
        return dot == std::string::npos ? base : base.substr(0, dot);
    };
    auto sign = [](int v) { return (v > 0) - (v < 0); };
    uint32_t state = 12345;
    for (int i = 0; i < 200000; i++) {
        SFileTableEntry a, b;
        for (SFileTableEntry *e : {&a, &b}) {
            memset(e, 0, sizeof *e);
            state = state * 1103515245u + 12345u;
            const size_t length = (state >> 16) % (kEntryNameSize + 1);
            for (size_t k = 0; k < length; k++) {
                state = state * 1103515245u + 12345u;
                e->name[k] = alphabet[(state >> 16) % (sizeof alphabet - 1)];
            }
            if (length == kEntryNameSize) e->offset = 0x41414141;  // no terminator in the name
        }
        const int expected = strcasecmp(cut(a.name).c_str(), cut(b.name).c_str());
        const int got = CompareSFileTableEntriesByName(&a, &b);
        ASSERT_EQ(sign(got), sign(expected)) << std::string(a.name, 26) << " / " << std::string(b.name, 26);
        ASSERT_EQ(got, expected);
    }
}

TEST(CreateSubsetChartsBin, KeepsTheNamedChart)
{
    Cut cut(Bundle({Entry("ABC.PDF")}), {"ABC"});
    ASSERT_EQ(cut.Run(), 0);
    EXPECT_EQ(cut.Kept(), (Names{"ABC.PDF"}));
}

TEST(CreateSubsetChartsBin, WritesHeaderBlobsAndTableExactly)
{
    FixtureBundle source = Bundle({Entry("AAA.PDF"), Entry("ABC.PDF"), Entry("ABD.PDF"),
                                   Entry("ABE.PDF"), Entry("XYZ.PDF")});
    source.version = 0x0307;
    source.julianDate = "2460555.5";
    source.entries[3].data = RandomBytes(3 << 20, 7);  // larger than one copy chunk
    source.entries[3].key = 77;
    Cut cut(source, {"ABC", "ABE", "XYZ"});
    ASSERT_EQ(cut.Run(), 0);

    // The same bundle built from the kept entries alone, in source order.
    FixtureBundle expected = Bundle({source.entries[1], source.entries[3], source.entries[4]});
    expected.version = source.version;
    expected.julianDate = source.julianDate;
    expected.sortTable = false;
    EXPECT_TRUE(ReadFile(cut.Out()) == BuildChartsBin(expected));
}

TEST(CreateSubsetChartsBin, KernelAndChunkedCopiesWriteTheSameBytes)
{
    FixtureBundle source = Bundle({Entry("AAA.PDF"), Entry("ABC.PDF"), Entry("ABD.PDF")});
    source.entries[1].data = RandomBytes((1 << 20) + 3, 9);
    source.gap = "gap";
    source.between = "between";
    Cut kernel(source, {"ABC", "ABD"});
    ASSERT_EQ(kernel.Run(), 0);
    BlobAllowKernelCopy(false);
    Cut chunked(source, {"ABC", "ABD"});
    int result = chunked.Run();
    BlobAllowKernelCopy(true);
    ASSERT_EQ(result, 0);
    EXPECT_TRUE(ReadFile(kernel.Out()) == ReadFile(chunked.Out()));
    ParsedBundle parsed = ParseChartsBin(ReadFile(kernel.Out()));
    ASSERT_EQ(parsed.entries.size(), 2u);
    EXPECT_EQ(BlobOf(ReadFile(kernel.Out()), parsed.entries[0]), source.entries[1].data);
    EXPECT_EQ(BlobOf(ReadFile(kernel.Out()), parsed.entries[1]), source.entries[2].data);
}

TEST(CreateSubsetChartsBin, ChecksumVerifiesAndOffsetsStartAtTheHeaderSize)
{
    FixtureBundle source = Bundle({Entry("ABC.PDF"), Entry("ABD.PDF"), Entry("ABE.PDF")});
    source.size = 100;  // not the header length: the offsets still start there
    Cut cut(source, {"ABC", "ABE"});
    ASSERT_EQ(cut.Run(), 0);
    const std::string bytes = ReadFile(cut.Out());
    ParsedBundle parsed = ParseChartsBin(bytes);
    EXPECT_EQ(parsed.crc, ReferenceBundleCrc(bytes));
    EXPECT_EQ(parsed.size, 100);
    EXPECT_EQ(parsed.fileCount, 2u);
    const uint32_t first = (uint32_t)source.entries[0].data.size();
    const uint32_t second = (uint32_t)source.entries[2].data.size();
    EXPECT_EQ(parsed.tableOffset, 27 + first + second);
    EXPECT_EQ(bytes.size(), 27 + first + second + 2 * 40u);
    ASSERT_EQ(parsed.entries.size(), 2u);
    EXPECT_EQ(parsed.entries[0].offset, 100u);
    EXPECT_EQ(parsed.entries[1].offset, 100 + first);
    EXPECT_EQ(bytes.substr(27, first), source.entries[0].data);
}

TEST(CreateSubsetChartsBin, TwoVariantsOfAChartAreBothKept)
{
    // Wherever the search lands in the pair, the step back reaches the first
    // and the entry after it is the second.
    for (int padding = 0; padding < 6; padding++) {
        std::vector<FixtureEntry> entries;
        for (const std::string &name : Padding(padding)) entries.push_back(Entry(name));
        entries.push_back(Entry("ABC.PDF", 1));
        entries.push_back(Entry("ABC.PDF", 2));
        entries.push_back(Entry("ABD.PDF"));
        Cut cut(Bundle(entries), {"ABC"});
        ASSERT_EQ(cut.Run(), 0) << padding;
        ParsedBundle parsed = ParseChartsBin(ReadFile(cut.Out()));
        ASSERT_EQ(parsed.entries.size(), 2u) << padding;
        EXPECT_EQ(parsed.entries[0].variant, 1) << padding;
        EXPECT_EQ(parsed.entries[1].variant, 2) << padding;
        EXPECT_EQ(parsed.entries[1].name, "ABC.PDF");
    }
}

TEST(CreateSubsetChartsBin, AThirdIdenticalNameIsNotKept)
{
    for (int padding = 0; padding < 6; padding++) {
        std::vector<FixtureEntry> entries;
        for (const std::string &name : Padding(padding)) entries.push_back(Entry(name));
        for (uint8_t v = 1; v <= 3; v++) entries.push_back(Entry("ABC.PDF", v));
        Cut cut(Bundle(entries), {"ABC"});
        ASSERT_EQ(cut.Run(), 0);
        ParsedBundle parsed = ParseChartsBin(ReadFile(cut.Out()));
        ASSERT_EQ(parsed.entries.size(), 2u) << padding;
        EXPECT_EQ(parsed.entries[0].variant, 1);
        EXPECT_EQ(parsed.entries[1].variant, 2);
    }
}

TEST(CreateSubsetChartsBin, LongRunOfIdenticalNames)
{
    std::vector<FixtureEntry> entries;
    for (int v = 0; v < 4000; v++) entries.push_back(Entry("ABC.PDF", (uint8_t)v));
    entries.push_back(Entry("ABD.PDF"));
    Names charts(3000, "ABC");
    Cut cut(Bundle(entries), charts);
    ASSERT_EQ(cut.Run(), 0);
    EXPECT_EQ(cut.Kept(), (Names{"ABC.PDF", "ABC.PDF"}));
}

TEST(CreateSubsetChartsBin, KeyComparisonIgnoresCase)
{
    Cut lower(Bundle({Entry("ABC.PDF")}), {"abc"});
    ASSERT_EQ(lower.Run(), 0);
    EXPECT_EQ(lower.Kept(), (Names{"ABC.PDF"}));
    Cut upper(Bundle({Entry("abc.pdf"), Entry("Abd.Pdf")}), {"ABC", "aBd"});
    ASSERT_EQ(upper.Run(), 0);
    EXPECT_EQ(upper.Kept(), (Names{"abc.pdf", "Abd.Pdf"}));
}

TEST(CreateSubsetChartsBin, TwoExtensionsOfOneBaseName)
{
    // The search may land on either extension; only from the first of the
    // two does the following entry come along.
    int bothKept = 0, oneKept = 0;
    for (int padding = 0; padding < 6; padding++) {
        Names names = Padding(padding);
        names.push_back("ABC.PDF");
        names.push_back("ABC.TIF");
        names.push_back("ABD.PDF");
        std::vector<FixtureEntry> entries;
        for (const std::string &name : names) entries.push_back(Entry(name));
        Cut cut(Bundle(entries), {"ABC"});
        ASSERT_EQ(cut.Run(), 0);
        const int landing = Landing(names, "ABC");
        ASSERT_GE(landing, padding);
        if (names[landing] == "ABC.PDF") {
            EXPECT_EQ(cut.Kept(), (Names{"ABC.PDF", "ABC.TIF"})) << padding;
            bothKept++;
        } else {
            EXPECT_EQ(cut.Kept(), (Names{"ABC.TIF"})) << padding;
            oneKept++;
        }
    }
    // Both outcomes occur with a midpoint binary search.
    EXPECT_GT(bothKept, 0);
    EXPECT_GT(oneKept, 0);
}

TEST(CreateSubsetChartsBin, BaseNameWithAPointIsSearchedByItsFirstPart)
{
    // "X.Y" is searched as "X"; the entry after X.PDF is compared with the
    // whole key and comes along.
    Cut dotted(Bundle({Entry("X.PDF"), Entry("X.Y.PDF")}), {"X.Y"});
    ASSERT_EQ(dotted.Run(), 0);
    EXPECT_EQ(dotted.Kept(), (Names{"X.PDF", "X.Y.PDF"}));

    Cut plain(Bundle({Entry("X.PDF"), Entry("X.Y.PDF")}), {"X"});
    ASSERT_EQ(plain.Run(), 0);
    EXPECT_EQ(plain.Kept(), (Names{"X.PDF"}));

    // Without an entry of the first part, the chart finds nothing.
    Cut alone(Bundle({Entry("A.B.PDF")}), {"A.B"});
    EXPECT_EQ(alone.Run(), -4);
    EXPECT_FALSE(Exists(alone.Out()));
}

TEST(CreateSubsetChartsBin, FlagsAreClearedAndOnlyThisSelectionCounts)
{
    Cut cut(Bundle({Entry("AAA.PDF", 0, 0x10), Entry("ABC.PDF", 0, 0x11), Entry("ABD.PDF", 0, 0x01),
                    Entry("ABE.PDF", 0, 0x20)}),
            {"ABC"});
    ASSERT_EQ(cut.Run(), 0);
    ParsedBundle parsed = ParseChartsBin(ReadFile(cut.Out()));
    ASSERT_EQ(parsed.entries.size(), 1u);
    EXPECT_EQ(parsed.entries[0].name, "ABC.PDF");
    EXPECT_EQ(parsed.entries[0].flags, 0);
}

TEST(CreateSubsetChartsBin, TableIsWrittenInSourceOrder)
{
    // Identical names in an order the bundle sort would change (variant 2
    // before 1): the written table keeps it.
    FixtureBundle source = Bundle({Entry("ABC.PDF", 2), Entry("ABC.PDF", 1)});
    source.sortTable = false;
    Cut cut(source, {"ABC"});
    ASSERT_EQ(cut.Run(), 0);
    ParsedBundle parsed = ParseChartsBin(ReadFile(cut.Out()));
    ASSERT_EQ(parsed.entries.size(), 2u);
    EXPECT_EQ(parsed.entries[0].variant, 2);
    EXPECT_EQ(parsed.entries[1].variant, 1);
}

TEST(CreateSubsetChartsBin, ChartNamedTwiceIsWrittenOnce)
{
    Cut cut(Bundle({Entry("ABC.PDF"), Entry("ABD.PDF")}), {"ABC", "ABC", "abc"});
    ASSERT_EQ(cut.Run(), 0);
    EXPECT_EQ(cut.Kept(), (Names{"ABC.PDF"}));
}

TEST(CreateSubsetChartsBin, NamesMatchingNothingWriteNoBundle)
{
    Cut cut(Bundle({Entry("ABC.PDF")}), {"XYZ", ""});
    EXPECT_EQ(cut.Run(), -4);
    EXPECT_FALSE(Exists(cut.Out()));

    Cut empty(Bundle({Entry("ABC.PDF")}), {});
    EXPECT_EQ(empty.Run(), -4);
    EXPECT_FALSE(Exists(empty.Out()));

    Cut emptyBundle(Bundle({}), {"ABC"});
    EXPECT_EQ(emptyBundle.Run(), -4);
}

TEST(CreateSubsetChartsBin, BlobPastTheSourceEndIsNotCopied)
{
    FixtureBundle source = Bundle({Entry("ABC.PDF"), Entry("ABD.PDF"), Entry("ABE.PDF")});
    source.entries[1].size = 0xFFFFFF00u;  // claims far more than the file holds
    Cut cut(source, {"ABC", "ABD", "ABE"});
    // No allocation of the claimed size: a small address space suffices.
    int result = RunInChild([&] {
        if (kAddressSpaceLimitsWork) LimitAddressSpace(64u << 20);
        return -cut.Run();
    });
    ASSERT_EQ(result, 0);
    const std::string bytes = ReadFile(cut.Out());
    // The table is whole; its offsets are the running sum of the sizes claimed.
    const uint32_t a = (uint32_t)source.entries[0].data.size();
    const uint32_t c = (uint32_t)source.entries[2].data.size();
    EXPECT_EQ(bytes.size(), 27 + a + c + 3 * 40u);
    EXPECT_EQ(bytes.substr(27, a + c), source.entries[0].data + source.entries[2].data);
    uint32_t tableOffset;
    memcpy(&tableOffset, bytes.data() + 12, 4);
    EXPECT_EQ(tableOffset, 27 + a + c);
    uint32_t offsets[3];
    for (int i = 0; i < 3; i++) memcpy(&offsets[i], bytes.data() + tableOffset + 40 * i + 26, 4);
    EXPECT_EQ(offsets[0], 27u);
    EXPECT_EQ(offsets[1], 27 + a);
    EXPECT_EQ(offsets[2], (uint32_t)(27 + a + 0xFFFFFF00u));
    uint32_t crc;
    memcpy(&crc, bytes.data(), 4);
    EXPECT_EQ(crc, ReferenceBundleCrc(bytes));
}

TEST(CreateSubsetChartsBin, AWriteErrorIsMinus11AndLeavesAnOlderBundleAlone)
{
    FixtureBundle source = Bundle({Entry("ABC.PDF"), Entry("ABD.PDF")});
    source.entries[0].data = RandomBytes(5000, 3);
    for (uint64_t limit : {(uint64_t)10, (uint64_t)1000, (uint64_t)5050}) {
        Cut cut(source, {"ABC", "ABD"});
        WriteFile(cut.Out(), "an older bundle");
        int result = RunInChild([&] {
            LimitFileSize(limit);
            return -cut.Run();
        });
        EXPECT_EQ(result, 11) << limit;
        EXPECT_EQ(ReadFile(cut.Out()), "an older bundle") << limit;
    }
}

TEST(CreateSubsetChartsBin, BundleKindFollowsTheSourcePath)
{
    // A path containing "vfrcharts.bin" is the VFR bundle: its chart table
    // and its destination name are the VFR ones.
    Cut vfr(Bundle({Entry("ABC.PDF")}), {"ABC"}, "old_vfrcharts.bin.1", "vfrchrts.dbf");
    ASSERT_EQ(vfr.Run(), 0);
    EXPECT_EQ(vfr.Kept("vfrcharts.bin"), (Names{"ABC.PDF"}));
    EXPECT_FALSE(Exists(vfr.Out("charts.bin")));

    // The test is case-sensitive: this one is an IFR bundle.
    Cut upper(Bundle({Entry("ABC.PDF")}), {"ABC"}, "VFRCHARTS.BIN", "vfrchrts.dbf");
    EXPECT_EQ(upper.Run(), -3);
    WriteFile(upper.Out("charts.dbf"), DbfTable(kSubsetChartFields, {{"KAAA", "1", "ABC"}}));
    ASSERT_EQ(upper.Run(), 0);
    EXPECT_EQ(upper.Kept("charts.bin"), (Names{"ABC.PDF"}));
    EXPECT_FALSE(Exists(upper.Out("vfrcharts.bin")));
}

TEST(CreateSubsetChartsBin, FailureCodes)
{
    int before = CountOpenDescriptors();
    Cut missing(Bundle({Entry("ABC.PDF")}), {"ABC"});
    remove(missing.bundlePath.c_str());
    EXPECT_EQ(missing.Run(), -1);

    Cut shortFile(Bundle({Entry("ABC.PDF")}), {"ABC"});
    WriteFile(shortFile.bundlePath, std::string(20, '\0'));
    EXPECT_EQ(shortFile.Run(), -2);
    FixtureBundle pastEnd = Bundle({Entry("ABC.PDF")});
    pastEnd.fileCount = 1000;
    Cut badTable(pastEnd, {"ABC"});
    EXPECT_EQ(badTable.Run(), -2);

    Cut noTable(Bundle({Entry("ABC.PDF")}), {"ABC"});
    remove(noTable.Out("charts.dbf").c_str());
    EXPECT_EQ(noTable.Run(), -3);
    EXPECT_FALSE(Exists(noTable.Out()));

    Cut blocked(Bundle({Entry("ABC.PDF")}), {"ABC"});
    ASSERT_EQ(mkdir(blocked.Out().c_str(), 0755), 0);
    EXPECT_EQ(blocked.Run(), -5);

    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(CreateSubsetChartsBin, SourceIsNotChanged)
{
    FixtureBundle source = Bundle({Entry("ABC.PDF", 0, 0x10), Entry("ABD.PDF")});
    Cut cut(source, {"ABC"});
    const std::string before = ReadFile(cut.bundlePath);
    ASSERT_EQ(cut.Run(), 0);
    EXPECT_TRUE(ReadFile(cut.bundlePath) == before);
}

// Many charts searched in one cut of a table full of shared base names, in
// no particular order, against the model of the search: where bsearch with
// the base-name order lands, the first of that run of identical names, and
// the entry after it when it has the key's base name.
TEST(CreateSubsetChartsBin, EveryKeyLandsAsTheBaseNameSearchLands)
{
    const char *bases[] = {"ab", "AB", "ab.c", "b", "B.x", "\xE9t\xE9", "zz", "a.b.c", "q"};
    const char *extensions[] = {".PDF", ".tif", "", ".", ".pdf"};
    uint32_t state = 777;
    auto next = [&state]() { return (state = state * 1103515245u + 12345u) >> 16; };
    for (int round = 0; round < 20; round++) {
        Names names;
        const int count = 5 + (int)(next() % 40);
        for (int i = 0; i < count; i++)
            names.push_back(std::string(bases[next() % 9]) + extensions[next() % 5]);
        if (round % 2 == 0)
            std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
                return strcasecmp(a.c_str(), b.c_str()) < 0;
            });
        Names keys;
        for (int k = 0; k < 6; k++) keys.push_back(bases[next() % 9]);
        keys.push_back("absent");

        std::vector<bool> marked(names.size(), false);
        auto base = [](const std::string &name) {
            size_t dot = name.rfind('.');
            return dot == std::string::npos ? name : name.substr(0, dot);
        };
        for (const std::string &key : keys) {
            int landing = Landing(names, key.c_str());
            if (landing < 0) continue;
            int first = landing;
            while (first > 0 && strcasecmp(names[first - 1].c_str(), names[first].c_str()) == 0) first--;
            marked[first] = true;
            if (first + 1 < (int)names.size() && strcasecmp(base(names[first + 1]).c_str(), key.c_str()) == 0)
                marked[first + 1] = true;
        }
        Names expected;
        for (size_t i = 0; i < names.size(); i++)
            if (marked[i]) expected.push_back(names[i]);

        std::vector<FixtureEntry> entries;
        for (size_t i = 0; i < names.size(); i++) entries.push_back(Entry(names[i], (uint8_t)i));
        FixtureBundle bundle = Bundle(entries);
        bundle.sortTable = false;  // the table as listed, sorted or not
        Cut cut(bundle, keys);
        const int result = cut.Run();
        if (expected.empty()) {
            EXPECT_EQ(result, -4) << round;
            continue;
        }
        ASSERT_EQ(result, 0) << round;
        EXPECT_EQ(cut.Kept(), expected) << round;
    }
}
