// The table reader on any bytes: open, every record, every value of every
// field (rendered and raw), edits past the field's end, a copy through the
// writers, and the text dump.  Input: the table, then optionally the memo file.
#include <string.h>

#include "dbf/dbf.h"
#include "fuzz_util.h"
#include "tarntermchart.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("dbf");
    dir.Reset();
    std::vector<std::string> parts = SplitInput(data, size, 2);
    WriteBytes(dir / "t.dbf", parts[0]);
    if (parts.size() > 1) WriteBytes(dir / "t.dbt", parts[1]);

    if (DBFFile *table = DBFFile_Open((dir / "t.dbf").c_str())) {
        FILE *out = fopen((dir / "copy.dbf").c_str(), "w+b");
        DBFFile_Writeheader(table, out);
        int fields = DBFFile_NumFields(table);
        for (int i = -1; i <= fields; i++) {
            DBFFile_FieldName(table, i);
            DBFFile_FieldLength(table, i);
            DBFFile_FieldType(table, i);
        }
        uint32_t written = 0;
        for (int records = 0; records < 10000 && DBFFile_ReadRecord(table) == 1; records++) {
            for (int i = 0; i < fields; i++) {
                DBFFile_GetFieldValueByPos(table, i);
                DBFFile_GetFieldValueRawByPos(table, i);
            }
            if (const char *name = DBFFile_FieldName(table, 0)) DBFFile_GetFieldValueByName(table, name);
            if (records == 0 && fields > 0) {
                DBFFile_SetFieldValueByPos(table, 0, "a text far longer than any field of the record");
                DBFFile_SetFieldValueByName(table, DBFFile_FieldName(table, fields - 1), -1234567890123LL);
            }
            DBFFile_WriteRecord(table, out);
            written++;
        }
        DBFFile_WriteNumRecords(out, written);
        if (out) fclose(out);
        DBFFile_Close(table);
    }
    TarnTermChart_DumpDBF((dir / "t.dbf").c_str(), (dir / "dump.txt").c_str());
    return 0;
}
