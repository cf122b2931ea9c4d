// TarnTermChart_CombineVFRintoIFR: the whole combined directory.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <map>

#include "bundle_writer.h"
#include "combine/combine.h"
#include "combine_fixture.h"
#include "fork_util.h"
#include "table_reader.h"
#include "tarntermchart.h"
#include "platform/newfile.h"
#include "platform/platform.h"
#include "test_util.h"

namespace {

const std::vector<DbfField> kLinkFields = {{"F5_6", 'C', 5}, {"FILENAM_BA", 'C', 12}};

const std::vector<std::string> kUnchanged = {
    "charts.ini", "chrtlink.dbf", "country.dbf", "coverags.dbf", "ctypes.dbf", "tarnwick.tfl",
    "tarnwick.tls", "lssdef.tcl", "regions.dat", "revision.txt", "sbscrips.dbf", "state.dbf"};

const std::vector<std::string> kVfrFiles = {"vfrchrts.dbf", "vfrapts.dbf", "vfrntms.dbf", "vfrntms.dbt",
                                            "vfrcharts.bin"};

const char kCrcList[] =
    "charts.dbf,0x1\r\nairports.dbf,0x2\r\nnotams.dbf,0x3\r\nnotams.dbt,0x4\r\n"
    "vfrchrts.dbf,0x5\r\nreadme.txt,0x6\r\n";

FixtureBundle Bundle(const std::vector<std::string> &names, uint32_t seed)
{
    FixtureBundle b;
    b.julianDate = "2460400.5";
    for (size_t i = 0; i < names.size(); i++)
        b.entries.push_back({names[i], RandomBytes(500 + 100 * i, seed + (uint32_t)i)});
    return b;
}

// A source directory: the shared files, and IFR and / or VFR data.
void WriteSource(const TempDir &src, bool ifr, bool vfr)
{
    for (const std::string &name : kUnchanged) WriteFile(src / name, "contents of " + name);
    WriteFile(src / "charts.ini", "[Data]\r\nDatabase_Begin_Date=2460310.5\r\n");
    WriteFile(src / "chrtlink.dbf", DbfTable(kLinkFields, {{"KAAA", "L1"}, {"KCCC", "L2"}}));
    WriteFile(src / "coverages.txt", "US1\r\n");
    WriteFile(src / "crcfiles.txt", kCrcList);
    if (ifr) {
        WriteFile(src / "charts.dbf", DbfTable(kChartFields, {Chart("KAAA", "IA1"), Chart("KCCC", "IC1")}));
        WriteFile(src / "airports.dbf", DbfTable(kIfrAirportFields, {IfrAirport("KAAA", "ALPHA"),
                                                                     IfrAirport("KCCC", "CHARLIE")}));
        WriteFile(src / "notams.dbf", DbfTable(kIfrNotamFields, {IfrNotam("US", "KAAA", "1", "I1")}));
        WriteFile(src / "notams.dbt", DbtFile({"ifr notam"}) + "\x1a");
        WriteChartsBin(src / "charts.bin", Bundle({"IA1.PDF", "IC1.PDF"}, 1));
    }
    if (vfr) {
        WriteFile(src / "vfrchrts.dbf", DbfTable(kChartFields, {Chart("KBBB", "VB1"), Chart("KCCC", "VC1")}));
        WriteFile(src / "vfrapts.dbf", DbfTable(kVfrAirportFields, {VfrAirport("KBBB", "BRAVO", "BCITY"),
                                                                    VfrAirport("KCCC", "VCHARLIE", "CCITY")}));
        WriteFile(src / "vfrntms.dbf", DbfTable(kVfrNotamFields, {VfrNotam("US", "KBBB", "1", "V1")}));
        WriteFile(src / "vfrntms.dbt", DbtFile({"vfr notam"}) + "\x1a");
        WriteChartsBin(src / "vfrcharts.bin", Bundle({"VB1.PDF", "VC1.PDF"}, 10));
    }
}

std::map<std::string, std::string> Snapshot(const TempDir &dir)
{
    std::map<std::string, std::string> files;
    for (const std::string &name : ListDir(dir.path())) files[name] = ReadFile(dir / name);
    return files;
}

std::string CrcLine(const TempDir &dir, const std::string &name)
{
    char line[64];
    snprintf(line, sizeof line, "%s,0x%x\r\n", name.c_str(), ReferenceTarnCrc(ReadFile(dir / name)));
    return line;
}

}  // namespace

