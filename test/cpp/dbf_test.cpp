// Reading dBase tables: opening, the field directory, sequential records,
// values as text, memo values and tables whose headers lie.
#include <gtest/gtest.h>
#include <string.h>

#include "platform/files.h"
#include "dbf/dbf.h"
#include "dbf_writer.h"
#include "test_util.h"

namespace {

const std::vector<DbfField> kAirportFields = {
    {"F5_6", 'C', 4}, {"NAME", 'C', 12}, {"CHRT_IDX", 'N', 6}};

// Writes bytes to dir/name and opens the table.
DBFFilePtr Open(const TempDir &dir, const std::string &bytes, const std::string &name = "t.dbf")
{
    WriteFile(dir / name, bytes);
    return DBFFilePtr(DBFFile_Open((dir / name).c_str()));
}

// Every value handed out comes with its length, up to its first zero byte.
std::string Value(DBFFile *dbf, int index)
{
    const char *value = DBFFile_GetFieldValueByPos(dbf, index);
    if (value) {
        EXPECT_EQ(DBFFile_ValueLength(dbf), strlen(value)) << value;
    }
    return value ? value : "<null>";
}

std::string Raw(DBFFile *dbf, int index)
{
    const char *value = DBFFile_GetFieldValueRawByPos(dbf, index);
    if (value) {
        EXPECT_EQ(DBFFile_ValueLength(dbf), strlen(value)) << value;
    }
    return value ? value : "<null>";
}

// The results of ReadRecord until it gives 0 (at most limit calls).
std::vector<int> ReadAll(DBFFile *dbf, int limit = 100)
{
    std::vector<int> results;
    for (int i = 0; i < limit; i++) {
        results.push_back(DBFFile_ReadRecord(dbf));
        if (results.back() == 0) break;
    }
    return results;
}

}  // namespace

TEST(DbfOpen, ReadsTheFieldDirectory)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}, {}));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(dbf->magic, kDbfMagic);
    EXPECT_EQ(DBFFile_NumRecords(dbf.get()), 1u);
    EXPECT_EQ(DBFFile_NumFields(dbf.get()), 3);
    EXPECT_EQ(dbf->headerLength, 32 + 3 * 32 + 1);
    EXPECT_EQ(dbf->recordLength, 1 + 4 + 12 + 6);
    EXPECT_EQ(dbf->recordIndex, -1);
    EXPECT_EQ(dbf->bytesRead, (uint64_t)(32 + 3 * 32 + 1));
    EXPECT_EQ(dbf->memoFile, nullptr);
    EXPECT_STREQ(DBFFile_FieldName(dbf.get(), 0), "F5_6");
    EXPECT_STREQ(DBFFile_FieldName(dbf.get(), 2), "CHRT_IDX");
    EXPECT_EQ(DBFFile_FieldLength(dbf.get(), 1), 12);
    EXPECT_EQ(DBFFile_FieldType(dbf.get(), 0), 'C');
    EXPECT_EQ(DBFFile_FieldType(dbf.get(), 2), 'N');
    EXPECT_EQ(dbf->fields[0].offset, 1);
    EXPECT_EQ(dbf->fields[1].offset, 5);
    EXPECT_EQ(dbf->fields[2].offset, 17);
}

TEST(DbfOpen, KeepsElevenNameCharacters)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable({{"ABCDEFGHIJKLMN", 'C', 2}}, {}));
    ASSERT_TRUE(dbf);
    EXPECT_STREQ(DBFFile_FieldName(dbf.get(), 0), "ABCDEFGHIJK");
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "abcdefghijk"), 0);
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "ABCDEFGHIJKL"), -1);
}

