// The chart list: built from a chart table, searched by base name.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bundle/chartlist.h"
#include "chart_table.h"
#include "fork_util.h"
#include "test_util.h"

namespace {

ChartListPtr ListFrom(const std::string &path) { return ChartListPtr(ChartsFromChartsDBF(path.c_str())); }

std::vector<std::string> Names(const ChartList *list)
{
    std::vector<std::string> names;
    for (uint32_t i = 0; i < list->count; i++) {
        const char *name = ChartListName(list, i);
        names.emplace_back(name, strnlen(name, kChartNameSize));
    }
    return names;
}

// A block laid out like a list of one name, under a word other than the
// list's validity word until a test sets it.
struct OneNameBlock {
    ChartList head;
    char name[kChartNameSize];

    explicit OneNameBlock(const char *text)
    {
        head.magic = 0x13579ACE;
        head.count = 1;
        memset(name, 0, sizeof name);
        strcpy(name, text);
    }
};

}  // namespace

TEST(ChartsFromChartsDBF, SortedNamesOfTheChartsStillListed)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", ChartTable({{"kbos-ils4r"},
                                              {"Alpha"},
                                              {"gone", "D", ""},
                                              {"later", "D", "20240201"},
                                              {"erased", "", "20240101", true},
                                              {"mike", "C", ""},
                                              {"bravo"}}));
    ChartListPtr list = ListFrom(dir / "charts.dbf");
    ASSERT_TRUE(list);
    EXPECT_EQ((uint32_t)list->magic, 0x13579BDFu);
    // A withdrawal without an effective date drops the chart; one with a date
    // does not, nor does a blank date on another action.
    EXPECT_EQ(Names(list.get()), (std::vector<std::string>{"Alpha", "bravo", "kbos-ils4r", "later", "mike"}));
}

TEST(ChartsFromChartsDBF, MissingTableGivesNoList)
{
    TempDir dir;
    EXPECT_EQ(ChartsFromChartsDBF((dir / "charts.dbf").c_str()), nullptr);
}

TEST(ChartsFromChartsDBF, EmptyTableGivesAnEmptyList)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", ChartTable({}));
    ChartListPtr list = ListFrom(dir / "charts.dbf");
    ASSERT_TRUE(list);
    EXPECT_EQ((uint32_t)list->count, 0u);
    EXPECT_EQ(ContainsChart(list.get(), ""), 0);
}

TEST(ChartsFromChartsDBF, NamesAreCutToTwentySixBytes)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", ChartTable({{"abcdefghijklmnopqrstuvwxyz0123"}, {"short"}}));
    ChartListPtr list = ListFrom(dir / "charts.dbf");
    ASSERT_TRUE(list);
    EXPECT_EQ(Names(list.get()), (std::vector<std::string>{"abcdefghijklmnopqrstuvwxyz", "short"}));
    EXPECT_EQ(ContainsChart(list.get(), "ABCDEFGHIJKLMNOPQRSTUVWXYZ"), 1);
    EXPECT_EQ(ContainsChart(list.get(), "abcdefghijklmnopqrstuvwxy"), 0);
}

TEST(ChartsFromChartsDBF, EqualNamesKeepTheTableOrder)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", ChartTable({{"b"}, {"ALPHA"}, {"alpha"}, {"Alpha"}, {"a"}}));
    ChartListPtr list = ListFrom(dir / "charts.dbf");
    ASSERT_TRUE(list);
    EXPECT_EQ(Names(list.get()), (std::vector<std::string>{"a", "ALPHA", "alpha", "Alpha", "b"}));
}

TEST(ChartsFromChartsDBF, HugeRecordCountIsNotTrusted)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    TempDir dir;
    DbfOptions options;
    options.recordCount = 0xFFFFFFFFu;  // 26 bytes per claimed record would be over 100 GB
    options.endMarker = false;
    WriteFile(dir / "charts.dbf", ChartTable({{"alpha"}, {"bravo"}}, options));
    int result = RunInChild([&] {
        LimitAddressSpace(64u << 20);
        ChartList *list = ChartsFromChartsDBF((dir / "charts.dbf").c_str());
        int count = list ? (int)list->count : 100;
        bool found = ContainsChart(list, "bravo") == 1;
        DoneWithChartGrouping(list);
        return found ? count : 101;
    });
    EXPECT_EQ(result, 2);
}

