// The data cycle of a chart directory: the cycle text of "revision.txt" and
// the two-week period label of the database begin date in "charts.ini".
#include "tarntermchart.h"
#include "textfile.h"

#include <limits.h>
#include <math.h>
#include <string.h>

// Days before each month of a common year, indexed by month 1-12.
static const int32_t daysInPriorMonths[13] = {0,   0,   31,  59,  90,  120, 151,
                                              181, 212, 243, 273, 304, 334};

extern "C" int TarnTermChart_CycleNumber(const char *chartDir, char *buffer, int bufferSize)
{
    if (buffer && bufferSize >= 1) buffer[0] = 0;
    MallocPtr<char> text;
    int code = ReadTextFile(chartDir, "revision.txt", text);
    if (code != 0) return code;
    StripLineEnd(text.get());
    const char *found = strstr(text.get(), "Cycle=");
    if (!found) return -4;
    const char *value = found + 6;
    size_t length = strlen(value);
    // bufferSize counts characters: a value of exactly bufferSize characters
    // is accepted and copied with its terminator.
    if ((long long)length > (long long)bufferSize) return -5;
    if (buffer) memcpy(buffer, value, length + 1);
    return 0;
}

// Whole-number part of a double for the date arithmetic; values a date can
// never produce (NaN, beyond int) are pinned rather than left undefined.
static int TruncToInt(double v)
{
    if (!(v == v)) return 0;
    if (v >= (double)INT_MAX) return INT_MAX;
    if (v <= (double)INT_MIN) return INT_MIN;
    return (int)v;
}

static bool IsLeapYear(int year)
{
    return year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
}

extern "C" int TarnTermChart_CycleNumber_Display(const char *chartDir, char *buffer,
                                                 int bufferSize)
{
    if (buffer && bufferSize >= 1) buffer[0] = 0;
    MallocPtr<char> text;
    int code = ReadTextFile(chartDir, "charts.ini", text);
    if (code != 0) return code;
    const char *found = strstr(text.get(), "Database_Begin_Date=");
    if (!found) return -4;

    // Julian Day number to a calendar date, Gregorian from JD 2299161 on.
    double jd = strtod(found + 20, nullptr);
    double z = floor(jd + 0.5);
    double f = jd + 0.5 - z;
    if (z >= 2299161) {
        double a = floor((z - 1867216.25) / 36524.25);
        z = z + 1 + a - floor(a * 0.25);
    }
    double b = z + 1524;
    double c = floor((b - 122.1) / 365.25);
    double d = floor(365.25 * c);
    double e = floor((b - d) / 30.6001);
    int day = TruncToInt(f + (b - d - floor(30.6001 * e)));
    int month = e < 14 ? TruncToInt(e - 1) : TruncToInt(e - 13);
    int year = month <= 2 ? TruncToInt(c - 4715) : TruncToInt(c - 4716);

    // A real date always has a month of 1 to 12; anything else has no days before it.
    int prior = (month >= 1 && month <= 12) ? daysInPriorMonths[month] : 0;
    long long doy = (long long)prior + day - 1;
    if (IsLeapYear(year) && month > 2) doy++;

    if (bufferSize < 8) return -5;
    int period = (int)(doy / 14 + 1);
    if (buffer) snprintf(buffer, (size_t)bufferSize, "%02d-%4d", period, year);
    return 0;
}
