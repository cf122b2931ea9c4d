// Whole-file reading of the small text files of a chart directory.
#ifndef TARNTERMCHART_TEXTFILE_H
#define TARNTERMCHART_TEXTFILE_H

#include "platform/files.h"

// Reads dir/name whole into a new NUL-terminated block.  Returns 0, or -1 when
// the file is missing or empty, -2 when it cannot be opened, -3 when there is
// no memory for it.
int ReadTextFile(const char *dir, const char *name, MallocPtr<char> &text);

// Drops one trailing LF and then one trailing CR (only in that order).
void StripLineEnd(char *text);

#endif