TEST(ChartsFromChartsDBF, RecordBeyondTheCountStillFits)
{
    // The reader admits one record past the header's count; without an end
    // marker that is a real record, and the list grows to take it.
    TempDir dir;
    DbfOptions options;
    options.recordCount = 2;
    options.endMarker = false;
    WriteFile(dir / "charts.dbf", ChartTable({{"charlie"}, {"alpha"}, {"bravo"}}, options));
    ChartListPtr list = ListFrom(dir / "charts.dbf");
    ASSERT_TRUE(list);
    EXPECT_EQ(Names(list.get()), (std::vector<std::string>{"alpha", "bravo", "charlie"}));
}

TEST(ChartsFromChartsDBF, ManyRecords)
{
    TempDir dir;
    std::vector<ChartRow> rows;
    for (int i = 0; i < 5000; i++) rows.push_back({"chart" + std::to_string((i * 7919) % 5000)});
    WriteFile(dir / "charts.dbf", ChartTable(rows));
    ChartListPtr list = ListFrom(dir / "charts.dbf");
    ASSERT_TRUE(list);
    ASSERT_EQ((uint32_t)list->count, 5000u);
    for (int i = 0; i < 5000; i++) EXPECT_EQ(ContainsChart(list.get(), ("CHART" + std::to_string(i)).c_str()), 1);
    EXPECT_EQ(ContainsChart(list.get(), "chart5000"), 0);
    EXPECT_EQ(ContainsChart(list.get(), "chart"), 0);
}

TEST(cmpFunc, IgnoresCaseAndReadsAtMostTwentySixBytes)
{
    EXPECT_EQ(cmpFunc("Alpha", "aLPHA"), 0);
    EXPECT_LT(cmpFunc("alpha", "Bravo"), 0);
    EXPECT_GT(cmpFunc("bravo", "ALPHA"), 0);
    EXPECT_LT(cmpFunc("alp", "alpha"), 0);
    // Names filling all 26 bytes, in blocks of exactly that size: nothing
    // behind them may be read (the sanitizer build would notice).
    char *a = (char *)malloc(kChartNameSize), *b = (char *)malloc(kChartNameSize);
    memcpy(a, "abcdefghijklmnopqrstuvwxyz", kChartNameSize);
    memcpy(b, "ABCDEFGHIJKLMNOPQRSTUVWXYZ", kChartNameSize);
    EXPECT_EQ(cmpFunc(a, b), 0);
    b[25] = 'Y';
    EXPECT_GT(cmpFunc(a, b), 0);
    free(a);
    free(b);
}

TEST(ContainsChart, NullAndForeignListsContainNothing)
{
    EXPECT_EQ(ContainsChart(nullptr, "alpha"), 0);
    OneNameBlock foreign("alpha");
    EXPECT_EQ(ContainsChart(&foreign.head, "alpha"), 0);
    // A foreign block is left to its owner; null is ignored.
    DoneWithChartGrouping(&foreign.head);
    DoneWithChartGrouping(nullptr);
    EXPECT_EQ((uint32_t)foreign.head.magic, 0x13579ACEu);
    foreign.head.magic = kChartListMagic;
    EXPECT_EQ(ContainsChart(&foreign.head, "ALPHA"), 1);
    EXPECT_EQ(ContainsChart(&foreign.head, nullptr), 0);
}

TEST(ContainsChart, FullLengthNamesAmongOthers)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", ChartTable({{"zzzzzzzzzzzzzzzzzzzzzzzzzz"}, {"m"}, {"aaaaaaaaaaaaaaaaaaaaaaaaaa"}}));
    ChartListPtr list = ListFrom(dir / "charts.dbf");
    ASSERT_TRUE(list);
    EXPECT_EQ(ContainsChart(list.get(), "zzzzzzzzzzzzzzzzzzzzzzzzzz"), 1);
    EXPECT_EQ(ContainsChart(list.get(), "AAAAAAAAAAAAAAAAAAAAAAAAAA"), 1);
    EXPECT_EQ(ContainsChart(list.get(), "M"), 1);
    EXPECT_EQ(ContainsChart(list.get(), "zzzzzzzzzzzzzzzzzzzzzzzzz"), 0);
    EXPECT_EQ(ContainsChart(list.get(), "n"), 0);
}

TEST(ChartListIndex, NullForeignAndEmptyListsContainNothing)
{
    EXPECT_FALSE(ChartListIndex(nullptr).Contains("alpha"));
    OneNameBlock foreign("alpha");
    EXPECT_FALSE(ChartListIndex(&foreign.head).Contains("alpha"));
    foreign.head.magic = kChartListMagic;
    ChartListIndex index(&foreign.head);
    EXPECT_TRUE(index.Contains("ALPHA"));
    EXPECT_FALSE(index.Contains(nullptr));
    EXPECT_FALSE(index.Contains(""));
    foreign.head.count = 0;
    EXPECT_FALSE(ChartListIndex(&foreign.head).Contains("alpha"));
}

