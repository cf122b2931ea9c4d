// No success after lost data: a merge stopped at any point is taken back or
// finished by the next one, records that cannot be trusted are never
// guessed at, writes never follow links, a destination is never its own
// source, tables whose headers do not describe them fail the step that
// reads them, and calls that write one directory never interleave.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "bundle/undo.h"
#include "bundle/update.h"
#include "bundle_writer.h"
#include "chart_directory.h"
#include "fork_util.h"
#include "merge/journal.h"
#include "platform/newfile.h"
#include "platform/platform.h"
#include "subset_fixture.h"
#include "tarntermchart.h"
#include "test_util.h"

namespace {

using Tree = std::map<std::string, std::string>;

// Every name with its kind and contents; directories and links told apart.
Tree TreeOf(const std::string &dir)
{
    Tree tree;
    for (const std::string &name : ListDir(dir)) {
        struct stat st;
        lstat((dir + "/" + name).c_str(), &st);
        if (S_ISLNK(st.st_mode)) {
            char target[512] = {0};
            tree[name] = "link to " + std::string(target, (size_t)std::max<ssize_t>(0, readlink((dir + "/" + name).c_str(), target, sizeof target - 1)));
        } else if (S_ISDIR(st.st_mode)) {
            tree[name] = "directory";
        } else {
            tree[name] = ReadFile(dir + "/" + name);
        }
    }
    return tree;
}

// The tree one merge that ran through leaves.
Tree MergedSample()
{
    TempDir dir;
    WriteMergeSample(dir.path());
    EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), 0);
    return TreeOf(dir.path());
}

// Stops the process at a merge's progress report (the nth, from 0).
int gStopAtReport = -1;
int StopAtReport(void *, int)
{
    static int reports = 0;
    if (reports++ == gStopAtReport) _exit(77);
    return 0;
}

const char *gStopAtStage = nullptr;
void StopAtStage(const char *stage)
{
    if (gStopAtStage && strcmp(stage, gStopAtStage) == 0) _exit(77);
}


}  // namespace

// ---- recovery -----------------------------------------------------------

TEST(MergeRecovery, AMergeStoppedBeforeItsCommitIsTakenBackThenRunAgain)
{
    const Tree merged = MergedSample();
    // Report 1 comes after the first update is applied; report 2 after both.
    for (int report : {1, 2}) {
        TempDir dir;
        WriteMergeSample(dir.path());
        const Tree before = TreeOf(dir.path());
        EXPECT_EQ(RunInChild([&] {
                      gStopAtReport = report;
                      return TarnTermChart_Merge(dir.c_str(), StopAtReport, nullptr);
                  }),
                  77);
        // Stopped with an update applied: the undo record stands beside it.
        const Tree stopped = TreeOf(dir.path());
        EXPECT_TRUE(stopped.count("charts.bin.undo") || stopped.count("vfrcharts.bin.undo")) << report;
        EXPECT_NE(TarnTermChart_IsValidChartDirectory(dir.c_str()), nullptr);
        // The next merge takes it back before anything else, then merges.
        EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), 0) << report;
        EXPECT_TRUE(TreeOf(dir.path()) == merged) << report;
    }
}

TEST(MergeRecovery, AMergeStoppedAfterItsCommitIsFinished)
{
    const Tree merged = MergedSample();
    for (const char *stage : {"committed", "carried out"}) {
        TempDir dir;
        WriteMergeSample(dir.path());
        EXPECT_EQ(RunInChild([&] {
                      gStopAtStage = stage;
                      SetMergeStageHook(StopAtStage);
                      return TarnTermChart_Merge(dir.c_str(), nullptr, nullptr);
                  }),
                  77);
        EXPECT_TRUE(Exists(dir / TARN_MERGE_JOURNAL)) << stage;
        // The next merge finishes the first from its journal; with the
        // updates applied and gone there is nothing left to merge.
        EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), -4) << stage;
        EXPECT_TRUE(TreeOf(dir.path()) == merged) << stage;
    }
}

TEST(MergeRecovery, ADamagedJournalOrUndoRecordIsNeverGuessedAt)
{
    for (const char *damaged : {TARN_MERGE_JOURNAL, "charts.bin.undo"}) {
        TempDir dir;
        WriteMergeSample(dir.path());
        WriteFile(dir / damaged, "not a record at all");
        const Tree before = TreeOf(dir.path());
        EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), -10) << damaged;
        EXPECT_TRUE(TreeOf(dir.path()) == before) << damaged;
    }
    // A record whose checksum fails is as damaged as one cut short.
    TempDir dir;
    WriteMergeSample(dir.path());
    ASSERT_TRUE(SaveUndoRecord((dir / "charts.bin").c_str()));
    std::string record = ReadFile(dir / "charts.bin.undo");
    record[record.size() / 2] ^= 1;
    WriteFile(dir / "charts.bin.undo", record);
    EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), -10);
}

