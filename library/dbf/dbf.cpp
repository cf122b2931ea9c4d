// The dBase table handle: opening and parsing the header, sequential record
// reads, field values as text, edits of the current record, and the writers
// for headers, records, record counts and memo blocks.
#include "dbf.h"

#include "platform/files.h"
#include "platform/platform.h"

#include <inttypes.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace {

// Tables are read front to back in records of a few hundred bytes; a large
// stream buffer turns that into few, large reads.
const size_t kStreamBufferSize = 256 * 1024;

// Memos are read mostly in the order they were written, a few blocks each:
// a window of the memo file, refilled by one positioned read whenever a
// memo falls outside it, serves most of them without a system call.
const size_t kMemoWindowSize = 64 * 1024;

bool IsValid(const DBFFile *dbf) { return dbf && dbf->magic == kDbfMagic; }

uint16_t Le16(const unsigned char *p) { return (uint16_t)(p[0] | p[1] << 8); }

uint32_t Le32(const unsigned char *p)
{
    return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

void PutLe32(unsigned char *p, uint32_t v)
{
    for (int i = 0; i < 4; i++) p[i] = (unsigned char)(v >> (8 * i));
}

// Field names compare ignoring case, ASCII letters only, so that a name
// matches the same way whatever locale the process runs in.
inline unsigned char Fold(unsigned char c) { return c >= 'a' && c <= 'z' ? (unsigned char)(c - 32) : c; }

bool SameName(const char *a, const char *b)
{
    for (;; a++, b++) {
        unsigned char x = Fold((unsigned char)*a), y = Fold((unsigned char)*b);
        if (x != y) return false;
        if (!x) return true;
    }
}

// FNV-1a over the folded name.
uint32_t NameHash(const char *name)
{
    uint32_t h = 2166136261u;
    for (; *name; name++) h = (h ^ Fold((unsigned char)*name)) * 16777619u;
    return h;
}

void Release(DBFFile *dbf)
{
    dbf->magic = 0;
    if (dbf->file) fclose(dbf->file);
    free(dbf->streamBuffer);  // only after the stream that used it is closed
    if (dbf->memoFile) fclose(dbf->memoFile);
    free(dbf->fields);
    free(dbf->record);
    free(dbf->value);
    free(dbf->nameSlots);
    free(dbf->memoWindow);
    free(dbf);
}

struct HandleReleaser {
    void operator()(DBFFile *dbf) const { Release(dbf); }
};
using HandlePtr = std::unique_ptr<DBFFile, HandleReleaser>;

// Reads the descriptors.  A field starts where the previous one started
// plus the signed word at descriptor bytes 16-17 - for 'N' fields too, whose
// length is byte 16 alone.  The tables this reader serves keep the decimal
// count of their numerics at 0, where both readings agree.
bool ReadFields(DBFFile *dbf)
{
    int64_t offset = 1;
    for (int i = 0; i < dbf->numFields; i++) {
        unsigned char d[kDbfDescriptorSize];
        if (fread(d, 1, sizeof d, dbf->file) != sizeof d) return false;
        dbf->bytesRead += sizeof d;
        DBFField &f = dbf->fields[i];
        memcpy(f.name, d, kDbfFieldNameSize - 1);
        f.name[kDbfFieldNameSize - 1] = 0;
        f.type = (char)d[11];
        int16_t word = (int16_t)Le16(d + 16);
        if (f.type == 'N') {
            f.length = d[16];
            f.decimals = d[17];
        } else {
            f.length = word;
            f.decimals = 0;
        }
        f.offset = (int32_t)offset;
        // Whatever the descriptors say, a field is only ever read or
        // written inside the record.
        int64_t begin = std::min<int64_t>(std::max<int64_t>(offset, 0), dbf->recordLength);
        int64_t end = std::min<int64_t>(std::max<int64_t>(offset + f.length, begin), dbf->recordLength);
        f.begin = (int32_t)begin;
        f.end = (int32_t)end;
        offset += word;
    }
    return true;
}

bool BuildNameIndex(DBFFile *dbf)
{
    uint32_t size = 2;
    while (size < 2u * (uint32_t)dbf->numFields) size *= 2;
    dbf->nameSlots = (int32_t *)malloc(size * sizeof(int32_t));
    if (!dbf->nameSlots) return false;
    for (uint32_t i = 0; i < size; i++) dbf->nameSlots[i] = -1;
    dbf->nameSlotMask = size - 1;
    for (int i = 0; i < dbf->numFields; i++) {
        uint32_t slot = NameHash(dbf->fields[i].name) & dbf->nameSlotMask;
        bool taken = false;
        for (; dbf->nameSlots[slot] >= 0; slot = (slot + 1) & dbf->nameSlotMask)
            if (SameName(dbf->fields[dbf->nameSlots[slot]].name, dbf->fields[i].name)) taken = true;
        if (!taken) dbf->nameSlots[slot] = i;  // a repeated name keeps its first field
    }
    return true;
}

void OpenMemo(DBFFile *dbf, const char *path)
{
    size_t n = strlen(path);
    PathPtr memoPath((char *)malloc(n + 1));
    if (!memoPath) return;
    memcpy(memoPath.get(), path, n + 1);
    memoPath.get()[n - 1] = 't';
    dbf->memoFile = fopen(memoPath.get(), "rb");
    if (!dbf->memoFile) return;
    if (IsPlainFile(dbf->memoFile)) {
        const int64_t size = DescriptorLength(DescriptorOf(dbf->memoFile));
        if (size > 0) dbf->memoSize = (uint64_t)size;
    }
}

// Room for any field's text and its terminator, and for the "0" of a
// numeric even in a record of no bytes.
size_t PlainValueSize(const DBFFile *dbf) { return (size_t)dbf->recordLength + 2; }

bool EnsureValue(DBFFile *dbf, size_t size)
{
    if (dbf->value && dbf->valueSize >= size) return true;
    free(dbf->value);
    dbf->value = (char *)malloc(size);
    dbf->valueSize = dbf->value ? size : 0;
    return dbf->value != nullptr;
}

bool EnsureRecord(DBFFile *dbf)
{
    if (dbf->record) return true;
    // Zeroed, so a read that delivers nothing leaves a defined flag byte.
    dbf->record = (char *)calloc((size_t)dbf->recordLength + 1, 1);
    return dbf->record != nullptr;
}

// Up to n bytes of the memo file at position at, through the window; the
// bytes that could be read.  A piece larger than half the window is read
// straight into to.
size_t ReadMemoBytes(DBFFile *dbf, uint64_t at, void *to, size_t n)
{
    if (n > kMemoWindowSize / 2) return ReadFullyAt(DescriptorOf(dbf->memoFile), to, n, at);
    const bool inside = dbf->memoWindow && at >= dbf->memoWindowStart &&
                        at + n <= dbf->memoWindowStart + dbf->memoWindowLength;
    if (!inside) {
        if (!dbf->memoWindow && !(dbf->memoWindow = (char *)malloc(kMemoWindowSize)))
            return ReadFullyAt(DescriptorOf(dbf->memoFile), to, n, at);
        dbf->memoWindowStart = at;
        dbf->memoWindowLength = ReadFullyAt(DescriptorOf(dbf->memoFile), dbf->memoWindow, kMemoWindowSize, at);
    }
    const uint64_t held = dbf->memoWindowStart + dbf->memoWindowLength > at
                              ? dbf->memoWindowStart + dbf->memoWindowLength - at
                              : 0;
    const size_t got = (size_t)std::min<uint64_t>(n, held);
    memcpy(to, dbf->memoWindow + (at - dbf->memoWindowStart), got);
    return got;
}

// The memo behind the block-number text now in the value buffer.
const char *ReadMemo(DBFFile *dbf)
{
    char *end = nullptr;
    long long block = strtoll(dbf->value, &end, 10);  // blank reads as block 0
    if (block < 0 || block > (INT64_MAX - kDbtBlockSize) / kDbtBlockSize) return dbf->value;
    int64_t start = (int64_t)block * kDbtBlockSize;
    unsigned char lengthBytes[4];
    if (ReadMemoBytes(dbf, (uint64_t)start + 4, lengthBytes, 4) != 4) return dbf->value;
    uint32_t length = Le32(lengthBytes);
    // The length counts the 8 prolog bytes.  A memo is never given more
    // room than the rest of the memo file can fill.
    uint64_t wanted = length >= 8 ? length - 8 : 0;
    uint64_t textStart = (uint64_t)start + 8;
    uint64_t available = dbf->memoSize > textStart ? dbf->memoSize - textStart : 0;
    size_t n = (size_t)std::min(wanted, available);
    if (!EnsureValue(dbf, n + 1)) {
        EnsureValue(dbf, PlainValueSize(dbf));
        return nullptr;
    }
    size_t got = ReadMemoBytes(dbf, textStart, dbf->value, n);
    dbf->value[got] = 0;
    return dbf->value;
}

const char *FieldValue(DBFFile *dbf, int index, bool followMemo)
{
    if (!IsValid(dbf) || index < 0 || index >= dbf->numFields || !dbf->record) return nullptr;
    if (!EnsureValue(dbf, PlainValueSize(dbf))) return nullptr;
    const DBFField &f = dbf->fields[index];
    const unsigned char *from = (const unsigned char *)dbf->record + f.begin;
    const unsigned char *to = (const unsigned char *)dbf->record + f.end;
    char *out = dbf->value;
    if (f.type == 'N') {
        // Each non-blank byte stands for the digit of its low four bits;
        // signs and points are not read, and leading zeros are dropped.
        for (; from < to; from++) {
            if (*from == ' ') continue;
            int digit = *from & 15;
            if (out == dbf->value && digit == 0) continue;
            *out++ = (char)('0' + digit);
        }
        if (out == dbf->value) *out++ = '0';
        *out = 0;
        dbf->valueLength = (size_t)(out - dbf->value);
        return dbf->value;
    }
    // A zero byte inside the field ends the text; blanks before the end go.
    const void *zero = memchr(from, 0, (size_t)(to - from));
    if (zero) to = (const unsigned char *)zero;
    while (to > from && (to[-1] == ' ' || to[-1] == '\t')) to--;
    const size_t n = (size_t)(to - from);
    memcpy(out, from, n);
    out[n] = 0;
    dbf->valueLength = n;
    if (f.type == 'M' && followMemo && dbf->memoFile) {
        // A memo's text may hold zero bytes: it counts up to the first.
        const char *text = ReadMemo(dbf);
        if (text) dbf->valueLength = strlen(text);
        return text;
    }
    return dbf->value;
}

}  // namespace

