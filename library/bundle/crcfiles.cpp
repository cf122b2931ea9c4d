// Rewriting the checksum list after tables have changed.
#include "bundle/crcfiles.h"

#include <string.h>

#include "api/files.h"
#include "tarntermchart.h"

namespace {

// The tables a line may name, in the order they are looked for.  Lines are
// searched by case-sensitive substring and the first name found decides the
// line, so the order matters for a line that names several.
const char *const kProtectedTables[] = {
    "notams.dbt",  "notams.dbf",  "airports.dbf", "charts.dbf",   "vfrntms.dbt",  "vfrntms.dbf",
    "vfrapts.dbf", "vfrchrts.dbf", "coverags.dbf", "sbscrips.dbf", "chrtlink.dbf",
};

// Entries added to a list that has no "airports.dbf" line while the table exists.
const char *const kIfrTables[] = {"airports.dbf", "charts.dbf", "notams.dbf", "notams.dbt"};

enum { kLineBuffer = 120, kLineKept = kLineBuffer - 1 };

// Reads one line of the old list into line (NUL-terminated, at most 119
// bytes).  A line ends at CR (and one LF after it), at LF, or at the end of
// the file; a longer physical line is cut after 119 bytes, the byte after
// them is dropped, and the rest comes as the next line.  Returns false when
// the line was ended by the end of the file (a CR directly before the end
// included): such a line is not part of the list.
bool ReadListLine(FILE *in, char (&line)[kLineBuffer])
{
    size_t held = 0;
    for (;;) {
        int c = getc(in);
        if (c == '\r') {
            int next = getc(in);
            if (next == EOF) c = EOF;
            else if (next != '\n') ungetc(next, in);
        }
        if (c == EOF || c == '\r' || c == '\n') {
            line[held] = '\0';
            return c != EOF;
        }
        if (held == kLineKept) {  // the byte after a full line is not kept
            line[held] = '\0';
            return true;
        }
        line[held++] = (char)c;
    }
}

}  // namespace

int WriteCrcEntry(const char *line, const char *name, FILE *outStream, const char *directory)
{
    if (!strstr(line, name)) return 0;
    PathPtr path = JoinPath(directory, name);
    uint32_t crc = path ? FileCRCTarn(path.get()) : 0;
    if (crc == 0) return 1;  // no table, no entry: the line is dropped
    return fprintf(outStream, "%s,0x%x\r\n", name, crc) < 0 ? -1 : 1;
}

int FixCRCFilesTxt(const char *newListPath, const char *oldListPath, const char *directory)
{
    FilePtr oldList(fopen(oldListPath, "r"));
    if (!oldList) return -1;
    FilePtr newList(fopen(newListPath, "wb"));
    if (!newList) return -2;

    bool listsAirports = false;
    char line[kLineBuffer];
    // An empty line ends the list, and so does a line without a line break.
    while (ReadListLine(oldList.get(), line) && line[0] != '\0') {
        int decided = 0;
        for (const char *name : kProtectedTables) {
            decided = WriteCrcEntry(line, name, newList.get(), directory);
            if (decided < 0) return -1;
            if (decided == 1) {
                if (strcmp(name, "airports.dbf") == 0) listsAirports = true;
                break;
            }
        }
        if (decided == 0 && fprintf(newList.get(), "%s\r\n", line) < 0) return -1;
    }

    if (!listsAirports) {
        PathPtr airports = JoinPath(directory, "airports.dbf");
        if (airports && FileCRCTarn(airports.get()) != 0) {
            for (const char *name : kIfrTables)
                if (WriteCrcEntry(name, name, newList.get(), directory) < 0) return -1;
        }
    }
    return 0;
}
