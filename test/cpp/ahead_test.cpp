// Work done ahead of its turn: the checks, the unnamed file and the thread.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "api/ahead.h"
#include "fork_util.h"
#include "test_util.h"

TEST(AheadIsSafe, TwoPlainDirectoriesWithRoom)
{
    TempDir source, destination;
    WriteFile(source / "charts.bin", std::string(1000, 'x'));
    EXPECT_TRUE(AheadIsSafe(source.c_str(), destination.c_str()));
}

TEST(AheadIsSafe, NotIntoItsOwnSource)
{
    TempDir source;
    EXPECT_FALSE(AheadIsSafe(source.c_str(), source.c_str()));
    EXPECT_FALSE(AheadIsSafe(source.c_str(), (source.path() + "/.").c_str()));
}

TEST(AheadIsSafe, NotWithASymbolicLinkInTheDestination)
{
    TempDir source, destination;
    ASSERT_EQ(symlink("/nowhere", (destination / "notams.dbt").c_str()), 0);
    EXPECT_FALSE(AheadIsSafe(source.c_str(), destination.c_str()));
    // Links in the source do no harm: nothing is written there.
    TempDir plain;
    ASSERT_EQ(symlink("/nowhere", (source / "link").c_str()), 0);
    EXPECT_TRUE(AheadIsSafe(source.c_str(), plain.c_str()));
}

TEST(AheadIsSafe, NotUnderAFileSizeLimit)
{
    TempDir source, destination;
    EXPECT_EQ(RunInChild([&] {
                  LimitFileSize(1ull << 40);
                  return AheadIsSafe(source.c_str(), destination.c_str()) ? 1 : 0;
              }),
              0);
}

TEST(AheadIsSafe, NotWhereADirectoryCannotBeRead)
{
    TempDir source, destination;
    EXPECT_FALSE(AheadIsSafe((source / "none").c_str(), destination.c_str()));
    EXPECT_FALSE(AheadIsSafe(source.c_str(), (destination / "none").c_str()));
}

TEST(SingleNamed, PlainFilesWithOneNameOrNone)
{
    TempDir dir;
    WriteFile(dir / "one", "1");
    WriteFile(dir / "two", "2");
    ASSERT_EQ(link((dir / "two").c_str(), (dir / "second").c_str()), 0);
    ASSERT_EQ(symlink("one", (dir / "link").c_str()), 0);
    ASSERT_EQ(mkdir((dir / "sub").c_str(), 0755), 0);
    EXPECT_TRUE(SingleNamed(dir.c_str(), "one"));
    EXPECT_TRUE(SingleNamed(dir.c_str(), "absent"));
    EXPECT_FALSE(SingleNamed(dir.c_str(), "two"));
    EXPECT_FALSE(SingleNamed(dir.c_str(), "link"));
    EXPECT_FALSE(SingleNamed(dir.c_str(), "sub"));
    EXPECT_TRUE(NameIsFree(dir.c_str(), "absent"));
    EXPECT_FALSE(NameIsFree(dir.c_str(), "one"));
    ASSERT_EQ(symlink("/nowhere", (dir / "dangling").c_str()), 0);
    EXPECT_FALSE(NameIsFree(dir.c_str(), "dangling"));
}

TEST(UnnamedFile, WrittenThenNamed)
{
    TempDir dir;
    const int descriptors = CountOpenDescriptors();
    {
        UnnamedFile file;
        EXPECT_FALSE(file.Made());
        FILE *out = file.Create(dir.c_str());
        ASSERT_NE(out, nullptr);
        EXPECT_TRUE(file.Made());
        fputs("the bytes", out);
        ASSERT_EQ(fclose(out), 0);  // the file stays
        EXPECT_TRUE(ListDir(dir.path()).empty());
        EXPECT_TRUE(file.Name((dir / "named").c_str()));
        EXPECT_FALSE(file.Made());
    }
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    EXPECT_EQ(ReadFile(dir / "named"), "the bytes");
    struct stat st;
    ASSERT_EQ(stat((dir / "named").c_str(), &st), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(st.st_mode & 0777, 0666 & ~mask);
}

TEST(UnnamedFile, ATakenNameLeavesTheOtherFileAlone)
{
    TempDir dir;
    WriteFile(dir / "named", "older");
    const int descriptors = CountOpenDescriptors();
    UnnamedFile file;
    FILE *out = file.Create(dir.c_str());
    ASSERT_NE(out, nullptr);
    fputs("newer", out);
    fclose(out);
    EXPECT_FALSE(file.Name((dir / "named").c_str()));
    EXPECT_FALSE(file.Made());
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    EXPECT_EQ(ReadFile(dir / "named"), "older");
    EXPECT_EQ(ListDir(dir.path()), std::vector<std::string>{"named"});
}

TEST(UnnamedFile, DiscardedOrNeverMade)
{
    TempDir dir;
    const int descriptors = CountOpenDescriptors();
    UnnamedFile file;
    FILE *out = file.Create(dir.c_str());
    ASSERT_NE(out, nullptr);
    fclose(out);
    file.Discard();
    EXPECT_FALSE(file.Made());
    EXPECT_FALSE(file.Name((dir / "named").c_str()));
    EXPECT_EQ(CountOpenDescriptors(), descriptors);
    EXPECT_TRUE(ListDir(dir.path()).empty());
    EXPECT_EQ(file.Create((dir / "none").c_str()), nullptr);
    EXPECT_FALSE(file.Made());
}

namespace {

struct Waiting {
    AheadThread thread;
    int answer = -1;
};

void *WaitThenAnswer(void *context)
{
    Waiting &w = *(Waiting *)context;
    w.answer = AheadThread::WaitForWord(&w.thread) ? 1 : 0;
    return nullptr;
}

}  // namespace

TEST(AheadThread, WorkWaitsForTheWord)
{
    Waiting go;
    ASSERT_TRUE(go.thread.Start(WaitThenAnswer, &go));
    go.thread.Tell(true);
    go.thread.Tell(false);  // the first word counts
    go.thread.Join(true);
    EXPECT_EQ(go.answer, 1);

    Waiting never;
    ASSERT_TRUE(never.thread.Start(WaitThenAnswer, &never));
    never.thread.Join(false);  // never told: gives up
    EXPECT_EQ(never.answer, 0);
    never.thread.Join(false);  // joined once only

    Waiting early;
    early.thread.Tell(true);  // said before the work asks
    ASSERT_TRUE(early.thread.Start(WaitThenAnswer, &early));
}  // joined when it goes
