// Coverage subsetting of a whole directory's tables.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "chart_directory.h"
#include "merge/tables.h"
#include "table_reader.h"
#include "tarntermchart.h"
#include "test_util.h"

using Rows = std::vector<std::vector<std::string>>;
using Column = std::vector<std::string>;

// The sample directory with its "coverages.txt" holding codes.
static void WriteSampleWithCodes(const TempDir &dir, const std::string &codes)
{
    SampleDirectory sample = SampleDirectory::Default();
    sample.coverageCodes = codes;
    sample.Write(dir.path());
}

static std::string CrcLine(const TempDir &dir, const char *name)
{
    char line[64];
    snprintf(line, sizeof line, "%s,0x%x\r\n", name, FileCRCTarn((dir / name).c_str()));
    return line;
}

TEST(SubsetDBFs, CutsEveryTableToTheCoverage)
{
    TempDir dir;
    SampleDirectory::Default().Write(dir.path());
    ASSERT_EQ(SubsetDBFs(dir.c_str()), 0);

    EXPECT_EQ(ReadColumn(dir / "coverags.dbf", "F5_6"),
              (Column{"KAAA", "KBBB", "KBBB", "KCCC", "KVV1", "KVV2"}));
    EXPECT_EQ(ReadColumn(dir / "charts.dbf", "FILENAM_BA"),
              (Column{"KAAA10-9", "KAAA11-1", "KBBB10-9", "KCCC10-9"}));
    EXPECT_EQ(ReadColumn(dir / "vfrchrts.dbf", "FILENAM_BA"), (Column{"KBBBVFR", "KVV1VFR", "KVV2VFR"}));
    EXPECT_EQ(ReadColumn(dir / "chrtlink.dbf", "F5_6"), (Column{"KAAA", "KCCC"}));
    EXPECT_EQ(ReadTable(dir / "airports.dbf", {"F5_6", "CHRT_IDX", "CLNK_IDX"}),
              (Rows{{"KAAA", "1", "1"}, {"KBBB", "3", ""}, {"KCCC", "4", "2"}}));
    EXPECT_EQ(ReadTable(dir / "vfrapts.dbf", {"F5_6", "CHRT_IDX"}),
              (Rows{{"KBBB", "1"}, {"KVV1", "2"}, {"KVV2", "3"}}));
    // Country NOTAMs follow the countries of every airport record read,
    // Canada included, although the Canadian airport is not covered.
    EXPECT_EQ(ReadTable(dir / "notams.dbf", {"F5_6", "TEXT"}),
              (Rows{{"", "Canada wide"}, {"", "US wide"}, {"KAAA", "Alpha closed"},
                    {"KCCC", "Charlie lights"}}));
    EXPECT_EQ(ReadTable(dir / "vfrntms.dbf", {"F5_6", "TEXT"}),
              (Rows{{"", "Mexico VFR"}, {"KBBB", "Bravo VFR"}, {"KVV1", "V1 birds"}}));

    for (const std::string &name : ListDir(dir.path()))
        EXPECT_EQ(name.find("NEW"), std::string::npos) << name;
    EXPECT_EQ(ReadFile(dir / "crcfiles.txt"),
              CrcLine(dir, "charts.dbf") + CrcLine(dir, "airports.dbf") + CrcLine(dir, "notams.dbf") +
                  CrcLine(dir, "notams.dbt") + CrcLine(dir, "vfrchrts.dbf") + "regions.dat,0x6\r\n");
}

TEST(SubsetDBFs, AllVfrCoverageDeletesTheIfrTables)
{
    TempDir dir;
    WriteSampleWithCodes(dir, "US16");
    ASSERT_EQ(SubsetDBFs(dir.c_str()), 0);
    for (const char *name : {"charts.dbf", "airports.dbf", "notams.dbf", "notams.dbt"})
        EXPECT_FALSE(Exists(dir / name)) << name;
    EXPECT_EQ(ReadColumn(dir / "vfrapts.dbf", "F5_6"), (Column{"KBBB", "KVV1", "KVV2"}));
    // KBBB's IFR coverage record is gone, so the chart links keep nobody.
    EXPECT_EQ(HeaderCount(dir / "chrtlink.dbf"), 0);
}

TEST(SubsetDBFs, AllIfrCoverageDeletesTheVfrTables)
{
    TempDir dir;
    WriteSampleWithCodes(dir, "US1");
    ASSERT_EQ(SubsetDBFs(dir.c_str()), 0);
    for (const char *name : {"vfrchrts.dbf", "vfrapts.dbf", "vfrntms.dbf", "vfrntms.dbt"})
        EXPECT_FALSE(Exists(dir / name)) << name;
    EXPECT_EQ(ReadColumn(dir / "airports.dbf", "F5_6"), (Column{"KAAA", "KBBB", "KCCC"}));
}

