// Tables and bundles of a chart directory with IFR and VFR data, for the
// tests of the combine: the IFR and VFR layouts of the chart, airport and
// NOTAM tables and writers for them.
#ifndef TARNTERMCHART_TEST_COMBINE_FIXTURE_H
#define TARNTERMCHART_TEST_COMBINE_FIXTURE_H

#include <map>
#include <string>
#include <vector>

#include "dbf_writer.h"

// Chart tables: IFR and VFR share this layout.
extern const std::vector<DbfField> kChartFields;
// IFR airports; "REMARK" lies outside the VFR mapping and follows
// "ARPT_NAME", so a VFR name too long for "ARPT_NAME" runs on into it.
extern const std::vector<DbfField> kIfrAirportFields;
// VFR airports, in an order of their own, with a field the IFR layout lacks.
extern const std::vector<DbfField> kVfrAirportFields;
// IFR NOTAMs (memo pointer "TEXT" first; "SOURCE" outside the mapping).
extern const std::vector<DbfField> kIfrNotamFields;
extern const std::vector<DbfField> kVfrNotamFields;

// A record of fields given by name (others blank), in the layout's order.
DbfRecord Named(const std::vector<DbfField> &fields, const std::map<std::string, std::string> &values);
// A chart record of airport code and chart file base name.
DbfRecord Chart(const std::string &code, const std::string &file);
// An IFR airport with its name; the other fields carry recognisable values.
DbfRecord IfrAirport(const std::string &code, const std::string &name);
// A VFR airport whose mapped fields hold values derived from code.
DbfRecord VfrAirport(const std::string &code, const std::string &name, const std::string &city);
// NOTAMs of a country and airport (empty for a country-wide one) with a memo block.
DbfRecord IfrNotam(const std::string &country, const std::string &code, const std::string &block,
                   const std::string &index);
DbfRecord VfrNotam(const std::string &country, const std::string &code, const std::string &block,
                   const std::string &index);

#endif
