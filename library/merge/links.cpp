// Airport link repair.  The airport table and its target tables are all
// sorted by F5_6, so one forward walk over each target links every airport:
// the walk never goes backwards, and an airport finds the first target
// record of its identifier because the target is positioned on it when the
// airport's turn comes.
#include <string.h>
#include <strings.h>

#include "dbf/dbf.h"
#include "merge/tables.h"
#include "platform/files.h"
#include "platform/newfile.h"

namespace {

// One target table of the walk: its current record's key and the number of
// records read so far, which is the current record's number.
struct LinkTarget {
    DBFFile *table = nullptr;
    bool hasCurrent = false;
    bool exhausted = false;
    bool damaged = false;  // opened, but its header does not describe it
    int counter = 1;
    int keyField = -1;  // looked up once: the walk reads it for every record
    char key[20] = "";

    explicit LinkTarget(const char *directory, const char *name)
    {
        PathPtr path = name ? JoinPath(directory, name) : nullptr;
        table = path ? DBFFile_Open(path.get()) : nullptr;
        damaged = table && !DBFFile_IsSound(table);
        keyField = DBFFile_GetFieldNumber(table, "F5_6");
        // A target without any record never matches.
        if (table && DBFFile_ReadRecord(table) == 1) {
            hasCurrent = true;
            TakeKey();
        }
    }
    ~LinkTarget() { DBFFile_Close(table); }
    LinkTarget(const LinkTarget &) = delete;
    LinkTarget &operator=(const LinkTarget &) = delete;

    void TakeKey()
    {
        const char *value = keyField < 0 ? nullptr : DBFFile_GetFieldValueByPos(table, keyField);
        key[0] = 0;
        if (value) strncat(key, value, sizeof key - 1);
    }

    // The link text of the airport with airportKey: the number of the first
    // target record with that key, or empty.  A target read to its end keeps
    // its last record current.
    void Link(const char *airportKey, char *text)
    {
        text[0] = 0;
        if (!hasCurrent) return;
        for (;;) {
            int order = strcasecmp(airportKey, key);
            if (order <= 0) {
                if (order == 0) snprintf(text, 20, "%d", counter);
                return;
            }
            if (exhausted || DBFFile_ReadRecord(table) != 1) {
                if (!exhausted && !DBFFile_ReadToEnd(table)) damaged = true;
                exhausted = true;
                return;
            }
            counter++;
            TakeKey();
        }
    }
};

// The shared walk: linkTable may be null (VFR tables have no link field).
int RepairLinks(const char *directory, const char *airportTable, const char *chartTable,
                const char *linkTable, const char *outputTable)
{
    PathPtr airportPath = JoinPath(directory, airportTable);
    DBFFilePtr airports(airportPath ? DBFFile_Open(airportPath.get()) : nullptr);
    if (!airports) return 0;
    if (!DBFFile_IsSound(airports.get())) return -4;
    int keyField = DBFFile_GetFieldNumber(airports.get(), "F5_6");
    int chartField = DBFFile_GetFieldNumber(airports.get(), "CHRT_IDX");
    int linkField = linkTable ? DBFFile_GetFieldNumber(airports.get(), "CLNK_IDX") : -1;

    LinkTarget charts(directory, chartTable);
    LinkTarget links(directory, linkTable);
    if (charts.damaged || links.damaged) return -4;
    NewFile out;
    if (!out.Create(directory, outputTable, true)) return -1;
    // Every record is written once, so the header's record count stays right.
    DBFFile_Writeheader(airports.get(), out.stream());

    char airportKey[20], chartText[20], linkText[20];
    while (DBFFile_ReadRecord(airports.get()) == 1) {
        const char *value = keyField < 0 ? nullptr : DBFFile_GetFieldValueByPos(airports.get(), keyField);
        airportKey[0] = 0;
        if (value) strncat(airportKey, value, sizeof airportKey - 1);
        charts.Link(airportKey, chartText);
        DBFFile_SetFieldValueByPos(airports.get(), chartField, chartText);
        if (linkTable) {
            links.Link(airportKey, linkText);
            DBFFile_SetFieldValueByPos(airports.get(), linkField, linkText);
        }
        DBFFile_WriteRecord(airports.get(), out.stream());
    }
    // A table that ended before its last record is not linked from.
    if (!DBFFile_ReadToEnd(airports.get()) || charts.damaged || links.damaged) return -4;
    // The records are out before the end-of-file byte follows, so that a
    // byte that cannot be written is told from the records before it.
    if (fflush(out.stream()) != 0 || out.Failed()) return -3;
    static const unsigned char endMarker = 0x1A;
    if (fwrite(&endMarker, 1, 1, out.stream()) != 1 || fflush(out.stream()) != 0) return -2;
    return out.Commit() ? 0 : -3;
}

}  // namespace

int FixAirportDBFLinks(const char *directory, const char *airportTable, const char *chartTable,
                       const char *linkTable, const char *outputTable)
{
    return RepairLinks(directory, airportTable, chartTable, linkTable, outputTable);
}

int FixVFRAirportDBFLinks(const char *directory, const char *airportTable,
                          const char *chartTable, const char *outputTable)
{
    return RepairLinks(directory, airportTable, chartTable, nullptr, outputTable);
}
