// Writing dBase tables and memo files: header, record, record count and memo
// writers, their failure codes, and copies that come out byte for byte.
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "platform/files.h"
#include "dbf/dbf.h"
#include "dbf_writer.h"
#include "test_util.h"

namespace {

const std::vector<DbfField> kChartFields = {
    {"F5_6", 'C', 4}, {"CHART_NAME", 'C', 20}, {"CHART_ID", 'N', 8}, {"PAGES", 'N', 3}};

const std::vector<DbfRecord> kChartRecords = {
    {"KDEN", "ILS RWY 16R", "1001", "2"},
    {"KDEN", "RNAV (GPS) RWY 34L", "1002", "1"},
    {"KBOS", "AIRPORT DIAGRAM", "  2001", "  1"},
    {"LFPG", "", "", ""},
};

DBFFilePtr Open(const std::string &path) { return DBFFilePtr(DBFFile_Open(path.c_str())); }

// Runs body in a child process whose files may not grow past limit bytes,
// and returns its result (-128..127).
int WithFileSizeLimit(rlim_t limit, const std::function<int()> &body)
{
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        signal(SIGXFSZ, SIG_IGN);  // a write past the limit fails with EFBIG instead
        struct rlimit rl = {limit, limit};
        if (setrlimit(RLIMIT_FSIZE, &rl) != 0) _exit(99);
        _exit((unsigned char)body());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status)) return 1000;
    return (signed char)WEXITSTATUS(status);
}

// Copies a table record by record and returns the output's bytes.
std::string Copy(const std::string &source, const std::string &destination, int *written = nullptr)
{
    DBFFilePtr in = Open(source);
    EXPECT_TRUE(in);
    if (!in) return std::string();
    FilePtr out(fopen(destination.c_str(), "w+b"));
    EXPECT_EQ(DBFFile_Writeheader(in.get(), out.get()), 0);
    uint32_t count = 0;
    while (DBFFile_ReadRecord(in.get()) == 1) {
        EXPECT_EQ(DBFFile_WriteRecord(in.get(), out.get()), 0);
        count++;
    }
    EXPECT_EQ(DBFFile_WriteNumRecords(out.get(), count), 0);
    out.reset();
    if (written) *written = (int)count;
    return ReadFile(destination);
}

}  // namespace

TEST(DbfRoundTrip, CopyIsByteIdentical)
{
    TempDir dir;
    std::string table = DbfTable(kChartFields, kChartRecords);
    WriteFile(dir / "charts.dbf", table);
    int written = 0;
    EXPECT_EQ(Copy(dir / "charts.dbf", dir / "chartsNEW.dbf", &written), table);
    EXPECT_EQ(written, 4);
}

TEST(DbfRoundTrip, LargeTableIsByteIdentical)
{
    std::vector<DbfRecord> records;
    for (int i = 0; i < 20000; i++)
        records.push_back({"K" + std::to_string(i % 1000), "CHART " + std::to_string(i), std::to_string(i),
                           std::to_string(i % 7)});
    TempDir dir;
    std::string table = DbfTable(kChartFields, records);
    WriteFile(dir / "charts.dbf", table);
    EXPECT_EQ(Copy(dir / "charts.dbf", dir / "chartsNEW.dbf"), table);
}

TEST(DbfRoundTrip, MissingEndMarkerIsAdded)
{
    TempDir dir;
    DbfOptions options;
    options.endMarker = false;
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, kChartRecords, options));
    EXPECT_EQ(Copy(dir / "charts.dbf", dir / "chartsNEW.dbf"), DbfTable(kChartFields, kChartRecords));
}

TEST(DbfRoundTrip, DeletedRecordsAreDroppedAndTheCountFixed)
{
    TempDir dir;
    std::vector<DbfRecord> records = kChartRecords;
    records.insert(records.begin() + 1, DbfRecord({"KOLD", "GONE", "9", "9"}, true));
    records.push_back(DbfRecord({"KOLD", "GONE", "9", "9"}, true));
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, records));
    EXPECT_EQ(Copy(dir / "charts.dbf", dir / "chartsNEW.dbf"), DbfTable(kChartFields, kChartRecords));
}

