// The airport list: coverage kinds, type transitions and country texts.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include "dbf_writer.h"
#include "merge/airportlist.h"
#include "test_util.h"

static const std::vector<DbfField> kCoverageFields = {{"KEY", 'C', 10}, {"F5_6", 'C', 8}};

// Keys 100 (IFR), 600 (VFR, code ending in 6), 700 (restricted, ending in 7).
static void WriteRegions(const TempDir &dir)
{
    WriteFile(dir / "regions.dat", RegionsDat({{"100", "US1", "IFR"}, {"600", "US16", "VFR"},
                                               {"700", "US17", "Restricted"}}));
}

static AirportList *Build(const TempDir &dir, const std::vector<DbfRecord> &records, int *ifr,
                          int *vfr)
{
    WriteRegions(dir);
    WriteFile(dir / "cov.dbf", DbfTable(kCoverageFields, records));
    return AirportsFromCoveragsDBF(dir.c_str(), "cov.dbf", ifr, vfr);
}

TEST(AirportList, NewAirportsAndCounters)
{
    TempDir dir;
    int ifr = -1, vfr = -1;
    AirportList *list = Build(dir, {{"100", "KIFR"}, {"600", "KVFR"}, {"700", "KRES"}}, &ifr, &vfr);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(GetAirportType(list, "KIFR"), 1u);
    EXPECT_EQ(GetAirportType(list, "kvfr"), 2u);
    EXPECT_EQ(GetAirportType(list, "KRES"), 4u);
    EXPECT_EQ(GetAirportType(list, "KNONE"), 0u);
    EXPECT_EQ(ifr, 2);  // the restricted record is not VFR, so it counts as IFR
    EXPECT_EQ(vfr, 1);
    FreeAirportList(list);
}

TEST(AirportList, CodeIsTheFirstFourCharacters)
{
    TempDir dir;
    AirportList *list = Build(dir, {{"100", "KABCDE"}}, nullptr, nullptr);
    EXPECT_EQ(GetAirportType(list, "KABC"), 1u);
    EXPECT_EQ(GetAirportType(list, "KABCDE"), 0u);  // looked up whole
    FreeAirportList(list);
}

// Every transition of the type table.
TEST(AirportList, TypeTransitions)
{
    struct Case {
        std::vector<std::string> keys;
        uint32_t type;
    };
    // A restricted key that is also VFR: make "6700" contain both 600? Use
    // substring membership: the VFR key text "600" and restricted "700".
    const std::vector<Case> cases = {
        {{"100", "600"}, 3}, {{"100", "100"}, 1}, {{"600", "600"}, 2}, {{"600", "100"}, 3},
        {{"600", "700"}, 7}, {{"700", "600"}, 4}, {{"700", "100"}, 4}, {{"100", "700"}, 1},
        {{"100", "600", "700"}, 3},
    };
    for (const Case &c : cases) {
        TempDir dir;
        std::vector<DbfRecord> records;
        for (const std::string &key : c.keys) records.push_back({key, "KABC"});
        AirportList *list = Build(dir, records, nullptr, nullptr);
        EXPECT_EQ(GetAirportType(list, "KABC"), c.type) << c.keys[0] << " " << c.keys[1];
        FreeAirportList(list);
    }
}

TEST(AirportList, RestrictedAndVfrRecord)
{
    // A key that is in both key texts: regions with key 6 for VFR and 6 for
    // restricted, so the record is VFR and restricted at once.
    TempDir dir;
    WriteFile(dir / "regions.dat",
              RegionsDat({{"600", "A6", "v"}, {"600", "B7", "r"}, {"100", "C1", "i"}}));
    WriteFile(dir / "cov.dbf", DbfTable(kCoverageFields, {{"100", "K1"}, {"600", "K1"},   // 1 -> 3
                                                           {"600", "K2"},                 // new: 4
                                                           {"100", "K3"}, {"100", "K3"}}));
    int ifr = 0, vfr = 0;
    AirportList *list = AirportsFromCoveragsDBF(dir.c_str(), "cov.dbf", &ifr, &vfr);
    EXPECT_EQ(GetAirportType(list, "K1"), 3u);
    EXPECT_EQ(GetAirportType(list, "K2"), 4u);
    EXPECT_EQ(vfr, 2);
    EXPECT_EQ(ifr, 3);
    FreeAirportList(list);
}

TEST(AirportList, TypeTwoBecomesSixWithARestrictedVfrRecord)
{
    TempDir dir;
    WriteFile(dir / "regions.dat", RegionsDat({{"600", "A6", "v"}, {"650", "B6", "vr"},
                                               {"650", "C7", "r"}, {"680", "D7", "r"}}));
    WriteFile(dir / "cov.dbf", DbfTable(kCoverageFields, {{"600", "K1"}, {"650", "K1"},   // 2 -> 6
                                                           {"680", "K1"},                 // 6 -> 7
                                                           {"600", "K2"}, {"680", "K2"},  // 2 -> 7
                                                           {"600", "K3"}, {"650", "K3"},
                                                           {"600", "K3"}}));              // 6 -> 6
    AirportList *list = AirportsFromCoveragsDBF(dir.c_str(), "cov.dbf", nullptr, nullptr);
    EXPECT_EQ(GetAirportType(list, "K1"), 7u);
    EXPECT_EQ(GetAirportType(list, "K2"), 7u);
    EXPECT_EQ(GetAirportType(list, "K3"), 6u);
    FreeAirportList(list);
}

TEST(AirportList, MissingTablesGiveAnEmptyList)
{
    TempDir dir;
    int ifr = 5, vfr = 5;
    AirportList *list = AirportsFromCoveragsDBF(dir.c_str(), "cov.dbf", &ifr, &vfr);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(ifr, 0);
    EXPECT_EQ(vfr, 0);
    EXPECT_EQ(GetAirportType(list, ""), 0u);
    FreeAirportList(list);
}

TEST(AirportList, CountriesAreSubstrings)
{
    TempDir dir;
    AirportList *list = Build(dir, {}, nullptr, nullptr);
    EXPECT_EQ(IsCountryInCoverage(list, "US"), 0);
    EXPECT_EQ(IsCountryInCoverage(list, ""), 0);  // both texts empty
    AddCountries(list, strdup(""));
    EXPECT_EQ(IsCountryInCoverage(list, ""), 0);
    AddCountries(list, strdup("CA MX"));
    EXPECT_EQ(IsCountryInCoverage(list, "MX"), 1);
    EXPECT_EQ(IsCountryInCoverage(list, "A M"), 1);
    EXPECT_EQ(IsCountryInCoverage(list, ""), 1);  // an empty code is in any non-empty text
    EXPECT_EQ(IsCountryInCoverage(list, "US"), 0);
    FreeAirportList(list);
}

TEST(AirportList, ForeignOrNullListsAreIgnored)
{
    EXPECT_EQ(GetAirportType(nullptr, "KABC"), 0u);
    EXPECT_EQ(IsCountryInCoverage(nullptr, "US"), 0);
    AddCountries(nullptr, strdup("US"));
    FreeAirportList(nullptr);
    uint32_t foreign[8] = {0x12345678};
    EXPECT_EQ(GetAirportType(reinterpret_cast<AirportList *>(foreign), "K"), 0u);
    FreeAirportList(reinterpret_cast<AirportList *>(foreign));
}
