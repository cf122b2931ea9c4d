// The chart bundle merge of the combine.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "bundle/blob.h"
#include "combine/combine.h"
#include "bundle_writer.h"
#include "fork_util.h"
#include "test_util.h"

namespace {

FixtureBundle IfrBundle()
{
    FixtureBundle b;
    b.size = 0x1b;
    b.version = 0x0203;
    b.julianDate = "2460400.5";
    // Blobs laid out in another order than the table's.
    b.entries = {{"CHARLIE.PDF", RandomBytes(3000, 1), 31, 0, 0},
                 {"ALPHA.PDF", RandomBytes(1000, 2), 11, 0, 0},
                 {"bravo.tif", RandomBytes(2000, 3), 21, 0, 1}};
    return b;
}

FixtureBundle VfrBundle()
{
    FixtureBundle b;
    b.size = 0x2c;
    b.version = 0x0405;
    b.julianDate = "2460300.5";
    b.entries = {{"zulu.pdf", RandomBytes(1500, 4), 41, 0x10, 0},
                 {"BRAVO.TIF", RandomBytes(2500, 5), 51, 0, 0}};
    return b;
}

// The blobs of a fixture bundle in its table order.
std::vector<FixtureEntry> InTableOrder(const FixtureBundle &bundle)
{
    std::vector<FixtureEntry> entries = bundle.entries;
    std::stable_sort(entries.begin(), entries.end(), FixtureEntryBefore);
    return entries;
}

struct Source {
    TempDir src, dst;
    void Write(const FixtureBundle *ifr, const FixtureBundle *vfr)
    {
        if (ifr) WriteChartsBin(src / "charts.bin", *ifr);
        if (vfr) WriteChartsBin(src / "vfrcharts.bin", *vfr);
    }
    std::string Result() const { return ReadFile(dst / "charts.bin"); }
};

// The bundle with another Table Offset, for parsing a table that is not
// where its header says.
std::string WithTableOffset(std::string bytes, uint32_t offset)
{
    return bytes.replace(12, 4, U32(offset));
}

// The merged entry whose blob starts at offset.
const ParsedEntry *EntryAt(const ParsedBundle &bundle, uint32_t offset)
{
    for (const ParsedEntry &e : bundle.entries)
        if (e.offset == offset && e.size > 0) return &e;
    return nullptr;
}

}  // namespace

TEST(MergeChartsBin, ThreeAndTwoEntriesGiveFiveSortedIfrBlobsFirst)
{
    Source s;
    FixtureBundle ifr = IfrBundle(), vfr = VfrBundle();
    s.Write(&ifr, &vfr);
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    std::string bytes = s.Result();
    ParsedBundle merged = ParseChartsBin(bytes);
    ASSERT_EQ(merged.fileCount, 5u);
    std::vector<std::string> names;
    for (const ParsedEntry &e : merged.entries) names.push_back(e.name);
    // Equal names ignoring case are ordered by variant.
    EXPECT_EQ(names, (std::vector<std::string>{"ALPHA.PDF", "BRAVO.TIF", "bravo.tif", "CHARLIE.PDF", "zulu.pdf"}));

    // The data region: the IFR blobs in IFR table order, then the VFR blobs
    // in VFR table order, with no gaps.
    uint32_t at = 27;
    for (const FixtureBundle *source : {&ifr, &vfr}) {
        for (const FixtureEntry &expected : InTableOrder(*source)) {
            const ParsedEntry *e = EntryAt(merged, at);
            ASSERT_NE(e, nullptr) << expected.name;
            EXPECT_EQ(e->name, expected.name);
            EXPECT_EQ(e->key, expected.key);
            EXPECT_EQ(e->flags, expected.flags);
            EXPECT_EQ(e->variant, expected.variant);
            EXPECT_TRUE(BlobOf(bytes, *e) == expected.data) << expected.name;
            at += (uint32_t)expected.data.size();
        }
    }
    EXPECT_EQ(merged.tableOffset, at);
    EXPECT_EQ(bytes.size(), at + 5 * 40u);
}

