#include "table_reader.h"

#include "dbf/dbf.h"

std::vector<std::vector<std::string>> ReadTable(const std::string &path,
                                                const std::vector<std::string> &fields)
{
    std::vector<std::vector<std::string>> rows;
    DBFFile *table = DBFFile_Open(path.c_str());
    if (!table) return rows;
    while (DBFFile_ReadRecord(table) == 1) {
        std::vector<std::string> row;
        for (const std::string &field : fields) {
            const char *value = DBFFile_GetFieldValueByName(table, field.c_str());
            row.push_back(value ? value : "?");
        }
        rows.push_back(row);
    }
    DBFFile_Close(table);
    return rows;
}

std::vector<std::string> ReadColumn(const std::string &path, const std::string &field)
{
    std::vector<std::string> column;
    for (const auto &row : ReadTable(path, {field})) column.push_back(row[0]);
    return column;
}

long HeaderCount(const std::string &path)
{
    DBFFile *table = DBFFile_Open(path.c_str());
    if (!table) return -1;
    long count = (long)DBFFile_NumRecords(table);
    DBFFile_Close(table);
    return count;
}
