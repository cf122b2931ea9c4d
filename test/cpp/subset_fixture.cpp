#include "subset_fixture.h"

const Box kBox = {45.0, -105.0, 35.0, -95.0};

const std::vector<DbfField> kSubsetAirportFields = {
    {"F5_6", 'C', 4},  {"J5_3", 'C', 2},     {"F5_36", 'C', 9},   {"F5_37", 'C', 10},
    {"F5_54", 'N', 5}, {"CHRT_IDX", 'C', 6}, {"CLNK_IDX", 'C', 6}};
const std::vector<DbfField> kSubsetVfrAirportFields = {
    {"F5_6", 'C', 4},  {"J5_3", 'C', 2},     {"F5_36", 'C', 9}, {"F5_37", 'C', 10},
    {"F5_54", 'N', 5}, {"CHRT_IDX", 'C', 6}};
const std::vector<DbfField> kSubsetChartFields = {
    {"F5_6", 'C', 4}, {"INDEX_NO", 'C', 6}, {"FILENAM_BA", 'C', 25}};
const std::vector<DbfField> kSubsetLinkFields = {{"F5_6", 'C', 4}, {"LINK", 'C', 8}};
// NOTE is a field the subset never sets: its new records leave it blank.
const std::vector<DbfField> kSubsetCoverageFields = {
    {"KEY", 'C', 10}, {"F5_6", 'C', 4}, {"NOTE", 'C', 6}};
const std::vector<DbfField> kSubsetNotamFields = {
    {"F5_6", 'C', 4}, {"J5_3", 'C', 2}, {"TEXT", 'M', 10}};

FixtureBundle BundleOfCharts(const std::vector<FixtureChart> &charts)
{
    FixtureBundle bundle;
    uint32_t key = 1000;
    for (const FixtureChart &chart : charts)
        bundle.entries.push_back({chart.fileName + ".PDF", "chart " + chart.fileName + " bytes", key++});
    return bundle;
}

SubsetSourcePlan DefaultSubsetSource()
{
    SubsetSourcePlan p;
    p.airports = {{"KAAA", "N40000000", "W100000000"},
                  {"KBBB", "N50000000", "W100000000"},
                  {"KCCC", "N38000000", "W098000000", "3000"},
                  {"KDDD", "S10000000", "E020000000", "5000", "ZA"}};
    p.vfrAirports = {{"KCCC", "N38000000", "W098000000", "3000", "US", "92"},
                     {"KVVV", "N41000000", "W096000000", "2000", "CA", "93"},
                     {"KWWW", "N60000000", "E010000000", "1000", "NO", "94"}};
    p.charts = {{"KAAA", "AAA1"}, {"KAAA", "AAA2"}, {"KBBB", "BBB1"}, {"KCCC", "CCC1"},
                {"KDDD", "DDD1"}};
    p.vfrCharts = {{"KCCC", "VCCC1"}, {"KVVV", "VVV1"}, {"KWWW", "WWW1"}};
    p.links = {"KAAA", "KBBB", "KCCC", "KDDD", "KVVV"};
    // The last IFR record gives the IFR key 100, the VFR records the VFR key 600.
    p.coverage = {{"101", "KAAA"}, {"600", "KVVV"}, {"100", "KBBB"}, {"600", "KCCC"}};
    p.notams = {{"KAAA", "US", "notam a"}, {"KBBB", "US", "notam b"}, {"", "US", "country us"},
                {"", "XX", "country xx"}, {"KCCC", "US", "notam c"}};
    p.vfrNotams = {{"KCCC", "US", "vfr c"}, {"KVVV", "CA", "vfr v"}, {"KWWW", "NO", "vfr w"}};
    p.regions = {{"100", "US1", "United States"},
                 {"101", "US2", "United States 2"},
                 {"600", "US16", "United States VFR"}};
    p.crcList = "airports.dbf,0x1\r\ncharts.dbf,0x1\r\nnotams.dbf,0x1\r\nnotams.dbt,0x1\r\n"
                "vfrapts.dbf,0x1\r\nvfrchrts.dbf,0x1\r\nvfrntms.dbf,0x1\r\nvfrntms.dbt,0x1\r\n"
                "coverags.dbf,0x1\r\nchrtlink.dbf,0x1\r\nother.txt,0x2\r\n";
    p.bundle = BundleOfCharts(p.charts);
    p.vfrBundle = BundleOfCharts(p.vfrCharts);
    return p;
}