TEST(DbfRoundTrip, EditsAndHeaderByte15)
{
    TempDir dir;
    DbfOptions options;
    options.patches = {{15, "\x01"}, {20, "keep"}};
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, kChartRecords, options));
    DBFFilePtr in = Open(dir / "charts.dbf");
    ASSERT_TRUE(in);
    FilePtr out(fopen((dir / "NEW.dbf").c_str(), "w+b"));
    ASSERT_EQ(DBFFile_Writeheader(in.get(), out.get()), 0);
    uint32_t count = 0;
    while (DBFFile_ReadRecord(in.get()) == 1) {
        if (strcmp(DBFFile_GetFieldValueByName(in.get(), "F5_6"), "KDEN") != 0) continue;
        DBFFile_SetFieldValueByName(in.get(), "PAGES", 7);
        ASSERT_EQ(DBFFile_WriteRecord(in.get(), out.get()), 0);
        count++;
    }
    ASSERT_EQ(DBFFile_WriteNumRecords(out.get(), count), 0);
    out.reset();
    DbfOptions expectedOptions;
    expectedOptions.patches = {{20, "keep"}};  // byte 15 is cleared, the rest is carried
    EXPECT_EQ(ReadFile(dir / "NEW.dbf"), DbfTable(kChartFields,
                                                  {{"KDEN", "ILS RWY 16R", "1001", "7  "},
                                                   {"KDEN", "RNAV (GPS) RWY 34L", "1002", "7  "}},
                                                  expectedOptions));
}

TEST(DbfWriteheader, CopiesTheHeaderAndKeepsTheReadPosition)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, kChartRecords));
    DBFFilePtr in = Open(dir / "charts.dbf");
    ASSERT_TRUE(in);
    ASSERT_EQ(DBFFile_ReadRecord(in.get()), 1);
    FilePtr out(fopen((dir / "h.dbf").c_str(), "w+b"));
    EXPECT_EQ(DBFFile_Writeheader(in.get(), out.get()), 0);
    EXPECT_EQ(DBFFile_Writeheader(in.get(), out.get()), 0);
    out.reset();
    std::string header = DbfTable(kChartFields, kChartRecords).substr(0, 32 + 4 * 32 + 1);
    EXPECT_EQ(ReadFile(dir / "h.dbf"), header + header);
    ASSERT_EQ(DBFFile_ReadRecord(in.get()), 1);
    EXPECT_STREQ(DBFFile_GetFieldValueByPos(in.get(), 1), "RNAV (GPS) RWY 34L");
}

TEST(DbfWriteheader, HeaderLengthBelowTheByteItClears)
{
    TempDir dir;
    DbfOptions options;
    options.headerLength = 10;
    options.patches = {{15, "\x07"}};
    WriteFile(dir / "t.dbf", DbfTable({}, {}, options));
    DBFFilePtr in = Open(dir / "t.dbf");
    ASSERT_TRUE(in);
    FilePtr out(fopen((dir / "h.dbf").c_str(), "w+b"));
    EXPECT_EQ(DBFFile_Writeheader(in.get(), out.get()), 0);
    out.reset();
    EXPECT_EQ(ReadFile(dir / "h.dbf"), DbfTable({}, {}, options).substr(0, 10));
}

TEST(DbfWriteheader, Codes)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, kChartRecords));
    DBFFilePtr in = Open(dir / "charts.dbf");
    ASSERT_TRUE(in);
    FilePtr out(fopen((dir / "h.dbf").c_str(), "w+b"));
    EXPECT_EQ(DBFFile_Writeheader(nullptr, out.get()), -1);
    DBFFile stale;
    memset(&stale, 0, sizeof stale);
    EXPECT_EQ(DBFFile_Writeheader(&stale, out.get()), -2);
    EXPECT_EQ(DBFFile_Writeheader(in.get(), nullptr), -4);
    // A stream open for reading only takes no bytes.
    WriteFile(dir / "ro.dbf", "");
    FilePtr readOnly(fopen((dir / "ro.dbf").c_str(), "rb"));
    EXPECT_EQ(DBFFile_Writeheader(in.get(), readOnly.get()), -4);
}

