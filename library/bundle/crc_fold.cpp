// Both checksums by carry-less multiplication.
//
// A CRC register after a message M is (M(x) * x^32) mod P(x).  Sixteen
// message bytes form a 128-bit polynomial, and a running remainder X = H x^64 + L
// is carried across d bits by two 64x32-bit carry-less products:
//     X x^d  =  H (x^(d+64) mod P) + L (x^d mod P)   (mod P),
// which stays below 96 bits.  Eight accumulators run side by side over
// 128-byte strides; they are folded into one, whose 16 bytes are then reduced
// by the sliced kernel, which also takes the tail.
//
// Tarn (most significant bit first): the bytes are reversed on loading so
// that bit 127 is the first bit of the message; polynomial bit i is x^i.
// Standard (reflected): the bytes load as they are and bit 0 is the first
// bit; a 64-bit half then stands for sum(bit i * x^(63-i)).  A carry-less
// product of two such halves comes out multiplied by x in that order, so its
// constants are taken one power lower, and stored bit-reversed.
#include "bundle/crc.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

namespace {

// x^k mod (x^32 + polynomial), in plain bit order (bit i is x^i).
constexpr uint64_t PowerOfXMod(uint32_t polynomial, unsigned k)
{
    uint64_t r = 1;
    for (unsigned i = 0; i < k; i++) {
        r <<= 1;
        if (r & 0x100000000u) r ^= 0x100000000u | polynomial;
    }
    return r;
}

constexpr uint64_t Reflect64(uint64_t v)
{
    uint64_t r = 0;
    for (int i = 0; i < 64; i++)
        if (v & ((uint64_t)1 << i)) r |= (uint64_t)1 << (63 - i);
    return r;
}

constexpr uint32_t kTarnPolynomial = 0x814141ABu;
constexpr uint32_t kStandardPolynomial = 0x04C11DB7u;  // 0xEDB88320 in plain bit order

constexpr int kLanes = 8;
constexpr size_t kStride = 16 * kLanes;
constexpr unsigned kStrideBits = kStride * 8;

struct FoldConstants {
    uint64_t strideHigh, strideLow, blockHigh, blockLow;
};

constexpr FoldConstants kTarnFold = {
    PowerOfXMod(kTarnPolynomial, kStrideBits + 64), PowerOfXMod(kTarnPolynomial, kStrideBits),
    PowerOfXMod(kTarnPolynomial, 128 + 64), PowerOfXMod(kTarnPolynomial, 128)};

// Reflected: the first 64 message bits sit in the low half, so the low
// half takes the longer distance.
constexpr FoldConstants kStandardFold = {
    Reflect64(PowerOfXMod(kStandardPolynomial, kStrideBits + 64 - 1)),
    Reflect64(PowerOfXMod(kStandardPolynomial, kStrideBits - 1)),
    Reflect64(PowerOfXMod(kStandardPolynomial, 128 + 64 - 1)),
    Reflect64(PowerOfXMod(kStandardPolynomial, 128 - 1))};

#define TARN_CLMUL __attribute__((target("pclmul,sse4.1")))

// One step forward: each half times the constant in its own lane (see Pair).
TARN_CLMUL inline __m128i Fold(__m128i x, __m128i constants)
{
    return _mm_xor_si128(_mm_clmulepi64_si128(x, constants, 0x11),
                         _mm_clmulepi64_si128(x, constants, 0x00));
}

template <bool Reflected>
TARN_CLMUL inline __m128i Load(const unsigned char *p)
{
    __m128i v = _mm_loadu_si128((const __m128i *)p);
    if (Reflected) return v;
    const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm_shuffle_epi8(v, reverse);
}

// Puts each constant in the lane of the half it multiplies: the half with
// the earlier bits goes the longer distance (`far`).  Tarn keeps the earlier
// bits in the high half, the reflected order in the low half.
template <bool Reflected>
TARN_CLMUL inline __m128i Pair(uint64_t far, uint64_t near)
{
    return Reflected ? _mm_set_epi64x((long long)near, (long long)far)
                     : _mm_set_epi64x((long long)far, (long long)near);
}

template <bool Reflected>
TARN_CLMUL uint32_t UpdateFolded(uint32_t reg, const unsigned char *p, size_t n,
                                 const FoldConstants &k,
                                 uint32_t (*sliced)(uint32_t, const void *, size_t))
{
    if (n < kStride) return sliced(reg, p, n);
    const __m128i acrossStride = Pair<Reflected>(k.strideHigh, k.strideLow);
    const __m128i acrossBlock = Pair<Reflected>(k.blockHigh, k.blockLow);

    __m128i x[kLanes];
    for (int i = 0; i < kLanes; i++) x[i] = Load<Reflected>(p + 16 * i);
    // A running register stands for bits before the message: it enters as
    // the message's first 32 bits.
    x[0] = _mm_xor_si128(x[0], Reflected ? _mm_cvtsi32_si128((int)reg)
                                         : _mm_set_epi32((int)reg, 0, 0, 0));
    p += kStride;
    n -= kStride;

    for (; n >= kStride; p += kStride, n -= kStride) {
        for (int i = 0; i < kLanes; i++)
            x[i] = _mm_xor_si128(Fold(x[i], acrossStride), Load<Reflected>(p + 16 * i));
    }

    __m128i acc = x[0];
    for (int i = 1; i < kLanes; i++) acc = _mm_xor_si128(Fold(acc, acrossBlock), x[i]);
    for (; n >= 16; p += 16, n -= 16)
        acc = _mm_xor_si128(Fold(acc, acrossBlock), Load<Reflected>(p));

    // acc is congruent to everything read so far; the register after its own
    // 16 bytes is the register after those bytes.
    unsigned char remainder[16];
    _mm_storeu_si128((__m128i *)remainder, Load<Reflected>((const unsigned char *)&acc));
    reg = sliced(0, remainder, sizeof remainder);
    return sliced(reg, p, n);
}

}  // namespace

uint32_t TarnCrcUpdateFolded(uint32_t reg, const void *data, size_t n)
{
    return UpdateFolded<false>(reg, (const unsigned char *)data, n, kTarnFold, TarnCrcUpdateSliced);
}

uint32_t StandardCrcUpdateFolded(uint32_t reg, const void *data, size_t n)
{
    return UpdateFolded<true>(reg, (const unsigned char *)data, n, kStandardFold,
                              StandardCrcUpdateSliced);
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

uint32_t StandardCrcUpdateFolded(uint32_t reg, const void *data, size_t n)
{
    return StandardCrcUpdateSliced(reg, data, n);
}

bool CrcHasCarrylessMultiply() { return false; }

#endif
