// Both checksums: tables, check values, every kernel against the byte-wise
// reference, and the file routines.
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "bundle/crc.h"
#include "bundle_writer.h"
#include "fork_util.h"
#include "test_util.h"

namespace {

const std::string kCheck = "123456789";

// Runs a test body once on the default path and once with the sliced kernel forced.
class BothPaths : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override { CrcForcePortable(GetParam()); }
    void TearDown() override { CrcForcePortable(false); }
};

std::string PathName(const ::testing::TestParamInfo<bool> &info)
{
    return info.param ? "Portable" : "Default";
}

}  // namespace

TEST(CrcTables, StandardTableMatchesItsDefinition)
{
    EXPECT_EQ(standardCrc32Table[1], 0x77073096u);
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; bit++) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
        ASSERT_EQ(standardCrc32Table[i], c) << i;
    }
}

TEST(CrcTables, TarnTableMatchesItsDefinition)
{
    EXPECT_EQ(tarnCrc32Table[1], 0x814141ABu);
    EXPECT_EQ(tarnCrc32Table[2], 0x83C3C2FDu);
    EXPECT_EQ(tarnCrc32Table[3], 0x02828356u);
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t c = i << 24;
        for (int bit = 0; bit < 8; bit++) c = (c & 0x80000000u) ? (c << 1) ^ 0x814141ABu : c << 1;
        ASSERT_EQ(tarnCrc32Table[i], c) << i;
    }
}

TEST(CrcCheckValues, EveryKernelGivesThePublishedValues)
{
    const void *p = kCheck.data();
    size_t n = kCheck.size();
    EXPECT_EQ(ReferenceTarnCrc(kCheck), 0x3010BF7Fu);
    EXPECT_EQ(ReferenceStandardCrc(kCheck), 0xCBF43926u);
    EXPECT_EQ(TarnCrcUpdateBytewise(0, p, n), 0x3010BF7Fu);
    EXPECT_EQ(TarnCrcUpdateSliced(0, p, n), 0x3010BF7Fu);
    EXPECT_EQ(TarnCrcUpdate(0, p, n), 0x3010BF7Fu);
    if (CrcHasCarrylessMultiply()) {
        EXPECT_EQ(TarnCrcUpdateFolded(0, p, n), 0x3010BF7Fu);
    }
    EXPECT_EQ(StandardCrcUpdateBytewise(0xFFFFFFFFu, p, n) ^ 0xFFFFFFFFu, 0xCBF43926u);
    EXPECT_EQ(StandardCrcUpdateSliced(0xFFFFFFFFu, p, n) ^ 0xFFFFFFFFu, 0xCBF43926u);
    EXPECT_EQ(StandardCrcUpdate(0xFFFFFFFFu, p, n) ^ 0xFFFFFFFFu, 0xCBF43926u);
    if (CrcHasCarrylessMultiply()) {
        EXPECT_EQ(StandardCrcUpdateFolded(0xFFFFFFFFu, p, n) ^ 0xFFFFFFFFu, 0xCBF43926u);
    }
    EXPECT_EQ(CalcCRC32(p, (int32_t)n, 0xFFFFFFFFu) ^ 0xFFFFFFFFu, 0xCBF43926u);
}

TEST(CalcCRC32, NoInversionAndShortLengthsLeaveTheRegister)
{
    // The register before the final inversion, not the finished CRC-32.
    EXPECT_EQ(CalcCRC32(kCheck.data(), 9, 0xFFFFFFFFu), 0xCBF43926u ^ 0xFFFFFFFFu);
    EXPECT_EQ(CalcCRC32(kCheck.data(), 0, 0x12345678u), 0x12345678u);
    EXPECT_EQ(CalcCRC32(kCheck.data(), -1, 0x12345678u), 0x12345678u);
    EXPECT_EQ(CalcCRC32(nullptr, INT_MIN, 0xCAFEBABEu), 0xCAFEBABEu);
    // A running value carries across calls.
    uint32_t split = CalcCRC32(kCheck.data() + 4, 5, CalcCRC32(kCheck.data(), 4, 0xFFFFFFFFu));
    EXPECT_EQ(split, 0xCBF43926u ^ 0xFFFFFFFFu);
}

