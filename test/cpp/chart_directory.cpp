#include "chart_directory.h"

#include "test_util.h"

const std::vector<DbfField> kAirportTableFields = {
    {"F5_6", 'C', 8},   {"ARPT_NAME", 'C', 30}, {"J5_3", 'C', 19}, {"F5_36", 'C', 9},
    {"F5_37", 'C', 10}, {"F5_54", 'N', 6},      {"CHRT_IDX", 'C', 8}, {"CLNK_IDX", 'C', 8}};
const std::vector<DbfField> kVfrAirportTableFields = {
    {"F5_6", 'C', 8},   {"ARPT_NAM_N", 'C', 30}, {"J5_3", 'C', 19}, {"F5_36", 'C', 9},
    {"F5_37", 'C', 10}, {"F5_54", 'N', 6},       {"CHRT_IDX", 'C', 8}};
const std::vector<DbfField> kChartTableFields = {{"F5_6", 'C', 8},     {"FILENAM_BA", 'C', 25},
                                                 {"INDEX_NO", 'C', 8}, {"ACTION", 'C', 1},
                                                 {"DATE_EFF", 'C', 8}};
const std::vector<DbfField> kLinkTableFields = {{"F5_6", 'C', 8}, {"LINK", 'C', 10}};
const std::vector<DbfField> kNotamTableFields = {{"F5_6", 'C', 8}, {"J5_3", 'C', 19},
                                                 {"TEXT", 'M', 10}};
const std::vector<DbfField> kCoverageTableFields = {{"KEY", 'C', 10}, {"F5_6", 'C', 8}};

SampleDirectory SampleDirectory::Default()
{
    SampleDirectory d;
    d.coverage = {{"100", "KAAA"}, {"100", "KBBB"}, {"600", "KBBB"}, {"100", "KCCC"},
                  {"200", "CYYZ"}, {"600", "KVV1"}, {"600", "KVV2"}};
    d.airports = {{"CYYZ", "CA", "N43404500", "W079374600"},
                  {"KAAA", "US", "N40000000", "W100000000"},
                  {"KBBB", "US", "N41000000", "W101000000"},
                  {"KCCC", "US", "N42000000", "W102000000"}};
    d.vfrAirports = {{"KBBB", "US", "N41000000", "W101000000"},
                     {"KVV1", "US", "N45000000", "W110000000"},
                     {"KVV2", "MX", "N20000000", "W099000000"}};
    d.charts = {{"CYYZ", "CYYZ10-9", "10-9"}, {"KAAA", "KAAA10-9", "10-9"},
                {"KAAA", "KAAA11-1", "11-1"}, {"KBBB", "KBBB10-9", "10-9"},
                {"KCCC", "KCCC10-9", "10-9"}};
    d.vfrCharts = {{"KBBB", "KBBBVFR", "V1"}, {"KVV1", "KVV1VFR", "V1"}, {"KVV2", "KVV2VFR", "V1"}};
    d.links = {"CYYZ", "KAAA", "KCCC"};
    d.notams = {{"", "CA", "Canada wide"}, {"", "US", "US wide"}, {"CYYZ", "CA", "Toronto"},
                {"KAAA", "US", "Alpha closed"}, {"KCCC", "US", "Charlie lights"}};
    d.vfrNotams = {{"", "MX", "Mexico VFR"}, {"KBBB", "US", "Bravo VFR"}, {"KVV1", "US", "V1 birds"}};
    return d;
}

static std::vector<DbfRecord> AirportRecords(const std::vector<SampleAirport> &airports, bool vfr)
{
    std::vector<DbfRecord> records;
    for (const SampleAirport &a : airports) {
        std::vector<std::string> values = {a.code, "Name " + a.code, a.country, a.latitude,
                                           a.longitude, a.runway, "0"};
        if (!vfr) values.push_back("0");
        records.push_back(DbfRecord(values));
    }
    return records;
}

