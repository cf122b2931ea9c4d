// The tables of an area subset: the new coverage table, the cut tables, the
// link repair, the NOTAM tables and the checksum list.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "fork_util.h"
#include "subset/subset.h"
#include "subset_fixture.h"
#include "table_reader.h"

namespace {

using Rows = std::vector<std::vector<std::string>>;
using Names = std::vector<std::string>;

struct AreaCut {
    TempDir source, destination;

    explicit AreaCut(const SubsetSourcePlan &plan = DefaultSubsetSource())
    {
        WriteSubsetSource(source.path(), plan);
        // The driver copies the region catalogue before the tables are cut;
        // the new coverage table is classified by it.
        WriteFile(destination / "regions.dat", ReadFile(source / "regions.dat"));
    }

    int Cut(const Box &box = kBox, int minimumRunway = 0, const char *list = nullptr)
    {
        return SubsetDBFsForArea(source.c_str(), destination.c_str(), minimumRunway, list, box.north,
                                 box.west, box.south, box.east);
    }

    std::string Out(const std::string &name) const { return destination / name; }
    Rows Coverage() const { return ReadTable(Out("coverags.dbf"), {"KEY", "F5_6", "NOTE"}); }
    Names Selected() const { return ReadColumn(Out("coverags.dbf"), "F5_6"); }
};

// The new coverage table byte for byte: the source's header, then the
// records, no end marker.
std::string ExpectedCoverage(const std::vector<DbfRecord> &records)
{
    DbfOptions options;
    options.endMarker = false;
    return DbfTable(kSubsetCoverageFields, records, options);
}

std::string CrcLine(const std::string &dir, const std::string &name)
{
    char line[64];
    snprintf(line, sizeof line, "%s,0x%x\r\n", name.c_str(),
             ReferenceTarnCrc(ReadFile(dir + "/" + name)));
    return line;
}

}  // namespace

TEST(SubsetDBFsForArea, CutsEveryTableToTheBox)
{
    AreaCut run;
    ASSERT_EQ(run.Cut(), 0);
    EXPECT_EQ(ListDir(run.destination.path()),
              (Names{"airports.dbf", "charts.dbf", "chrtlink.dbf", "coverags.dbf", "crcfiles.txt",
                     "notams.dbf", "notams.dbt", "regions.dat", "vfrapts.dbf", "vfrchrts.dbf",
                     "vfrntms.dbf", "vfrntms.dbt"}));

    EXPECT_EQ(ReadFile(run.Out("coverags.dbf")),
              ExpectedCoverage({{"100", "KAAA"}, {"100", "KCCC"}, {"600", "KCCC"}, {"600", "KVVV"}}));
    EXPECT_EQ(ReadColumn(run.Out("charts.dbf"), "FILENAM_BA"), (Names{"AAA1", "AAA2", "CCC1"}));
    EXPECT_EQ(ReadColumn(run.Out("vfrchrts.dbf"), "FILENAM_BA"), (Names{"VCCC1", "VVV1"}));
    EXPECT_EQ(ReadColumn(run.Out("chrtlink.dbf"), "F5_6"), (Names{"KAAA", "KCCC", "KVVV"}));
    // The IFR airports are relinked against the new chart and link tables.
    EXPECT_EQ(ReadTable(run.Out("airports.dbf"), {"F5_6", "CHRT_IDX", "CLNK_IDX"}),
              (Rows{{"KAAA", "1", "1"}, {"KCCC", "3", "2"}}));
    // The VFR airports keep the links they had: their repair found no table.
    EXPECT_EQ(ReadTable(run.Out("vfrapts.dbf"), {"F5_6", "CHRT_IDX"}),
              (Rows{{"KCCC", "92"}, {"KVVV", "93"}}));
    // A country NOTAM stays when its country is one of the airport tables'.
    EXPECT_EQ(ReadTable(run.Out("notams.dbf"), {"F5_6", "TEXT"}),
              (Rows{{"KAAA", "notam a"}, {"", "country us"}, {"KCCC", "notam c"}}));
    EXPECT_EQ(ReadTable(run.Out("vfrntms.dbf"), {"F5_6", "TEXT"}),
              (Rows{{"KCCC", "vfr c"}, {"KVVV", "vfr v"}}));
}

