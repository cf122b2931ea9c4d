// The entry layer and the path and file helpers.
#include <gtest/gtest.h>
#include <errno.h>
#include <unistd.h>
#include <string.h>

#include "platform/files.h"
#include "platform/platform.h"
#include "tarntermchart.h"
#include "test_util.h"

static std::string Joined(const char *dir, const char *name)
{
    PathPtr path = JoinPath(dir, name);
    return path.get();
}

TEST(FullPath, TrailingSlashIsNeverDoubled)
{
    EXPECT_EQ(Joined("/data/charts/", "charts.bin"), "/data/charts/charts.bin");
    EXPECT_EQ(Joined("/data/charts", "charts.bin"), "/data/charts/charts.bin");
}

TEST(FullPath, BackslashIsNotASeparator)
{
    EXPECT_EQ(Joined("C:\\charts\\", "charts.bin"), "C:\\charts\\/charts.bin");
}

TEST(FullPath, LeadingSlashOfNameIsKept) { EXPECT_EQ(Joined("a", "/b"), "a//b"); }

TEST(FileExists, OpensForReading)
{
    TempDir dir;
    EXPECT_EQ(FileExists((dir / "missing").c_str()), 0);
    WriteFile(dir / "here", "");
    EXPECT_EQ(FileExists((dir / "here").c_str()), 1);
}

TEST(FileSize, EmptyAndMissingAreBothZero)
{
    TempDir dir;
    WriteFile(dir / "empty", "");
    WriteFile(dir / "five", "12345");
    EXPECT_EQ(FileSize(dir.c_str(), "empty"), 0u);
    EXPECT_EQ(FileSize(dir.c_str(), "missing"), 0u);
    EXPECT_EQ(FileSize(dir.c_str(), "five"), 5u);
}

TEST(CopyFile, CopiesLargeFilesWhole)
{
    TempDir source, destination;
    std::string bytes;
    for (int i = 0; i < 3000; i++) bytes += (char)(i * 7);
    WriteFile(source / "big.dbf", bytes);
    CopyFile("big.dbf", source.c_str(), destination.c_str());
    EXPECT_EQ(ReadFile(destination / "big.dbf"), bytes);
}

TEST(CopyFile, EmptySourceGivesEmptyDestination)
{
    TempDir source, destination;
    WriteFile(source / "empty.dbf", "");
    CopyFile("empty.dbf", source.c_str(), destination.c_str());
    ASSERT_TRUE(Exists(destination / "empty.dbf"));
    EXPECT_EQ(ReadFile(destination / "empty.dbf"), "");
}

TEST(CopyFile, MissingSourceLeavesDestinationUntouched)
{
    TempDir source, destination;
    WriteFile(destination / "kept.dbf", "old");
    CopyFile("kept.dbf", source.c_str(), destination.c_str());
    EXPECT_EQ(ReadFile(destination / "kept.dbf"), "old");
    CopyFile("none.dbf", source.c_str(), destination.c_str());
    EXPECT_FALSE(Exists(destination / "none.dbf"));
}

TEST(CopyFile, SecondFormRenames)
{
    TempDir source, destination;
    WriteFile(source / "vfrchrts.dbf", "vfr");
    CopyFile("vfrchrts.dbf", "charts.dbf", source.c_str(), destination.c_str());
    EXPECT_EQ(ReadFile(destination / "charts.dbf"), "vfr");
    EXPECT_FALSE(Exists(destination / "vfrchrts.dbf"));
}

TEST(CopyFile, UnwritableDestinationIsSilentAndLeaksNothing)
{
    TempDir source;
    WriteFile(source / "a.dbf", "abc");
    int before = CountOpenDescriptors();
    CopyFile("a.dbf", source.c_str(), "/nonexistent-directory");
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(ReplaceIn, RenamesOverOrRemoves)
{
    TempDir dir;
    WriteFile(dir / "old.dbf", "old");
    WriteFile(dir / "oldNEW.dbf", "new");
    ReplaceIn(dir.c_str(), "oldNEW.dbf", "old.dbf");
    EXPECT_EQ(ReadFile(dir / "old.dbf"), "new");
    EXPECT_FALSE(Exists(dir / "oldNEW.dbf"));
    ReplaceIn(dir.c_str(), "oldNEW.dbf", "old.dbf");
    EXPECT_FALSE(Exists(dir / "old.dbf"));
}

TEST(LibraryVersion, IsNineNine)
{
    EXPECT_STREQ(TarnwickAPI_LibraryVersion(), "9.9");
    EXPECT_STREQ(TarnTermChart_LibraryVersion(), "9.9");
}

TEST(ReadFullyAt, ReadsWhatTheFileHoldsAndTellsWhyItStopped)
{
    TempDir dir;
    WriteFile(dir / "f", "0123456789");
    FilePtr file(fopen((dir / "f").c_str(), "rb"));
    ASSERT_TRUE(file);
    char bytes[16] = {0};
    int error = -1;
    EXPECT_EQ(ReadFullyAt(fileno(file.get()), bytes, 4, 3, &error), 4u);
    EXPECT_EQ(std::string(bytes, 4), "3456");
    EXPECT_EQ(error, 0);
    EXPECT_EQ(ftell(file.get()), 0);  // the stream's position is not moved
    EXPECT_EQ(ReadFullyAt(fileno(file.get()), bytes, 16, 6, &error), 4u);
    EXPECT_EQ(error, 0);  // the end of the file is no error
    EXPECT_EQ(ReadFullyAt(fileno(file.get()), bytes, 16, 50), 0u);

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(ReadFullyAt(ends[0], bytes, 4, 0, &error), 0u);
    EXPECT_EQ(error, ESPIPE);
    close(ends[0]);
    close(ends[1]);
}
