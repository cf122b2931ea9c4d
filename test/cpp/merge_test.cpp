// The merge driver: applying every update, cutting the tables, finalising
// the bundles and cleaning up, with its progress reports.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>

#include "bundle/chartlist.h"
#include "bundle/update.h"
#include "bundle_writer.h"
#include "merge/tables.h"
#include "chart_directory.h"
#include "chart_table.h"
#include "table_reader.h"
#include "tarntermchart.h"
#include "fork_util.h"
#include "platform/platform.h"
#include "test_util.h"

namespace {

struct Progress {
    std::vector<int> reports;
    int failAt = -1;  // index of the report that answers -1
};

int Record(void *context, int percent)
{
    auto *progress = static_cast<Progress *>(context);
    progress->reports.push_back(percent);
    return (int)progress->reports.size() - 1 == progress->failAt ? -1 : 0;
}

// The bundle of a family: one entry per chart base name.
FixtureBundle Bundle(const std::vector<std::string> &bases, const std::string &date = "2460000.5")
{
    FixtureBundle bundle;
    bundle.julianDate = date;
    uint32_t key = 1;
    for (const std::string &base : bases) bundle.entries.push_back({base + ".PDF", "old " + base, key++});
    return bundle;
}

// An update bundle of the given total size in bytes, replacing one chart.
FixtureBundle UpdateOfSize(const std::string &base, size_t size, const std::string &date = "2460001.5")
{
    FixtureBundle update;
    update.julianDate = date;
    update.entries.push_back({base + ".PDF", std::string(size - 27 - 40, 'u'), 99});
    return update;
}

// The update bundles in the order the directory lists them.
std::vector<std::string> ListingOrder(const std::string &dir)
{
    std::vector<std::string> names;
    DIR *d = opendir(dir.c_str());
    while (struct dirent *entry = readdir(d)) {
        std::string name = entry->d_name;
        if (name.size() > 11 && name.find("_") != std::string::npos) names.push_back(name);
    }
    closedir(d);
    return names;
}

// Every name with its kind (file, link or directory) and contents.
std::vector<std::string> DirectoryState(const std::string &dir)
{
    std::vector<std::string> files;
    for (const std::string &name : ListDir(dir)) {
        struct stat st;
        lstat((dir + "/" + name).c_str(), &st);
        const std::string kind = S_ISLNK(st.st_mode) ? " link " : S_ISDIR(st.st_mode) ? " directory " : " file ";
        files.push_back(name + kind + (S_ISDIR(st.st_mode) ? "" : ReadFile(dir + "/" + name)));
    }
    return files;
}

int ExpectedPercent(uint32_t done, uint32_t total)
{
    float ratio = (float)done / (float)total;
    int a = (int)((double)ratio * 100.0 + 0.5);
    return (int)(a * 0.9 + 0.5);
}

struct MergeDirectory {
    TempDir dir;
    MergeDirectory()
    {
        SampleDirectory::Default().Write(dir.path());
        WriteChartsBin(dir / "charts.bin",
                       Bundle({"CYYZ10-9", "KAAA10-9", "KAAA11-1", "KBBB10-9", "KCCC10-9"}));
        WriteChartsBin(dir / "vfrcharts.bin", Bundle({"KBBBVFR", "KVV1VFR", "KVV2VFR"}));
    }
};

}  // namespace

TEST(Merge, AppliesUpdatesCutsTablesAndFinalises)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    WriteChartsBin(m.dir / "2501_vfrcharts.bin", UpdateOfSize("KVV1VFR", 100));
    Progress progress;
    ASSERT_EQ(TarnTermChart_Merge(m.dir.c_str(), Record, &progress), 0);

    EXPECT_FALSE(Exists(m.dir / "2501_charts.bin"));
    EXPECT_FALSE(Exists(m.dir / "2501_vfrcharts.bin"));
    EXPECT_EQ(TarnTermChart_IsValidChartDirectory(m.dir.c_str()), nullptr);

    std::string bytes = ReadFile(m.dir / "charts.bin");
    ParsedBundle bundle = ParseChartsBin(bytes);
    EXPECT_EQ(bundle.crc, ReferenceBundleCrc(bytes));
    // Compacted against the cut chart table: the Canadian chart is gone and
    // the replaced chart carries the update's blob.
    std::vector<std::string> names;
    for (const ParsedEntry &e : bundle.entries) {
        names.push_back(e.name);
        EXPECT_EQ(e.flags, 0);
        if (e.name == "KAAA10-9.PDF") {
            EXPECT_EQ(BlobOf(bytes, e), std::string(200 - 67, 'u'));
        }
    }
    EXPECT_EQ(names, (std::vector<std::string>{"KAAA10-9.PDF", "KAAA11-1.PDF", "KBBB10-9.PDF",
                                               "KCCC10-9.PDF"}));
    EXPECT_EQ(bundle.julianDate, "2460001.5");
    std::string vfr = ReadFile(m.dir / "vfrcharts.bin");
    EXPECT_EQ(ParseChartsBin(vfr).crc, ReferenceBundleCrc(vfr));
    EXPECT_EQ(ReadColumn(m.dir / "airports.dbf", "F5_6"), (std::vector<std::string>{"KAAA", "KBBB", "KCCC"}));

    ASSERT_GE(progress.reports.size(), 4u);
    EXPECT_EQ(progress.reports.front(), 0);
    EXPECT_EQ(progress.reports.back(), 100);
    EXPECT_EQ(progress.reports[progress.reports.size() - 2], 90);
}

