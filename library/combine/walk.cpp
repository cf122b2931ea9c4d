#include "combine/walk.h"

#include <string.h>

#include "api/files.h"

namespace {

// Longest airport identifier the merge keys hold.
enum { kAirportKeyLength = 9 };

// The field's value, cut to limit characters, into text (limit + 1 bytes);
// empty when the table has no such field.  Copied at once, since the
// handle's value lives only until its next value call.
void TakeValue(DBFFile *table, const char *field, char *text, size_t limit)
{
    const char *value = DBFFile_GetFieldValueByName(table, field);
    size_t n = value ? strnlen(value, limit) : 0;
    memcpy(text, value ? value : "", n);
    text[n] = 0;
}

}  // namespace

void AirportKey(DBFFile *table, char *key) { TakeValue(table, "F5_6", key, kAirportKeyLength); }

void NotamKey(DBFFile *table, char *key)
{
    // Country codes are short; one long enough to crowd out the airport is
    // cut, so that every key keeps its airport part.
    char airport[kAirportKeyLength + 1];
    char country[kMergeKeySize - 1 - kAirportKeyLength];
    TakeValue(table, "F5_6", airport, kAirportKeyLength);
    TakeValue(table, "J5_3", country, sizeof country - 1);
    snprintf(key, kMergeKeySize, "%s:%s", country, airport[0] ? airport : "zzzz");
}

DBFFilePtr OpenTableIn(const char *dir, const char *name)
{
    PathPtr path = JoinPath(dir, name);
    return DBFFilePtr(path ? DBFFile_Open(path.get()) : nullptr);
}

void WriteRecordCount(FILE *out, uint32_t count)
{
    unsigned char bytes[4] = {(unsigned char)count, (unsigned char)(count >> 8),
                              (unsigned char)(count >> 16), (unsigned char)(count >> 24)};
    if (fseeko(out, 4, SEEK_SET) == 0) fwrite(bytes, 1, sizeof bytes, out);
}
