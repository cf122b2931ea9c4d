// Coordinate texts of the airport tables and the selection rule of the area subset.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <memory>
#include <string>

#include "subset/subset.h"

TEST(LatitudeFromString, DegreesMinutesAndHundredthsOfSeconds)
{
    EXPECT_NEAR(LatitudeFromString("N47272400"), 47 + 27 / 60.0 + 24.0 / 3600.0, 1e-12);
    EXPECT_NEAR(LatitudeFromString("N47272400"), 47.4566667, 1e-7);
    EXPECT_NEAR(LatitudeFromString("N00000001"), 0.01 / 3600.0, 1e-15);
    EXPECT_DOUBLE_EQ(LatitudeFromString("N90000000"), 90.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("N12300000"), 12.5);
}

TEST(LongitudeFromString, DegreesMinutesAndHundredthsOfSeconds)
{
    EXPECT_NEAR(LongitudeFromString("W122183000"), -(122 + 18 / 60.0 + 30.0 / 3600.0), 1e-12);
    EXPECT_NEAR(LongitudeFromString("W122183000"), -122.3083333, 1e-7);
    EXPECT_DOUBLE_EQ(LongitudeFromString("E180000000"), 180.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString("E001300000"), 1.5);
}

TEST(LatitudeFromString, OnlySouthInEitherCaseIsNegative)
{
    EXPECT_DOUBLE_EQ(LatitudeFromString("S47000000"), -47.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("s47000000"), -47.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("N47000000"), 47.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("n47000000"), 47.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("X47000000"), 47.0);
    // The longitude letters mean nothing to a latitude.
    EXPECT_DOUBLE_EQ(LatitudeFromString("W47000000"), 47.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("E47000000"), 47.0);
}

TEST(LongitudeFromString, OnlyWestInEitherCaseIsNegative)
{
    EXPECT_DOUBLE_EQ(LongitudeFromString("W100000000"), -100.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString("w100000000"), -100.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString("E100000000"), 100.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString("e100000000"), 100.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString("Q100000000"), 100.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString("S100000000"), 100.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString("N100000000"), 100.0);
}

TEST(LatitudeFromString, CharactersAreNotValidated)
{
    // "A" counts as 17 and a blank as -16: degrees 4*10+17, minutes -16*10+0.
    EXPECT_DOUBLE_EQ(LatitudeFromString("N4A000000"), 57.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("N10 00000"), 10.0 + (-160) / 60.0);
    // Characters behind the layout are not read.
    EXPECT_DOUBLE_EQ(LatitudeFromString("N47000000999"), 47.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString("W1000000009"), -100.0);
}

TEST(LatitudeFromString, ShortTextsStopAtTheirEnd)
{
    // Missing positions count as 0, the terminator included.
    EXPECT_DOUBLE_EQ(LatitudeFromString("N47"), 47.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("N4"), 40.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("S473"), -(47 + 30 / 60.0));
    EXPECT_DOUBLE_EQ(LatitudeFromString("N4727"), 47 + 27 / 60.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("N472724"), 47 + 27 / 60.0 + 24.0 / 3600.0);
    EXPECT_DOUBLE_EQ(LatitudeFromString("S"), 0.0);
    EXPECT_TRUE(signbit(LatitudeFromString("S")));
    EXPECT_DOUBLE_EQ(LatitudeFromString(""), 0.0);
    EXPECT_FALSE(signbit(LatitudeFromString("")));
    EXPECT_DOUBLE_EQ(LatitudeFromString(nullptr), 0.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString("W12"), -120.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString(""), 0.0);
    EXPECT_DOUBLE_EQ(LongitudeFromString(nullptr), 0.0);
}

TEST(LatitudeFromString, ShortTextReadsAsIfPaddedWithZeros)
{
    // Each text sits in a heap block of exactly its length: a read behind its
    // terminator would leave the block (AddressSanitizer builds catch it).
    const std::string full = "S12345678901";
    for (size_t length = 0; length <= full.size(); length++) {
        std::unique_ptr<char[]> text(new char[length + 1]);
        memcpy(text.get(), full.data(), length);
        text[length] = '\0';
        std::string padded = full.substr(0, length);
        padded.resize(12, '0');
        EXPECT_DOUBLE_EQ(LatitudeFromString(text.get()), LatitudeFromString(padded.c_str())) << length;
        EXPECT_DOUBLE_EQ(LongitudeFromString(text.get()), LongitudeFromString(padded.c_str())) << length;
    }
}

// The selection rule.
static bool Selected(const AreaSelection &s, double latitude, double longitude, int runway = 0,
                     const char *id = "KXYZ")
{
    return IsAirportSelected(s, id, latitude, longitude, runway);
}