TEST(DbfOpen, FailsWithoutLeaking)
{
    TempDir dir;
    int before = CountOpenDescriptors();
    EXPECT_EQ(DBFFile_Open((dir / "missing.dbf").c_str()), nullptr);
    EXPECT_EQ(DBFFile_Open(nullptr), nullptr);
    std::string table = DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}});
    // Cut inside the 32-byte header, and inside the second descriptor.
    EXPECT_FALSE(Open(dir, table.substr(0, 31)));
    EXPECT_FALSE(Open(dir, ""));
    EXPECT_FALSE(Open(dir, table.substr(0, 32 + 32 + 20)));
    // A directory opens as a stream but yields no header.
    EXPECT_EQ(DBFFile_Open(dir.c_str()), nullptr);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(DbfOpen, CloseReleasesBothStreams)
{
    TempDir dir;
    WriteFile(dir / "n.dbt", DbtFile({"memo"}));
    WriteFile(dir / "n.dbf", DbfTable({{"MEMO", 'M', 10}}, {{"1"}}));
    int before = CountOpenDescriptors();
    for (int i = 0; i < 50; i++) {
        DBFFile *dbf = DBFFile_Open((dir / "n.dbf").c_str());
        ASSERT_NE(dbf, nullptr);
        ASSERT_NE(dbf->memoFile, nullptr);
        DBFFile_ReadRecord(dbf);
        DBFFile_GetFieldValueByPos(dbf, 0);
        DBFFile_Close(dbf);
    }
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(DbfOpen, MissingTerminatorIsNoError)
{
    TempDir dir;
    std::string table = DbfTable({{"A", 'C', 2}}, {});
    DBFFilePtr dbf = Open(dir, table.substr(0, 64));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(dbf->bytesRead, 64u);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), -2);
}

TEST(DbfHandle, NullAndInvalidHandlesGiveNeutralResults)
{
    DBFFile stale;
    memset(&stale, 0, sizeof stale);
    stale.magic = 0x13579ACF;
    for (DBFFile *dbf : {(DBFFile *)nullptr, &stale}) {
        EXPECT_EQ(DBFFile_NumRecords(dbf), 0u);
        EXPECT_EQ(DBFFile_NumFields(dbf), 0);
        EXPECT_EQ(DBFFile_FieldName(dbf, 0), nullptr);
        EXPECT_EQ(DBFFile_FieldLength(dbf, 0), 0);
        EXPECT_EQ(DBFFile_FieldType(dbf, 0), 0);
        EXPECT_EQ(DBFFile_GetFieldNumber(dbf, "A"), -1);
        EXPECT_EQ(DBFFile_ReadRecord(dbf), -1);
        EXPECT_EQ(DBFFile_GetFieldValueByPos(dbf, 0), nullptr);
        EXPECT_EQ(DBFFile_GetFieldValueRawByPos(dbf, 0), nullptr);
        EXPECT_EQ(DBFFile_GetFieldValueByName(dbf, "A"), nullptr);
        DBFFile_SetFieldValueByPos(dbf, 0, "x");
        DBFFile_SetFieldValueByName(dbf, "A", 1);
        DBFFile_Close(dbf);
    }
    EXPECT_EQ(stale.record, nullptr);
}

TEST(DbfHandle, BadIndexes)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_FieldName(dbf.get(), -1), nullptr);
    EXPECT_EQ(DBFFile_FieldName(dbf.get(), 3), nullptr);
    EXPECT_EQ(DBFFile_FieldLength(dbf.get(), -1), 0);
    EXPECT_EQ(DBFFile_FieldLength(dbf.get(), 3), 0);
    EXPECT_EQ(DBFFile_FieldType(dbf.get(), -1), ' ');
    EXPECT_EQ(DBFFile_FieldType(dbf.get(), 3), ' ');
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(DBFFile_GetFieldValueByPos(dbf.get(), -1), nullptr);
    EXPECT_EQ(DBFFile_GetFieldValueByPos(dbf.get(), 3), nullptr);
    DBFFile_SetFieldValueByPos(dbf.get(), 3, "XXXX");
    DBFFile_SetFieldValueByPos(dbf.get(), -1, "XXXX");
    EXPECT_EQ(std::string(dbf->record, 23), DbfRecordBytes(kAirportFields, {"KDEN", "DENVER", "1"}));
}

TEST(DbfFieldNumber, IgnoresCase)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable({{"chart_id", 'C', 4}, {"F5_6", 'C', 4}}, {}));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "CHART_ID"), 0);
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "Chart_Id"), 0);
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "f5_6"), 1);
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "F5_"), -1);
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "F5_66"), -1);
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), ""), -1);
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), nullptr), -1);
}

TEST(DbfFieldNumber, FirstOfRepeatedNamesWins)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable({{"A", 'C', 1}, {"KEY", 'C', 1}, {"key", 'C', 1}}, {}));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "Key"), 1);
}

