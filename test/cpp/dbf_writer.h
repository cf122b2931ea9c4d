// Writers of dBase tables and memo files for tests, including malformed ones.
//
//     std::string bytes = DbfTable({{"NAME", 'C', 10}, {"COUNT", 'N', 4}},
//                                  {{{"ABC", "12"}}, {{"OLD", "1"}, true}});
//     WriteFile(dir / "t.dbf", bytes);
#ifndef TARNTERMCHART_DBF_WRITER_H
#define TARNTERMCHART_DBF_WRITER_H

#include <stdint.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

struct DbfField {
    std::string name;  // at most 11 characters are stored
    char type;         // 'C', 'N', 'M', ...
    int length;        // 'N': byte 16; other types: the 16-bit word at bytes 16-17
    int decimals = 0;  // 'N' only: byte 17
};

struct DbfRecord {
    // One value per field.  A value shorter than its field is padded with
    // spaces (on the left for 'N', on the right otherwise); a longer one is
    // cut.  Missing values are blank.
    std::vector<std::string> values;
    bool deleted = false;

    DbfRecord() = default;
    DbfRecord(std::initializer_list<std::string> values, bool deleted = false)
        : values(values), deleted(deleted) {}
    DbfRecord(std::vector<std::string> values, bool deleted = false)
        : values(std::move(values)), deleted(deleted) {}
};

struct DbfOptions {
    bool endMarker = true;      // the 0x1A byte after the records
    unsigned char version = 0x03;
    // Header overrides for malformed tables; -1 keeps the true value.  They
    // change only the header bytes, never the layout that is written.
    int64_t recordCount = -1;
    int headerLength = -1;
    int recordLength = -1;
    unsigned char terminator = 0x0D;
    // Bytes after the terminator that the header length counts.
    std::string extraHeader;
    // Raw patches applied last: bytes written at an offset of the finished
    // file (the file grows if a patch runs past its end).
    std::vector<std::pair<size_t, std::string>> patches;
};

// The whole table file.
std::string DbfTable(const std::vector<DbfField> &fields, const std::vector<DbfRecord> &records,
                     const DbfOptions &options = DbfOptions());
// The bytes one record takes in a table with these fields (flag included).
std::string DbfRecordBytes(const std::vector<DbfField> &fields, const DbfRecord &record);
// The length of one record with these fields, flag included.
int DbfRecordLength(const std::vector<DbfField> &fields);

// A memo file: header block 0 (next free block at bytes 0-3), then each text
// in 512-byte blocks - prolog FF FF 08 00, length = text + 8, the text, zeros
// up to the next boundary (a whole block of zeros when the text ends on one,
// as the library's memo writer does).  blocks, when given, receives the
// first block of each memo.
std::string DbtFile(const std::vector<std::string> &texts, std::vector<int> *blocks = nullptr);
// One memo as DbtFile lays it out.
std::string DbtMemo(const std::string &text);

#endif
