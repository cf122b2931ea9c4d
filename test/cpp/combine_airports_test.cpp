// The airport table merge of the combine and the conversion of VFR airports.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files.h"
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

// The IFR record that converting VFR airport code gives, with the fields
// outside the mapping as given.
DbfRecord Converted(const std::string &code, const std::string &name, const std::string &city,
                    const std::string &remark = "", const std::string &magVar = "")
{
    return Named(kIfrAirportFields,
                 {{"F5_6", code},          {"F5_107", "P" + code.substr(0, 3)}, {"F5_54", "PU"},
                  {"F5_36", "N40123456"},  {"F5_37", "W073123456"}, {"F5_39", "123"},
                  {"F5_55", "ELEV"},       {"ARPT_NAME", name},    {"REMARK", remark},
                  {"CITY", city},          {"ST_PR", "NY"},        {"J5_3", "US"},
                  {"J5_5", "a5"},          {"J5_6", "a6"},         {"J5_7", "a7"},
                  {"J5_8", "a8"},          {"J5_10", "a10"},       {"J5_12", "a12"},
                  {"J5_39", "a39"},        {"J5_14", "a14"},       {"J5_15", "a15"},
                  {"F5_14", "F14"},        {"F5_179", "179"},      {"F5_197", "197"},
                  {"PRECISION", "N"},      {"CHRT_IDX", ""},       {"CLNK_IDX", ""},
                  {"MAG_VAR", magVar}});
}

}  // namespace

TEST(MergeAirportsDBF, AirportInBothTablesIsPresentOnceAsItsIfrRecord)
{
    TempDir src, dst;
    WriteFile(src / "airports.dbf", DbfTable(kIfrAirportFields, {IfrAirport("KABC", "IFRNAME")}));
    WriteFile(src / "vfrapts.dbf", DbfTable(kVfrAirportFields, {VfrAirport("kabc", "VFRNAME", "VCITY")}));
    ASSERT_EQ(MergeAirportsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "airports.dbf"),
              DbfTable(kIfrAirportFields, {IfrAirport("KABC", "IFRNAME")}, NoEndMarker()));
}

TEST(MergeAirportsDBF, VfrOnlyAirportIsConverted)
{
    TempDir src, dst;
    WriteFile(src / "airports.dbf", DbfTable(kIfrAirportFields, {IfrAirport("KAAA", "ALPHA")}));
    WriteFile(src / "vfrapts.dbf", DbfTable(kVfrAirportFields, {VfrAirport("KBBB", "BRAVO", "BCITY")}));
    ASSERT_EQ(MergeAirportsDBF(src.c_str(), dst.c_str()), 0);
    // PRECISION "N", the name in ARPT_NAME, the city in CITY, empty links,
    // no VFR-only field, blanks where the mapping sets nothing.
    EXPECT_EQ(ReadFile(dst / "airports.dbf"),
              DbfTable(kIfrAirportFields, {IfrAirport("KAAA", "ALPHA"), Converted("KBBB", "BRAVO", "BCITY")},
                       NoEndMarker()));
    EXPECT_EQ(ReadTable(dst / "airports.dbf", {"PRECISION", "ARPT_NAME", "CITY", "CHRT_IDX", "CLNK_IDX"})[1],
              (std::vector<std::string>{"N", "BRAVO", "BCITY", "", ""}));
}

TEST(MergeAirportsDBF, MergesInKeyOrderIgnoringCase)
{
    TempDir src, dst;
    WriteFile(src / "airports.dbf",
              DbfTable(kIfrAirportFields, {IfrAirport("KBBB", "I"), IfrAirport("kddd", "I"), IfrAirport("KFFF", "I")}));
    WriteFile(src / "vfrapts.dbf",
              DbfTable(kVfrAirportFields, {VfrAirport("kaaa", "V", "C"), VfrAirport("KCCC", "V", "C"),
                                           VfrAirport("KDDD", "V", "C"), VfrAirport("KEEE", "V", "C"),
                                           VfrAirport("KGGG", "V", "C"), VfrAirport("KHHH", "V", "C")}));
    ASSERT_EQ(MergeAirportsDBF(src.c_str(), dst.c_str()), 0);
    std::vector<std::vector<std::string>> expected = {
        {"kaaa", "V"}, {"KBBB", "I"}, {"KCCC", "V"}, {"kddd", "I"}, {"KEEE", "V"},
        {"KFFF", "I"}, {"KGGG", "V"}, {"KHHH", "V"}};
    EXPECT_EQ(ReadTable(dst / "airports.dbf", {"F5_6", "ARPT_NAME"}), expected);
    EXPECT_EQ(HeaderCount(dst / "airports.dbf"), 8);
}

