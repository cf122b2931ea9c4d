// Chart bundle fixtures for the tests: a writer that lays out a bundle byte by
// byte (independently of the library's structures and checksum code), a
// parser for checking what the library wrote, and reference checksums
// computed bit by bit.
#ifndef TARNTERMCHART_TEST_BUNDLE_WRITER_H
#define TARNTERMCHART_TEST_BUNDLE_WRITER_H

#include <stdint.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

struct FixtureEntry {
    FixtureEntry(std::string name, std::string data, uint32_t key = 0, uint8_t flags = 0,
                 uint8_t variant = 0)
        : name(std::move(name)), data(std::move(data)), key(key), flags(flags), variant(variant) {}
    std::string name;  // at most 26 bytes, NUL-padded in the table
    std::string data;
    uint32_t key = 0;
    uint8_t flags = 0;
    uint8_t variant = 0;
    // Written into the table instead of the blob's real offset and size.
    std::optional<uint32_t> offset, size;
};

struct FixtureBundle {
    std::vector<FixtureEntry> entries;  // blobs are laid out in this order
    uint16_t size = 27;                 // header Size field
    uint16_t version = 1;
    std::string julianDate = "2460000.5";  // at most 11 bytes, NUL-padded
    bool sortTable = true;                 // table in bundle order (else in entry order)
    std::string gap;      // bytes between the header and the first blob
    std::string between;  // bytes after every blob
    // Header fields written instead of the computed ones.
    std::optional<uint32_t> crc, fileCount, tableOffset;
    std::string trailer;  // bytes after the table (covered by the checksum)
};

// The bundle's bytes; the CRC field holds the Tarn checksum of bytes 4..end
// unless FixtureBundle::crc says otherwise.
std::string BuildChartsBin(const FixtureBundle &bundle);
void WriteChartsBin(const std::string &path, const FixtureBundle &bundle);
// A bundle of one chart per base name: "BASE.PDF" holding "blob of BASE",
// keys counting from 1.
FixtureBundle ChartsOf(const std::vector<std::string> &bases, const std::string &julianDate);

// The fixture's own entry order: names with ASCII letters folded, then
// variant, then flags.
bool FixtureEntryBefore(const FixtureEntry &a, const FixtureEntry &b);

struct ParsedEntry {
    std::string name;  // up to the first NUL
    uint32_t offset, size, key;
    uint8_t flags, variant;
};
struct ParsedBundle {
    uint32_t crc;
    uint16_t size, version;
    uint32_t fileCount, tableOffset;
    std::string julianDate;  // up to the first NUL
    std::vector<ParsedEntry> entries;
};
// Parses a bundle; throws std::runtime_error when it is cut short.
ParsedBundle ParseChartsBin(const std::string &bytes);
std::string BlobOf(const std::string &bytes, const ParsedEntry &entry);

// Reference checksums, bit by bit.
uint32_t ReferenceTarnCrc(const std::string &bytes, uint32_t reg = 0);
uint32_t ReferenceStandardRegister(const std::string &bytes, uint32_t reg = 0xFFFFFFFFu);
inline uint32_t ReferenceStandardCrc(const std::string &bytes)
{
    return ReferenceStandardRegister(bytes) ^ 0xFFFFFFFFu;
}
// Tarn checksum of bytes 4..end, as stored at offset 0 of a finished bundle.
uint32_t ReferenceBundleCrc(const std::string &bytes);

// Random bytes from a fixed seed.
std::string RandomBytes(size_t n, uint32_t seed);

#endif
