// Files that an operation replaces (tables, memo files, the checksum list,
// bundles) end as new files under their old names, with no temporary left
// beside them; where no new file was made, the old one is gone.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

#include "bundle_writer.h"
#include "chart_directory.h"
#include "subset_fixture.h"
#include "table_reader.h"
#include "tarntermchart.h"
#include "test_util.h"

namespace {

ino_t InodeOf(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

// Temporaries of the replacements: "...NEW.dbf", "...NEWEST.dbf",
// "crcfilesNEW.txt" and the compaction's "charts.bi2".
std::vector<std::string> Leftovers(const std::string &dir)
{
    std::vector<std::string> found;
    for (const std::string &name : ListDir(dir))
        if (name.find("NEW") != std::string::npos || name.find(".bi2") != std::string::npos)
            found.push_back(name);
    return found;
}

// A table whose header count matches the records it holds was written whole.
void ExpectWholeTable(const std::string &path)
{
    ASSERT_TRUE(Exists(path)) << path;
    EXPECT_EQ(HeaderCount(path), (long)ReadTable(path, {"F5_6"}).size()) << path;
}

struct MergeDirectory {
    TempDir dir;
    explicit MergeDirectory(const std::string &coverageCodes = "US1 US16")
    {
        SampleDirectory sample = SampleDirectory::Default();
        sample.coverageCodes = coverageCodes;
        sample.Write(dir.path());
        WriteChartsBin(dir / "charts.bin",
                       ChartsOf({"CYYZ10-9", "KAAA10-9", "KAAA11-1", "KBBB10-9", "KCCC10-9"}, "2460000.5"));
        WriteChartsBin(dir / "vfrcharts.bin", ChartsOf({"KBBBVFR", "KVV1VFR", "KVV2VFR"}, "2460000.5"));
        // Replacing a chart supersedes its old entry, so the bundle is compacted.
        WriteChartsBin(dir / "2501_charts.bin", ChartsOf({"KAAA10-9"}, "2460001.5"));
        WriteChartsBin(dir / "2501_vfrcharts.bin", ChartsOf({"KVV1VFR"}, "2460001.5"));
    }
};

const char *const kMergeTables[] = {"coverags.dbf", "charts.dbf", "vfrchrts.dbf", "airports.dbf",
                                    "vfrapts.dbf",  "chrtlink.dbf", "notams.dbf", "vfrntms.dbf"};
const char *const kMergeMemos[] = {"notams.dbt", "vfrntms.dbt"};

TEST(ReplacedFiles, MergeTablesMemosListAndBundleTakeTheirNames)
{
    MergeDirectory m;
    std::map<std::string, ino_t> before;
    for (const std::string &name : ListDir(m.dir.path())) before[name] = InodeOf(m.dir / name);

    ASSERT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), 0);

    EXPECT_EQ(Leftovers(m.dir.path()), std::vector<std::string>{});
    EXPECT_EQ(TarnTermChart_IsValidChartDirectory(m.dir.c_str()), nullptr);
    // Every replaced file is a file other than the one that stood there.
    for (const char *name : kMergeTables) {
        SCOPED_TRACE(name);
        ExpectWholeTable(m.dir / name);
        EXPECT_NE(InodeOf(m.dir / name), before[name]);
    }
    for (const char *name : kMergeMemos) {
        ASSERT_TRUE(Exists(m.dir / name)) << name;
        EXPECT_NE(InodeOf(m.dir / name), before[name]) << name;
    }
    EXPECT_NE(InodeOf(m.dir / "crcfiles.txt"), before["crcfiles.txt"]);
    EXPECT_NE(ReadFile(m.dir / "crcfiles.txt"), SampleDirectory::Default().crcList);
    // The compacted bundle took the bundle's name, whole and checksummed.
    EXPECT_NE(InodeOf(m.dir / "charts.bin"), before["charts.bin"]);
    std::string bytes = ReadFile(m.dir / "charts.bin");
    ParsedBundle bundle = ParseChartsBin(bytes);
    EXPECT_EQ(bundle.crc, ReferenceBundleCrc(bytes));
    for (const ParsedEntry &e : bundle.entries) EXPECT_EQ(e.flags, 0) << e.name;
}

TEST(ReplacedFiles, MergeWithoutANewTableRemovesTheOldOne)
{
    // Only the IFR coverage: no VFR table gets a new version.
    MergeDirectory m("US1");
    ASSERT_EQ(TarnTermChart_Merge(m.dir.c_str(), nullptr, nullptr), 0);
    for (const char *name : {"vfrchrts.dbf", "vfrapts.dbf", "vfrntms.dbf", "vfrntms.dbt"})
        EXPECT_FALSE(Exists(m.dir / name)) << name;
    for (const char *name : {"coverags.dbf", "charts.dbf", "airports.dbf", "chrtlink.dbf", "notams.dbf"})
        ExpectWholeTable(m.dir / name);
    EXPECT_EQ(Leftovers(m.dir.path()), std::vector<std::string>{});
}

TEST(ReplacedFiles, SubsetAirportTablesTakeTheirNames)
{
    TempDir source, destination;
    WriteSubsetSource(source.path(), DefaultSubsetSource());
    ASSERT_EQ(TarnTermChart_SubsetCharts(source.c_str(), destination.c_str(), kBox.north, kBox.west,
                                         kBox.south, kBox.east), 0);
    EXPECT_EQ(Leftovers(destination.path()), std::vector<std::string>{});
    ExpectWholeTable(destination / "airports.dbf");
    ExpectWholeTable(destination / "vfrapts.dbf");
    EXPECT_EQ(ReadColumn(destination / "airports.dbf", "F5_6"), (std::vector<std::string>{"KAAA", "KCCC"}));
    EXPECT_EQ(ReadColumn(destination / "vfrapts.dbf", "F5_6"), (std::vector<std::string>{"KCCC", "KVVV"}));
}

TEST(ReplacedFiles, CombineAirportTableTakesItsName)
{
    TempDir source, destination;
    WriteSubsetSource(source.path(), DefaultSubsetSource());
    ASSERT_EQ(TarnTermChart_CombineVFRintoIFR(source.c_str(), destination.c_str()), 0);
    EXPECT_EQ(Leftovers(destination.path()), std::vector<std::string>{});
    ExpectWholeTable(destination / "airports.dbf");
    // The combined table holds the IFR and the VFR airports.
    EXPECT_EQ(ReadColumn(destination / "airports.dbf", "F5_6"),
              (std::vector<std::string>{"KAAA", "KBBB", "KCCC", "KDDD", "KVVV", "KWWW"}));
}

}  // namespace