TEST(MergeAirportsDBF, TemplateStartsBlankAndCarriesUnmappedFieldsToTheNextConversion)
{
    TempDir src, dst;
    WriteFile(src / "airports.dbf", DbfTable(kIfrAirportFields, {IfrAirport("KMMM", "MIKE")}));
    // The first VFR name is too long for ARPT_NAME and runs on into REMARK,
    // which the mapping never sets: the next conversion finds it there.
    WriteFile(src / "vfrapts.dbf",
              DbfTable(kVfrAirportFields, {VfrAirport("KAAA", "ABCDEFGHIJKLMN", "ACITY"),
                                           VfrAirport("KBBB", "SHORT", "BCITY")}));
    ASSERT_EQ(MergeAirportsDBF(src.c_str(), dst.c_str()), 0);
    // The IFR record in the merged table is its own, not the template's.
    EXPECT_EQ(ReadFile(dst / "airports.dbf"),
              DbfTable(kIfrAirportFields, {Converted("KAAA", "ABCDEFGH", "ACITY", "IJKLMN"),
                                           Converted("KBBB", "SHORT", "BCITY", "IJKLMN"),
                                           IfrAirport("KMMM", "MIKE")},
                       NoEndMarker()));
}

TEST(MergeAirportsDBF, TemplateIsNeverReadFromTheIfrTable)
{
    TempDir src, dst;
    // The IFR table's first record has every unmapped field filled; the
    // converted VFR airport still has them blank.
    WriteFile(src / "airports.dbf", DbfTable(kIfrAirportFields, {IfrAirport("KZZZ", "ZULU")}));
    WriteFile(src / "vfrapts.dbf", DbfTable(kVfrAirportFields, {VfrAirport("KAAA", "ALPHA", "ACITY")}));
    ASSERT_EQ(MergeAirportsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadTable(dst / "airports.dbf", {"REMARK", "MAG_VAR"})[0], (std::vector<std::string>{"", ""}));
}

TEST(MergeAirportsDBF, WithoutVfrAirportTableNothingIsWritten)
{
    TempDir src, dst;
    WriteFile(src / "airports.dbf", DbfTable(kIfrAirportFields, {IfrAirport("KAAA", "ALPHA")}));
    EXPECT_EQ(MergeAirportsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_TRUE(ListDir(dst.path()).empty());
}

TEST(MergeAirportsDBF, WithoutIfrAirportTableTheVfrTableIsCopiedUnchanged)
{
    TempDir src, dst;
    std::string vfr = DbfTable(kVfrAirportFields, {VfrAirport("KAAA", "ALPHA", "ACITY")});
    WriteFile(src / "vfrapts.dbf", vfr);
    EXPECT_EQ(MergeAirportsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "airports.dbf"), vfr);
    EXPECT_EQ(ListDir(dst.path()), (std::vector<std::string>{"airports.dbf"}));
}

TEST(MergeAirportsDBF, TwoEmptyTablesGiveTheIfrHeaderCountZeroAndNoEndMarker)
{
    TempDir src, dst;
    WriteFile(src / "airports.dbf", DbfTable(kIfrAirportFields, {}));
    WriteFile(src / "vfrapts.dbf", DbfTable(kVfrAirportFields, {}));
    ASSERT_EQ(MergeAirportsDBF(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst / "airports.dbf"), DbfTable(kIfrAirportFields, {}, NoEndMarker()));
}