TEST(Merge, ProgressFollowsTheListingOrder)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "a_charts.bin", UpdateOfSize("KAAA10-9", 300));
    WriteChartsBin(m.dir / "b_charts.bin", UpdateOfSize("KCCC10-9", 700));
    std::vector<std::string> order = ListingOrder(m.dir.path());
    ASSERT_EQ(order.size(), 2u);
    uint32_t first = order[0] == "a_charts.bin" ? 300 : 700;
    Progress progress;
    ASSERT_EQ(TarnTermChart_Merge(m.dir.c_str(), Record, &progress), 0);
    // 30 of 100 reports 27 (a = 30, 27.5 -> 27); 70 of 100 reports 63.
    EXPECT_EQ(progress.reports, (std::vector<int>{0, ExpectedPercent(first, 1000), 90, 100}));
    EXPECT_EQ(ExpectedPercent(300, 1000), 27);
}

TEST(Merge, RatioIsTakenInSinglePrecision)
{
    EXPECT_EQ(ExpectedPercent(7, 40), 15);
    MergeDirectory m;
    WriteChartsBin(m.dir / "a_charts.bin", UpdateOfSize("KAAA10-9", 70));
    WriteChartsBin(m.dir / "b_charts.bin", UpdateOfSize("KCCC10-9", 330));
    bool aFirst = ListingOrder(m.dir.path())[0] == "a_charts.bin";
    Progress progress;
    ASSERT_EQ(TarnTermChart_Merge(m.dir.c_str(), Record, &progress), 0);
    EXPECT_EQ(progress.reports[1], aFirst ? 15 : 74);
}

TEST(Merge, WithoutCoverageFailsBeforeTheFirstReport)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    remove((m.dir / "coverages.txt").c_str());
    Progress progress;
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), Record, &progress), -1);
    EXPECT_TRUE(progress.reports.empty());
}

TEST(Merge, NoUpdateChangesNothing)
{
    MergeDirectory m;
    std::string before = ReadFile(m.dir / "charts.bin") + ReadFile(m.dir / "charts.dbf");
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), -4);
    EXPECT_EQ(ReadFile(m.dir / "charts.bin") + ReadFile(m.dir / "charts.dbf"), before);
    // An empty update file counts as none.
    WriteFile(m.dir / "x_charts.bin", "");
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), -4);
}

TEST(Merge, StopAtZeroPercentChangesNothing)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    std::vector<std::string> before;
    for (const std::string &name : ListDir(m.dir.path())) before.push_back(name + ReadFile(m.dir / name));
    Progress progress;
    progress.failAt = 0;
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), Record, &progress), -2);
    std::vector<std::string> after;
    for (const std::string &name : ListDir(m.dir.path())) after.push_back(name + ReadFile(m.dir / name));
    EXPECT_EQ(after, before);
}

TEST(Merge, StopAfterAnUpdateKeepsTheUpdatesForASecondRun)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    Progress progress;
    progress.failAt = 1;
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), Record, &progress), -8);
    EXPECT_TRUE(Exists(m.dir / "2501_charts.bin"));
    // A second run applies the same update again (same date) and finishes.
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), 0);
    EXPECT_FALSE(Exists(m.dir / "2501_charts.bin"));
    EXPECT_EQ(TarnTermChart_IsValidChartDirectory(m.dir.c_str()), nullptr);

    MergeDirectory v;
    WriteChartsBin(v.dir / "2501_VFRCHARTS.BIN", UpdateOfSize("KVV1VFR", 200));
    progress = Progress();
    progress.failAt = 1;
    EXPECT_EQ(TarnTermChart_Merge(v.dir.c_str(), Record, &progress), -6);
}

