#include "combine_fixture.h"

const std::vector<DbfField> kChartFields = {
    {"F5_6", 'C', 5}, {"FILENAM_BA", 'C', 12}, {"INDEX_NO", 'C', 6}, {"CHART_NAME", 'C', 16}};

const std::vector<DbfField> kIfrAirportFields = {
    {"F5_6", 'C', 5},    {"F5_107", 'C', 4},  {"F5_54", 'C', 4},     {"F5_36", 'C', 10},
    {"F5_37", 'C', 11},  {"F5_39", 'C', 5},   {"F5_55", 'C', 5},     {"ARPT_NAME", 'C', 8},
    {"REMARK", 'C', 6},  {"CITY", 'C', 12},   {"ST_PR", 'C', 2},     {"J5_3", 'C', 3},
    {"J5_5", 'C', 3},    {"J5_6", 'C', 3},    {"J5_7", 'C', 3},      {"J5_8", 'C', 3},
    {"J5_10", 'C', 3},   {"J5_12", 'C', 3},   {"J5_39", 'C', 3},     {"J5_14", 'C', 3},
    {"J5_15", 'C', 3},   {"F5_14", 'C', 4},   {"F5_179", 'C', 3},    {"F5_197", 'C', 3},
    {"PRECISION", 'C', 1}, {"CHRT_IDX", 'C', 6}, {"CLNK_IDX", 'C', 6}, {"MAG_VAR", 'C', 4}};

const std::vector<DbfField> kVfrAirportFields = {
    {"F5_6", 'C', 5},      {"ARPT_NAM_N", 'C', 14}, {"CITY_NAM_N", 'C', 12}, {"F5_107", 'C', 4},
    {"F5_54", 'C', 4},     {"F5_36", 'C', 10},      {"F5_37", 'C', 11},      {"F5_39", 'N', 5},
    {"F5_55", 'C', 5},     {"ST_PR", 'C', 2},       {"J5_3", 'C', 3},        {"J5_5", 'C', 3},
    {"J5_6", 'C', 3},      {"J5_7", 'C', 3},        {"J5_8", 'C', 3},        {"J5_10", 'C', 3},
    {"J5_12", 'C', 3},     {"J5_39", 'C', 3},       {"J5_14", 'C', 3},       {"J5_15", 'C', 3},
    {"F5_14", 'C', 4},     {"F5_179", 'C', 3},      {"F5_197", 'C', 3},      {"CHRT_IDX", 'C', 6},
    {"VFR_ONLY", 'C', 4}};

const std::vector<DbfField> kIfrNotamFields = {
    {"TEXT", 'M', 10},     {"J5_3", 'C', 3},     {"F5_14", 'C', 4},     {"F5_6", 'C', 5},
    {"CNT_TYPE", 'C', 1},  {"TEMPO", 'C', 1},    {"END_DATE", 'C', 8},  {"END_FIXED", 'C', 1},
    {"UFN", 'C', 1},       {"WIE", 'C', 1},      {"EFF_DATE", 'C', 8},  {"EFF_FIXED", 'C', 1},
    {"INDEX_NO", 'C', 6},  {"SOURCE", 'C', 4}};

const std::vector<DbfField> kVfrNotamFields = {
    {"J5_3", 'C', 3},      {"F5_6", 'C', 5},     {"TEXT", 'M', 10},     {"INDEX_NO", 'C', 6},
    {"F5_14", 'C', 4},     {"CNT_TYPE", 'C', 1}, {"TEMPO", 'C', 1},     {"END_DATE", 'C', 8},
    {"END_FIXED", 'C', 1}, {"UFN", 'C', 1},      {"WIE", 'C', 1},       {"EFF_DATE", 'C', 8},
    {"EFF_FIXED", 'C', 1}, {"VFR_ONLY", 'C', 2}};

DbfRecord Named(const std::vector<DbfField> &fields, const std::map<std::string, std::string> &values)
{
    std::vector<std::string> row;
    for (const DbfField &field : fields) {
        auto it = values.find(field.name);
        row.push_back(it == values.end() ? "" : it->second);
    }
    return DbfRecord(row);
}

DbfRecord Chart(const std::string &code, const std::string &file)
{
    return Named(kChartFields, {{"F5_6", code}, {"FILENAM_BA", file}, {"INDEX_NO", "10-1"},
                                {"CHART_NAME", "Chart " + file}});
}

DbfRecord IfrAirport(const std::string &code, const std::string &name)
{
    return Named(kIfrAirportFields, {{"F5_6", code}, {"ARPT_NAME", name}, {"REMARK", "IFR"},
                                     {"CITY", "City " + code}, {"PRECISION", "Y"},
                                     {"CHRT_IDX", "77"}, {"CLNK_IDX", "88"}, {"MAG_VAR", "E12"}});
}

DbfRecord VfrAirport(const std::string &code, const std::string &name, const std::string &city)
{
    return Named(kVfrAirportFields,
                 {{"F5_6", code},        {"ARPT_NAM_N", name},   {"CITY_NAM_N", city},
                  {"F5_107", "P" + code.substr(0, 3)}, {"F5_54", "PU"}, {"F5_36", "N40123456"},
                  {"F5_37", "W073123456"}, {"F5_39", "123"},   {"F5_55", "ELEV"},
                  {"ST_PR", "NY"},       {"J5_3", "US"},         {"J5_5", "a5"},
                  {"J5_6", "a6"},        {"J5_7", "a7"},         {"J5_8", "a8"},
                  {"J5_10", "a10"},      {"J5_12", "a12"},       {"J5_39", "a39"},
                  {"J5_14", "a14"},      {"J5_15", "a15"},       {"F5_14", "F14"},
                  {"F5_179", "179"},     {"F5_197", "197"},      {"CHRT_IDX", "55"},
                  {"VFR_ONLY", "zz"}});
}

DbfRecord IfrNotam(const std::string &country, const std::string &code, const std::string &block,
                   const std::string &index)
{
    return Named(kIfrNotamFields, {{"TEXT", block}, {"J5_3", country}, {"F5_6", code},
                                   {"INDEX_NO", index}, {"SOURCE", "IFR"}, {"CNT_TYPE", "A"}});
}

DbfRecord VfrNotam(const std::string &country, const std::string &code, const std::string &block,
                   const std::string &index)
{
    return Named(kVfrNotamFields,
                 {{"TEXT", block},      {"J5_3", country},    {"F5_6", code},   {"INDEX_NO", index},
                  {"F5_14", "V14"},     {"CNT_TYPE", "V"},    {"TEMPO", "T"},   {"END_DATE", "20250101"},
                  {"END_FIXED", "E"},   {"UFN", "U"},         {"WIE", "W"},     {"EFF_DATE", "20240101"},
                  {"EFF_FIXED", "F"},   {"VFR_ONLY", "vv"}});
}
