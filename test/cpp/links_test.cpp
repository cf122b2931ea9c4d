// Airport link repair.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "dbf_writer.h"
#include "merge/tables.h"
#include "table_reader.h"
#include "fork_util.h"
#include "test_util.h"

static const std::vector<DbfField> kAirportFields = {
    {"F5_6", 'C', 8}, {"ARPT_NAME", 'C', 20}, {"CHRT_IDX", 'C', 8}, {"CLNK_IDX", 'C', 8}};
static const std::vector<DbfField> kVfrAirportFields = {{"F5_6", 'C', 8}, {"CHRT_IDX", 'C', 8}};
static const std::vector<DbfField> kKeyFields = {{"F5_6", 'C', 8}, {"FILENAM_BA", 'C', 25}};

static std::vector<DbfRecord> Airports(const std::vector<std::string> &codes)
{
    std::vector<DbfRecord> records;
    for (const std::string &code : codes) records.push_back({code, "Name " + code, "99", "99"});
    return records;
}

static std::vector<DbfRecord> Keys(const std::vector<std::string> &codes)
{
    std::vector<DbfRecord> records;
    for (const std::string &code : codes) records.push_back({code, "chart"});
    return records;
}

static std::vector<std::vector<std::string>> Links(const TempDir &dir, const char *name)
{
    return ReadTable(dir / name, {"F5_6", "CHRT_IDX", "CLNK_IDX"});
}

TEST(FixAirportDBFLinks, LinksFirstRecordOfEachAirport)
{
    TempDir dir;
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"KAAA", "KBBB", "KCCC", "KDDD"})));
    WriteFile(dir / "charts.dbf", DbfTable(kKeyFields, Keys({"KAAA", "KAAA", "KCCC", "KCCC", "KDDD"})));
    WriteFile(dir / "chrtlink.dbf", DbfTable(kKeyFields, Keys({"KBBB", "KCCC"})));
    EXPECT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), 0);
    std::vector<std::vector<std::string>> expected = {
        {"KAAA", "1", ""}, {"KBBB", "", "1"}, {"KCCC", "3", "2"}, {"KDDD", "5", ""}};
    EXPECT_EQ(Links(dir, "out.dbf"), expected);
    // Every other field is carried unchanged.
    EXPECT_EQ(ReadColumn(dir / "out.dbf", "ARPT_NAME")[2], "Name KCCC");
}

TEST(FixAirportDBFLinks, OutputIsTheInputRecordForRecord)
{
    TempDir dir;
    std::vector<DbfRecord> airports = {{"KAAA", "A", "", ""}, {"KBBB", "B", "", ""}};
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, airports));
    WriteFile(dir / "charts.dbf", DbfTable(kKeyFields, Keys({"KAAA"})));
    WriteFile(dir / "chrtlink.dbf", DbfTable(kKeyFields, Keys({"KBBB"})));
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), 0);
    std::vector<DbfRecord> expected = {{"KAAA", "A", "1", ""}, {"KBBB", "B", "", "1"}};
    EXPECT_EQ(ReadFile(dir / "out.dbf"), DbfTable(kAirportFields, expected));
}

TEST(FixAirportDBFLinks, AbsentAirportDoesNotLoseTheNextOne)
{
    TempDir dir;
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"KAAA", "KBBB", "KCCC"})));
    WriteFile(dir / "charts.dbf", DbfTable(kKeyFields, Keys({"KAAA", "KCCC"})));
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), 0);
    EXPECT_EQ(ReadColumn(dir / "out.dbf", "CHRT_IDX"), (std::vector<std::string>{"1", "", "2"}));
}

TEST(FixAirportDBFLinks, KeysDifferingInCaseMatch)
{
    TempDir dir;
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"kabc", "KXYZ"})));
    WriteFile(dir / "charts.dbf", DbfTable(kKeyFields, Keys({"KABC", "kxyz"})));
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), 0);
    EXPECT_EQ(ReadColumn(dir / "out.dbf", "CHRT_IDX"), (std::vector<std::string>{"1", "2"}));
}

TEST(FixAirportDBFLinks, MissingChartTableLeavesChartLinksEmpty)
{
    TempDir dir;
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"KAAA", "KBBB"})));
    WriteFile(dir / "chrtlink.dbf", DbfTable(kKeyFields, Keys({"KAAA", "KBBB"})));
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "none.dbf", "chrtlink.dbf", "out.dbf"), 0);
    std::vector<std::vector<std::string>> expected = {{"KAAA", "", "1"}, {"KBBB", "", "2"}};
    EXPECT_EQ(Links(dir, "out.dbf"), expected);
}

TEST(FixAirportDBFLinks, MissingLinkTableLeavesLinkFieldEmpty)
{
    TempDir dir;
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"KAAA"})));
    WriteFile(dir / "charts.dbf", DbfTable(kKeyFields, Keys({"KAAA"})));
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "none.dbf", "out.dbf"), 0);
    std::vector<std::vector<std::string>> expected = {{"KAAA", "1", ""}};
    EXPECT_EQ(Links(dir, "out.dbf"), expected);
}

TEST(FixAirportDBFLinks, EmptyAirportTableGivesHeaderAndMarker)
{
    TempDir dir;
    std::string empty = DbfTable(kAirportFields, {}, [] { DbfOptions o; o.endMarker = false; return o; }());
    WriteFile(dir / "airports.dbf", empty);
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), 0);
    EXPECT_EQ(ReadFile(dir / "out.dbf"), empty + "\x1a");
}