TEST(DbfFieldNumber, ManyFields)
{
    std::vector<DbfField> fields;
    for (int i = 0; i < 500; i++) fields.push_back({"F" + std::to_string(i), 'C', 1});
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_NumFields(dbf.get()), 500);
    for (int i = 0; i < 500; i++) {
        std::string lower = "f" + std::to_string(i);
        EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), lower.c_str()), i);
    }
    EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "F500"), -1);
}

TEST(DbfRead, EmptyTableReadsOnceThenEnds)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {}));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), -2);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), 0);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), 0);
}

TEST(DbfRead, EndMarkerReadBecomesABlankFlag)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {}));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), -2);
    ASSERT_NE(dbf->record, nullptr);
    EXPECT_EQ(dbf->record[0], ' ');
}

TEST(DbfRead, RecordsInOrderThenOneReadPastTheCount)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}, {"KBOS", "BOSTON", "2"}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "KDEN");
    EXPECT_EQ(dbf->recordIndex, 0);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 1), "BOSTON");
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), -2);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), 0);
}

TEST(DbfRead, WithoutEndMarker)
{
    TempDir dir;
    DbfOptions options;
    options.endMarker = false;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}, options));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(ReadAll(dbf.get()), (std::vector<int>{1, -2, 0}));
}

TEST(DbfRead, DeletedRecordsAreNeverReturned)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{{"KOLD", "OLD", "9"}, true},
                                                         {"KDEN", "DENVER", "1"},
                                                         {{"KOLD", "OLD", "9"}, true},
                                                         {{"KOLD", "OLD", "9"}, true},
                                                         {"KBOS", "BOSTON", "2"},
                                                         {{"KOLD", "OLD", "9"}, true}}));
    ASSERT_TRUE(dbf);
    std::vector<std::string> seen;
    int result;
    while ((result = DBFFile_ReadRecord(dbf.get())) == 1) seen.push_back(Value(dbf.get(), 0));
    EXPECT_EQ(seen, (std::vector<std::string>{"KDEN", "KBOS"}));
    // The last deleted record is skipped, then the marker is met.
    EXPECT_EQ(result, -2);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), 0);
}

TEST(DbfRead, DeletedRecordsCountTowardTheHeaderCount)
{
    TempDir dir;
    // The count says 2: one deleted and one live record are within it, the
    // third record is the one read allowed past it, the fourth never read.
    DbfOptions options;
    options.recordCount = 2;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{{"KOLD", "OLD", "9"}, true},
                                                         {"KDEN", "DENVER", "1"},
                                                         {"KBOS", "BOSTON", "2"},
                                                         {"KLAX", "LOS ANGELES", "3"}},
                                        options));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "KDEN");
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "KBOS");
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), 0);
}

TEST(DbfRead, CountFarBeyondTheFileEndsInAShortRead)
{
    TempDir dir;
    DbfOptions options;
    options.recordCount = 0xFFFFFFFFu;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}, options));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_NumRecords(dbf.get()), 0xFFFFFFFFu);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), -2);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), -2);
}

TEST(DbfRead, RecordsFollowTheTerminatorWhateverTheHeaderLength)
{
    TempDir dir;
    DbfOptions options;
    options.extraHeader = "PAD";  // counted in the header length, read as record bytes
    DBFFilePtr dbf = Open(dir, DbfTable({{"A", 'C', 4}}, {{"WXYZ"}}, options));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(dbf->headerLength, 32 + 32 + 1 + 3);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "AD W");
}

TEST(DbfValue, NullBeforeAnyReadOrSet)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_GetFieldValueByPos(dbf.get(), 0), nullptr);
    EXPECT_EQ(DBFFile_GetFieldValueRawByPos(dbf.get(), 0), nullptr);
    EXPECT_EQ(DBFFile_GetFieldValueByName(dbf.get(), "F5_6"), nullptr);
}

TEST(DbfValue, TextClearsTrailingBlanksOnly)
{
    std::vector<DbfField> fields = {{"A", 'C', 8}, {"B", 'C', 8}, {"C", 'C', 8}, {"D", 'D', 8}};
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {{"  AB  \t ", "        ", "x\t\ty", "20240101"}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "  AB");
    EXPECT_EQ(Value(dbf.get(), 1), "");
    EXPECT_EQ(Value(dbf.get(), 2), "x\t\ty");
    EXPECT_EQ(Value(dbf.get(), 3), "20240101");
}