TEST(CrcKernels, EveryLengthAndAlignmentMatchesTheReference)
{
    const std::string data = RandomBytes(4096, 7);
    const bool folded = CrcHasCarrylessMultiply();
    alignas(64) unsigned char buffer[4096 + 64];
    for (size_t length = 0; length <= 4096; length++) {
        const uint32_t start = (uint32_t)(length * 2654435761u);
        const uint32_t tarn = TarnCrcUpdateBytewise(start, data.data(), length);
        const uint32_t standard = StandardCrcUpdateBytewise(start, data.data(), length);
        for (size_t align = 0; align < 16; align++) {
            memcpy(buffer + align, data.data(), length);
            const unsigned char *p = buffer + align;
            ASSERT_EQ(TarnCrcUpdateSliced(start, p, length), tarn) << length << "/" << align;
            if (folded) {
                ASSERT_EQ(TarnCrcUpdateFolded(start, p, length), tarn) << length << "/" << align;
            }
            ASSERT_EQ(StandardCrcUpdateSliced(start, p, length), standard) << length << "/" << align;
            if (folded) {
                ASSERT_EQ(StandardCrcUpdateFolded(start, p, length), standard) << length << "/" << align;
            }
        }
    }
}

TEST(CrcKernels, BytewiseKernelsAgreeWithTheBitwiseDefinition)
{
    for (size_t length : {0, 1, 2, 3, 15, 16, 17, 255, 1000}) {
        std::string data = RandomBytes(length, (uint32_t)length + 100);
        EXPECT_EQ(TarnCrcUpdateBytewise(0x01020304u, data.data(), length),
                  ReferenceTarnCrc(data, 0x01020304u));
        EXPECT_EQ(StandardCrcUpdateBytewise(0xFFFFFFFFu, data.data(), length),
                  ReferenceStandardRegister(data));
    }
}

TEST(CrcKernels, LargeBuffersAndPiecesGiveTheSameRegister)
{
    const std::string data = RandomBytes((3 << 20) + 13, 11);
    const uint32_t tarn = TarnCrcUpdateBytewise(0, data.data(), data.size());
    const uint32_t standard = StandardCrcUpdateBytewise(0xFFFFFFFFu, data.data(), data.size());
    EXPECT_EQ(TarnCrcUpdateSliced(0, data.data(), data.size()), tarn);
    if (CrcHasCarrylessMultiply()) {
        EXPECT_EQ(TarnCrcUpdateFolded(0, data.data(), data.size()), tarn);
    }
    EXPECT_EQ(StandardCrcUpdateSliced(0xFFFFFFFFu, data.data(), data.size()), standard);
    if (CrcHasCarrylessMultiply()) {
        EXPECT_EQ(StandardCrcUpdateFolded(0xFFFFFFFFu, data.data(), data.size()), standard);
    }
    // Uneven pieces, as a writer would feed them.
    uint32_t t = 0, s = 0xFFFFFFFFu;
    size_t at = 0, piece = 1;
    while (at < data.size()) {
        size_t n = std::min(piece, data.size() - at);
        t = TarnCrcUpdate(t, data.data() + at, n);
        s = StandardCrcUpdate(s, data.data() + at, n);
        at += n;
        piece = piece * 3 + 7;
    }
    EXPECT_EQ(t, tarn);
    EXPECT_EQ(s, standard);
}

TEST(CrcKernels, ForcingThePortablePathKeepsResults)
{
    const std::string data = RandomBytes(100000, 3);
    uint32_t tarn = TarnCrcUpdateBytewise(0, data.data(), data.size());
    uint32_t standard = StandardCrcUpdateBytewise(7, data.data(), data.size());
    CrcForcePortable(true);
    uint32_t portableTarn = TarnCrcUpdate(0, data.data(), data.size());
    uint32_t portableStandard = StandardCrcUpdate(7, data.data(), data.size());
    CrcForcePortable(false);
    EXPECT_EQ(portableTarn, tarn);
    EXPECT_EQ(portableStandard, standard);
    EXPECT_EQ(TarnCrcUpdate(0, data.data(), data.size()), tarn);
    EXPECT_EQ(StandardCrcUpdate(7, data.data(), data.size()), standard);
}

INSTANTIATE_TEST_SUITE_P(CrcFiles, BothPaths, ::testing::Bool(), PathName);

TEST_P(BothPaths, FileChecksumsOfTheCheckString)
{
    TempDir dir;
    WriteFile(dir / "check", kCheck);
    EXPECT_EQ(FileCRC((dir / "check").c_str()), 0xCBF43926u);
    EXPECT_EQ(FileCRCTarn((dir / "check").c_str()), 0x3010BF7Fu);
    EXPECT_EQ(FileCRCTarnStartingAt((dir / "check").c_str(), 0), 0x3010BF7Fu);
    EXPECT_EQ(FileCRCTarnStartingAt((dir / "check").c_str(), 4), ReferenceTarnCrc("56789"));
}

