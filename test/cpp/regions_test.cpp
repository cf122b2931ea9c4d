// The region catalogue, the coverage codes and the coverage query.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include "directory/regions.h"
#include "tarntermchart.h"
#include "test_util.h"

static const std::vector<Region> kRegions = {
    {"100", "US1", "Alpha"}, {"200", "EUR", "Beta"}, {"300", "CAN", "Gamma"},
    {"400", "US16", "Delta VFR"}, {"500", "US17", "Epsilon restricted"}};

static void WriteCoverage(const TempDir &dir, const std::string &codes,
                          const std::vector<Region> &regions = kRegions)
{
    WriteFile(dir / "regions.dat", RegionsDat(regions));
    WriteFile(dir / "coverages.txt", codes);
}

static int Coverage(const TempDir &dir, char *buffer, int size)
{
    return TarnTermChart_CoverageInfo(dir.c_str(), buffer, size);
}

TEST(RegionFile, ReadsComplementedRecords)
{
    TempDir dir;
    WriteFile(dir / "regions.dat", RegionsDat(kRegions));
    RegionFile *region = RegionFile_Open((dir / "regions.dat").c_str());
    ASSERT_NE(region, nullptr);
    char key[33], code[7], description[51];
    ASSERT_EQ(RegionFile_ReadLine(region, key, code, description), 1);
    EXPECT_STREQ(key, "100");
    EXPECT_STREQ(code, "US1");
    EXPECT_STREQ(description, "Alpha");
    for (int i = 1; i < 5; i++) EXPECT_EQ(RegionFile_ReadLine(region, key, code, description), 1);
    EXPECT_EQ(RegionFile_ReadLine(region, key, code, description), 0);
    RegionFile_SeekToBegin(region);
    EXPECT_EQ(RegionFile_ReadLine(region, key, code, description), 1);
    EXPECT_STREQ(code, "US1");
    RegionFile_Close(region);
}

TEST(RegionFile, FullWidthFieldsAreTerminated)
{
    TempDir dir;
    std::string longKey(32, '9'), longCode = "ABCDEF", longDesc(50, 'd');
    WriteFile(dir / "regions.dat", RegionsDat({{longKey, longCode, longDesc}}));
    RegionFile *region = RegionFile_Open((dir / "regions.dat").c_str());
    char key[33], code[7], description[51];
    ASSERT_EQ(RegionFile_ReadLine(region, key, code, description), 1);
    EXPECT_EQ(std::string(key), longKey);
    EXPECT_EQ(std::string(code), longCode);
    EXPECT_EQ(std::string(description), longDesc);
    RegionFile_Close(region);
}

TEST(RegionFile, BadHandlesAreIgnored)
{
    char key[33], code[7], description[51];
    EXPECT_EQ(RegionFile_ReadLine(nullptr, key, code, description), 0);
    RegionFile_SeekToBegin(nullptr);
    RegionFile_Close(nullptr);
    RegionFile fake = {0x12345678, nullptr};
    EXPECT_EQ(RegionFile_ReadLine(&fake, key, code, description), 0);
    RegionFile_SeekToBegin(&fake);
    RegionFile_Close(&fake);
    EXPECT_EQ(RegionFile_Open("/nonexistent/regions.dat"), nullptr);
}

TEST(RegionFile, HundredBytesHoldOneRecord)
{
    TempDir dir;
    WriteFile(dir / "regions.dat", RegionsDat({{"1", "US1", "Alpha"}}) + std::string(12, 'x'));
    EXPECT_EQ(TarnTermChart_DumpRegionsDat((dir / "regions.dat").c_str(), (dir / "out.txt").c_str()),
              1);
    EXPECT_EQ(ReadFile(dir / "out.txt"), "1\tUS1\tAlpha\r\n");
}

