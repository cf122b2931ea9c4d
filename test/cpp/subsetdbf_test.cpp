// The subset of one table for a coverage, and the NOTAM tables.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "dbf_writer.h"
#include "merge/tables.h"
#include "table_reader.h"
#include "fork_util.h"
#include "test_util.h"

static const std::vector<DbfField> kCoverageFields = {{"KEY", 'C', 10}, {"F5_6", 'C', 8}};
static const std::vector<DbfField> kChartFields = {
    {"F5_6", 'C', 8}, {"J5_3", 'C', 24}, {"INDEX_NO", 'C', 8}, {"FILENAM_BA", 'C', 25}};
static const std::vector<DbfField> kNotamFields = {
    {"F5_6", 'C', 8}, {"J5_3", 'C', 24}, {"TEXT", 'M', 10}};

// Airports: KIFR 1, KVFR 2, KBOT 3, KRES 4, KR6 6 (VFR + restricted), KR7 7.
struct Coverage {
    TempDir dir;
    AirportList *list;
    Coverage()
    {
        WriteFile(dir / "regions.dat", RegionsDat({{"100", "I1", "i"}, {"600", "V6", "v"},
                                                   {"650", "W6", "vr"}, {"650", "X7", "r"},
                                                   {"700", "R7", "r"}}));
        WriteFile(dir / "cov.dbf",
                  DbfTable(kCoverageFields,
                           {{"100", "KIFR"}, {"600", "KVFR"}, {"100", "KBOT"}, {"600", "KBOT"},
                            {"700", "KRES"}, {"600", "KR6"}, {"650", "KR6"}, {"600", "KR7"},
                            {"700", "KR7"}}));
        list = AirportsFromCoveragsDBF(dir.c_str(), "cov.dbf", nullptr, nullptr);
    }
    ~Coverage() { FreeAirportList(list); }
};

TEST(CreateSubsetDBF, AirportTypesOfTheFixture)
{
    Coverage c;
    EXPECT_EQ(GetAirportType(c.list, "KIFR"), 1u);
    EXPECT_EQ(GetAirportType(c.list, "KVFR"), 2u);
    EXPECT_EQ(GetAirportType(c.list, "KBOT"), 3u);
    EXPECT_EQ(GetAirportType(c.list, "KRES"), 4u);
    EXPECT_EQ(GetAirportType(c.list, "KR6"), 6u);
    EXPECT_EQ(GetAirportType(c.list, "KR7"), 7u);
}

static std::vector<DbfRecord> ChartRecords()
{
    return {{"KBOT", "US", "11-1", "b1"}, {"KIFR", "US", "10-9", "i1"}, {"kifr", "US", "X", "i2"},
            {"KNONE", "XX", "10-9", "n1"}, {"KR6", "CA", "10-9", "r6"},
            {"KR7", "MX", "10-9", "r7a"}, {"KR7", "MX", "apt", "r7b"}, {"KR7", "MX", "11-1", "r7c"},
            {"KRES", "BR", "APT", "res"}, {"KVFR", "CA", "1", "v1"}};
}

static std::vector<std::string> Subset(Coverage &c, int kind, const char *name,
                                       std::string *countries = nullptr)
{
    WriteFile(c.dir / name, DbfTable(kChartFields, ChartRecords()));
    char *text = nullptr;
    EXPECT_EQ(CreateSubsetDBF(kind, c.list, (c.dir / name).c_str(), (c.dir / "out.dbf").c_str(),
                              countries ? &text : nullptr),
              0);
    if (countries) {
        *countries = text ? text : "(null)";
        free(text);
    }
    return ReadColumn(c.dir / "out.dbf", "FILENAM_BA");
}

TEST(CreateSubsetDBF, IfrKindKeepsIfrAndBothAirports)
{
    Coverage c;
    EXPECT_EQ(Subset(c, 1, "airports.dbf"),
              (std::vector<std::string>{"b1", "i1", "i2", "r7a", "r7b", "r7c"}));
}

TEST(CreateSubsetDBF, VfrKindKeepsVfrAndBothAirports)
{
    Coverage c;
    EXPECT_EQ(Subset(c, 2, "vfrchrts.dbf"),
              (std::vector<std::string>{"b1", "r6", "r7a", "r7b", "r7c", "v1"}));
}

TEST(CreateSubsetDBF, SharedKindKeepsEveryKnownAirport)
{
    Coverage c;
    EXPECT_EQ(Subset(c, 3, "chrtlink.dbf"),
              (std::vector<std::string>{"b1", "i1", "i2", "r6", "r7a", "r7b", "r7c", "v1"}));
}

