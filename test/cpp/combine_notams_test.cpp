// The NOTAM table and memo file merges of the combine.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/files.h"
#include "bundle/blob.h"
#include "bundle_writer.h"
#include "combine/combine.h"
#include "combine_fixture.h"
#include "fork_util.h"
#include "table_reader.h"
#include "test_util.h"

namespace {

DbfOptions NoEndMarker()
{
    DbfOptions options;
    options.endMarker = false;
    return options;
}

// The IFR record that converting a VFR NOTAM gives.
DbfRecord ConvertedNotam(const std::string &country, const std::string &code, const std::string &block,
                         const std::string &index)
{
    return Named(kIfrNotamFields,
                 {{"TEXT", block},      {"J5_3", country},  {"F5_14", "V14"},  {"F5_6", code},
                  {"CNT_TYPE", "V"},    {"TEMPO", "T"},     {"END_DATE", "20250101"},
                  {"END_FIXED", "E"},   {"UFN", "U"},       {"WIE", "W"},      {"EFF_DATE", "20240101"},
                  {"EFF_FIXED", "F"},   {"INDEX_NO", index}});
}

// Memo files of whole blocks: the header block and count - 1 more.
std::string Blocks(int count, char fill) { return std::string((size_t)count * 512, fill); }

void WriteNotamTables(const TempDir &src, const std::vector<DbfRecord> &ifr, const std::vector<DbfRecord> &vfr)
{
    WriteFile(src / "notams.dbf", DbfTable(kIfrNotamFields, ifr));
    WriteFile(src / "vfrntms.dbf", DbfTable(kVfrNotamFields, vfr));
}

}  // namespace

TEST(MergeNotamsDBF, EqualKeysKeepBothIfrFirst)
{
    TempDir src, dst;
    WriteNotamTables(src, {IfrNotam("US", "KABC", "1", "I1")},
                     {VfrNotam("us", "kabc", "1", "V1")});
    ASSERT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadColumn(dst / "notams.dbf", "INDEX_NO"), (std::vector<std::string>{"I1", "V1"}));
    EXPECT_EQ(HeaderCount(dst / "notams.dbf"), 2);
}

TEST(MergeNotamsDBF, CountryNotamsSortAsAirportZzzz)
{
    TempDir src, dst;
    WriteNotamTables(src,
                     {IfrNotam("CA", "KAAA", "1", "I1"), IfrNotam("US", "KAAA", "1", "I2"),
                      IfrNotam("US", "", "1", "I3"), IfrNotam("US", "ZZZZZ", "1", "I4")},
                     {VfrNotam("CA", "", "1", "V1"), VfrNotam("US", "KZZZ", "1", "V2"),
                      VfrNotam("US", "", "1", "V3"), VfrNotam("US", "ZZZZA", "1", "V4")});
    ASSERT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    // Under one country a country-wide NOTAM follows KZZZ but precedes ZZZZA and ZZZZZ.
    EXPECT_EQ(ReadColumn(dst / "notams.dbf", "INDEX_NO"),
              (std::vector<std::string>{"I1", "V1", "I2", "V2", "I3", "V3", "V4", "I4"}));
}

TEST(MergeNotamsDBF, VfrMemoPointersMoveUpByTheIfrBlocks1025)
{
    TempDir src, dst;
    WriteNotamTables(src, {IfrNotam("US", "KAAA", "1", "I1")},
                     {VfrNotam("US", "KBBB", "1", "V1"), VfrNotam("US", "KCCC", "", "V2"),
                      VfrNotam("US", "KDDD", "  7", "V3")});
    // Two blocks and the end-of-file byte.
    WriteFile(src / "notams.dbt", Blocks(2, 'i') + "\x1a");
    ASSERT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    // A blank pointer becomes the offset itself.
    EXPECT_EQ(ReadColumn(dst / "notams.dbf", "TEXT"), (std::vector<std::string>{"1", "3", "2", "9"}));
    EXPECT_EQ(ReadFile(dst / "notams.dbf"),
              DbfTable(kIfrNotamFields, {IfrNotam("US", "KAAA", "1", "I1"), ConvertedNotam("US", "KBBB", "3", "V1"),
                                         ConvertedNotam("US", "KCCC", "2", "V2"), ConvertedNotam("US", "KDDD", "9", "V3")},
                       NoEndMarker()));
}

