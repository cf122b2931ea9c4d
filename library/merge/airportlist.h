// The airport list: every airport of a directory's coverage with the kinds
// of coverage that include it, and the country texts collected from the
// airport tables.  Built by AirportsFromCoveragsDBF, read by the table
// subsetting, freed by FreeAirportList.
#ifndef TARNTERMCHART_AIRPORTLIST_H
#define TARNTERMCHART_AIRPORTLIST_H

#include <stdint.h>

// Type bits of an airport.
enum : uint32_t {
    kAirportIfr = 1,         // lies in an IFR coverage
    kAirportVfr = 2,         // lies in a VFR coverage
    kAirportRestricted = 4,  // lies in a coverage of the restricted kind
};

// Table kinds of CreateSubsetDBF and CreateNotamsDBF.
enum { kTableIfr = 1, kTableVfr = 2, kTableShared = 3 };

struct AirportList;

// Reads the coverage table name in dir (its F5_6 and KEY fields) and
// classifies every airport by the coverage kinds of dir's "regions.dat".
// The counters (may be null) receive the numbers of IFR and VFR coverage
// records.  Null only when memory is short.
AirportList *AirportsFromCoveragsDBF(const char *dir, const char *name, int *ifrCount,
                                     int *vfrCount);
// The airport's type bits, matching code whole and ignoring case; 0 when it
// is not listed or the list is null or foreign.
uint32_t GetAirportType(const AirportList *list, const char *code);
// Takes ownership of a malloc'd country text and stores it in the first
// country slot if that is empty, else in the second.
void AddCountries(AirportList *list, char *countries);
// 1 when country is a substring of a non-empty country text, else 0.
int IsCountryInCoverage(const AirportList *list, const char *country);
void FreeAirportList(AirportList *list);

#endif