TEST(Merge, FailingUpdatesHaveTheirFamilyCode)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "old_charts.bin", UpdateOfSize("KAAA10-9", 200, "2459000.5"));
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), -7);
    remove((m.dir / "old_charts.bin").c_str());
    WriteChartsBin(m.dir / "old_vfrcharts.bin", UpdateOfSize("KVV1VFR", 200, "2459000.5"));
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), -5);
    remove((m.dir / "old_vfrcharts.bin").c_str());
    WriteFile(m.dir / "cut_charts.bin", "too short to be a bundle");
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), -7);
}

TEST(Merge, TableFailureIsNine)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    remove((m.dir / "regions.dat").c_str());
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), -9);
    EXPECT_TRUE(Exists(m.dir / "2501_charts.bin"));
}

TEST(Merge, UnlistableDirectory)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    chmod(m.dir.c_str(), 0711);
    std::string path = m.dir.path();
    EXPECT_EQ(RunInChild([&] {
                  DropPrivileges();
                  return TarnTermChart_Merge(path.c_str(), nullptr, nullptr);
              }),
              -3);
    chmod(m.dir.c_str(), 0700);
}

TEST(Merge, UpdateInCapitalsIsVfrAndTheBundlesAreNeverUpdates)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_VFRCHARTS.BIN", UpdateOfSize("KVV1VFR", 200));
    ASSERT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), 0);
    EXPECT_FALSE(Exists(m.dir / "2501_VFRCHARTS.BIN"));
    EXPECT_TRUE(Exists(m.dir / "charts.bin"));
    std::string vfr = ReadFile(m.dir / "vfrcharts.bin");
    bool found = false;
    for (const ParsedEntry &e : ParseChartsBin(vfr).entries)
        if (e.name == "KVV1VFR.PDF") found = BlobOf(vfr, e) == std::string(200 - 67, 'u');
    EXPECT_TRUE(found);
}

TEST(Merge, FamilyWithoutBundleLosesItsTables)
{
    MergeDirectory m;
    remove((m.dir / "vfrcharts.bin").c_str());
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    ASSERT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), 0);
    for (const char *name : {"vfrapts.dbf", "vfrchrts.dbf", "vfrntms.dbf", "vfrntms.dbt"})
        EXPECT_FALSE(Exists(m.dir / name)) << name;
    EXPECT_TRUE(Exists(m.dir / "airports.dbf"));
}

TEST(Merge, UpdateWithoutBundleBecomesTheBundle)
{
    MergeDirectory m;
    remove((m.dir / "vfrcharts.bin").c_str());
    FixtureBundle update = Bundle({"KBBBVFR", "KVV1VFR"}, "2460001.5");
    WriteChartsBin(m.dir / "2501_vfrcharts.bin", update);
    ASSERT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), 0);
    std::string vfr = ReadFile(m.dir / "vfrcharts.bin");
    EXPECT_EQ(ParseChartsBin(vfr).entries.size(), 2u);
    EXPECT_EQ(ParseChartsBin(vfr).crc, ReferenceBundleCrc(vfr));
    EXPECT_TRUE(Exists(m.dir / "vfrapts.dbf"));
}

TEST(Merge, NoDescriptorIsLeft)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    int before = CountOpenDescriptors();
    ASSERT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), 0);
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), -4);
    remove((m.dir / "coverages.txt").c_str());
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), -1);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

// Where one family's bundle is a link to the other's ("vfrcharts.bin" a
// link to "charts.bin"), an update of it would be written through the
// link: the merge refuses it as a bundle that cannot be opened for update,
// and takes back everything, so the directory is as it was.
TEST(Merge, AnUpdateIsNeverWrittenThroughALinkedBundle)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    WriteChartsBin(m.dir / "2501_vfrcharts.bin", UpdateOfSize("KVV1VFR", 100));
    ASSERT_EQ(remove((m.dir / "vfrcharts.bin").c_str()), 0);
    ASSERT_EQ(symlink("charts.bin", (m.dir / "vfrcharts.bin").c_str()), 0);
    const auto before = DirectoryState(m.dir.path());
    EXPECT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), -5);
    EXPECT_EQ(DirectoryState(m.dir.path()), before);
}

