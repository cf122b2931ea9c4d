#include "subset_directory.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <initializer_list>
#include <vector>

#include "tarntermchart.h"

// Latitudes are generated from 60 S to 70 N (median 5 N), longitudes all round.
const BenchBox kQuarterBox = {90.0, -180.0, 5.0, 0.0};

namespace {

// splitmix64: the same seed, the same directory.
struct Random {
    uint64_t state;
    uint64_t Next()
    {
        uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    uint32_t Below(uint32_t n) { return (uint32_t)(Next() % n); }
};

void PutLe(unsigned char *p, uint64_t v, int bytes)
{
    for (int i = 0; i < bytes; i++) p[i] = (unsigned char)(v >> (8 * i));
}

FILE *Create(const std::string &path)
{
    FILE *f = fopen(path.c_str(), "w+b");
    if (!f) {
        perror(path.c_str());
        abort();
    }
    setvbuf(f, nullptr, _IOFBF, 1 << 20);
    return f;
}

uint64_t Close(FILE *f)
{
    fseeko(f, 0, SEEK_END);
    uint64_t size = (uint64_t)ftello(f);
    if (fclose(f) != 0) abort();
    return size;
}

struct Field {
    const char *name;
    char type;
    int length;
};

// A dBase table written record by record; the count and end marker go in at Finish.
class DbfWriter {
public:
    DbfWriter(const std::string &path, std::initializer_list<Field> fields)
        : fields_(fields), file_(Create(path))
    {
        int recordLength = 1;
        for (const Field &f : fields_) recordLength += f.length;
        unsigned char header[32] = {0x03, 124, 1, 1};
        PutLe(header + 8, 32 + 32 * fields_.size() + 1, 2);
        PutLe(header + 10, (uint64_t)recordLength, 2);
        fwrite(header, 1, sizeof header, file_);
        for (const Field &f : fields_) {
            unsigned char d[32] = {0};
            memcpy(d, f.name, strlen(f.name));
            d[11] = (unsigned char)f.type;
            d[16] = (unsigned char)f.length;
            fwrite(d, 1, sizeof d, file_);
        }
        fputc(0x0D, file_);
        record_.resize((size_t)recordLength);
    }

    void Add(std::initializer_list<const char *> values)
    {
        char *at = &record_[0];
        *at++ = ' ';
        const char *const *value = values.begin();
        for (const Field &f : fields_) {
            const char *text = value != values.end() ? *value++ : "";
            size_t n = strnlen(text, (size_t)f.length);
            size_t pad = (size_t)f.length - n;
            if (f.type == 'N') {
                memset(at, ' ', pad);
                memcpy(at + pad, text, n);
            } else {
                memcpy(at, text, n);
                memset(at + n, ' ', pad);
            }
            at += f.length;
        }
        fwrite(record_.data(), 1, record_.size(), file_);
        count_++;
    }

