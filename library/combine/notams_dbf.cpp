// The NOTAM table merge and the conversion of VFR NOTAM records into the IFR
// layout.  The merged memo file is the IFR memo file followed by the VFR one
// (MergeNotamsDBT), so VFR memo pointers move up by the IFR file's blocks.
#include <stdlib.h>

#include "platform/files.h"
#include "combine/combine.h"
#include "combine/convert.h"
#include "combine/walk.h"

namespace {

// Copied after TEXT, each into the IFR field of the same name.
const FieldNames kNotamFieldMap[] = {
    {"J5_3", "J5_3"},         {"F5_14", "F5_14"},       {"F5_6", "F5_6"},   {"CNT_TYPE", "CNT_TYPE"},
    {"TEMPO", "TEMPO"},       {"END_DATE", "END_DATE"}, {"END_FIXED", "END_FIXED"},
    {"UFN", "UFN"},           {"WIE", "WIE"},           {"EFF_DATE", "EFF_DATE"},
    {"EFF_FIXED", "EFF_FIXED"}, {"INDEX_NO", "INDEX_NO"},
};

// The NOTAM mapping, looked up once for a pair of tables.
class NotamConversion {
public:
    NotamConversion(DBFFile *vfr, DBFFile *ifr)
        : fields_(kNotamFieldMap, sizeof kNotamFieldMap / sizeof kNotamFieldMap[0], vfr, ifr),
          vfrText_(DBFFile_GetFieldNumber(vfr, "TEXT")), ifrText_(DBFFile_GetFieldNumber(ifr, "TEXT")) {}

    void Write(DBFFile *vfr, DBFFile *ifrTemplate, FILE *output, uint32_t blockOffset) const
    {
        // The memo pointer as stored, not the memo it points to.  A blank
        // pointer reads as block 0 and so becomes blockOffset itself.
        const char *raw = DBFFile_GetFieldValueRawByPos(vfr, vfrText_);
        uint32_t block = (uint32_t)(int)(raw ? strtol(raw, nullptr, 10) : 0) + blockOffset;
        char text[16];
        snprintf(text, sizeof text, "%d", (int)block);
        DBFFile_SetFieldValueByPos(ifrTemplate, ifrText_, text);
        fields_.Copy(vfr, ifrTemplate);
        DBFFile_WriteRecord(ifrTemplate, output);
    }

private:
    FieldMap fields_;
    int vfrText_, ifrText_;
};

}  // namespace

void CopyVFRNotamFields(DBFFile *vfrTable, DBFFile *ifrTemplateTable, FILE *output,
                        uint32_t blockOffset)
{
    NotamConversion(vfrTable, ifrTemplateTable).Write(vfrTable, ifrTemplateTable, output, blockOffset);
}

int MergeNotamsDBF(const char *sourceDirectory, const char *destinationDirectory)
{
    MergeTables t;
    int result;
    if (!StartMerge(sourceDirectory, destinationDirectory, "vfrntms.dbf", "notams.dbf", true, t, &result))
        return result;
    // Whole blocks of the IFR memo file; a trailing end-of-file byte does not count.
    uint32_t blockOffset = (uint32_t)(FileSize(sourceDirectory, "notams.dbt") / kDbtBlockSize);
    FILE *out = t.out.get();
    NotamConversion conversion(t.vfr.get(), t.ifrTemplate.get());
    uint32_t written = MergeByKey(t.ifr.get(), t.vfr.get(), MergeKey::Notam, EqualKeys::KeepBoth, out,
                                  [&](DBFFile *table) {
                                      conversion.Write(table, t.ifrTemplate.get(), out, blockOffset);
                                  });
    return FinishMerge(t, written, false);
}