TEST_P(BothPaths, MissingAndEmptyFilesGiveZero)
{
    TempDir dir;
    WriteFile(dir / "empty", "");
    for (const std::string &path : {dir / "empty", dir / "missing"}) {
        EXPECT_EQ(FileCRC(path.c_str()), 0u);
        EXPECT_EQ(FileCRCTarn(path.c_str()), 0u);
        EXPECT_EQ(FileCRCTarnStartingAt(path.c_str(), 4), 0u);
    }
}

TEST_P(BothPaths, StartPastTheEndReadsNothing)
{
    TempDir dir;
    WriteFile(dir / "short", "abc");
    EXPECT_EQ(FileCRCTarnStartingAt((dir / "short").c_str(), 3), 0u);
    EXPECT_EQ(FileCRCTarnStartingAt((dir / "short").c_str(), 1000), 0u);
}

TEST_P(BothPaths, NegativeStartIsAFailedSeekAndTheWholeFileCounts)
{
    TempDir dir;
    WriteFile(dir / "check", kCheck);
    EXPECT_EQ(FileCRCTarnStartingAt((dir / "check").c_str(), -5), 0x3010BF7Fu);
}

TEST_P(BothPaths, FilesAcrossBlockBoundaries)
{
    TempDir dir;
    for (size_t length : {(size_t)kCrcFileBlock - 1, (size_t)kCrcFileBlock, (size_t)kCrcFileBlock + 1,
                          (size_t)2 * kCrcFileBlock + 5}) {
        std::string data = RandomBytes(length, (uint32_t)length);
        std::string path = dir / "data";
        WriteFile(path, data);
        uint32_t tarn = TarnCrcUpdateBytewise(0, data.data(), data.size());
        uint32_t standard = StandardCrcUpdateBytewise(0xFFFFFFFFu, data.data(), data.size());
        EXPECT_EQ(FileCRCTarn(path.c_str()), tarn) << length;
        EXPECT_EQ(FileCRCTarnStartingAt(path.c_str(), 4),
                  TarnCrcUpdateBytewise(0, data.data() + 4, data.size() - 4))
            << length;
        EXPECT_EQ(FileCRC(path.c_str()), standard ^ 0xFFFFFFFFu) << length;
        EXPECT_EQ(FileCRCskipLast4(path.c_str()),
                  StandardCrcUpdateBytewise(0xFFFFFFFFu, data.data(), data.size() - 4) ^ 0xFFFFFFFFu)
            << length;
    }
}

TEST(FileCRCskipLast4, MissingFileGivesAllOnes)
{
    TempDir dir;
    EXPECT_EQ(FileCRCskipLast4((dir / "missing").c_str()), 0xFFFFFFFFu);
}

TEST(FileCRCskipLast4, FilesOfFourBytesOrLessGiveZero)
{
    TempDir dir;
    for (size_t length = 0; length <= 4; length++) {
        WriteFile(dir / "small", std::string(length, 'x'));
        EXPECT_EQ(FileCRCskipLast4((dir / "small").c_str()), 0u) << length;
    }
    WriteFile(dir / "five", "12345");
    EXPECT_EQ(FileCRCskipLast4((dir / "five").c_str()), ReferenceStandardCrc("1"));
    WriteFile(dir / "check", kCheck + "tail");
    EXPECT_EQ(FileCRCskipLast4((dir / "check").c_str()), 0xCBF43926u);
}

TEST(FileCRCskipLast4, HugeFileIsStreamedNotHeldInMemory)
{
    SKIP_WITHOUT_ADDRESS_SPACE_LIMITS();
    // A sparse file far larger than the address space the child may use.
    TempDir dir;
    std::string path = dir / "sparse";
    const off_t length = (off_t)768 << 20;
    {
        FILE *f = fopen(path.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        ASSERT_EQ(ftruncate(fileno(f), length), 0);
        fclose(f);
    }
    std::string zeros(kCrcFileBlock, '\0');
    uint32_t reg = 0xFFFFFFFFu;
    for (off_t left = length - 4; left > 0;) {
        size_t n = left < (off_t)zeros.size() ? (size_t)left : zeros.size();
        reg = StandardCrcUpdate(reg, zeros.data(), n);
        left -= (off_t)n;
    }
    const uint32_t expected = reg ^ 0xFFFFFFFFu;
    int result = RunInChild([&] {
        LimitAddressSpace(256u << 20);
        return FileCRCskipLast4(path.c_str()) == expected ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
}