TEST(DbfWriteheader, TruncatedHeaderIsAShortRead)
{
    // The header length claims 31 bytes more than the descriptors take, and
    // the file ends before them.
    TempDir dir;
    DbfOptions options;
    options.headerLength = 32 + 32 + 31;
    options.endMarker = false;
    WriteFile(dir / "t.dbf", DbfTable({{"A", 'C', 2}}, {}, options) + " AB");
    DBFFilePtr in = Open(dir / "t.dbf");
    ASSERT_TRUE(in);
    FilePtr out(fopen((dir / "h.dbf").c_str(), "w+b"));
    EXPECT_EQ(DBFFile_Writeheader(in.get(), out.get()), -3);
    // The read position survives the failed copy.
    ASSERT_EQ(DBFFile_ReadRecord(in.get()), 1);
    EXPECT_STREQ(DBFFile_GetFieldValueByPos(in.get(), 0), "AB");
}

TEST(DbfWriteheader, ShortWrite)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, kChartRecords));
    std::string outPath = dir / "h.dbf";
    int result = WithFileSizeLimit(100, [&] {
        DBFFilePtr in = Open(dir / "charts.dbf");
        FilePtr out(fopen(outPath.c_str(), "w+b"));
        if (!in || !out) return 50;
        setvbuf(out.get(), nullptr, _IONBF, 0);
        return DBFFile_Writeheader(in.get(), out.get());
    });
    EXPECT_EQ(result, -4);
    EXPECT_EQ(ReadFile(outPath).size(), 100u);
}

TEST(DbfWriteRecord, Codes)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, kChartRecords));
    DBFFilePtr in = Open(dir / "charts.dbf");
    ASSERT_TRUE(in);
    FilePtr out(fopen((dir / "r.dbf").c_str(), "w+b"));
    // Nothing read or set yet: there is no record to write.
    EXPECT_EQ(DBFFile_WriteRecord(in.get(), out.get()), -4);
    ASSERT_EQ(DBFFile_ReadRecord(in.get()), 1);
    EXPECT_EQ(DBFFile_WriteRecord(nullptr, out.get()), -1);
    DBFFile stale;
    memset(&stale, 0, sizeof stale);
    stale.magic = ~kDbfMagic;
    EXPECT_EQ(DBFFile_WriteRecord(&stale, out.get()), -2);
    EXPECT_EQ(DBFFile_WriteRecord(in.get(), nullptr), -3);
    WriteFile(dir / "ro.dbf", "");
    FilePtr readOnly(fopen((dir / "ro.dbf").c_str(), "rb"));
    EXPECT_EQ(DBFFile_WriteRecord(in.get(), readOnly.get()), -4);
    EXPECT_EQ(DBFFile_WriteRecord(in.get(), out.get()), 0);
    out.reset();
    EXPECT_EQ(ReadFile(dir / "r.dbf"), DbfRecordBytes(kChartFields, kChartRecords[0]));
}

TEST(DbfWriteRecord, SetRecordWithoutReading)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, {}));
    DBFFilePtr in = Open(dir / "charts.dbf");
    ASSERT_TRUE(in);
    FilePtr out(fopen((dir / "r.dbf").c_str(), "w+b"));
    DBFFile_SetFieldValueByPos(in.get(), 0, "KSEA");
    EXPECT_EQ(DBFFile_WriteRecord(in.get(), out.get()), 0);
    out.reset();
    EXPECT_EQ(ReadFile(dir / "r.dbf"), " KSEA" + std::string(31, ' '));
}

TEST(DbfWriteRecord, ShortWrite)
{
    TempDir dir;
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, kChartRecords));
    std::string outPath = dir / "r.dbf";
    int result = WithFileSizeLimit(50, [&] {
        DBFFilePtr in = Open(dir / "charts.dbf");
        FilePtr out(fopen(outPath.c_str(), "w+b"));
        if (!in || !out) return 50;
        setvbuf(out.get(), nullptr, _IONBF, 0);
        if (DBFFile_ReadRecord(in.get()) != 1) return 51;
        if (DBFFile_WriteRecord(in.get(), out.get()) != 0) return 52;  // bytes 0-36
        return DBFFile_WriteRecord(in.get(), out.get());                // crosses 50
    });
    EXPECT_EQ(result, -4);
}