TEST(MergeAirportsDBF, DestinationThatCannotBeCreatedGivesMinus2)
{
    TempDir src, dst;
    WriteFile(src / "airports.dbf", DbfTable(kIfrAirportFields, {IfrAirport("KAAA", "ALPHA")}));
    WriteFile(src / "vfrapts.dbf", DbfTable(kVfrAirportFields, {VfrAirport("KBBB", "BRAVO", "B")}));
    ASSERT_EQ(mkdir((dst / "airports.dbf").c_str(), 0700), 0);
    int before = CountOpenDescriptors();
    EXPECT_EQ(MergeAirportsDBF(src.c_str(), dst.c_str()), -2);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(CopyVFRAptField, CopiesByNameIntoTheIfrFieldsPosition)
{
    TempDir dir;
    WriteFile(dir / "vfr.dbf", DbfTable(kVfrAirportFields, {VfrAirport("KAAA", "ALPHA", "ACITY")}));
    WriteFile(dir / "ifr.dbf", DbfTable(kIfrAirportFields, {IfrAirport("KZZZ", "ZULU")}));
    DBFFilePtr vfr(DBFFile_Open((dir / "vfr.dbf").c_str()));
    DBFFilePtr ifr(DBFFile_Open((dir / "ifr.dbf").c_str()));
    ASSERT_TRUE(vfr && ifr);
    ASSERT_EQ(DBFFile_ReadRecord(vfr.get()), 1);
    ASSERT_EQ(DBFFile_ReadRecord(ifr.get()), 1);
    CopyVFRAptField("CITY_NAM_N", "CITY", vfr.get(), ifr.get());
    EXPECT_STREQ(DBFFile_GetFieldValueByName(ifr.get(), "CITY"), "ACITY");
    // A field the VFR table lacks is stored blank; one the IFR table lacks is not stored.
    CopyVFRAptField("NO_SUCH", "REMARK", vfr.get(), ifr.get());
    EXPECT_STREQ(DBFFile_GetFieldValueByName(ifr.get(), "REMARK"), "");
    CopyVFRAptField("VFR_ONLY", "NO_SUCH", vfr.get(), ifr.get());
    EXPECT_STREQ(DBFFile_GetFieldValueByName(ifr.get(), "ARPT_NAME"), "ZULU");
    EXPECT_STREQ(DBFFile_GetFieldValueByName(ifr.get(), "MAG_VAR"), "E12");
}

TEST(CopyVFRAptFields, WritesTheConvertedRecordAndLeavesTheVfrRecordAlone)
{
    TempDir dir;
    WriteFile(dir / "vfr.dbf", DbfTable(kVfrAirportFields, {VfrAirport("KAAA", "ALPHA", "ACITY")}));
    WriteFile(dir / "ifr.dbf", DbfTable(kIfrAirportFields, {}));
    DBFFilePtr vfr(DBFFile_Open((dir / "vfr.dbf").c_str()));
    DBFFilePtr ifrTemplate(DBFFile_Open((dir / "ifr.dbf").c_str()));
    ASSERT_TRUE(vfr && ifrTemplate);
    ASSERT_EQ(DBFFile_ReadRecord(vfr.get()), 1);
    {
        FilePtr out(fopen((dir / "out").c_str(), "wb"));
        ASSERT_TRUE(out);
        CopyVFRAptFields(vfr.get(), ifrTemplate.get(), out.get());
    }
    EXPECT_EQ(ReadFile(dir / "out"), DbfRecordBytes(kIfrAirportFields, Converted("KAAA", "ALPHA", "ACITY")));
    EXPECT_STREQ(DBFFile_GetFieldValueByName(vfr.get(), "CHRT_IDX"), "55");
}

TEST(MergeAirportsDBF, TemplateThatCannotBeOpenedGivesMinus2)
{
    TempDir src, dst;
    WriteFile(src / "airports.dbf", DbfTable(kIfrAirportFields, {IfrAirport("KAAA", "ALPHA")}));
    WriteFile(src / "vfrapts.dbf", DbfTable(kVfrAirportFields, {VfrAirport("KBBB", "BRAVO", "B")}));
    // Descriptors for the two tables, none for the template handle.
    int result = RunInChild([&] {
        for (int fd = 3; fd < 1024; fd++) close(fd);
        struct rlimit limit = {5, 5};
        setrlimit(RLIMIT_NOFILE, &limit);
        return -MergeAirportsDBF(src.c_str(), dst.c_str());
    });
    EXPECT_EQ(result, 2);
    EXPECT_TRUE(ListDir(dst.path()).empty());
}
