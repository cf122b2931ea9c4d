// Helpers of the fuzz targets: a scratch directory per process and the
// splitting of one input into the files of a chart directory.
#ifndef TARNTERMCHART_FUZZ_UTIL_H
#define TARNTERMCHART_FUZZ_UTIL_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

// A directory of this process's own, emptied by Reset before every input.
class ScratchDir {
public:
    explicit ScratchDir(const char *name);
    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    // Removes every file below the directory (and makes it again).
    void Reset() const;

private:
    std::string path_;
};

void WriteBytes(const std::string &path, const uint8_t *data, size_t size);
void WriteBytes(const std::string &path, const std::string &bytes);

// Splits an input into parts at the separator "\n--8<--\n"; at most
// maxParts parts (the last takes the rest).
std::vector<std::string> SplitInput(const uint8_t *data, size_t size, size_t maxParts);
extern const char kPartSeparator[];

#endif
