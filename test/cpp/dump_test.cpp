// The text listing of a chart bundle.
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

#include "bundle/blob.h"
#include "bundle_writer.h"
#include "fork_util.h"
#include "tarntermchart.h"
#include "test_util.h"

namespace {

std::string Hex(uint32_t v)
{
    char text[16];
    snprintf(text, sizeof text, "%x", v);
    return text;
}

std::string Header(const std::string &bytes)
{
    ParsedBundle b = ParseChartsBin(bytes);
    return "; Header CRC:          " + Hex(b.crc) + "\r\n" +
           "; Header Size:         " + std::to_string(b.size) + "\r\n" +
           "; Header Version:      " + Hex(b.version) + "\r\n" +
           "; Header File Count:   " + std::to_string(b.fileCount) + "\r\n" +
           "; Header Table Offset: " + std::to_string(b.tableOffset) + "\r\n" +
           "; Header Julian Date:  " + b.julianDate + "\r\n" + ";\r\n";
}

// Two charts: blobs laid out in the order given, table sorted.
FixtureBundle TwoCharts()
{
    FixtureBundle b;
    b.version = 0x1A;
    b.entries = {{"XYZ.TIF", "123456789", 0x80000000u, 0, 7},
                 {"ABC.PDF", "hello", 42, 16, 3}};
    return b;
}

struct Dump {
    int result;
    std::string text;
};

Dump DumpOf(const TempDir &dir, const std::string &bytes, int option1, int option2)
{
    WriteFile(dir / "charts.bin", bytes);
    int result = TarnTermChart_DumpChartsBin((dir / "charts.bin").c_str(), (dir / "dump.txt").c_str(),
                                             option1, option2);
    return {result, ReadFile(dir / "dump.txt")};
}

}  // namespace

TEST(DumpChartsBin, EmptyBundleGivesTheSevenHeaderLines)
{
    TempDir dir;
    FixtureBundle empty;
    empty.version = 0x1A;
    std::string bytes = BuildChartsBin(empty);
    Dump d = DumpOf(dir, bytes, 1, 1);
    EXPECT_EQ(d.result, 0);
    uint32_t crc = ReferenceBundleCrc(bytes);
    EXPECT_EQ(d.text, "; Header CRC:          " + Hex(crc) +
                          "\r\n"
                          "; Header Size:         27\r\n"
                          "; Header Version:      1a\r\n"
                          "; Header File Count:   0\r\n"
                          "; Header Table Offset: 27\r\n"
                          "; Header Julian Date:  2460000.5\r\n"
                          ";\r\n");
}

TEST(DumpChartsBin, NamesSizesKeysFlagsVariants)
{
    TempDir dir;
    std::string bytes = BuildChartsBin(TwoCharts());
    Dump d = DumpOf(dir, bytes, 0, 0);
    EXPECT_EQ(d.result, 2);
    EXPECT_EQ(d.text, Header(bytes) +
                          "ABC.PDF\t0000000005\t0000000042\t016\t003\r\n"
                          "XYZ.TIF\t0000000009\t-2147483648\t000\t007\r\n");
}

TEST(DumpChartsBin, ChecksumIsTheRegisterBeforeInversion)
{
    TempDir dir;
    std::string bytes = BuildChartsBin(TwoCharts());
    Dump d = DumpOf(dir, bytes, 0, 1);
    EXPECT_EQ(d.result, 2);
    // "123456789": CRC-32 0xCBF43926, so the register before inversion is 0x340bc6d9.
    EXPECT_EQ(d.text, Header(bytes) +
                          "ABC.PDF\t0000000005\t0000000042\t016\t003\t" +
                          Hex(ReferenceStandardRegister("hello")) + "\r\n" +
                          "XYZ.TIF\t0000000009\t-2147483648\t000\t007\t340bc6d9\r\n");
}

