// The two 32-bit checksums of the library.
//
// The standard CRC-32 (reflected, polynomial 0xEDB88320) serves CalcCRC32,
// FileCRC and FileCRCskipLast4.  The Tarn checksum (CRC-32/AIXM: polynomial
// 0x814141AB, most significant bit first, register starting at 0, no final
// XOR) protects chart bundles and the files listed in "crcfiles.txt".
//
// Bundles run to gigabytes, so both are computed by carry-less
// multiplication folding when the processor offers it, and otherwise sixteen
// bytes at a time from sliced tables.  Every path gives the
// byte-wise result for every length and alignment; the byte-wise routines
// stay here as the reference the others are tested against.
#ifndef TARNTERMCHART_BUNDLE_CRC_H
#define TARNTERMCHART_BUNDLE_CRC_H

#include <stddef.h>
#include <stdint.h>

#include "tarntermchart.h"  // CalcCRC32, FileCRC, FileCRCTarnStartingAt, FileCRCTarn, FileCRCskipLast4

// Entry i of the standard table: i shifted right eight times, XOR 0xEDB88320
// whenever the bit shifted out was 1.  Entry 1 is 0x77073096.
extern const uint32_t (&standardCrc32Table)[256];
// Entry i of the Tarn table: i << 24 shifted left eight times, XOR 0x814141AB
// whenever the bit shifted out was 1.  Entries 1, 2, 3 are 0x814141AB,
// 0x83C3C2FD, 0x02828356.
extern const uint32_t (&tarnCrc32Table)[256];

// Running-register updates over n bytes, for writers that checksum bytes as
// they pass through.  No inversion is applied: the standard CRC-32 of a
// buffer is StandardCrcUpdate(0xFFFFFFFF, data, n) ^ 0xFFFFFFFF, the Tarn
// checksum is TarnCrcUpdate(0, data, n).  Feeding a buffer in pieces gives
// the same register as feeding it whole.
uint32_t StandardCrcUpdate(uint32_t reg, const void *data, size_t n);
uint32_t TarnCrcUpdate(uint32_t reg, const void *data, size_t n);

// The individual kernels behind the two updates, for tests and benchmarks.
uint32_t StandardCrcUpdateBytewise(uint32_t reg, const void *data, size_t n);
uint32_t StandardCrcUpdateSliced(uint32_t reg, const void *data, size_t n);
uint32_t TarnCrcUpdateBytewise(uint32_t reg, const void *data, size_t n);
uint32_t TarnCrcUpdateSliced(uint32_t reg, const void *data, size_t n);
// Folding by carry-less multiplication; only to be called when
// CrcHasCarrylessMultiply() is true.
uint32_t StandardCrcUpdateFolded(uint32_t reg, const void *data, size_t n);
uint32_t TarnCrcUpdateFolded(uint32_t reg, const void *data, size_t n);

// Whether this processor can run the folded kernels.
bool CrcHasCarrylessMultiply();
// Makes both updates (and so every routine built on them) use the sliced
// kernels even on a processor with carry-less multiplication, so that tests
// can check both paths through the public routines.  Not for production use.
void CrcForcePortable(bool force);

// Size of the blocks in which the file checksums read their files.
enum { kCrcFileBlock = 1 << 20 };

#endif
