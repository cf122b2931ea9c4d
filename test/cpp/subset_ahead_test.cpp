// Bundle cuts made ahead: while the tables after the chart tables are cut,
// the bundles are cut into files without names, named at their turn.  The
// subset must write exactly what it writes with the cuts at their turn.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "fork_util.h"
#include "subset/subset.h"
#include "subset_fixture.h"
#include "tarntermchart.h"

namespace {

using Names = std::vector<std::string>;
using Prepare = std::function<void(const std::string &source, const std::string &destination)>;

struct SubsetRun {
    int code;
    std::map<std::string, std::string> destination, source;
    unsigned placedAhead;
};

SubsetRun SubsetOnce(bool ahead, const SubsetSourcePlan &plan, const Box &box, const char *list,
               const Prepare &prepare)
{
    TempDir source, destination;
    WriteSubsetSource(source.path(), plan);
    if (prepare) prepare(source.path(), destination.path());
    SubsetCutsAheadAllowed(ahead);
    const unsigned before = SubsetBundlesPlacedAhead();
    const int descriptors = CountOpenDescriptors();
    SubsetRun run;
    run.code = TarnTermChart_SubsetChartsEx(source.c_str(), destination.c_str(), 0, list, box.north,
                                            box.west, box.south, box.east);
    SubsetCutsAheadAllowed(true);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    run.placedAhead = SubsetBundlesPlacedAhead() - before;
    run.destination = Snapshot(destination.path());
    run.source = Snapshot(source.path());
    return run;
}

// Runs the subset with and without cuts ahead, each on a source and
// destination of its own prepared alike, and expects the same code and the
// same files.  Returns how many bundles were placed ahead.
unsigned ExpectBothWaysAlike(const SubsetSourcePlan &plan, const Box &box = kBox,
                             const char *list = nullptr, const Prepare &prepare = nullptr)
{
    const SubsetRun atTurn = SubsetOnce(false, plan, box, list, prepare);
    const SubsetRun ahead = SubsetOnce(true, plan, box, list, prepare);
    EXPECT_EQ(atTurn.placedAhead, 0u);
    EXPECT_EQ(ahead.code, atTurn.code);
    EXPECT_EQ(ahead.destination, atTurn.destination);
    EXPECT_EQ(ahead.source, atTurn.source);
    return ahead.placedAhead;
}

Prepare Link(const std::string &sourceName, const std::string &destinationName, bool symbolic)
{
    return [=](const std::string &source, const std::string &destination) {
        const std::string from = source + "/" + sourceName, to = destination + "/" + destinationName;
        ASSERT_EQ(symbolic ? symlink(from.c_str(), to.c_str()) : link(from.c_str(), to.c_str()), 0);
    };
}

}  // namespace

TEST(SubsetCutsAhead, BothBundlesAreCutAheadAndComeOutAlike)
{
    EXPECT_EQ(ExpectBothWaysAlike(DefaultSubsetSource()), 2u);
    EXPECT_EQ(ExpectBothWaysAlike(DefaultSubsetSource(), kBox, "KDDD,KWWW"), 2u);
}

TEST(SubsetCutsAhead, MissingOrUnreadableBundlesGiveTheSameCodes)
{
    SubsetSourcePlan noVfr = DefaultSubsetSource();
    noVfr.writeVfrBundle = false;
    EXPECT_EQ(ExpectBothWaysAlike(noVfr), 1u);

    SubsetSourcePlan noIfr = DefaultSubsetSource();
    noIfr.writeBundle = false;
    EXPECT_EQ(ExpectBothWaysAlike(noIfr), 1u);

    SubsetSourcePlan neither = noIfr;
    neither.writeVfrBundle = false;
    ExpectBothWaysAlike(neither);  // -1

    SubsetSourcePlan unnamed = DefaultSubsetSource();
    unnamed.bundle = BundleOfCharts({{"KZZZ", "ZZZ1"}});
    ExpectBothWaysAlike(unnamed);  // -4, the VFR bundle not cut

    ExpectBothWaysAlike(DefaultSubsetSource(), kBox, nullptr,
                        [](const std::string &source, const std::string &) {
                            WriteFile(source + "/charts.bin", "short");
                        });  // -2
}