TEST(ChartListIndex, FullLengthAndDuplicateNames)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", ChartTable({{"zzzzzzzzzzzzzzzzzzzzzzzzzz"}, {"m"}, {"M"}, {"m"},
                                              {"aaaaaaaaaaaaaaaaaaaaaaaaaa"}, {""}}));
    ChartListPtr list = ListFrom(dir / "charts.dbf");
    ASSERT_TRUE(list);
    ChartListIndex index(list.get());
    EXPECT_TRUE(index.Contains("zzzzzzzzzzzzzzzzzzzzzzzzzz"));
    EXPECT_TRUE(index.Contains("AAAAAAAAAAAAAAAAAAAAAAAAAA"));
    EXPECT_TRUE(index.Contains("m"));
    EXPECT_TRUE(index.Contains(""));
    EXPECT_FALSE(index.Contains("zzzzzzzzzzzzzzzzzzzzzzzzz"));
    EXPECT_FALSE(index.Contains("mm"));
}

// The index answers exactly as the binary search does, for names present
// in other letter cases, absent names, prefixes and names one byte longer.
TEST(ChartListIndex, AnswersAsContainsChart)
{
    std::vector<ChartRow> rows;
    unsigned seed = 12345;
    auto next = [&seed]() { return seed = seed * 1103515245u + 12345u; };
    const char letters[] = "abcdefgABCDEFG0123_-.";
    std::vector<std::string> probes;
    for (int i = 0; i < 3000; i++) {
        std::string name;
        const size_t length = 1 + next() % kChartNameSize;
        for (size_t j = 0; j < length; j++) name += letters[(next() >> 8) % (sizeof letters - 1)];
        if (i % 3 != 0) rows.push_back({name});
        probes.push_back(name);
        std::string other = name;
        for (char &c : other) c = (char)((next() & 1) ? toupper(c) : tolower(c));
        probes.push_back(other);
        probes.push_back(name.substr(0, name.size() - 1));
        if (name.size() < kChartNameSize) probes.push_back(name + "x");
    }
    TempDir dir;
    WriteFile(dir / "charts.dbf", ChartTable(rows));
    ChartListPtr list = ListFrom(dir / "charts.dbf");
    ASSERT_TRUE(list);
    ChartListIndex index(list.get());
    int found = 0;
    for (const std::string &probe : probes) {
        const bool expected = ContainsChart(list.get(), probe.c_str()) == 1;
        ASSERT_EQ(index.Contains(probe.c_str()), expected) << probe;
        found += expected;
    }
    EXPECT_GT(found, 3000);
    EXPECT_LT(found, (int)probes.size());
}

// Tables in order at the front and out of order behind, with names equal but
// for letter case: the list is the table's names stably sorted.
TEST(ChartsFromChartsDBF, ListIsAStableSortOfTheNames)
{
    unsigned seed = 4242;
    auto next = [&seed]() { return (seed = seed * 1103515245u + 12345u) >> 16; };
    const char *stems[] = {"abc", "ABC", "Abd", "b10-9", "B10-9", "zz", "q"};
    for (int round = 0; round < 30; round++) {
        std::vector<std::string> names;
        const int ordered = (int)(next() % 40), rest = (int)(next() % 40);
        for (int i = 0; i < ordered; i++) names.push_back(std::string(1, (char)('a' + i % 26)) + std::to_string(i / 26));
        std::sort(names.begin(), names.end(),
                  [](const std::string &a, const std::string &b) { return strcasecmp(a.c_str(), b.c_str()) < 0; });
        for (int i = 0; i < rest; i++) names.push_back(stems[next() % 7]);
        std::vector<ChartRow> rows;
        for (const std::string &name : names) rows.push_back({name});
        TempDir dir;
        WriteFile(dir / "charts.dbf", ChartTable(rows));
        ChartListPtr list = ListFrom(dir / "charts.dbf");
        ASSERT_TRUE(list);
        std::vector<std::string> expected = names;
        std::stable_sort(expected.begin(), expected.end(), [](const std::string &a, const std::string &b) {
            return strncasecmp(a.c_str(), b.c_str(), kChartNameSize) < 0;
        });
        EXPECT_EQ(Names(list.get()), expected) << round;
    }
}