TEST(UndoRecord, PutsABundleBackByteForByteAndAgainWhenCutShort)
{
    TempDir dir;
    WriteMergeSample(dir.path());
    const std::string bundle = dir / "charts.bin";
    const std::string before = ReadFile(bundle);
    ASSERT_TRUE(SaveUndoRecord(bundle.c_str()));
    ASSERT_TRUE(HasUndoRecord(bundle.c_str()));
    // Applied in place, twice, the way a merge applies its updates.
    ASSERT_GE(ApplyUpdate(bundle.c_str(), (dir / "2501_charts.bin").c_str(), ApplyGuard::kMergeRecord), 0);
    ASSERT_NE(ReadFile(bundle), before);
    // Putting back is repeatable: a run stopped half-way is run again.
    const std::string record = ReadFile(bundle + TARN_UNDO_SUFFIX);
    EXPECT_EQ(RestoreFromUndoRecord(bundle.c_str()), kUndoRestored);
    EXPECT_EQ(ReadFile(bundle), before);
    WriteFile(bundle + TARN_UNDO_SUFFIX, record);
    EXPECT_EQ(RestoreFromUndoRecord(bundle.c_str()), kUndoRestored);
    EXPECT_EQ(ReadFile(bundle), before);
    EXPECT_FALSE(HasUndoRecord(bundle.c_str()));
    EXPECT_EQ(RestoreFromUndoRecord(bundle.c_str()), kUndoNone);
}

TEST(UndoRecord, AnUpdateThatTookAMissingBundlesNameGetsItsOwnBack)
{
    TempDir dir;
    WriteMergeSample(dir.path());
    ASSERT_EQ(remove((dir / "vfrcharts.bin").c_str()), 0);
    const std::string update = ReadFile(dir / "2501_vfrcharts.bin");
    const std::string bundle = dir / "vfrcharts.bin";
    ASSERT_TRUE(SaveUndoRecord(bundle.c_str(), (dir / "2501_vfrcharts.bin").c_str()));
    ASSERT_EQ(rename((dir / "2501_vfrcharts.bin").c_str(), bundle.c_str()), 0);
    EXPECT_EQ(RestoreFromUndoRecord(bundle.c_str()), kUndoRestored);
    EXPECT_FALSE(Exists(bundle));
    EXPECT_EQ(ReadFile(dir / "2501_vfrcharts.bin"), update);
}

// ---- links ------------------------------------------------------------

namespace {

// Plants, under every name an operation writes (final and temporary), a
// link to a sentinel file of its own outside the directory.
struct Sentinels {
    TempDir outside;
    std::map<std::string, std::string> planted;  // name -> sentinel path

    void Plant(const std::string &dir, const std::vector<std::string> &names)
    {
        for (const std::string &name : names) {
            if (Exists(dir + "/" + name)) continue;
            const std::string sentinel = outside / ("sentinel-" + name);
            WriteFile(sentinel, "sentinel of " + name);
            ASSERT_EQ(symlink(sentinel.c_str(), (dir + "/" + name).c_str()), 0) << name;
            planted[name] = sentinel;
        }
    }
    void ExpectUnchanged() const
    {
        for (const auto &[name, sentinel] : planted)
            EXPECT_EQ(ReadFile(sentinel), "sentinel of " + name) << "written through " << name;
    }
};

// Every name and its temporary.
std::vector<std::string> WithTemporaries(const std::vector<std::string> &names)
{
    std::vector<std::string> all;
    for (const std::string &name : names) {
        all.push_back(name);
        all.push_back(name + TARN_TEMPORARY_SUFFIX);
    }
    return all;
}

const std::vector<std::string> kMergeWrites = WithTemporaries(
    {"coveragsNEW.dbf", "chartsNEW.dbf", "vfrchrtsNEW.dbf", "airportsNEW.dbf", "airportsNEWEST.dbf",
     "vfraptsNEW.dbf", "vfraptsNEWEST.dbf", "chrtlinkNEW.dbf", "notamsNEW.dbf", "notamsNEW.dbt",
     "vfrntmsNEW.dbf", "vfrntmsNEW.dbt", "crcfilesNEW.txt", "charts.bi2", "vfrcharts.bi2",
     "charts.bin.undo", "vfrcharts.bin.undo", "merge.journal"});

const std::vector<std::string> kDestinationWrites = WithTemporaries(
    {"charts.ini", "regions.dat", "country.dbf", "ctypes.dbf", "tarnwick.tfl", "tarnwick.tls", "lssdef.tcl",
     "sbscrips.dbf", "state.dbf", "chrtlink.dbf", "coverags.dbf", "revision.txt", "charts.dbf",
     "vfrchrts.dbf", "airports.dbf", "airportsNEW.dbf", "vfrapts.dbf", "vfraptsNEW.dbf", "notams.dbf",
     "notams.dbt", "vfrntms.dbf", "vfrntms.dbt", "charts.bin", "vfrcharts.bin", "crcfiles.txt"});

}  // namespace