TEST(CreateSubsetDBF, ChartRuleForRestrictedAirports)
{
    Coverage c;
    // Type 7: 10-9 and apt kept, 11-1 dropped; type 6 (t = 2) is not the IFR
    // kind; type 4 (t = 0) is never written, even as "APT".
    EXPECT_EQ(Subset(c, 1, "charts.dbf"), (std::vector<std::string>{"b1", "i1", "i2", "r7a", "r7b"}));
    EXPECT_EQ(Subset(c, 3, "CHARTS.DBF"),
              (std::vector<std::string>{"b1", "i1", "i2", "r6", "r7a", "r7b", "v1"}));
}

TEST(CreateSubsetDBF, CountriesFromEveryRecordRead)
{
    Coverage c;
    std::string countries;
    Subset(c, 1, "airports.dbf", &countries);
    EXPECT_EQ(countries, "US XX CA MX BR");
}

TEST(CreateSubsetDBF, CountryAlreadyASubstringIsNotAdded)
{
    Coverage c;
    WriteFile(c.dir / "a.dbf", DbfTable(kChartFields, {{"KIFR", "USA", "", ""}, {"KIFR", "US", "", ""},
                                                       {"KIFR", "", "", ""}, {"KIFR", "SA", "", ""}}));
    char *text = nullptr;
    ASSERT_EQ(CreateSubsetDBF(1, c.list, (c.dir / "a.dbf").c_str(), (c.dir / "out.dbf").c_str(), &text), 0);
    EXPECT_STREQ(text, "USA");
    free(text);
}

TEST(CreateSubsetDBF, CountIsWrittenWithTheEndMarker)
{
    Coverage c;
    Subset(c, 1, "airports.dbf");
    EXPECT_EQ(HeaderCount(c.dir / "out.dbf"), 6);
    std::string bytes = ReadFile(c.dir / "out.dbf");
    EXPECT_EQ(bytes.back(), '\x1a');
}

