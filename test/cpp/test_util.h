// Fixtures for the library tests: a temporary directory that removes itself,
// whole-file reading and writing, and writers for the directory's files.
#ifndef TARNTERMCHART_TEST_UTIL_H
#define TARNTERMCHART_TEST_UTIL_H

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::string &path() const { return path_; }
    const char *c_str() const { return path_.c_str(); }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

void WriteFile(const std::string &path, const std::string &bytes);
std::string ReadFile(const std::string &path);
bool Exists(const std::string &path);
std::vector<std::string> ListDir(const std::string &path);  // sorted, without . and ..
int CountOpenDescriptors();
// The names whose contents differ between two snapshots of a directory
// (name to contents), as " -gone ~changed +added", for a failure's message.
std::string Differences(const std::map<std::string, std::string> &a, const std::map<std::string, std::string> &b);


// One region of "regions.dat": stored complemented, 88 bytes.
struct Region {
    std::string key, code, description;
};
std::string RegionRecord(const Region &region);
std::string RegionsDat(const std::vector<Region> &regions);

// The fixed files every valid chart directory holds.
extern const char *const kRequiredFileNames[14];
// Writes every required file (with placeholder contents) into dir.
void WriteRequiredFiles(const std::string &dir);

// Little-endian integer bytes.
std::string U16(uint16_t v);
std::string U32(uint32_t v);

#endif
