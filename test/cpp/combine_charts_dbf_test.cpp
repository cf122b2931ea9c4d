// The chart table merge of the combine.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "combine/combine.h"
#include "combine_fixture.h"
#include "table_reader.h"
#include "test_util.h"

namespace {

DbfOptions NoEndMarker()
{
    DbfOptions options;
    options.endMarker = false;
    return options;
}

std::vector<std::vector<std::string>> Charts(const std::string &path)
{
    return ReadTable(path, {"F5_6", "FILENAM_BA"});
}

}  // namespace

TEST(MergeChartsDBF, IfrChartsOfAnAirportComeBeforeItsVfrCharts)
{
    TempDir src, dst;
    WriteFile(src / "charts.dbf", DbfTable(kChartFields, {Chart("KAAA", "A1"), Chart("KABC", "I1"),
                                                          Chart("KABC", "I2"), Chart("KZZZ", "Z1")}));
    WriteFile(src / "vfrchrts.dbf",
              DbfTable(kChartFields, {Chart("KAAB", "V0"), Chart("kabc", "V1"), Chart("KABC", "V2")}));
    ASSERT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), 0);
    std::vector<std::vector<std::string>> expected = {{"KAAA", "A1"}, {"KAAB", "V0"}, {"KABC", "I1"},
                                                      {"KABC", "I2"}, {"kabc", "V1"}, {"KABC", "V2"},
                                                      {"KZZZ", "Z1"}};
    EXPECT_EQ(Charts(dst / "charts.dbf"), expected);
}

TEST(MergeChartsDBF, WritesTheIfrHeaderTheCountAndNoEndMarker)
{
    TempDir src, dst;
    WriteFile(src / "charts.dbf", DbfTable(kChartFields, {Chart("KBBB", "B1")}));
    WriteFile(src / "vfrchrts.dbf", DbfTable(kChartFields, {Chart("KAAA", "A1"), Chart("KCCC", "C1")}));
    ASSERT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), 0);
    // The records byte for byte, the count patched, nothing behind the last record.
    EXPECT_EQ(ReadFile(dst / "charts.dbf"),
              DbfTable(kChartFields, {Chart("KAAA", "A1"), Chart("KBBB", "B1"), Chart("KCCC", "C1")},
                       NoEndMarker()));
}

TEST(MergeChartsDBF, VfrRecordsAreWrittenInTheirOwnBytes)
{
    TempDir src, dst;
    // A deleted VFR record is skipped; the live ones keep every byte.
    DbfRecord deleted = Chart("KAAA", "GONE");
    deleted.deleted = true;
    WriteFile(src / "charts.dbf", DbfTable(kChartFields, {}));
    WriteFile(src / "vfrchrts.dbf", DbfTable(kChartFields, {deleted, Chart("KAAA", "KEPT")}));
    ASSERT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "charts.dbf"), DbfTable(kChartFields, {Chart("KAAA", "KEPT")}, NoEndMarker()));
}

TEST(MergeChartsDBF, RestOfTheLongerTableFollowsInOrder)
{
    TempDir src, dst;
    WriteFile(src / "charts.dbf", DbfTable(kChartFields, {Chart("KAAA", "I1")}));
    WriteFile(src / "vfrchrts.dbf", DbfTable(kChartFields, {Chart("KBBB", "V1"), Chart("KCCC", "V2"),
                                                            Chart("KDDD", "V3")}));
    ASSERT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadColumn(dst / "charts.dbf", "FILENAM_BA"),
              (std::vector<std::string>{"I1", "V1", "V2", "V3"}));
    EXPECT_EQ(HeaderCount(dst / "charts.dbf"), 4);
}

TEST(MergeChartsDBF, WithoutVfrChartTableNothingIsWritten)
{
    TempDir src, dst;
    WriteFile(src / "charts.dbf", DbfTable(kChartFields, {Chart("KAAA", "I1")}));
    EXPECT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_TRUE(ListDir(dst.path()).empty());
}