TEST(DbfValue, ZeroByteEndsTheText)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable({{"A", 'C', 6}}, {{std::string("A \0 B ", 6)}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "A");
}

TEST(DbfValue, NumericsAreNormalised)
{
    std::vector<DbfField> fields = {{"A", 'N', 5}, {"B", 'N', 4}, {"C", 'N', 4},
                                    {"D", 'N', 6}, {"E", 'N', 5}, {"F", 'N', 4}};
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {{"   42", "0007", "    ", "  0012", "-12.5", "0000"}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "42");
    EXPECT_EQ(Value(dbf.get(), 1), "7");
    EXPECT_EQ(Value(dbf.get(), 2), "0");
    EXPECT_EQ(Value(dbf.get(), 3), "12");
    // Sign and point are not read: they map through their low four bits.
    EXPECT_EQ(Value(dbf.get(), 4), "=12>5");
    EXPECT_EQ(Value(dbf.get(), 5), "0");
    EXPECT_EQ(Raw(dbf.get(), 3), "12");
}

TEST(DbfValue, NumericKeepsInnerZerosAndBlanksAreSkippedAnywhere)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable({{"A", 'N', 8}}, {{"1 0 0 2 "}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "1002");
}

TEST(DbfValue, ByName)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "000031"}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_STREQ(DBFFile_GetFieldValueByName(dbf.get(), "chrt_idx"), "31");
    EXPECT_STREQ(DBFFile_GetFieldValueByName(dbf.get(), "name"), "DENVER");
    EXPECT_EQ(DBFFile_GetFieldValueByName(dbf.get(), "NOPE"), nullptr);
}

TEST(DbfValue, NumericOffsetRuleUsesTheWholeWord)
{
    // A numeric with one decimal moves every later field by 256 bytes.
    std::vector<DbfField> fields = {{"A", 'N', 4, 1}, {"B", 'C', 3}};
    DbfOptions options;
    options.recordLength = 1 + 4 + 256 + 3;
    options.recordCount = 1;
    options.endMarker = false;
    std::string record = " 0042" + std::string(256, '.') + "XYZ";
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {}, options) + record + "\x1A");
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_FieldLength(dbf.get(), 0), 4);
    EXPECT_EQ(dbf->fields[0].decimals, 1);
    EXPECT_EQ(dbf->fields[1].offset, 1 + 4 + 256);
    EXPECT_EQ(dbf->fields[1].decimals, 0);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "42");
    EXPECT_EQ(Value(dbf.get(), 1), "XYZ");
}

TEST(DbfValue, NumericOffsetPastTheRecordReadsNothing)
{
    std::vector<DbfField> fields = {{"A", 'N', 4, 1}, {"B", 'C', 3}};
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {{"1", "XYZ"}}));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(dbf->fields[1].offset, 261);
    EXPECT_EQ(dbf->fields[1].begin, dbf->recordLength);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 1), "");
    DBFFile_SetFieldValueByPos(dbf.get(), 1, "ABC");  // lands nowhere
    EXPECT_EQ(std::string(dbf->record, 8), "    1XYZ");
}

TEST(DbfMemo, BlankPaddedBlockNumberReadsTheMemo)
{
    TempDir dir;
    std::vector<int> blocks;
    std::string dbt = DbtFile({"first", "x", "y", "z", "w", "v", "the seventh memo"}, &blocks);
    ASSERT_EQ(blocks[6], 7);
    WriteFile(dir / "n.dbt", dbt);
    std::vector<DbfField> fields = {{"KEY", 'C', 3}, {"TEXT", 'M', 10}};
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {{"ONE", "         7"}, {"TWO", "1"}}), "n.dbf");
    ASSERT_TRUE(dbf);
    ASSERT_NE(dbf->memoFile, nullptr);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 1), "the seventh memo");
    EXPECT_EQ(Raw(dbf.get(), 1), "         7");
    EXPECT_STREQ(DBFFile_GetFieldValueByName(dbf.get(), "text"), "the seventh memo");
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 1), "first");
}

