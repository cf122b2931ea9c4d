// The VFR-into-IFR combine on a generated chart directory of realistic size,
// timed beside a plain `cp` of the same files in the same run.
//
// The directory holds IFR and VFR bundles of TARN_BENCH_BYTES bytes together
// (default 64 MiB for quick runs; 524288000 for the 500 MB case), tens of
// thousands of airports, 150,000 charts, 130,000 NOTAMs with their memo
// files, a link table and a checksum list.  It is generated once into a
// temporary directory (TMPDIR) and removed when the benchmarks end.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "platform/files.h"
#include "bundle/crcfiles.h"
#include "combine/combine.h"
#include "merge/tables.h"
#include "tarntermchart.h"
#include "bench_util.h"

namespace {

const uint64_t kDefaultBytes = 64ull << 20;
const uint32_t kAverageBlob = 25000;  // a chart file of some 25 kB
const int kAirports = 40000;          // identifiers; IFR and VFR tables take parts of them

struct Column {
    const char *name;
    char type;
    int length;
};

void PutLe(std::string &s, uint64_t v, int bytes)
{
    for (int i = 0; i < bytes; i++) s += (char)((v >> (8 * i)) & 0xFF);
}

// Writes a dBase table record by record: Begin, Add per record, End.
class TableWriter {
public:
    TableWriter(const std::string &path, std::vector<Column> columns) : columns_(std::move(columns))
    {
        file_ = fopen(path.c_str(), "wb");
        if (!file_) abort();
        std::string header(32, '\0');
        header[0] = 0x03;
        recordLength_ = 1;
        for (const Column &c : columns_) recordLength_ += c.length;
        for (const Column &c : columns_) {
            std::string d(32, '\0');
            memcpy(&d[0], c.name, strlen(c.name));
            d[11] = c.type;
            d[16] = (char)c.length;
            header += d;
        }
        header += '\x0D';
        std::string lengths;
        PutLe(lengths, 32 + 32 * columns_.size() + 1, 2);
        PutLe(lengths, (uint64_t)recordLength_, 2);
        header.replace(8, 4, lengths);
        fwrite(header.data(), 1, header.size(), file_);
    }
    // values in column order; missing ones are blank.
    void Add(const std::vector<std::string> &values)
    {
        record_.assign(1, ' ');
        for (size_t i = 0; i < columns_.size(); i++) {
            std::string v = i < values.size() ? values[i] : "";
            v.resize((size_t)columns_[i].length, ' ');
            record_ += v;
        }
        fwrite(record_.data(), 1, record_.size(), file_);
        count_++;
    }
    void End()
    {
        fputc(0x1A, file_);
        std::string count;
        PutLe(count, count_, 4);
        fseek(file_, 4, SEEK_SET);
        fwrite(count.data(), 1, 4, file_);
        fclose(file_);
    }

private:
    std::vector<Column> columns_;
    FILE *file_;
    int recordLength_;
    std::string record_;
    uint32_t count_ = 0;
};

const std::vector<Column> kChartColumns = {
    {"F5_6", 'C', 5},       {"FILENAM_BA", 'C', 12}, {"INDEX_NO", 'C', 8}, {"CHART_NAME", 'C', 40},
    {"CHART_ID", 'N', 8},   {"PAGES", 'N', 3}};
const std::vector<Column> kIfrAirportColumns = {
    {"F5_6", 'C', 5},     {"F5_107", 'C', 6},   {"F5_54", 'C', 2},    {"F5_36", 'C', 10},
    {"F5_37", 'C', 11},   {"F5_39", 'N', 6},    {"F5_55", 'C', 4},    {"ARPT_NAME", 'C', 40},
    {"CITY", 'C', 30},    {"ST_PR", 'C', 2},    {"J5_3", 'C', 3},     {"J5_5", 'C', 5},
    {"J5_6", 'C', 5},     {"J5_7", 'C', 5},     {"J5_8", 'C', 5},     {"J5_10", 'C', 5},
    {"J5_12", 'C', 5},    {"J5_39", 'C', 5},    {"J5_14", 'C', 5},    {"J5_15", 'C', 5},
    {"F5_14", 'C', 4},    {"F5_179", 'C', 3},   {"F5_197", 'C', 3},   {"PRECISION", 'C', 1},
    {"CHRT_IDX", 'C', 7}, {"CLNK_IDX", 'C', 7}, {"MAG_VAR", 'C', 4}};
const std::vector<Column> kVfrAirportColumns = {
    {"F5_6", 'C', 5},     {"F5_107", 'C', 6},   {"F5_54", 'C', 2},    {"F5_36", 'C', 10},
    {"F5_37", 'C', 11},   {"F5_39", 'N', 6},    {"F5_55", 'C', 4},    {"ARPT_NAM_N", 'C', 40},
    {"CITY_NAM_N", 'C', 30}, {"ST_PR", 'C', 2}, {"J5_3", 'C', 3},     {"J5_5", 'C', 5},
    {"J5_6", 'C', 5},     {"J5_7", 'C', 5},     {"J5_8", 'C', 5},     {"J5_10", 'C', 5},
    {"J5_12", 'C', 5},    {"J5_39", 'C', 5},    {"J5_14", 'C', 5},    {"J5_15", 'C', 5},
    {"F5_14", 'C', 4},    {"F5_179", 'C', 3},   {"F5_197", 'C', 3},   {"CHRT_IDX", 'C', 7}};
const std::vector<Column> kNotamColumns = {
    {"TEXT", 'M', 10},    {"J5_3", 'C', 3},     {"F5_14", 'C', 4},    {"F5_6", 'C', 5},
    {"CNT_TYPE", 'C', 1}, {"TEMPO", 'C', 1},    {"END_DATE", 'C', 8}, {"END_FIXED", 'C', 1},
    {"UFN", 'C', 1},      {"WIE", 'C', 1},      {"EFF_DATE", 'C', 8}, {"EFF_FIXED", 'C', 1},
    {"INDEX_NO", 'C', 8}};
const std::vector<Column> kLinkColumns = {{"F5_6", 'C', 5}, {"FILENAM_BA", 'C', 12}};

// Airport identifiers in sorted order: "K" and four letters.
std::string Code(int i)
{
    char code[6] = "KAAAA";
    for (int p = 4; p >= 1; p--, i /= 26) code[p] = (char)('A' + i % 26);
    return code;
}
bool IsIfrAirport(int i) { return i % 5 != 0; }
bool IsVfrAirport(int i) { return i % 2 == 0; }

// A memo file: header block, then one block per NOTAM text.
class MemoWriter {
public:
    explicit MemoWriter(const std::string &path)
    {
        file_ = fopen(path.c_str(), "wb");
        if (!file_) abort();
        std::string header(512, '\0');
        fwrite(header.data(), 1, header.size(), file_);
    }
    int Add(const std::string &text)
    {
        std::string block = "\xFF\xFF\x08";
        block += '\0';
        PutLe(block, text.size() + 8, 4);
        block += text;
        block.resize(512, '\0');
        fwrite(block.data(), 1, block.size(), file_);
        return next_++;
    }
    void End()
    {
        fputc(0x1A, file_);
        fclose(file_);
    }

private:
    FILE *file_;
    int next_ = 1;
};

// A bundle of count blobs totalling about bytes, named prefix + number (so
// the table is in bundle order), blobs written in table order as a bundle
// producer writes them.
void WriteBundle(const std::string &path, const char *prefix, uint64_t bytes, const std::string &noise)
{
    uint32_t count = (uint32_t)std::max<uint64_t>(bytes / kAverageBlob, 1);
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) abort();
    std::string header(27, '\0');
    std::string table;
    uint64_t at = 27, written = 0;
    fwrite(header.data(), 1, header.size(), f);
    uint32_t seed = 12345;
    for (uint32_t i = 0; i < count; i++) {
        seed = seed * 1103515245u + 12345u;
        // Sizes spread from a fifth to nearly twice the average, the last
        // blob taking what is left.
        uint64_t size = kAverageBlob / 5 + seed % (kAverageBlob * 9 / 5);
        if (i + 1 == count) size = bytes > written ? bytes - written : 1;
        char name[26] = {0};
        snprintf(name, sizeof name, "%s%07u.PDF", prefix, i);
        table.append(name, 26);
        PutLe(table, at, 4);
        PutLe(table, size, 4);
        PutLe(table, seed, 4);
        table += '\0';
        table += '\0';
        for (uint64_t left = size; left > 0;) {
            size_t n = (size_t)std::min<uint64_t>(left, noise.size() - (i % 4096));
            fwrite(noise.data() + (i % 4096), 1, n, f);
            left -= n;
        }
        at += size;
        written += size;
    }
    fwrite(table.data(), 1, table.size(), f);
    std::string fields;
    PutLe(fields, 27, 2);
    PutLe(fields, 1, 2);
    PutLe(fields, count, 4);
    PutLe(fields, at, 4);
    fields += "2460400.5";
    fields.resize(23, '\0');
    fseek(f, 4, SEEK_SET);
    fwrite(fields.data(), 1, fields.size(), f);
    fclose(f);
    // The checksum does not matter to the combine, which writes its own.
}