TEST(FixAirportDBFLinks, MissingAirportTableDoesNothing)
{
    TempDir dir;
    EXPECT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), 0);
    EXPECT_FALSE(Exists(dir / "out.dbf"));
}

TEST(FixAirportDBFLinks, OutputThatCannotBeCreated)
{
    TempDir dir;
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"KAAA"})));
    int before = CountOpenDescriptors();
    EXPECT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf",
                                 "no/such/dir/out.dbf"), -1);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(FixAirportDBFLinks, EndOfFileByteThatCannotBeWritten)
{
    TempDir dir;
    std::vector<std::string> codes;
    for (int i = 0; i < 50; i++) codes.push_back("K" + std::to_string(100 + i));
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports(codes)));
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "whole.dbf"), 0);
    const uint64_t whole = ReadFile(dir / "whole.dbf").size();
    // Every record fits, the end-of-file byte after them does not: -2; a
    // record that does not fit: -3.  Neither leaves an output.
    for (auto [limit, code] : {std::make_pair(whole - 1, -2), std::make_pair((uint64_t)100, -3)}) {
        EXPECT_EQ(RunInChild([&] {
                      LimitFileSize(limit);
                      return FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf",
                                                "out.dbf");
                  }),
                  code)
            << limit;
        EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"airports.dbf", "whole.dbf"}));
    }
}

TEST(FixAirportDBFLinks, ATableThatDoesNotDescribeItsFileIsMinus4)
{
    TempDir dir;
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"KAAA", "KBBB"})));
    DbfOptions damaged;
    damaged.recordCount = 9;  // more than the file holds
    for (const char *table : {"airports.dbf", "charts.dbf", "chrtlink.dbf"}) {
        TempDir d;
        WriteFile(d / "airports.dbf", DbfTable(kAirportFields, Airports({"KAAA", "KBBB"})));
        WriteFile(d / table, DbfTable(kAirportFields, Airports({"KAAA"}), damaged));
        EXPECT_EQ(FixAirportDBFLinks(d.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), -4)
            << table;
        EXPECT_FALSE(Exists(d / "out.dbf")) << table;
    }
}

TEST(FixAirportDBFLinks, LastChartRecordStaysCurrent)
{
    TempDir dir;
    // Chart table ends with KCCC; airports KCCC twice (shared last record) then KDDD.
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"KAAA", "KCCC", "KCCC", "kccc", "KDDD"})));
    WriteFile(dir / "charts.dbf", DbfTable(kKeyFields, Keys({"KAAA", "KBBB", "KCCC"})));
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), 0);
    EXPECT_EQ(ReadColumn(dir / "out.dbf", "CHRT_IDX"),
              (std::vector<std::string>{"1", "3", "3", "3", ""}));
}

TEST(FixAirportDBFLinks, CountersCountRecordsReadNotDeletedOnes)
{
    TempDir dir;
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"KBBB", "KCCC", "KZZZ"})));
    std::vector<DbfRecord> charts = {{"KAAA", "c"}, {{"KAAA", "old"}, true}, {"KBBB", "c"},
                                     {"KCCC", "c"}, {{"KZZZ", "gone"}, true}};
    WriteFile(dir / "charts.dbf", DbfTable(kKeyFields, charts));
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), 0);
    // The deleted records are skipped, not counted; the deleted last record
    // never becomes current, so KZZZ is compared with KCCC.
    EXPECT_EQ(ReadColumn(dir / "out.dbf", "CHRT_IDX"), (std::vector<std::string>{"2", "3", ""}));
}

TEST(FixAirportDBFLinks, TargetWithoutRecordsNeverMatches)
{
    TempDir dir;
    WriteFile(dir / "airports.dbf", DbfTable(kAirportFields, Airports({"KAAA", "KBBB"})));
    WriteFile(dir / "charts.dbf", DbfTable(kKeyFields, {}));
    ASSERT_EQ(FixAirportDBFLinks(dir.c_str(), "airports.dbf", "charts.dbf", "chrtlink.dbf", "out.dbf"), 0);
    EXPECT_EQ(ReadColumn(dir / "out.dbf", "CHRT_IDX"), (std::vector<std::string>{"", ""}));
}

TEST(FixVFRAirportDBFLinks, OnlyChartLinks)
{
    TempDir dir;
    WriteFile(dir / "vfrapts.dbf", DbfTable(kVfrAirportFields, {{"KAAA", "9"}, {"KBBB", "9"}}));
    WriteFile(dir / "vfrchrts.dbf", DbfTable(kKeyFields, Keys({"KBBB", "KBBB"})));
    FixVFRAirportDBFLinks(dir.c_str(), "vfrapts.dbf", "vfrchrts.dbf", "out.dbf");
    EXPECT_EQ(ReadColumn(dir / "out.dbf", "CHRT_IDX"), (std::vector<std::string>{"", "1"}));
    FixVFRAirportDBFLinks(dir.c_str(), "none.dbf", "vfrchrts.dbf", "out2.dbf");
    EXPECT_FALSE(Exists(dir / "out2.dbf"));
    int before = CountOpenDescriptors();
    FixVFRAirportDBFLinks(dir.c_str(), "vfrapts.dbf", "vfrchrts.dbf", "no/dir/out.dbf");
    EXPECT_EQ(CountOpenDescriptors(), before);
}
