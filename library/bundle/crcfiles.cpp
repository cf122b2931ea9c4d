// Rewriting the checksum list after tables have changed.
#include "bundle/crcfiles.h"

#include <string.h>

#include "platform/files.h"
#include "platform/newfile.h"
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

namespace {

// The per-line step with the table found through locate.
int WriteEntryFor(const char *line, const char *name, FILE *outStream, const TableLocator &locate)
{
    if (!strstr(line, name)) return 0;
    const std::string path = locate(name);
    uint32_t crc = path.empty() ? 0 : FileCRCTarn(path.c_str());
    if (crc == 0) return 1;  // no table, no entry: the line is dropped
    return fprintf(outStream, "%s,0x%x\r\n", name, crc) < 0 ? -1 : 1;
}

TableLocator InDirectory(const char *directory)
{
    return [directory](const char *name) {
        PathPtr path = JoinPath(directory, name);
        return path ? std::string(path.get()) : std::string();
    };
}

}  // namespace

int WriteCrcEntry(const char *line, const char *name, FILE *outStream, const char *directory)
{
    return WriteEntryFor(line, name, outStream, InDirectory(directory));
}

int RewriteCrcList(const char *newListPath, const char *oldListPath, const TableLocator &locate)
{
    FilePtr oldList(fopen(oldListPath, "r"));
    if (!oldList) return kCrcListNoOldList;
    NewFile newList;
    if (!newList.Create(newListPath)) return kCrcListNotCreated;
    FILE *out = newList.stream();

    bool listsAirports = false;
    char line[kLineBuffer];
    // An empty line ends the list, and so does a line without a line break.
    while (ReadListLine(oldList.get(), line) && line[0] != '\0') {
        int decided = 0;
        for (const char *name : kProtectedTables) {
            decided = WriteEntryFor(line, name, out, locate);
            if (decided < 0) return kCrcListWriteFailed;
            if (decided == 1) {
                if (strcmp(name, "airports.dbf") == 0) listsAirports = true;
                break;
            }
        }
        if (decided == 0 && fprintf(out, "%s\r\n", line) < 0) return kCrcListWriteFailed;
    }

    if (!listsAirports) {
        const std::string airports = locate("airports.dbf");
        if (!airports.empty() && FileCRCTarn(airports.c_str()) != 0) {
            for (const char *name : kIfrTables)
                if (WriteEntryFor(name, name, out, locate) < 0) return kCrcListWriteFailed;
        }
    }
    return newList.Commit() ? 0 : kCrcListWriteFailed;
}

int FixCRCFilesTxtCode(const char *newListPath, const char *oldListPath, const char *directory)
{
    return RewriteCrcList(newListPath, oldListPath, InDirectory(directory));
}

int FixCRCFilesTxt(const char *newListPath, const char *oldListPath, const char *directory)
{
    const int code = FixCRCFilesTxtCode(newListPath, oldListPath, directory);
    return code == kCrcListWriteFailed ? -1 : code;
}
