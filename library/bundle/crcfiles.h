// The directory's checksum list "crcfiles.txt": one "name,0x<checksum>" line
// per protected table, with CR LF line ends.
#ifndef TARNTERMCHART_BUNDLE_CRCFILES_H
#define TARNTERMCHART_BUNDLE_CRCFILES_H

#include <stdio.h>

// Writes newListPath from oldListPath, renewing the checksum of every line
// that names one of the protected tables with FileCRCTarn of that table in
// directory.  0 on success; -1 when the old list cannot be opened or a write
// fails; -2 when the new list cannot be created.  The caller moves the new
// list into place whatever the result.
int FixCRCFilesTxt(const char *newListPath, const char *oldListPath, const char *directory);

// The per-line step: 0 when line does not contain name; 1 when it does - the
// entry "name,0x<checksum>\r\n" is then written to outStream, or nothing when
// the table in directory has no checksum (missing, unreadable or empty);
// -1 when the write fails.
int WriteCrcEntry(const char *line, const char *name, FILE *outStream, const char *directory);

#endif
