// The table text dump.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "dbf_writer.h"
#include "tarntermchart.h"
#include "test_util.h"

namespace {

const std::vector<DbfField> kFields = {{"F5_6", 'C', 4}, {"NAME", 'C', 12}, {"CHRT_IDX", 'N', 6}};

std::string Header(const std::string &path, int records)
{
    return "; " + path + "\r\n; " + std::to_string(records) +
           " records\r\n; 3 fields\r\n"
           "; Field: \"F5_6\" len=4 type=\"C\"\r\n"
           "; Field: \"NAME\" len=12 type=\"C\"\r\n"
           "; Field: \"CHRT_IDX\" len=6 type=\"N\"\r\n";
}

}  // namespace

TEST(DumpDbf, LiveRecordsOnlyAndTheHeaderCount)
{
    TempDir dir;
    std::string table = dir / "airports.dbf", output = dir / "airports.txt";
    WriteFile(table, DbfTable(kFields, {{"KDEN", "DENVER", "1"},
                                        {{"KOLD", "GONE", "2"}, true},
                                        {"KBOS", "  BOSTON  ", "000017"},
                                        {"LFPG", "", ""}}));
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), output.c_str()), 4);
    EXPECT_EQ(ReadFile(output), Header(table, 4) +
                                    "KDEN\tDENVER\t1\r\n"
                                    "KBOS\t  BOSTON\t17\r\n"
                                    "LFPG\t\t0\r\n");
}

TEST(DumpDbf, EmptyTable)
{
    TempDir dir;
    std::string table = dir / "airports.dbf", output = dir / "airports.txt";
    WriteFile(table, DbfTable(kFields, {}));
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), output.c_str()), 0);
    EXPECT_EQ(ReadFile(output), Header(table, 0));
}

TEST(DumpDbf, NumericsAreNormalised)
{
    TempDir dir;
    std::string table = dir / "t.dbf", output = dir / "t.txt";
    WriteFile(table, DbfTable({{"A", 'N', 6}, {"B", 'N', 6}}, {{"  0012", "      "}}));
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), output.c_str()), 1);
    std::string text = ReadFile(output);
    EXPECT_EQ(text.substr(text.rfind("\"\r\n") + 3), "12\t0\r\n");
}

TEST(DumpDbf, MemoTextIsWrittenRaw)
{
    TempDir dir;
    std::string table = dir / "notams.dbf", output = dir / "notams.txt";
    std::vector<int> blocks;
    WriteFile(dir / "notams.dbt", DbtFile({"RWY 16R CLSD", "TWY A\tB\r\nLGT U/S"}, &blocks));
    WriteFile(table, DbfTable({{"F5_6", 'C', 4}, {"NOTAM", 'M', 10}},
                              {{"KDEN", std::to_string(blocks[0])}, {"KBOS", std::to_string(blocks[1])}}));
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), output.c_str()), 2);
    EXPECT_EQ(ReadFile(output), "; " + table + "\r\n; 2 records\r\n; 2 fields\r\n"
                                "; Field: \"F5_6\" len=4 type=\"C\"\r\n"
                                "; Field: \"NOTAM\" len=10 type=\"M\"\r\n"
                                "KDEN\tRWY 16R CLSD\r\n"
                                "KBOS\tTWY A\tB\r\nLGT U/S\r\n");
}

TEST(DumpDbf, TableWithoutFieldsGivesEmptyLines)
{
    TempDir dir;
    std::string table = dir / "t.dbf", output = dir / "t.txt";
    // Without the end marker: a one-byte marker would pass for a record on
    // the read past the count.
    DbfOptions options;
    options.endMarker = false;
    WriteFile(table, DbfTable({}, {{}, {}, {{}, true}}, options));
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), output.c_str()), 3);
    EXPECT_EQ(ReadFile(output), "; " + table + "\r\n; 3 records\r\n; 0 fields\r\n\r\n\r\n");
}

TEST(DumpDbf, StopsAtAShortRead)
{
    TempDir dir;
    std::string table = dir / "t.dbf", output = dir / "t.txt";
    DbfOptions options;
    options.recordCount = 1000;
    std::string bytes = DbfTable(kFields, {{"KDEN", "DENVER", "1"}, {"KBOS", "BOSTON", "2"}}, options);
    WriteFile(table, bytes.substr(0, bytes.size() - 5));  // the second record is cut
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), output.c_str()), 1000);
    EXPECT_EQ(ReadFile(output), Header(table, 1000) + "KDEN\tDENVER\t1\r\n");
}

TEST(DumpDbf, ReplacesAnExistingOutput)
{
    TempDir dir;
    std::string table = dir / "t.dbf", output = dir / "t.txt";
    WriteFile(table, DbfTable(kFields, {}));
    WriteFile(output, std::string(10000, 'o'));
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), output.c_str()), 0);
    EXPECT_EQ(ReadFile(output), Header(table, 0));
}

TEST(DumpDbf, LongPathIsWrittenWhole)
{
    TempDir dir;
    std::string sub = dir / std::string(200, 'd');
    ASSERT_EQ(mkdir(sub.c_str(), 0700), 0);
    std::string table = sub + "/" + std::string(150, 't') + ".dbf", output = dir / "t.txt";
    WriteFile(table, DbfTable(kFields, {}));
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), output.c_str()), 0);
    EXPECT_EQ(ReadFile(output), Header(table, 0));
}

TEST(DumpDbf, MissingTable)
{
    TempDir dir;
    std::string output = dir / "t.txt";
    EXPECT_EQ(TarnTermChart_DumpDBF((dir / "none.dbf").c_str(), output.c_str()), -1);
    EXPECT_FALSE(Exists(output));
    EXPECT_EQ(TarnTermChart_DumpDBF(nullptr, output.c_str()), -1);
}

TEST(DumpDbf, OutputCannotBeCreated)
{
    TempDir dir;
    std::string table = dir / "t.dbf";
    WriteFile(table, DbfTable(kFields, {{"KDEN", "DENVER", "1"}}));
    int before = CountOpenDescriptors();
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), (dir / "no/such/dir.txt").c_str()), -2);
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), dir.c_str()), -2);
    EXPECT_EQ(TarnTermChart_DumpDBF(table.c_str(), nullptr), -2);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(DumpDbf, ForwarderGivesTheSameResult)
{
    TempDir dir;
    std::string table = dir / "t.dbf", output = dir / "t.txt";
    WriteFile(table, DbfTable(kFields, {{"KDEN", "DENVER", "1"}, {"KBOS", "BOSTON", "2"}}));
    EXPECT_EQ(TarnwickAPI_DumpDBF(table.c_str(), output.c_str()), 2);
    EXPECT_EQ(ReadFile(output), Header(table, 2) + "KDEN\tDENVER\t1\r\nKBOS\tBOSTON\t2\r\n");
    EXPECT_EQ(TarnwickAPI_DumpDBF((dir / "none.dbf").c_str(), output.c_str()), -1);
}
