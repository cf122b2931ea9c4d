// The region catalogue: 88-byte records stored complemented (key 32, service
// code 6, description 50), the coverage codes, the coverage query and the
// catalogue dump.
#include "regions.h"

#include "tarntermchart.h"
#include "platform/files.h"
#include "platform/removal.h"
#include "textfile.h"

#include <string.h>
#include <strings.h>

#include <string>
#include <vector>

static const uint32_t kRegionMagic = 0x32053205;

static bool IsValid(const RegionFile *region) { return region && region->magic == kRegionMagic; }

RegionFile *RegionFile_Open(const char *path)
{
    FilePtr f(fopen(path, "rb"));
    if (!f) return nullptr;
    RegionFile *region = (RegionFile *)malloc(sizeof(RegionFile));
    if (!region) return nullptr;
    region->magic = kRegionMagic;
    region->file = f.release();
    return region;
}

void RegionFile_Close(RegionFile *region)
{
    if (!IsValid(region)) return;
    fclose(region->file);
    region->magic = 0;
    free(region);
}

void RegionFile_SplitRecord(const unsigned char *stored, char *key, char *code, char *description)
{
    unsigned char record[kRegionRecordSize];
    for (int i = 0; i < kRegionRecordSize; i++) record[i] = (unsigned char)~stored[i];
    memset(key, 0, kRegionKeySize);
    memset(code, 0, kRegionCodeSize);
    memset(description, 0, kRegionDescSize);
    // Text after the first zero byte of a field is ignored.
    strncpy(key, (const char *)record, 32);
    strncpy(code, (const char *)record + 32, 6);
    strncpy(description, (const char *)record + 38, 50);
}

int RegionFile_ReadLine(RegionFile *region, char *key, char *code, char *description)
{
    if (!IsValid(region)) return 0;
    unsigned char stored[kRegionRecordSize];
    if (fread(stored, 1, sizeof stored, region->file) != sizeof stored) return 0;
    RegionFile_SplitRecord(stored, key, code, description);
    return 1;
}

void RegionFile_SeekToBegin(RegionFile *region)
{
    if (!IsValid(region)) return;
    fseek(region->file, 0, SEEK_SET);
}

namespace {
// One kind of coverage key: distinct keys in order of first appearance.
struct KeyKind {
    explicit KeyKind(size_t capacity) : capacity(capacity) {}
    size_t capacity;
    std::vector<long> keys;
    size_t textLength = 0;

    void Add(const char *keyText)
    {
        long key = strtol(keyText, nullptr, 10);
        for (long known : keys)
            if (known == key) return;
        if (keys.size() >= capacity) return;  // the kind's list is full
        keys.push_back(key);
        textLength += strlen(keyText) + 1;
    }

    // "%ld " per key, then a zero at textLength - 1.  The text is sized from
    // the key texts as stored, so a key not in plain decimal form shortens
    // or (for an empty key) would overrun it; only what fits is kept.
    void Store(char **out) const
    {
        if (!out || textLength < 1) return;
        std::string written;
        char number[32];
        for (long key : keys) {
            snprintf(number, sizeof number, "%ld ", key);
            written += number;
        }
        char *text = (char *)calloc(textLength + 1, 1);
        if (!text) return;
        memcpy(text, written.data(), written.size() < textLength ? written.size() : textLength);
        text[textLength - 1] = 0;
        *out = text;
    }
};
}  // namespace

void RegionFile_GetAccessKeyTypes(const char *path, char **vfrKeys, char **restrictedKeys)
{
    FilePtr f(fopen(path, "rb"));
    if (!f) return;
    KeyKind vfr(100), restricted(20);
    unsigned char stored[kRegionRecordSize];
    char key[kRegionKeySize], code[kRegionCodeSize], description[kRegionDescSize];
    while (fread(stored, 1, sizeof stored, f.get()) == sizeof stored) {
        RegionFile_SplitRecord(stored, key, code, description);
        size_t codeLength = strlen(code);
        if (codeLength == 0) continue;
        char last = code[codeLength - 1];
        if (last == '6') vfr.Add(key);
        else if (last == '7') restricted.Add(key);
    }
    vfr.Store(vfrKeys);
    restricted.Store(restrictedKeys);
}

