// The whole merge on a directory built from the input.
#include "directory_input.h"
#include "tarntermchart.h"

static int Continue(void *, int) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("merge");
    dir.Reset();
    std::string charts = dir / "charts";
    WriteDirectory(dir, charts, data, size);
    TarnTermChart_Merge(charts.c_str(), Continue, nullptr);
    TarnTermChart_IsValidChartDirectory(charts.c_str());
    return 0;
}
