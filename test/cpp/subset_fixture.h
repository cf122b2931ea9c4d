// A small but complete source chart directory for the area subset tests,
// described as plain data that a test can change before writing it.
//
// The default directory, against the box north 45, west -105, south 35,
// east -95 (kBox):
//   IFR airports  KAAA inside, KBBB north of it, KCCC inside, KDDD far away
//   VFR airports  KCCC inside (so KCCC is of both kinds), KVVV inside, KWWW outside
//   charts        KAAA: AAA1, AAA2  KBBB: BBB1  KCCC: CCC1  KDDD: DDD1
//   VFR charts    KCCC: VCCC1  KVVV: VVV1  KWWW: WWW1
//   bundles       one NAME.PDF entry per chart
#ifndef TARNTERMCHART_TEST_SUBSET_FIXTURE_H
#define TARNTERMCHART_TEST_SUBSET_FIXTURE_H

#include <map>
#include <string>
#include <vector>

#include "bundle_writer.h"
#include "dbf_writer.h"
#include "test_util.h"

struct FixtureAirport {
    std::string id, latitude, longitude;
    std::string runway = "5000";
    std::string country = "US";
    std::string chartIndex = "91";  // CHRT_IDX as the source holds it
};

struct FixtureChart {
    std::string airport, fileName;
};

struct FixtureNotam {
    std::string airport, country, text;
};

struct SubsetSourcePlan {
    std::vector<FixtureAirport> airports, vfrAirports;
    std::vector<FixtureChart> charts, vfrCharts;
    std::vector<std::string> links;                                // chrtlink.dbf F5_6
    std::vector<std::pair<std::string, std::string>> coverage;    // KEY, F5_6
    std::vector<FixtureNotam> notams, vfrNotams;
    std::vector<Region> regions;
    std::string crcList;
    // Bundles; by default one entry per chart, named fileName + ".PDF".
    FixtureBundle bundle, vfrBundle;
    bool writeBundle = true, writeVfrBundle = true;
};

struct Box {
    double north, west, south, east;
};
extern const Box kBox;

// Field layouts of the fixture tables.
extern const std::vector<DbfField> kSubsetAirportFields, kSubsetVfrAirportFields,
    kSubsetChartFields, kSubsetLinkFields, kSubsetCoverageFields, kSubsetNotamFields;

SubsetSourcePlan DefaultSubsetSource();
// The bundle entries (fileName + ".PDF", a blob naming the chart) of charts.
FixtureBundle BundleOfCharts(const std::vector<FixtureChart> &charts);
// Writes every file of the plan into dir (which must exist), with the fixed
// files every chart directory carries.
void WriteSubsetSource(const std::string &dir, const SubsetSourcePlan &plan);

// Names and contents of every file in dir.
std::map<std::string, std::string> Snapshot(const std::string &dir);
// The entry names of a bundle file, in table order; empty when there is none.
std::vector<std::string> BundleNames(const std::string &path);

#endif