TEST(SubsetCutsAhead, OnlyVfrAirportsSelected)
{
    const Box vvvOnly = {41.5, -96.5, 40.5, -95.5};
    ExpectBothWaysAlike(DefaultSubsetSource(), vvvOnly);  // -3, no chart table
    // An older chart table in the destination is the one the IFR cut reads.
    EXPECT_EQ(ExpectBothWaysAlike(DefaultSubsetSource(), vvvOnly, nullptr,
                                  [](const std::string &, const std::string &destination) {
                                      WriteFile(destination + "/charts.dbf",
                                                DbfTable(kSubsetChartFields, {{"KBBB", "1", "BBB1"}}));
                                  }),
              2u);
}

TEST(SubsetCutsAhead, ATableFailingAfterTheChartTablesLeavesNoBundle)
{
    for (const char *name : {"notams.dbt", "vfrntms.dbt", "airports.dbf"}) {
        const Prepare blocked = [name](const std::string &, const std::string &destination) {
            ASSERT_EQ(mkdir((destination + "/" + name).c_str(), 0755), 0);
        };
        ExpectBothWaysAlike(DefaultSubsetSource(), kBox, nullptr, blocked);
        const SubsetRun run = SubsetOnce(true, DefaultSubsetSource(), kBox, nullptr, blocked);
        EXPECT_LT(run.code, -5) << name;
        EXPECT_EQ(run.destination.count("charts.bin"), 0u) << name;
        EXPECT_EQ(run.destination.count("vfrcharts.bin"), 0u) << name;
    }
    SubsetSourcePlan noLinks = DefaultSubsetSource();
    ExpectBothWaysAlike(noLinks, kBox, nullptr, [](const std::string &source, const std::string &) {
        ASSERT_EQ(remove((source + "/chrtlink.dbf").c_str()), 0);
    });  // -8
}

TEST(SubsetCutsAhead, TheChecksumListSeesNoBundleBeforeItsTurn)
{
    // The list is written before the bundles: a line naming a bundle finds
    // none in the destination, though the bundle is being cut meanwhile.
    SubsetSourcePlan plan = DefaultSubsetSource();
    plan.crcList = "charts.bin,0x1\r\nairports.dbf,0x1\r\nvfrcharts.bin,0x1\r\n";
    EXPECT_EQ(ExpectBothWaysAlike(plan), 2u);
}

TEST(SubsetCutsAhead, ABundleAlreadyInTheDestinationIsWrittenOverInPlace)
{
    // An older bundle with a second name elsewhere: written over at its
    // turn, so the other name sees the new bundle too.
    const Prepare older = [](const std::string &, const std::string &destination) {
        WriteFile(destination + "/charts.bin", "an older bundle");
        ASSERT_EQ(link((destination + "/charts.bin").c_str(), (destination + "/kept.bin").c_str()), 0);
    };
    EXPECT_EQ(ExpectBothWaysAlike(DefaultSubsetSource(), kBox, nullptr, older), 1u);
    const SubsetRun run = SubsetOnce(true, DefaultSubsetSource(), kBox, nullptr, older);
    EXPECT_EQ(run.destination.at("kept.bin"), run.destination.at("charts.bin"));

    ExpectBothWaysAlike(DefaultSubsetSource(), kBox, nullptr,
                        [](const std::string &, const std::string &destination) {
                            ASSERT_EQ(mkdir((destination + "/vfrcharts.bin").c_str(), 0755), 0);
                        });  // -5 from the VFR cut
}

TEST(SubsetCutsAhead, NoCutAheadWhereALaterWriteCouldReachWhatItReads)
{
    // A table written after the chart tables that is another name of a
    // source bundle, or a link to one, changes the bundle the cut reads.
    EXPECT_EQ(ExpectBothWaysAlike(DefaultSubsetSource(), kBox, nullptr,
                                  Link("charts.bin", "airports.dbf", false)),
              0u);
    EXPECT_EQ(ExpectBothWaysAlike(DefaultSubsetSource(), kBox, nullptr,
                                  Link("vfrcharts.bin", "notams.dbt", true)),
              0u);
    // Likewise a chart table with a second name.
    EXPECT_EQ(ExpectBothWaysAlike(DefaultSubsetSource(), kBox, nullptr,
                                  [](const std::string &, const std::string &destination) {
                                      WriteFile(destination + "/charts.dbf", "");
                                      ASSERT_EQ(link((destination + "/charts.dbf").c_str(),
                                                     (destination + "/chrtlink.dbf").c_str()),
                                                0);
                                  }),
              0u);
}