TEST(DbfMemo, ZeroByteInTheMemoEndsItsLength)
{
    TempDir dir;
    std::vector<int> blocks;
    WriteFile(dir / "n.dbt", DbtFile({std::string("ab\0cd", 5)}, &blocks));
    std::vector<DbfField> fields = {{"TEXT", 'M', 10}};
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {{std::to_string(blocks[0])}}), "n.dbf");
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    const char *value = DBFFile_GetFieldValueByPos(dbf.get(), 0);
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value, "ab");
    EXPECT_EQ(DBFFile_ValueLength(dbf.get()), 2u);
    EXPECT_EQ(DBFFile_ValueLength(nullptr), 0u);
}

TEST(DbfMemo, WithoutMemoFileTheBlockNumberFollowsTheTextRule)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable({{"TEXT", 'M', 10}}, {{"         7"}, {"7         "}}), "n.dbf");
    ASSERT_TRUE(dbf);
    ASSERT_EQ(dbf->memoFile, nullptr);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "         7");
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "7");
}

TEST(DbfMemo, BlankFieldReadsBlockZero)
{
    TempDir dir;
    // Block 0 is the memo header: its bytes 4-7 are taken as a length.
    std::string dbt = DbtFile({"memo"});
    dbt.replace(4, 4, U32(8 + 3));
    dbt.replace(8, 3, "HDR");
    WriteFile(dir / "n.dbt", dbt);
    DBFFilePtr dbf = Open(dir, DbfTable({{"TEXT", 'M', 10}}, {{""}}), "n.dbf");
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "HDR");
}

TEST(DbfMemo, BlockPastTheMemoFileGivesTheBlockNumber)
{
    TempDir dir;
    WriteFile(dir / "n.dbt", DbtFile({"only"}));
    DBFFilePtr dbf = Open(dir, DbfTable({{"TEXT", 'M', 12}},
                                        {{"99"}, {"-3"}, {"999999999999"}, {"2"}}),
                          "n.dbf");
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "99");
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "-3");
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "999999999999");
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "2");  // the file ends at block 2
}

TEST(DbfMemo, LengthBeyondTheMemoFileGivesWhatTheFileHolds)
{
    TempDir dir;
    std::string dbt = DbtFile({"truncated memo"});
    dbt.replace(512 + 4, 4, U32(0xFFFFFFF0u));  // claims almost 4 GiB
    WriteFile(dir / "n.dbt", dbt.substr(0, 512 + 8 + 9));
    DBFFilePtr dbf = Open(dir, DbfTable({{"TEXT", 'M', 4}}, {{"1"}}), "n.dbf");
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "truncated");
    EXPECT_LE(dbf->valueSize, 512u + 8u);  // never sized by the claimed length
}

TEST(DbfMemo, LengthBelowThePrologIsEmpty)
{
    TempDir dir;
    std::string dbt = DbtFile({"memo"});
    dbt.replace(512 + 4, 4, U32(3));
    WriteFile(dir / "n.dbt", dbt);
    DBFFilePtr dbf = Open(dir, DbfTable({{"TEXT", 'M', 4}}, {{"1"}}), "n.dbf");
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "");
}

TEST(DbfMemo, MemoLongerThanTheRecordGrowsTheValueBuffer)
{
    TempDir dir;
    std::string big(5000, 'm');
    big[0] = 'A';
    big[4999] = 'Z';
    std::string text = "line one\tcol\r\nline two";
    std::vector<int> blocks;
    WriteFile(dir / "n.dbt", DbtFile({big, text}, &blocks));
    DBFFilePtr dbf = Open(dir, DbfTable({{"TEXT", 'M', 4}, {"N", 'N', 2}},
                                        {{std::to_string(blocks[0]), "5"}, {std::to_string(blocks[1]), "6"}}),
                          "n.dbf");
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), big);
    EXPECT_EQ(Value(dbf.get(), 1), "5");
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), text);
}

TEST(DbfMalformed, HeaderLengthBelow32MeansNoFields)
{
    for (int headerLength : {0, 1, 31}) {
        SCOPED_TRACE(headerLength);
        DbfOptions options;
        options.headerLength = headerLength;
        TempDir dir;
        DBFFilePtr dbf = Open(dir, DbfTable({}, {{}, {}}, options));
        ASSERT_TRUE(dbf);
        EXPECT_EQ(DBFFile_NumFields(dbf.get()), 0);
        EXPECT_EQ(DBFFile_GetFieldNumber(dbf.get(), "A"), -1);
        // With one-byte records the end marker is a whole record on the read
        // past the count.
        EXPECT_EQ(ReadAll(dbf.get()), (std::vector<int>{1, 1, 1, 0}));
        EXPECT_EQ(DBFFile_GetFieldValueByPos(dbf.get(), 0), nullptr);
    }
}

