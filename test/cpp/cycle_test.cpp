// The data cycle queries.
#include <gtest/gtest.h>
#include <string.h>

#include "tarntermchart.h"
#include "test_util.h"

static int Cycle(const TempDir &dir, char *buffer, int size)
{
    return TarnTermChart_CycleNumber(dir.c_str(), buffer, size);
}

TEST(CycleNumber, CrLfIsStripped)
{
    TempDir dir;
    WriteFile(dir / "revision.txt", "Cycle=2401\r\n");
    char buffer[32];
    EXPECT_EQ(Cycle(dir, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "2401");
}

TEST(CycleNumber, OnlyLfThenCrIsStripped)
{
    TempDir dir;
    WriteFile(dir / "revision.txt", "Cycle=2401\n\r");
    char buffer[32];
    EXPECT_EQ(Cycle(dir, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "2401\n");
}

TEST(CycleNumber, LaterLinesBelongToTheValue)
{
    TempDir dir;
    WriteFile(dir / "revision.txt", "Name=x\r\nCycle=2401\r\nMore=1\n");
    char buffer[64];
    EXPECT_EQ(Cycle(dir, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "2401\r\nMore=1");
}

TEST(CycleNumber, SizeCountsCharacters)
{
    TempDir dir;
    WriteFile(dir / "revision.txt", "Cycle=2401");
    char buffer[5];
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(Cycle(dir, buffer, 4), 0);
    EXPECT_EQ(memcmp(buffer, "2401", 5), 0);
    EXPECT_EQ(Cycle(dir, buffer, 3), -5);
    EXPECT_STREQ(buffer, "");
}

TEST(CycleNumber, NullBuffer)
{
    TempDir dir;
    WriteFile(dir / "revision.txt", "Cycle=2401");
    EXPECT_EQ(Cycle(dir, nullptr, 4), 0);
    EXPECT_EQ(Cycle(dir, nullptr, 0), -5);
    WriteFile(dir / "revision.txt", "Cycle=");
    EXPECT_EQ(Cycle(dir, nullptr, 0), 0);
}

TEST(CycleNumber, Codes)
{
    TempDir dir;
    char buffer[16] = "junk";
    EXPECT_EQ(Cycle(dir, buffer, sizeof buffer), -1);
    EXPECT_STREQ(buffer, "");
    WriteFile(dir / "revision.txt", "");
    EXPECT_EQ(Cycle(dir, buffer, sizeof buffer), -1);
    WriteFile(dir / "revision.txt", "Revision=1\r\n");
    EXPECT_EQ(Cycle(dir, buffer, sizeof buffer), -4);
}

TEST(CycleNumber, SeveralMegabytes)
{
    TempDir dir;
    std::string text(4 << 20, 'a');
    text += "Cycle=2513\r\n";
    WriteFile(dir / "revision.txt", text);
    char buffer[16];
    int before = CountOpenDescriptors();
    EXPECT_EQ(Cycle(dir, buffer, sizeof buffer - 1), 0);
    EXPECT_STREQ(buffer, "2513");
    EXPECT_EQ(CountOpenDescriptors(), before);
}

static std::string Display(const std::string &ini, int size = 16, int *code = nullptr)
{
    TempDir dir;
    WriteFile(dir / "charts.ini", ini);
    char buffer[32];
    memset(buffer, 'x', sizeof buffer);
    int result = TarnTermChart_CycleNumber_Display(dir.c_str(), buffer, size);
    if (code) *code = result;
    return result == 0 ? std::string(buffer) : "code " + std::to_string(result) + " [" + buffer + "]";
}

TEST(CycleNumberDisplay, FirstAndThirdWeekOf2024)
{
    EXPECT_EQ(Display("Database_Begin_Date=2460310.5\r\n"), "01-2024");
    EXPECT_EQ(Display("Database_Begin_Date=2460324.5\r\n"), "02-2024");
}

TEST(CycleNumberDisplay, LastDayOfLeapYearIsPeriod27)
{
    // 31 December 2024 at 0 h.
    EXPECT_EQ(Display("Database_Begin_Date=2460675.5"), "27-2024");
}

TEST(CycleNumberDisplay, MarchOfLeapAndCommonYear)
{
    // 1 March 2024: doy 60 -> period 5; 1 March 2023: doy 59 -> period 5.
    EXPECT_EQ(Display("Database_Begin_Date=2460370.5"), "05-2024");
    // 14 March 2023 (doy 72) and 15 March 2024 (doy 74): both period 6.
    EXPECT_EQ(Display("Database_Begin_Date=2460017.5"), "06-2023");
    EXPECT_EQ(Display("Database_Begin_Date=2460384.5"), "06-2024");
}

TEST(CycleNumberDisplay, LeadingBlanksAndFractions)
{
    EXPECT_EQ(Display("x\r\nDatabase_Begin_Date=   2460310.9\r\n"), "01-2024");
}

TEST(CycleNumberDisplay, NoNumberIsDayZero)
{
    EXPECT_EQ(Display("Database_Begin_Date=abc", 16), "01--4712");
}

TEST(CycleNumberDisplay, SmallBuffer)
{
    EXPECT_EQ(Display("Database_Begin_Date=2460310.5", 7), "code -5 []");
    EXPECT_EQ(Display("Database_Begin_Date=2460310.5", 8), "01-2024");
}

TEST(CycleNumberDisplay, Codes)
{
    TempDir dir;
    char buffer[16];
    EXPECT_EQ(TarnTermChart_CycleNumber_Display(dir.c_str(), buffer, sizeof buffer), -1);
    WriteFile(dir / "charts.ini", "[Database]\r\n");
    EXPECT_EQ(TarnTermChart_CycleNumber_Display(dir.c_str(), buffer, sizeof buffer), -4);
    EXPECT_EQ(TarnTermChart_CycleNumber_Display(dir.c_str(), nullptr, 0), -4);
    WriteFile(dir / "charts.ini", "Database_Begin_Date=2460310.5");
    EXPECT_EQ(TarnTermChart_CycleNumber_Display(dir.c_str(), nullptr, 0), -5);
}

TEST(CycleNumberDisplay, AbsurdNumbersDoNotCrash)
{
    for (const char *value : {"nan", "inf", "-inf", "1e300", "-1e300", "-99999999"}) {
        int code = 1;
        Display(std::string("Database_Begin_Date=") + value, 16, &code);
        EXPECT_EQ(code, 0) << value;
    }
}
