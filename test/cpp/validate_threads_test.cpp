// Validity checks from many threads at once: each caller must read the
// message about its own directory, never one written for another call.
#include <gtest/gtest.h>

#include <stdio.h>
#include <sys/stat.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tarntermchart.h"
#include "test_util.h"

namespace {

struct MissingOne {
    std::string dir, expected;
};

TEST(ValidateThreads, EveryCallerReadsTheMessageOfItsOwnDirectory)
{
    // One directory per required file, each lacking just that file, so
    // every directory has a message of its own.
    TempDir root;
    std::vector<MissingOne> dirs;
    for (const char *name : kRequiredFileNames) {
        std::string dir = root / (std::string("lacks-") + name);
        ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
        WriteRequiredFiles(dir);
        ASSERT_EQ(remove((dir + "/" + name).c_str()), 0);
        dirs.push_back({dir, std::string("Missing file ") + name});
    }

    constexpr int kThreads = 8;
    constexpr int kRounds = 3000;
    std::atomic<int> wrong{0}, calls{0};
    std::atomic<bool> go{false};
    std::string firstWrong;
    std::atomic<bool> recorded{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; t++) {
        threads.emplace_back([&, t] {
            while (!go.load()) std::this_thread::yield();
            for (int i = 0; i < kRounds; i++) {
                const MissingOne &d = dirs[(t * 5 + i) % dirs.size()];
                const char *message = TarnTermChart_IsValidChartDirectory(d.dir.c_str());
                // Copied at once, as the binding does.
                std::string copy = message ? message : "(none)";
                calls++;
                if (copy != d.expected) {
                    wrong++;
                    if (!recorded.exchange(true)) firstWrong = copy + " instead of " + d.expected;
                }
            }
        });
    }
    go = true;
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(calls.load(), kThreads * kRounds);
    EXPECT_EQ(wrong.load(), 0) << firstWrong;
}

TEST(ValidateThreads, AMessageStaysValidUntilTheNextCallOnTheSameThread)
{
    TempDir a, b;
    WriteRequiredFiles(a.path());
    WriteRequiredFiles(b.path());
    ASSERT_EQ(remove((a / "charts.ini").c_str()), 0);
    ASSERT_EQ(remove((b / "state.dbf").c_str()), 0);

    const char *first = TarnTermChart_IsValidChartDirectory(a.c_str());
    ASSERT_STREQ(first, "Missing file charts.ini");
    // A call on another thread leaves this thread's message alone.
    std::thread other([&] {
        EXPECT_STREQ(TarnTermChart_IsValidChartDirectory(b.c_str()), "Missing file state.dbf");
    });
    other.join();
    EXPECT_STREQ(first, "Missing file charts.ini");
}

}  // namespace