TEST(Links, AMergeNeverWritesThroughALink)
{
    const Tree merged = MergedSample();
    // Links at the temporary names are no one's files: the merge replaces
    // them and runs as it would without them.
    std::vector<std::string> temporaries, records;
    for (const std::string &name : kMergeWrites)
        (name.find(".undo") != std::string::npos || name.rfind("merge.journal", 0) == 0 ? records : temporaries)
            .push_back(name);
    {
        TempDir dir;
        WriteMergeSample(dir.path());
        Sentinels sentinels;
        sentinels.Plant(dir.path(), temporaries);
        EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), 0);
        sentinels.ExpectUnchanged();
        EXPECT_TRUE(TreeOf(dir.path()) == merged) << Differences(merged, TreeOf(dir.path()));
    }
    // A link under the name of an undo record or of the journal is a record
    // the merge did not write: it is never read as one, nor followed, and
    // the merge refuses to go on.
    for (const std::string &name : records) {
        TempDir dir;
        WriteMergeSample(dir.path());
        Sentinels sentinels;
        sentinels.Plant(dir.path(), {name});
        const int code = TarnTermChart_Merge(dir.c_str(), nullptr, nullptr);
        sentinels.ExpectUnchanged();
        if (name.find(TARN_TEMPORARY_SUFFIX) == std::string::npos) {
            EXPECT_EQ(code, -10) << name;
        } else {
            EXPECT_EQ(code, 0) << name;  // a temporary record is removed unread
        }
    }
}

TEST(Links, ABundleThatIsALinkIsNeverUpdatedInPlace)
{
    for (const char *bundle : {"charts.bin", "vfrcharts.bin"}) {
        TempDir dir, outside;
        WriteMergeSample(dir.path());
        const std::string target = outside / bundle;
        ASSERT_EQ(rename((dir / bundle).c_str(), target.c_str()), 0);
        ASSERT_EQ(symlink(target.c_str(), (dir / bundle).c_str()), 0);
        const std::string bytes = ReadFile(target);
        const Tree before = TreeOf(dir.path());
        EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), std::string(bundle) == "charts.bin" ? -7 : -5);
        EXPECT_EQ(ReadFile(target), bytes);
        EXPECT_TRUE(TreeOf(dir.path()) == before) << bundle;
    }
    // Its checksum is never stored through it either: a bundle no update
    // reaches is finished with its checksum written in place.
    TempDir dir, outside;
    WriteMergeSample(dir.path());
    ASSERT_EQ(remove((dir / "2501_vfrcharts.bin").c_str()), 0);
    ASSERT_EQ(rename((dir / "vfrcharts.bin").c_str(), (outside / "vfrcharts.bin").c_str()), 0);
    ASSERT_EQ(symlink((outside / "vfrcharts.bin").c_str(), (dir / "vfrcharts.bin").c_str()), 0);
    const std::string bytes = ReadFile(outside / "vfrcharts.bin");
    const Tree before = TreeOf(dir.path());
    EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), -10);
    EXPECT_EQ(ReadFile(outside / "vfrcharts.bin"), bytes);
    EXPECT_TRUE(TreeOf(dir.path()) == before);
}