TEST(SubsetDBFsForArea, ChecksumListIsRewrittenForTheDestination)
{
    AreaCut run;
    ASSERT_EQ(run.Cut(), 0);
    const std::string d = run.destination.path();
    std::string expected;
    for (const char *name : {"airports.dbf", "charts.dbf", "notams.dbf", "notams.dbt", "vfrapts.dbf",
                             "vfrchrts.dbf", "vfrntms.dbf", "vfrntms.dbt", "coverags.dbf",
                             "chrtlink.dbf"})
        expected += CrcLine(d, name);
    expected += "other.txt,0x2\r\n";
    EXPECT_EQ(ReadFile(run.Out("crcfiles.txt")), expected);
}

TEST(SubsetDBFsForArea, WithoutASourceChecksumListNoneIsWritten)
{
    AreaCut run;
    remove((run.source / "crcfiles.txt").c_str());
    EXPECT_EQ(run.Cut(), 0);
    EXPECT_FALSE(Exists(run.Out("crcfiles.txt")));
}

TEST(SubsetDBFsForArea, NewCoverageHasTheCountAndNoEndMarker)
{
    AreaCut run;
    ASSERT_EQ(run.Cut(), 0);
    const std::string bytes = ReadFile(run.Out("coverags.dbf"));
    EXPECT_EQ(HeaderCount(run.Out("coverags.dbf")), 4);
    const size_t header = 32 + 32 * kSubsetCoverageFields.size() + 1;
    EXPECT_EQ(bytes.size(), header + 4 * (size_t)DbfRecordLength(kSubsetCoverageFields));
    EXPECT_NE(bytes.back(), '\x1a');
}

TEST(SubsetDBFsForArea, CoverageKeysAreTheLastOfEachKind)
{
    SubsetSourcePlan plan = DefaultSubsetSource();
    plan.regions.push_back({"601", "CA16", "Canada VFR"});
    plan.coverage = {{"600", "KVVV"}, {"100", "KAAA"}, {"101", "KBBB"}, {"601", "KCCC"}};
    AreaCut run(plan);
    ASSERT_EQ(run.Cut(), 0);
    EXPECT_EQ(run.Coverage(), (Rows{{"101", "KAAA", ""}, {"101", "KCCC", ""}, {"601", "KCCC", ""},
                                    {"601", "KVVV", ""}}));
}

TEST(SubsetDBFsForArea, KindsWithoutARecordKeepNineZeros)
{
    SubsetSourcePlan plan = DefaultSubsetSource();
    plan.coverage = {{"100", "KAAA"}};
    AreaCut run(plan);
    ASSERT_EQ(run.Cut(), 0);
    EXPECT_EQ(run.Coverage(), (Rows{{"100", "KAAA", ""}, {"100", "KCCC", ""}, {"000000000", "KCCC", ""},
                                    {"000000000", "KVVV", ""}}));
    // Nine zeros are no VFR coverage: every airport of the new table is IFR,
    // and the VFR tables are not written.
    EXPECT_EQ(ReadColumn(run.Out("airports.dbf"), "F5_6"), (Names{"KAAA", "KCCC"}));
    EXPECT_FALSE(Exists(run.Out("vfrchrts.dbf")));
    EXPECT_FALSE(Exists(run.Out("vfrntms.dbf")));
    EXPECT_FALSE(Exists(run.Out("vfrapts.dbf")));
}

TEST(SubsetDBFsForArea, WithoutSourceRegionsEveryKeyIsAnIfrKey)
{
    AreaCut run;
    remove((run.source / "regions.dat").c_str());
    ASSERT_EQ(run.Cut(), 0);
    EXPECT_EQ(run.Coverage(), (Rows{{"600", "KAAA", ""}, {"600", "KCCC", ""}, {"000000000", "KCCC", ""},
                                    {"000000000", "KVVV", ""}}));
}