TEST(CreateSubsetDBF, Codes)
{
    Coverage c;
    EXPECT_EQ(CreateSubsetDBF(1, c.list, (c.dir / "none.dbf").c_str(), (c.dir / "out.dbf").c_str(), nullptr), -2);
    EXPECT_EQ(ReadFile(c.dir / "out.dbf"), "");  // created, left empty
    WriteFile(c.dir / "a.dbf", DbfTable(kChartFields, ChartRecords()));
    int before = CountOpenDescriptors();
    EXPECT_EQ(CreateSubsetDBF(1, c.list, (c.dir / "a.dbf").c_str(), (c.dir / "no/out.dbf").c_str(), nullptr), -1);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(CreateSubsetDBF, NullListDropsEveryRecord)
{
    TempDir dir;
    WriteFile(dir / "a.dbf", DbfTable(kChartFields, ChartRecords()));
    ASSERT_EQ(CreateSubsetDBF(3, nullptr, (dir / "a.dbf").c_str(), (dir / "out.dbf").c_str(), nullptr), 0);
    EXPECT_EQ(HeaderCount(dir / "out.dbf"), 0);
}

// NOTAMs: texts in a memo file, kept by airport type or country.
static void WriteNotams(const TempDir &dir, const std::vector<std::vector<std::string>> &rows)
{
    std::vector<std::string> texts;
    for (const auto &row : rows) texts.push_back(row[2]);
    std::vector<int> blocks;
    WriteFile(dir / "n.dbt", DbtFile(texts, &blocks));
    std::vector<DbfRecord> records;
    for (size_t i = 0; i < rows.size(); i++)
        records.push_back({rows[i][0], rows[i][1], std::to_string(blocks[i])});
    WriteFile(dir / "n.dbf", DbfTable(kNotamFields, records));
}

static std::vector<std::vector<std::string>> Notams(Coverage &c, int kind)
{
    EXPECT_EQ(CreateNotamsDBF(kind, c.list, (c.dir / "n.dbf").c_str(), (c.dir / "outNEW.dbf").c_str()), 0);
    return ReadTable(c.dir / "outNEW.dbf", {"F5_6", "TEXT"});
}

TEST(CreateNotamsDBF, KeepsByWholeTypeAndRenumbersMemos)
{
    Coverage c;
    std::string longText(700, 'L');
    WriteNotams(c.dir, {{"KIFR", "US", "ifr"}, {"KVFR", "US", "vfr"}, {"KBOTH", "US", "code cut"},
                        {"KBOT", "US", longText}, {"KR7", "MX", "r7"}, {"KRES", "BR", "res"},
                        {"KR6", "CA", "r6"}, {"KNONE", "US", "none"}});
    auto ifr = Notams(c, 1);
    std::vector<std::vector<std::string>> expected = {
        {"KIFR", "ifr"}, {"KBOTH", "code cut"}, {"KBOT", longText}};
    EXPECT_EQ(ifr, expected);
    EXPECT_EQ(ReadColumn(c.dir / "outNEW.dbf", "TEXT").size(), 3u);
    // Memo blocks: 1, 2, 3 (the long text takes blocks 3 and 4).
    std::vector<std::string> raw;
    {
        auto rows = ReadTable(c.dir / "outNEW.dbf", {"F5_6"});
        ASSERT_EQ(rows.size(), 3u);
    }
    std::string memo = ReadFile(c.dir / "outNEW.dbt");
    EXPECT_EQ(memo.size(), 512u * 5);
    EXPECT_EQ(memo.substr(0, 512), std::string(512, '\0'));
    EXPECT_EQ(memo.substr(512, 4), std::string("\xff\xff\x08\x00", 4));
    EXPECT_EQ(memo.substr(512 + 8, 3), "ifr");
    EXPECT_EQ(memo.substr(1536 + 8, 700), longText);

    auto vfr = Notams(c, 2);
    expected = {{"KVFR", "vfr"}, {"KBOTH", "code cut"}, {"KBOT", longText}};
    EXPECT_EQ(vfr, expected);
}

TEST(CreateNotamsDBF, CountryNotamsNeedACoveredCountry)
{
    Coverage c;
    WriteNotams(c.dir, {{"", "US", "us"}, {"", "FR", "fr"}, {"", "", "blank"}});
    EXPECT_EQ(Notams(c, 1).size(), 0u);  // both country texts empty
    AddCountries(c.list, strdup("CA US"));
    auto kept = Notams(c, 1);
    ASSERT_EQ(kept.size(), 2u);
    EXPECT_EQ(kept[0][1], "us");
    EXPECT_EQ(kept[1][1], "blank");  // the empty country is in any non-empty text
}

TEST(CreateNotamsDBF, NothingKeptLeavesHeaderAndOneMemoBlock)
{
    Coverage c;
    WriteNotams(c.dir, {{"KNONE", "US", "x"}});
    EXPECT_EQ(Notams(c, 1).size(), 0u);
    EXPECT_EQ(HeaderCount(c.dir / "outNEW.dbf"), 0);
    EXPECT_EQ(ReadFile(c.dir / "outNEW.dbt"), std::string(512, '\0'));
}

TEST(CreateNotamsDBF, Codes)
{
    Coverage c;
    EXPECT_EQ(CreateNotamsDBF(1, c.list, (c.dir / "none.dbf").c_str(), (c.dir / "outNEW.dbf").c_str()), -2);
    WriteNotams(c.dir, {{"KIFR", "US", "x"}});
    EXPECT_EQ(CreateNotamsDBF(1, c.list, (c.dir / "n.dbf").c_str(), (c.dir / "no/outNEW.dbf").c_str()), -1);
    // The memo path cannot be created: a directory stands at its name.
    mkdir((c.dir / "outNEW.dbt").c_str(), 0700);
    int before = CountOpenDescriptors();
    EXPECT_EQ(CreateNotamsDBF(1, c.list, (c.dir / "n.dbf").c_str(), (c.dir / "outNEW.dbf").c_str()), -3);
    EXPECT_EQ(CountOpenDescriptors(), before);
    // Neither file takes its name when the pair cannot be written.
    EXPECT_FALSE(Exists(c.dir / "outNEW.dbf"));
}

TEST(CreateNotamsDBF, AShortWriteOfTheMemoFileIsMinus6AndLeavesNeitherFile)
{
    Coverage c;
    std::vector<std::vector<std::string>> many;
    for (int i = 0; i < 40; i++) many.push_back({"KIFR", "US", std::string(700, 'x')});
    WriteNotams(c.dir, many);
    ASSERT_EQ(CreateNotamsDBF(1, c.list, (c.dir / "n.dbf").c_str(), (c.dir / "wholeNEW.dbf").c_str()), 0);
    const uint64_t table = ReadFile(c.dir / "wholeNEW.dbf").size(), memo = ReadFile(c.dir / "wholeNEW.dbt").size();
    ASSERT_LT(table, memo);
    // Memo blocks outgrow the records: whatever the limit cuts, the memo
    // file meets it first.
    for (auto [limit, code] : {std::make_pair(table + 10, -6), std::make_pair((uint64_t)600, -6),
                               std::make_pair(table - 1, -6)}) {
        EXPECT_EQ(RunInChild([&] {
                      LimitFileSize(limit);
                      return CreateNotamsDBF(1, c.list, (c.dir / "n.dbf").c_str(), (c.dir / "outNEW.dbf").c_str());
                  }),
                  code)
            << limit;
        EXPECT_FALSE(Exists(c.dir / "outNEW.dbf"));
        EXPECT_FALSE(Exists(c.dir / "outNEW.dbt"));
    }
}

TEST(CreateNotamsDBF, MemoHeaderThatCannotBeWritten)
{
    Coverage c;
    WriteNotams(c.dir, {{"KIFR", "US", "x"}});
    EXPECT_EQ(RunInChild([&] {
                  LimitFileSize(300);
                  return CreateNotamsDBF(1, c.list, (c.dir / "n.dbf").c_str(),
                                         (c.dir / "outNEW.dbf").c_str());
              }),
              -4);
}