// The generated source directory.
class Source {
public:
    Source()
    {
        bundleBytes = EnvNumber("TARN_BENCH_BYTES", kDefaultBytes);
        dir = MakeBenchDirectory("combine");
        Write();
    }
    ~Source() { RemoveTree(dir); }

    std::string dir;
    uint64_t bundleBytes;
    uint64_t totalBytes = 0;

private:
    std::string Path(const char *name) const { return dir + "/" + name; }

    void Write()
    {
        for (const char *name : {"country.dbf", "coverags.dbf", "ctypes.dbf", "tarnwick.tfl", "tarnwick.tls",
                                 "lssdef.tcl", "regions.dat", "sbscrips.dbf", "state.dbf"}) {
            FILE *f = fopen(Path(name).c_str(), "wb");
            std::string filler(20000, 'x');
            fwrite(filler.data(), 1, filler.size(), f);
            fclose(f);
        }
        WriteText("charts.ini", "[Database]\r\nDatabase_Begin_Date=2460400.5\r\n");
        WriteText("revision.txt", "Revision\r\nCycle=2513\r\n");
        WriteText("crcfiles.txt",
                  "airports.dbf,0x1\r\ncharts.dbf,0x2\r\nnotams.dbf,0x3\r\nnotams.dbt,0x4\r\n"
                  "chrtlink.dbf,0x5\r\nvfrapts.dbf,0x6\r\nvfrchrts.dbf,0x7\r\n");
        WriteTables();
        std::string noise(1 << 20, '\0');
        uint32_t seed = 99;
        for (char &c : noise) c = (char)((seed = seed * 1664525u + 1013904223u) >> 24);
        WriteBundle(Path("charts.bin"), "I", bundleBytes * 7 / 10, noise);
        WriteBundle(Path("vfrcharts.bin"), "V", bundleBytes - bundleBytes * 7 / 10, noise);

        if (DIR *d = opendir(dir.c_str())) {
            while (struct dirent *e = readdir(d)) {
                struct stat st;
                if (stat((dir + "/" + e->d_name).c_str(), &st) == 0 && S_ISREG(st.st_mode))
                    totalBytes += (uint64_t)st.st_size;
            }
            closedir(d);
        }
    }