TEST(SubsetDBFsForArea, CoverageKeysAreCutTo29Characters)
{
    SubsetSourcePlan plan = DefaultSubsetSource();
    const std::string longKey = "K123456789012345678901234567890123";
    plan.coverage = {{longKey, "KAAA"}};
    AreaCut run(plan);
    // A wider KEY field, so that the cut is the key's and not the field's.
    std::vector<DbfField> fields = kSubsetCoverageFields;
    fields[0].length = 40;
    WriteFile(run.source / "coverags.dbf", DbfTable(fields, {{longKey, "KAAA"}}));
    ASSERT_EQ(run.Cut(), 0);
    EXPECT_EQ(ReadColumn(run.Out("coverags.dbf"), "KEY")[0], longKey.substr(0, 29));
}

TEST(SubsetDBFsForArea, DestinationRegionsClassifyTheNewCoverage)
{
    AreaCut run;
    remove(run.Out("regions.dat").c_str());
    ASSERT_EQ(run.Cut(), 0);
    // Without the catalogue every record of the new table counts as IFR.
    EXPECT_EQ(ReadColumn(run.Out("airports.dbf"), "F5_6"), (Names{"KAAA", "KCCC"}));
    EXPECT_EQ(ReadColumn(run.Out("charts.dbf"), "FILENAM_BA"), (Names{"AAA1", "AAA2", "CCC1"}));
    EXPECT_FALSE(Exists(run.Out("vfrchrts.dbf")));
    EXPECT_FALSE(Exists(run.Out("vfrapts.dbf")));
    EXPECT_EQ(ReadColumn(run.Out("chrtlink.dbf"), "F5_6"), (Names{"KAAA", "KCCC", "KVVV"}));
}

// Selection, through the tables.
static SubsetSourcePlan PlanWithAirports(const std::vector<FixtureAirport> &airports)
{
    SubsetSourcePlan plan = DefaultSubsetSource();
    plan.airports = airports;
    plan.vfrAirports.clear();
    return plan;
}

TEST(SubsetDBFsForArea, ZeroWidthBoxSelectsByThresholdAndListOnly)
{
    AreaCut run;
    ASSERT_EQ(run.Cut({0, 20, 0, 20}), 0);
    EXPECT_EQ(run.Selected(), (Names{"KAAA", "KBBB", "KCCC", "KDDD", "KCCC", "KVVV", "KWWW"}));

    AreaCut threshold;
    ASSERT_EQ(threshold.Cut({0, 20, 0, 20.00009}, 2500), 0);
    EXPECT_EQ(threshold.Selected(), (Names{"KAAA", "KBBB", "KCCC", "KDDD", "KCCC"}));

    AreaCut list;
    ASSERT_EQ(list.Cut({0, 20, 0, 20}, 90000, "KWWW"), 0);
    EXPECT_EQ(list.Selected(), (Names{"KWWW"}));
}

TEST(SubsetDBFsForArea, BoxAcrossTheAntimeridian)
{
    AreaCut run(PlanWithAirports({{"KAAA", "N00000000", "E175000000"},
                              {"KBBB", "N00000000", "W175000000"},
                              {"KCCC", "N00000000", "E000000000"},
                              {"KDDD", "N00000000", "E170000000"},
                              {"KEEE", "N00000000", "W170000000"},
                              {"KFFF", "N00000000", "E169595999"}}));
    ASSERT_EQ(run.Cut({10, 170, -10, -170}), 0);
    EXPECT_EQ(run.Selected(), (Names{"KAAA", "KBBB", "KDDD", "KEEE"}));
}

