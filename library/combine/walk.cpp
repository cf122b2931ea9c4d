#include "combine/walk.h"

#include <string.h>

#include "platform/platform.h"

namespace {

// Longest airport identifier the merge keys hold.
enum { kAirportKeyLength = 9 };
// Country codes are short; one long enough to crowd out the airport is
// cut, so that every key keeps its airport part.
enum { kCountryKeyLength = kMergeKeySize - 2 - kAirportKeyLength };

// Appends the field's value, cut to limit characters, at text; returns the
// end.  Nothing for a field the table lacks.  Copied at once, since the
// handle's value lives only until its next value call.
char *AppendValue(DBFFile *table, int field, char *text, size_t limit)
{
    const char *value = field >= 0 ? DBFFile_GetFieldValueByPos(table, field) : nullptr;
    size_t n = value ? strnlen(value, limit) : 0;
    if (n > 0) memcpy(text, value, n);
    return text + n;
}

DBFFilePtr OpenTableIn(const char *dir, const char *name)
{
    PathPtr path = JoinPath(dir, name);
    return DBFFilePtr(path ? DBFFile_Open(path.get()) : nullptr);
}

}  // namespace

WalkSide::WalkSide(DBFFile *table, MergeKey kind)
    : table_(table), kind_(kind), airportField_(DBFFile_GetFieldNumber(table, "F5_6")),
      countryField_(DBFFile_GetFieldNumber(table, "J5_3"))
{
    Advance();
}

void WalkSide::Advance()
{
    current = DBFFile_ReadRecord(table_) == 1;
    if (!current) return;
    char *end = key;
    if (kind_ == MergeKey::Notam) {
        end = AppendValue(table_, countryField_, end, kCountryKeyLength);
        *end++ = ':';
    }
    char *airport = end;
    end = AppendValue(table_, airportField_, end, kAirportKeyLength);
    if (kind_ == MergeKey::Notam && end == airport) end = (char *)memcpy(end, "zzzz", 4) + 4;
    *end = 0;
}


bool StartMerge(const char *sourceDirectory, const char *destinationDirectory, const char *vfrName,
                const char *ifrName, bool withTemplate, MergeTables &tables, int *result)
{
    *result = 0;
    tables.vfr = OpenTableIn(sourceDirectory, vfrName);
    if (!tables.vfr) return false;
    // A table whose header does not describe it is not merged, nor copied.
    if (!DBFFile_IsSound(tables.vfr.get())) {
        *result = -2;
        return false;
    }
    tables.ifr = OpenTableIn(sourceDirectory, ifrName);
    if (!tables.ifr) {
        tables.vfr.reset();
        if (CopyFile(vfrName, ifrName, sourceDirectory, destinationDirectory) == kCopyWriteFailed) *result = -11;
        return false;
    }
    if (!DBFFile_IsSound(tables.ifr.get())) {
        *result = -2;
        return false;
    }
    // Failing to open a table that was just opened means memory or
    // descriptors are short: the merged table cannot be written.
    if (withTemplate) tables.ifrTemplate = OpenTableIn(sourceDirectory, ifrName);
    if ((withTemplate && !tables.ifrTemplate) || !tables.out.Create(destinationDirectory, ifrName)) {
        *result = -2;
        return false;
    }
    DBFFile_Writeheader(tables.ifr.get(), tables.out.get());
    return true;
}

bool WriteRecordCount(FILE *out, uint32_t count)
{
    unsigned char bytes[4] = {(unsigned char)count, (unsigned char)(count >> 8),
                              (unsigned char)(count >> 16), (unsigned char)(count >> 24)};
    return SeekStream(out, 4, SEEK_SET) == 0 && fwrite(bytes, 1, sizeof bytes, out) == sizeof bytes;
}

int FinishMerge(MergeTables &tables, uint32_t count, bool endMarker)
{
    // Both tables read to their ends, or the merged table is not written.
    if (!DBFFile_ReadToEnd(tables.ifr.get()) || !DBFFile_ReadToEnd(tables.vfr.get())) return -2;
    FILE *out = tables.out.get();
    if (endMarker) {
        if (DBFFile_WriteNumRecords(out, count) != 0) return -11;
    } else if (!WriteRecordCount(out, count)) {
        return -11;
    }
    return tables.out.Commit();
}
