// The NOTAM table merge and the conversion of VFR NOTAM records into the IFR
// layout.  The merged memo file is the IFR memo file followed by the VFR one
// (MergeNotamsDBT), so VFR memo pointers move up by the IFR file's blocks.
#include <stdlib.h>

#include "api/files.h"
#include "combine/combine.h"
#include "combine/walk.h"

namespace {

// Copied after TEXT, each into the IFR field of the same name.
const char *const kNotamFields[] = {"J5_3", "F5_14",     "F5_6",    "CNT_TYPE", "TEMPO",
                                    "END_DATE", "END_FIXED", "UFN",  "WIE",      "EFF_DATE",
                                    "EFF_FIXED", "INDEX_NO"};

}  // namespace

void CopyVFRNotamFields(DBFFile *vfrTable, DBFFile *ifrTemplateTable, FILE *output,
                        uint32_t blockOffset)
{
    // The memo pointer as stored, not the memo it points to.  A blank pointer
    // reads as block 0 and so becomes blockOffset itself.
    int textField = DBFFile_GetFieldNumber(vfrTable, "TEXT");
    const char *raw = textField >= 0 ? DBFFile_GetFieldValueRawByPos(vfrTable, textField) : nullptr;
    uint32_t block = (uint32_t)(int)(raw ? strtol(raw, nullptr, 10) : 0) + blockOffset;
    char text[16];
    snprintf(text, sizeof text, "%d", (int)block);
    DBFFile_SetFieldValueByPos(ifrTemplateTable, DBFFile_GetFieldNumber(ifrTemplateTable, "TEXT"), text);
    for (const char *field : kNotamFields) CopyVFRAptField(field, field, vfrTable, ifrTemplateTable);
    DBFFile_WriteRecord(ifrTemplateTable, output);
}

int MergeNotamsDBF(const char *sourceDirectory, const char *destinationDirectory)
{
    DBFFilePtr vfr = OpenTableIn(sourceDirectory, "vfrntms.dbf");
    if (!vfr) return 0;
    DBFFilePtr ifr = OpenTableIn(sourceDirectory, "notams.dbf");
    if (!ifr) {
        vfr.reset();
        CopyFile("vfrntms.dbf", "notams.dbf", sourceDirectory, destinationDirectory);
        return 0;
    }
    // The conversion's record, as in the airport merge.
    DBFFilePtr ifrTemplate = OpenTableIn(sourceDirectory, "notams.dbf");
    if (!ifrTemplate) return -2;
    FilePtr out = OpenIn(destinationDirectory, "notams.dbf", "w+b");
    if (!out) return -2;
    DBFFile_Writeheader(ifr.get(), out.get());

    // Whole blocks of the IFR memo file; a trailing end-of-file byte does not count.
    uint32_t blockOffset = (uint32_t)(FileSize(sourceDirectory, "notams.dbt") / kDbtBlockSize);
    uint32_t written = MergeByKey(ifr.get(), vfr.get(), NotamKey, EqualKeys::KeepBoth, out.get(),
                                  [&](DBFFile *table) {
                                      CopyVFRNotamFields(table, ifrTemplate.get(), out.get(), blockOffset);
                                  });
    WriteRecordCount(out.get(), written);
    return 0;
}