TEST(SubsetDBFsForArea, AirportsOnTheEdgesAreKept)
{
    AreaCut run(PlanWithAirports({{"KAAA", "N45000000", "W100000000"},
                              {"KBBB", "N35000000", "W100000000"},
                              {"KCCC", "N40000000", "W105000000"},
                              {"KDDD", "N40000000", "W095000000"},
                              {"KEEE", "N45000001", "W100000000"},
                              {"KFFF", "N34595999", "W100000000"},
                              {"KGGG", "N40000000", "W105000001"},
                              {"KHHH", "N40000000", "W094595999"}}));
    ASSERT_EQ(run.Cut(), 0);
    EXPECT_EQ(run.Selected(), (Names{"KAAA", "KBBB", "KCCC", "KDDD"}));
}

TEST(SubsetDBFsForArea, BlankOrZeroRunwayPassesAnyThreshold)
{
    std::vector<FixtureAirport> airports = {{"KAAA", "N40000000", "W100000000", ""},
                                            {"KBBB", "N40000000", "W100000000", "0"},
                                            {"KCCC", "N40000000", "W100000000", "8999"},
                                            {"KDDD", "N40000000", "W100000000", "9000"}};
    AreaCut run(PlanWithAirports(airports));
    ASSERT_EQ(run.Cut(kBox, 9000), 0);
    EXPECT_EQ(run.Selected(), (Names{"KAAA", "KBBB", "KDDD"}));

    AreaCut none(PlanWithAirports(airports));
    ASSERT_EQ(none.Cut(kBox, 0), 0);
    EXPECT_EQ(none.Selected(), (Names{"KAAA", "KBBB", "KCCC", "KDDD"}));
}

TEST(SubsetDBFsForArea, ListedAirportIsKeptOutsideTheBoxAndBelowTheThreshold)
{
    AreaCut run;
    ASSERT_EQ(run.Cut(kBox, 4000, "KDDD KWWW"), 0);
    // KCCC (3000) fails the threshold in both tables; KDDD and KWWW are listed.
    EXPECT_EQ(run.Selected(), (Names{"KAAA", "KDDD", "KWWW"}));
}

TEST(SubsetDBFsForArea, EmptyIdentifierIsInAnyList)
{
    SubsetSourcePlan plan = PlanWithAirports({{"", "S80000000", "E100000000", "1"},
                                              {"KAAA", "N40000000", "W100000000"}});
    AreaCut listed(plan);
    ASSERT_EQ(listed.Cut(kBox, 9000, "KZZZ"), 0);
    EXPECT_EQ(listed.Selected(), (Names{""}));
    AreaCut unlisted(plan);
    ASSERT_EQ(unlisted.Cut(kBox, 0, nullptr), 0);
    EXPECT_EQ(unlisted.Selected(), (Names{"KAAA"}));
}

TEST(SubsetDBFsForArea, ListIsMatchedCaseSensitively)
{
    AreaCut run;
    ASSERT_EQ(run.Cut({0, 20, 0, 20}, 90000, "kwww"), -3);
}

TEST(SubsetDBFsForArea, HemisphereLettersInEitherCase)
{
    AreaCut run(PlanWithAirports({{"KAAA", "s47000000", "w100000000"},
                              {"KBBB", "S47000000", "W100000000"},
                              {"KCCC", "X47000000", "W100000000"},
                              {"KDDD", "n47000000", "e100000000"}}));
    ASSERT_EQ(run.Cut({-46, -101, -48, -99}), 0);
    EXPECT_EQ(run.Selected(), (Names{"KAAA", "KBBB"}));
    AreaCut north(PlanWithAirports({{"KCCC", "X47000000", "W100000000"},
                                {"KDDD", "n47000000", "e100000000"}}));
    ASSERT_EQ(north.Cut({48, -101, 46, 101}), 0);
    EXPECT_EQ(north.Selected(), (Names{"KCCC", "KDDD"}));
}

TEST(SubsetDBFsForArea, NoAirportSelectedLeavesAHeaderOnlyCoverage)
{
    AreaCut run;
    EXPECT_EQ(run.Cut({-60, 0, -70, 1}), -3);
    EXPECT_EQ(ReadFile(run.Out("coverags.dbf")), ExpectedCoverage({}));
    EXPECT_EQ(ListDir(run.destination.path()), (Names{"coverags.dbf", "regions.dat"}));
}