TEST(Links, SubsetAndCombineNeverWriteThroughALinkInTheirDestination)
{
    TempDir source;
    WriteSubsetSource(source.path(), DefaultSubsetSource());
    Tree subsetReference, combineReference;
    {
        TempDir reference;
        ASSERT_EQ(TarnTermChart_SubsetCharts(source.c_str(), reference.c_str(), kBox.north, kBox.west, kBox.south,
                                             kBox.east),
                  0);
        subsetReference = TreeOf(reference.path());
        TempDir combined;
        ASSERT_EQ(TarnTermChart_CombineVFRintoIFR(source.c_str(), combined.c_str()), 0);
        combineReference = TreeOf(combined.path());
    }
    const Tree sourceBefore = TreeOf(source.path());
    {
        TempDir destination;
        Sentinels sentinels;
        // A link under vfrapts.dbf is an older VFR airport table to the
        // subset, which it relinks: that one name is left out here.
        std::vector<std::string> names;
        for (const std::string &name : kDestinationWrites)
            if (name.rfind("vfrapts.dbf", 0) != 0) names.push_back(name);
        sentinels.Plant(destination.path(), names);
        EXPECT_EQ(TarnTermChart_SubsetCharts(source.c_str(), destination.c_str(), kBox.north, kBox.west, kBox.south,
                                             kBox.east),
                  0);
        sentinels.ExpectUnchanged();
        Tree after = TreeOf(destination.path());
        for (const std::string &name : names)
            if (!subsetReference.count(name)) after.erase(name);  // links left where nothing was written
        EXPECT_TRUE(after == subsetReference) << Differences(subsetReference, after);
    }
    {
        // The combine writes no VFR file; a link there would be a table
        // whose checksum it reads.
        TempDir destination;
        Sentinels sentinels;
        std::vector<std::string> names;
        for (const std::string &name : kDestinationWrites)
            if (name.rfind("vfr", 0) != 0) names.push_back(name);
        sentinels.Plant(destination.path(), names);
        EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(source.c_str(), destination.c_str()), 0);
        sentinels.ExpectUnchanged();
        Tree after = TreeOf(destination.path());
        for (const std::string &name : names)
            if (!combineReference.count(name)) after.erase(name);
        EXPECT_TRUE(after == combineReference) << Differences(combineReference, after);
    }
    EXPECT_TRUE(TreeOf(source.path()) == sourceBefore);
}

// ---- one directory, one writer ------------------------------------------

TEST(OneWriter, SubsetIntoItsOwnSourceIsMinus12AndWritesNothing)
{
    TempDir source;
    WriteSubsetSource(source.path(), DefaultSubsetSource());
    const Tree before = TreeOf(source.path());
    TempDir links;
    ASSERT_EQ(symlink(source.c_str(), (links / "same").c_str()), 0);
    for (const std::string &spelling : {source.path(), source.path() + "/", source.path() + "/.",
                                        source.path() + "/../" + source.path().substr(source.path().rfind('/') + 1),
                                        links / "same"}) {
        EXPECT_EQ(TarnTermChart_SubsetCharts(source.c_str(), spelling.c_str(), kBox.north, kBox.west, kBox.south,
                                             kBox.east),
                  -12)
            << spelling;
    }
    EXPECT_TRUE(TreeOf(source.path()) == before);
}

TEST(OneWriter, TwoMergesOfOneDirectoryRunOneAfterTheOther)
{
    const Tree merged = MergedSample();
    for (int round = 0; round < 5; round++) {
        TempDir dir;
        WriteMergeSample(dir.path());
        int codes[2];
        std::thread a([&] { codes[0] = TarnTermChart_Merge(dir.c_str(), nullptr, nullptr); });
        std::thread b([&] { codes[1] = TarnTermChart_Merge((dir.path() + "/.").c_str(), nullptr, nullptr); });
        a.join();
        b.join();
        EXPECT_EQ(std::min(codes[0], codes[1]), -4) << round;
        EXPECT_EQ(std::max(codes[0], codes[1]), 0) << round;
        EXPECT_TRUE(TreeOf(dir.path()) == merged) << round;
    }
}

TEST(OneWriter, TwoProcessesMergingOneDirectoryRunOneAfterTheOther)
{
    const Tree merged = MergedSample();
    for (int round = 0; round < 3; round++) {
        TempDir dir;
        WriteMergeSample(dir.path());
        fflush(nullptr);
        pid_t children[2];
        for (pid_t &child : children) {
            child = fork();
            if (child == 0) _exit(-TarnTermChart_Merge(dir.c_str(), nullptr, nullptr) & 0xFF);
        }
        int codes[2];
        for (int i = 0; i < 2; i++) {
            int status = 0;
            ASSERT_EQ(waitpid(children[i], &status, 0), children[i]);
            ASSERT_TRUE(WIFEXITED(status));
            codes[i] = -WEXITSTATUS(status);
        }
        EXPECT_EQ(std::min(codes[0], codes[1]), -4) << round;
        EXPECT_EQ(std::max(codes[0], codes[1]), 0) << round;
        EXPECT_TRUE(TreeOf(dir.path()) == merged) << round;
    }
}