TEST(DumpChartsBin, OffsetsAndBoth)
{
    TempDir dir;
    std::string bytes = BuildChartsBin(TwoCharts());
    // Blobs: XYZ.TIF at 27 (9 bytes), ABC.PDF at 36.
    Dump offsets = DumpOf(dir, bytes, 1, 0);
    EXPECT_EQ(offsets.result, 2);
    EXPECT_EQ(offsets.text, Header(bytes) +
                                "ABC.PDF\t0000000005\t0000000042\t016\t003\t0000000036\r\n"
                                "XYZ.TIF\t0000000009\t-2147483648\t000\t007\t0000000027\r\n");
    Dump both = DumpOf(dir, bytes, 1, 1);
    EXPECT_EQ(both.result, 2);
    EXPECT_EQ(both.text, Header(bytes) + "ABC.PDF\t0000000005\t0000000042\t016\t003\t0000000036\t" +
                             Hex(ReferenceStandardRegister("hello")) + "\r\n" +
                             "XYZ.TIF\t0000000009\t-2147483648\t000\t007\t0000000027\t340bc6d9\r\n");
}

TEST(DumpChartsBin, OtherOptionValuesRepeatThePreviousLine)
{
    TempDir dir;
    std::string bytes = BuildChartsBin(TwoCharts());
    for (auto options : {std::make_pair(2, 0), std::make_pair(0, 2), std::make_pair(-1, 1),
                         std::make_pair(1, 7)}) {
        Dump d = DumpOf(dir, bytes, options.first, options.second);
        EXPECT_EQ(d.result, 2);
        EXPECT_EQ(d.text, Header(bytes) + ";\r\n;\r\n") << options.first << "," << options.second;
    }
}

TEST(DumpChartsBin, ChecksumModeReadsEvenWhenNoFormatMatches)
{
    TempDir dir;
    FixtureBundle b = TwoCharts();
    b.entries[0].size = 1000;  // runs past the end of the file
    std::string bytes = BuildChartsBin(b);
    EXPECT_EQ(DumpOf(dir, bytes, 2, 1).result, -6);
    EXPECT_EQ(DumpOf(dir, bytes, 1, 2).result, 2);  // no checksum, no read
}

TEST(DumpChartsBin, LargeValuesPrintAsNegativeNumbers)
{
    TempDir dir;
    FixtureBundle b;
    b.entries = {{"BIG.PDF", "", 0xFFFFFFFFu, 255, 255}};
    b.entries[0].size = 0xFFFFFFFFu;
    b.entries[0].offset = 0x80000001u;
    std::string bytes = BuildChartsBin(b);
    Dump d = DumpOf(dir, bytes, 1, 0);
    EXPECT_EQ(d.result, 1);
    EXPECT_EQ(d.text, Header(bytes) + "BIG.PDF\t-000000001\t-000000001\t255\t255\t-2147483647\r\n");
}

TEST(DumpChartsBin, FullLengthNameAndJulianDate)
{
    TempDir dir;
    FixtureBundle b;
    b.julianDate = "2460000.500";  // all 11 bytes, no terminator
    b.entries = {{"ABCDEFGHIJKLMNOPQRSTUVWXYZ", "x", 1, 0, 0}};
    std::string bytes = BuildChartsBin(b);
    Dump d = DumpOf(dir, bytes, 0, 0);
    EXPECT_EQ(d.result, 1);
    EXPECT_NE(d.text.find("; Header Julian Date:  2460000.500\r\n;\r\n"), std::string::npos);
    EXPECT_NE(d.text.find("\r\nABCDEFGHIJKLMNOPQRSTUVWXYZ\t0000000001\t"), std::string::npos);
}

TEST(DumpChartsBin, EmptyBlobAndLargeBlobChecksums)
{
    TempDir dir;
    std::string large = RandomBytes(2 * kBlobChunk + 3, 6);
    FixtureBundle b;
    b.entries = {{"A.PDF", "", 1, 0, 0}, {"B.PDF", large, 2, 0, 0}};
    std::string bytes = BuildChartsBin(b);
    Dump d = DumpOf(dir, bytes, 0, 1);
    EXPECT_EQ(d.result, 2);
    EXPECT_EQ(d.text, Header(bytes) + "A.PDF\t0000000000\t0000000001\t000\t000\tffffffff\r\n" +
                          "B.PDF\t000" + std::to_string(large.size()) + "\t0000000002\t000\t000\t" +
                          Hex(ReferenceStandardRegister(large)) + "\r\n");
}

