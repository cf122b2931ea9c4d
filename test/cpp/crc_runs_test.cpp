// Runs of blobs: their checksum worked out on a second thread, the read
// window of runs passing through memory, the choice between the two ways,
// and copies that must leave the same files whichever way they go.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bundle/blob.h"
#include "bundle/chartsbin.h"
#include "bundle/crc.h"
#include "bundle/crc_runs.h"
#include "bundle/runcopy.h"
#include "bundle_writer.h"
#include "combine/combine.h"
#include "fork_util.h"
#include "subset/subset.h"
#include "subset_fixture.h"
#include "test_util.h"

namespace {

std::string Concatenated(const std::string &data, const std::vector<ByteRun> &runs)
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

// A file of the given bytes in a directory of its own, open for reading.
struct OpenFile {
    TempDir dir;
    std::string data;
    Descriptor file;
    explicit OpenFile(const std::string &bytes) : data(bytes), file((WriteFile(dir / "f", bytes), dir / "f")) {}
};

}  // namespace

TEST(RunChecksum, RangesInAnyOrderAcrossReadBlocks)
{
    OpenFile f(RandomBytes(3 * kCrcFileBlock + 77, 4));
    const std::string &data = f.data;
    const Descriptor &file = f.file;
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
    OpenFile f(std::string(1000, 'x'));
    const Descriptor &file = f.file;
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
    OpenFile f(RandomBytes(100000, 6));
    const std::string &data = f.data;
    const Descriptor &file = f.file;
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

namespace {

bool Collect(void *context, const unsigned char *data, size_t n)
{
    ((std::string *)context)->append((const char *)data, n);
    return true;
}

bool Refuse(void *, const unsigned char *, size_t) { return false; }

// Passes every run through a window over fd; the codes in order.
std::vector<BlobResult> PassAll(int fd, const std::vector<ByteRun> &runs, std::string *out)
{
    RunWindow window(fd, runs);
    EXPECT_TRUE(window.Prepare());
    std::vector<BlobResult> results;
    for (size_t i = 0; i < runs.size(); i++) results.push_back(window.Pass(i, Collect, out));
    return results;
}

// A source file opened for reading and a new output file beside it, with
// the output's buffer given when the runs are to pass through memory.
struct CopyFiles {
    FilePtr in;
    MallocPtr<char> buffer;  // outlives out
    FilePtr out;

    CopyFiles(const std::string &dir, bool throughMemory)
        : in(fopen((dir + "/in").c_str(), "rb")), out(fopen((dir + "/out").c_str(), "wb"))
    {
        if (!throughMemory || !out) return;
        buffer.reset((char *)malloc(kBlobChunk));
        if (buffer && setvbuf(out.get(), buffer.get(), _IOFBF, kBlobChunk) != 0) buffer.reset();
    }
    bool Ready(bool throughMemory) const { return in && out && (!throughMemory || buffer); }
};

}  // namespace

TEST(RunsPassThroughMemory, RunsShorterThan16KiBOnAverage)
{
    const uint64_t k = 16 * 1024;
    EXPECT_FALSE(RunsPassThroughMemory(0, 0));
    EXPECT_TRUE(RunsPassThroughMemory(3 * k - 1, 3));
    EXPECT_FALSE(RunsPassThroughMemory(3 * k, 3));
    EXPECT_TRUE(RunsPassThroughMemory(std::vector<ByteRun>{{0, 10}, {100, 2 * k - 11}}));
    EXPECT_FALSE(RunsPassThroughMemory(std::vector<ByteRun>{{0, k}, {100, k + 1}}));
    RunsForceKernelCopy(true);
    EXPECT_FALSE(RunsPassThroughMemory(1, 1));
    RunsForceKernelCopy(false);
    EXPECT_TRUE(RunsPassThroughMemory(1, 1));
}

TEST(RunWindow, GivesEveryRunsBytesInAnyLayout)
{
    OpenFile f(RandomBytes(4 * kBlobChunk + 123, 5));
    const std::string &data = f.data;
    const Descriptor &file = f.file;
    ASSERT_GE(file.fd, 0);
    const uint64_t gap = RunWindow::kWindowGap;
    std::vector<std::vector<ByteRun>> cases = {
        {},
        // Close together: one window holds them.
        {{0, 100}, {100, 50}, {200, 10}, {300 + gap, 5}},
        // Gaps of exactly the limit and one byte more.
        {{10, 10}, {20 + gap, 10}, {30 + 2 * gap + 1, 10}},
        // Runs that reach past the window's end, and one longer than it.
        {{0, kBlobChunk - 10}, {kBlobChunk - 5, 20}, {kBlobChunk + 20, 2 * kBlobChunk + 7}, {3 * kBlobChunk + 30, 1}},
        // Backwards, repeated, empty and overlapping runs, and the file's last byte.
        {{500, 10}, {400, 10}, {400, 10}, {405, 100}, {50, 0}, {data.size() - 1, 1}, {0, 1}},
        // A run of the whole file.
        {{0, data.size()}},
    };
    // Two streams taken in turns, far apart in the file: one window each.
    std::vector<ByteRun> streams;
    for (uint64_t k = 0; k < 300; k++) {
        streams.push_back({k * 3000, 2000});
        if (k % 3 == 0) streams.push_back({3 * kBlobChunk + k * 500, 500});
    }
    cases.push_back(streams);
    for (const std::vector<ByteRun> &runs : cases) {
        std::string out;
        const std::vector<BlobResult> results = PassAll(file.fd, runs, &out);
        for (BlobResult r : results) EXPECT_EQ(r, kBlobDone);
        EXPECT_TRUE(out == Concatenated(data, runs)) << runs.size();
    }
}

TEST(RunWindow, ARunPastTheEndOfTheFileIsAShortReadAndGivesNothing)
{
    OpenFile f(RandomBytes(5000, 6));
    const std::string &data = f.data;
    const Descriptor &file = f.file;
    // The window for the first run takes in the second, which the file ends in.
    const std::vector<ByteRun> runs = {{0, 100}, {4990, 20}, {200, 10}, {6000, 5}, {2 * kBlobChunk, 3 * kBlobChunk}};
    std::string out;
    const std::vector<BlobResult> results = PassAll(file.fd, runs, &out);
    EXPECT_EQ(results, (std::vector<BlobResult>{kBlobDone, kBlobShortRead, kBlobDone, kBlobShortRead, kBlobShortRead}));
    EXPECT_TRUE(out == data.substr(0, 100) + data.substr(200, 10));
}

TEST(RunWindow, ALongRunEndingShortGivesItsWholeChunksFirst)
{
    OpenFile f(RandomBytes(kBlobChunk + 500, 8));
    const std::string &data = f.data;
    const Descriptor &file = f.file;
    std::string out;
    EXPECT_EQ(PassAll(file.fd, {{0, 2 * kBlobChunk}}, &out), (std::vector<BlobResult>{kBlobShortRead}));
    EXPECT_TRUE(out == data.substr(0, kBlobChunk));
}

TEST(RunWindow, APipeCannotBeReadAtAPositionAndARefusingSinkStops)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::vector<ByteRun> runs = {{0, 10}};
    {
        std::string out;
        EXPECT_EQ(PassAll(ends[0], runs, &out), (std::vector<BlobResult>{kBlobSeekFailed}));
    }
    close(ends[0]);
    close(ends[1]);

    OpenFile f(std::string(100, 'x'));
    const Descriptor &file = f.file;
    RunWindow window(file.fd, runs);
    ASSERT_TRUE(window.Prepare());
    EXPECT_EQ(window.Pass(0, Refuse, nullptr), kBlobShortWrite);
    // Served from the window now, and refused again.
    EXPECT_EQ(window.Pass(0, Refuse, nullptr), kBlobShortWrite);
}