TEST(MergeChartsDBF, WithoutIfrChartTableTheVfrTableIsCopied)
{
    TempDir src, dst;
    std::string vfr = DbfTable(kChartFields, {Chart("KAAA", "V1"), Chart("KBBB", "V2")});
    vfr += "trailing bytes are copied too";
    WriteFile(src / "vfrchrts.dbf", vfr);
    EXPECT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "charts.dbf"), vfr);
    EXPECT_EQ(ListDir(dst.path()), (std::vector<std::string>{"charts.dbf"}));
}

TEST(MergeChartsDBF, TwoEmptyTablesGiveTheIfrHeaderAndCountZero)
{
    TempDir src, dst;
    DbfOptions ifrOptions;
    ifrOptions.version = 0x83;  // only the IFR header shows this
    WriteFile(src / "charts.dbf", DbfTable(kChartFields, {}, ifrOptions));
    WriteFile(src / "vfrchrts.dbf", DbfTable(kChartFields, {}));
    ASSERT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), 0);
    // Closed as any empty table: count 0 and the end-of-file byte.
    EXPECT_EQ(ReadFile(dst / "charts.dbf"), DbfTable(kChartFields, {}, ifrOptions));
    EXPECT_EQ(HeaderCount(dst / "charts.dbf"), 0);
}

TEST(MergeChartsDBF, IfrHeaderCountIsReplaced)
{
    TempDir src, dst;
    DbfOptions stale;
    stale.recordCount = 0;  // a header that claims fewer than it holds
    WriteFile(src / "charts.dbf", DbfTable(kChartFields, {Chart("KAAA", "I1")}, stale));
    WriteFile(src / "vfrchrts.dbf", DbfTable(kChartFields, {Chart("KBBB", "V1")}));
    ASSERT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), 0);
    // The one record past the count is read, as the reader reads one more.
    EXPECT_EQ(HeaderCount(dst / "charts.dbf"), 2);
    EXPECT_EQ(ReadColumn(dst / "charts.dbf", "FILENAM_BA"), (std::vector<std::string>{"I1", "V1"}));
}

TEST(MergeChartsDBF, ATableClaimingMoreRecordsThanItHoldsIsNotMerged)
{
    for (const char *damaged : {"charts.dbf", "vfrchrts.dbf"}) {
        TempDir src, dst;
        DbfOptions stale;
        stale.recordCount = 2;  // a header that claims more than the file holds
        WriteFile(src / "charts.dbf", DbfTable(kChartFields, {Chart("KAAA", "I1")}));
        WriteFile(src / "vfrchrts.dbf", DbfTable(kChartFields, {Chart("KBBB", "V1")}));
        WriteFile(src / damaged, DbfTable(kChartFields, {Chart("KCCC", "X1")}, stale));
        EXPECT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), -2) << damaged;
        EXPECT_TRUE(ListDir(dst.path()).empty()) << damaged;
    }
}

TEST(MergeChartsDBF, DestinationThatCannotBeCreatedGivesMinus2)
{
    TempDir src, dst;
    WriteFile(src / "charts.dbf", DbfTable(kChartFields, {Chart("KAAA", "I1")}));
    WriteFile(src / "vfrchrts.dbf", DbfTable(kChartFields, {Chart("KBBB", "V1")}));
    ASSERT_EQ(mkdir((dst / "charts.dbf").c_str(), 0700), 0);
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), -2);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(MergeChartsDBF, LeavesNoDescriptorOpen)
{
    TempDir src, dst;
    WriteFile(src / "charts.dbf", DbfTable(kChartFields, {Chart("KAAA", "I1")}));
    WriteFile(src / "vfrchrts.dbf", DbfTable(kChartFields, {Chart("KBBB", "V1")}));
    TempDir copySrc;
    WriteFile(copySrc / "vfrchrts.dbf", DbfTable(kChartFields, {Chart("KBBB", "V1")}));
    int before = CountOpenDescriptors();
    ASSERT_EQ(MergeChartsDBF(src.c_str(), dst.c_str()), 0);
    ASSERT_EQ(MergeChartsDBF(copySrc.c_str(), dst.c_str()), 0);
    EXPECT_EQ(CountOpenDescriptors(), before);
}
