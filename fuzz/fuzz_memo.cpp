// The memo reader on any memo file: a fixed table whose memo field points at
// many blocks, read against fuzzed memo bytes; the memo writer on the same
// bytes as text.
#include <string.h>

#include <string>

#include "dbf/dbf.h"
#include "fuzz_util.h"

// A table of one memo field (10 characters) holding block numbers.
static std::string MemoTable()
{
    static const char *const blocks[] = {"0", "1", "2", "3", "4", "5", "7", "8", "15", "16",
                                         "1000", "-1", "2147483647", "99999999", "  3", "x"};
    const int count = sizeof blocks / sizeof blocks[0];
    std::string table(32, '\0');
    table[0] = 3;
    uint32_t records = count;
    memcpy(&table[4], &records, 4);
    uint16_t headerLength = 32 + 32 + 1, recordLength = 11;
    memcpy(&table[8], &headerLength, 2);
    memcpy(&table[10], &recordLength, 2);
    std::string field(32, '\0');
    memcpy(&field[0], "TEXT", 4);
    field[11] = 'M';
    field[16] = 10;
    table += field + "\r";
    for (const char *block : blocks) {
        std::string value(block);
        table += " " + std::string(10 - value.size(), ' ') + value;
    }
    return table + "\x1a";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("memo");
    static const std::string table = MemoTable();
    dir.Reset();
    WriteBytes(dir / "n.dbf", table);
    WriteBytes(dir / "n.dbt", data, size);
    if (DBFFile *notams = DBFFile_Open((dir / "n.dbf").c_str())) {
        while (DBFFile_ReadRecord(notams) == 1) {
            DBFFile_GetFieldValueByPos(notams, 0);
            DBFFile_GetFieldValueRawByPos(notams, 0);
        }
        DBFFile_Close(notams);
    }
    if (FILE *memo = fopen((dir / "out.dbt").c_str(), "wb")) {
        std::string text((const char *)data, size < 4096 ? size : 4096);
        DBFFile_WriteDBTRecord(memo, text.c_str());
        fclose(memo);
    }
    return 0;
}