static std::vector<DbfRecord> ChartRecords(const std::vector<std::vector<std::string>> &charts)
{
    std::vector<DbfRecord> records;
    for (const auto &c : charts) records.push_back({c[0], c[1], c.size() > 2 ? c[2] : "", "", ""});
    return records;
}

static void WriteNotams(const std::string &dir, const std::string &base,
                        const std::vector<SampleNotam> &notams)
{
    std::vector<std::string> texts;
    for (const SampleNotam &n : notams) texts.push_back(n.text);
    std::vector<int> blocks;
    WriteFile(dir + "/" + base + ".dbt", DbtFile(texts, &blocks));
    std::vector<DbfRecord> records;
    for (size_t i = 0; i < notams.size(); i++)
        records.push_back({notams[i].code, notams[i].country, std::to_string(blocks[i])});
    WriteFile(dir + "/" + base + ".dbf", DbfTable(kNotamTableFields, records));
}

void SampleDirectory::Write(const std::string &dir) const
{
    WriteRequiredFiles(dir);
    WriteFile(dir + "/regions.dat",
              RegionsDat({{"100", "US1", "US IFR"}, {"600", "US16", "US VFR"},
                          {"700", "US17", "US restricted"}, {"200", "CA1", "Canada IFR"}}));
    WriteFile(dir + "/coverages.txt", coverageCodes + "\r\n");
    WriteFile(dir + "/crcfiles.txt", crcList);
    std::vector<DbfRecord> coverageRecords;
    for (const auto &c : coverage) coverageRecords.push_back({c.first, c.second});
    WriteFile(dir + "/coverags.dbf", DbfTable(kCoverageTableFields, coverageRecords));
    if (!airports.empty()) {
        WriteFile(dir + "/airports.dbf", DbfTable(kAirportTableFields, AirportRecords(airports, false)));
        WriteFile(dir + "/charts.dbf", DbfTable(kChartTableFields, ChartRecords(charts)));
        WriteNotams(dir, "notams", notams);
    }
    if (!vfrAirports.empty()) {
        WriteFile(dir + "/vfrapts.dbf", DbfTable(kVfrAirportTableFields, AirportRecords(vfrAirports, true)));
        WriteFile(dir + "/vfrchrts.dbf", DbfTable(kChartTableFields, ChartRecords(vfrCharts)));
        WriteNotams(dir, "vfrntms", vfrNotams);
    }
    std::vector<DbfRecord> linkRecords;
    for (const std::string &code : links) linkRecords.push_back({code, "link"});
    WriteFile(dir + "/chrtlink.dbf", DbfTable(kLinkTableFields, linkRecords));
}

FixtureBundle BundleOfBases(const std::vector<std::string> &bases, const std::string &date, uint32_t seed)
{
    FixtureBundle bundle;
    bundle.julianDate = date;
    uint32_t key = 1;
    for (const std::string &base : bases) {
        bundle.entries.push_back({base + ".PDF", RandomBytes(1500 + 300 * key, seed + key), key});
        key++;
    }
    return bundle;
}

void WriteMergeSample(const std::string &dir)
{
    SampleDirectory::Default().Write(dir);
    WriteChartsBin(dir + "/charts.bin",
                   BundleOfBases({"CYYZ10-9", "KAAA10-9", "KAAA11-1", "KBBB10-9", "KCCC10-9"}, "2460000.5", 1));
    WriteChartsBin(dir + "/vfrcharts.bin", BundleOfBases({"KBBBVFR", "KVV1VFR", "KVV2VFR"}, "2460000.5", 20));
    WriteChartsBin(dir + "/2501_charts.bin", BundleOfBases({"KAAA10-9", "KDDD10-9"}, "2460001.5", 40));
    WriteChartsBin(dir + "/2501_vfrcharts.bin", BundleOfBases({"KVV1VFR"}, "2460001.5", 60));
}