TEST(DbfMalformed, HeaderLengthBeyondTheFileFailsAtTheDescriptors)
{
    DbfOptions options;
    options.headerLength = 65535;  // 2046 descriptors claimed
    TempDir dir;
    int before = CountOpenDescriptors();
    EXPECT_FALSE(Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}, options)));
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(DbfMalformed, FieldsPastTheRecordAreClipped)
{
    // The header says 8-byte records, the descriptors describe 1 + 4 + 12 + 6.
    DbfOptions options;
    options.recordLength = 8;
    options.recordCount = 1;
    options.endMarker = false;
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {}, options) + " KDENDEN" + "\x1A");
    ASSERT_TRUE(dbf);
    for (int i = 0; i < 3; i++) {
        EXPECT_LE(dbf->fields[i].begin, dbf->fields[i].end);
        EXPECT_LE(dbf->fields[i].end, 8);
    }
    EXPECT_EQ(DBFFile_FieldLength(dbf.get(), 1), 12);  // reported as the descriptor says
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 0), "KDEN");
    EXPECT_EQ(Value(dbf.get(), 1), "DEN");
    EXPECT_EQ(Value(dbf.get(), 2), "0");
    // A long text stops at the record's end.
    DBFFile_SetFieldValueByPos(dbf.get(), 1, "A VERY LONG NAME");
    EXPECT_EQ(std::string(dbf->record, 8), " KDENA V");
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), -2);
}

TEST(DbfMalformed, NegativeFieldLengths)
{
    // A word of 0xFFFF is a length of -1 and moves the next field back a byte.
    std::vector<DbfField> fields = {{"A", 'C', 3}, {"NEG", 'C', -1}, {"B", 'C', 2}};
    TempDir dir;
    DbfOptions options;
    options.recordLength = 6;
    options.endMarker = false;
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {}, options) + " ABCDE\x1A");
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_FieldLength(dbf.get(), 1), -1);
    EXPECT_EQ(dbf->fields[1].offset, 4);
    EXPECT_EQ(dbf->fields[2].offset, 3);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    EXPECT_EQ(Value(dbf.get(), 1), "");
    EXPECT_EQ(Value(dbf.get(), 2), "CD");
    DBFFile_SetFieldValueByPos(dbf.get(), 1, "");
    EXPECT_EQ(std::string(dbf->record, 6), " ABCDE");
}

TEST(DbfMalformed, FieldsWalkingBeforeTheRecord)
{
    // Lengths of -32768 walk the offsets far below the record's start.
    std::vector<DbfField> fields = {{"NEG", 'C', -32768}, {"B", 'C', 2}, {"C", 'C', 40000}};
    TempDir dir;
    DbfOptions options;
    options.recordLength = 3;
    options.endMarker = false;
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {}, options) + " XY\x1A");
    ASSERT_TRUE(dbf);
    EXPECT_EQ(dbf->fields[1].offset, 1 - 32768);
    EXPECT_EQ(DBFFile_FieldLength(dbf.get(), 2), 40000 - 65536);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    for (int i = 0; i < 3; i++) EXPECT_EQ(Value(dbf.get(), i), "");
    // A text runs on from its field's start: only the part that lands
    // inside the record is stored.
    std::string text = "0123456789" + std::string(70000, 'Q');
    DBFFile_SetFieldValueByPos(dbf.get(), 0, text.c_str());
    EXPECT_EQ(std::string(dbf->record, 3), " 01");
    DBFFile_SetFieldValueByPos(dbf.get(), 1, "short");
    EXPECT_EQ(std::string(dbf->record, 3), " 01");
    DBFFile_SetFieldValueByPos(dbf.get(), 2, text.c_str());
    EXPECT_EQ(std::string(dbf->record, 3), "QQQ");
}

