// Airport link repair.  The airport table and its target tables are all
// sorted by F5_6, so one forward walk over each target links every airport:
// the walk never goes backwards, and an airport finds the first target
// record of its identifier because the target is positioned on it when the
// airport's turn comes.
#include <string.h>
#include <strings.h>

#include "tables.h"
#include "../api/files.h"
#include "../dbf/dbf.h"

namespace {

// One target table of the walk: its current record's key and the number of
// records read so far, which is the current record's number.
struct LinkTarget {
    DBFFile *table = nullptr;
    bool hasCurrent = false;
    bool exhausted = false;
    int counter = 1;
    int keyField = -1;  // looked up once: the walk reads it for every record
    char key[20] = "";

    explicit LinkTarget(const char *directory, const char *name)
    {
        PathPtr path = name ? JoinPath(directory, name) : nullptr;
        table = path ? DBFFile_Open(path.get()) : nullptr;
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
    DBFFile *airports = airportPath ? DBFFile_Open(airportPath.get()) : nullptr;
    if (!airports) return 0;
    std::unique_ptr<DBFFile, void (*)(DBFFile *)> airportGuard(airports, DBFFile_Close);
    int keyField = DBFFile_GetFieldNumber(airports, "F5_6");
    int chartField = DBFFile_GetFieldNumber(airports, "CHRT_IDX");
    int linkField = linkTable ? DBFFile_GetFieldNumber(airports, "CLNK_IDX") : -1;

    LinkTarget charts(directory, chartTable);
    LinkTarget links(directory, linkTable);
    MallocPtr<char> buffer;  // outlives the stream
    FilePtr out = OpenIn(directory, outputTable, "wb");
    if (!out) return -1;
    buffer = GiveLargeBuffer(out.get());
    // Every record is written once, so the header's record count stays right.
    DBFFile_Writeheader(airports, out.get());

    char airportKey[20], chartText[20], linkText[20];
    while (DBFFile_ReadRecord(airports) == 1) {
        const char *value = keyField < 0 ? nullptr : DBFFile_GetFieldValueByPos(airports, keyField);
        airportKey[0] = 0;
        if (value) strncat(airportKey, value, sizeof airportKey - 1);
        charts.Link(airportKey, chartText);
        DBFFile_SetFieldValueByPos(airports, chartField, chartText);
        if (linkTable) {
            links.Link(airportKey, linkText);
            DBFFile_SetFieldValueByPos(airports, linkField, linkText);
        }
        DBFFile_WriteRecord(airports, out.get());
    }
    static const unsigned char endMarker = 0x1A;
    if (fwrite(&endMarker, 1, 1, out.get()) != 1) return -2;
    // The marker is only known to be on disk once the stream is flushed.
    if (fclose(out.release()) != 0) return -2;
    return 0;
}

}  // namespace

int FixAirportDBFLinks(const char *directory, const char *airportTable, const char *chartTable,
                       const char *linkTable, const char *outputTable)
{
    return RepairLinks(directory, airportTable, chartTable, linkTable, outputTable);
}

void FixVFRAirportDBFLinks(const char *directory, const char *airportTable,
                           const char *chartTable, const char *outputTable)
{
    RepairLinks(directory, airportTable, chartTable, nullptr, outputTable);
}