DBFFile *DBFFile_Open(const char *path)
{
    if (!path) return nullptr;
    FilePtr file(fopen(path, "rb"));
    if (!file) return nullptr;
    HandlePtr dbf((DBFFile *)calloc(1, sizeof(DBFFile)));
    if (!dbf) return nullptr;
    dbf->magic = kDbfMagic;
    dbf->file = file.release();
    dbf->streamBuffer = (char *)malloc(kStreamBufferSize);
    if (dbf->streamBuffer) setvbuf(dbf->file, dbf->streamBuffer, _IOFBF, kStreamBufferSize);

    if (fread(dbf->header, 1, kDbfHeaderSize, dbf->file) != kDbfHeaderSize) return nullptr;
    dbf->bytesRead = kDbfHeaderSize;
    dbf->headerLength = Le16(dbf->header + 8);
    dbf->recordLength = Le16(dbf->header + 10);
    // A header length below 32 leaves no room for descriptors: no fields.
    dbf->numFields = dbf->headerLength < kDbfHeaderSize
                         ? 0
                         : (dbf->headerLength - kDbfHeaderSize) / kDbfDescriptorSize;
    dbf->recordIndex = -1;
    dbf->fields = (DBFField *)calloc((size_t)dbf->numFields + 1, sizeof(DBFField));
    if (!dbf->fields) return nullptr;
    if (!ReadFields(dbf.get())) return nullptr;
    if (!BuildNameIndex(dbf.get())) return nullptr;
    // The terminator; records follow it directly, whatever the header length says.
    if (fgetc(dbf->file) != EOF) dbf->bytesRead++;

    OpenMemo(dbf.get(), path);
    return dbf.release();
}