TEST(MergeChartsBin, HeaderIsTheIfrHeaderWithCountAndComputedTableOffset)
{
    Source s;
    FixtureBundle ifr = IfrBundle(), vfr = VfrBundle();
    // Gaps make the computed offset differ from where the table lands.
    ifr.gap = std::string(100, 'g');
    vfr.between = "--";
    s.Write(&ifr, &vfr);
    ParsedBundle ifrParsed = ParseChartsBin(BuildChartsBin(ifr));
    ParsedBundle vfrParsed = ParseChartsBin(BuildChartsBin(vfr));
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    std::string bytes = s.Result();
    EXPECT_EQ(bytes.substr(4, 2), U16(ifr.size));
    EXPECT_EQ(bytes.substr(6, 2), U16(ifr.version));
    EXPECT_EQ(bytes.substr(8, 4), U32(5));
    EXPECT_EQ(bytes.substr(12, 4), U32(ifrParsed.tableOffset + vfrParsed.tableOffset - 27));
    EXPECT_EQ(bytes.substr(16, 11), std::string("2460400.5\0\0", 11));
    EXPECT_EQ(bytes.substr(0, 4), U32(ReferenceBundleCrc(bytes)));
    // The blobs alone fill the data region; the table follows them, so the
    // computed offset is not where the table lies.
    EXPECT_EQ(bytes.size() - 5 * 40, 27 + 6000 + 4000u);
    EXPECT_NE(ifrParsed.tableOffset + vfrParsed.tableOffset - 27, 27 + 6000 + 4000u);
    EXPECT_EQ(ParseChartsBin(WithTableOffset(bytes, 27 + 6000 + 4000)).entries.size(), 5u);
}

TEST(MergeChartsBin, ChecksumVerifies)
{
    Source s;
    FixtureBundle ifr = IfrBundle(), vfr = VfrBundle();
    s.Write(&ifr, &vfr);
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    std::string bytes = s.Result();
    EXPECT_EQ(ParseChartsBin(bytes).crc, ReferenceBundleCrc(bytes));
    EXPECT_NE(ParseChartsBin(bytes).crc, ParseChartsBin(BuildChartsBin(ifr)).crc);
}

TEST(MergeChartsBin, ChartInBothBundlesOccursTwiceIfrFirst)
{
    Source s;
    FixtureBundle ifr, vfr;
    ifr.entries = {{"ABC.PDF", "ifr copy", 1}};
    vfr.entries = {{"ABC.PDF", "the vfr copy", 2}, {"ABB.PDF", "before", 3}};
    s.Write(&ifr, &vfr);
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    std::string bytes = s.Result();
    ParsedBundle merged = ParseChartsBin(bytes);
    ASSERT_EQ(merged.entries.size(), 3u);
    EXPECT_EQ(merged.entries[0].name, "ABB.PDF");
    EXPECT_EQ(merged.entries[1].name, "ABC.PDF");
    EXPECT_EQ(merged.entries[2].name, "ABC.PDF");
    // Equal in name, variant and flags: they stay in the order written.
    EXPECT_EQ(BlobOf(bytes, merged.entries[1]), "ifr copy");
    EXPECT_EQ(BlobOf(bytes, merged.entries[2]), "the vfr copy");
}

TEST(MergeChartsBin, WithoutVfrBundleNothingIsWritten)
{
    Source s;
    FixtureBundle ifr = IfrBundle();
    s.Write(&ifr, nullptr);
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    EXPECT_EQ(CountOpenDescriptors(), before);
    EXPECT_TRUE(ListDir(s.dst.path()).empty());
}

TEST(MergeChartsBin, WithNeitherBundleMinus1)
{
    Source s;
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), -1);
    EXPECT_TRUE(ListDir(s.dst.path()).empty());
}

TEST(MergeChartsBin, WithoutIfrBundleTheVfrBundleIsRewrittenWithTheBeginDate)
{
    Source s;
    FixtureBundle vfr = VfrBundle();
    vfr.gap = "xx";
    s.Write(nullptr, &vfr);
    WriteFile(s.src / "charts.ini", "[Data]\r\nDatabase_Begin_Date=2460310.5\r\n");
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    std::string bytes = s.Result();
    ParsedBundle source = ParseChartsBin(BuildChartsBin(vfr));
    // The VFR header's own Table Offset, although the gap is gone.
    EXPECT_EQ(bytes.substr(12, 4), U32(source.tableOffset));
    EXPECT_EQ(bytes.size(), 27 + 4000 + 2 * 40u);
    ParsedBundle merged = ParseChartsBin(WithTableOffset(bytes, 27 + 4000));
    EXPECT_EQ(merged.julianDate, "2460310.5");
    EXPECT_EQ(merged.size, vfr.size);
    EXPECT_EQ(merged.version, vfr.version);
    EXPECT_EQ(merged.fileCount, 2u);
    EXPECT_EQ(bytes.substr(0, 4), U32(ReferenceBundleCrc(bytes)));
    uint32_t at = 27;
    for (const FixtureEntry &expected : InTableOrder(vfr)) {
        const ParsedEntry *e = EntryAt(merged, at);
        ASSERT_NE(e, nullptr);
        EXPECT_TRUE(BlobOf(bytes, *e) == expected.data);
        at += (uint32_t)expected.data.size();
    }
}