TEST(SubsetDBFs, KeysMatchBySubstring)
{
    TempDir dir;
    SampleDirectory sample = SampleDirectory::Default();
    sample.coverage.push_back({"10", "KSUB"});  // "10" is part of the key "100"
    sample.coverage.push_back({"1000", "KLNG"});
    sample.Write(dir.path());
    ASSERT_EQ(SubsetDBFs(dir.c_str()), 0);
    Column codes = ReadColumn(dir / "coverags.dbf", "F5_6");
    EXPECT_NE(std::find(codes.begin(), codes.end(), "KSUB"), codes.end());
    EXPECT_EQ(std::find(codes.begin(), codes.end(), "KLNG"), codes.end());
}

TEST(SubsetDBFs, LongServiceCodeEndsTheMapping)
{
    TempDir dir;
    WriteSampleWithCodes(dir, "US1 ABCDEFGHIJ US16");
    ASSERT_EQ(SubsetDBFs(dir.c_str()), 0);
    EXPECT_FALSE(Exists(dir / "vfrapts.dbf"));
    EXPECT_EQ(ReadColumn(dir / "coverags.dbf", "KEY"), (Column{"100", "100", "100"}));
}

TEST(SubsetDBFs, ServiceCodesMatchIgnoringCase)
{
    TempDir dir;
    WriteSampleWithCodes(dir, "us1 Us16");
    ASSERT_EQ(SubsetDBFs(dir.c_str()), 0);
    EXPECT_EQ(HeaderCount(dir / "coverags.dbf"), 6);
}

TEST(SubsetDBFs, NoServiceCodes)
{
    TempDir dir;
    SampleDirectory::Default().Write(dir.path());
    remove((dir / "coverages.txt").c_str());
    EXPECT_EQ(SubsetDBFs(dir.c_str()), -1);
    WriteFile(dir / "coverages.txt", "");
    EXPECT_EQ(SubsetDBFs(dir.c_str()), -1);
}

TEST(SubsetDBFs, NoRegionCatalogue)
{
    TempDir dir;
    SampleDirectory::Default().Write(dir.path());
    remove((dir / "regions.dat").c_str());
    EXPECT_EQ(SubsetDBFs(dir.c_str()), -2);
}

TEST(SubsetDBFs, CoverageTableMissingCreatesNoNewTable)
{
    TempDir dir;
    SampleDirectory::Default().Write(dir.path());
    remove((dir / "coverags.dbf").c_str());
    EXPECT_EQ(SubsetDBFs(dir.c_str()), -3);
    EXPECT_FALSE(Exists(dir / "coveragsNEW.dbf"));
}

// A directory standing where a new table is to be written makes its step fail.
static int FailAt(const char *blocker)
{
    TempDir dir;
    SampleDirectory::Default().Write(dir.path());
    std::string before = ReadFile(dir / "charts.dbf") + ReadFile(dir / "airports.dbf");
    mkdir((dir / blocker).c_str(), 0700);
    int before_fds = CountOpenDescriptors();
    int code = SubsetDBFs(dir.c_str());
    EXPECT_EQ(CountOpenDescriptors(), before_fds) << blocker;
    // The old tables stay as they were; the new ones written so far stay too.
    EXPECT_EQ(ReadFile(dir / "charts.dbf") + ReadFile(dir / "airports.dbf"), before) << blocker;
    return code;
}

TEST(SubsetDBFs, EachTableStepHasItsCode)
{
    EXPECT_EQ(FailAt("coveragsNEW.dbf"), -3);
    EXPECT_EQ(FailAt("chartsNEW.dbf"), -4);
    EXPECT_EQ(FailAt("vfrchrtsNEW.dbf"), -5);
    EXPECT_EQ(FailAt("airportsNEW.dbf"), -6);
    EXPECT_EQ(FailAt("vfraptsNEW.dbf"), -7);
    EXPECT_EQ(FailAt("chrtlinkNEW.dbf"), -8);
    EXPECT_EQ(FailAt("notamsNEW.dbf"), -9);
    EXPECT_EQ(FailAt("vfrntmsNEW.dbf"), -10);
    EXPECT_EQ(FailAt("notamsNEW.dbt"), -9);
}

TEST(SubsetDBFs, MissingSourceTableFailsItsStep)
{
    TempDir dir;
    SampleDirectory::Default().Write(dir.path());
    remove((dir / "chrtlink.dbf").c_str());
    EXPECT_EQ(SubsetDBFs(dir.c_str()), -8);
    EXPECT_TRUE(Exists(dir / "chartsNEW.dbf"));
}
