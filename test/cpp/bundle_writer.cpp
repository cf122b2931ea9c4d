#include "bundle_writer.h"

#include <algorithm>
#include <random>
#include <stdexcept>

#include "test_util.h"

static std::string Fixed(const std::string &text, size_t width)
{
    std::string field = text.substr(0, width);
    field.resize(width, '\0');
    return field;
}

static std::string Folded(const std::string &name)
{
    std::string folded = name.substr(0, std::min(name.find('\0'), (size_t)26));
    for (char &c : folded)
        if (c >= 'A' && c <= 'Z') c = (char)(c - 'A' + 'a');
    return folded;
}

bool FixtureEntryBefore(const FixtureEntry &a, const FixtureEntry &b)
{
    std::string x = Folded(a.name), y = Folded(b.name);
    if (x != y) return std::lexicographical_compare(
        x.begin(), x.end(), y.begin(), y.end(),
        [](char l, char r) { return (unsigned char)l < (unsigned char)r; });
    if (a.variant != b.variant) return a.variant < b.variant;
    return a.flags < b.flags;
}

std::string BuildChartsBin(const FixtureBundle &bundle)
{
    std::string body = bundle.gap;
    std::vector<FixtureEntry> table = bundle.entries;
    for (size_t i = 0; i < table.size(); i++) {
        uint32_t at = (uint32_t)(27 + body.size());
        if (!table[i].offset) table[i].offset = at;
        if (!table[i].size) table[i].size = (uint32_t)table[i].data.size();
        body += table[i].data + bundle.between;
    }
    if (bundle.sortTable) std::stable_sort(table.begin(), table.end(), FixtureEntryBefore);

    uint32_t tableOffset = bundle.tableOffset.value_or((uint32_t)(27 + body.size()));
    uint32_t fileCount = bundle.fileCount.value_or((uint32_t)table.size());
    for (const FixtureEntry &e : table) {
        body += Fixed(e.name, 26) + U32(*e.offset) + U32(*e.size) + U32(e.key);
        body += (char)e.flags;
        body += (char)e.variant;
    }
    body += bundle.trailer;

    std::string rest = U16(bundle.size) + U16(bundle.version) + U32(fileCount) + U32(tableOffset) +
                       Fixed(bundle.julianDate, 11) + body;
    uint32_t crc = bundle.crc ? *bundle.crc : ReferenceTarnCrc(rest);
    return U32(crc) + rest;
}

FixtureBundle ChartsOf(const std::vector<std::string> &bases, const std::string &julianDate)
{
    FixtureBundle bundle;
    bundle.julianDate = julianDate;
    uint32_t key = 1;
    for (const std::string &base : bases) bundle.entries.push_back({base + ".PDF", "blob of " + base, key++});
    return bundle;
}

void WriteChartsBin(const std::string &path, const FixtureBundle &bundle)
{
    WriteFile(path, BuildChartsBin(bundle));
}

static uint32_t Le32(const std::string &bytes, size_t at)
{
    if (at + 4 > bytes.size()) throw std::runtime_error("bundle cut short");
    uint32_t v = 0;
    for (int i = 3; i >= 0; i--) v = (v << 8) | (unsigned char)bytes[at + i];
    return v;
}

static std::string CText(const std::string &bytes, size_t at, size_t width)
{
    std::string field = bytes.substr(at, width);
    return field.substr(0, field.find('\0'));
}

ParsedBundle ParseChartsBin(const std::string &bytes)
{
    if (bytes.size() < 27) throw std::runtime_error("bundle cut short");
    ParsedBundle b;
    b.crc = Le32(bytes, 0);
    b.size = (uint16_t)(Le32(bytes, 4) & 0xFFFF);
    b.version = (uint16_t)(Le32(bytes, 4) >> 16);
    b.fileCount = Le32(bytes, 8);
    b.tableOffset = Le32(bytes, 12);
    b.julianDate = CText(bytes, 16, 11);
    if ((uint64_t)b.tableOffset + (uint64_t)b.fileCount * 40 > bytes.size())
        throw std::runtime_error("table cut short");
    for (uint32_t i = 0; i < b.fileCount; i++) {
        size_t at = b.tableOffset + (size_t)i * 40;
        ParsedEntry e;
        e.name = CText(bytes, at, 26);
        e.offset = Le32(bytes, at + 26);
        e.size = Le32(bytes, at + 30);
        e.key = Le32(bytes, at + 34);
        e.flags = (uint8_t)bytes[at + 38];
        e.variant = (uint8_t)bytes[at + 39];
        b.entries.push_back(e);
    }
    return b;
}

std::string BlobOf(const std::string &bytes, const ParsedEntry &entry)
{
    if ((uint64_t)entry.offset + entry.size > bytes.size()) throw std::runtime_error("blob cut short");
    return bytes.substr(entry.offset, entry.size);
}

uint32_t ReferenceTarnCrc(const std::string &bytes, uint32_t reg)
{
    for (unsigned char c : bytes) {
        for (int bit = 7; bit >= 0; bit--) {
            bool top = ((reg >> 31) & 1) ^ ((c >> bit) & 1);
            reg <<= 1;
            if (top) reg ^= 0x814141ABu;
        }
    }
    return reg;
}

uint32_t ReferenceStandardRegister(const std::string &bytes, uint32_t reg)
{
    for (unsigned char c : bytes) {
        reg ^= c;
        for (int bit = 0; bit < 8; bit++) reg = (reg & 1) ? (reg >> 1) ^ 0xEDB88320u : reg >> 1;
    }
    return reg;
}

uint32_t ReferenceBundleCrc(const std::string &bytes)
{
    return ReferenceTarnCrc(bytes.size() > 4 ? bytes.substr(4) : std::string());
}

std::string RandomBytes(size_t n, uint32_t seed)
{
    std::mt19937 random(seed);
    std::string bytes(n, '\0');
    for (char &c : bytes) c = (char)(random() & 0xFF);
    return bytes;
}