void DBFFile_Close(DBFFile *dbf)
{
    if (IsValid(dbf)) Release(dbf);
}

uint32_t DBFFile_NumRecords(const DBFFile *dbf) { return IsValid(dbf) ? Le32(dbf->header + 4) : 0; }

bool DBFFile_IsSound(const DBFFile *dbf)
{
    if (!IsValid(dbf) || dbf->recordLength < 1) return false;
    // The descriptors and the terminator after them must lie within the
    // header length.
    if (dbf->headerLength < (int64_t)kDbfHeaderSize * (dbf->numFields + 1) + 1) return false;
    // Every field inside the record, as the layout rule places it (the word
    // at descriptor bytes 16-17 moves the next field, numerics too).
    for (int i = 0; i < dbf->numFields; i++) {
        const DBFField &f = dbf->fields[i];
        if (f.offset < 1 || f.length < 0 || (int64_t)f.offset + f.length > dbf->recordLength) return false;
    }
    // Records are read from just after the terminator: the file must hold
    // all those the header counts.
    const int64_t length = DescriptorLength(DescriptorOf(dbf->file));
    const uint64_t needed = dbf->bytesRead + (uint64_t)DBFFile_NumRecords(dbf) * (uint64_t)dbf->recordLength;
    return length >= 0 && (uint64_t)length >= needed;
}

