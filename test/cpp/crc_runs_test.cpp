// The checksum of byte ranges of a file, worked out on a second thread.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bundle/crc.h"
#include "bundle/crc_runs.h"
#include "bundle_writer.h"
#include "test_util.h"

namespace {

std::string Concatenated(const std::string &data, const std::vector<ByteRun> runs)
{
    std::string out;
    for (const ByteRun &run : runs) out += data.substr(run.offset, run.size);
    return out;
}

struct Descriptor {
    int fd;
    explicit Descriptor(const std::string &path) : fd(open(path.c_str(), O_RDONLY)) {}
    ~Descriptor() { if (fd >= 0) close(fd); }
};

}  // namespace

TEST(RunChecksum, RangesInAnyOrderAcrossReadBlocks)
{
    TempDir dir;
    const std::string data = RandomBytes(3 * kCrcFileBlock + 77, 4);
    WriteFile(dir / "f", data);
    Descriptor file(dir / "f");
    ASSERT_GE(file.fd, 0);
    const std::vector<std::vector<ByteRun>> cases = {
        {},
        {{0, data.size()}},
        {{5, 10}, {0, 5}, {kCrcFileBlock - 3, 2 * kCrcFileBlock + 80}},
        {{100, 0}, {data.size() - 1, 1}, {7, 7}, {7, 7}},
    };
    for (const std::vector<ByteRun> &runs : cases) {
        RunChecksum sum;
        ASSERT_TRUE(sum.Start(file.fd, runs));
        uint32_t crc = 0x12345678u;
        ASSERT_TRUE(sum.Finish(&crc));
        const std::string bytes = Concatenated(data, runs);
        EXPECT_EQ(crc, TarnCrcUpdate(0, bytes.data(), bytes.size())) << runs.size();
    }
}

TEST(RunChecksum, ARangePastTheEndOrABadDescriptorFails)
{
    TempDir dir;
    WriteFile(dir / "f", std::string(1000, 'x'));
    Descriptor file(dir / "f");
    const std::vector<ByteRun> past = {{0, 10}, {990, 11}};
    RunChecksum sum;
    ASSERT_TRUE(sum.Start(file.fd, past));
    uint32_t crc;
    EXPECT_FALSE(sum.Finish(&crc));
    const std::vector<ByteRun> some = {{0, 10}};
    RunChecksum closed;
    ASSERT_TRUE(closed.Start(-1, some));
    EXPECT_FALSE(closed.Finish(&crc));
}

TEST(RunChecksum, NothingStartedIsNoChecksum)
{
    RunChecksum sum;
    uint32_t crc = 7;
    EXPECT_FALSE(sum.Finish(&crc));
    EXPECT_EQ(crc, 7u);
}

// A second start while one runs is refused; after Finish it may start again.
TEST(RunChecksum, OneComputationAtATime)
{
    TempDir dir;
    const std::string data = RandomBytes(100000, 6);
    WriteFile(dir / "f", data);
    Descriptor file(dir / "f");
    const std::vector<ByteRun> first = {{0, 1000}}, second = {{1000, 5000}};
    RunChecksum sum;
    ASSERT_TRUE(sum.Start(file.fd, first));
    EXPECT_FALSE(sum.Start(file.fd, second));
    uint32_t crc;
    ASSERT_TRUE(sum.Finish(&crc));
    EXPECT_EQ(crc, TarnCrcUpdate(0, data.data(), 1000));
    ASSERT_TRUE(sum.Start(file.fd, second));
    ASSERT_TRUE(sum.Finish(&crc));
    EXPECT_EQ(crc, TarnCrcUpdate(0, data.data() + 1000, 5000));
}

// Destroyed without Finish, it waits for its thread: nothing is left running
// on a descriptor the caller is about to close.
TEST(RunChecksum, DestroyedUnfinishedItWaits)
{
    TempDir dir;
    WriteFile(dir / "f", RandomBytes(4 * kCrcFileBlock, 5));
    for (int i = 0; i < 20; i++) {
        Descriptor file(dir / "f");
        const std::vector<ByteRun> runs = {{0, 4u * kCrcFileBlock}};
        RunChecksum sum;
        ASSERT_TRUE(sum.Start(file.fd, runs));
    }
}
