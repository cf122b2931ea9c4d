// The area subset of a generated chart directory to a box holding about a
// quarter of it, beside a plain `cp` of the files the subset writes.
//
// Sizes: TARN_BENCH_SCALE airports (default 4,000; 40,000 makes about
// 300,000 chart records) and TARN_BENCH_BYTES bundle bytes (default 50 MB;
// 500 MB goes with 40,000 airports).  Each size is run at a quarter, a half
// and the whole of that, so growth with the directory's size shows.
//
// Counters: subset_ms and cp_ms (the copy of the destination's files,
// measured in the same iteration), ratio = subset / cp, us_per_airport.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "subset_directory.h"
#include "tarntermchart.h"
#include "bench_util.h"

extern char **environ;

namespace {

std::vector<std::string> Entries(const std::string &dir)
{
    std::vector<std::string> names;
    if (DIR *d = opendir(dir.c_str())) {
        while (struct dirent *e = readdir(d)) {
            std::string name = e->d_name;
            if (name != "." && name != "..") names.push_back(name);
        }
        closedir(d);
    }
    return names;
}

void Empty(const std::string &dir)
{
    for (const std::string &name : Entries(dir)) unlink((dir + "/" + name).c_str());
}

uint64_t Bytes(const std::string &dir)
{
    uint64_t total = 0;
    struct stat st;
    for (const std::string &name : Entries(dir))
        if (stat((dir + "/" + name).c_str(), &st) == 0) total += (uint64_t)st.st_size;
    return total;
}

double Since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Seconds a `cp` of every file of from into to takes, process start included.
double TimeCopy(const std::string &from, const std::string &to)
{
    std::vector<std::string> args = {"cp"};
    for (const std::string &name : Entries(from)) args.push_back(from + "/" + name);
    args.push_back(to + "/");
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    auto start = std::chrono::steady_clock::now();
    pid_t pid;
    if (posix_spawnp(&pid, "cp", nullptr, nullptr, argv.data(), environ) != 0) return -1;
    int status = 0;
    waitpid(pid, &status, 0);
    double seconds = Since(start);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? seconds : -1;
}

// A generated source directory with an empty destination and copy target
// beside it; removed again when the next size replaces it.
struct Workspace {
    std::string root, source, destination, copy;
    BenchDirectoryStats stats;
    uint32_t airports = 0;

    Workspace(uint32_t airports, uint64_t bundleBytes) : airports(airports)
    {
        root = MakeBenchDirectory("subset");
        source = root + "/source";
        destination = root + "/destination";
        copy = root + "/copy";
        for (const std::string &d : {source, destination, copy}) mkdir(d.c_str(), 0755);
        stats = WriteBenchDirectory(source, {airports, bundleBytes}, 20250612);
        // The generated files are written back now rather than while the
        // subset and the copy are timed.
        sync();
    }
    ~Workspace()
    {
        for (const std::string &d : {source, destination, copy}) RemoveTree(d);
        rmdir(root.c_str());
    }
};

Workspace &WorkspaceFor(uint32_t airports, uint64_t bundleBytes)
{
    static std::unique_ptr<Workspace> current;
    if (!current || current->airports != airports) {
        current.reset();
        current.reset(new Workspace(airports, bundleBytes));
    }
    return *current;
}

void BM_SubsetQuarterOfDirectory(benchmark::State &state)
{
    const uint64_t quarters = (uint64_t)state.range(0);
    const uint32_t airports = (uint32_t)(EnvNumber("TARN_BENCH_SCALE", 4000) * quarters / 4);
    const uint64_t bundleBytes = EnvNumber("TARN_BENCH_BYTES", 50ull << 20) * quarters / 4;
    Workspace &w = WorkspaceFor(airports, bundleBytes);

    double subsetSeconds = 0, copySeconds = 0;
    uint64_t written = 0;
    for (auto _ : state) {
        Empty(w.destination);
        Empty(w.copy);
        auto start = std::chrono::steady_clock::now();
        const BenchBox &box = kQuarterBox;
        int result = TarnTermChart_SubsetCharts(w.source.c_str(), w.destination.c_str(), box.north,
                                                box.west, box.south, box.east);
        const double seconds = Since(start);
        if (result != 0) {
            state.SkipWithError("the subset failed");
            break;
        }
        const double copy = TimeCopy(w.destination, w.copy);
        if (copy < 0) {
            state.SkipWithError("cp failed");
            break;
        }
        state.SetIterationTime(seconds);
        subsetSeconds += seconds;
        copySeconds += copy;
        written = Bytes(w.destination);
    }
    const double n = (double)state.iterations();
    if (n > 0 && copySeconds > 0) {
        state.counters["subset_ms"] = subsetSeconds / n * 1e3;
        state.counters["cp_ms"] = copySeconds / n * 1e3;
        state.counters["ratio"] = subsetSeconds / copySeconds;
        state.counters["us_per_airport"] = subsetSeconds / n * 1e6 / airports;
        state.counters["charts"] = w.stats.charts + w.stats.vfrCharts;
        state.counters["source_MB"] = (double)w.stats.bytes / (1 << 20);
        state.counters["written_MB"] = (double)written / (1 << 20);
    }
}
BENCHMARK(BM_SubsetQuarterOfDirectory)
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->ArgName("quarters")
    ->UseManualTime()
    ->MinTime(2.0)
    ->Unit(benchmark::kMillisecond);

}  // namespace
