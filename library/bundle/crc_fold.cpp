// The Tarn checksum by carry-less multiplication.
//
// The checksum of a message M is (M(x) * x^32) mod P(x), with the first
// byte's top bit as the highest power.  Sixteen bytes loaded and byte-reversed
// form a 128-bit polynomial in that order, so a running remainder can be
// carried across d bits by two 64x32-bit carry-less products:
//     (H x^64 + L) x^d  =  H (x^(d+64) mod P) + L (x^d mod P)   (mod P),
// which stays below 96 bits.  Eight such accumulators run side by side over
// 128-byte strides; they are folded into one, whose 16 bytes are then
// reduced by the sliced kernel, which also takes the tail.
#include "bundle/crc.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

namespace {

constexpr uint64_t kTarnPolynomial = 0x814141ABu;

// x^k mod P.
constexpr uint64_t PowerOfXModP(unsigned k)
{
    uint64_t r = 1;
    for (unsigned i = 0; i < k; i++) {
        r <<= 1;
        if (r & 0x100000000u) r ^= 0x100000000u | kTarnPolynomial;
    }
    return r;
}

constexpr int kLanes = 8;
constexpr size_t kStride = 16 * kLanes;
constexpr uint64_t kStrideHigh = PowerOfXModP(kStride * 8 + 64);
constexpr uint64_t kStrideLow = PowerOfXModP(kStride * 8);
constexpr uint64_t kBlockHigh = PowerOfXModP(128 + 64);
constexpr uint64_t kBlockLow = PowerOfXModP(128);

#define TARN_CLMUL __attribute__((target("pclmul,sse4.1")))

TARN_CLMUL inline __m128i Fold(__m128i x, __m128i k)
{
    return _mm_xor_si128(_mm_clmulepi64_si128(x, k, 0x11), _mm_clmulepi64_si128(x, k, 0x00));
}

TARN_CLMUL inline __m128i LoadReversed(const unsigned char *p, __m128i reverse)
{
    return _mm_shuffle_epi8(_mm_loadu_si128((const __m128i *)p), reverse);
}

}  // namespace

TARN_CLMUL uint32_t TarnCrcUpdateFolded(uint32_t reg, const void *data, size_t n)
{
    const unsigned char *p = (const unsigned char *)data;
    if (n < kStride) return TarnCrcUpdateSliced(reg, p, n);

    const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m128i acrossStride = _mm_set_epi64x((long long)kStrideHigh, (long long)kStrideLow);
    const __m128i acrossBlock = _mm_set_epi64x((long long)kBlockHigh, (long long)kBlockLow);

    __m128i x[kLanes];
    for (int i = 0; i < kLanes; i++) x[i] = LoadReversed(p + 16 * i, reverse);
    // A running register stands for bits before the message: it enters as
    // the message's first 32 bits.
    x[0] = _mm_xor_si128(x[0], _mm_set_epi32((int)reg, 0, 0, 0));
    p += kStride;
    n -= kStride;

    for (; n >= kStride; p += kStride, n -= kStride) {
        for (int i = 0; i < kLanes; i++)
            x[i] = _mm_xor_si128(Fold(x[i], acrossStride), LoadReversed(p + 16 * i, reverse));
    }

    __m128i acc = x[0];
    for (int i = 1; i < kLanes; i++) acc = _mm_xor_si128(Fold(acc, acrossBlock), x[i]);
    for (; n >= 16; p += 16, n -= 16)
        acc = _mm_xor_si128(Fold(acc, acrossBlock), LoadReversed(p, reverse));

    // acc is congruent to everything read so far; its own checksum is the
    // register after those bytes.
    unsigned char remainder[16];
    _mm_storeu_si128((__m128i *)remainder, _mm_shuffle_epi8(acc, reverse));
    reg = TarnCrcUpdateSliced(0, remainder, sizeof remainder);
    return TarnCrcUpdateSliced(reg, p, n);
}

bool CrcHasCarrylessMultiply()
{
    static const bool has = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
    return has;
}

#else

uint32_t TarnCrcUpdateFolded(uint32_t reg, const void *data, size_t n)
{
    return TarnCrcUpdateSliced(reg, data, n);
}

bool CrcHasCarrylessMultiply() { return false; }

#endif