TEST(MergeNotamsDBF, IfrMemoFileOf1024BytesGivesOffset2)
{
    TempDir src, dst;
    WriteNotamTables(src, {}, {VfrNotam("US", "KBBB", "1", "V1")});
    WriteFile(src / "notams.dbt", Blocks(2, 'i'));
    ASSERT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadColumn(dst / "notams.dbf", "TEXT"), (std::vector<std::string>{"3"}));
}

TEST(MergeNotamsDBF, WithoutIfrMemoFileTheOffsetIs0)
{
    TempDir src, dst;
    WriteNotamTables(src, {}, {VfrNotam("US", "KBBB", "4", "V1")});
    ASSERT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadColumn(dst / "notams.dbf", "TEXT"), (std::vector<std::string>{"4"}));
}

TEST(MergeNotamsDBF, ConversionCarriesUnmappedFieldsInTheTemplate)
{
    TempDir src, dst;
    // SOURCE lies outside the mapping: the template's blank stays, however
    // the IFR records fill it.
    WriteNotamTables(src, {IfrNotam("US", "KAAA", "1", "I1")},
                     {VfrNotam("US", "KBBB", "1", "V1"), VfrNotam("US", "KCCC", "2", "V2")});
    ASSERT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadColumn(dst / "notams.dbf", "SOURCE"), (std::vector<std::string>{"IFR", "", ""}));
}

TEST(MergeNotamsDBF, WithoutVfrNotamTableNothingIsWritten)
{
    TempDir src, dst;
    WriteFile(src / "notams.dbf", DbfTable(kIfrNotamFields, {IfrNotam("US", "KAAA", "1", "I1")}));
    EXPECT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_TRUE(ListDir(dst.path()).empty());
}

TEST(MergeNotamsDBF, WithoutIfrNotamTableTheVfrTableIsCopied)
{
    TempDir src, dst;
    std::string vfr = DbfTable(kVfrNotamFields, {VfrNotam("US", "KBBB", "1", "V1")});
    WriteFile(src / "vfrntms.dbf", vfr);
    WriteFile(src / "notams.dbt", Blocks(3, 'i'));
    EXPECT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "notams.dbf"), vfr);
    EXPECT_EQ(ListDir(dst.path()), (std::vector<std::string>{"notams.dbf"}));
}

TEST(MergeNotamsDBF, TwoEmptyTablesGiveCountZeroAndNoEndMarker)
{
    TempDir src, dst;
    WriteNotamTables(src, {}, {});
    ASSERT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "notams.dbf"), DbfTable(kIfrNotamFields, {}, NoEndMarker()));
}

TEST(MergeNotamsDBF, DestinationThatCannotBeCreatedGivesMinus2)
{
    TempDir src, dst;
    WriteNotamTables(src, {IfrNotam("US", "KAAA", "1", "I1")}, {VfrNotam("US", "KBBB", "1", "V1")});
    ASSERT_EQ(mkdir((dst / "notams.dbf").c_str(), 0700), 0);
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), -2);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(CopyVFRNotamFields, AddsTheOffsetToTheRawPointerAndCopiesTheFields)
{
    TempDir dir;
    // The VFR memo file exists, so reading TEXT by value would give the memo.
    WriteFile(dir / "vfr.dbf", DbfTable(kVfrNotamFields, {VfrNotam("US", "KBBB", "1", "V1")}));
    WriteFile(dir / "vfr.dbt", DbtFile({"memo text"}));
    WriteFile(dir / "ifr.dbf", DbfTable(kIfrNotamFields, {}));
    DBFFilePtr vfr(DBFFile_Open((dir / "vfr.dbf").c_str()));
    DBFFilePtr ifrTemplate(DBFFile_Open((dir / "ifr.dbf").c_str()));
    ASSERT_TRUE(vfr && ifrTemplate);
    ASSERT_EQ(DBFFile_ReadRecord(vfr.get()), 1);
    ASSERT_STREQ(DBFFile_GetFieldValueByName(vfr.get(), "TEXT"), "memo text");
    {
        FilePtr out(fopen((dir / "out").c_str(), "wb"));
        ASSERT_TRUE(out);
        CopyVFRNotamFields(vfr.get(), ifrTemplate.get(), out.get(), 40);
    }
    EXPECT_EQ(ReadFile(dir / "out"), DbfRecordBytes(kIfrNotamFields, ConvertedNotam("US", "KBBB", "41", "V1")));
}