TEST(DumpRegionsDat, CodesAndEmptyFile)
{
    TempDir dir;
    EXPECT_EQ(TarnTermChart_DumpRegionsDat((dir / "none").c_str(), (dir / "out.txt").c_str()), -1);
    WriteFile(dir / "regions.dat", "");
    EXPECT_EQ(TarnTermChart_DumpRegionsDat((dir / "regions.dat").c_str(), (dir / "out.txt").c_str()),
              0);
    EXPECT_EQ(ReadFile(dir / "out.txt"), "");
    EXPECT_EQ(TarnTermChart_DumpRegionsDat((dir / "regions.dat").c_str(), "/nonexistent/out.txt"),
              -2);
    WriteFile(dir / "regions.dat", RegionsDat(kRegions));
    EXPECT_EQ(TarnTermChart_DumpRegionsDat((dir / "regions.dat").c_str(), (dir / "out.txt").c_str()),
              5);
    EXPECT_EQ(ReadFile(dir / "out.txt"),
              "100\tUS1\tAlpha\r\n200\tEUR\tBeta\r\n300\tCAN\tGamma\r\n400\tUS16\tDelta VFR\r\n"
              "500\tUS17\tEpsilon restricted\r\n");
}

TEST(CoverageCodes, LineEndIsDropped)
{
    TempDir dir;
    WriteFile(dir / "coverages.txt", "US1\r\n");
    char *codes = GetCoverageServiceCodes(dir.c_str());
    ASSERT_NE(codes, nullptr);
    EXPECT_STREQ(codes, "US1");
    free(codes);
    WriteFile(dir / "coverages.txt", "");
    EXPECT_EQ(GetCoverageServiceCodes(dir.c_str()), nullptr);
    remove((dir / "coverages.txt").c_str());
    EXPECT_EQ(GetCoverageServiceCodes(dir.c_str()), nullptr);
}

TEST(CoverageInfo, OneCodeWithCrLf)
{
    TempDir dir;
    WriteCoverage(dir, "US1\r\n");
    char buffer[64];
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 6);
    EXPECT_STREQ(buffer, "Alpha");
}

TEST(CoverageInfo, CodesMatchIgnoringCase)
{
    TempDir dir;
    WriteCoverage(dir, "us1 US1");
    char buffer[64];
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 13);
    EXPECT_STREQ(buffer, "Alpha, Alpha");
}

TEST(CoverageInfo, LengthAndPartialBuffer)
{
    TempDir dir;
    WriteCoverage(dir, "US1 EUR");
    char buffer[64];
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 12);
    EXPECT_STREQ(buffer, "Alpha, Beta");
    EXPECT_EQ(Coverage(dir, buffer, 8), 12);
    EXPECT_STREQ(buffer, "Alpha");
    EXPECT_EQ(Coverage(dir, nullptr, 0), 12);
    EXPECT_EQ(Coverage(dir, buffer, 12), 12);
    EXPECT_STREQ(buffer, "Alpha, Beta");
    EXPECT_EQ(Coverage(dir, buffer, 11), 12);
    EXPECT_STREQ(buffer, "Alpha");
}

TEST(CoverageInfo, NothingFitsOnceOneDoesNot)
{
    TempDir dir;
    WriteCoverage(dir, "EUR US1 CAN", {{"1", "EUR", "Beta"}, {"2", "US1", "Alphabetical"},
                                        {"3", "CAN", "G"}});
    char buffer[64];
    EXPECT_EQ(Coverage(dir, buffer, 10), 5 + 14 + 3);
    EXPECT_STREQ(buffer, "Beta");
}

TEST(CoverageInfo, TenCharacterCodeEndsTheScan)
{
    TempDir dir;
    WriteCoverage(dir, "US1 ABCDEFGHIJ EUR");
    char buffer[64];
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 6);
    EXPECT_STREQ(buffer, "Alpha");
}

TEST(CoverageInfo, EmptyCodeEndsTheScan)
{
    TempDir dir;
    WriteCoverage(dir, "US1  EUR");
    char buffer[64];
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 6);
    WriteCoverage(dir, " US1");
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(CoverageInfo, UnknownCodesAndFirstMatchOnly)
{
    TempDir dir;
    WriteCoverage(dir, "XXX EUR", {{"1", "EUR", "First"}, {"2", "EUR", "Second"}});
    char buffer[64];
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 6);
    EXPECT_STREQ(buffer, "First");
    WriteCoverage(dir, "XXX");
    strcpy(buffer, "junk");
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(CoverageInfo, Codes)
{
    TempDir dir;
    char buffer[16] = "keep";
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), -1);
    EXPECT_STREQ(buffer, "keep");
    WriteFile(dir / "regions.dat", RegionsDat(kRegions));
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), -2);
    WriteFile(dir / "coverages.txt", "\n");
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), -3);
    EXPECT_STREQ(buffer, "keep");
    remove((dir / "regions.dat").c_str());
    remove((dir / "coverages.txt").c_str());
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), -1);
}

