// The subset of one table for a coverage, and the NOTAM tables.
#include <string.h>
#include <strings.h>

#include <string>
#include <unordered_set>

#include "dbf/dbf.h"
#include "merge/tables.h"
#include "platform/files.h"
#include "platform/newfile.h"
#include "platform/platform.h"

namespace {

// The field's value copied out of the handle (the handle's text lives only
// until its next value call), at most limit characters; empty when absent.
std::string Value(DBFFile *table, int field, size_t limit = (size_t)-1)
{
    const char *value = field >= 0 ? DBFFile_GetFieldValueByPos(table, field) : nullptr;
    if (!value) return std::string();
    return std::string(value, strnlen(value, limit));
}

bool IsChartTable(const char *path)
{
    const char *slash = strrchr(path, '/');
    return strcasecmp(slash ? slash + 1 : path, "charts.dbf") == 0;
}

// Charts of an airport in a restricted coverage: only the airport diagram
// ("APT") and, where the airport is in an IFR or VFR coverage too, the
// charts whose index ends in "0-9".
bool KeepsRestrictedChart(const std::string &index, uint32_t t)
{
    if (strcasecmp(index.c_str(), "APT") == 0) return true;
    return index.size() >= 3 && index.compare(index.size() - 3, 3, "0-9") == 0 && t != 0;
}

// The space-separated text of distinct countries.  A country once found in
// the text stays found (the text only grows), so each distinct country is
// searched for once.
struct CountryText {
    std::string text;
    std::unordered_set<std::string> seen;

    void Add(const std::string &country)
    {
        if (country.empty() || !seen.insert(country).second) return;
        if (strstr(text.c_str(), country.c_str())) return;
        if (!text.empty()) text += ' ';
        text += country;
    }
};

// The airport type of the record's code, remembered for the next record:
// tables are kept in airport order, so runs of records share a code.
struct TypeByCode {
    explicit TypeByCode(const AirportList *airports) : list(airports) {}

    const AirportList *list;
    std::string code;
    uint32_t type = 0;
    bool known = false;

    uint32_t Of(const std::string &recordCode)
    {
        if (!known || recordCode != code) {
            code = recordCode;
            type = GetAirportType(list, code.c_str());
            known = true;
        }
        return type;
    }
};

}  // namespace

int CreateSubsetDBF(int kind, const AirportList *list, const char *source, const char *target,
                    char **countries)
{
    // The source first: a target that cannot be filled is never created,
    // so a failed cut leaves whatever stood under the target's name.
    DBFFilePtr table(DBFFile_Open(source));
    if (!table || !DBFFile_IsSound(table.get())) return -2;
    NewFile out;
    if (!out.Create(target, true)) return -1;
    DBFFile_Writeheader(table.get(), out.stream());

    int codeField = DBFFile_GetFieldNumber(table.get(), "F5_6");
    int countryField = DBFFile_GetFieldNumber(table.get(), "J5_3");
    int indexField = DBFFile_GetFieldNumber(table.get(), "INDEX_NO");
    bool chartRule = IsChartTable(source);
    CountryText collected;
    TypeByCode types(list);
    uint32_t count = 0;
    while (DBFFile_ReadRecord(table.get()) == 1) {
        uint32_t type = types.Of(Value(table.get(), codeField));
        uint32_t t = type & 3;
        if (countries) collected.Add(Value(table.get(), countryField, 19));
        if (chartRule && (type & kAirportRestricted) &&
            !KeepsRestrictedChart(Value(table.get(), indexField), t))
            continue;
        if (t != 0 && (kind == kTableShared || (int)t == kind || t == 3)) {
            DBFFile_WriteRecord(table.get(), out.stream());
            count++;
        }
    }
    if (countries) *countries = strdup(collected.text.c_str());
    // A source that ended before its last record is not cut from.
    if (!DBFFile_ReadToEnd(table.get())) return -2;
    table.reset();
    if (DBFFile_WriteNumRecords(out.stream(), count) != 0) out.Fail();
    return out.Commit() ? 0 : -3;
}

int CreateNotamsDBF(int kind, const AirportList *list, const char *source, const char *target)
{
    DBFFilePtr table(DBFFile_Open(source));
    if (!table || !DBFFile_IsSound(table.get())) return -2;
    NewFile out;
    if (!out.Create(target, true)) return -1;
    DBFFile_Writeheader(table.get(), out.stream());

    // The memo file beside the target: its path with the last character 't'.
    std::string memoPath(target);
    if (!memoPath.empty()) memoPath.back() = 't';
    NewFile memo;
    if (!memo.Create(memoPath)) return -3;
    static const char headerBlock[512] = {0};
    // Flushed at once, so that a full disk shows here rather than at close.
    if (fwrite(headerBlock, 1, sizeof headerBlock, memo.stream()) != sizeof headerBlock ||
        fflush(memo.stream()) != 0)
        return -4;
    // Every memo written asks the stream for its position.  A stream that
    // has never been positioned answers that with a system call each time;
    // once positioned, it keeps count itself.
    SeekStream(memo.stream(), (int64_t)sizeof headerBlock, SEEK_SET);

    int codeField = DBFFile_GetFieldNumber(table.get(), "F5_6");
    int countryField = DBFFile_GetFieldNumber(table.get(), "J5_3");
    int textField = DBFFile_GetFieldNumber(table.get(), "TEXT");
    int next = 1;
    TypeByCode types(list);
    uint32_t count = 0;
    while (DBFFile_ReadRecord(table.get()) == 1) {
        std::string code = Value(table.get(), codeField, 4);
        std::string country = Value(table.get(), countryField, 19);
        uint32_t type = types.Of(code);
        // The whole type is compared: an airport of a restricted coverage
        // (types 4 to 7) keeps no NOTAMs.
        bool keep = code.empty() ? IsCountryInCoverage(list, country.c_str()) == 1
                                 : type != 0 && ((int)type == kind || type == 3);
        if (!keep) continue;
        // The memo text stays in the handle until its next value call, so
        // it is not copied: setting a field and writing are no value calls.
        const char *text = DBFFile_GetFieldValueByPos(table.get(), textField);
        char number[16];
        snprintf(number, sizeof number, "%d", next);
        DBFFile_SetFieldValueByPos(table.get(), textField, number);
        DBFFile_WriteRecord(table.get(), out.stream());
        next = DBFFile_WriteDBTRecord(memo.stream(), text ? text : "");
        count++;
    }
    if (!DBFFile_ReadToEnd(table.get())) return -2;
    table.reset();
    if (DBFFile_WriteNumRecords(out.stream(), count) != 0) out.Fail();
    // Both files whole before either takes its name, the memo file first:
    // a table never stands beside a memo file it was not written with.
    if (!memo.Finish()) return -6;
    if (!out.Finish()) return -5;
    if (!memo.Commit()) return -6;
    return out.Commit() ? 0 : -5;
}
