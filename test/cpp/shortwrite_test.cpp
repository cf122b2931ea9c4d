// Short writes and full disks: merge, subset and combine under a file size
// limit that cuts their writes at many points.  Each run must end with one
// of the operation's own codes (or 0 when it never reached the limit), never
// crash, and never lose its source data.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <set>

#include "bundle/update.h"
#include "bundle_writer.h"
#include "chart_directory.h"
#include "combine_fixture.h"
#include "fork_util.h"
#include "subset_fixture.h"
#include "tarntermchart.h"
#include "test_util.h"

namespace {

// Limits from a few hundred bytes up to past the largest file an
// unlimited run writes: the small ones cut the first files, the others
// cut the large tables and bundles at evenly spread points.
std::vector<uint64_t> CutPoints(uint64_t largestFile)
{
    std::vector<uint64_t> limits = {100, 200, 300, 500, 700};
    const int steps = 36;
    for (int k = 0; k <= steps; k++) limits.push_back(1000 + (largestFile + 1 - 1000) * k / steps);
    limits.push_back(largestFile + 4096);
    std::sort(limits.begin(), limits.end());
    limits.erase(std::unique(limits.begin(), limits.end()), limits.end());
    return limits;
}

uint64_t LargestFile(const std::string &dir)
{
    uint64_t largest = 0;
    for (const std::string &name : ListDir(dir)) largest = std::max<uint64_t>(largest, ReadFile(dir + "/" + name).size());
    return largest;
}

// The codes an operation may answer: 0 and -1 .. -lowest, as the child's
// exit status (the code negated).
std::set<int> CodesDownTo(int lowest)
{
    std::set<int> codes;
    for (int code = 0; code >= lowest; code--) codes.insert(-code);
    return codes;
}

constexpr int kChildCrashed = kChildDied;

// How many runs ended with each code, for the test's output.
std::string Tally(const std::map<int, int> &seen)
{
    std::string text;
    for (const auto &[status, count] : seen) text += " " + std::to_string(-status) + ":" + std::to_string(count);
    return text;
}

// Runs operation at every cut point, in a child process under that file
// size limit and each time on a fresh directory that prepare fills (in the
// parent, before the limit): every run ends with one of codes, never with a
// crash, and with 0 once the limit is past the largest file; then check is
// given the status and the directory.  The limits must cut some runs short.
template <typename Prepare, typename Operation, typename Check>
void SweepCutPoints(uint64_t largest, const std::set<int> &codes, Prepare prepare, Operation operation,
                    Check check)
{
    int cut = 0;
    std::map<int, int> seen;
    for (uint64_t limit : CutPoints(largest)) {
        SCOPED_TRACE("limit " + std::to_string(limit));
        TempDir dir;
        prepare(dir.path());
        int status = RunInChild([&] {
            LimitFileSize(limit);
            return -operation(dir.path());
        });
        ASSERT_NE(status, kChildCrashed);
        seen[status]++;
        EXPECT_TRUE(codes.count(status)) << "code " << -status;
        if (limit > largest) {
            EXPECT_EQ(status, 0);
        }
        if (status != 0) cut++;
        check(status, dir.path());
    }
    EXPECT_GT(cut, 0);
    printf("codes seen (code:runs):%s\n", Tally(seen).c_str());
}

// ---- merge -------------------------------------------------------------

FixtureBundle Bundle(const std::vector<std::string> &bases, const std::string &date, uint32_t seed)
{
    FixtureBundle bundle;
    bundle.julianDate = date;
    uint32_t key = 1;
    for (const std::string &base : bases) {
        bundle.entries.push_back({base + ".PDF", RandomBytes(1500 + 300 * key, seed + key), key});
        key++;
    }
    return bundle;
}

void WriteMergeDirectory(const std::string &dir)
{
    SampleDirectory::Default().Write(dir);
    WriteChartsBin(dir + "/charts.bin",
                   Bundle({"CYYZ10-9", "KAAA10-9", "KAAA11-1", "KBBB10-9", "KCCC10-9"}, "2460000.5", 1));
    WriteChartsBin(dir + "/vfrcharts.bin", Bundle({"KBBBVFR", "KVV1VFR", "KVV2VFR"}, "2460000.5", 20));
    WriteChartsBin(dir + "/2501_charts.bin", Bundle({"KAAA10-9", "KDDD10-9"}, "2460001.5", 40));
    WriteChartsBin(dir + "/2501_vfrcharts.bin", Bundle({"KVV1VFR"}, "2460001.5", 60));
}

bool HasUpdates(const std::string &dir)
{
    return Exists(dir + "/2501_charts.bin") || Exists(dir + "/2501_vfrcharts.bin");
}

TEST(ShortWrites, MergeKeepsItsUpdatesUntilItFinishes)
{
    // Updates are appended to the bundle before compaction shrinks it, so
    // the largest file of the run is at most a bundle with all its updates.
    uint64_t largest;
    std::map<std::string, std::string> merged;
    {
        TempDir reference;
        WriteMergeDirectory(reference.path());
        uint64_t updates = ReadFile(reference / "2501_charts.bin").size() +
                           ReadFile(reference / "2501_vfrcharts.bin").size();
        largest = LargestFile(reference.path()) + updates;
        ASSERT_EQ(TarnTermChart_Merge(reference.c_str(), nullptr, nullptr), 0);
        largest = std::max(largest, LargestFile(reference.path()));
        merged = Snapshot(reference.path());
    }
    const std::set<int> codes = CodesDownTo(-9);
    SweepCutPoints(
        largest, codes, WriteMergeDirectory,
        [](const std::string &dir) { return TarnTermChart_Merge(dir.c_str(), nullptr, nullptr); },
        [&](int status, const std::string &dir) {
            if (status != 0) {
                EXPECT_TRUE(HasUpdates(dir)) << "code " << -status << " lost the update bundles";
                // The updates are there for a second run.  A bundle cut while an
                // update was written over its table is left as it stands
                // (nothing is rolled back), so the second run may report its
                // own code; it never crashes.
                int again = TarnTermChart_Merge(dir.c_str(), nullptr, nullptr);
                EXPECT_TRUE(again == 0 || codes.count(-again)) << "second run " << again;
                if (again == 0) {
                    EXPECT_FALSE(HasUpdates(dir));
                }
            } else {
                EXPECT_FALSE(HasUpdates(dir));
                auto after = Snapshot(dir);
                for (const auto &[name, bytes] : merged) EXPECT_TRUE(after[name] == bytes) << name << " differs";
            }
        });
}

// ---- subset ------------------------------------------------------------

TEST(ShortWrites, SubsetLeavesItsSourceAlone)
{
    SubsetSourcePlan plan = DefaultSubsetSource();
    // Larger blobs, so that the bundle is cut at many points.
    for (FixtureBundle *bundle : {&plan.bundle, &plan.vfrBundle})
        for (size_t i = 0; i < bundle->entries.size(); i++)
            bundle->entries[i].data = RandomBytes(2000 + 500 * i, 7 + (uint32_t)i);
    TempDir source;
    WriteSubsetSource(source.path(), plan);
    const auto before = Snapshot(source.path());

    uint64_t largest;
    {
        TempDir reference;
        ASSERT_EQ(TarnTermChart_SubsetCharts(source.c_str(), reference.c_str(), kBox.north, kBox.west,
                                             kBox.south, kBox.east), 0);
        largest = LargestFile(reference.path());
    }
    const std::set<int> codes = CodesDownTo(-10);
    SweepCutPoints(
        largest, codes, [](const std::string &) {},
        [&](const std::string &destination) {
            return TarnTermChart_SubsetCharts(source.c_str(), destination.c_str(), kBox.north, kBox.west,
                                              kBox.south, kBox.east);
        },
        [&](int, const std::string &) { EXPECT_TRUE(Snapshot(source.path()) == before); });
}

// ---- combine -----------------------------------------------------------

void WriteCombineSource(const std::string &dir)
{
    const std::vector<DbfField> linkFields = {{"F5_6", 'C', 5}, {"FILENAM_BA", 'C', 12}};
    for (const char *name : kRequiredFileNames) WriteFile(dir + "/" + name, std::string("contents of ") + name);
    WriteFile(dir + "/charts.ini", "[Data]\r\nDatabase_Begin_Date=2460310.5\r\n");
    WriteFile(dir + "/coverages.txt", "US1\r\n");
    WriteFile(dir + "/crcfiles.txt", "charts.dbf,0x1\r\nairports.dbf,0x2\r\nnotams.dbf,0x3\r\n");
    WriteFile(dir + "/chrtlink.dbf", DbfTable(linkFields, {{"KAAA", "L1"}, {"KCCC", "L2"}}));
    WriteFile(dir + "/charts.dbf", DbfTable(kChartFields, {Chart("KAAA", "IA1"), Chart("KCCC", "IC1")}));
    WriteFile(dir + "/airports.dbf",
              DbfTable(kIfrAirportFields, {IfrAirport("KAAA", "ALPHA"), IfrAirport("KCCC", "CHARLIE")}));
    WriteFile(dir + "/notams.dbf", DbfTable(kIfrNotamFields, {IfrNotam("US", "KAAA", "1", "I1")}));
    WriteFile(dir + "/notams.dbt", DbtFile({std::string(1500, 'i')}) + "\x1a");
    FixtureBundle ifr, vfr;
    ifr.entries.push_back({"IA1.PDF", RandomBytes(3000, 1)});
    ifr.entries.push_back({"IC1.PDF", RandomBytes(4000, 2)});
    vfr.entries.push_back({"VB1.PDF", RandomBytes(3500, 3)});
    vfr.entries.push_back({"VC1.PDF", RandomBytes(2500, 4)});
    WriteChartsBin(dir + "/charts.bin", ifr);
    WriteFile(dir + "/vfrchrts.dbf", DbfTable(kChartFields, {Chart("KBBB", "VB1"), Chart("KCCC", "VC1")}));
    WriteFile(dir + "/vfrapts.dbf", DbfTable(kVfrAirportFields, {VfrAirport("KBBB", "BRAVO", "BCITY"),
                                                                 VfrAirport("KCCC", "VCHARLIE", "CCITY")}));
    WriteFile(dir + "/vfrntms.dbf", DbfTable(kVfrNotamFields, {VfrNotam("US", "KBBB", "1", "V1")}));
    WriteFile(dir + "/vfrntms.dbt", DbtFile({std::string(1200, 'v')}) + "\x1a");
    WriteChartsBin(dir + "/vfrcharts.bin", vfr);
}

TEST(ShortWrites, CombineLeavesItsSourceAlone)
{
    TempDir source;
    WriteCombineSource(source.path());
    const auto before = Snapshot(source.path());
    uint64_t largest;
    {
        TempDir reference;
        ASSERT_EQ(TarnTermChart_CombineVFRintoIFR(source.c_str(), reference.c_str()), 0);
        largest = LargestFile(reference.path());
    }
    const std::set<int> codes = CodesDownTo(-10);
    SweepCutPoints(
        largest, codes, [](const std::string &) {},
        [&](const std::string &destination) { return TarnTermChart_CombineVFRintoIFR(source.c_str(), destination.c_str()); },
        [&](int, const std::string &) { EXPECT_TRUE(Snapshot(source.path()) == before); });
}

// ---- applying one update in place ------------------------------------

TEST(ShortWrites, AnUpdateCutShortStopsWithAWriteCode)
{
    TempDir dir;
    FixtureBundle bundle = Bundle({"KAAA10-9", "KBBB10-9", "KCCC10-9"}, "2460000.5", 5);
    bundle.trailer = "trailing bytes";
    const std::string original = BuildChartsBin(bundle);
    const std::string update = BuildChartsBin(Bundle({"KAAA10-9", "KZZZ10-9"}, "2460001.5", 9));
    const uint64_t tableOffset = ParseChartsBin(original).tableOffset;
    const uint64_t grown = original.size() + update.size();
    int cut = 0;
    for (uint64_t limit = 100; limit <= grown + 100; limit += (grown + 100 - 100) / 40) {
        SCOPED_TRACE("limit " + std::to_string(limit));
        WriteFile(dir / "charts.bin", original);
        WriteFile(dir / "u_charts.bin", update);
        int status = RunInChild([&] {
            LimitFileSize(limit);
            return -AddCoverageToChartsBin((dir / "charts.bin").c_str(), (dir / "u_charts.bin").c_str());
        });
        ASSERT_NE(status, kChildCrashed);
        int code = -status;
        // 0, or 1 when something was superseded, once the update went in;
        // -7 .. -13 for a failed write.
        if (code == 0 || code == 1) {
            EXPECT_NE(ReadFile(dir / "charts.bin"), original);
            continue;
        }
        EXPECT_GE(code, -13);
        EXPECT_LE(code, -7);
        cut++;
        // Writing starts at the old table: the header and the blobs before
        // it stand as they were, and nothing written is rolled back.
        std::string after = ReadFile(dir / "charts.bin");
        EXPECT_TRUE(after.compare(0, tableOffset, original, 0, tableOffset) == 0);
        EXPECT_TRUE(Exists(dir / "u_charts.bin"));
    }
    EXPECT_GT(cut, 0);
}

}  // namespace
