// Checksum throughput over one large file: FileCRCTarn, FileCRC, zlib's
// crc32 fed from the same 1 MiB reads, and the plain reads alone; then the
// in-memory kernels.  The file is 1 GiB unless TARN_BENCH_BYTES says
// otherwise; it is written once into a temporary directory and removed at
// exit.  Run a few times: the first pass may read from disk, the rest from
// the page cache.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bundle/crc.h"

#ifdef TARN_HAVE_ZLIB
#include <zlib.h>
#include "bench_util.h"
#endif

namespace {

std::string benchDir, benchFile;

void RemoveBenchFile()
{
    if (!benchDir.empty()) RemoveTree(benchDir);
}

uint64_t BenchBytes() { return EnvNumber("TARN_BENCH_BYTES", (uint64_t)1 << 30); }

void FillRandom(unsigned char *p, size_t n, uint64_t &state)
{
    for (size_t i = 0; i < n; i++) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        p[i] = (unsigned char)(state >> 24);
    }
}

const std::string &BenchFile()
{
    if (!benchFile.empty()) return benchFile;
    benchDir = MakeBenchDirectory("crc");
    benchFile = benchDir + "/data.bin";
    atexit(RemoveBenchFile);
    FILE *f = fopen(benchFile.c_str(), "wb");
    if (!f) abort();
    std::vector<unsigned char> block(1 << 20);
    uint64_t state = 0x9E3779B97F4A7C15ull;
    for (uint64_t left = BenchBytes(); left > 0;) {
        size_t n = left < block.size() ? (size_t)left : block.size();
        FillRandom(block.data(), n, state);
        if (fwrite(block.data(), 1, n, f) != n) abort();
        left -= n;
    }
    fclose(f);
    return benchFile;
}

// Reads the bench file in 1 MiB blocks, handing each to consume.
template <typename Consume>
void ReadFileBlocks(Consume consume)
{
    FILE *f = fopen(BenchFile().c_str(), "rb");
    if (!f) abort();
    std::vector<unsigned char> block(1 << 20);
    size_t got;
    while ((got = fread(block.data(), 1, block.size(), f)) > 0) consume(block.data(), got);
    fclose(f);
}

void FileTarn(benchmark::State &state)
{
    const char *path = BenchFile().c_str();
    for (auto _ : state) benchmark::DoNotOptimize(FileCRCTarn(path));
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)BenchBytes());
}

void FileStandard(benchmark::State &state)
{
    const char *path = BenchFile().c_str();
    for (auto _ : state) benchmark::DoNotOptimize(FileCRC(path));
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)BenchBytes());
}

#ifdef TARN_HAVE_ZLIB
void FileZlib(benchmark::State &state)
{
    BenchFile();
    for (auto _ : state) {
        uLong crc = crc32(0L, Z_NULL, 0);
        ReadFileBlocks([&](const unsigned char *p, size_t n) { crc = crc32(crc, p, (uInt)n); });
        benchmark::DoNotOptimize(crc);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)BenchBytes());
}
#endif

void FileReadOnly(benchmark::State &state)
{
    BenchFile();
    for (auto _ : state) {
        size_t total = 0;
        ReadFileBlocks([&](const unsigned char *, size_t n) { total += n; });
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)BenchBytes());
}

// The kernels over 1 MiB already in cache: what each costs apart from reading.
template <uint32_t (*Kernel)(uint32_t, const void *, size_t)>
void Memory(benchmark::State &state)
{
    std::vector<unsigned char> data(1 << 20);
    uint64_t seed = 12345;
    FillRandom(data.data(), data.size(), seed);
    for (auto _ : state) benchmark::DoNotOptimize(Kernel(0, data.data(), data.size()));
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)data.size());
}

uint32_t TarnFoldedOrSliced(uint32_t reg, const void *p, size_t n)
{
    return CrcHasCarrylessMultiply() ? TarnCrcUpdateFolded(reg, p, n) : TarnCrcUpdateSliced(reg, p, n);
}

uint32_t StandardFoldedOrSliced(uint32_t reg, const void *p, size_t n)
{
    return CrcHasCarrylessMultiply() ? StandardCrcUpdateFolded(reg, p, n)
                                     : StandardCrcUpdateSliced(reg, p, n);
}

#ifdef TARN_HAVE_ZLIB
uint32_t Zlib(uint32_t reg, const void *p, size_t n)
{
    return (uint32_t)crc32(reg, (const Bytef *)p, (uInt)n);
}
#endif

}  // namespace

BENCHMARK(FileTarn)->Name("File/FileCRCTarn")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(FileStandard)->Name("File/FileCRC")->UseRealTime()->Unit(benchmark::kMillisecond);
#ifdef TARN_HAVE_ZLIB
BENCHMARK(FileZlib)->Name("File/zlib_crc32")->UseRealTime()->Unit(benchmark::kMillisecond);
#endif
BENCHMARK(FileReadOnly)->Name("File/read_only")->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK(Memory<TarnFoldedOrSliced>)->Name("Memory/Tarn_folded");
BENCHMARK(Memory<TarnCrcUpdateSliced>)->Name("Memory/Tarn_sliced");
BENCHMARK(Memory<TarnCrcUpdateBytewise>)->Name("Memory/Tarn_bytewise");
BENCHMARK(Memory<StandardFoldedOrSliced>)->Name("Memory/Standard_folded");
BENCHMARK(Memory<StandardCrcUpdateSliced>)->Name("Memory/Standard_sliced");
#ifdef TARN_HAVE_ZLIB
BENCHMARK(Memory<Zlib>)->Name("Memory/zlib_crc32");
#endif
