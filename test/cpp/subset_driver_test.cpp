// The area subset entry: fixed files, tables and both bundles of a directory.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "subset_fixture.h"
#include "table_reader.h"
#include "tarntermchart.h"

namespace {

using Names = std::vector<std::string>;

const char *const kFixedFiles[] = {"charts.ini",   "regions.dat",  "country.dbf",
                                   "ctypes.dbf",   "tarnwick.tfl", "tarnwick.tls",
                                   "lssdef.tcl",   "sbscrips.dbf", "state.dbf"};

struct Subset {
    TempDir source, destination;

    explicit Subset(const SubsetSourcePlan &plan = DefaultSubsetSource())
    {
        WriteSubsetSource(source.path(), plan);
    }

    int Run(const Box &box = kBox) { return RunEx(0, nullptr, box); }
    int RunEx(int minimumRunway, const char *list, const Box &box = kBox)
    {
        return TarnTermChart_SubsetChartsEx(source.c_str(), destination.c_str(), minimumRunway, list,
                                            box.north, box.west, box.south, box.east);
    }
    std::string Out(const std::string &name) const { return destination / name; }
    void Remove(const std::string &name) { ASSERT_EQ(remove((source / name).c_str()), 0) << name; }
};

void ExpectFixedFilesCopied(const Subset &s)
{
    for (const char *name : kFixedFiles)
        EXPECT_EQ(ReadFile(s.Out(name)), ReadFile(s.source / name)) << name;
}

}  // namespace

TEST(SubsetCharts, WritesACompleteSmallerDirectory)
{
    Subset s;
    const auto sourceBefore = Snapshot(s.source.path());
    int before = CountOpenDescriptors();
    ASSERT_EQ(TarnTermChart_SubsetCharts(s.source.c_str(), s.destination.c_str(), kBox.north, kBox.west,
                                         kBox.south, kBox.east),
              0);
    EXPECT_EQ(CountOpenDescriptors(), before);
    EXPECT_EQ(ListDir(s.destination.path()),
              (Names{"airports.dbf", "charts.bin", "charts.dbf", "charts.ini", "chrtlink.dbf",
                     "country.dbf", "coverags.dbf", "crcfiles.txt", "ctypes.dbf", "lssdef.tcl",
                     "notams.dbf", "notams.dbt", "regions.dat", "sbscrips.dbf", "state.dbf",
                     "tarnwick.tfl", "tarnwick.tls", "vfrapts.dbf", "vfrcharts.bin", "vfrchrts.dbf",
                     "vfrntms.dbf", "vfrntms.dbt"}));
    ExpectFixedFilesCopied(s);
    EXPECT_EQ(BundleNames(s.Out("charts.bin")), (Names{"AAA1.PDF", "AAA2.PDF", "CCC1.PDF"}));
    EXPECT_EQ(BundleNames(s.Out("vfrcharts.bin")), (Names{"VCCC1.PDF", "VVV1.PDF"}));
    for (const char *name : {"charts.bin", "vfrcharts.bin"}) {
        const std::string bytes = ReadFile(s.Out(name));
        ParsedBundle parsed = ParseChartsBin(bytes);
        EXPECT_EQ(parsed.crc, ReferenceBundleCrc(bytes)) << name;
        for (const ParsedEntry &e : parsed.entries)
            EXPECT_EQ(BlobOf(bytes, e), "chart " + e.name.substr(0, e.name.size() - 4) + " bytes");
    }
    // The source is read, never written.
    EXPECT_EQ(Snapshot(s.source.path()), sourceBefore);
}

TEST(SubsetCharts, ForwarderGivesTheSameDirectory)
{
    Subset direct, forwarded;
    ASSERT_EQ(TarnTermChart_SubsetCharts(direct.source.c_str(), direct.destination.c_str(), kBox.north,
                                         kBox.west, kBox.south, kBox.east),
              0);
    ASSERT_EQ(TarnwickAPI_SubsetCharts(forwarded.source.c_str(), forwarded.destination.c_str(),
                                       kBox.north, kBox.west, kBox.south, kBox.east),
              0);
    EXPECT_EQ(Snapshot(direct.destination.path()), Snapshot(forwarded.destination.path()));
    EXPECT_EQ(TarnwickAPI_SubsetCharts(forwarded.source.c_str(), forwarded.destination.c_str(), -60, 0,
                                       -70, 1),
              -3);
}