namespace {

std::vector<DbfRecord> AirportRecords(const std::vector<FixtureAirport> &airports, bool vfr)
{
    std::vector<DbfRecord> records;
    for (const FixtureAirport &a : airports) {
        std::vector<std::string> values = {a.id, a.country, a.latitude, a.longitude, a.runway,
                                           a.chartIndex};
        if (!vfr) values.push_back("77");
        records.push_back(DbfRecord(values));
    }
    return records;
}

std::vector<DbfRecord> ChartRecords(const std::vector<FixtureChart> &charts)
{
    std::vector<DbfRecord> records;
    for (const FixtureChart &c : charts) records.push_back({c.airport, "10-1", c.fileName});
    return records;
}

void WriteNotams(const std::string &dir, const std::string &table,
                 const std::vector<FixtureNotam> &notams)
{
    std::vector<std::string> texts;
    for (const FixtureNotam &n : notams) texts.push_back(n.text);
    std::vector<int> blocks;
    std::string memo = DbtFile(texts, &blocks);
    std::vector<DbfRecord> records;
    for (size_t i = 0; i < notams.size(); i++)
        records.push_back({notams[i].airport, notams[i].country, std::to_string(blocks[i])});
    WriteFile(dir + "/" + table + ".dbf", DbfTable(kSubsetNotamFields, records));
    WriteFile(dir + "/" + table + ".dbt", memo);
}

}  // namespace

void WriteSubsetSource(const std::string &dir, const SubsetSourcePlan &p)
{
    // Fixed files with contents of their own, so that copies can be told apart.
    for (const char *name : {"charts.ini", "country.dbf", "ctypes.dbf", "tarnwick.tfl",
                             "tarnwick.tls", "lssdef.tcl", "sbscrips.dbf", "state.dbf",
                             "revision.txt", "coverages.txt"})
        WriteFile(dir + "/" + name, std::string("contents of ") + name + "\r\n");
    WriteFile(dir + "/regions.dat", RegionsDat(p.regions));
    WriteFile(dir + "/crcfiles.txt", p.crcList);

    WriteFile(dir + "/airports.dbf", DbfTable(kSubsetAirportFields, AirportRecords(p.airports, false)));
    WriteFile(dir + "/vfrapts.dbf",
              DbfTable(kSubsetVfrAirportFields, AirportRecords(p.vfrAirports, true)));
    WriteFile(dir + "/charts.dbf", DbfTable(kSubsetChartFields, ChartRecords(p.charts)));
    WriteFile(dir + "/vfrchrts.dbf", DbfTable(kSubsetChartFields, ChartRecords(p.vfrCharts)));
    std::vector<DbfRecord> links;
    for (const std::string &id : p.links) links.push_back({id, "link " + id});
    WriteFile(dir + "/chrtlink.dbf", DbfTable(kSubsetLinkFields, links));
    std::vector<DbfRecord> coverage;
    for (const auto &c : p.coverage) coverage.push_back({c.first, c.second, "note"});
    WriteFile(dir + "/coverags.dbf", DbfTable(kSubsetCoverageFields, coverage));
    WriteNotams(dir, "notams", p.notams);
    WriteNotams(dir, "vfrntms", p.vfrNotams);

    if (p.writeBundle) WriteChartsBin(dir + "/charts.bin", p.bundle);
    if (p.writeVfrBundle) WriteChartsBin(dir + "/vfrcharts.bin", p.vfrBundle);
}

std::map<std::string, std::string> Snapshot(const std::string &dir)
{
    std::map<std::string, std::string> files;
    for (const std::string &name : ListDir(dir)) files[name] = ReadFile(dir + "/" + name);
    return files;
}

std::vector<std::string> BundleNames(const std::string &path)
{
    std::vector<std::string> names;
    if (!Exists(path)) return names;
    for (const ParsedEntry &e : ParseChartsBin(ReadFile(path)).entries) names.push_back(e.name);
    return names;
}
