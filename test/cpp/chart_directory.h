// A small but complete chart directory for the tests of whole operations:
// IFR and VFR tables sorted by F5_6, NOTAMs with memo texts, the region
// catalogue, the coverage, the checksum list and the fixed files.  Bundles
// are added by the tests that need them (bundle_writer.h).
#ifndef TARNTERMCHART_TEST_CHART_DIRECTORY_H
#define TARNTERMCHART_TEST_CHART_DIRECTORY_H

#include <string>
#include <vector>

#include "bundle_writer.h"
#include "dbf_writer.h"

// Field layouts of the directory's tables.
extern const std::vector<DbfField> kAirportTableFields;
extern const std::vector<DbfField> kVfrAirportTableFields;
extern const std::vector<DbfField> kChartTableFields;
extern const std::vector<DbfField> kLinkTableFields;
extern const std::vector<DbfField> kNotamTableFields;
extern const std::vector<DbfField> kCoverageTableFields;

struct SampleAirport {
    std::string code, country, latitude, longitude;
    std::string runway = "5000";
};
struct SampleNotam {
    std::string code, country, text;
};

struct SampleDirectory {
    // Coverage records: key and airport code.  Keys: 100 US IFR (US1),
    // 600 US VFR (US16), 700 US restricted (US17), 200 Canada IFR (CA1).
    std::vector<std::pair<std::string, std::string>> coverage;
    std::string coverageCodes = "US1 US16";
    std::vector<SampleAirport> airports, vfrAirports;
    // Charts: airport code and file base name; INDEX_NO from the third item.
    std::vector<std::vector<std::string>> charts, vfrCharts;
    std::vector<std::string> links;  // chrtlink.dbf airport codes
    std::vector<SampleNotam> notams, vfrNotams;
    std::string crcList = "charts.dbf,0x1\r\nairports.dbf,0x2\r\nnotams.dbf,0x3\r\nnotams.dbt,0x4\r\n"
                          "vfrchrts.dbf,0x5\r\nregions.dat,0x6\r\n";

    // The default sample: three US IFR airports (one also VFR), one Canadian
    // airport, two VFR-only airports, with charts, links and NOTAMs.
    static SampleDirectory Default();
    void Write(const std::string &dir) const;
};

// A bundle of one NAME.PDF entry per base name, with blobs of 1,800 bytes
// and more made from seed.
FixtureBundle BundleOfBases(const std::vector<std::string> &bases, const std::string &date, uint32_t seed);
// The default sample with both bundles and one pending update per family
// (the IFR one replacing a chart and adding one, the VFR one replacing a
// chart), for tests of whole merges.
void WriteMergeSample(const std::string &dir);

#endif