bool DBFFile_ReadToEnd(const DBFFile *dbf)
{
    return IsValid(dbf) && dbf->recordIndex >= (int64_t)DBFFile_NumRecords(dbf);
}

int DBFFile_NumFields(const DBFFile *dbf) { return IsValid(dbf) ? dbf->numFields : 0; }

const char *DBFFile_FieldName(const DBFFile *dbf, int index)
{
    if (!IsValid(dbf) || index < 0 || index >= dbf->numFields) return nullptr;
    return dbf->fields[index].name;
}

int DBFFile_FieldLength(const DBFFile *dbf, int index)
{
    if (!IsValid(dbf) || index < 0 || index >= dbf->numFields) return 0;
    return dbf->fields[index].length;
}

char DBFFile_FieldType(const DBFFile *dbf, int index)
{
    if (!IsValid(dbf)) return 0;
    if (index < 0 || index >= dbf->numFields) return ' ';
    return dbf->fields[index].type;
}

int DBFFile_GetFieldNumber(const DBFFile *dbf, const char *name)
{
    if (!IsValid(dbf) || !name) return -1;
    if (strnlen(name, kDbfFieldNameSize) >= kDbfFieldNameSize) return -1;  // longer than any stored name
    for (uint32_t slot = NameHash(name) & dbf->nameSlotMask; dbf->nameSlots[slot] >= 0;
         slot = (slot + 1) & dbf->nameSlotMask)
        if (SameName(dbf->fields[dbf->nameSlots[slot]].name, name)) return dbf->nameSlots[slot];
    return -1;
}

int DBFFile_ReadRecord(DBFFile *dbf)
{
    if (!IsValid(dbf)) return -1;
    const int64_t count = DBFFile_NumRecords(dbf);
    for (;;) {
        // The index before the step is tested, so one read is made past the
        // last counted record; it normally meets the end marker.
        const int64_t before = dbf->recordIndex;
        if (before >= count || before == INT32_MAX) return 0;
        dbf->recordIndex++;
        if (!EnsureRecord(dbf) || !EnsureValue(dbf, PlainValueSize(dbf))) return -2;
        if (dbf->recordLength == 0) return -2;  // nothing that could be a record
        // A table's stream belongs to one caller at a time: the lock taken
        // on every record would cost more than copying the record.
        size_t got = ReadUnlocked(dbf->record, (size_t)dbf->recordLength, dbf->file);
        if (got < (size_t)dbf->recordLength) {
            if ((unsigned char)dbf->record[0] == kDbfEndMarker) dbf->record[0] = kDbfLiveFlag;
            return -2;
        }
        if ((unsigned char)dbf->record[0] != kDbfDeletedFlag) return 1;
    }
}

const char *DBFFile_GetFieldValueByPos(DBFFile *dbf, int index) { return FieldValue(dbf, index, true); }

const char *DBFFile_GetFieldValueRawByPos(DBFFile *dbf, int index) { return FieldValue(dbf, index, false); }

size_t DBFFile_ValueLength(const DBFFile *dbf) { return IsValid(dbf) ? dbf->valueLength : 0; }

const char *DBFFile_GetFieldValueByName(DBFFile *dbf, const char *name)
{
    int index = DBFFile_GetFieldNumber(dbf, name);
    return index < 0 ? nullptr : DBFFile_GetFieldValueByPos(dbf, index);
}

