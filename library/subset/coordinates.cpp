// Coordinate texts of the airport tables, and the rule that decides which
// airports an area subset keeps.
#include <math.h>
#include <string.h>

#include "subset.h"

namespace {

// Hands out the digits of a coordinate text one by one.  The text may be
// shorter than its layout: at the terminator the reader stops for good and
// every later position counts as 0, so no read goes past the text.
class DigitReader {
public:
    explicit DigitReader(const char *text) : at_(text) {}

    // The next n characters as a decimal number, each counting as its code
    // minus "0" (the producer's texts are not validated).
    int Take(int n)
    {
        int value = 0;
        for (int i = 0; i < n; i++) {
            int digit = 0;
            if (*at_ != '\0') digit = *at_++ - '0';
            value = value * 10 + digit;
        }
        return value;
    }

private:
    const char *at_;
};

double FromText(const char *text, int degreeDigits, char negativeLetter)
{
    if (!text) return 0.0;
    const char hemisphere = text[0];
    DigitReader digits(hemisphere != '\0' ? text + 1 : text);
    const int degrees = digits.Take(degreeDigits);
    const int minutes = digits.Take(2);
    const int hundredths = digits.Take(4);
    const double value = degrees + minutes / 60.0 + (hundredths / 100.0) / 3600.0;
    const bool negative = hemisphere == negativeLetter || hemisphere == negativeLetter + ('a' - 'A');
    return negative ? -value : value;
}

}  // namespace

double LatitudeFromString(const char *text) { return FromText(text, 2, 'S'); }

double LongitudeFromString(const char *text) { return FromText(text, 3, 'W'); }

bool IsAirportSelected(const AreaSelection &selection, const char *identifier, double latitude,
                       double longitude, int runway)
{
    // A listed airport is wanted whatever its position or runway; the list
    // has no delimiters, so any part of it names an airport.
    if (selection.airportList && strstr(selection.airportList, identifier ? identifier : ""))
        return true;

    bool inArea = true;
    if (fabs(selection.west - selection.east) >= 0.0001) {
        double low = selection.west, high = selection.east;
        // West beyond east: the box runs across the 180th meridian, and each
        // airport is tested against the half of the box on its own side.
        if (selection.west > selection.east) {
            if (longitude < 0) low = -180.0;
            else high = 180.0;
        }
        inArea = !(latitude > selection.north || low > longitude || longitude > high) &&
                 latitude >= selection.south;
    }
    const bool longEnough = runway == 0 || runway >= selection.minimumRunway;
    return inArea && longEnough;
}