TEST(MergeChartsBin, BeginDateIsFormattedOverTheVfrDate)
{
    Source s;
    FixtureBundle vfr = VfrBundle();
    vfr.julianDate = "ABCDEFGHIJK";  // all 11 bytes, no terminator
    s.Write(nullptr, &vfr);
    // No charts.ini: 0.0; the bytes behind the terminator stay the VFR ones.
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    EXPECT_EQ(s.Result().substr(16, 11), std::string("0.0\0EFGHIJK", 11));

    WriteFile(s.src / "charts.ini", "no date here\r\n");
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    EXPECT_EQ(s.Result().substr(16, 11), std::string("0.0\0EFGHIJK", 11));

    WriteFile(s.src / "charts.ini", "");
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    EXPECT_EQ(s.Result().substr(16, 11), std::string("0.0\0EFGHIJK", 11));

    WriteFile(s.src / "charts.ini", "Database_Begin_Date=7.25\r\n");
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    EXPECT_EQ(s.Result().substr(16, 11), std::string("7.2\0EFGHIJK", 11));

    // A text longer than the field is cut to what fits with its terminator.
    WriteFile(s.src / "charts.ini", "Database_Begin_Date=123456789012.5\r\n");
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    EXPECT_EQ(s.Result().substr(16, 11), std::string("1234567890\0", 11));
    EXPECT_EQ(ParseChartsBin(s.Result()).crc, ReferenceBundleCrc(s.Result()));
}

TEST(MergeChartsBin, EmptyBlobIsCopiedAsNothing)
{
    Source s;
    FixtureBundle ifr, vfr;
    FixtureEntry empty("EMPTY.PDF", "", 1);
    empty.offset = 0xFFFFFF00u;  // far past the end: there is nothing to read there
    ifr.entries = {{"A.PDF", "aaa"}, empty, {"C.PDF", "ccc"}};
    vfr.entries = {{"B.PDF", "bb"}};
    s.Write(&ifr, &vfr);
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    std::string bytes = s.Result();
    ParsedBundle merged = ParseChartsBin(bytes);
    ASSERT_EQ(merged.entries.size(), 4u);
    EXPECT_EQ(merged.entries[3].name, "EMPTY.PDF");
    EXPECT_EQ(merged.entries[3].size, 0u);
    // It takes the position where its blob would have been written.
    EXPECT_EQ(merged.entries[3].offset, 27 + 3 + 3u);
    EXPECT_EQ(bytes.size(), 27 + 3 + 3 + 2 + 4 * 40u);
}

TEST(MergeChartsBin, EmptyBundles)
{
    Source s;
    FixtureBundle ifr, vfr;
    s.Write(&ifr, &vfr);
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    std::string bytes = s.Result();
    EXPECT_EQ(bytes.size(), 27u);
    ParsedBundle merged = ParseChartsBin(bytes);
    EXPECT_EQ(merged.fileCount, 0u);
    EXPECT_EQ(merged.tableOffset, 27u);
    EXPECT_EQ(merged.crc, ReferenceBundleCrc(bytes));
}

TEST(MergeChartsBin, SourceBundlesAreNotChanged)
{
    Source s;
    FixtureBundle ifr = IfrBundle(), vfr = VfrBundle();
    s.Write(&ifr, &vfr);
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    EXPECT_EQ(ReadFile(s.src / "charts.bin"), BuildChartsBin(ifr));
    EXPECT_EQ(ReadFile(s.src / "vfrcharts.bin"), BuildChartsBin(vfr));
    EXPECT_EQ(ListDir(s.dst.path()), (std::vector<std::string>{"charts.bin"}));
}