TEST(SubsetDBFsForArea, MissingAirportTablesAreSkipped)
{
    AreaCut run;
    remove((run.source / "airports.dbf").c_str());
    ASSERT_EQ(run.Cut(), 0);
    EXPECT_EQ(run.Selected(), (Names{"KCCC", "KVVV"}));
    // No IFR airport: none of the IFR tables is written.
    EXPECT_EQ(ListDir(run.destination.path()),
              (Names{"chrtlink.dbf", "coverags.dbf", "crcfiles.txt", "regions.dat", "vfrapts.dbf",
                     "vfrchrts.dbf", "vfrntms.dbf", "vfrntms.dbt"}));

    AreaCut neither;
    remove((neither.source / "airports.dbf").c_str());
    remove((neither.source / "vfrapts.dbf").c_str());
    EXPECT_EQ(neither.Cut(), -3);
}

// The VFR link repair is pointed at "vfrapts.dbf" of the destination.
TEST(SubsetDBFsForArea, OlderVfrAirportTableIsRelinkedAndKept)
{
    AreaCut run;
    std::vector<DbfRecord> older = {{"KAAA", "US", "", "", "", "x"},
                                    {"KVVV", "CA", "", "", "", "x"},
                                    {"KZZZ", "CA", "", "", "", "x"}};
    WriteFile(run.Out("vfrapts.dbf"), DbfTable(kSubsetVfrAirportFields, older));
    ASSERT_EQ(run.Cut(), 0);
    // The new VFR chart table holds KCCC then KVVV.
    EXPECT_EQ(ReadTable(run.Out("vfrapts.dbf"), {"F5_6", "CHRT_IDX"}),
              (Rows{{"KAAA", ""}, {"KVVV", "2"}, {"KZZZ", ""}}));
    EXPECT_FALSE(Exists(run.Out("vfraptsNEW.dbf")));
    EXPECT_FALSE(Exists(run.Out("airportsNEW.dbf")));
}

TEST(SubsetDBFsForArea, WithoutAnOlderVfrAirportTableTheNewOneStaysUnrepaired)
{
    SubsetSourcePlan plan = DefaultSubsetSource();
    plan.vfrAirports[0].chartIndex = "7";  // KCCC: stale on purpose
    plan.vfrAirports[1].chartIndex = "8";
    AreaCut run(plan);
    ASSERT_EQ(run.Cut(), 0);
    EXPECT_EQ(ReadTable(run.Out("vfrapts.dbf"), {"F5_6", "CHRT_IDX"}), (Rows{{"KCCC", "7"}, {"KVVV", "8"}}));
}

// Failure codes.
namespace {

void MakeDirectory(const std::string &path) { ASSERT_EQ(mkdir(path.c_str(), 0755), 0) << path; }

}  // namespace

TEST(SubsetDBFsForArea, MissingSourceCoverageIsMinusOneAtOnce)
{
    AreaCut run;
    remove((run.source / "coverags.dbf").c_str());
    int before = CountOpenDescriptors();
    EXPECT_EQ(run.Cut(), -1);
    EXPECT_EQ(CountOpenDescriptors(), before);
    EXPECT_EQ(ListDir(run.destination.path()), (Names{"regions.dat"}));
}

TEST(SubsetDBFsForArea, DestinationCoverageThatCannotBeCreatedIsMinusTwo)
{
    AreaCut run;
    MakeDirectory(run.Out("coverags.dbf"));
    int before = CountOpenDescriptors();
    EXPECT_EQ(run.Cut(), -2);
    EXPECT_EQ(CountOpenDescriptors(), before);

    TempDir source;
    WriteSubsetSource(source.path(), DefaultSubsetSource());
    EXPECT_EQ(SubsetDBFsForArea(source.c_str(), (source / "no/such/dir").c_str(), 0, nullptr, kBox.north,
                                kBox.west, kBox.south, kBox.east),
              -2);
}

