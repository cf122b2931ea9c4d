// The airport table merge and the conversion of VFR airport records into the
// IFR layout.
#include "api/files.h"
#include "combine/combine.h"
#include "combine/walk.h"

namespace {

// VFR field, IFR field, in the order they are copied: where a value runs on
// past its field, the order decides which later field overwrites it.
const char *const kAirportFieldMap[][2] = {
    {"F5_6", "F5_6"},          {"F5_107", "F5_107"}, {"F5_54", "F5_54"}, {"F5_36", "F5_36"},
    {"F5_37", "F5_37"},        {"F5_39", "F5_39"},   {"F5_55", "F5_55"}, {"ARPT_NAM_N", "ARPT_NAME"},
    {"CITY_NAM_N", "CITY"},    {"ST_PR", "ST_PR"},   {"J5_3", "J5_3"},   {"J5_5", "J5_5"},
    {"J5_6", "J5_6"},          {"J5_7", "J5_7"},     {"J5_8", "J5_8"},   {"J5_10", "J5_10"},
    {"J5_12", "J5_12"},        {"J5_39", "J5_39"},   {"J5_14", "J5_14"}, {"J5_15", "J5_15"},
    {"F5_14", "F5_14"},        {"F5_179", "F5_179"}, {"F5_197", "F5_197"},
};

void SetByName(DBFFile *table, const char *field, const char *text)
{
    DBFFile_SetFieldValueByPos(table, DBFFile_GetFieldNumber(table, field), text);
}

}  // namespace

void CopyVFRAptField(const char *vfrFieldName, const char *ifrFieldName, DBFFile *vfrTable,
                     DBFFile *ifrTable)
{
    SetByName(ifrTable, ifrFieldName, DBFFile_GetFieldValueByName(vfrTable, vfrFieldName));
}

void CopyVFRAptFields(DBFFile *vfrTable, DBFFile *ifrTemplateTable, FILE *output)
{
    for (const auto &field : kAirportFieldMap)
        CopyVFRAptField(field[0], field[1], vfrTable, ifrTemplateTable);
    SetByName(ifrTemplateTable, "PRECISION", "N");
    // The links are recomputed once the chart table is merged.
    SetByName(ifrTemplateTable, "CHRT_IDX", "");
    SetByName(ifrTemplateTable, "CLNK_IDX", "");
    DBFFile_WriteRecord(ifrTemplateTable, output);
}

int MergeAirportsDBF(const char *sourceDirectory, const char *destinationDirectory)
{
    DBFFilePtr vfr = OpenTableIn(sourceDirectory, "vfrapts.dbf");
    if (!vfr) return 0;
    DBFFilePtr ifr = OpenTableIn(sourceDirectory, "airports.dbf");
    if (!ifr) {
        vfr.reset();
        CopyFile("vfrapts.dbf", "airports.dbf", sourceDirectory, destinationDirectory);
        return 0;
    }
    // The conversion builds each VFR airport in this handle's record; it is
    // never read, so between conversions the record keeps what the last one
    // left in it.  Failing to open a table that was just opened means
    // memory or descriptors are short: the merged table cannot be written.
    DBFFilePtr ifrTemplate = OpenTableIn(sourceDirectory, "airports.dbf");
    if (!ifrTemplate) return -2;
    FilePtr out = OpenIn(destinationDirectory, "airports.dbf", "w+b");
    if (!out) return -2;
    DBFFile_Writeheader(ifr.get(), out.get());

    uint32_t written = MergeByKey(
        ifr.get(), vfr.get(), AirportKey, EqualKeys::IfrOnly, out.get(),
        [&](DBFFile *table) { CopyVFRAptFields(table, ifrTemplate.get(), out.get()); });
    WriteRecordCount(out.get(), written);
    return 0;
}
