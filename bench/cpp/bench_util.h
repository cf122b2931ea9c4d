// What every benchmark program needs around its measurements: a scratch
// directory, its removal, and sizes from the environment.
#ifndef TARNTERMCHART_BENCH_UTIL_H
#define TARNTERMCHART_BENCH_UTIL_H

#include <stdint.h>

#include <string>

// A new directory "tarnbench-<tag>-XXXXXX" under $TMPDIR (or /tmp); aborts
// when it cannot be made.
std::string MakeBenchDirectory(const std::string &tag);
// Removes the files of dir (one level, no subdirectories) and dir itself.
void RemoveTree(const std::string &dir);
// The positive decimal number in the environment variable name, or fallback
// when it is unset, empty, not a number or 0.
uint64_t EnvNumber(const char *name, uint64_t fallback);

#endif
