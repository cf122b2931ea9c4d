// The buffer protocol of the text queries of the binding.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#include "string_query.h"

static int FiveWithTerminator(const char *, char *buffer, int size)
{
    if (!buffer) return 5;
    if (size != 5) return -99;
    memcpy(buffer, "abcd", 5);
    return 0;
}

static int Empty(const char *, char *buffer, int size)
{
    if (buffer && size >= 0) buffer[0] = 0;  // stores a terminator in a size-0 buffer
    return 0;
}

static int FailsThenFillsNothing(const char *, char *buffer, int size)
{
    if (!buffer && size == 0) return -3;
    return size < 0 ? -7 : 0;
}

static int SizeFailsFillSucceeds(const char *, char *, int size)
{
    return size == 0 ? -2 : 0;
}

TEST(StringQuery, LengthIsTheSizeAnswerTerminatorIncluded)
{
    std::string result, error;
    RunStringQuery(FiveWithTerminator, "/d", result, error);
    EXPECT_EQ(error, "");
    ASSERT_EQ(result.size(), 5u);
    EXPECT_EQ(result, std::string("abcd\0", 5));
}

TEST(StringQuery, SizeZeroGivesEmptyText)
{
    std::string result, error;
    RunStringQuery(Empty, "/d", result, error);
    EXPECT_EQ(error, "");
    EXPECT_EQ(result, "");
}

TEST(StringQuery, FillCallDecidesTheMessage)
{
    std::string result, error;
    RunStringQuery(FailsThenFillsNothing, "/d", result, error);
    EXPECT_EQ(error, "Received bad result retrieving output value: \"-7\".");
}

TEST(StringQuery, SizeFailureStandsWhenFillSucceeds)
{
    std::string result, error;
    RunStringQuery(SizeFailsFillSucceeds, "/d", result, error);
    EXPECT_EQ(error, "Received bad result retrieving buffer size: \"-2\".");
    EXPECT_EQ(result, "");
}

// A cycle query after the library's rule: -5 while the value is longer
// than the size, which counts characters.
static std::string cycleValue;
static int CycleQuery(const char *, char *buffer, int size)
{
    if (buffer && size >= 1) buffer[0] = 0;
    if ((long long)cycleValue.size() > size) return -5;
    if (buffer) memcpy(buffer, cycleValue.c_str(), cycleValue.size() + 1);
    return 0;
}

TEST(WholeText, TheCycleComesWholeWhateverItsLength)
{
    for (size_t length : {0u, 4u, 255u, 256u, 1024u, 70000u}) {
        cycleValue = std::string(length, 'c');
        std::string text = "old";
        EXPECT_EQ(ReadCycleText(CycleQuery, "/d", text), 0) << length;
        EXPECT_EQ(text, cycleValue) << length;
    }
}

static int AlwaysTooSmall(const char *, char *buffer, int size)
{
    if (buffer && size >= 1) buffer[0] = 0;
    return -5;
}

static int CycleMissing(const char *, char *, int) { return -1; }

TEST(WholeText, ACycleBeyondTheLargestBufferStaysMinus5AndOtherCodesPass)
{
    std::string text;
    EXPECT_EQ(ReadCycleText(AlwaysTooSmall, "/d", text), -5);
    EXPECT_EQ(text, "");
    EXPECT_EQ(ReadCycleText(CycleMissing, "/d", text), -1);
}

static int LabelQuery(const char *, char *buffer, int size)
{
    if (size < 8) return -5;
    snprintf(buffer, (size_t)size + 1, "%02d-%4d", 27, -4712);
    return 0;
}

TEST(WholeText, TheLabelHasRoomForAnyYear)
{
    std::string text;
    EXPECT_EQ(ReadLabelText(LabelQuery, "/d", text), 0);
    EXPECT_EQ(text, "27--4712");
    EXPECT_EQ(ReadLabelText(CycleMissing, "/d", text), -1);
}

// A coverage query after the library's rule: the size the whole list
// needs, terminator included, from both calls; names appended whole while
// they fit.
static std::vector<std::string> regionNames;
static int CoverageQuery(const char *, char *buffer, int size)
{
    int total = 0;
    if (buffer && size >= 1) buffer[0] = 0;
    for (const std::string &name : regionNames) {
        int next = total ? total + 2 + (int)name.size() : (int)name.size() + 1;
        if (buffer && next <= size) {
            if (total) strcat(buffer, ", ");
            strcat(buffer, name.c_str());
        }
        total = next;
    }
    return total;
}

// A list that grows by one name between the size query and the fill.
static int growCalls;
static int GrowingCoverage(const char *dir, char *buffer, int size)
{
    if (growCalls++ == 1) regionNames.push_back("Gamma");
    return CoverageQuery(dir, buffer, size);
}

TEST(WholeText, TheCoverageIsTheWholeListOfNames)
{
    std::string text;
    regionNames = {"Alpha", "Beta"};
    EXPECT_EQ(ReadCoverageText(CoverageQuery, "/d", text), 0);
    EXPECT_EQ(text, "Alpha, Beta");
    regionNames = {};
    EXPECT_EQ(ReadCoverageText(CoverageQuery, "/d", text), 0);
    EXPECT_EQ(text, "");
    regionNames = {"Alpha", "Beta"};
    growCalls = 0;
    EXPECT_EQ(ReadCoverageText(GrowingCoverage, "/d", text), 0);
    EXPECT_EQ(text, "Alpha, Beta, Gamma");
    EXPECT_EQ(ReadCoverageText(CycleMissing, "/d", text), -1);
}
