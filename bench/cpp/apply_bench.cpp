// Applying an update and finalising the bundle, against a plain `cp` of the
// same bundle measured in the same run.
//
// The bundle holds 20,000 charts of equal size and is 64 MiB unless
// TARN_BENCH_BYTES says otherwise (TARN_BENCH_BYTES=500000000 for the full
// size); the update replaces every tenth chart with new content of the same
// size, and the chart table lists every chart, so finalising compacts the
// 2,000 superseded copies away.  Each iteration starts from a fresh copy of
// the bundle (not timed).  Reported: the time of ChartsFromChartsDBF +
// AddCoverageToChartsBin + FinalizeChartsBin, cp_ms for `cp` of the original
// bundle, and ratio = apply and finalise / cp.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "bundle/chartlist.h"
#include "bundle/chartsbin.h"
#include "bundle/update.h"
#include "bench_util.h"

namespace {

const uint32_t kCharts = 20000;

uint64_t BenchBytes() { return EnvNumber("TARN_BENCH_BYTES", (uint64_t)64 << 20); }

void FillRandom(unsigned char *p, size_t n, uint64_t &state)
{
    for (size_t i = 0; i + 8 <= n; i += 8) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        memcpy(p + i, &state, 8);
    }
}

std::string ChartName(uint32_t i)
{
    char name[32];
    snprintf(name, sizeof name, "chart%05u", i);
    return name;
}

void PutLe(std::string &s, uint32_t v, int bytes)
{
    for (int i = 0; i < bytes; i++) s += (char)((v >> (8 * i)) & 0xFF);
}

// Writes a bundle of the charts in `which` (ascending), each blob of
// blobSize bytes, with the given Julian date.
void WriteBundle(const std::string &path, const std::vector<uint32_t> &which, uint32_t blobSize,
                 const char *date, uint64_t seed)
{
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) abort();
    ChartsBinHeader header;
    memset(&header, 0, sizeof header);
    header.size = 27;
    header.version = 1;
    snprintf(header.julianDate, sizeof header.julianDate, "%s", date);
    if (fwrite(&header, 1, sizeof header, f) != sizeof header) abort();
    std::vector<unsigned char> blob(blobSize + 8);
    std::vector<SFileTableEntry> table(which.size());
    for (size_t i = 0; i < which.size(); i++) {
        FillRandom(blob.data(), blob.size(), seed);
        SFileTableEntry &e = table[i];
        memset(&e, 0, sizeof e);
        snprintf(e.name, sizeof e.name, "%s.pdf", ChartName(which[i]).c_str());
        e.offset = (uint32_t)ftello(f);
        e.size = blobSize;
        e.key = (uint32_t)seed;
        if (fwrite(blob.data(), 1, blobSize, f) != blobSize) abort();
    }
    header.fileCount = (uint32_t)table.size();
    header.tableOffset = (uint32_t)ftello(f);
    if (fwrite(table.data(), sizeof table[0], table.size(), f) != table.size()) abort();
    fseeko(f, 0, SEEK_SET);
    if (fwrite(&header, 1, sizeof header, f) != sizeof header) abort();
    if (fclose(f) != 0) abort();
}

// A chart table with the one field the chart list needs, listing every chart.
void WriteChartTable(const std::string &path)
{
    const int nameLength = 20;
    std::string bytes(32, '\0');
    bytes[0] = 3;
    bytes.replace(4, 4, std::string());
    std::string head;
    head += (char)3;
    head += std::string("\x7c\x01\x01", 3);
    PutLe(head, kCharts, 4);
    PutLe(head, 32 + 32 + 1, 2);
    PutLe(head, 1 + nameLength, 2);
    head.resize(32, '\0');
    std::string descriptor("FILENAM_BA", 10);
    descriptor.resize(11, '\0');
    descriptor += 'C';
    descriptor.resize(16, '\0');
    PutLe(descriptor, nameLength, 2);
    descriptor.resize(32, '\0');
    bytes = head + descriptor + '\r';
    for (uint32_t i = 0; i < kCharts; i++) {
        std::string name = ChartName(i);
        name.resize(nameLength, ' ');
        bytes += ' ' + name;
    }
    bytes += '\x1a';
    FILE *f = fopen(path.c_str(), "wb");
    if (!f || fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size() || fclose(f) != 0) abort();
}

