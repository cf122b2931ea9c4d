// The buffer protocol of the text queries of the binding.
#include <gtest/gtest.h>
#include <string.h>

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