TEST(SubsetChartsEx, AirportListIsMatchedInUpperCase)
{
    SubsetSourcePlan plan = DefaultSubsetSource();
    plan.airports.insert(plan.airports.begin() + 1, {"KABC", "S30000000", "E150000000", "100"});
    plan.vfrAirports.insert(plan.vfrAirports.begin() + 1, {"KSFO", "N37370000", "W122220000", "100"});
    plan.charts.insert(plan.charts.begin() + 2, {"KABC", "ABC1"});
    plan.vfrCharts.insert(plan.vfrCharts.begin() + 1, {"KSFO", "SFO1"});
    plan.bundle = BundleOfCharts(plan.charts);
    plan.vfrBundle = BundleOfCharts(plan.vfrCharts);
    Subset s(plan);
    char list[] = "kabc,ksfo";
    ASSERT_EQ(s.RunEx(9000, list), 0);
    EXPECT_STREQ(list, "kabc,ksfo");  // the caller's text is not changed
    EXPECT_EQ(ReadColumn(s.Out("coverags.dbf"), "F5_6"), (Names{"KABC", "KSFO"}));
    EXPECT_EQ(BundleNames(s.Out("charts.bin")), (Names{"ABC1.PDF"}));
    EXPECT_EQ(BundleNames(s.Out("vfrcharts.bin")), (Names{"SFO1.PDF"}));
}

TEST(SubsetChartsEx, OnlyLettersOfTheListAreRaised)
{
    // Only ASCII letters change: "k-1" becomes "K-1".
    SubsetSourcePlan plan = DefaultSubsetSource();
    plan.airports[0].id = plan.charts[0].airport = plan.charts[1].airport = "K-1";
    Subset s(plan);
    ASSERT_EQ(s.RunEx(9000, "k-1 kvvv"), 0);
    EXPECT_EQ(ReadColumn(s.Out("coverags.dbf"), "F5_6"), (Names{"K-1", "KVVV"}));
}

TEST(SubsetChartsEx, RunwayThresholdIsPassedOn)
{
    Subset s;
    // No VFR airport passes: the VFR chart table is not written, so the VFR
    // cut cannot open it, and its code is the result.
    EXPECT_EQ(s.RunEx(4000, nullptr), -3);
    EXPECT_EQ(ReadColumn(s.Out("coverags.dbf"), "F5_6"), (Names{"KAAA"}));
    EXPECT_EQ(BundleNames(s.Out("charts.bin")), (Names{"AAA1.PDF", "AAA2.PDF"}));
    EXPECT_FALSE(Exists(s.Out("vfrcharts.bin")));
}

TEST(SubsetChartsEx, OnlyVfrAirportsSelectedStopsAtTheIfrBundle)
{
    Subset s;
    const Box vvvOnly = {41.5, -96.5, 40.5, -95.5};
    EXPECT_EQ(s.Run(vvvOnly), -3);
    EXPECT_FALSE(Exists(s.Out("charts.dbf")));
    EXPECT_FALSE(Exists(s.Out("charts.bin")));
    EXPECT_TRUE(Exists(s.Out("vfrchrts.dbf")));
    EXPECT_FALSE(Exists(s.Out("vfrcharts.bin")));  // not attempted

    // An older chart table in the destination is what the IFR cut reads.
    Subset older;
    WriteFile(older.Out("charts.dbf"), DbfTable(kSubsetChartFields, {{"KBBB", "1", "BBB1"}}));
    EXPECT_EQ(older.Run(vvvOnly), 0);
    EXPECT_EQ(BundleNames(older.Out("charts.bin")), (Names{"BBB1.PDF"}));
    EXPECT_EQ(BundleNames(older.Out("vfrcharts.bin")), (Names{"VVV1.PDF"}));
}

TEST(SubsetChartsEx, MissingBundlesAreTolerated)
{
    SubsetSourcePlan noVfr = DefaultSubsetSource();
    noVfr.writeVfrBundle = false;
    Subset a(noVfr);
    EXPECT_EQ(a.Run(), 0);
    EXPECT_TRUE(Exists(a.Out("charts.bin")));
    EXPECT_FALSE(Exists(a.Out("vfrcharts.bin")));

    SubsetSourcePlan noIfr = DefaultSubsetSource();
    noIfr.writeBundle = false;
    Subset b(noIfr);
    EXPECT_EQ(b.Run(), 0);
    EXPECT_FALSE(Exists(b.Out("charts.bin")));
    EXPECT_TRUE(Exists(b.Out("vfrcharts.bin")));

    // With no IFR bundle the VFR cut's own code is the result.
    SubsetSourcePlan noIfrBadVfr = noIfr;
    noIfrBadVfr.vfrBundle = BundleOfCharts({{"KZZZ", "ZZZ1"}});
    Subset c(noIfrBadVfr);
    EXPECT_EQ(c.Run(), -4);

    // Both missing: the IFR cut's -1 stands, though the tables were cut.
    SubsetSourcePlan neither = noIfr;
    neither.writeVfrBundle = false;
    Subset d(neither);
    EXPECT_EQ(d.Run(), -1);
    EXPECT_TRUE(Exists(d.Out("crcfiles.txt")));
    ExpectFixedFilesCopied(d);
}