TEST(DbfMalformed, RecordLengthZeroHasNoReadableRecord)
{
    DbfOptions options;
    options.recordLength = 0;
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}, options));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(ReadAll(dbf.get()), (std::vector<int>{-2, -2, 0}));
    // Every field lies outside an empty record.
    EXPECT_EQ(Value(dbf.get(), 0), "");
    EXPECT_EQ(Value(dbf.get(), 2), "0");
    DBFFile_SetFieldValueByPos(dbf.get(), 0, "XXXX");
}

TEST(DbfMalformed, RecordLength65535)
{
    DbfOptions options;
    options.recordLength = 65535;
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}, options));
    ASSERT_TRUE(dbf);
    EXPECT_EQ(DBFFile_ReadRecord(dbf.get()), -2);
    EXPECT_EQ(Value(dbf.get(), 0), "KDEN");
    DBFFile_SetFieldValueByPos(dbf.get(), 2, std::string(70000, '7').c_str());
    EXPECT_EQ(dbf->record[65534], '7');
}

TEST(DbfSet, WithoutRecordMakesABlankLiveOne)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {}));
    ASSERT_TRUE(dbf);
    DBFFile_SetFieldValueByPos(dbf.get(), 1, "PARIS");
    ASSERT_NE(dbf->record, nullptr);
    EXPECT_EQ(std::string(dbf->record, 23), " " + std::string(4, ' ') + "PARIS       " + std::string(6, ' '));
    EXPECT_EQ(Value(dbf.get(), 1), "PARIS");
    EXPECT_EQ(Value(dbf.get(), 0), "");
    EXPECT_EQ(Value(dbf.get(), 2), "0");
}

TEST(DbfSet, LeftJustifiesEveryTypeAndPadsWithSpaces)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "123456"}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    DBFFile_SetFieldValueByPos(dbf.get(), 2, "42");
    DBFFile_SetFieldValueByPos(dbf.get(), 1, "NY");
    EXPECT_EQ(std::string(dbf->record, 23), " KDENNY          42    ");
    EXPECT_EQ(Value(dbf.get(), 2), "42");
}

TEST(DbfSet, LongTextRunsIntoTheFollowingFields)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    DBFFile_SetFieldValueByPos(dbf.get(), 0, "ABCDEFG");
    EXPECT_EQ(Value(dbf.get(), 0), "ABCD");
    EXPECT_EQ(Value(dbf.get(), 1), "EFGVER");
    // Far too long: cut at the end of the record.
    std::string huge(1000, 'Z');
    DBFFile_SetFieldValueByPos(dbf.get(), 1, huge.c_str());
    EXPECT_EQ(std::string(dbf->record, 23), " ABCD" + std::string(18, 'Z'));
}

