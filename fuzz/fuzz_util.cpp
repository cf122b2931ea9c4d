#include "fuzz_util.h"

#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

const char kPartSeparator[] = "\n--8<--\n";

ScratchDir::ScratchDir(const char *name)
{
    const char *base = getenv("TARN_FUZZ_TMP");
    if (!base || !*base) base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    path_ = std::string(base) + "/tarn-fuzz-" + name + "-" + std::to_string(getpid());
    mkdir(path_.c_str(), 0700);
}

static int RemoveEntry(const char *path, const struct stat *, int, struct FTW *)
{
    return remove(path);
}

void ScratchDir::Reset() const
{
    nftw(path_.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
    mkdir(path_.c_str(), 0700);
}

void WriteBytes(const std::string &path, const uint8_t *data, size_t size)
{
    FILE *f = fopen(path.c_str(), "wb");
    if (!f) return;
    if (size) fwrite(data, 1, size, f);
    fclose(f);
}

void WriteBytes(const std::string &path, const std::string &bytes)
{
    WriteBytes(path, (const uint8_t *)bytes.data(), bytes.size());
}

std::vector<std::string> SplitInput(const uint8_t *data, size_t size, size_t maxParts)
{
    std::vector<std::string> parts;
    std::string input((const char *)data, size);
    size_t separatorLength = strlen(kPartSeparator);
    size_t at = 0;
    while (parts.size() + 1 < maxParts) {
        size_t next = input.find(kPartSeparator, at);
        if (next == std::string::npos) break;
        parts.push_back(input.substr(at, next - at));
        at = next + separatorLength;
    }
    parts.push_back(input.substr(at));
    return parts;
}