TEST(IsAirportSelected, BoundsAreInclusive)
{
    AreaSelection s = {nullptr, 0, 45.0, -105.0, 35.0, -95.0};
    EXPECT_TRUE(Selected(s, 45.0, -100.0));   // north edge
    EXPECT_TRUE(Selected(s, 35.0, -100.0));   // south edge
    EXPECT_TRUE(Selected(s, 40.0, -105.0));   // west edge
    EXPECT_TRUE(Selected(s, 40.0, -95.0));    // east edge
    EXPECT_TRUE(Selected(s, 45.0, -105.0));   // corner
    EXPECT_FALSE(Selected(s, 45.000001, -100.0));
    EXPECT_FALSE(Selected(s, 34.999999, -100.0));
    EXPECT_FALSE(Selected(s, 40.0, -105.000001));
    EXPECT_FALSE(Selected(s, 40.0, -94.999999));
}

TEST(IsAirportSelected, BoxAcrossTheAntimeridian)
{
    AreaSelection s = {nullptr, 0, 10.0, 170.0, -10.0, -170.0};
    EXPECT_TRUE(Selected(s, 0.0, 175.0));
    EXPECT_TRUE(Selected(s, 0.0, -175.0));
    EXPECT_TRUE(Selected(s, 0.0, 170.0));
    EXPECT_TRUE(Selected(s, 0.0, -170.0));
    EXPECT_TRUE(Selected(s, 0.0, 180.0));
    EXPECT_TRUE(Selected(s, 0.0, -180.0));
    EXPECT_FALSE(Selected(s, 0.0, 0.0));
    EXPECT_FALSE(Selected(s, 0.0, 169.99));
    EXPECT_FALSE(Selected(s, 0.0, -169.99));
    EXPECT_FALSE(Selected(s, 11.0, 175.0));
}

TEST(IsAirportSelected, ZeroWidthBoxIsNoBox)
{
    AreaSelection s = {nullptr, 0, 1.0, 10.0, 2.0, 10.0};  // even north below south
    EXPECT_TRUE(Selected(s, 80.0, -170.0));
    s.east = 10.00009;
    EXPECT_TRUE(Selected(s, -80.0, 170.0));
    s.east = 10.00011;
    EXPECT_FALSE(Selected(s, -80.0, 170.0));
    s = {nullptr, 3000, 0.0, 5.0, 0.0, 5.0};
    EXPECT_TRUE(Selected(s, 50.0, 50.0, 3000));
    EXPECT_FALSE(Selected(s, 50.0, 50.0, 2999));
}

TEST(IsAirportSelected, RunwayThreshold)
{
    AreaSelection s = {nullptr, 5000, 45.0, -105.0, 35.0, -95.0};
    EXPECT_TRUE(Selected(s, 40.0, -100.0, 0));
    EXPECT_TRUE(Selected(s, 40.0, -100.0, 5000));
    EXPECT_TRUE(Selected(s, 40.0, -100.0, 9000));
    EXPECT_FALSE(Selected(s, 40.0, -100.0, 4999));
    EXPECT_FALSE(Selected(s, 40.0, -100.0, -1));
    s.minimumRunway = 0;
    EXPECT_TRUE(Selected(s, 40.0, -100.0, 1));
    EXPECT_TRUE(Selected(s, 40.0, -100.0, 99999));
    // The comparison is signed: a negative figure is below even a threshold of 0.
    EXPECT_FALSE(Selected(s, 40.0, -100.0, -20));
    EXPECT_FALSE(Selected(s, 50.0, -100.0, 9000));  // still the box
}

TEST(IsAirportSelected, ListedAirportsNeedNoOtherTest)
{
    AreaSelection s = {"KSFO,XABCD", 5000, 45.0, -105.0, 35.0, -95.0};
    EXPECT_TRUE(Selected(s, -80.0, 100.0, 10, "KSFO"));
    EXPECT_TRUE(Selected(s, -80.0, 100.0, 10, "ABC"));  // a substring, no delimiters
    EXPECT_TRUE(Selected(s, -80.0, 100.0, 10, ""));     // the empty text is in every list
    EXPECT_FALSE(Selected(s, -80.0, 100.0, 10, "ksfo"));  // case-sensitive
    EXPECT_FALSE(Selected(s, -80.0, 100.0, 10, "KLAX"));
    EXPECT_TRUE(Selected(s, 40.0, -100.0, 6000, "KLAX"));  // the box still selects
    s.airportList = "";
    EXPECT_TRUE(Selected(s, -80.0, 100.0, 10, ""));
    EXPECT_FALSE(Selected(s, -80.0, 100.0, 10, "KSFO"));
}

TEST(IsAirportSelected, WithoutAListAnEmptyIdentifierIsJustAnotherAirport)
{
    AreaSelection s = {nullptr, 0, 45.0, -105.0, 35.0, -95.0};
    EXPECT_FALSE(Selected(s, -80.0, 100.0, 0, ""));
    EXPECT_TRUE(Selected(s, 40.0, -100.0, 0, ""));
}
