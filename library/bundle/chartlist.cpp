// The chart list, built from the chart table and searched by compaction.
#include "bundle/chartlist.h"

#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <algorithm>

#include "platform/files.h"
#include "bundle/chartsbin.h"
#include "dbf/dbf.h"

namespace {

struct ChartName {
    char bytes[kChartNameSize];
};
static_assert(sizeof(ChartName) == kChartNameSize, "names are packed back to back");

ChartName *Names(ChartList *list) { return (ChartName *)(list + 1); }

bool IsValid(const ChartList *list) { return list && list->magic == kChartListMagic; }

// The records the table can hold behind its header, whatever its header
// claims: the list is sized by this, so a forged count cannot make it large.
uint64_t RecordsTheFileHolds(DBFFile *table)
{
    int64_t length = StreamLength(table->file);
    if (length < 0 || table->recordLength <= 0 || (uint64_t)length <= table->bytesRead) return 0;
    return ((uint64_t)length - table->bytesRead) / (uint64_t)table->recordLength;
}

// Makes room for at least one more name; false when memory is short (the
// list is then freed).
bool Reserve(ChartList *&list, uint64_t &capacity)
{
    if (list->count < capacity) return true;
    uint64_t grown = capacity < 16 ? 16 : capacity * 2;
    ChartList *bigger = (ChartList *)realloc(list, sizeof(ChartList) + grown * kChartNameSize);
    if (!bigger) return false;
    memset((char *)bigger + sizeof(ChartList) + capacity * kChartNameSize, 0,
           (grown - capacity) * kChartNameSize);
    list = bigger;
    capacity = grown;
    return true;
}

}  // namespace

ChartList *ChartsFromChartsDBF(const char *chartTablePath)
{
    DBFFilePtr table(DBFFile_Open(chartTablePath));
    return table ? ChartsFromOpenChartsDBF(table.get()) : nullptr;
}

ChartList *ChartsFromOpenChartsDBF(DBFFile *table)
{
    uint64_t capacity = std::min<uint64_t>(DBFFile_NumRecords(table), RecordsTheFileHolds(table));
    MallocPtr<ChartList> list((ChartList *)calloc(1, sizeof(ChartList) + capacity * kChartNameSize));
    if (!list) return nullptr;
    list->magic = kChartListMagic;

    const int nameField = DBFFile_GetFieldNumber(table, "FILENAM_BA");
    const int actionField = DBFFile_GetFieldNumber(table, "ACTION");
    const int dateField = DBFFile_GetFieldNumber(table, "DATE_EFF");
    while (DBFFile_ReadRecord(table) == 1) {
        // A record that withdraws a chart without a date on which it takes
        // effect means the chart is gone already.
        const char *action = DBFFile_GetFieldValueByPos(table, actionField);
        if (action && strcmp(action, "D") == 0) {
            const char *date = DBFFile_GetFieldValueByPos(table, dateField);
            if (!date || !*date) continue;
        }
        // The header's count admits one record more than it counts, so the
        // block may still have to grow.
        ChartList *block = list.release();
        bool room = Reserve(block, capacity);
        list.reset(block);
        if (!room) return nullptr;
        const char *name = DBFFile_GetFieldValueByPos(table, nameField);
        if (name) memcpy(Names(list.get())[list->count].bytes, name, strnlen(name, kChartNameSize));
        list->count++;
    }
    // Equal names (in another letter case) keep the table's order, so the
    // list is the same on every platform.
    ChartName *names = Names(list.get());
    const NameFold fold;
    auto before = [&fold](const ChartName &a, const ChartName &b) {
        return fold.Compare(a.bytes, b.bytes, kChartNameSize) < 0;
    };
    // A chart table is kept in airport and chart order, so most of it is in
    // order already: only what follows the ordered beginning is sorted, then
    // merged in, with the same result as a stable sort of the whole.
    ChartName *end = names + list->count;
    ChartName *unsorted = std::is_sorted_until(names, end, before);
    if (unsorted != end) {
        std::stable_sort(unsorted, end, before);
        std::inplace_merge(names, unsorted, end, before);
    }
    return list.release();
}

int cmpFunc(const void *a, const void *b)
{
    // A name may fill its 26 bytes without a terminator.
    return strncasecmp((const char *)a, (const char *)b, kChartNameSize);
}

int ContainsChart(const ChartList *list, const char *baseName)
{
    if (!IsValid(list) || !baseName) return 0;
    return bsearch(baseName, list + 1, list->count, kChartNameSize, cmpFunc) ? 1 : 0;
}

void DoneWithChartGrouping(ChartList *list)
{
    if (!IsValid(list)) return;
    list->magic = 0;
    free(list);
}

ChartListIndex::ChartListIndex(const ChartList *list) : list_(IsValid(list) ? list : nullptr)
{
    const uint32_t count = list_ ? list_->count : 0;
    size_t slots = 16;
    while (slots < 2 * (size_t)count) slots *= 2;
    slots_.assign(slots, 0);
    mask_ = slots - 1;
    for (uint32_t i = 0; i < count; i++) {
        const char *name = ChartListName(list_, i);
        size_t at = Hash(name) & mask_;
        while (slots_[at] != 0) {
            // One of equal names is enough.
            if (Same(name, ChartListName(list_, slots_[at] - 1))) break;
            at = (at + 1) & mask_;
        }
        if (slots_[at] == 0) slots_[at] = i + 1;
    }
}

// Over the bytes strncasecmp would compare: up to a terminator or 26.
uint64_t ChartListIndex::Hash(const char *name) const
{
    uint64_t h = 1469598103934665603ull;
    for (size_t i = 0; i < kChartNameSize && name[i] != '\0'; i++)
        h = (h ^ fold_.to[(unsigned char)name[i]]) * 1099511628211ull;
    return h ^ (h >> 29);
}

bool ChartListIndex::Same(const char *name, const char *listed) const
{
    return fold_.Compare(name, listed, kChartNameSize) == 0;
}

bool ChartListIndex::Contains(const char *baseName)
{
    if (!list_ || !baseName) return false;
    for (uint32_t at = cursor_; at < list_->count && at <= cursor_ + 1; at++) {
        if (Same(baseName, ChartListName(list_, at))) {
            cursor_ = at;
            return true;
        }
    }
    for (size_t at = Hash(baseName) & mask_; slots_[at] != 0; at = (at + 1) & mask_) {
        if (Same(baseName, ChartListName(list_, slots_[at] - 1))) {
            cursor_ = slots_[at] - 1;
            return true;
        }
    }
    return false;
}