    uint64_t Finish()
    {
        fputc(0x1A, file_);
        unsigned char count[4];
        PutLe(count, count_, 4);
        fseeko(file_, 4, SEEK_SET);
        fwrite(count, 1, 4, file_);
        return Close(file_);
    }

private:
    std::vector<Field> fields_;
    FILE *file_;
    std::string record_;
    uint32_t count_ = 0;
};

// A memo file: a header block, then each text in whole 512-byte blocks.
class DbtWriter {
public:
    explicit DbtWriter(const std::string &path) : file_(Create(path))
    {
        static const unsigned char zeros[512] = {0};
        fwrite(zeros, 1, sizeof zeros, file_);
    }
    // The block number the record's memo field stores.
    uint32_t Add(const std::string &text)
    {
        static const unsigned char zeros[512] = {0};
        uint32_t block = next_;
        unsigned char prolog[8] = {0xFF, 0xFF, 0x08, 0x00};
        PutLe(prolog + 4, text.size() + 8, 4);
        fwrite(prolog, 1, sizeof prolog, file_);
        fwrite(text.data(), 1, text.size(), file_);
        size_t used = 8 + text.size();
        size_t padding = 512 - used % 512;
        fwrite(zeros, 1, padding, file_);
        next_ += (uint32_t)((used + padding) / 512);
        return block;
    }
    uint64_t Finish()
    {
        unsigned char next[4];
        PutLe(next, next_, 4);
        fseeko(file_, 0, SEEK_SET);
        fwrite(next, 1, 4, file_);
        return Close(file_);
    }

private:
    FILE *file_;
    uint32_t next_ = 1;
};

// A chart bundle written blob by blob: header, blobs in table order, table, checksum.
class BundleWriter {
public:
    BundleWriter(const std::string &path, const std::string &pool)
        : path_(path), pool_(pool), file_(Create(path))
    {
        static const unsigned char zeros[27] = {0};
        fwrite(zeros, 1, sizeof zeros, file_);
        offset_ = 27;
    }
    void Add(const char *name, uint32_t size, uint32_t seed)
    {
        unsigned char entry[40] = {0};
        memcpy(entry, name, strnlen(name, 25));
        PutLe(entry + 26, offset_, 4);
        PutLe(entry + 30, size, 4);
        PutLe(entry + 34, seed, 4);
        table_.append((const char *)entry, sizeof entry);
        for (uint32_t left = size; left > 0;) {
            size_t from = (seed * 7919u + left) % (pool_.size() / 2);
            size_t n = left < pool_.size() / 2 ? left : pool_.size() / 2;
            fwrite(pool_.data() + from, 1, n, file_);
            left -= (uint32_t)n;
        }
        offset_ += size;
    }
    uint64_t Finish()
    {
        fwrite(table_.data(), 1, table_.size(), file_);
        unsigned char header[27] = {0};
        PutLe(header + 4, 27, 2);
        PutLe(header + 6, 1, 2);
        PutLe(header + 8, table_.size() / 40, 4);
        PutLe(header + 12, offset_, 4);
        memcpy(header + 16, "2460000.5", 9);
        fseeko(file_, 0, SEEK_SET);
        fwrite(header, 1, sizeof header, file_);
        uint64_t size = Close(file_);
        uint32_t crc = FileCRCTarnStartingAt(path_.c_str(), 4);
        FILE *f = fopen(path_.c_str(), "r+b");
        unsigned char bytes[4];
        PutLe(bytes, crc, 4);
        if (!f || fwrite(bytes, 1, 4, f) != 4 || fclose(f) != 0) abort();
        return size;
    }

private:
    std::string path_;
    const std::string &pool_;
    FILE *file_;
    std::string table_;
    uint64_t offset_;
};

// "N47272400" / "W122183000" from hundredths of seconds, negative south / west.
void Coordinate(char *text, int64_t hundredths, char positive, char negative, int degreeDigits)
{
    const char letter = hundredths < 0 ? negative : positive;
    if (hundredths < 0) hundredths = -hundredths;
    const int64_t degrees = hundredths / 360000, minutes = hundredths / 6000 % 60;
    snprintf(text, 16, "%c%0*d%02d%04d", letter, degreeDigits, (int)degrees, (int)minutes,
             (int)(hundredths % 6000));
}

void WriteFileText(const std::string &path, const std::string &text, uint64_t *bytes)
{
    FILE *f = Create(path);
    fwrite(text.data(), 1, text.size(), f);
    *bytes += Close(f);
}

std::string RegionRecord(const char *key, const char *code, const char *description)
{
    std::string record(88, '\0');
    memcpy(&record[0], key, strlen(key));
    memcpy(&record[32], code, strlen(code));
    memcpy(&record[38], description, strlen(description));
    for (char &c : record) c = (char)~(unsigned char)c;
    return record;
}

}  // namespace

BenchDirectoryStats WriteBenchDirectory(const std::string &dir, const BenchDirectorySize &size,
                                        uint64_t seed)
{
    BenchDirectoryStats stats;
    Random random = {seed};
    auto at = [&](const char *name) { return dir + "/" + name; };

    for (const char *name : {"charts.ini", "country.dbf", "ctypes.dbf", "tarnwick.tfl", "tarnwick.tls",
                             "lssdef.tcl", "sbscrips.dbf", "state.dbf", "revision.txt"})
        WriteFileText(at(name), std::string("contents of ") + name + "\r\n", &stats.bytes);
    WriteFileText(at("regions.dat"),
                  RegionRecord("100", "US1", "IFR") + RegionRecord("600", "US16", "VFR"), &stats.bytes);
    WriteFileText(at("crcfiles.txt"),
                  "airports.dbf,0x1\r\ncharts.dbf,0x1\r\nnotams.dbf,0x1\r\nnotams.dbt,0x1\r\n"
                  "vfrapts.dbf,0x1\r\nvfrchrts.dbf,0x1\r\nvfrntms.dbf,0x1\r\nvfrntms.dbt,0x1\r\n"
                  "coverags.dbf,0x1\r\nchrtlink.dbf,0x1\r\n",
                  &stats.bytes);

    const std::initializer_list<Field> airportFields = {
        {"F5_6", 'C', 4},       {"ARPT_NAME", 'C', 30}, {"J5_3", 'C', 2},     {"F5_36", 'C', 9},
        {"F5_37", 'C', 10},     {"F5_54", 'N', 5},      {"CHRT_IDX", 'C', 6}, {"CLNK_IDX", 'C', 6}};
    const std::initializer_list<Field> chartFields = {
        {"F5_6", 'C', 4},        {"INDEX_NO", 'C', 8}, {"FILENAM_BA", 'C', 25},
        {"CHART_NAME", 'C', 40}, {"ACTION", 'C', 1},   {"DATE_EFF", 'C', 8}};
    const std::initializer_list<Field> notamFields = {
        {"F5_6", 'C', 4}, {"J5_3", 'C', 2}, {"TEXT", 'M', 10}};
    DbfWriter airports(at("airports.dbf"), airportFields), vfrAirports(at("vfrapts.dbf"), airportFields);
    DbfWriter charts(at("charts.dbf"), chartFields), vfrCharts(at("vfrchrts.dbf"), chartFields);
    DbfWriter links(at("chrtlink.dbf"), {{"F5_6", 'C', 4}, {"LINK_TYPE", 'C', 10}, {"SEQ", 'N', 4}});
    DbfWriter coverage(at("coverags.dbf"), {{"KEY", 'C', 10}, {"F5_6", 'C', 4}, {"NOTE", 'C', 20}});
    DbfWriter notams(at("notams.dbf"), notamFields), vfrNotams(at("vfrntms.dbf"), notamFields);
    DbtWriter notamMemo(at("notams.dbt")), vfrNotamMemo(at("vfrntms.dbt"));

    // The charts of every airport first, so that blob sizes can share out the bytes.
    std::vector<uint8_t> chartCounts(size.airports);
    uint64_t totalCharts = 0;
    for (uint8_t &n : chartCounts) totalCharts += n = (uint8_t)(1 + random.Below(14));
    const uint32_t meanBlob = totalCharts ? (uint32_t)(size.bundleBytes / totalCharts) : 1;

    std::string pool(1 << 21, '\0');
    for (size_t i = 0; i + 8 <= pool.size(); i += 8) {
        uint64_t v = random.Next();
        memcpy(&pool[i], &v, 8);
    }
    BundleWriter bundle(at("charts.bin"), pool), vfrBundle(at("vfrcharts.bin"), pool);

    // Identifiers spread over the four-letter codes in ascending order, so
    // every table is sorted by F5_6.
    const uint32_t codes = 26 * 26 * 26 * 26;
    const uint32_t stride = size.airports ? (codes / size.airports > 0 ? codes / size.airports : 1) : 1;
    static const char *const kCountries[] = {"US", "CA", "MX", "BR", "FR", "DE", "AU", "ZA"};
    char id[5], latitude[16], longitude[16], runway[8], name[32], chartName[48], index[16], file[32];
    uint32_t seq = 0;
    for (uint32_t i = 0; i < size.airports; i++) {
        uint32_t code = (i * stride) % codes;
        for (int k = 3; k >= 0; k--, code /= 26) id[k] = (char)('A' + code % 26);
        id[4] = '\0';
        const bool vfr = i % 5 == 4;
        Coordinate(latitude, (int64_t)random.Below(130 * 360000) - 60 * 360000, 'N', 'S', 2);
        Coordinate(longitude, (int64_t)random.Below(360 * 360000) - 180 * 360000, 'E', 'W', 3);
        snprintf(runway, sizeof runway, "%u", random.Below(4) == 0 ? 0 : 1500 + random.Below(10000));
        snprintf(name, sizeof name, "AIRPORT %s %u", id, i);
        const char *country = kCountries[random.Below(8)];
        (vfr ? vfrAirports : airports).Add({id, name, country, latitude, longitude, runway, "1", "1"});
        coverage.Add({vfr ? "600" : "100", id, "generated"});
        links.Add({id, "APPROACH", "1"});
        for (uint32_t c = 0; c < chartCounts[i]; c++, seq++) {
            snprintf(file, sizeof file, "%s%03u", id, c);
            snprintf(index, sizeof index, c == 0 ? "10-9" : "1%u-%u", c % 9 + 1, c);
            snprintf(chartName, sizeof chartName, "ILS OR LOC RWY %02u CHART %u", c % 36 + 1, seq);
            (vfr ? vfrCharts : charts).Add({id, index, file, chartName, "N", "20250101"});
            std::string entry = std::string(file) + ".PDF";
            const uint32_t blob = meanBlob / 2 + random.Below(meanBlob + 1);
            (vfr ? vfrBundle : bundle).Add(entry.c_str(), blob, seq);
            (vfr ? stats.vfrCharts : stats.charts)++;
        }
        (vfr ? stats.vfrAirports : stats.ifrAirports)++;
        if (i % 4 == 0) {
            std::string text = std::string("NOTAM FOR ") + id +
                               " RWY CLOSED FOR MAINTENANCE BETWEEN 0600 AND 1400 LOCAL, TAXIWAY "
                               "LIGHTS OUT OF SERVICE, OBSTACLE CRANE 250 FT AGL 1 NM FINAL";
            char block[16];
            snprintf(block, sizeof block, "%u", (vfr ? vfrNotamMemo : notamMemo).Add(text));
            (vfr ? vfrNotams : notams).Add({id, country, block});
        }
    }
    for (const char *country : kCountries) {
        char block[16];
        snprintf(block, sizeof block, "%u", notamMemo.Add(std::string("COUNTRY NOTAM ") + country));
        notams.Add({"", country, block});
    }

    for (DbfWriter *t : {&airports, &vfrAirports, &charts, &vfrCharts, &links, &coverage, &notams,
                         &vfrNotams})
        stats.bytes += t->Finish();
    stats.bytes += notamMemo.Finish() + vfrNotamMemo.Finish();
    stats.bytes += bundle.Finish() + vfrBundle.Finish();
    return stats;
}
