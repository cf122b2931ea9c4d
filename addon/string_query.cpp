#include "string_query.h"

#include <stdlib.h>
#include <string.h>

#include <memory>
#include <vector>

void RunStringQuery(StringQuery query, const std::string &chartDir, std::string &result,
                    std::string &error, int *decided)
{
    int n = query(chartDir.c_str(), nullptr, 0);
    if (n < 0) {
        error = "Received bad result retrieving buffer size: \"" + std::to_string(n) + "\".";
        if (decided) *decided = n;
    }
    // The worker goes on regardless: a negative size gets no buffer, and the
    // fill call's answer decides.  A size of 0 still gets a byte for the
    // terminator the fill call may store.
    std::unique_ptr<char, decltype(&free)> buffer(
        n < 0 ? nullptr : (char *)malloc(n > 0 ? (size_t)n : 1), &free);
    int r = query(chartDir.c_str(), buffer.get(), n);
    if (r != 0) {
        error = "Received bad result retrieving output value: \"" + std::to_string(r) + "\".";
        if (decided) *decided = r;
        return;
    }
    if (buffer) result.assign(buffer.get(), (size_t)n);
}

namespace {

// The text a query left in buffer, up to its first NUL and never past the
// buffer.
std::string TextIn(const std::vector<char> &buffer)
{
    return std::string(buffer.data(), strnlen(buffer.data(), buffer.size()));
}

}  // namespace

int ReadCycleText(StringQuery query, const std::string &chartDir, std::string &text)
{
    const int kLargest = 64 << 20;
    int r = -5;
    for (int size = 255; r == -5 && size <= kLargest; size = size * 4 + 3) {
        // The size counts characters: the value and its terminator need one
        // byte more.
        std::vector<char> buffer((size_t)size + 1, 0);
        r = query(chartDir.c_str(), buffer.data(), size);
        if (r == 0) text = TextIn(buffer);
    }
    return r;
}

int ReadLabelText(StringQuery query, const std::string &chartDir, std::string &text)
{
    // "NN-YYYY": a period of two digits and a year of at most eleven
    // characters; 64 bytes leave room for any.
    std::vector<char> buffer(64, 0);
    int r = query(chartDir.c_str(), buffer.data(), (int)buffer.size() - 1);
    if (r == 0) text = TextIn(buffer);
    return r;
}

int ReadCoverageText(StringQuery query, const std::string &chartDir, std::string &text)
{
    int size = query(chartDir.c_str(), nullptr, 0);
    for (int attempt = 0; size > 0 && attempt < 4; attempt++) {
        std::vector<char> buffer((size_t)size, 0);
        int r = query(chartDir.c_str(), buffer.data(), size);
        if (r < 0) return r;
        text = TextIn(buffer);
        if (r <= size) return 0;
        size = r;
    }
    if (size < 0) return size;
    if (size == 0) text.clear();
    return 0;
}