TEST(CombineVFRintoIFR, CombinesIfrAndVfrData)
{
    TempDir src, dst;
    WriteSource(src, true, true);
    std::map<std::string, std::string> before = Snapshot(src);
    int descriptors = CountOpenDescriptors();
    ASSERT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);

    // The source is untouched.
    EXPECT_EQ(Snapshot(src), before);
    // IFR files only: nothing VFR, no leftovers.
    std::vector<std::string> expected = kUnchanged;
    for (const char *name : {"charts.dbf", "airports.dbf", "notams.dbf", "notams.dbt", "charts.bin", "crcfiles.txt"})
        expected.push_back(name);
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(ListDir(dst.path()), expected);
    for (const std::string &name : kUnchanged) EXPECT_EQ(ReadFile(dst / name), before[name]) << name;

    EXPECT_EQ(ReadColumn(dst / "charts.dbf", "FILENAM_BA"),
              (std::vector<std::string>{"IA1", "VB1", "IC1", "VC1"}));
    // Airports linked into the merged chart table and the copied link table;
    // KCCC keeps its IFR record.
    std::vector<std::vector<std::string>> airports = {
        {"KAAA", "ALPHA", "Y", "1", "1"}, {"KBBB", "BRAVO", "N", "2", ""}, {"KCCC", "CHARLIE", "Y", "3", "2"}};
    EXPECT_EQ(ReadTable(dst / "airports.dbf", {"F5_6", "ARPT_NAME", "PRECISION", "CHRT_IDX", "CLNK_IDX"}), airports);
    // NOTAMs with their memos, read through the merged memo file.
    std::vector<std::vector<std::string>> notams = {{"I1", "ifr notam"}, {"V1", "vfr notam"}};
    EXPECT_EQ(ReadTable(dst / "notams.dbf", {"INDEX_NO", "TEXT"}), notams);

    std::string bundle = ReadFile(dst / "charts.bin");
    ParsedBundle merged = ParseChartsBin(bundle);
    EXPECT_EQ(merged.fileCount, 4u);
    EXPECT_EQ(merged.crc, ReferenceBundleCrc(bundle));
    EXPECT_EQ(merged.julianDate, "2460400.5");

    // Checksums of the combined tables; the missing VFR table's line is gone.
    EXPECT_EQ(ReadFile(dst / "crcfiles.txt"), CrcLine(dst, "charts.dbf") + CrcLine(dst, "airports.dbf") +
                                                  CrcLine(dst, "notams.dbf") + CrcLine(dst, "notams.dbt") +
                                                  "readme.txt,0x6\r\n");
}

TEST(CombineVFRintoIFR, OnlyIfrDataLeavesTheIfrTablesOut)
{
    TempDir src, dst;
    WriteSource(src, true, false);
    ASSERT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), dst.c_str()), 0);
    // Without VFR counterparts the IFR tables and bundle are not written;
    // the memo file always is.
    std::vector<std::string> expected = kUnchanged;
    expected.push_back("notams.dbt");
    expected.push_back("crcfiles.txt");
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(ListDir(dst.path()), expected);
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), DbtFile({"ifr notam"}) + "\x1a");
    EXPECT_EQ(ReadFile(dst / "crcfiles.txt"), CrcLine(dst, "notams.dbt") + "readme.txt,0x6\r\n");
}

TEST(CombineVFRintoIFR, OnlyVfrDataTakesTheIfrNames)
{
    TempDir src, dst;
    WriteSource(src, false, true);
    ASSERT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), dst.c_str()), 0);
    for (const std::string &name : kVfrFiles) EXPECT_FALSE(Exists(dst / name)) << name;
    EXPECT_FALSE(Exists(dst / "airportsNEW.dbf"));
    EXPECT_EQ(ReadFile(dst / "charts.dbf"), ReadFile(src / "vfrchrts.dbf"));
    EXPECT_EQ(ReadFile(dst / "notams.dbf"), ReadFile(src / "vfrntms.dbf"));
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), ReadFile(src / "vfrntms.dbt"));
    // The VFR airports keep their layout and get their chart links.
    EXPECT_EQ(ReadTable(dst / "airports.dbf", {"F5_6", "ARPT_NAM_N", "CHRT_IDX"}),
              (std::vector<std::vector<std::string>>{{"KBBB", "BRAVO", "1"}, {"KCCC", "VCHARLIE", "2"}}));
    std::string bundle = ReadFile(dst / "charts.bin");
    ParsedBundle merged = ParseChartsBin(bundle);
    EXPECT_EQ(merged.fileCount, 2u);
    EXPECT_EQ(merged.julianDate, "2460310.5");
    EXPECT_EQ(merged.crc, ReferenceBundleCrc(bundle));
}

TEST(CombineVFRintoIFR, NeitherIfrNorVfrDataIsMinus1)
{
    TempDir src, dst;
    WriteSource(src, false, false);
    EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), dst.c_str()), -1);
    // What was written before the bundle step stays.
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), "\x1a");
    EXPECT_FALSE(Exists(dst / "charts.bin"));
}

