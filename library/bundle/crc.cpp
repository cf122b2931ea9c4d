// Tables and table-driven kernels of both checksums, and the choice of
// kernel at run time.
#include "bundle/crc.h"

#include <string.h>

#include <atomic>

namespace {

// Sixteen tables per checksum: slice k holds, for every byte value, the
// register contribution of that byte followed by k zero bytes.  Slice 0 is
// the classic table.
struct CrcSlices {
    uint32_t t[16][256];
};

constexpr CrcSlices MakeStandardSlices()
{
    CrcSlices s{};
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; bit++) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        s.t[0][i] = c;
    }
    for (int k = 1; k < 16; k++)
        for (uint32_t i = 0; i < 256; i++)
            s.t[k][i] = (s.t[k - 1][i] >> 8) ^ s.t[0][s.t[k - 1][i] & 0xFF];
    return s;
}

constexpr CrcSlices MakeTarnSlices()
{
    CrcSlices s{};
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t c = i << 24;
        for (int bit = 0; bit < 8; bit++) c = (c & 0x80000000u) ? (c << 1) ^ 0x814141ABu : c << 1;
        s.t[0][i] = c;
    }
    for (int k = 1; k < 16; k++)
        for (uint32_t i = 0; i < 256; i++)
            s.t[k][i] = (s.t[k - 1][i] << 8) ^ s.t[0][s.t[k - 1][i] >> 24];
    return s;
}

alignas(64) constexpr CrcSlices kStandard = MakeStandardSlices();
alignas(64) constexpr CrcSlices kTarn = MakeTarnSlices();

static_assert(kStandard.t[0][1] == 0x77073096u, "standard table");
static_assert(kTarn.t[0][1] == 0x814141ABu && kTarn.t[0][2] == 0x83C3C2FDu &&
                  kTarn.t[0][3] == 0x02828356u,
              "Tarn table");

inline uint32_t LoadLittle32(const unsigned char *p)
{
    uint32_t v;
    memcpy(&v, p, 4);  // the library runs on little-endian hosts only
    return v;
}

inline uint32_t LoadBig32(const unsigned char *p) { return __builtin_bswap32(LoadLittle32(p)); }

std::atomic<bool> forcePortable{false};

}  // namespace

const uint32_t (&standardCrc32Table)[256] = kStandard.t[0];
const uint32_t (&tarnCrc32Table)[256] = kTarn.t[0];

uint32_t StandardCrcUpdateBytewise(uint32_t reg, const void *data, size_t n)
{
    const unsigned char *p = (const unsigned char *)data;
    while (n--) reg = (reg >> 8) ^ kStandard.t[0][(reg ^ *p++) & 0xFF];
    return reg;
}

uint32_t TarnCrcUpdateBytewise(uint32_t reg, const void *data, size_t n)
{
    const unsigned char *p = (const unsigned char *)data;
    while (n--) reg = ((reg & 0x00FFFFFFu) << 8) ^ kTarn.t[0][(reg >> 24) ^ *p++];
    return reg;
}

uint32_t StandardCrcUpdateSliced(uint32_t reg, const void *data, size_t n)
{
    const unsigned char *p = (const unsigned char *)data;
    const auto &t = kStandard.t;
    for (; n >= 16; p += 16, n -= 16) {
        uint32_t a = reg ^ LoadLittle32(p);
        uint32_t b = LoadLittle32(p + 4);
        uint32_t c = LoadLittle32(p + 8);
        uint32_t d = LoadLittle32(p + 12);
        reg = t[15][a & 0xFF] ^ t[14][(a >> 8) & 0xFF] ^ t[13][(a >> 16) & 0xFF] ^ t[12][a >> 24] ^
              t[11][b & 0xFF] ^ t[10][(b >> 8) & 0xFF] ^ t[9][(b >> 16) & 0xFF] ^ t[8][b >> 24] ^
              t[7][c & 0xFF] ^ t[6][(c >> 8) & 0xFF] ^ t[5][(c >> 16) & 0xFF] ^ t[4][c >> 24] ^
              t[3][d & 0xFF] ^ t[2][(d >> 8) & 0xFF] ^ t[1][(d >> 16) & 0xFF] ^ t[0][d >> 24];
    }
    return StandardCrcUpdateBytewise(reg, p, n);
}

uint32_t TarnCrcUpdateSliced(uint32_t reg, const void *data, size_t n)
{
    const unsigned char *p = (const unsigned char *)data;
    const auto &t = kTarn.t;
    for (; n >= 16; p += 16, n -= 16) {
        uint32_t a = reg ^ LoadBig32(p);
        uint32_t b = LoadBig32(p + 4);
        uint32_t c = LoadBig32(p + 8);
        uint32_t d = LoadBig32(p + 12);
        reg = t[15][a >> 24] ^ t[14][(a >> 16) & 0xFF] ^ t[13][(a >> 8) & 0xFF] ^ t[12][a & 0xFF] ^
              t[11][b >> 24] ^ t[10][(b >> 16) & 0xFF] ^ t[9][(b >> 8) & 0xFF] ^ t[8][b & 0xFF] ^
              t[7][c >> 24] ^ t[6][(c >> 16) & 0xFF] ^ t[5][(c >> 8) & 0xFF] ^ t[4][c & 0xFF] ^
              t[3][d >> 24] ^ t[2][(d >> 16) & 0xFF] ^ t[1][(d >> 8) & 0xFF] ^ t[0][d & 0xFF];
    }
    return TarnCrcUpdateBytewise(reg, p, n);
}

void CrcForcePortable(bool force) { forcePortable.store(force, std::memory_order_relaxed); }

static bool UseFolded()
{
    return CrcHasCarrylessMultiply() && !forcePortable.load(std::memory_order_relaxed);
}

uint32_t StandardCrcUpdate(uint32_t reg, const void *data, size_t n)
{
    return UseFolded() ? StandardCrcUpdateFolded(reg, data, n) : StandardCrcUpdateSliced(reg, data, n);
}

uint32_t TarnCrcUpdate(uint32_t reg, const void *data, size_t n)
{
    return UseFolded() ? TarnCrcUpdateFolded(reg, data, n) : TarnCrcUpdateSliced(reg, data, n);
}

extern "C" uint32_t CalcCRC32(const void *buffer, int32_t length, uint32_t crc)
{
    if (length < 1) return crc;
    return StandardCrcUpdate(crc, buffer, (size_t)length);
}