TEST(CoverageInfo, EmptyOrTruncatedCatalogue)
{
    TempDir dir;
    WriteFile(dir / "coverages.txt", "US1");
    WriteFile(dir / "regions.dat", "");
    char buffer[16];
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 0);
    WriteFile(dir / "regions.dat", RegionsDat(kRegions).substr(0, 87));
    EXPECT_EQ(Coverage(dir, buffer, sizeof buffer), 0);
}

TEST(CoverageInfo, NoDescriptorIsLeft)
{
    TempDir dir;
    int before = CountOpenDescriptors();
    char buffer[16];
    Coverage(dir, buffer, sizeof buffer);
    WriteFile(dir / "regions.dat", RegionsDat(kRegions));
    Coverage(dir, buffer, sizeof buffer);
    WriteFile(dir / "coverages.txt", "\n");
    Coverage(dir, buffer, sizeof buffer);
    WriteFile(dir / "coverages.txt", "US1");
    Coverage(dir, buffer, sizeof buffer);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(AccessKeyTypes, SortsKeysByKind)
{
    TempDir dir;
    WriteFile(dir / "regions.dat",
              RegionsDat({{"100", "US1", "a"}, {"400", "US16", "b"}, {"401", "EU6", "c"},
                          {"400", "CA6", "dup"}, {"500", "US17", "d"}, {"9", "", "no code"},
                          {"007", "X6", "leading zeros"}}));
    char *vfr = nullptr, *restricted = nullptr;
    RegionFile_GetAccessKeyTypes((dir / "regions.dat").c_str(), &vfr, &restricted);
    ASSERT_NE(vfr, nullptr);
    ASSERT_NE(restricted, nullptr);
    // "007" is written as 7 and the text keeps the room of its three digits.
    EXPECT_STREQ(vfr, "400 401 7 ");
    EXPECT_STREQ(restricted, "500");
    free(vfr);
    free(restricted);
}

TEST(AccessKeyTypes, KindWithoutKeysIsUntouched)
{
    TempDir dir;
    WriteFile(dir / "regions.dat", RegionsDat({{"100", "US1", "a"}, {"200", "EU6", "v"}}));
    char *vfr = nullptr, *restricted = nullptr;
    RegionFile_GetAccessKeyTypes((dir / "regions.dat").c_str(), &vfr, &restricted);
    EXPECT_STREQ(vfr, "200");
    EXPECT_EQ(restricted, nullptr);
    free(vfr);
    char *untouched = (char *)"sentinel";
    RegionFile_GetAccessKeyTypes((dir / "none.dat").c_str(), &untouched, nullptr);
    EXPECT_STREQ(untouched, "sentinel");
}

TEST(AccessKeyTypes, EmptyKeyTextCannotOverrun)
{
    TempDir dir;
    WriteFile(dir / "regions.dat", RegionsDat({{"", "A6", "empty key"}}));
    char *vfr = nullptr;
    RegionFile_GetAccessKeyTypes((dir / "regions.dat").c_str(), &vfr, nullptr);
    ASSERT_NE(vfr, nullptr);
    EXPECT_STREQ(vfr, "");
    free(vfr);
}

TEST(AccessKeyTypes, ListsAreBounded)
{
    TempDir dir;
    std::vector<Region> regions;
    for (int i = 0; i < 150; i++) regions.push_back({std::to_string(1000 + i), "V6", "v"});
    for (int i = 0; i < 30; i++) regions.push_back({std::to_string(5000 + i), "R7", "r"});
    WriteFile(dir / "regions.dat", RegionsDat(regions));
    char *vfr = nullptr, *restricted = nullptr;
    RegionFile_GetAccessKeyTypes((dir / "regions.dat").c_str(), &vfr, &restricted);
    EXPECT_EQ(strlen(vfr), 100u * 5 - 1);
    EXPECT_EQ(strlen(restricted), 20u * 5 - 1);
    free(vfr);
    free(restricted);
}