// ---- The memo file -------------------------------------------------------

TEST(MergeNotamsDBT, IfrMemoOf1025BytesLosesItsEndByteBeforeTheVfrMemo)
{
    TempDir src, dst;
    std::string ifr = Blocks(2, 'i');
    std::string vfr = DbtFile({"first", "second"});
    WriteFile(src / "notams.dbt", ifr + "\x1a");
    WriteFile(src / "vfrntms.dbt", vfr + "\x1a");
    ASSERT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), ifr + vfr + "\x1a");
}

TEST(MergeNotamsDBT, IfrMemoOf1024BytesIsCopiedWhole)
{
    TempDir src, dst;
    std::string ifr = Blocks(2, 'i');
    std::string vfr = DbtFile({"first"});
    WriteFile(src / "notams.dbt", ifr);
    WriteFile(src / "vfrntms.dbt", vfr);
    ASSERT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), ifr + vfr + "\x1a");
}

TEST(MergeNotamsDBT, WithoutVfrMemoTheIfrMemoLessItsEndByteAndOneEndByte)
{
    TempDir src, dst;
    WriteFile(src / "notams.dbt", Blocks(3, 'i') + "\x1a");
    ASSERT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), Blocks(3, 'i') + "\x1a");
}

TEST(MergeNotamsDBT, OnlyAByteBehindWholeBlocksIsDropped)
{
    TempDir src, dst;
    // 1026 bytes are not whole blocks plus one: copied whole.
    std::string ifr = Blocks(2, 'i') + "\x1a\x1a";
    WriteFile(src / "notams.dbt", ifr);
    WriteFile(src / "vfrntms.dbt", "\x1a");
    ASSERT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), 0);
    // A one-byte file is 0 blocks plus its end byte.
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), ifr + "\x1a");
}

TEST(MergeNotamsDBT, WithoutIfrMemoTheVfrMemoAlone)
{
    TempDir src, dst;
    std::string vfr = DbtFile({"only"});
    WriteFile(src / "vfrntms.dbt", vfr + "\x1a");
    ASSERT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), vfr + "\x1a");
}

TEST(MergeNotamsDBT, WithNeitherMemoFileTheEndByteAlone)
{
    TempDir src, dst;
    ASSERT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), "\x1a");
}

TEST(MergeNotamsDBT, LargeMemoFilesPassThroughInChunks)
{
    TempDir src, dst;
    std::string ifr = RandomBytes(3 * kBlobChunk + 512, 11);
    std::string vfr = RandomBytes(kBlobChunk + 1024, 12);
    WriteFile(src / "notams.dbt", ifr);
    WriteFile(src / "vfrntms.dbt", vfr + "\x1a");
    ASSERT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), 0);
    EXPECT_TRUE(ReadFile(dst / "notams.dbt") == ifr + vfr + "\x1a");
}