TEST(DbfWriteNumRecords, PatchesTheCountAndAddsOneMarker)
{
    TempDir dir;
    std::string path = dir / "t.dbf";
    WriteFile(path, std::string(40, 'x'));
    FilePtr out(fopen(path.c_str(), "r+b"));
    EXPECT_EQ(DBFFile_WriteNumRecords(out.get(), 0x01020304), 0);
    EXPECT_EQ(DBFFile_WriteNumRecords(out.get(), 7), 0);  // the marker is there now
    out.reset();
    EXPECT_EQ(ReadFile(path), "xxxx" + U32(7) + std::string(32, 'x') + "\x1A");
}

TEST(DbfWriteNumRecords, FileAlreadyEndingInTheMarker)
{
    TempDir dir;
    std::string path = dir / "t.dbf";
    std::string table = DbfTable(kChartFields, kChartRecords);
    WriteFile(path, table);
    FilePtr out(fopen(path.c_str(), "r+b"));
    EXPECT_EQ(DBFFile_WriteNumRecords(out.get(), 2), 0);
    out.reset();
    DbfOptions options;
    options.recordCount = 2;
    EXPECT_EQ(ReadFile(path), DbfTable(kChartFields, kChartRecords, options));
}

TEST(DbfWriteNumRecords, EmptyStreamGrowsToTheCount)
{
    TempDir dir;
    std::string path = dir / "t.dbf";
    FilePtr out(fopen(path.c_str(), "w+b"));
    EXPECT_EQ(DBFFile_WriteNumRecords(out.get(), 1), 0);
    out.reset();
    EXPECT_EQ(ReadFile(path), std::string(4, '\0') + U32(1) + "\x1A");
}

TEST(DbfWriteNumRecords, Codes)
{
    TempDir dir;
    EXPECT_EQ(DBFFile_WriteNumRecords(nullptr, 1), -1);
    WriteFile(dir / "t.dbf", std::string(40, 'x'));
    FilePtr readOnly(fopen((dir / "t.dbf").c_str(), "rb"));
    EXPECT_EQ(DBFFile_WriteNumRecords(readOnly.get(), 1), -2);
    FilePtr writeOnly(fopen((dir / "w.dbf").c_str(), "wb"));
    EXPECT_EQ(DBFFile_WriteNumRecords(writeOnly.get(), 1), -3);
}

TEST(DbfWriteNumRecords, FailedAppendOfTheMarker)
{
    TempDir dir;
    std::string path = dir / "t.dbf";
    WriteFile(path, std::string(40, 'x'));
    int result = WithFileSizeLimit(40, [&] {
        FilePtr out(fopen(path.c_str(), "r+b"));
        return out ? DBFFile_WriteNumRecords(out.get(), 3) : 50;
    });
    EXPECT_EQ(result, -4);
    EXPECT_EQ(ReadFile(path), "xxxx" + U32(3) + std::string(32, 'x'));
}

TEST(DbfWriteNumRecords, RecordsThatCouldNotBeWrittenShowAsAFailedCount)
{
    // Records pile up in the stream's buffer; the seek to the count flushes
    // them and meets the limit.
    TempDir dir;
    WriteFile(dir / "charts.dbf", DbfTable(kChartFields, kChartRecords));
    std::string outPath = dir / "NEW.dbf";
    int result = WithFileSizeLimit(200, [&] {
        DBFFilePtr in = Open(dir / "charts.dbf");
        FilePtr out(fopen(outPath.c_str(), "w+b"));
        if (!in || !out) return 50;
        if (DBFFile_Writeheader(in.get(), out.get()) != 0) return 51;
        int count = 0;
        while (DBFFile_ReadRecord(in.get()) == 1) {
            if (DBFFile_WriteRecord(in.get(), out.get()) != 0) return 52;
            count++;
        }
        return DBFFile_WriteNumRecords(out.get(), (uint32_t)count);
    });
    EXPECT_EQ(result, -2);
}

