// A chart directory built from one fuzz input: the parts of the input, split
// at the separator, become the directory's files in a fixed order.
#ifndef TARNTERMCHART_FUZZ_DIRECTORY_INPUT_H
#define TARNTERMCHART_FUZZ_DIRECTORY_INPUT_H

#include "fuzz_util.h"

// The files in the order the parts fill them (fuzz/seeds.js writes seeds in
// the same order).
extern const char *const kDirectoryFiles[];
extern const size_t kDirectoryFileCount;

// Empties dir and writes the input's parts into it.
void WriteDirectory(const ScratchDir &dir, const std::string &path, const uint8_t *data, size_t size);

#endif