struct FailureCase {
    const char *name;
    const char *missingSource;     // removed from the source, or null
    const char *directoryInstead;  // a directory made in the destination, or null
    int code;
};

void PrintTo(const FailureCase &c, std::ostream *os) { *os << c.name; }

class SubsetTableFailure : public ::testing::TestWithParam<FailureCase> {};

TEST_P(SubsetTableFailure, ReturnsTheStepsCodeAndLeavesWhatWasWritten)
{
    const FailureCase &c = GetParam();
    AreaCut run;
    if (c.missingSource) {
        ASSERT_EQ(remove((run.source / c.missingSource).c_str()), 0);
    }
    if (c.directoryInstead) MakeDirectory(run.Out(c.directoryInstead));
    const auto sourceBefore = Snapshot(run.source.path());
    int before = CountOpenDescriptors();
    EXPECT_EQ(run.Cut(), c.code);
    EXPECT_EQ(CountOpenDescriptors(), before);
    EXPECT_EQ(Snapshot(run.source.path()), sourceBefore);
    // Nothing is rolled back, and the steps after the failure never ran.
    EXPECT_TRUE(Exists(run.Out("coverags.dbf")));
    EXPECT_FALSE(Exists(run.Out("crcfiles.txt")));
}

INSTANTIATE_TEST_SUITE_P(
    Codes, SubsetTableFailure,
    ::testing::Values(FailureCase{"ChartsMissing", "charts.dbf", nullptr, -4},
                      FailureCase{"ChartsBlocked", nullptr, "charts.dbf", -4},
                      FailureCase{"VfrChartsMissing", "vfrchrts.dbf", nullptr, -5},
                      FailureCase{"VfrChartsBlocked", nullptr, "vfrchrts.dbf", -5},
                      FailureCase{"AirportsBlocked", nullptr, "airports.dbf", -6},
                      FailureCase{"VfrAirportsBlocked", nullptr, "vfraptsNEW.dbf", -7},
                      FailureCase{"LinksMissing", "chrtlink.dbf", nullptr, -8},
                      FailureCase{"LinksBlocked", nullptr, "chrtlink.dbf", -8},
                      FailureCase{"NotamsMissing", "notams.dbf", nullptr, -9},
                      FailureCase{"NotamsBlocked", nullptr, "notams.dbf", -9},
                      FailureCase{"NotamMemoBlocked", nullptr, "notams.dbt", -9},
                      FailureCase{"VfrNotamsMissing", "vfrntms.dbf", nullptr, -10},
                      FailureCase{"VfrNotamsBlocked", nullptr, "vfrntms.dbf", -10},
                      FailureCase{"VfrNotamMemoBlocked", nullptr, "vfrntms.dbt", -10}),
    [](const ::testing::TestParamInfo<FailureCase> &info) { return std::string(info.param.name); });

TEST(SubsetDBFsForArea, FailedChartCutLeavesItsTargetEmpty)
{
    AreaCut run;
    remove((run.source / "charts.dbf").c_str());
    ASSERT_EQ(run.Cut(), -4);
    EXPECT_EQ(ReadFile(run.Out("charts.dbf")), "");
    EXPECT_FALSE(Exists(run.Out("airports.dbf")));
}

TEST(SubsetDBFsForArea, MemoHeaderThatCannotBeWrittenIsMinusNine)
{
    AreaCut run;
    // Every table before the NOTAMs is smaller than a memo block; the memo
    // header is the first write that cannot fit.
    int result = RunInChild([&] {
        LimitFileSize(511);
        return -run.Cut();
    });
    EXPECT_EQ(result, 9);
    // Neither the memo file nor the NOTAM table takes its name cut short.
    EXPECT_FALSE(Exists(run.Out("notams.dbt")));
    EXPECT_FALSE(Exists(run.Out("notams.dbf")));
}