TEST(DbtWrite, BlockLayoutAndNextBlockNumber)
{
    TempDir dir;
    std::string path = dir / "n.dbt";
    FilePtr memo(fopen(path.c_str(), "w+b"));
    ASSERT_EQ(fwrite(std::string(512, '\0').data(), 1, 512, memo.get()), 512u);
    EXPECT_EQ(DBFFile_WriteDBTRecord(memo.get(), "first"), 2);
    std::string long_(600, 'L');
    EXPECT_EQ(DBFFile_WriteDBTRecord(memo.get(), long_.c_str()), 4);
    // Ends exactly on a boundary: a whole block of zeros follows.
    std::string exact(504, 'E');
    EXPECT_EQ(DBFFile_WriteDBTRecord(memo.get(), exact.c_str()), 6);
    EXPECT_EQ(DBFFile_WriteDBTRecord(memo.get(), nullptr), 7);
    EXPECT_EQ(DBFFile_WriteDBTRecord(memo.get(), ""), 8);
    memo.reset();
    std::string expected = std::string(512, '\0') + DbtMemo("first") + DbtMemo(long_) + DbtMemo(exact) +
                           DbtMemo("") + DbtMemo("");
    std::string bytes = ReadFile(path);
    EXPECT_EQ(bytes, expected);
    EXPECT_EQ(bytes.size(), 8u * 512u);
    EXPECT_EQ(bytes.substr(512, 12), std::string("\xFF\xFF\x08\x00", 4) + U32(13) + "firs");
    EXPECT_EQ(bytes.substr(4 * 512, 8), std::string("\xFF\xFF\x08\x00", 4) + U32(512));
    EXPECT_EQ(bytes.substr(5 * 512), std::string(512, '\0') + DbtMemo("") + DbtMemo(""));
}

TEST(DbtWrite, NullStream) { EXPECT_EQ(DBFFile_WriteDBTRecord(nullptr, "x"), -1); }

TEST(DbtWrite, MemosReadBackThroughTheirTable)
{
    // A table with memos is built the way the NOTAM builders do it: the
    // memo's block number goes into its record, then the memo is appended.
    TempDir dir;
    std::vector<DbfField> fields = {{"F5_6", 'C', 4}, {"NOTAM", 'M', 10}};
    WriteFile(dir / "src.dbf", DbfTable(fields, {}));
    DBFFilePtr source = Open(dir / "src.dbf");
    ASSERT_TRUE(source);
    FilePtr table(fopen((dir / "notams.dbf").c_str(), "w+b"));
    FilePtr memo(fopen((dir / "notams.dbt").c_str(), "w+b"));
    ASSERT_EQ(DBFFile_Writeheader(source.get(), table.get()), 0);
    fwrite(std::string(512, '\0').data(), 1, 512, memo.get());
    std::vector<std::string> texts = {"RWY 16R CLSD", std::string(1500, 'n'), "TWY A\r\nLGT U/S"};
    int next = 1;
    for (size_t i = 0; i < texts.size(); i++) {
        DBFFile_SetFieldValueByPos(source.get(), 0, ("K00" + std::to_string(i)).c_str());
        DBFFile_SetFieldValueByName(source.get(), "NOTAM", next);
        next = DBFFile_WriteDBTRecord(memo.get(), texts[i].c_str());
        ASSERT_EQ(DBFFile_WriteRecord(source.get(), table.get()), 0);
    }
    ASSERT_EQ(DBFFile_WriteNumRecords(table.get(), 3), 0);
    table.reset();
    memo.reset();

    DBFFilePtr notams = Open(dir / "notams.dbf");
    ASSERT_TRUE(notams);
    for (size_t i = 0; i < texts.size(); i++) {
        ASSERT_EQ(DBFFile_ReadRecord(notams.get()), 1);
        EXPECT_EQ(DBFFile_GetFieldValueByPos(notams.get(), 0), "K00" + std::to_string(i));
        EXPECT_EQ(DBFFile_GetFieldValueByPos(notams.get(), 1), texts[i]);
    }
    EXPECT_STREQ(DBFFile_GetFieldValueRawByPos(notams.get(), 1), "5");
    EXPECT_EQ(DBFFile_ReadRecord(notams.get()), -2);
}
