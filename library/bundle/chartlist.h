// The chart list: the base names of the charts a chart table still lists,
// against which a bundle is cut down when it is compacted.
//
// One malloc block: the validity word, the count, then count names of 26
// bytes each, NUL-padded (a name filling all 26 bytes has no terminator),
// sorted with cmpFunc.  Every operation ignores a null block or one whose
// first word is not the validity word.
#ifndef TARNTERMCHART_BUNDLE_CHARTLIST_H
#define TARNTERMCHART_BUNDLE_CHARTLIST_H

#include <stdint.h>

#include <memory>
#include <vector>

#include "bundle/chartsbin.h"
#include "dbf/dbf.h"

enum : uint32_t { kChartListMagic = 0x13579BDF };
enum { kChartNameSize = 26 };

#pragma pack(push, 1)
struct ChartList {
    uint32_t magic;  // kChartListMagic while the list is alive
    uint32_t count;  // names that follow the two words
};
#pragma pack(pop)

static_assert(sizeof(ChartList) == 8, "the names follow the two words directly");

// The i-th name (i < count): 26 bytes, not necessarily NUL-terminated.
inline const char *ChartListName(const ChartList *list, uint32_t i)
{
    return (const char *)(list + 1) + (uint64_t)i * kChartNameSize;
}

// Reads FILENAM_BA of every live record of the chart table, leaving out the
// records that withdraw a chart (ACTION "D" without a DATE_EFF).  Null when
// the table cannot be opened or memory is short.
ChartList *ChartsFromChartsDBF(const char *chartTablePath);
// The same from a table already open, read from its current record on.
ChartList *ChartsFromOpenChartsDBF(DBFFile *table);
// Case-insensitive order of two names of at most 26 bytes (strncasecmp).
int cmpFunc(const void *a, const void *b);
// 1 when baseName is in the list (ignoring case), else 0; 0 for a null or
// foreign list.
int ContainsChart(const ChartList *list, const char *baseName);
// The list's names hashed for many lookups in a row, as compaction makes:
// Contains answers as ContainsChart does (the same letter folding, taken
// from the current locale as strncasecmp takes it), in constant time.  The
// list must outlive the index and stay unchanged.
class ChartListIndex {
public:
    explicit ChartListIndex(const ChartList *list);
    // Names asked for in about the list's own order (as a bundle's sorted
    // table asks) are found next to the last one found, without a probe.
    bool Contains(const char *baseName);

private:
    uint64_t Hash(const char *name) const;
    bool Same(const char *name, const char *listed) const;

    const ChartList *list_;
    NameFold fold_;
    std::vector<uint32_t> slots_;  // list positions plus one; 0: free
    size_t mask_ = 0;
    uint32_t cursor_ = 0;  // where the last name was found
};

// Frees the list; a null or foreign block is left alone.
void DoneWithChartGrouping(ChartList *list);

// A list freed when it leaves scope.
struct ChartListFreer {
    void operator()(ChartList *list) const { DoneWithChartGrouping(list); }
};
using ChartListPtr = std::unique_ptr<ChartList, ChartListFreer>;

#endif