TEST(SubsetChartsEx, IfrBundleFailureSkipsTheVfrBundle)
{
    SubsetSourcePlan unnamed = DefaultSubsetSource();
    unnamed.bundle = BundleOfCharts({{"KZZZ", "ZZZ1"}});
    Subset a(unnamed);
    EXPECT_EQ(a.Run(), -4);
    EXPECT_FALSE(Exists(a.Out("charts.bin")));
    EXPECT_FALSE(Exists(a.Out("vfrcharts.bin")));

    Subset b;
    ASSERT_EQ(mkdir(b.Out("charts.bin").c_str(), 0755), 0);
    EXPECT_EQ(b.Run(), -5);
    EXPECT_FALSE(Exists(b.Out("vfrcharts.bin")));

    Subset c;
    WriteFile(c.source / "charts.bin", "short");
    EXPECT_EQ(c.Run(), -2);
    EXPECT_FALSE(Exists(c.Out("vfrcharts.bin")));
}

TEST(SubsetChartsEx, VfrBundleFailureIsTheResult)
{
    Subset s;
    ASSERT_EQ(mkdir(s.Out("vfrcharts.bin").c_str(), 0755), 0);
    EXPECT_EQ(s.Run(), -5);
    EXPECT_TRUE(Exists(s.Out("charts.bin")));
}

TEST(SubsetChartsEx, TableCodesArePassedOnAndTheBundlesLeftAlone)
{
    Subset noCoverage;
    noCoverage.Remove("coverags.dbf");
    EXPECT_EQ(noCoverage.Run(), -1);
    EXPECT_FALSE(Exists(noCoverage.Out("charts.bin")));

    Subset nothing;
    EXPECT_EQ(nothing.Run({-60, 0, -70, 1}), -3);
    EXPECT_FALSE(Exists(nothing.Out("charts.bin")));

    Subset noLinks;
    noLinks.Remove("chrtlink.dbf");
    EXPECT_EQ(noLinks.Run(), -8);
    EXPECT_FALSE(Exists(noLinks.Out("charts.bin")));

    Subset memo;
    ASSERT_EQ(mkdir(memo.Out("notams.dbt").c_str(), 0755), 0);
    EXPECT_EQ(memo.Run(), -9);
    Subset vfrMemo;
    ASSERT_EQ(mkdir(vfrMemo.Out("vfrntms.dbt").c_str(), 0755), 0);
    EXPECT_EQ(vfrMemo.Run(), -10);
}

TEST(SubsetChartsEx, CopyStepRunsEvenWhenLaterStepsFail)
{
    Subset s;
    s.Remove("coverags.dbf");
    ASSERT_EQ(s.Run(), -1);
    ExpectFixedFilesCopied(s);
    EXPECT_EQ(ListDir(s.destination.path()),
              (Names{"charts.ini", "country.dbf", "ctypes.dbf", "lssdef.tcl", "regions.dat",
                     "sbscrips.dbf", "state.dbf", "tarnwick.tfl", "tarnwick.tls"}));
}

TEST(SubsetChartsEx, MissingFixedFilesAreSimplyNotCopied)
{
    Subset s;
    s.Remove("tarnwick.tls");
    s.Remove("state.dbf");
    ASSERT_EQ(s.Run(), 0);
    EXPECT_FALSE(Exists(s.Out("tarnwick.tls")));
    EXPECT_FALSE(Exists(s.Out("state.dbf")));
    EXPECT_FALSE(Exists(s.Out("revision.txt")));
    EXPECT_FALSE(Exists(s.Out("coverages.txt")));
}

TEST(SubsetChartsEx, DestinationThatDoesNotExist)
{
    Subset s;
    const std::string missing = s.destination / "not/there";
    EXPECT_EQ(TarnTermChart_SubsetChartsEx(s.source.c_str(), missing.c_str(), 0, nullptr, kBox.north,
                                           kBox.west, kBox.south, kBox.east),
              -2);
    EXPECT_EQ(ListDir(s.destination.path()), Names{});
}

TEST(SubsetChartsEx, DestinationWithATrailingSlash)
{
    Subset s;
    const std::string slashed = s.destination.path() + "/";
    ASSERT_EQ(TarnTermChart_SubsetChartsEx(s.source.c_str(), slashed.c_str(), 0, nullptr, kBox.north,
                                           kBox.west, kBox.south, kBox.east),
              0);
    EXPECT_EQ(BundleNames(s.Out("charts.bin")), (Names{"AAA1.PDF", "AAA2.PDF", "CCC1.PDF"}));
}
