// Throughput of the table reader and the table dump on a chart-sized table
// of 500,000 records, generated once into a temporary directory.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "dbf/dbf.h"
#include "tarntermchart.h"
#include "bench_util.h"

namespace {

const int kRecords = 500000;

struct Column {
    const char *name;
    char type;
    int length;
};
const Column kColumns[] = {{"F5_6", 'C', 4},        {"CHART_NAME", 'C', 40}, {"CHART_ID", 'N', 8},
                           {"PAGES", 'N', 3},       {"CITY", 'C', 24},       {"F5_36", 'C', 10},
                           {"F5_37", 'C', 11},      {"CHRT_IDX", 'N', 6}};
const int kColumnCount = sizeof kColumns / sizeof kColumns[0];

void PutLe(std::string &s, uint32_t v, int bytes)
{
    for (int i = 0; i < bytes; i++) s += (char)((v >> (8 * i)) & 0xFF);
}

// The generated table, removed again when the benchmarks end.
class Table {
public:
    Table()
    {
        dir = MakeBenchDirectory("dbf");
        path = dir + "/charts.dbf";
        output = dir + "/charts.txt";
        Write();
    }
    ~Table() { RemoveTree(dir); }

    std::string dir, path, output;
    uint64_t bytes = 0;

private:
    void Write()
    {
        int recordLength = 1;
        for (const Column &c : kColumns) recordLength += c.length;
        std::string header;
        header += '\x03';
        header += "\x7C\x01\x01";
        PutLe(header, kRecords, 4);
        PutLe(header, 32 + 32 * kColumnCount + 1, 2);
        PutLe(header, (uint32_t)recordLength, 2);
        header.append(20, '\0');
        for (const Column &c : kColumns) {
            std::string d(32, '\0');
            memcpy(&d[0], c.name, strlen(c.name));
            d[11] = c.type;
            d[16] = (char)c.length;
            header += d;
        }
        header += '\x0D';
        FILE *f = fopen(path.c_str(), "wb");
        if (!f) abort();
        fwrite(header.data(), 1, header.size(), f);
        std::string record;
        char text[64];
        for (int i = 0; i < kRecords; i++) {
            record.assign(1, i % 50 == 7 ? '*' : ' ');
            snprintf(text, sizeof text, "K%03d", i % 1000);
            Field(record, text, 4, false);
            snprintf(text, sizeof text, "ILS OR LOC RWY %02d%c CAT II - III %d", i % 36 + 1, "LRC"[i % 3], i);
            Field(record, text, 40, false);
            snprintf(text, sizeof text, "%d", 100000 + i);
            Field(record, text, 8, true);
            snprintf(text, sizeof text, "%d", i % 9 + 1);
            Field(record, text, 3, true);
            Field(record, i % 2 ? "DENVER" : "SAN FRANCISCO", 24, false);
            snprintf(text, sizeof text, "N%02d%02d%04d", i % 90, i % 60, i % 10000);
            Field(record, text, 10, false);
            snprintf(text, sizeof text, "W%03d%02d%04d", i % 180, i % 60, (i * 7) % 10000);
            Field(record, text, 11, false);
            snprintf(text, sizeof text, "%06d", i + 1);
            Field(record, text, 6, true);
            fwrite(record.data(), 1, record.size(), f);
        }
        fputc(0x1A, f);
        bytes = (uint64_t)ftell(f);
        fclose(f);
    }

    static void Field(std::string &record, const char *text, int width, bool right)
    {
        int n = (int)strlen(text);
        if (n > width) n = width;
        if (right) record.append((size_t)(width - n), ' ');
        record.append(text, (size_t)n);
        if (!right) record.append((size_t)(width - n), ' ');
    }
};

Table &TheTable()
{
    static Table table;
    return table;
}

void Rates(benchmark::State &state, uint64_t records)
{
    state.counters["records/s"] = benchmark::Counter((double)records, benchmark::Counter::kIsRate);
    state.SetBytesProcessed((int64_t)TheTable().bytes * state.iterations());
}

void BM_DumpDbf(benchmark::State &state)
{
    Table &table = TheTable();
    uint64_t records = 0;
    for (auto _ : state) {
        int count = TarnTermChart_DumpDBF(table.path.c_str(), table.output.c_str());
        if (count != kRecords) state.SkipWithError("dump failed");
        records += (uint64_t)count;
    }
    Rates(state, records);
}
BENCHMARK(BM_DumpDbf)->Unit(benchmark::kMillisecond)->UseRealTime();

// Reading alone: every value of every live record, as the table rebuilds do.
void BM_ReadAllValues(benchmark::State &state)
{
    Table &table = TheTable();
    uint64_t records = 0;
    for (auto _ : state) {
        DBFFilePtr dbf(DBFFile_Open(table.path.c_str()));
        size_t total = 0;
        while (DBFFile_ReadRecord(dbf.get()) == 1)
            for (int i = 0; i < kColumnCount; i++) total += strlen(DBFFile_GetFieldValueByPos(dbf.get(), i));
        benchmark::DoNotOptimize(total);
        records += kRecords;
    }
    Rates(state, records);
}
BENCHMARK(BM_ReadAllValues)->Unit(benchmark::kMillisecond)->UseRealTime();

// Values looked up by name on every record, as callers that key on
// "F5_6" and "CHRT_IDX" do.
void BM_ReadValuesByName(benchmark::State &state)
{
    Table &table = TheTable();
    uint64_t records = 0;
    for (auto _ : state) {
        DBFFilePtr dbf(DBFFile_Open(table.path.c_str()));
        size_t total = 0;
        while (DBFFile_ReadRecord(dbf.get()) == 1) {
            total += strlen(DBFFile_GetFieldValueByName(dbf.get(), "f5_6"));
            total += strlen(DBFFile_GetFieldValueByName(dbf.get(), "CHRT_IDX"));
        }
        benchmark::DoNotOptimize(total);
        records += kRecords;
    }
    Rates(state, records);
}
BENCHMARK(BM_ReadValuesByName)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