TEST(CombineVFRintoIFR, MissingChecksumListIsTheListsCode)
{
    TempDir src, dst;
    WriteSource(src, true, true);
    remove((src / "crcfiles.txt").c_str());
    EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), dst.c_str()), -1);
    EXPECT_TRUE(Exists(dst / "charts.bin"));
    EXPECT_FALSE(Exists(dst / "crcfiles.txt"));
}

TEST(CombineVFRintoIFR, MissingDestinationDirectoryIsMinus2)
{
    TempDir src, dst;
    WriteSource(src, true, true);
    EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), (dst / "none").c_str()), -2);
}

TEST(CombineVFRintoIFR, EachStepsCreationFailureStopsTheCombine)
{
    // A directory where a step creates its file; the steps before it ran.
    const std::vector<std::tuple<const char *, int, const char *>> cases = {
        {"charts.dbf", -2, nullptr},
        {"airports.dbf", -2, "charts.dbf"},
        {"airportsNEW.dbf", -1, "charts.dbf"},
        {"notams.dbf", -2, "airports.dbf"},
        {"notams.dbt", -2, "notams.dbf"},
        {"charts.bin", -2, "notams.dbt"},
        {"crcfiles.txt", -2, "charts.bin"},
    };
    for (const auto &[blocked, code, written] : cases) {
        TempDir src, dst;
        WriteSource(src, true, true);
        ASSERT_EQ(mkdir((dst / blocked).c_str(), 0700), 0);
        int descriptors = CountOpenDescriptors();
        EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), dst.c_str()), code) << blocked;
        EXPECT_EQ(CountOpenDescriptors(), descriptors) << blocked;
        EXPECT_TRUE(Exists(dst / "state.dbf")) << blocked;
        if (written) {
            EXPECT_TRUE(Exists(dst / written)) << blocked;
        }
    }
}

TEST(CombineVFRintoIFR, FailedLinkTableEndByteIsMinus2)
{
    TempDir src, dst;
    WriteSource(src, true, true);
    // The merged airport table ends with its last record; the linked copy
    // adds an end-of-file byte, which a limit of the merged table's size refuses.
    TempDir probe;
    ASSERT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), probe.c_str()), 0);
    uint64_t limit = ReadFile(probe / "airports.dbf").size() - 1;
    int result = RunInChild([&] {
        LimitFileSize(limit);
        return -TarnTermChart_CombineVFRintoIFR(src.c_str(), dst.c_str());
    });
    EXPECT_EQ(result, 2);
    // The linked copy never takes a name cut short.
    EXPECT_FALSE(Exists(dst / "airportsNEW.dbf"));
    EXPECT_FALSE(Exists(dst / "airportsNEW.dbf" TARN_TEMPORARY_SUFFIX));
    EXPECT_EQ(ReadFile(dst / "airports.dbf").size(), limit);
}

TEST(CombineVFRintoIFR, ForwarderGivesTheSameResult)
{
    TempDir src, dst, empty;
    WriteSource(src, true, true);
    EXPECT_EQ(TarnwickAPI_CombineVFRintoIFR(src.c_str(), dst.c_str()), 0);
    EXPECT_TRUE(Exists(dst / "charts.bin"));
    EXPECT_EQ(TarnwickAPI_CombineVFRintoIFR(empty.c_str(), dst.c_str()), -1);
}

// The bundle merged on a second thread while the tables are merged: the
// combine writes exactly what it writes with everything on one thread.
namespace {

using Prepare = std::function<void(const TempDir &source, const TempDir &destination)>;

struct CombineRun {
    int code;
    std::map<std::string, std::string> destination, source;
};

CombineRun CombineOnce(bool threads, bool ifr, bool vfr, const Prepare &prepare)
{
    TempDir src, dst;
    WriteSource(src, ifr, vfr);
    if (prepare) prepare(src, dst);
    SetThreadsEnabled(threads);
    const int descriptors = CountOpenDescriptors();
    CombineRun run;
    run.code = TarnTermChart_CombineVFRintoIFR(src.c_str(), dst.c_str());
    SetThreadsEnabled(true);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    run.destination = Snapshot(dst);
    run.source = Snapshot(src);
    return run;
}

// Combines with and without a second thread, each from a source and into a
// destination of its own prepared alike; expects the same code and files.
CombineRun ExpectBothWaysAlike(bool ifr, bool vfr, const Prepare &prepare = nullptr)
{
    const CombineRun alone = CombineOnce(false, ifr, vfr, prepare);
    const CombineRun threaded = CombineOnce(true, ifr, vfr, prepare);
    EXPECT_EQ(threaded.code, alone.code);
    EXPECT_EQ(threaded.destination, alone.destination);
    EXPECT_EQ(threaded.source, alone.source);
    return threaded;
}

}  // namespace