char *GetCoverageServiceCodes(const char *dir)
{
    FilePtr f = OpenIn(dir, "coverages.txt", "rb");
    if (!f) return nullptr;
    if (fseeko(f.get(), 0, SEEK_END) != 0) return nullptr;
    off_t size = ftello(f.get());
    if (size <= 0) return nullptr;
    rewind(f.get());
    char *text = (char *)malloc((size_t)size + 1);
    if (!text) return nullptr;
    if (fread(text, 1, (size_t)size, f.get()) != (size_t)size) {
        free(text);
        return nullptr;
    }
    text[size] = 0;
    StripLineEnd(text);
    return text;
}

std::vector<std::string> SplitCoverageCodes(const char *codes)
{
    std::vector<std::string> list;
    for (const char *cursor = codes;;) {
        const char *space = strchr(cursor, ' ');
        size_t length = space ? (size_t)(space - cursor) : strlen(cursor);
        if (length == 0 || length >= 10) break;
        list.emplace_back(cursor, length);
        if (!space) break;
        cursor = space + 1;
    }
    return list;
}

namespace {
struct RegionRecord {
    char key[kRegionKeySize];
    char code[kRegionCodeSize];
    char description[kRegionDescSize];
};
}  // namespace

extern "C" int TarnTermChart_CoverageInfo(const char *directory, char *buffer, int bufferSize)
{
    MallocPtr<char> codes(GetCoverageServiceCodes(directory));
    PathPtr regionsPath = JoinPath(directory, "regions.dat");
    RegionFile *region = regionsPath ? RegionFile_Open(regionsPath.get()) : nullptr;
    std::unique_ptr<RegionFile, void (*)(RegionFile *)> regionGuard(region, RegionFile_Close);
    if (!region) return -1;
    if (!codes) return -2;
    if (codes.get()[0] == 0) return -3;

    if (buffer && bufferSize >= 1) buffer[0] = 0;

    // Each code is looked up from the first record on; the catalogue is read
    // once and the same first-match search runs over it in memory.
    std::vector<RegionRecord> records;
    RegionRecord record;
    while (RegionFile_ReadLine(region, record.key, record.code, record.description))
        records.push_back(record);

    int total = 0;
    size_t used = 0;  // bytes of text in buffer
    for (const std::string &code : SplitCoverageCodes(codes.get())) {
        for (const RegionRecord &r : records) {
            if (strcasecmp(r.code, code.c_str()) != 0) continue;
            size_t descLength = strlen(r.description);
            int newTotal = total >= 1 ? total + 2 + (int)descLength : (int)descLength + 1;
            if (buffer && newTotal <= bufferSize) {
                if (total >= 1) {
                    memcpy(buffer + used, ", ", 2);
                    used += 2;
                }
                memcpy(buffer + used, r.description, descLength + 1);
                used += descLength;
            }
            total = newTotal;
            break;
        }
    }
    return total;
}

extern "C" int TarnTermChart_DumpRegionsDat(const char *regionsPath, const char *outputPath)
{
    WaitForRemovedFiles();
    RegionFile *region = RegionFile_Open(regionsPath);
    if (!region) return -1;
    std::unique_ptr<RegionFile, void (*)(RegionFile *)> regionGuard(region, RegionFile_Close);
    FilePtr out(fopen(outputPath, "wb"));
    if (!out) return -2;
    int count = 0;
    char key[kRegionKeySize], code[kRegionCodeSize], description[kRegionDescSize];
    while (RegionFile_ReadLine(region, key, code, description)) {
        fprintf(out.get(), "%s\t%s\t%s\r\n", key, code, description);
        count++;
    }
    return count;
}