TEST(DumpChartsBin, BundleThatCannotBeOpenedOrRead)
{
    TempDir dir;
    int before = CountOpenDescriptors();
    EXPECT_EQ(TarnTermChart_DumpChartsBin((dir / "missing.bin").c_str(), (dir / "out.txt").c_str(), 0, 0), -1);
    EXPECT_FALSE(Exists(dir / "out.txt"));
    std::string bytes = BuildChartsBin(TwoCharts());
    EXPECT_EQ(DumpOf(dir, bytes.substr(0, 26), 0, 0).result, -2);
    FixtureBundle pastEnd = TwoCharts();
    pastEnd.fileCount = 3;
    EXPECT_EQ(DumpOf(dir, BuildChartsBin(pastEnd), 0, 0).result, -2);
    FixtureBundle huge = TwoCharts();
    huge.fileCount = 0xFFFFFFFFu;
    EXPECT_EQ(DumpOf(dir, BuildChartsBin(huge), 0, 0).result, -2);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(DumpChartsBin, OutputThatCannotBeCreated)
{
    TempDir dir;
    WriteChartsBin(dir / "charts.bin", TwoCharts());
    int before = CountOpenDescriptors();
    EXPECT_EQ(TarnTermChart_DumpChartsBin((dir / "charts.bin").c_str(), (dir / "no/dir/out.txt").c_str(), 0, 0), -3);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(DumpChartsBin, EntryPastTheEndIsAShortReadAfterTheLinesBefore)
{
    TempDir dir;
    FixtureBundle b = TwoCharts();
    b.entries[0].offset = 0x7FFFFFF0u;  // XYZ.TIF, listed second
    std::string bytes = BuildChartsBin(b);
    int before = CountOpenDescriptors();
    Dump d = DumpOf(dir, bytes, 0, 1);
    EXPECT_EQ(d.result, -6);
    EXPECT_EQ(CountOpenDescriptors(), before);
    // The output holds what was written before the failure.
    EXPECT_EQ(d.text, Header(bytes) + "ABC.PDF\t0000000005\t0000000042\t016\t003\t" +
                          Hex(ReferenceStandardRegister("hello")) + "\r\n");
    // Without checksums the same bundle lists fine.
    EXPECT_EQ(DumpOf(dir, bytes, 1, 0).result, 2);
}

TEST(DumpChartsBin, NoMemoryForAnEntrysData)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    TempDir dir;
    FixtureBundle b;
    b.entries = {{"BIG.PDF", RandomBytes(2 * kBlobChunk, 1), 1, 0, 0}};
    WriteChartsBin(dir / "charts.bin", b);
    std::string bundle = dir / "charts.bin", out = dir / "out.txt";
    int result = RunInChild([&] {
        // Room for the streams and the table, not for a chunk of data.
        LimitAddressSpace(0);
        ExhaustMemory(256u << 10);
        return -TarnTermChart_DumpChartsBin(bundle.c_str(), out.c_str(), 0, 1);
    });
    EXPECT_EQ(result, 4);
}

TEST(DumpChartsBin, ForwarderPassesEverythingThrough)
{
    TempDir dir;
    std::string bytes = BuildChartsBin(TwoCharts());
    WriteFile(dir / "charts.bin", bytes);
    EXPECT_EQ(TarnwickAPI_DumpChartsBin((dir / "charts.bin").c_str(), (dir / "out.txt").c_str(), 1, 0), 2);
    EXPECT_EQ(ReadFile(dir / "out.txt"), DumpOf(dir, bytes, 1, 0).text);
}
