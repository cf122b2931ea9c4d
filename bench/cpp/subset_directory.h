// A generated chart directory for the area subset benchmark: airports spread
// over the globe, several charts each, chart links, NOTAMs with their memo
// files, coverage records and both chart bundles.
//
// Four airports in five are IFR (airports.dbf), the fifth VFR (vfrapts.dbf);
// each has 1 to 14 charts (7.5 on average) named by its identifier and a
// number, so the bundles' name order is the airports' order, as in the
// producer's bundles.  Blobs lie in table order.
#ifndef TARNTERMCHART_BENCH_SUBSET_DIRECTORY_H
#define TARNTERMCHART_BENCH_SUBSET_DIRECTORY_H

#include <stdint.h>

#include <string>

struct BenchDirectorySize {
    uint32_t airports;     // IFR and VFR together
    uint64_t bundleBytes;  // blob bytes of both bundles together
};

struct BenchDirectoryStats {
    uint32_t ifrAirports = 0, vfrAirports = 0;
    uint32_t charts = 0, vfrCharts = 0;
    uint64_t bytes = 0;  // every file written
};

// Writes the directory into dir (which must exist).  The same size and seed
// always give the same bytes.
BenchDirectoryStats WriteBenchDirectory(const std::string &dir, const BenchDirectorySize &size,
                                        uint64_t seed);

// A box that holds about a quarter of the airports: the northern half of
// the latitudes generated, the western half of the longitudes.
struct BenchBox {
    double north, west, south, east;
};
extern const BenchBox kQuarterBox;

#endif