    void WriteText(const char *name, const std::string &text)
    {
        FILE *f = fopen(Path(name).c_str(), "wb");
        fwrite(text.data(), 1, text.size(), f);
        fclose(f);
    }

    void WriteTables()
    {
        TableWriter ifrCharts(Path("charts.dbf"), kChartColumns), vfrCharts(Path("vfrchrts.dbf"), kChartColumns);
        TableWriter ifrAirports(Path("airports.dbf"), kIfrAirportColumns);
        TableWriter vfrAirports(Path("vfrapts.dbf"), kVfrAirportColumns);
        TableWriter links(Path("chrtlink.dbf"), kLinkColumns);
        TableWriter ifrNotams(Path("notams.dbf"), kNotamColumns), vfrNotams(Path("vfrntms.dbf"), kNotamColumns);
        MemoWriter ifrMemo(Path("notams.dbt")), vfrMemo(Path("vfrntms.dbt"));
        char text[64];
        int chart = 0;
        for (int i = 0; i < kAirports; i++) {
            std::string code = Code(i);
            if (IsIfrAirport(i)) {
                ifrAirports.Add({code, "P" + code.substr(1), "PU", "N40123456", "W073123456", "123", "ELEV",
                                 "INTERNATIONAL AIRPORT " + code, "CITY OF " + code, "NY", "US", "a", "b", "c",
                                 "d", "e", "f", "g", "h", "i", "F14", "179", "197", "Y", "", "", "E12"});
                links.Add({code, "L" + code});
                for (int c = 0; c < 4; c++, chart++) {
                    snprintf(text, sizeof text, "I%07d", chart);
                    ifrCharts.Add({code, text, "10-" + std::to_string(c), "ILS OR LOC RWY 04R", std::to_string(chart), "1"});
                }
                for (int n = 0; n < 3; n++) {
                    int block = ifrMemo.Add("IFR NOTAM " + std::to_string(n) + " FOR " + code +
                                            ": RWY 04R/22L CLSD EXC TAXI. TWY B BTN B2 AND B4 CLSD.");
                    ifrNotams.Add({std::to_string(block), "US", "F14", code, "A", "", "20250101", "E", "", "",
                                   "20240101", "F", std::to_string(i * 10 + n)});
                }
            }
            if (IsVfrAirport(i)) {
                vfrAirports.Add({code, "P" + code.substr(1), "PU", "N40123456", "W073123456", "456", "ELEV",
                                 "FIELD " + code, "TOWN OF " + code, "NY", "US", "a", "b", "c", "d", "e",
                                 "f", "g", "h", "i", "F14", "179", "197", ""});
                for (int c = 0; c < 2; c++, chart++) {
                    snprintf(text, sizeof text, "V%07d", chart);
                    vfrCharts.Add({code, text, "VFR-" + std::to_string(c), "VFR ARRIVAL", std::to_string(chart), "1"});
                }
                int block = vfrMemo.Add("VFR NOTAM FOR " + code + ": PARACHUTE JUMPING ACT 3NM N OF AD.");
                vfrNotams.Add({std::to_string(block), "US", "F14", code, "V", "T", "20250101", "E", "U", "W",
                               "20240101", "F", std::to_string(i)});
            }
        }
        // Country-wide NOTAMs sort behind every airport of their country.
        for (int n = 0; n < 2000; n++) {
            int block = ifrMemo.Add("COUNTRY NOTAM " + std::to_string(n));
            ifrNotams.Add({std::to_string(block), "US", "", "", "C", "", "", "", "", "", "", "", std::to_string(n)});
        }
        for (TableWriter *t : {&ifrCharts, &vfrCharts, &ifrAirports, &vfrAirports, &links, &ifrNotams, &vfrNotams})
            t->End();
        ifrMemo.End();
        vfrMemo.End();
    }
};

