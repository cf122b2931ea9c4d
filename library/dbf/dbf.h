// dBase tables: the one reader and writer of the chart directory's ".dbf"
// tables and their ".dbt" memo files.
//
// A DBFFile reads one table sequentially, record by record, and hands out
// field values as text.  New tables are written to another stream:
//
//     DBFFile *in = DBFFile_Open(path);
//     DBFFile_Writeheader(in, out);                // header copied as it is
//     while (DBFFile_ReadRecord(in) == 1) {        // stop on anything below 1
//         DBFFile_SetFieldValueByPos(in, i, "..."); // edit the current record
//         DBFFile_WriteRecord(in, out);
//         written++;
//     }
//     DBFFile_WriteNumRecords(out, written);       // count and end marker
//     DBFFile_Close(in);
//
// Every operation first checks the handle's validity word; a null or stale
// handle gets a neutral result (0, null, -1 or the code given below), never a
// crash.  Texts returned by the value calls live in the handle: they stay
// valid until the next value call on the same handle or DBFFile_Close and
// are never freed by the caller.
//
// The header is trusted only as far as the file bears it out: field extents
// are clipped to the record once, at open, so no value call reads or writes
// outside the record buffer whatever the descriptors say, and a memo is never
// given more memory than the memo file can fill.
#ifndef TARNTERMCHART_DBF_H
#define TARNTERMCHART_DBF_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <memory>

enum : uint32_t { kDbfMagic = 0x13579ACE };

enum {
    kDbfHeaderSize = 32,      // fixed part of the table header
    kDbfDescriptorSize = 32,  // one field descriptor
    kDbfFieldNameSize = 12,   // at most 11 name characters and a terminator
    kDbtBlockSize = 512,      // memo files are kept in blocks of this size
};

enum : unsigned char {
    kDbfDeletedFlag = '*',  // first record byte of a deleted record
    kDbfLiveFlag = ' ',     // first record byte of a live record
    kDbfTerminator = 0x0D,  // ends the field descriptors
    kDbfEndMarker = 0x1A,   // last byte of a table file
};

struct DBFField {
    char name[kDbfFieldNameSize];  // zero-terminated
    int32_t length;                // as the descriptor gives it; may be negative in a bad file
    int32_t decimals;              // 'N' fields only, else 0
    int32_t offset;                // start within the record (the deletion flag is byte 0)
    char type;                     // 'N' numeric, 'M' memo, anything else text
    // The part of [offset, offset + length) that lies inside the record,
    // fixed at open; every read and write of the field stays within it.
    int32_t begin;
    int32_t end;
};

struct DBFFile {
    uint32_t magic;  // kDbfMagic while the handle is open
    FILE *file;      // the table, read-only
    FILE *memoFile;  // the memo file, read-only, or null when there is none
    unsigned char header[kDbfHeaderSize];
    int32_t numFields;
    int32_t headerLength;
    int32_t recordLength;  // deletion flag included
    uint64_t bytesRead;    // header bytes read while opening
    int32_t recordIndex;   // -1 after opening; counts deleted records too
    DBFField *fields;      // numFields entries
    char *record;          // current record, recordLength + 1 bytes; null until read or set
    char *value;           // last value handed out; null until the first value call

    // Bookkeeping of this reader, not part of the file.
    size_t valueSize;        // bytes allocated for value
    size_t valueLength;      // length of the text last handed out in value
    uint64_t memoSize;       // size of the memo file when it was opened
    char *streamBuffer;      // stdio buffer of file, released after it is closed
    int32_t *nameSlots;      // hash table of field names: field index or -1
    uint32_t nameSlotMask;   // table size - 1 (a power of two)
    char *memoWindow;          // a stretch of the memo file read ahead; null until needed
    uint64_t memoWindowStart;  // its place in the memo file
    size_t memoWindowLength;   // the bytes it holds
};

// Opens a table and, when it exists, its memo file (the path with its last
// character replaced by 't').  Null when the table cannot be opened, its
// header or a descriptor is cut short, or memory is short.  A header length
// below 32 gives a table without fields.  Records are read from just after
// the descriptors' terminator byte, wherever the header length points.
DBFFile *DBFFile_Open(const char *path);
// Closes both streams and frees the handle; a null or invalid handle is ignored.
void DBFFile_Close(DBFFile *dbf);

// A handle closed when it leaves scope.
struct DBFFileCloser {
    void operator()(DBFFile *dbf) const { DBFFile_Close(dbf); }
};
using DBFFilePtr = std::unique_ptr<DBFFile, DBFFileCloser>;

