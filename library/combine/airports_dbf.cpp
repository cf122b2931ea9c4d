// The airport table merge and the conversion of VFR airport records into the
// IFR layout.
#include "combine/combine.h"
#include "combine/convert.h"
#include "combine/walk.h"

namespace {

// VFR field, IFR field, in the order they are copied.
const FieldNames kAirportFieldMap[] = {
    {"F5_6", "F5_6"},          {"F5_107", "F5_107"}, {"F5_54", "F5_54"}, {"F5_36", "F5_36"},
    {"F5_37", "F5_37"},        {"F5_39", "F5_39"},   {"F5_55", "F5_55"}, {"ARPT_NAM_N", "ARPT_NAME"},
    {"CITY_NAM_N", "CITY"},    {"ST_PR", "ST_PR"},   {"J5_3", "J5_3"},   {"J5_5", "J5_5"},
    {"J5_6", "J5_6"},          {"J5_7", "J5_7"},     {"J5_8", "J5_8"},   {"J5_10", "J5_10"},
    {"J5_12", "J5_12"},        {"J5_39", "J5_39"},   {"J5_14", "J5_14"}, {"J5_15", "J5_15"},
    {"F5_14", "F5_14"},        {"F5_179", "F5_179"}, {"F5_197", "F5_197"},
};
static_assert(sizeof kAirportFieldMap / sizeof kAirportFieldMap[0] <= FieldMap::kMaxFields, "mapping fits");

// The airport mapping, looked up once for a pair of tables.
class AirportConversion {
public:
    AirportConversion(DBFFile *vfr, DBFFile *ifr)
        : fields_(kAirportFieldMap, sizeof kAirportFieldMap / sizeof kAirportFieldMap[0], vfr, ifr),
          precision_(DBFFile_GetFieldNumber(ifr, "PRECISION")),
          chartLink_(DBFFile_GetFieldNumber(ifr, "CHRT_IDX")),
          listLink_(DBFFile_GetFieldNumber(ifr, "CLNK_IDX")) {}

    void Write(DBFFile *vfr, DBFFile *ifrTemplate, FILE *output) const
    {
        fields_.Copy(vfr, ifrTemplate);
        DBFFile_SetFieldValueByPos(ifrTemplate, precision_, "N");
        // The links are recomputed once the chart table is merged.
        DBFFile_SetFieldValueByPos(ifrTemplate, chartLink_, "");
        DBFFile_SetFieldValueByPos(ifrTemplate, listLink_, "");
        DBFFile_WriteRecord(ifrTemplate, output);
    }

private:
    FieldMap fields_;
    int precision_, chartLink_, listLink_;
};

}  // namespace

void CopyVFRAptFields(DBFFile *vfrTable, DBFFile *ifrTemplateTable, FILE *output)
{
    AirportConversion(vfrTable, ifrTemplateTable).Write(vfrTable, ifrTemplateTable, output);
}

int MergeAirportsDBF(const char *sourceDirectory, const char *destinationDirectory)
{
    MergeTables t;
    int result;
    if (!StartMerge(sourceDirectory, destinationDirectory, "vfrapts.dbf", "airports.dbf", true, t, &result))
        return result;
    FILE *out = t.out.get();
    AirportConversion conversion(t.vfr.get(), t.ifrTemplate.get());
    uint32_t written = MergeByKey(t.ifr.get(), t.vfr.get(), MergeKey::Airport, EqualKeys::IfrOnly, out,
                                  [&](DBFFile *table) { conversion.Write(table, t.ifrTemplate.get(), out); });
    return FinishMerge(t, written, false);
}
