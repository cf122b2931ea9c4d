// The directory's checksum list "crcfiles.txt": one "name,0x<checksum>" line
// per protected table, with CR LF line ends.
#ifndef TARNTERMCHART_BUNDLE_CRCFILES_H
#define TARNTERMCHART_BUNDLE_CRCFILES_H

#include <stdio.h>

#include <functional>
#include <string>

// Writes newListPath from oldListPath, renewing the checksum of every line
// that names one of the protected tables with FileCRCTarn of that table in
// directory.  The new list takes its name only once it is written whole.
// 0 on success; -1 when the old list cannot be opened or a write fails; -2
// when the new list cannot be created.
int FixCRCFilesTxt(const char *newListPath, const char *oldListPath, const char *directory);

// Where the checksum of a protected table comes from: the path of the file
// that stands (or will stand) under that name, or "" when none will.
using TableLocator = std::function<std::string(const char *name)>;
enum {
    kCrcListNoOldList = -1,   // the old list cannot be opened: nothing is written
    kCrcListNotCreated = -2,  // the new list cannot be created
    kCrcListWriteFailed = -3, // a write failed: the new list is not written
};
// FixCRCFilesTxt over the tables that locate finds, with the three failures
// told apart.
int RewriteCrcList(const char *newListPath, const char *oldListPath, const TableLocator &locate);
// RewriteCrcList over the tables in directory.
int FixCRCFilesTxtCode(const char *newListPath, const char *oldListPath, const char *directory);

// The per-line step: 0 when line does not contain name; 1 when it does - the
// entry "name,0x<checksum>\r\n" is then written to outStream, or nothing when
// the table in directory has no checksum (missing, unreadable or empty);
// -1 when the write fails.
int WriteCrcEntry(const char *line, const char *name, FILE *outStream, const char *directory);

#endif