TEST(RunCopy, BothWaysWriteTheSameBytesAndChecksum)
{
    TempDir dir;
    const std::string data = RandomBytes(3 * kBlobChunk, 9);
    WriteFile(dir / "in", data);
    const std::vector<ByteRun> runs = {{7, 100}, {200, 3000}, {5000, kBlobChunk + 5}, {0, 7}, {kBlobChunk * 2, 10}};
    const std::string expected = Concatenated(data, runs);
    for (bool throughMemory : {false, true}) {
        SCOPED_TRACE(throughMemory ? "through memory" : "kernel copy");
        CopyFiles files(dir.path(), throughMemory);
        ASSERT_TRUE(files.Ready(throughMemory));
        uint32_t crc = 1;
        {
            RunCopy copy(files.in.get(), StreamLength(files.in.get()), runs, files.out.get());
            EXPECT_FALSE(copy.Finish(&crc));  // not started
            fputs("head", files.out.get());
            copy.Start(throughMemory);
            for (size_t i = 0; i < runs.size(); i++) EXPECT_EQ(copy.Copy(i), kBlobDone);
            EXPECT_TRUE(copy.Flush());
            ASSERT_TRUE(copy.Finish(&crc));
        }
        ASSERT_EQ(fclose(files.out.release()), 0);
        EXPECT_TRUE(ReadFile(dir / "out") == "head" + expected);
        EXPECT_EQ(crc, TarnCrcUpdate(0, expected.data(), expected.size()));
    }
}