Source &TheSource()
{
    static Source source;
    return source;
}

double Seconds(std::chrono::steady_clock::time_point from)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - from).count();
}

// cp of every file of the source directory into to, as one process.
bool CopyWithCp(const std::string &from, const std::string &to)
{
    std::string command = "cp -- '" + from + "'/* '" + to + "'/";
    return system(command.c_str()) == 0;
}

// Each iteration times a cp of the source directory and the combine of it,
// each into a fresh directory, with the page cache of earlier writes
// flushed first so that neither pays for the other's write-back.
void BM_CombineAgainstCp(benchmark::State &state)
{
    Source &source = TheSource();
    double cpTotal = 0, combineTotal = 0;
    for (auto _ : state) {
        std::string cpDir = MakeBenchDirectory("cp"), outDir = MakeBenchDirectory("out");
        sync();
        auto start = std::chrono::steady_clock::now();
        bool copied = CopyWithCp(source.dir, cpDir);
        double cpSeconds = Seconds(start);
        sync();
        start = std::chrono::steady_clock::now();
        int result = TarnTermChart_CombineVFRintoIFR(source.dir.c_str(), outDir.c_str());
        double combineSeconds = Seconds(start);
        state.SetIterationTime(combineSeconds);
        RemoveTree(cpDir);
        RemoveTree(outDir);
        if (!copied || result != 0) {
            state.SkipWithError("cp or the combine failed");
            break;
        }
        cpTotal += cpSeconds;
        combineTotal += combineSeconds;
    }
    double n = (double)state.iterations();
    state.counters["cp_ms"] = cpTotal / n * 1e3;
    state.counters["combine_ms"] = combineTotal / n * 1e3;
    state.counters["ratio"] = cpTotal > 0 ? combineTotal / cpTotal : 0;
    state.counters["source_MB"] = (double)source.totalBytes / 1e6;
    state.SetBytesProcessed((int64_t)source.totalBytes * state.iterations());
}
BENCHMARK(BM_CombineAgainstCp)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

