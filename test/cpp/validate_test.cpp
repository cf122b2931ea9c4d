// Chart directory validation.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tarntermchart.h"
#include "fork_util.h"
#include "test_util.h"

static const char *kIfr[] = {"airports.dbf", "charts.bin", "charts.dbf", "notams.dbf", "notams.dbt"};
static const char *kVfr[] = {"vfrapts.dbf", "vfrcharts.bin", "vfrchrts.dbf", "vfrntms.dbf",
                             "vfrntms.dbt"};
static const char *kIfrMessage =
    "Missing one or more of airports.dbf, charts.bin, charts.dbf, notams.dbf, notams.dbt";
static const char *kVfrMessage =
    "Missing one or more of vfrapts.dbf, vfrcharts.bin, vfrchrts.dbf, vfrntms.dbf, vfrntms.dbt";

static std::string Check(const TempDir &dir)
{
    const char *message = TarnTermChart_IsValidChartDirectory(dir.c_str());
    return message ? message : "(valid)";
}

TEST(Validate, RequiredFilesAloneAreValid)
{
    TempDir dir;
    WriteRequiredFiles(dir.path());
    EXPECT_EQ(Check(dir), "(valid)");
}

TEST(Validate, BothFullSetsAreValid)
{
    TempDir dir;
    WriteRequiredFiles(dir.path());
    for (const char *name : kIfr) WriteFile(dir / name, "x");
    for (const char *name : kVfr) WriteFile(dir / name, "x");
    EXPECT_EQ(Check(dir), "(valid)");
}

TEST(Validate, FirstMissingRequiredFileIsNamed)
{
    TempDir dir;
    EXPECT_EQ(Check(dir), "Missing file charts.ini");
    WriteRequiredFiles(dir.path());
    remove((dir / "state.dbf").c_str());
    EXPECT_EQ(Check(dir), "Missing file state.dbf");
    remove((dir / "coverages.txt").c_str());
    EXPECT_EQ(Check(dir), "Missing file coverages.txt");
}

TEST(Validate, EveryRequiredFileIsChecked)
{
    for (int missing = 0; missing < 14; missing++) {
        TempDir dir;
        WriteRequiredFiles(dir.path());
        remove((dir / kRequiredFileNames[missing]).c_str());
        EXPECT_EQ(Check(dir), std::string("Missing file ") + kRequiredFileNames[missing]);
    }
}

TEST(Validate, IfrIsJudgedBeforeVfr)
{
    TempDir dir;
    WriteRequiredFiles(dir.path());
    for (int i = 0; i < 4; i++) WriteFile(dir / kIfr[i], "x");
    WriteFile(dir / kVfr[0], "x");
    EXPECT_EQ(Check(dir), kIfrMessage);
}

TEST(Validate, PartialSetsFromOneToFour)
{
    for (int count = 1; count <= 4; count++) {
        TempDir dir;
        WriteRequiredFiles(dir.path());
        for (int i = 0; i < count; i++) WriteFile(dir / kVfr[4 - i], "x");
        EXPECT_EQ(Check(dir), kVfrMessage) << count;
        for (int i = 0; i < 5; i++) WriteFile(dir / kIfr[i], "x");
        EXPECT_EQ(Check(dir), kVfrMessage) << count;
    }
}

TEST(Validate, PendingVfrUpdateInCapitals)
{
    TempDir dir;
    WriteRequiredFiles(dir.path());
    WriteFile(dir / "X_VFRCHARTS.BIN", "x");
    EXPECT_EQ(Check(dir),
              "The _vfrcharts.bin file indicates that a merge is needed, or did not completely finish.");
}

TEST(Validate, PendingIfrUpdateEvenWhenNamedOnlyBySuffix)
{
    TempDir dir;
    WriteRequiredFiles(dir.path());
    WriteFile(dir / "_charts.bin", "x");
    EXPECT_EQ(Check(dir),
              "The _charts.bin file indicates that a merge is needed, or did not completely finish.");
}

TEST(Validate, NewTableIsCaseSensitive)
{
    TempDir dir;
    WriteRequiredFiles(dir.path());
    WriteFile(dir / "chartsnew.dbf", "x");
    EXPECT_EQ(Check(dir), "(valid)");
    WriteFile(dir / "notamsNEW.dbt", "x");
    EXPECT_EQ(Check(dir), "The \"NEW\" file indicates that a merge did not completely finish.");
}

static int CheckCantOpen(void *dir)
{
    const char *message = TarnTermChart_IsValidChartDirectory((const char *)dir);
    return message && std::string(message) == "Can't open chart directory." ? 1 : 0;
}

TEST(Validate, UnlistableDirectory)
{
    TempDir dir;
    WriteRequiredFiles(dir.path());
    chmod(dir.c_str(), 0711);  // files open, listing fails
    EXPECT_EQ(RunInChild([&] {
                  DropPrivileges();
                  return CheckCantOpen((void *)dir.c_str());
              }),
              1);
    chmod(dir.c_str(), 0700);
}

TEST(Validate, MissingDirectoryAndFileInsteadOfDirectory)
{
    EXPECT_EQ(std::string(TarnTermChart_IsValidChartDirectory("/nonexistent/charts")),
              "Missing file charts.ini");
    TempDir dir;
    WriteFile(dir / "plain", "x");
    EXPECT_EQ(std::string(TarnTermChart_IsValidChartDirectory((dir / "plain").c_str())),
              "Missing file charts.ini");
}

TEST(Validate, EarlyReturnsCloseTheListing)
{
    TempDir dir;
    WriteRequiredFiles(dir.path());
    WriteFile(dir / "a_charts.bin", "x");
    int before = CountOpenDescriptors();
    for (int i = 0; i < 50; i++) TarnTermChart_IsValidChartDirectory(dir.c_str());
    EXPECT_EQ(CountOpenDescriptors(), before);
}