TEST(OneWriter, ASubsetSeesItsSourceBeforeOrAfterAMerge)
{
    // The subsets of the directory before and after its merge.
    Tree beforeMerge, afterMerge;
    {
        TempDir dir, cut;
        WriteMergeSample(dir.path());
        ASSERT_EQ(TarnTermChart_SubsetCharts(dir.c_str(), cut.c_str(), 90, -180, -90, 180), 0);
        beforeMerge = TreeOf(cut.path());
        ASSERT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), 0);
        TempDir again;
        ASSERT_EQ(TarnTermChart_SubsetCharts(dir.c_str(), again.c_str(), 90, -180, -90, 180), 0);
        afterMerge = TreeOf(again.path());
    }
    ASSERT_FALSE(beforeMerge == afterMerge);
    for (int round = 0; round < 6; round++) {
        TempDir dir, cut;
        WriteMergeSample(dir.path());
        int merge = 1, subset = 1;
        std::thread a([&] { merge = TarnTermChart_Merge(dir.c_str(), nullptr, nullptr); });
        std::thread b([&] { subset = TarnTermChart_SubsetCharts(dir.c_str(), cut.c_str(), 90, -180, -90, 180); });
        a.join();
        b.join();
        EXPECT_EQ(merge, 0);
        EXPECT_EQ(subset, 0);
        const Tree got = TreeOf(cut.path());
        EXPECT_TRUE(got == beforeMerge || got == afterMerge) << round;
    }
}

// ---- tables whose header does not describe them ------------------------

namespace {

// A sample whose charts.dbf keeps its records but has header length 0 and
// record length 0.
void DamageChartTable(const std::string &dir, const char *table)
{
    std::string bytes = ReadFile(dir + "/" + table);
    bytes.replace(8, 4, std::string(4, '\0'));
    WriteFile(dir + "/" + table, bytes);
}

}  // namespace

TEST(DamagedTables, AMergeNeverEmptiesABundleOverADamagedChartTable)
{
    for (const char *table : {"charts.dbf", "airports.dbf", "chrtlink.dbf", "notams.dbf", "coverags.dbf"}) {
        TempDir dir;
        WriteMergeSample(dir.path());
        DamageChartTable(dir.path(), table);
        const Tree before = TreeOf(dir.path());
        EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), -9) << table;
        Tree after = TreeOf(dir.path());
        for (auto it = after.begin(); it != after.end();)
            it = it->first.find("NEW") != std::string::npos ? after.erase(it) : std::next(it);
        EXPECT_TRUE(after == before) << table << Differences(before, after);
    }
}

TEST(DamagedTables, SubsetAndCombineFailTheStepThatReadsThem)
{
    struct Case {
        const char *table;
        int subset, combine;
    };
    for (Case c : {Case{"charts.dbf", -4, -2}, Case{"airports.dbf", -6, -2}, Case{"vfrapts.dbf", -7, -2},
                   Case{"chrtlink.dbf", -8, -4}, Case{"notams.dbf", -9, -2}, Case{"coverags.dbf", -1, 0}}) {
        TempDir source, cut, combined;
        WriteSubsetSource(source.path(), DefaultSubsetSource());
        DamageChartTable(source.path(), c.table);
        EXPECT_EQ(TarnTermChart_SubsetCharts(source.c_str(), cut.c_str(), kBox.north, kBox.west, kBox.south,
                                             kBox.east),
                  c.subset)
            << c.table;
        EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(source.c_str(), combined.c_str()), c.combine) << c.table;
    }
}

// ---- the flushing switch -------------------------------------------------

TEST(Flushing, TheSwitchChangesNoResult)
{
    const Tree merged = MergedSample();
    const int before = TarnTermChart_SetFlushing(0);
    EXPECT_EQ(TarnTermChart_SetFlushing(0), 0);
    TempDir dir;
    WriteMergeSample(dir.path());
    EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), 0);
    EXPECT_EQ(TarnTermChart_SetFlushing(before), 0);
    EXPECT_TRUE(TreeOf(dir.path()) == merged);
    EXPECT_EQ(TarnTermChart_SetThreads(1), 1);
}