TEST(MergeChartsBin, SharedAndOverlappingBlobsAreCopiedForEachEntry)
{
    Source s;
    FixtureBundle ifr, vfr;
    // B.PDF points at A.PDF's blob, C.PDF at the second half of it.
    FixtureEntry a("A.PDF", "0123456789"), b("B.PDF", ""), c("C.PDF", "");
    b.offset = 27;
    b.size = 10;
    c.offset = 32;
    c.size = 5;
    ifr.entries = {a, b, c};
    vfr.entries = {{"D.PDF", "dd"}};
    s.Write(&ifr, &vfr);
    ASSERT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    std::string bytes = s.Result();
    // The data region outgrows the sum of the sources': the table is not
    // where the computed offset says.
    ASSERT_EQ(bytes.size(), 27 + 27 + 4 * 40u);
    ParsedBundle merged = ParseChartsBin(WithTableOffset(bytes, 27 + 27));
    ASSERT_EQ(merged.entries.size(), 4u);
    EXPECT_EQ(BlobOf(bytes, merged.entries[0]), "0123456789");
    EXPECT_EQ(BlobOf(bytes, merged.entries[1]), "0123456789");
    EXPECT_EQ(BlobOf(bytes, merged.entries[2]), "56789");
    EXPECT_EQ(BlobOf(bytes, merged.entries[3]), "dd");
    EXPECT_EQ(bytes.substr(27, 27), "0123456789012345678956789dd");
}

TEST(MergeChartsBin, ChunkedCopyGivesTheSameBundle)
{
    Source kernel, chunked;
    FixtureBundle ifr = IfrBundle(), vfr = VfrBundle();
    kernel.Write(&ifr, &vfr);
    chunked.Write(&ifr, &vfr);
    ASSERT_EQ(MergeChartsBin(kernel.src.c_str(), kernel.dst.c_str()), 0);
    BlobAllowKernelCopy(false);
    int result = MergeChartsBin(chunked.src.c_str(), chunked.dst.c_str());
    BlobAllowKernelCopy(true);
    ASSERT_EQ(result, 0);
    EXPECT_TRUE(kernel.Result() == chunked.Result());
}

// ---- Failures ------------------------------------------------------------

TEST(MergeChartsBin, DestinationThatCannotBeCreatedGivesMinus2)
{
    Source s;
    FixtureBundle ifr = IfrBundle(), vfr = VfrBundle();
    s.Write(&ifr, &vfr);
    ASSERT_EQ(mkdir((s.dst / "charts.bin").c_str(), 0700), 0);
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), -2);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(MergeChartsBin, EntryPastTheEndOfTheIfrBundleGivesMinus5)
{
    Source s;
    FixtureBundle ifr = IfrBundle(), vfr = VfrBundle();
    ifr.entries[1].size = 1u << 30;  // claims a gigabyte
    s.Write(&ifr, &vfr);
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), -5);
    EXPECT_EQ(CountOpenDescriptors(), before);
    // No bundle cut short takes the name, and nothing is left behind.
    EXPECT_TRUE(ListDir(s.dst.path()).empty());
}

TEST(MergeChartsBin, AnEntryPastTheEndLeavesAnOlderBundleAsItWas)
{
    Source s;
    FixtureBundle ifr, vfr = VfrBundle();
    ifr.entries = {{"A.PDF", "aaaa"}, {"B.PDF", "bbbbbb"}, {"C.PDF", "cc"}, {"D.PDF", "dddd"}};
    ifr.entries[2].size = 100000;  // runs past the end of the bundle
    s.Write(&ifr, &vfr);
    WriteFile(s.dst / "charts.bin", "an older bundle");
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), -5);
    EXPECT_EQ(s.Result(), "an older bundle");
    EXPECT_EQ(ListDir(s.dst.path()), std::vector<std::string>{"charts.bin"});
}

TEST(MergeChartsBin, EntryPastTheEndOfTheVfrBundleGivesMinus8)
{
    Source s;
    FixtureBundle ifr = IfrBundle(), vfr = VfrBundle();
    vfr.entries[0].offset = 1u << 31;
    s.Write(&ifr, &vfr);
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), -8);
    EXPECT_EQ(CountOpenDescriptors(), before);
    EXPECT_TRUE(ListDir(s.dst.path()).empty());
}