TEST(SubsetCutsAhead, NoCutAheadUnderAFileSizeLimit)
{
    // A bundle passing the limit ends the process; at its turn that happens
    // only once every table is written.
    TempDir source, destination;
    SubsetSourcePlan plan = DefaultSubsetSource();
    plan.bundle.entries[0].data.assign(100000, 'x');
    WriteSubsetSource(source.path(), plan);
    const int result = RunInChild([&] {
        struct rlimit limit = {50000, 50000};
        setrlimit(RLIMIT_FSIZE, &limit);
        signal(SIGXFSZ, SIG_DFL);
        return TarnTermChart_SubsetCharts(source.c_str(), destination.c_str(), kBox.north, kBox.west,
                                          kBox.south, kBox.east);
    });
    EXPECT_EQ(result, kChildDied);
    EXPECT_TRUE(Exists(destination / "crcfiles.txt"));
    EXPECT_TRUE(Exists(destination / "vfrntms.dbt"));

    // Any limit at all keeps the cuts at their turn.
    TempDir roomy;
    EXPECT_EQ(RunInChild([&] {
                  LimitFileSize(1u << 30);
                  const unsigned before = SubsetBundlesPlacedAhead();
                  const int code = TarnTermChart_SubsetCharts(source.c_str(), roomy.c_str(), kBox.north,
                                                              kBox.west, kBox.south, kBox.east);
                  return code == 0 ? (int)(SubsetBundlesPlacedAhead() - before) : -1;
              }),
              0);
    EXPECT_EQ(BundleNames(roomy / "charts.bin"), (Names{"AAA1.PDF", "AAA2.PDF", "CCC1.PDF"}));
}

namespace {

// A source bundle and a destination chart table, cut once at its turn for
// reference.
struct AheadCut {
    TempDir source, destination, reference;
    std::string bundle;

    explicit AheadCut(const Names &charts = {"AAA1", "CCC1"}) : bundle(source / "charts.bin")
    {
        WriteChartsBin(bundle, BundleOfCharts({{"KAAA", "AAA1"}, {"KBBB", "BBB1"}, {"KCCC", "CCC1"}}));
        std::vector<DbfRecord> records;
        for (const std::string &name : charts) records.push_back({"KAAA", "10-1", name});
        for (const TempDir *dir : {&destination, &reference})
            WriteFile(*dir / "charts.dbf", DbfTable(kSubsetChartFields, records));
    }
    int Reference() { return CreateSubsetChartsBin(bundle.c_str(), reference.c_str()); }
    void Ahead(WrittenAhead *ahead) { CutSubsetChartsBinAhead(bundle.c_str(), destination.c_str(), ahead); }
    int Place(WrittenAhead *ahead) { return PlaceSubsetChartsBin(bundle.c_str(), destination.c_str(), ahead); }
};

}  // namespace

TEST(SubsetBundleAhead, TheBundleHasNoNameUntilItIsPlaced)
{
    AheadCut cut;
    ASSERT_EQ(cut.Reference(), 0);
    const int descriptors = CountOpenDescriptors();
    const unsigned placed = SubsetBundlesPlacedAhead();
    {
        WrittenAhead ahead;
        cut.Ahead(&ahead);
        EXPECT_EQ(ahead.code, 0);
        EXPECT_TRUE(ahead.file.Made());
        EXPECT_EQ(ListDir(cut.destination.path()), (Names{"charts.dbf"}));
        EXPECT_EQ(cut.Place(&ahead), 0);
        EXPECT_FALSE(ahead.file.Made());
    }
    EXPECT_EQ(SubsetBundlesPlacedAhead(), placed + 1);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    EXPECT_EQ(ReadFile(cut.destination / "charts.bin"), ReadFile(cut.reference / "charts.bin"));
    EXPECT_EQ(BundleNames(cut.destination / "charts.bin"), (Names{"AAA1.PDF", "CCC1.PDF"}));
    // Made as fopen makes a file.
    struct stat placedStat, referenceStat;
    ASSERT_EQ(stat((cut.destination / "charts.bin").c_str(), &placedStat), 0);
    ASSERT_EQ(stat((cut.reference / "charts.bin").c_str(), &referenceStat), 0);
    EXPECT_EQ(placedStat.st_mode, referenceStat.st_mode);
    EXPECT_EQ(placedStat.st_nlink, 1u);
}

TEST(SubsetBundleAhead, ACutGivenUpLeavesNothing)
{
    AheadCut cut;
    const int descriptors = CountOpenDescriptors();
    {
        WrittenAhead ahead;
        cut.Ahead(&ahead);
        ASSERT_EQ(ahead.code, 0);
    }  // never placed: the unnamed file goes with its descriptor
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    EXPECT_EQ(ListDir(cut.destination.path()), (Names{"charts.dbf"}));
}

