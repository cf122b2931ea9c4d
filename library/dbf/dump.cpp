// The table text dump: a commented description of the table, then one line
// per live record with its values separated by tabs.
#include "dbf.h"

#include "tarntermchart.h"
#include "platform/files.h"
#include "platform/removal.h"

#include <stdio.h>

#include <string>

namespace {

void WriteRecords(DBFFile *dbf, FILE *out)
{
    const int numFields = DBFFile_NumFields(dbf);
    // A record's line is gathered first and written in one call: the
    // values are short, and a stream call per value would cost more than
    // the values themselves.
    std::string line;
    // Reading stops at the first result other than 1, the end marker's
    // short read included.
    while (DBFFile_ReadRecord(dbf) == 1) {
        line.clear();
        for (int i = 0; i < numFields; i++) {
            if (i > 0) line += '\t';
            // Values go out raw: memo text may itself hold tabs and line ends.
            if (const char *value = DBFFile_GetFieldValueByPos(dbf, i))
                line.append(value, DBFFile_ValueLength(dbf));
        }
        line += "\r\n";
        fwrite(line.data(), 1, line.size(), out);
    }
}

}  // namespace

extern "C" int TarnTermChart_DumpDBF(const char *dbfPath, const char *outputPath)
{
    WaitForRemovedFiles();
    DBFFilePtr dbf(DBFFile_Open(dbfPath));
    if (!dbf) return -1;
    // Dumps run to hundreds of thousands of lines, written in large blocks;
    // the buffer outlives the stream that uses it: declared first, freed last.
    MallocPtr<char> buffer;
    // Binary mode: every line ends in exactly CR LF.
    FilePtr out(outputPath ? fopen(outputPath, "wb") : nullptr);
    if (!out) return -2;
    buffer = GiveLargeBuffer(out.get());

    const int count = (int)DBFFile_NumRecords(dbf.get());
    const int numFields = DBFFile_NumFields(dbf.get());
    fprintf(out.get(), "; %s\r\n", dbfPath);
    fprintf(out.get(), "; %d records\r\n", count);
    fprintf(out.get(), "; %d fields\r\n", numFields);
    for (int i = 0; i < numFields; i++)
        fprintf(out.get(), "; Field: \"%s\" len=%d type=\"%c\"\r\n", DBFFile_FieldName(dbf.get(), i),
                DBFFile_FieldLength(dbf.get(), i), DBFFile_FieldType(dbf.get(), i));
    WriteRecords(dbf.get(), out.get());
    // Write errors are not reported: the result is the table's record count.
    return count;
}
