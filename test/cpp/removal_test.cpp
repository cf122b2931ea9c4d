// Files removed with their giving back left to a thread: the name goes at
// once, remove()'s result and errno stand, and no descriptor is left once
// the removals are waited for.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "platform/removal.h"
#include "bundle_writer.h"
#include "chart_directory.h"
#include "fork_util.h"
#include "tarntermchart.h"
#include "test_util.h"

namespace {

// Sets the size from which files are removed in the background for one
// test, and waits for every removal before putting the old size back.
struct BackgroundFrom {
    uint64_t saved;
    explicit BackgroundFrom(uint64_t bytes) : saved(RemovedInBackgroundBytes())
    {
        WaitForRemovedFiles();
        SetRemovedInBackgroundBytes(bytes);
    }
    ~BackgroundFrom()
    {
        WaitForRemovedFiles();
        SetRemovedInBackgroundBytes(saved);
    }
};

TEST(Removal, LargeFileLosesItsNameAtOnceAndItsDescriptorAfterTheWait)
{
    BackgroundFrom from(64);
    TempDir dir;
    WriteFile(dir / "big.bin", std::string(1000, 'x'));
    const int descriptors = CountOpenDescriptors();
    const uint64_t count = RemovedInBackgroundCount();

    EXPECT_EQ(RemoveFile((dir / "big.bin").c_str()), 0);
    EXPECT_FALSE(Exists(dir / "big.bin"));
    WaitForRemovedFiles();
    EXPECT_EQ(RemovedInBackgroundCount(), count + 1);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
}

TEST(Removal, SmallFileIsRemovedAsRemoveDoes)
{
    BackgroundFrom from(64);
    TempDir dir;
    WriteFile(dir / "small.bin", std::string(63, 'x'));
    const uint64_t count = RemovedInBackgroundCount();
    EXPECT_EQ(RemoveFile((dir / "small.bin").c_str()), 0);
    EXPECT_FALSE(Exists(dir / "small.bin"));
    WaitForRemovedFiles();
    EXPECT_EQ(RemovedInBackgroundCount(), count);
}

TEST(Removal, FileWithASecondNameKeepsItAndIsRemovedAsRemoveDoes)
{
    BackgroundFrom from(1);
    TempDir dir;
    WriteFile(dir / "a.bin", "the bytes");
    ASSERT_EQ(link((dir / "a.bin").c_str(), (dir / "b.bin").c_str()), 0);
    const uint64_t count = RemovedInBackgroundCount();
    EXPECT_EQ(RemoveFile((dir / "a.bin").c_str()), 0);
    EXPECT_FALSE(Exists(dir / "a.bin"));
    EXPECT_EQ(ReadFile(dir / "b.bin"), "the bytes");
    WaitForRemovedFiles();
    EXPECT_EQ(RemovedInBackgroundCount(), count);
}

TEST(Removal, MissingFileFailsWithRemovesErrno)
{
    BackgroundFrom from(1);
    TempDir dir;
    errno = 0;
    EXPECT_EQ(RemoveFile((dir / "absent.bin").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(Removal, LinkIsRemovedAndItsTargetKept)
{
    BackgroundFrom from(1);
    TempDir dir;
    WriteFile(dir / "target.bin", std::string(1000, 'x'));
    ASSERT_EQ(symlink("target.bin", (dir / "link.bin").c_str()), 0);
    const uint64_t count = RemovedInBackgroundCount();
    EXPECT_EQ(RemoveFile((dir / "link.bin").c_str()), 0);
    EXPECT_EQ(ListDir(dir.path()), std::vector<std::string>{"target.bin"});
    EXPECT_EQ(ReadFile(dir / "target.bin"), std::string(1000, 'x'));
    WaitForRemovedFiles();
    EXPECT_EQ(RemovedInBackgroundCount(), count);
}

TEST(Removal, EmptyDirectoryIsRemovedAsRemoveDoes)
{
    BackgroundFrom from(1);
    TempDir dir;
    ASSERT_EQ(mkdir((dir / "sub").c_str(), 0755), 0);
    EXPECT_EQ(RemoveFile((dir / "sub").c_str()), 0);
    EXPECT_FALSE(Exists(dir / "sub"));
}

TEST(Removal, ReadOnlyDirectoryKeepsTheFileAndNoDescriptor)
{
    BackgroundFrom from(1);
    TempDir dir;
    ASSERT_EQ(chmod(dir.c_str(), 0755), 0);
    WriteFile(dir / "kept.bin", std::string(1000, 'x'));
    ASSERT_EQ(chmod((dir / "kept.bin").c_str(), 0644), 0);
    const std::string path = dir / "kept.bin";
    int result = RunInChild([&] {
        DropPrivileges();
        const int descriptors = CountOpenDescriptors();
        errno = 0;
        if (RemoveFile(path.c_str()) != -1) return 1;
        if (errno != EACCES) return 2;
        WaitForRemovedFiles();
        return CountOpenDescriptors() == descriptors ? 0 : 3;
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(ReadFile(path), std::string(1000, 'x'));
}

TEST(Removal, FilesBeyondTheThreadsAtOnceAreRemovedByTheCaller)
{
    BackgroundFrom from(1);
    TempDir dir;
    const int descriptors = CountOpenDescriptors();
    const uint64_t count = RemovedInBackgroundCount();
    for (int i = 0; i < 20; i++) {
        std::string path = dir / ("f" + std::to_string(i));
        WriteFile(path, "bytes");
        EXPECT_EQ(RemoveFile(path.c_str()), 0);
    }
    EXPECT_EQ(ListDir(dir.path()), std::vector<std::string>{});
    WaitForRemovedFiles();
    EXPECT_EQ(RemovedInBackgroundCount(), count + 16);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
}

TEST(Removal, WaitersAtOnceAllReturnAfterTheRemovals)
{
    BackgroundFrom from(1);
    TempDir dir;
    const int descriptors = CountOpenDescriptors();
    for (int i = 0; i < 8; i++) {
        std::string path = dir / ("f" + std::to_string(i));
        WriteFile(path, "bytes");
        ASSERT_EQ(RemoveFile(path.c_str()), 0);
    }
    std::thread first(WaitForRemovedFiles);
    std::thread second(WaitForRemovedFiles);
    WaitForRemovedFiles();
    first.join();
    second.join();
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
}

TEST(Removal, ForkedChildForgetsTheParentsThreads)
{
    BackgroundFrom from(1);
    TempDir dir;
    WriteFile(dir / "a.bin", "bytes");
    WriteFile(dir / "b.bin", "bytes");
    const size_t threads = ListDir("/proc/self/task").size();
    ASSERT_EQ(RemoveFile((dir / "a.bin").c_str()), 0);
    // The thread is let finish but not joined: a child forked while a
    // thread runs may find the allocator's locks held (under sanitizers).
    for (int i = 0; i < 5000 && ListDir("/proc/self/task").size() > threads; i++) usleep(1000);
    ASSERT_EQ(ListDir("/proc/self/task").size(), threads);
    const std::string other = dir / "b.bin";
    // The child cannot join threads it does not have: its wait returns,
    // and its own removals go to threads of its own.
    int result = RunInChild([&] {
        WaitForRemovedFiles();
        const uint64_t count = RemovedInBackgroundCount();
        if (RemoveFile(other.c_str()) != 0) return 1;
        WaitForRemovedFiles();
        return RemovedInBackgroundCount() == count + 1 ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(Exists(dir / "b.bin"));
}

void WriteMergeDirectory(const std::string &dir)
{
    SampleDirectory::Default().Write(dir);
    WriteChartsBin(dir + "/charts.bin",
                   ChartsOf({"CYYZ10-9", "KAAA10-9", "KAAA11-1", "KBBB10-9", "KCCC10-9"}, "2460000.5"));
    WriteChartsBin(dir + "/vfrcharts.bin", ChartsOf({"KBBBVFR", "KVV1VFR", "KVV2VFR"}, "2460000.5"));
    WriteChartsBin(dir + "/2501_charts.bin", ChartsOf({"KAAA10-9"}, "2460001.5"));
    WriteChartsBin(dir + "/2501_vfrcharts.bin", ChartsOf({"KVV1VFR"}, "2460001.5"));
}

TEST(Removal, MergeLeavesTheSameFilesWithOldOnesRemovedInTheBackground)
{
    TempDir plain, background;
    WriteMergeDirectory(plain.path());
    WriteMergeDirectory(background.path());
    ASSERT_EQ(TarnTermChart_Merge(plain.c_str(), nullptr, nullptr), 0);

    BackgroundFrom from(1);
    const int descriptors = CountOpenDescriptors();
    const uint64_t count = RemovedInBackgroundCount();
    ASSERT_EQ(TarnTermChart_Merge(background.c_str(), nullptr, nullptr), 0);
    // The next call that writes waits for the removals first.
    EXPECT_GE(TarnTermChart_DumpDBF((background / "charts.dbf").c_str(), (plain / "dump.txt").c_str()), 0);
    EXPECT_GT(RemovedInBackgroundCount(), count);
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    ASSERT_EQ(remove((plain / "dump.txt").c_str()), 0);

    std::vector<std::string> names = ListDir(plain.path());
    EXPECT_EQ(ListDir(background.path()), names);
    for (const std::string &name : names) EXPECT_EQ(ReadFile(background / name), ReadFile(plain / name)) << name;
}

}  // namespace
