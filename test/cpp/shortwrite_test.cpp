// Short writes and full disks: merge, subset and combine under a file size
// limit that cuts their writes at many points.  Each run must end with one
// of the operation's own codes (or 0 when it never reached the limit), never
// crash, never lose data, and never leave a file cut short under a name: a
// failed merge leaves its directory as it found it (and a second merge then
// gives exactly the result of one that ran through), a failed subset or
// combine leaves its source alone and in its destination only whole files.
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
    return BundleOfBases(bases, date, seed);
}

void WriteMergeDirectory(const std::string &dir) { WriteMergeSample(dir); }

TEST(ShortWrites, AFailedMergeLeavesItsDirectoryAsItFoundIt)
{
    // Updates are appended to the bundle before compaction shrinks it, so
    // the largest file of the run is at most a bundle with all its updates.
    uint64_t largest;
    std::map<std::string, std::string> merged, original;
    {
        TempDir reference;
        WriteMergeDirectory(reference.path());
        original = Snapshot(reference.path());
        uint64_t updates = ReadFile(reference / "2501_charts.bin").size() +
                           ReadFile(reference / "2501_vfrcharts.bin").size();
        largest = LargestFile(reference.path()) + updates;
        ASSERT_EQ(TarnTermChart_Merge(reference.c_str(), nullptr, nullptr), 0);
        largest = std::max(largest, LargestFile(reference.path()));
        merged = Snapshot(reference.path());
    }
    const std::set<int> codes = CodesDownTo(-10);
    SweepCutPoints(
        largest, codes, WriteMergeDirectory,
        [](const std::string &dir) { return TarnTermChart_Merge(dir.c_str(), nullptr, nullptr); },
        [&](int status, const std::string &dir) {
            if (status != 0) {
                // Everything is as it was, but the new tables a failed table
                // cut leaves (their old tables untouched).
                auto after = Snapshot(dir);
                for (auto it = after.begin(); it != after.end();)
                    it = it->first.find("NEW.") != std::string::npos ? after.erase(it) : std::next(it);
                EXPECT_TRUE(after == original) << "code " << -status << " changed" << Differences(original, after);
                // Space freed, a second merge gives the result of one that ran through.
                EXPECT_EQ(TarnTermChart_Merge(dir.c_str(), nullptr, nullptr), 0);
            }
            EXPECT_TRUE(Snapshot(dir) == merged) << "code " << -status;
        });
}

// ---- subset ------------------------------------------------------------

// Whether bytes are a whole dBase table: every record the header counts
// after the descriptors and their terminator, and at most an end byte.
bool WholeTable(const std::string &bytes)
{
    if (bytes.size() < 32) return false;
    const uint32_t count = (uint8_t)bytes[4] | (uint8_t)bytes[5] << 8 | (uint8_t)bytes[6] << 16 | (uint32_t)(uint8_t)bytes[7] << 24;
    const uint32_t headerLength = (uint8_t)bytes[8] | (uint8_t)bytes[9] << 8;
    const uint32_t recordLength = (uint8_t)bytes[10] | (uint8_t)bytes[11] << 8;
    const uint64_t records = 32 + 32 * (uint64_t)((headerLength - 32) / 32) + 1 + (uint64_t)count * recordLength;
    return bytes.size() == records || (bytes.size() == records + 1 && bytes.back() == '\x1a');
}

// Every file the destination holds is whole: the one a run that went
// through leaves under that name, or - for the tables a later step would
// still have rewritten - a whole table.
void ExpectOnlyWholeFiles(const std::map<std::string, std::string> &reference, const std::string &destination,
                          int status)
{
    for (const auto &[name, bytes] : Snapshot(destination)) {
        auto found = reference.find(name);
        const bool final = found != reference.end() && found->second == bytes;
        const bool table = name.size() > 4 && name.compare(name.size() - 4, 4, ".dbf") == 0;
        EXPECT_TRUE(final || (table && WholeTable(bytes))) << name << " is not whole after code " << -status;
        EXPECT_EQ(name.find(".tarn-new"), std::string::npos) << name << " left after code " << -status;
    }
}