TEST(DbfSet, NullTextBlanksTheField)
{
    TempDir dir;
    DBFFilePtr dbf = Open(dir, DbfTable(kAirportFields, {{"KDEN", "DENVER", "1"}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    DBFFile_SetFieldValueByPos(dbf.get(), 1, nullptr);
    EXPECT_EQ(Value(dbf.get(), 1), "");
    EXPECT_EQ(Value(dbf.get(), 0), "KDEN");
}

TEST(DbfSet, ByNameFormatsTheInteger)
{
    TempDir dir;
    std::vector<DbfField> fields = {{"CHRT_IDX", 'N', 6}, {"BIG", 'C', 20}};
    DBFFilePtr dbf = Open(dir, DbfTable(fields, {{"1", "x"}}));
    ASSERT_TRUE(dbf);
    ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
    DBFFile_SetFieldValueByName(dbf.get(), "chrt_idx", 1234);
    EXPECT_EQ(std::string(dbf->record + 1, 6), "1234  ");
    DBFFile_SetFieldValueByName(dbf.get(), "BIG", INT64_MIN);
    EXPECT_EQ(Raw(dbf.get(), 1), "-9223372036854775808");
    DBFFile_SetFieldValueByName(dbf.get(), "BIG", -5);
    EXPECT_EQ(Raw(dbf.get(), 1), "-5");
    DBFFile_SetFieldValueByName(dbf.get(), "NOPE", 99);
    EXPECT_EQ(std::string(dbf->record, 27), " 1234  -5" + std::string(18, ' '));
}

TEST(DbfMalformed, ScrambledHeadersAndMemosNeverCrash)
{
    // Every header, descriptor and memo-header byte is fair game; whatever
    // the reader makes of it, it must stay inside its buffers.
    std::vector<DbfField> fields = {{"F5_6", 'C', 4}, {"CNT", 'N', 5}, {"NOTAM", 'M', 10}, {"D", 'D', 8}};
    std::vector<int> blocks;
    std::string dbt = DbtFile({"short", std::string(700, 'm'), ""}, &blocks);
    std::string table = DbfTable(fields, {{"KDEN", "00012", std::to_string(blocks[0]), "20240101"},
                                          {{"KOLD", "1", std::to_string(blocks[1]), ""}, true},
                                          {"KBOS", "7", std::to_string(blocks[1]), ""},
                                          {"KLAX", "", std::to_string(blocks[2]), ""}});
    TempDir dir;
    uint32_t seed = 12345;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u, (seed >> 16) & 0x7FFF; };
    for (int round = 0; round < 3000; round++) {
        std::string t = table, m = dbt;
        int edits = 1 + (int)(next() % 6);
        for (int e = 0; e < edits; e++) {
            if (next() % 4 == 0) {
                m[512 + next() % 16] = (char)next();  // a memo's prolog or length
            } else {
                size_t at = next() % (32 + 32 * fields.size() + 1);
                t[at] = (char)next();
            }
        }
        if (next() % 8 == 0) t.resize(next() % t.size());
        WriteFile(dir / "s.dbt", m);
        DBFFilePtr dbf = Open(dir, t, "s.dbf");
        if (!dbf) continue;
        FilePtr out(fopen((dir / "o.dbf").c_str(), "w+b"));
        DBFFile_Writeheader(dbf.get(), out.get());
        int n = DBFFile_NumFields(dbf.get());
        for (int r = 0; r < 8 && DBFFile_ReadRecord(dbf.get()) == 1; r++) {
            for (int i = 0; i < n; i++) {
                DBFFile_GetFieldValueByPos(dbf.get(), i);
                DBFFile_GetFieldValueRawByPos(dbf.get(), i);
                DBFFile_GetFieldNumber(dbf.get(), DBFFile_FieldName(dbf.get(), i));
            }
            if (n > 0) DBFFile_SetFieldValueByPos(dbf.get(), (int)(next() % n), "0123456789ABCDEFGHIJ");
            DBFFile_WriteRecord(dbf.get(), out.get());
        }
        DBFFile_WriteNumRecords(out.get(), 1);
    }
}

// Memos are read through a window of the memo file: memos read backwards,
// forwards, across the window's edge, larger than the window, and the same
// one twice all read as written.
TEST(DbfMemo, MemosInAnyOrderAndOfAnySizeReadAsWritten)
{
    std::vector<std::string> texts;
    for (int i = 0; i < 300; i++) {
        const size_t length = i % 50 == 7 ? 40000 + (size_t)i * 331 : (size_t)(i * 37) % 1500;
        std::string text;
        for (size_t k = 0; k < length; k++) text += (char)('a' + (k * 7 + (size_t)i) % 26);
        texts.push_back(text);
    }
    std::vector<int> blocks;
    std::string dbt = DbtFile(texts, &blocks);
    ASSERT_GT(dbt.size(), 4u * 65536);
    std::vector<size_t> order;
    for (size_t i = texts.size(); i-- > 0;) order.push_back(i);      // backwards
    for (size_t i = 0; i < texts.size(); i++) order.push_back(i);    // forwards
    for (size_t i = 0; i < texts.size(); i += 7) order.push_back((i * 131) % texts.size());
    order.push_back(5);
    order.push_back(5);
    std::vector<DbfRecord> records;
    for (size_t i : order) records.push_back({std::to_string(i), std::to_string(blocks[i])});
    TempDir dir;
    WriteFile(dir / "n.dbt", dbt);
    std::vector<DbfField> fields = {{"KEY", 'C', 4}, {"TEXT", 'M', 10}};
    DBFFilePtr dbf = Open(dir, DbfTable(fields, records), "n.dbf");
    ASSERT_TRUE(dbf);
    for (size_t i : order) {
        ASSERT_EQ(DBFFile_ReadRecord(dbf.get()), 1);
        ASSERT_EQ(Value(dbf.get(), 1), texts[i]) << i;
    }
}