TEST(SubsetBundleAhead, ANameTakenMeanwhileIsWrittenOverInPlace)
{
    AheadCut cut;
    ASSERT_EQ(cut.Reference(), 0);
    WrittenAhead ahead;
    cut.Ahead(&ahead);
    ASSERT_EQ(ahead.code, 0);
    WriteFile(cut.destination / "charts.bin", "something else, and longer than the bundle is, by far........"
                                              "................................................................");
    ASSERT_EQ(link((cut.destination / "charts.bin").c_str(), (cut.destination / "other").c_str()), 0);
    const unsigned placed = SubsetBundlesPlacedAhead();
    EXPECT_EQ(cut.Place(&ahead), 0);
    EXPECT_EQ(SubsetBundlesPlacedAhead(), placed);
    EXPECT_EQ(ReadFile(cut.destination / "charts.bin"), ReadFile(cut.reference / "charts.bin"));
    EXPECT_EQ(ReadFile(cut.destination / "other"), ReadFile(cut.reference / "charts.bin"));
}

TEST(SubsetBundleAhead, CodesFoundAheadAreTheCutsCodes)
{
    AheadCut nothingNamed({"ZZZ1"});
    WrittenAhead a;
    nothingNamed.Ahead(&a);
    EXPECT_EQ(a.code, -4);
    EXPECT_FALSE(a.file.Made());
    EXPECT_EQ(nothingNamed.Place(&a), -4);
    EXPECT_EQ(ListDir(nothingNamed.destination.path()), (Names{"charts.dbf"}));

    AheadCut noTable;
    ASSERT_EQ(remove((noTable.destination / "charts.dbf").c_str()), 0);
    WrittenAhead b;
    noTable.Ahead(&b);
    EXPECT_EQ(b.code, -3);
    EXPECT_EQ(noTable.Place(&b), -3);

    AheadCut noSource;
    ASSERT_EQ(remove(noSource.bundle.c_str()), 0);
    WrittenAhead c;
    noSource.Ahead(&c);
    EXPECT_EQ(c.code, -1);
    EXPECT_EQ(noSource.Place(&c), -1);

    AheadCut shortSource;
    WriteFile(shortSource.bundle, "short");
    WrittenAhead d;
    shortSource.Ahead(&d);
    EXPECT_EQ(d.code, -2);
}

TEST(SubsetBundleAhead, StoppedOrRefusedCutsAreMadeAtTheirTurn)
{
    AheadCut stopped;
    ASSERT_EQ(stopped.Reference(), 0);
    WrittenAhead a;
    a.stop.store(true);
    stopped.Ahead(&a);
    EXPECT_EQ(a.code, WrittenAhead::kInPlace);
    EXPECT_FALSE(a.file.Made());
    EXPECT_EQ(ListDir(stopped.destination.path()), (Names{"charts.dbf"}));
    EXPECT_EQ(stopped.Place(&a), 0);
    EXPECT_EQ(ReadFile(stopped.destination / "charts.bin"), ReadFile(stopped.reference / "charts.bin"));

    // The chart table is never read when the wait for it is refused.
    AheadCut refused;
    WrittenAhead b;
    b.ready = [](void *context) {
        ++*(int *)context;
        return false;
    };
    int asked = 0;
    b.readyContext = &asked;
    ASSERT_EQ(remove((refused.destination / "charts.dbf").c_str()), 0);
    refused.Ahead(&b);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(b.code, WrittenAhead::kInPlace);
    EXPECT_EQ(refused.Place(&b), -3);  // at its turn the table is still missing
}

TEST(SubsetBundleAhead, ADirectoryWithoutUnnamedFilesMakesTheCutAtItsTurn)
{
    // A destination that cannot hold an unnamed file (here: not writable by
    // an unprivileged user, who can still not create the bundle at its turn).
    AheadCut cut;
    ASSERT_EQ(chmod(cut.destination.c_str(), 0555), 0);
    ASSERT_EQ(chmod(cut.source.c_str(), 0755), 0);
    const int result = RunInChild([&] {
        DropPrivileges();
        WrittenAhead ahead;
        cut.Ahead(&ahead);
        if (ahead.code != WrittenAhead::kInPlace || ahead.file.Made()) return 1;
        return cut.Place(&ahead) == -5 ? 0 : 2;
    });
    chmod(cut.destination.c_str(), 0755);
    EXPECT_EQ(result, 0);
}