// The bundles compacted on a second thread while the tables after the
// chart tables are cut: the merge leaves exactly what it leaves with
// everything on one thread.
namespace {

using Prepare = std::function<void(const std::string &dir)>;

struct MergeRun {
    int code;
    std::vector<std::string> files;
};

MergeRun MergeOnce(bool threads, const Prepare &prepare)
{
    MergeDirectory m;
    WriteChartsBin(m.dir / "2501_charts.bin", UpdateOfSize("KAAA10-9", 200));
    WriteChartsBin(m.dir / "2501_vfrcharts.bin", UpdateOfSize("KVV1VFR", 100));
    if (prepare) prepare(m.dir.path());
    SetThreadsEnabled(threads);
    const int descriptors = CountOpenDescriptors();
    MergeRun run;
    run.code = TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr);
    SetThreadsEnabled(true);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    run.files = DirectoryState(m.dir.path());
    return run;
}

// Merges with and without a second thread, each in a directory of its own
// prepared alike; expects the same code and files.
MergeRun ExpectBothWaysAlike(const Prepare &prepare = nullptr)
{
    const MergeRun alone = MergeOnce(false, prepare);
    const MergeRun threaded = MergeOnce(true, prepare);
    EXPECT_EQ(threaded.code, alone.code);
    EXPECT_EQ(threaded.files, alone.files);
    return threaded;
}

}  // namespace

TEST(MergeThread, BothBundlesComeOutAlikeOnEitherThread)
{
    EXPECT_EQ(ExpectBothWaysAlike().code, 0);
    // Only a bundle that is to be compacted is: the VFR update supersedes
    // nothing here.
    EXPECT_EQ(ExpectBothWaysAlike([](const std::string &dir) {
                  WriteChartsBin(dir + "/2501_vfrcharts.bin", UpdateOfSize("KNEWVFR", 100));
              }).code,
              0);
    // The checksum list is written before the bundles are finished.
    EXPECT_EQ(ExpectBothWaysAlike([](const std::string &dir) {
                  WriteFile(dir + "/crcfiles.txt", "charts.bin,0x1\r\nvfrcharts.bin,0x2\r\ncharts.dbf,0x3\r\n");
              }).code,
              0);
    // Only VFR coverage: the IFR chart table goes, and with it every chart
    // of the IFR bundle.
    EXPECT_EQ(ExpectBothWaysAlike([](const std::string &dir) { WriteFile(dir + "/coverages.txt", "US16\r\n"); })
                  .code,
              0);
}

TEST(MergeThread, ATableFailingAfterTheChartTablesTakesTheMergeBack)
{
    const Prepare blocked = [](const std::string &dir) {
        ASSERT_EQ(mkdir((dir + "/airportsNEW.dbf").c_str(), 0755), 0);
    };
    const MergeRun run = ExpectBothWaysAlike(blocked);
    EXPECT_EQ(run.code, -9);
    // Everything the merge wrote is gone but the new tables its cut left.
    for (const std::string &file : run.files) {
        EXPECT_NE(file.rfind("charts.bi2", 0), 0u) << file;
        EXPECT_EQ(file.find(".undo"), std::string::npos) << file;
        EXPECT_EQ(file.find(".tarn-new"), std::string::npos) << file;
    }
}

TEST(MergeThread, LeftoversOfAnEarlierMergeAreNoOnesFiles)
{
    // A temporary left by an earlier merge is replaced, never written
    // through: a second name of it keeps its bytes.
    const MergeRun run = ExpectBothWaysAlike([](const std::string &dir) {
        WriteFile(dir + "/charts.bi2", "left over");
        ASSERT_EQ(link((dir + "/charts.bi2").c_str(), (dir + "/kept.bin").c_str()), 0);
        WriteFile(dir + "/vfrchrtsNEW.dbf", "left over too");
    });
    EXPECT_EQ(run.code, 0);
    EXPECT_NE(std::find(run.files.begin(), run.files.end(), "kept.bin file left over"), run.files.end());
    // A bundle with a second name, a memo file beside a chart table, a link
    // elsewhere in the directory: all alike.
    ExpectBothWaysAlike([](const std::string &dir) {
        ASSERT_EQ(link((dir + "/charts.bin").c_str(), (dir + "/backup.bin").c_str()), 0);
    });
    ExpectBothWaysAlike([](const std::string &dir) { WriteFile(dir + "/vfrchrts.dbt", "memo"); });
    ExpectBothWaysAlike([](const std::string &dir) {
        ASSERT_EQ(symlink("charts.bin", (dir + "/elsewhere.bin").c_str()), 0);
    });
}
