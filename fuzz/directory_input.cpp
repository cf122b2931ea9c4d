#include "directory_input.h"

#include <sys/stat.h>

const char *const kDirectoryFiles[] = {
    "coverages.txt", "regions.dat",  "coverags.dbf", "airports.dbf",   "charts.dbf",
    "chrtlink.dbf",  "notams.dbf",   "notams.dbt",   "vfrapts.dbf",    "vfrchrts.dbf",
    "vfrntms.dbf",   "vfrntms.dbt",  "charts.bin",   "vfrcharts.bin",  "2501_charts.bin",
    "2501_vfrcharts.bin", "crcfiles.txt", "charts.ini"};
const size_t kDirectoryFileCount = sizeof kDirectoryFiles / sizeof kDirectoryFiles[0];

void WriteDirectory(const ScratchDir &dir, const std::string &path, const uint8_t *data, size_t size)
{
    mkdir(path.c_str(), 0700);
    std::vector<std::string> parts = SplitInput(data, size, kDirectoryFileCount);
    for (size_t i = 0; i < parts.size(); i++) {
        // An empty part leaves its file out, so inputs can drop files too.
        if (!parts[i].empty()) WriteBytes(path + "/" + kDirectoryFiles[i], parts[i]);
    }
    (void)dir;
}