TEST(ShortWrites, SubsetLeavesItsSourceAloneAndOnlyWholeFiles)
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
    std::map<std::string, std::string> whole;
    {
        TempDir reference;
        ASSERT_EQ(TarnTermChart_SubsetCharts(source.c_str(), reference.c_str(), kBox.north, kBox.west,
                                             kBox.south, kBox.east), 0);
        largest = LargestFile(reference.path());
        whole = Snapshot(reference.path());
    }
    const std::set<int> codes = CodesDownTo(-11);
    SweepCutPoints(
        largest, codes, [](const std::string &) {},
        [&](const std::string &destination) {
            return TarnTermChart_SubsetCharts(source.c_str(), destination.c_str(), kBox.north, kBox.west,
                                              kBox.south, kBox.east);
        },
        [&](int status, const std::string &destination) {
            EXPECT_TRUE(Snapshot(source.path()) == before);
            ExpectOnlyWholeFiles(whole, destination, status);
            // A second subset into a complete destination relinks the VFR
            // airports it finds there, as a subset does.
            if (status == 0) return;
            // Run again with room, it gives what a run that went through gives.
            EXPECT_EQ(TarnTermChart_SubsetCharts(source.c_str(), destination.c_str(), kBox.north, kBox.west,
                                                 kBox.south, kBox.east), 0);
            EXPECT_TRUE(Snapshot(destination) == whole) << Differences(whole, Snapshot(destination));
        });
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

TEST(ShortWrites, CombineLeavesItsSourceAloneAndOnlyWholeFiles)
{
    TempDir source;
    WriteCombineSource(source.path());
    const auto before = Snapshot(source.path());
    uint64_t largest;
    std::map<std::string, std::string> whole;
    {
        TempDir reference;
        ASSERT_EQ(TarnTermChart_CombineVFRintoIFR(source.c_str(), reference.c_str()), 0);
        largest = LargestFile(reference.path());
        whole = Snapshot(reference.path());
    }
    const std::set<int> codes = CodesDownTo(-11);
    SweepCutPoints(
        largest, codes, [](const std::string &) {},
        [&](const std::string &destination) { return TarnTermChart_CombineVFRintoIFR(source.c_str(), destination.c_str()); },
        [&](int status, const std::string &destination) {
            EXPECT_TRUE(Snapshot(source.path()) == before);
            ExpectOnlyWholeFiles(whole, destination, status);
            EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(source.c_str(), destination.c_str()), 0);
            EXPECT_TRUE(Snapshot(destination) == whole) << Differences(whole, Snapshot(destination));
        });
}

// ---- applying one update in place ------------------------------------

TEST(ShortWrites, AnUpdateCutShortIsTakenBack)
{
    TempDir dir;
    FixtureBundle bundle = Bundle({"KAAA10-9", "KBBB10-9", "KCCC10-9"}, "2460000.5", 5);
    bundle.trailer = "trailing bytes";
    const std::string original = BuildChartsBin(bundle);
    const std::string update = BuildChartsBin(Bundle({"KAAA10-9", "KZZZ10-9"}, "2460001.5", 9));
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
        // -6 when not even the undo record fits, -7 .. -13 for a failed write.
        if (code == 0 || code == 1) {
            EXPECT_NE(ReadFile(dir / "charts.bin"), original);
        } else {
            EXPECT_GE(code, -13);
            EXPECT_LE(code, -6);
            cut++;
            // Put back byte for byte, the update still there for a second run.
            EXPECT_EQ(ReadFile(dir / "charts.bin"), original);
            EXPECT_TRUE(Exists(dir / "u_charts.bin"));
        }
        // The undo record is gone either way.
        EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"charts.bin", "u_charts.bin"}));
    }
    EXPECT_GT(cut, 0);
}

}  // namespace