TEST(MergeNotamsDBT, DestinationThatCannotBeCreatedGivesMinus2)
{
    TempDir src, dst;
    WriteFile(src / "notams.dbt", Blocks(2, 'i'));
    ASSERT_EQ(mkdir((dst / "notams.dbt").c_str(), 0700), 0);
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), -2);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(MergeNotamsDBT, UnreadableMemoFileGivesMinus4)
{
    TempDir src, dst;
    // A directory opens for reading but yields no bytes.
    ASSERT_EQ(mkdir((src / "vfrntms.dbt").c_str(), 0700), 0);
    WriteFile(src / "notams.dbt", Blocks(2, 'i'));
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), -4);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(MergeNotamsDBT, ShortWriteGivesMinus4)
{
    TempDir src, dst;
    WriteFile(src / "notams.dbt", Blocks(200, 'i'));
    WriteFile(src / "vfrntms.dbt", Blocks(200, 'v'));
    // In the IFR memo, and in the VFR memo.
    for (uint64_t limit : {50000u, 150000u}) {
        int result = RunInChild([&] {
            LimitFileSize(limit);
            return -MergeNotamsDBT(src.c_str(), dst.c_str());
        });
        EXPECT_EQ(result, 4) << limit;
    }
}

TEST(MergeNotamsDBT, FailedEndByteIsMinus11AndLeavesNoMemoFile)
{
    TempDir src, dst;
    WriteFile(src / "notams.dbt", Blocks(2, 'i'));
    WriteFile(src / "vfrntms.dbt", Blocks(2, 'v'));
    WriteFile(dst / "notams.dbt", "an older memo file");
    int result = RunInChild([&] {
        LimitFileSize(2048);
        return -MergeNotamsDBT(src.c_str(), dst.c_str());
    });
    EXPECT_EQ(result, 11);
    EXPECT_EQ(ReadFile(dst / "notams.dbt"), "an older memo file");
    EXPECT_EQ(ListDir(dst.path()), std::vector<std::string>{"notams.dbt"});
}

TEST(MergeNotamsDBT, NoMemoryGivesMinus3)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    TempDir src, dst;
    WriteFile(src / "notams.dbt", Blocks(1000, 'i'));
    int result = RunInChild([&] {
        LimitAddressSpace(0);
        ExhaustMemory(256 << 10);
        return -MergeNotamsDBT(src.c_str(), dst.c_str());
    });
    EXPECT_EQ(result, 3);
}

TEST(MergeNotams, MergedMemosReadBackThroughTheMergedTable)
{
    TempDir src, dst;
    std::vector<int> ifrBlocks, vfrBlocks;
    std::string ifrMemo = DbtFile({"ifr one", std::string(600, 'L'), "ifr three"}, &ifrBlocks);
    std::string vfrMemo = DbtFile({"vfr one", "vfr two"}, &vfrBlocks);
    WriteFile(src / "notams.dbt", ifrMemo + "\x1a");
    WriteFile(src / "vfrntms.dbt", vfrMemo + "\x1a");
    WriteNotamTables(src,
                     {IfrNotam("US", "KAAA", std::to_string(ifrBlocks[0]), "I1"),
                      IfrNotam("US", "KCCC", std::to_string(ifrBlocks[1]), "I2"),
                      IfrNotam("US", "", std::to_string(ifrBlocks[2]), "I3")},
                     {VfrNotam("US", "KBBB", std::to_string(vfrBlocks[0]), "V1"),
                      VfrNotam("US", "KDDD", std::to_string(vfrBlocks[1]), "V2")});
    ASSERT_EQ(MergeNotamsDBF(src.c_str(), dst.c_str()), 0);
    ASSERT_EQ(MergeNotamsDBT(src.c_str(), dst.c_str()), 0);
    std::vector<std::vector<std::string>> expected = {
        {"I1", "ifr one"}, {"V1", "vfr one"}, {"I2", std::string(600, 'L')}, {"V2", "vfr two"}, {"I3", "ifr three"}};
    EXPECT_EQ(ReadTable(dst / "notams.dbf", {"INDEX_NO", "TEXT"}), expected);
}
