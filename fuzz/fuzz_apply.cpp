// Applying an update to a bundle and finalising it with and without
// compaction.  Input: the bundle, the update, then a chart table.
#include "bundle/chartlist.h"
#include "bundle/update.h"
#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("apply");
    dir.Reset();
    std::vector<std::string> parts = SplitInput(data, size, 3);
    std::string bundle = dir / "charts.bin", update = dir / "1_charts.bin", table = dir / "charts.dbf";
    if (!parts[0].empty()) WriteBytes(bundle, parts[0]);
    if (parts.size() > 1) WriteBytes(update, parts[1]);
    if (parts.size() > 2) WriteBytes(table, parts[2]);
    int result = AddCoverageToChartsBin(bundle.c_str(), update.c_str());
    ChartList *list = ChartsFromChartsDBF(table.c_str());
    FinalizeChartsBin(bundle.c_str(), result == 1 || (size & 1), list);
    DoneWithChartGrouping(list);
    return 0;
}
