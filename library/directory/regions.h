// Reader of the region catalogue "regions.dat" and loader of the coverage
// codes of "coverages.txt".
#ifndef TARNTERMCHART_REGIONS_H
#define TARNTERMCHART_REGIONS_H

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

enum { kRegionRecordSize = 88, kRegionKeySize = 33, kRegionCodeSize = 7, kRegionDescSize = 51 };

struct RegionFile {
    uint32_t magic;  // 0x32053205 while valid
    FILE *file;
};

RegionFile *RegionFile_Open(const char *path);
void RegionFile_Close(RegionFile *region);
// 1 when a whole record was read and split into the three buffers, else 0.
int RegionFile_ReadLine(RegionFile *region, char *key, char *code, char *description);
void RegionFile_SeekToBegin(RegionFile *region);
// The distinct coverage keys of VFR coverages (service code ending in '6')
// and of restricted coverages (ending in '7'), as space-separated texts the
// caller frees.  A kind without keys leaves its pointer untouched.
void RegionFile_GetAccessKeyTypes(const char *path, char **vfrKeys, char **restrictedKeys);

// Complements one stored 88-byte record and splits it into its fields.
void RegionFile_SplitRecord(const unsigned char *stored, char *key, char *code, char *description);

// The text of "coverages.txt" in dir less one trailing LF then CR; null when
// it cannot be opened, is empty, cannot be read whole or memory is short.
char *GetCoverageServiceCodes(const char *dir);

// The service codes of a coverage text in order: each runs up to the next
// space or the end; an empty code or one of 10 characters or more ends the
// list, and the rest of the text is ignored.
std::vector<std::string> SplitCoverageCodes(const char *codes);

#endif