TEST(RunCopy, ARunTheSourceNoLongerHoldsIsCopiedAsFarAsItGoes)
{
    TempDir dir;
    const std::string data = RandomBytes(10000, 10);
    const std::vector<ByteRun> runs = {{0, 1000}, {9000, 1000}, {3000, 10}};
    // The source shrinks after the runs were planned.
    for (bool throughMemory : {false, true}) {
        SCOPED_TRACE(throughMemory ? "through memory" : "kernel copy");
        WriteFile(dir / "in", data);
        CopyFiles files(dir.path(), throughMemory);
        ASSERT_TRUE(files.Ready(throughMemory));
        RunCopy copy(files.in.get(), StreamLength(files.in.get()), runs, files.out.get());
        copy.Start(throughMemory);
        ASSERT_EQ(truncate((dir / "in").c_str(), 9500), 0);
        EXPECT_EQ(copy.Copy(0), kBlobDone);
        EXPECT_EQ(copy.Copy(1), kBlobShortRead);
        EXPECT_EQ(copy.Copy(2), kBlobDone);
        EXPECT_TRUE(copy.Flush());
        uint32_t crc;
        EXPECT_FALSE(copy.Finish(&crc));
        ASSERT_EQ(fclose(files.out.release()), 0);
        EXPECT_TRUE(ReadFile(dir / "out") == data.substr(0, 1000) + data.substr(9000, 500) + data.substr(3000, 10));
    }
}

namespace {

// A bundle of count entries with blobs of different sizes, laid out with a
// few bytes between them, so that each blob is a run of its own.
FixtureBundle Spaced(int count, uint32_t seed)
{
    FixtureBundle bundle;
    bundle.between = "--";
    for (int i = 0; i < count; i++) {
        char name[16];
        snprintf(name, sizeof name, "C%03d.PDF", i);
        bundle.entries.push_back({name, RandomBytes(700 + 131 * (size_t)i, seed + (uint32_t)i), (uint32_t)i});
    }
    return bundle;
}

// The files an operation leaves in a fresh directory, and its code, under a
// limit on the size of files (0: none), with the kernel copy forced or not.
struct Outcome {
    int code;
    std::vector<std::pair<std::string, std::string>> files;
    bool operator==(const Outcome &o) const { return code == o.code && files == o.files; }
};

template <typename Prepare, typename Operation>
Outcome RunUnderLimit(uint64_t limit, bool kernel, Prepare prepare, Operation operation)
{
    TempDir out;
    prepare(out.path());
    Outcome outcome;
    outcome.code = RunInChild([&] {
        RunsForceKernelCopy(kernel);
        if (limit) LimitFileSize(limit);
        return -operation(out.path());
    });
    for (const std::string &name : ListDir(out.path())) outcome.files.push_back({name, ReadFile(out / name)});
    return outcome;
}

// Runs the operation whole, then cut at points from the header to past the
// end of the bundle it writes, once each way: the codes and files agree.
template <typename Prepare, typename Operation>
void ExpectBothWaysAlike(Prepare prepare, Operation operation)
{
    const Outcome whole = RunUnderLimit(0, false, prepare, operation);
    ASSERT_EQ(whole.code, 0);
    std::string bundle;
    for (const auto &[name, bytes] : whole.files)
        if (name == "charts.bin") bundle = bytes;
    ASSERT_FALSE(bundle.empty());
    uint32_t stored;
    memcpy(&stored, bundle.data(), 4);
    EXPECT_EQ(stored, ReferenceBundleCrc(bundle));
    EXPECT_TRUE(RunUnderLimit(0, true, prepare, operation) == whole);

    int cut = 0;
    for (uint64_t limit = 10; limit <= bundle.size() + 100; limit += bundle.size() / 29 + 1) {
        SCOPED_TRACE("limit " + std::to_string(limit));
        const Outcome kernel = RunUnderLimit(limit, true, prepare, operation);
        const Outcome memory = RunUnderLimit(limit, false, prepare, operation);
        EXPECT_EQ(memory.code, kernel.code);
        EXPECT_TRUE(memory == kernel);
        if (kernel.code != 0 || kernel.files != whole.files) cut++;
    }
    EXPECT_GT(cut, 10);
}

}  // namespace

TEST(RunCopy, ASubsetBundleIsTheSameEitherWayAtEveryCut)
{
    TempDir source;
    FixtureBundle bundle = Spaced(40, 3);
    WriteChartsBin(source / "charts.bin", bundle);
    // Every other chart, so that the kept blobs lie apart.
    std::vector<DbfRecord> records;
    for (int i = 0; i < 40; i += 2) records.push_back({"KAAA", "10-1", bundle.entries[i].name.substr(0, 4)});
    const std::string chartTable = DbfTable(kSubsetChartFields, records);
    ExpectBothWaysAlike([&](const std::string &destination) { WriteFile(destination + "/charts.dbf", chartTable); },
                        [&](const std::string &destination) {
                            return CreateSubsetChartsBin((source / "charts.bin").c_str(), destination.c_str());
                        });
}

TEST(RunCopy, ACombinedBundleIsTheSameEitherWayAtEveryCut)
{
    TempDir source;
    WriteChartsBin(source / "charts.bin", Spaced(30, 1));
    FixtureBundle vfr = Spaced(20, 50);
    vfr.between.clear();  // one run
    WriteChartsBin(source / "vfrcharts.bin", vfr);
    ExpectBothWaysAlike([](const std::string &) {},
                        [&](const std::string &destination) {
                            return MergeChartsBin(source.c_str(), destination.c_str());
                        });
}
