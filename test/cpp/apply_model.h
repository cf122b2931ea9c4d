// A plain model of applying updates and compacting, for checking the
// library's bundles byte for byte.  It works on the bundle bytes with
// strings, scans the table from the start for every lookup and sorts with
// the fixture's own entry order, sharing no code with the library.
#ifndef TARNTERMCHART_TEST_APPLY_MODEL_H
#define TARNTERMCHART_TEST_APPLY_MODEL_H

#include <string>
#include <vector>

// Applies update to bundle (both whole files) and returns the result code:
// 1 or 0, or -5 for an older update (bundle unchanged).
int ModelApply(std::string &bundle, const std::string &update);

// The compacted bundle (CRC 0).  chartList: the base names the chart table
// lists; null for no list at all.
std::string ModelCompact(const std::string &bundle, const std::vector<std::string> *chartList);

// The bundle after finalising: compacted when compact is set, then the
// checksum of bytes 4..end at offset 0.
std::string ModelFinalize(const std::string &bundle, bool compact, const std::vector<std::string> *chartList);

#endif