TEST(MergeChartsBin, TruncatedBundlesGiveTheirShortReadCodes)
{
    Source s;
    std::string ifr = BuildChartsBin(IfrBundle()), vfr = BuildChartsBin(VfrBundle());
    WriteFile(s.src / "charts.bin", ifr.substr(0, ifr.size() - 20));
    WriteFile(s.src / "vfrcharts.bin", vfr);
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), -5);
    WriteFile(s.src / "charts.bin", ifr);
    WriteFile(s.src / "vfrcharts.bin", vfr.substr(0, 20));
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), -8);
    // Also without an IFR bundle.
    remove((s.src / "charts.bin").c_str());
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), -8);
    EXPECT_EQ(CountOpenDescriptors(), before);
    // A truncated IFR bundle with no VFR bundle writes nothing and is no failure.
    WriteFile(s.src / "charts.bin", ifr.substr(0, 10));
    remove((s.src / "vfrcharts.bin").c_str());
    EXPECT_EQ(MergeChartsBin(s.src.c_str(), s.dst.c_str()), 0);
    EXPECT_TRUE(ListDir(s.dst.path()).empty());
}

namespace {

// Runs the merge in a child whose files may not grow past limit bytes.
int MergeUnderFileLimit(const Source &s, uint64_t limit)
{
    return RunInChild([&] {
        LimitFileSize(limit);
        return -MergeChartsBin(s.src.c_str(), s.dst.c_str());
    });
}

FixtureBundle LargeBlobs(int count, size_t size, uint32_t seed)
{
    FixtureBundle b;
    for (int i = 0; i < count; i++)
        b.entries.push_back({"F" + std::to_string(seed) + "_" + std::to_string(i) + ".PDF",
                             RandomBytes(size, seed + (uint32_t)i)});
    return b;
}

}  // namespace

TEST(MergeChartsBin, ShortWritesGiveTheirStepsCodes)
{
    Source s;
    FixtureBundle ifr = LargeBlobs(2, 100000, 1), vfr = LargeBlobs(2, 100000, 7);
    s.Write(&ifr, &vfr);
    EXPECT_EQ(MergeUnderFileLimit(s, 10), 3);                    // the header
    EXPECT_EQ(MergeUnderFileLimit(s, 27 + 150000), 6);           // an IFR blob
    EXPECT_EQ(MergeUnderFileLimit(s, 27 + 250000), 9);           // a VFR blob
    EXPECT_EQ(MergeUnderFileLimit(s, 27 + 400000 + 100), 10);    // the table
    EXPECT_EQ(MergeUnderFileLimit(s, 27 + 400000 + 160), 0);
    std::string bytes = s.Result();
    EXPECT_EQ(ParseChartsBin(bytes).crc, ReferenceBundleCrc(bytes));
}

TEST(MergeChartsBin, ShortWritesOnTheChunkedCopy)
{
    Source s;
    FixtureBundle ifr = LargeBlobs(2, 100000, 1), vfr = LargeBlobs(2, 100000, 7);
    s.Write(&ifr, &vfr);
    for (auto [limit, code] : {std::pair<uint64_t, int>{27 + 150000, 6}, {27 + 250000, 9}}) {
        int result = RunInChild([&] {
            BlobAllowKernelCopy(false);
            LimitFileSize(limit);
            return -MergeChartsBin(s.src.c_str(), s.dst.c_str());
        });
        EXPECT_EQ(result, code) << limit;
    }
}

TEST(MergeChartsBin, NoMemoryForBlobsGivesMinus4AndMinus7)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    Source s;
    // Small IFR blobs fit the memory left; a large blob does not.
    FixtureBundle small = LargeBlobs(3, 1000, 1), large = LargeBlobs(1, 600000, 9);
    for (auto [ifr, vfr, code] : {std::tuple<FixtureBundle *, FixtureBundle *, int>{&large, &small, 4},
                                  {&small, &large, 7}}) {
        s.Write(ifr, vfr);
        int result = RunInChild([&] {
            BlobAllowKernelCopy(false);
            LimitAddressSpace(0);
            ExhaustMemory(256 << 10);
            return -MergeChartsBin(s.src.c_str(), s.dst.c_str());
        });
        EXPECT_EQ(result, code);
    }
}

TEST(MergeChartsBin, NoMemoryForTheCombinedTableGivesMinus1)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    Source s;
    // Two tables of a million empty entries (40 MB each) fit the address
    // space left; growing one to hold both does not.
    const uint32_t count = 1000000;
    std::string bundle = U32(0) + U16(27) + U16(1) + U32(count) + U32(27) + std::string(11, '\0');
    bundle += std::string((size_t)count * 40, '\0');
    WriteFile(s.src / "charts.bin", bundle);
    WriteFile(s.src / "vfrcharts.bin", bundle);
    int result = RunInChild([&] {
        LimitAddressSpace(100u << 20);
        return -MergeChartsBin(s.src.c_str(), s.dst.c_str());
    });
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(ListDir(s.dst.path()).empty());
}