// The combine's steps one after the other, as the driver takes them, each
// timed: where the time goes.
void BM_CombineSteps(benchmark::State &state)
{
    Source &source = TheSource();
    const char *src = source.dir.c_str();
    std::vector<std::pair<const char *, double>> totals;
    for (auto _ : state) {
        std::string out = MakeBenchDirectory("steps");
        const char *dst = out.c_str();
        sync();
        size_t step = 0;
        auto time = [&](const char *name, auto body) {
            auto start = std::chrono::steady_clock::now();
            body();
            if (totals.size() <= step) totals.push_back({name, 0.0});
            totals[step++].second += Seconds(start);
        };
        time("copies_ms", [&] {
            for (const char *name : {"charts.ini", "chrtlink.dbf", "country.dbf", "coverags.dbf", "ctypes.dbf",
                                     "tarnwick.tfl", "tarnwick.tls", "lssdef.tcl", "regions.dat", "revision.txt",
                                     "sbscrips.dbf", "state.dbf"})
                CopyFile(name, src, dst);
        });
        time("charts_dbf_ms", [&] { MergeChartsDBF(src, dst); });
        time("airports_dbf_ms", [&] { MergeAirportsDBF(src, dst); });
        time("links_ms", [&] {
            FixAirportDBFLinks(dst, "airports.dbf", "charts.dbf", "chrtlink.dbf", "airportsNEW.dbf");
            ReplaceIn(dst, "airportsNEW.dbf", "airports.dbf");
        });
        time("notams_dbf_ms", [&] { MergeNotamsDBF(src, dst); });
        time("notams_dbt_ms", [&] { MergeNotamsDBT(src, dst); });
        time("charts_bin_ms", [&] { MergeChartsBin(src, dst); });
        time("crcfiles_ms", [&] {
            FixCRCFilesTxt((out + "/crcfiles.txt").c_str(), (source.dir + "/crcfiles.txt").c_str(), dst);
        });
        RemoveTree(out);
    }
    for (const auto &[name, seconds] : totals) state.counters[name] = seconds / (double)state.iterations() * 1e3;
}
BENCHMARK(BM_CombineSteps)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace
