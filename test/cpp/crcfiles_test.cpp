// Rewriting the checksum list "crcfiles.txt".
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "platform/files.h"
#include "bundle/crcfiles.h"
#include "bundle_writer.h"
#include "fork_util.h"
#include "test_util.h"

namespace {

// A chart directory with the given tables, each holding its own name as data.
struct TableDir {
    TempDir dir;
    explicit TableDir(std::initializer_list<const char *> tables)
    {
        for (const char *name : tables) WriteFile(dir / name, std::string("data of ") + name);
    }
    std::string Entry(const std::string &name) const
    {
        char text[64];
        snprintf(text, sizeof text, "%s,0x%x\r\n", name.c_str(),
                 ReferenceTarnCrc(ReadFile(dir / name)));
        return text;
    }
    // Rewrites an old list with the given bytes and returns the new list.
    std::string Fix(const std::string &oldList, int expected = 0) const
    {
        WriteFile(dir / "crcfiles.txt", oldList);
        int result = FixCRCFilesTxt((dir / "crcfilesNEW.txt").c_str(), (dir / "crcfiles.txt").c_str(),
                                    dir.c_str());
        EXPECT_EQ(result, expected);
        return ReadFile(dir / "crcfilesNEW.txt");
    }
};

}  // namespace

TEST(FixCRCFilesTxt, RenewsNamedTablesAndCopiesOtherLines)
{
    TableDir d({"notams.dbt", "airports.dbf", "charts.dbf", "chrtlink.dbf"});
    std::string result = d.Fix(
        "notams.dbt,0x1\r\n"
        "tarnwick.tfl,0xabc\r\n"
        "airports.dbf,0x2\r\n"
        "charts.dbf,0x0\r\n"
        "chrtlink.dbf,0xFFFFFFFF\r\n");
    EXPECT_EQ(result, d.Entry("notams.dbt") + "tarnwick.tfl,0xabc\r\n" + d.Entry("airports.dbf") +
                          d.Entry("charts.dbf") + d.Entry("chrtlink.dbf"));
}

TEST(FixCRCFilesTxt, ChecksumFormatIsLowerCaseWithoutLeadingZeros)
{
    TableDir d({"airports.dbf"});
    // Table contents whose checksum has a leading zero digit and a letter digit.
    std::string content;
    uint32_t crc = 0;
    for (int i = 0;; i++) {
        content = "table " + std::to_string(i);
        crc = ReferenceTarnCrc(content);
        char hex[16];
        snprintf(hex, sizeof hex, "%08x", crc);
        if (crc < 0x10000000u && std::string(hex).find_first_of("abcdef") != std::string::npos) break;
    }
    WriteFile(d.dir / "charts.dbf", content);
    char expected[32];
    snprintf(expected, sizeof expected, "charts.dbf,0x%x\r\n", crc);
    ASSERT_LT(strlen(expected), strlen("charts.dbf,0x12345678\r\n"));
    EXPECT_EQ(d.Fix("airports.dbf\r\ncharts.dbf,0x0\r\n"), d.Entry("airports.dbf") + expected);
}

TEST(FixCRCFilesTxt, LastLineWithoutLineBreakIsLost)
{
    TableDir d({"airports.dbf", "charts.dbf"});
    EXPECT_EQ(d.Fix("airports.dbf,0x1\r\nkeep.txt,0x2\r\nlost.txt,0x3"),
              d.Entry("airports.dbf") + "keep.txt,0x2\r\n");
    // A CR directly before the end of the file does not end the line either.
    EXPECT_EQ(d.Fix("airports.dbf,0x1\r\nlost.txt,0x3\r"), d.Entry("airports.dbf"));
    EXPECT_EQ(d.Fix("airports.dbf,0x1\nkept.txt,0x3\n"), d.Entry("airports.dbf") + "kept.txt,0x3\r\n");
}

TEST(FixCRCFilesTxt, EmptyLineEndsTheRewrite)
{
    TableDir d({"airports.dbf", "charts.dbf"});
    EXPECT_EQ(d.Fix("airports.dbf,0x1\r\n\r\ncharts.dbf,0x2\r\nother,0x3\r\n"), d.Entry("airports.dbf"));
    EXPECT_EQ(d.Fix("airports.dbf,0x1\n\nother,0x3\n"), d.Entry("airports.dbf"));
}

TEST(FixCRCFilesTxt, LineOfAMissingTableIsRemoved)
{
    TableDir d({"airports.dbf"});
    WriteFile(d.dir / "notams.dbf", "");  // empty: checksum 0, counts as missing
    EXPECT_EQ(d.Fix("airports.dbf,0x1\r\nvfrchrts.dbf,0x5\r\nnotams.dbf,0x6\r\nx,0x7\r\n"),
              d.Entry("airports.dbf") + "x,0x7\r\n");
}

TEST(FixCRCFilesTxt, VfrNotamMemoIsNotTakenForTheIfrOne)
{
    TableDir d({"airports.dbf", "notams.dbt", "vfrntms.dbt"});
    EXPECT_EQ(d.Fix("airports.dbf,0x1\r\nvfrntms.dbt,0x5\r\n"),
              d.Entry("airports.dbf") + d.Entry("vfrntms.dbt"));
}

TEST(FixCRCFilesTxt, FirstNameInSearchOrderDecidesALine)
{
    TableDir d({"airports.dbf", "notams.dbf", "charts.dbf"});
    // "notams.dbf" comes before "airports.dbf" in the search, so this line
    // does not count as the airports line and the IFR entries are appended.
    std::string result = d.Fix("see airports.dbf and notams.dbf\r\n");
    EXPECT_EQ(result, d.Entry("notams.dbf") + d.Entry("airports.dbf") + d.Entry("charts.dbf") +
                          d.Entry("notams.dbf"));
}

TEST(FixCRCFilesTxt, NamesAreMatchedCaseSensitively)
{
    TableDir d({"airports.dbf", "charts.dbf"});
    EXPECT_EQ(d.Fix("airports.dbf,0x1\r\nCHARTS.DBF,0x2\r\n"),
              d.Entry("airports.dbf") + "CHARTS.DBF,0x2\r\n");
}

TEST(FixCRCFilesTxt, ListWithoutAirportsGetsTheIfrEntries)
{
    TableDir d({"airports.dbf", "charts.dbf", "notams.dbf", "notams.dbt", "vfrapts.dbf"});
    EXPECT_EQ(d.Fix("vfrapts.dbf,0x1\r\n"),
              d.Entry("vfrapts.dbf") + d.Entry("airports.dbf") + d.Entry("charts.dbf") +
                  d.Entry("notams.dbf") + d.Entry("notams.dbt"));
    // Each appended entry only when its table exists.
    TableDir partial({"airports.dbf", "notams.dbt"});
    EXPECT_EQ(partial.Fix("other,0x1\r\n"),
              "other,0x1\r\n" + partial.Entry("airports.dbf") + partial.Entry("notams.dbt"));
    // Nothing is appended without an airport table.
    TableDir none({"charts.dbf", "notams.dbf"});
    EXPECT_EQ(none.Fix("other,0x1\r\n"), "other,0x1\r\n");
    // An empty old list gets them too.
    EXPECT_EQ(partial.Fix(""), partial.Entry("airports.dbf") + partial.Entry("notams.dbt"));
}

TEST(FixCRCFilesTxt, AirportsLineWithoutTableStillCountsAsListed)
{
    // The line is dropped (no table), and nothing is appended.
    TableDir d({"charts.dbf"});
    EXPECT_EQ(d.Fix("airports.dbf,0x1\r\ncharts.dbf,0x2\r\n"), d.Entry("charts.dbf"));
}

TEST(FixCRCFilesTxt, LineOf119BytesIsKeptWhole)
{
    TableDir d({"airports.dbf"});
    std::string line(119, 'a');
    EXPECT_EQ(d.Fix("airports.dbf\r\n" + line + "\r\nnext\r\n"),
              d.Entry("airports.dbf") + line + "\r\nnext\r\n");
}

TEST(FixCRCFilesTxt, LineOf120BytesLosesItsLastByteAndEndsTheList)
{
    // The 120th byte is dropped; the line break after it then reads as an
    // empty line, which ends the list.
    TableDir d({"airports.dbf"});
    std::string line(119, 'a');
    EXPECT_EQ(d.Fix("airports.dbf\r\n" + line + "Z\r\nnext\r\n"),
              d.Entry("airports.dbf") + line + "\r\n");
    EXPECT_EQ(d.Fix("airports.dbf\r\n" + line + "Z\nnext\n"), d.Entry("airports.dbf") + line + "\r\n");
}

TEST(FixCRCFilesTxt, LineOf1000BytesBecomesSeveralLines)
{
    TableDir d({"airports.dbf"});
    std::string line;
    for (int i = 0; i < 1000; i++) line += (char)('a' + i % 26);
    std::string expected = d.Entry("airports.dbf");
    // Every 120 bytes: 119 kept, one dropped; the last 40 form a line of their own.
    for (size_t at = 0; at + 120 <= 1000; at += 120) expected += line.substr(at, 119) + "\r\n";
    expected += line.substr(960) + "\r\n" + "next\r\n";
    EXPECT_EQ(d.Fix("airports.dbf\r\n" + line + "\r\nnext\r\n"), expected);
}

TEST(FixCRCFilesTxt, NameCutByTheLineLimitIsNotFound)
{
    TableDir d({"airports.dbf", "charts.dbf"});
    std::string line = std::string(115, '-') + "charts.dbf";
    // Kept: the dashes and "char"; "t" is dropped; "s.dbf" is the next line.
    EXPECT_EQ(d.Fix("airports.dbf\r\n" + line + "\r\n"),
              d.Entry("airports.dbf") + line.substr(0, 119) + "\r\n" + "s.dbf\r\n");
}

TEST(FixCRCFilesTxt, CrOnlyLfOnlyAndMixedLineEnds)
{
    TableDir d({"airports.dbf", "charts.dbf"});
    EXPECT_EQ(d.Fix("airports.dbf,0x1\rone\rcharts.dbf\r"),
              d.Entry("airports.dbf") + "one\r\n");  // the last line ends with the file
    EXPECT_EQ(d.Fix("airports.dbf,0x1\rone\rcharts.dbf\rtwo\r\n"),
              d.Entry("airports.dbf") + "one\r\n" + d.Entry("charts.dbf") + "two\r\n");
    EXPECT_EQ(d.Fix("one\ntwo\r\nthree\rairports.dbf\n"),
              "one\r\ntwo\r\nthree\r\n" + d.Entry("airports.dbf"));
    // LF then CR: the CR ends an empty line.
    EXPECT_EQ(d.Fix("one\n\rtwo\r\n"), "one\r\n" + d.Entry("airports.dbf") + d.Entry("charts.dbf"));
}

TEST(FixCRCFilesTxt, ChecksumsComeFromTheGivenDirectory)
{
    TableDir tables({"airports.dbf"});
    TempDir lists;
    WriteFile(lists / "old.txt", "airports.dbf,0x1\r\n");
    WriteFile(lists / "airports.dbf", "another airport table");
    EXPECT_EQ(FixCRCFilesTxt((lists / "new.txt").c_str(), (lists / "old.txt").c_str(),
                             tables.dir.c_str()),
              0);
    EXPECT_EQ(ReadFile(lists / "new.txt"), tables.Entry("airports.dbf"));
}

TEST(FixCRCFilesTxt, MissingOldListAndUncreatableNewList)
{
    TableDir d({"airports.dbf"});
    int before = CountOpenDescriptors();
    EXPECT_EQ(FixCRCFilesTxt((d.dir / "new.txt").c_str(), (d.dir / "missing.txt").c_str(), d.dir.c_str()), -1);
    EXPECT_FALSE(Exists(d.dir / "new.txt"));
    WriteFile(d.dir / "old.txt", "x\r\n");
    EXPECT_EQ(FixCRCFilesTxt((d.dir / "no/such/new.txt").c_str(), (d.dir / "old.txt").c_str(),
                             d.dir.c_str()),
              -2);
    EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(FixCRCFilesTxt, WriteFailureGivesMinusOneAndLeaksNothing)
{
    TableDir d({"airports.dbf", "charts.dbf"});
    std::string old;
    for (int i = 0; i < 400; i++) old += "file" + std::to_string(i) + ".txt,0x" + std::to_string(i) + "\r\n";
    WriteFile(d.dir / "crcfiles.txt", old);
    std::string newPath = d.dir / "crcfilesNEW.txt", oldPath = d.dir / "crcfiles.txt";
    int result = RunInChild([&] {
        int before = CountOpenDescriptors();
        LimitFileSize(100);
        int r = FixCRCFilesTxt(newPath.c_str(), oldPath.c_str(), d.dir.c_str());
        if (CountOpenDescriptors() != before) return 9;
        return r == -1 ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
}

TEST(WriteCrcEntry, ResultsPerCase)
{
    TableDir d({"charts.dbf"});
    TempDir out;
    FilePtr stream(fopen((out / "list").c_str(), "wb"));
    EXPECT_EQ(WriteCrcEntry("nothing here", "charts.dbf", stream.get(), d.dir.c_str()), 0);
    EXPECT_EQ(WriteCrcEntry("x charts.dbf y", "charts.dbf", stream.get(), d.dir.c_str()), 1);
    EXPECT_EQ(WriteCrcEntry("airports.dbf", "airports.dbf", stream.get(), d.dir.c_str()), 1);
    stream.reset();
    EXPECT_EQ(ReadFile(out / "list"), d.Entry("charts.dbf"));

    FilePtr full(fopen("/dev/full", "wb"));
    setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(WriteCrcEntry("charts.dbf", "charts.dbf", full.get(), d.dir.c_str()), -1);
    EXPECT_EQ(WriteCrcEntry("airports.dbf", "airports.dbf", full.get(), d.dir.c_str()), 1);
}