void DBFFile_SetFieldValueByPos(DBFFile *dbf, int index, const char *text)
{
    if (!IsValid(dbf) || index < 0 || index >= dbf->numFields) return;
    if (!dbf->record) {
        // A record made from nothing is a live one of blanks.
        dbf->record = (char *)malloc((size_t)dbf->recordLength + 1);
        if (!dbf->record) return;
        memset(dbf->record, ' ', (size_t)dbf->recordLength + 1);
    }
    const DBFField &f = dbf->fields[index];
    memset(dbf->record + f.begin, ' ', (size_t)(f.end - f.begin));
    if (!text) return;
    // The text may run on past its field into the next ones, but not past
    // the record.
    const int64_t start = f.offset;
    const int64_t from = std::max<int64_t>(start, 0);
    const int64_t to = std::min<int64_t>(start + (int64_t)strlen(text), dbf->recordLength);
    if (from < to) memcpy(dbf->record + from, text + (from - start), (size_t)(to - from));
}

void DBFFile_SetFieldValueByName(DBFFile *dbf, const char *name, int64_t value)
{
    int index = DBFFile_GetFieldNumber(dbf, name);
    if (index < 0) return;
    char text[30];
    snprintf(text, sizeof text, "%" PRId64, value);
    DBFFile_SetFieldValueByPos(dbf, index, text);
}

int DBFFile_Writeheader(DBFFile *dbf, FILE *out)
{
    if (!dbf) return -1;
    if (dbf->magic != kDbfMagic) return -2;
    const size_t n = (size_t)dbf->headerLength;
    const int64_t position = TellStream(dbf->file);
    MallocPtr<unsigned char> copy((unsigned char *)malloc(n + 1));
    int result = 0;
    if (!copy || SeekStream(dbf->file, 0, SEEK_SET) != 0 || fread(copy.get(), 1, n, dbf->file) != n) {
        result = -3;
    } else {
        if (n > 15) copy.get()[15] = 0;
        if (!out || fwrite(copy.get(), 1, n, out) != n) result = -4;
    }
    if (position >= 0) SeekStream(dbf->file, position, SEEK_SET);
    return result;
}

int DBFFile_WriteRecord(DBFFile *dbf, FILE *out)
{
    if (!dbf) return -1;
    if (dbf->magic != kDbfMagic) return -2;
    if (!out) return -3;
    const size_t n = (size_t)dbf->recordLength;
    if (n == 0) return 0;
    if (!dbf->record) return -4;
    // Called for every record, on a stream only this caller writes.
    return WriteUnlocked(dbf->record, n, out) == n ? 0 : -4;
}

int DBFFile_WriteNumRecords(FILE *out, uint32_t count)
{
    if (!out) return -1;
    unsigned char countBytes[4];
    PutLe32(countBytes, count);
    if (SeekStream(out, 4, SEEK_SET) != 0 || fwrite(countBytes, 1, 4, out) != 4) return -2;
    // Seeking flushes what was buffered, so a failed record write shows
    // here at the latest.
    if (SeekStream(out, -1, SEEK_END) != 0) return -3;
    int last = fgetc(out);
    if (last == EOF) return -3;
    if (last == kDbfEndMarker) return 0;
    if (SeekStream(out, 0, SEEK_END) != 0 || fputc(kDbfEndMarker, out) == EOF || fflush(out) != 0) return -4;
    return 0;
}

int DBFFile_WriteDBTRecord(FILE *memo, const char *text)
{
    static const unsigned char kZeros[kDbtBlockSize] = {0};
    if (!memo) return -1;
    if (!text) text = "";
    const size_t length = strlen(text);
    unsigned char prolog[8] = {0xFF, 0xFF, 0x08, 0x00};
    PutLe32(prolog + 4, (uint32_t)(length + 8));
    fwrite(prolog, 1, sizeof prolog, memo);
    fwrite(text, 1, length, memo);
    const int64_t position = TellStream(memo);
    if (position < 0) return -1;
    // A memo that ends on a block boundary is still followed by a whole
    // block of zeros.
    const int64_t padding = kDbtBlockSize - position % kDbtBlockSize;
    fwrite(kZeros, 1, (size_t)padding, memo);
    return (int)((position + padding) / kDbtBlockSize);
}