// The record count of the header (deleted records included); 0 for a bad handle.
uint32_t DBFFile_NumRecords(const DBFFile *dbf);
// Whether the header describes the file, as every operation that rebuilds a
// chart directory requires of the tables it reads: a record length of at
// least 1, a header length with room for its descriptors and their
// terminator, every field inside the record, and a file holding every
// record the header counts.  DBFFile_Open itself reads whatever it can, as
// the dumps do; a table that is not sound fails the step that reads it.
bool DBFFile_IsSound(const DBFFile *dbf);
// Whether the last DBFFile_ReadRecord below 1 came because every counted
// record had been read, not from a read that came short before.
bool DBFFile_ReadToEnd(const DBFFile *dbf);
int DBFFile_NumFields(const DBFFile *dbf);
// The field's name; null for a bad handle or an index outside 0..numFields-1.
const char *DBFFile_FieldName(const DBFFile *dbf, int index);
// The field's length as the descriptor gives it; 0 for a bad handle or index.
int DBFFile_FieldLength(const DBFFile *dbf, int index);
// The field's type character; 0 for a bad handle, ' ' for a bad index.
char DBFFile_FieldType(const DBFFile *dbf, int index);
// The first field whose name equals name ignoring (ASCII) case; -1 if none.
// A hash lookup, cheap enough to call for every record.
int DBFFile_GetFieldNumber(const DBFFile *dbf, const char *name);

// Reads the next live record, skipping deleted ones:
//   1  a record was read
//   0  no more records: the count of the header has been passed
//  -1  null or invalid handle
//  -2  short read, normally the end marker after the last record; a table
//      with a record length of 0 has no readable record and always gives -2
// One read past the last counted record is made (and normally gives -2), so
// callers stop on any result below 1.
int DBFFile_ReadRecord(DBFFile *dbf);

// The field's value in the current record; null for a bad handle or index,
// or when no record has been read or set yet.
//  - text fields: trailing blanks (spaces and tabs) cleared, leading ones kept
//  - 'N' fields: digits only, without leading zeros; "0" when none is left
//  - 'M' fields: the memo text the field's block number points to; without a
//    memo file, or when the memo cannot be read, the block-number text under
//    the text rule.  A memo claiming more than the memo file holds gives what
//    the file holds.  Null when memory for the memo is short.
const char *DBFFile_GetFieldValueByPos(DBFFile *dbf, int index);
// As above, but a memo field gives its block-number text, not the memo.
const char *DBFFile_GetFieldValueRawByPos(DBFFile *dbf, int index);
// The length of the text the last successful value call returned (up to
// its first zero byte), so that callers need not count it again.
size_t DBFFile_ValueLength(const DBFFile *dbf);
// DBFFile_GetFieldNumber, then DBFFile_GetFieldValueByPos; null for an unknown name.
const char *DBFFile_GetFieldValueByName(DBFFile *dbf, const char *name);

// Stores text left-justified and space-padded into the field of the current
// record; without a current record a blank live one is made first.  The
// length is not checked against the field's: a longer text runs on into the
// following fields (callers pass values that fit), but never past the end of
// the record.  A null text blanks the field.
void DBFFile_SetFieldValueByPos(DBFFile *dbf, int index, const char *text);
// Stores value as decimal text in the named field; an unknown name does nothing.
void DBFFile_SetFieldValueByName(DBFFile *dbf, const char *name, int64_t value);

// Copies the table's header (header length bytes: header, descriptors,
// terminator) to out with byte 15 cleared; the table's read position is kept.
//   0 written, -1 null handle, -2 invalid handle,
//  -3 the header cannot be read whole, -4 short write (or a null stream)
int DBFFile_Writeheader(DBFFile *dbf, FILE *out);
// Writes the current record (record length bytes, deletion flag included).
//   0 written, -1 null handle, -2 invalid handle, -3 null stream,
//  -4 short write (or no current record to write)
int DBFFile_WriteRecord(DBFFile *dbf, FILE *out);
// Patches the record count at byte 4 of out and appends the end marker
// unless the last byte already is one.  out must be open for reading and
// writing; it is flushed, so a failed append shows here.
//   0 done, -1 null stream, -2 cannot seek to byte 4 or write the count,
//  -3 cannot seek to or read the last byte, -4 cannot append the end marker
int DBFFile_WriteNumRecords(FILE *out, uint32_t count);
// Appends one memo at memo's position: prolog FF FF 08 00, length (text + 8),
// text, zeros up to the next block boundary (a whole block when the text
// ends on one).  Returns the number of the block where the NEXT memo will
// start, which the caller stores in the memo field of the next record whose
// memo it appends.  A null text is written as an empty one; -1 for a null
// stream or when the position cannot be told.
int DBFFile_WriteDBTRecord(FILE *memo, const char *text);

#endif
