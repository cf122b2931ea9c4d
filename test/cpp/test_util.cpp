#include "test_util.h"

#include <dirent.h>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

TempDir::TempDir()
{
    const char *base = getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/tarntest-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back(0);
    if (!mkdtemp(buffer.data())) throw std::runtime_error("mkdtemp failed");
    path_ = buffer.data();
}

static int RemoveEntry(const char *path, const struct stat *, int, struct FTW *)
{
    chmod(path, 0700);
    return remove(path);
}

TempDir::~TempDir()
{
    chmod(path_.c_str(), 0700);
    nftw(path_.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
}

void WriteFile(const std::string &path, const std::string &bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), (std::streamsize)bytes.size());
    if (!out) throw std::runtime_error("cannot write " + path);
}

std::string ReadFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::string();
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool Exists(const std::string &path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::vector<std::string> ListDir(const std::string &path)
{
    std::vector<std::string> names;
    DIR *dir = opendir(path.c_str());
    if (!dir) return names;
    while (struct dirent *entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

int CountOpenDescriptors() { return (int)ListDir("/proc/self/fd").size(); }

static std::string Padded(const std::string &text, size_t width)
{
    std::string field = text.substr(0, width);
    field.resize(width, '\0');
    return field;
}

std::string RegionRecord(const Region &region)
{
    std::string record =
        Padded(region.key, 32) + Padded(region.code, 6) + Padded(region.description, 50);
    for (char &c : record) c = (char)~(unsigned char)c;
    return record;
}

std::string RegionsDat(const std::vector<Region> &regions)
{
    std::string bytes;
    for (const Region &region : regions) bytes += RegionRecord(region);
    return bytes;
}

const char *const kRequiredFileNames[14] = {
    "charts.ini", "chrtlink.dbf", "country.dbf", "coverages.txt", "coverags.dbf",
    "crcfiles.txt", "ctypes.dbf", "tarnwick.tfl", "tarnwick.tls", "lssdef.tcl",
    "regions.dat", "revision.txt", "sbscrips.dbf", "state.dbf"};

void WriteRequiredFiles(const std::string &dir)
{
    for (const char *name : kRequiredFileNames) WriteFile(dir + "/" + name, "x");
}

std::string U16(uint16_t v)
{
    std::string s(2, '\0');
    s[0] = (char)(v & 0xFF);
    s[1] = (char)(v >> 8);
    return s;
}

std::string U32(uint32_t v)
{
    std::string s(4, '\0');
    for (int i = 0; i < 4; i++) s[i] = (char)((v >> (8 * i)) & 0xFF);
    return s;
}

std::string Differences(const std::map<std::string, std::string> &a, const std::map<std::string, std::string> &b)
{
    std::string names;
    for (const auto &[name, bytes] : a) {
        auto other = b.find(name);
        if (other == b.end()) names += " -" + name;
        else if (other->second != bytes) names += " ~" + name;
    }
    for (const auto &[name, bytes] : b)
        if (!a.count(name)) names += " +" + name;
    return names;
}
