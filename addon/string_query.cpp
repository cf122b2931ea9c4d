#include "string_query.h"

#include <stdlib.h>

#include <memory>

void RunStringQuery(StringQuery query, const std::string &chartDir, std::string &result,
                    std::string &error)
{
    int n = query(chartDir.c_str(), nullptr, 0);
    if (n < 0) error = "Received bad result retrieving buffer size: \"" + std::to_string(n) + "\".";
    // The worker goes on regardless: a negative size gets no buffer, and the
    // fill call's answer decides.  A size of 0 still gets a byte for the
    // terminator the fill call may store.
    std::unique_ptr<char, decltype(&free)> buffer(
        n < 0 ? nullptr : (char *)malloc(n > 0 ? (size_t)n : 1), &free);
    int r = query(chartDir.c_str(), buffer.get(), n);
    if (r != 0) {
        error = "Received bad result retrieving output value: \"" + std::to_string(r) + "\".";
        return;
    }
    if (buffer) result.assign(buffer.get(), (size_t)n);
}