TEST(CombineBundleThread, TheBundleComesOutAlikeOnEitherThread)
{
    EXPECT_EQ(ExpectBothWaysAlike(true, true).code, 0);
    EXPECT_EQ(ExpectBothWaysAlike(false, true).code, 0);  // the date from "charts.ini"
    EXPECT_EQ(ExpectBothWaysAlike(true, false).code, 0);  // no bundle written
    EXPECT_EQ(ExpectBothWaysAlike(false, false).code, -1);
    // The checksum list is written after the bundle and sees it.
    EXPECT_EQ(ExpectBothWaysAlike(true, true, [](const TempDir &src, const TempDir &) {
                  WriteFile(src / "crcfiles.txt", "charts.bin,0x1\r\ncharts.dbf,0x2\r\n");
              }).code,
              0);
}

TEST(CombineBundleThread, AnUnreadableBundleGivesTheSameCode)
{
    ExpectBothWaysAlike(true, true, [](const TempDir &src, const TempDir &) {
        WriteFile(src / "vfrcharts.bin", "short");
    });
    const CombineRun cut = ExpectBothWaysAlike(true, true, [](const TempDir &src, const TempDir &) {
        std::string bundle = ReadFile(src / "charts.bin");
        WriteFile(src / "charts.bin", bundle.substr(0, 600));  // blobs cut short: -5
    });
    EXPECT_EQ(cut.code, -5);
    EXPECT_EQ(cut.destination.count("charts.bin"), 0u);
}

TEST(CombineBundleThread, AStepFailingBeforeTheBundleLeavesNoBundle)
{
    for (const char *blocked : {"charts.dbf", "airports.dbf", "airportsNEW.dbf", "notams.dbf", "notams.dbt"}) {
        const Prepare prepare = [blocked](const TempDir &, const TempDir &dst) {
            ASSERT_EQ(mkdir((dst / blocked).c_str(), 0700), 0);
        };
        const CombineRun run = ExpectBothWaysAlike(true, true, prepare);
        EXPECT_LT(run.code, 0) << blocked;
        EXPECT_EQ(run.destination.count("charts.bin"), 0u) << blocked;
    }
    // A bundle whose name a directory holds cannot be created.
    EXPECT_EQ(ExpectBothWaysAlike(true, true, [](const TempDir &, const TempDir &dst) {
                  ASSERT_EQ(mkdir((dst / "charts.bin").c_str(), 0700), 0);
              }).code,
              -2);
}

TEST(CombineBundleThread, AnOlderBundleIsReplacedNotWrittenThrough)
{
    // A second name of the older bundle keeps the older bytes: the new
    // bundle takes the name, the old file is never written.
    const Prepare older = [](const TempDir &, const TempDir &dst) {
        WriteFile(dst / "charts.bin", "an older bundle");
        ASSERT_EQ(link((dst / "charts.bin").c_str(), (dst / "kept.bin").c_str()), 0);
    };
    const CombineRun run = ExpectBothWaysAlike(true, true, older);
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.destination.at("kept.bin"), "an older bundle");
    EXPECT_NE(run.destination.at("charts.bin"), "an older bundle");
}

TEST(CombineBundleThread, WritesNeverReachWhatTheCombineReads)
{
    // A table the combine writes that is another name of a source bundle
    // or of "charts.ini", or a link to one: the new table takes the name,
    // the source is never written.
    EXPECT_EQ(ExpectBothWaysAlike(true, true, [](const TempDir &src, const TempDir &dst) {
                  ASSERT_EQ(link((src / "vfrcharts.bin").c_str(), (dst / "notams.dbt").c_str()), 0);
              }).code,
              0);
    EXPECT_EQ(ExpectBothWaysAlike(true, true, [](const TempDir &src, const TempDir &dst) {
                  ASSERT_EQ(symlink((src / "charts.bin").c_str(), (dst / "airports.dbf").c_str()), 0);
              }).code,
              0);
    EXPECT_EQ(ExpectBothWaysAlike(false, true, [](const TempDir &src, const TempDir &dst) {
                  ASSERT_EQ(link((src / "charts.ini").c_str(), (dst / "charts.dbf").c_str()), 0);
              }).code,
              0);
}

TEST(CombineVFRintoIFR, IntoItsOwnSourceIsMinus12AndWritesNothing)
{
    TempDir src;
    WriteSource(src, true, true);
    const auto before = Snapshot(src);
    for (const std::string &spelling : {src.path(), src.path() + "/", src.path() + "/.", src.path() + "//"}) {
        EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), spelling.c_str()), -12) << spelling;
        EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(spelling.c_str(), src.c_str()), -12) << spelling;
    }
    TempDir links;
    ASSERT_EQ(symlink(src.c_str(), (links / "same").c_str()), 0);
    EXPECT_EQ(TarnTermChart_CombineVFRintoIFR(src.c_str(), (links / "same").c_str()), -12);
    EXPECT_TRUE(Snapshot(src) == before);
}
