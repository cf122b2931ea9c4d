#include "bench_util.h"

#include <dirent.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vector>

std::string MakeBenchDirectory(const std::string &tag)
{
    const char *base = getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/tarnbench-" + tag + "-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) abort();
    return buffer.data();
}

void RemoveTree(const std::string &dir)
{
    if (DIR *d = opendir(dir.c_str())) {
        while (struct dirent *e = readdir(d))
            if (strcmp(e->d_name, ".") && strcmp(e->d_name, "..")) unlink((dir + "/" + e->d_name).c_str());
        closedir(d);
    }
    rmdir(dir.c_str());
}

uint64_t EnvNumber(const char *name, uint64_t fallback)
{
    const char *text = getenv(name);
    if (!text || !*text) return fallback;
    char *end = nullptr;
    unsigned long long value = strtoull(text, &end, 10);
    return end && *end == '\0' && value > 0 ? value : fallback;
}
