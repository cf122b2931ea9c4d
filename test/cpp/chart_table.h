// Chart tables for the tests of the chart list and of compaction: the three
// fields the chart list reads, between others it ignores.
#ifndef TARNTERMCHART_TEST_CHART_TABLE_H
#define TARNTERMCHART_TEST_CHART_TABLE_H

#include <string>
#include <vector>

#include "dbf_writer.h"
#include "test_util.h"

struct ChartRow {
    std::string baseName;
    std::string action = "";   // "D" withdraws the chart when dateEff is blank
    std::string dateEff = "20240101";
    bool deleted = false;
};

inline std::vector<DbfField> ChartTableFields()
{
    return {{"F5_6", 'C', 4}, {"ACTION", 'C', 1}, {"FILENAM_BA", 'C', 30}, {"DATE_EFF", 'C', 8}};
}

inline std::string ChartTable(const std::vector<ChartRow> &rows, const DbfOptions &options = DbfOptions())
{
    std::vector<DbfRecord> records;
    for (const ChartRow &row : rows)
        records.emplace_back(std::vector<std::string>{"KXYZ", row.action, row.baseName, row.dateEff}, row.deleted);
    return DbfTable(ChartTableFields(), records, options);
}

// A chart table listing every base name as a live chart.
inline std::string ChartTableOf(const std::vector<std::string> &baseNames)
{
    std::vector<ChartRow> rows;
    for (const std::string &name : baseNames) rows.push_back({name});
    return ChartTable(rows);
}

#endif