struct Fixture {
    std::string dir, original, bundle, update, updateCopy, table, copy;
    Fixture()
    {
        dir = MakeBenchDirectory("apply");
        original = dir + "/original.bin";
        bundle = dir + "/charts.bin";
        update = dir + "/original_update.bin";
        updateCopy = dir + "/new_charts.bin";
        table = dir + "/charts.dbf";
        copy = dir + "/copy.bin";
        const uint32_t blobSize = (uint32_t)((BenchBytes() - 27) / kCharts) - kFileTableEntrySize;
        std::vector<uint32_t> all, tenth;
        for (uint32_t i = 0; i < kCharts; i++) {
            all.push_back(i);
            if (i % 10 == 3) tenth.push_back(i);
        }
        WriteBundle(original, all, blobSize, "2460000.5", 0x9E3779B97F4A7C15ull);
        WriteBundle(update, tenth, blobSize, "2460028.5", 0x2545F4914F6CDD1Dull);
        WriteChartTable(table);
    }
    ~Fixture() { RemoveTree(dir); }
};

void Run(const std::string &command)
{
    if (system(command.c_str()) != 0) abort();
}

double Seconds(std::chrono::steady_clock::time_point since)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// One set of files for every benchmark of the run.
Fixture &Files()
{
    static Fixture fixture;
    return fixture;
}

void TimedCp(Fixture &fixture, double &copied)
{
    sync();
    auto start = std::chrono::steady_clock::now();
    Run("cp '" + fixture.original + "' '" + fixture.copy + "'");
    copied += Seconds(start);
    unlink(fixture.copy.c_str());
}

// A fresh bundle and update for the next iteration, with the setup's writes
// gone out before anything is measured.
void Prepare(Fixture &fixture)
{
    Run("cp '" + fixture.original + "' '" + fixture.bundle + "' && cp '" + fixture.update + "' '" +
        fixture.updateCopy + "'");
    sync();
}

// A cp to a new name, then moved over the finished bundle: the least any
// rewrite that never leaves the directory without a bundle does.
void TimedCpAndMove(Fixture &fixture, double &copied)
{
    sync();
    auto start = std::chrono::steady_clock::now();
    Run("cp '" + fixture.original + "' '" + fixture.copy + "' && mv '" + fixture.copy + "' '" + fixture.bundle + "'");
    copied += Seconds(start);
}

void Report(benchmark::State &state, double measured, double copied)
{
    state.counters["MB"] = (double)BenchBytes() / 1e6;
    state.counters["cp_ms"] = copied * 1000 / (double)state.iterations();
    state.counters["ratio"] = measured / copied;
}

// What the merge does to one bundle: the chart list, the update, and
// finalising (compaction through the temporary, which then replaces the
// bundle, and the checksum).
void ApplyAndFinalise(benchmark::State &state)
{
    Fixture &fixture = Files();
    double measured = 0, copied = 0, applying = 0, replaced = 0;
    for (auto _ : state) {
        Prepare(fixture);
        auto start = std::chrono::steady_clock::now();
        ChartList *list = ChartsFromChartsDBF(fixture.table.c_str());
        int result = AddCoverageToChartsBin(fixture.bundle.c_str(), fixture.updateCopy.c_str());
        applying += Seconds(start);
        FinalizeChartsBin(fixture.bundle.c_str(), result == 1, list);
        DoneWithChartGrouping(list);
        double seconds = Seconds(start);
        if (result != 1 || !list) state.SkipWithError("the update did not apply");
        state.SetIterationTime(seconds);
        measured += seconds;
        TimedCp(fixture, copied);
        TimedCpAndMove(fixture, replaced);
    }
    Report(state, measured, copied);
    state.counters["apply_ms"] = applying * 1000 / (double)state.iterations();
    state.counters["cp_mv_ms"] = replaced * 1000 / (double)state.iterations();
    state.counters["ratio_cp_mv"] = measured / replaced;
}

// The same work without moving the compacted bundle into place: the
// compaction writes a new file and checksums it on the way, and the
// rename over the old bundle is left out (on ext4 a rename over an existing
// file starts the new file's writeback, and the old file's cached pages are
// freed; a cp to a new name pays neither).
void ApplyAndCompact(benchmark::State &state)
{
    Fixture &fixture = Files();
    double measured = 0, copied = 0;
    const std::string target = fixture.dir + "/charts.bi2";
    for (auto _ : state) {
        Prepare(fixture);
        auto start = std::chrono::steady_clock::now();
        ChartList *list = ChartsFromChartsDBF(fixture.table.c_str());
        int result = AddCoverageToChartsBin(fixture.bundle.c_str(), fixture.updateCopy.c_str());
        uint32_t crc = 0;
        int compacted = CompactFile(fixture.bundle.c_str(), target.c_str(), list, &crc);
        DoneWithChartGrouping(list);
        double seconds = Seconds(start);
        if (result != 1 || compacted != 0) state.SkipWithError("the update did not apply");
        state.SetIterationTime(seconds);
        measured += seconds;
        unlink(target.c_str());
        TimedCp(fixture, copied);
    }
    Report(state, measured, copied);
}

}  // namespace

BENCHMARK(ApplyAndFinalise)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(ApplyAndCompact)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
