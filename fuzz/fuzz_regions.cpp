// The region catalogue and the coverage codes on any bytes: the coverage
// query with null, small and large buffers, the key kinds and the dump.
// Input: "regions.dat", then "coverages.txt".
#include <stdlib.h>

#include "directory/regions.h"
#include "fuzz_util.h"
#include "tarntermchart.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("regions");
    dir.Reset();
    std::vector<std::string> parts = SplitInput(data, size, 2);
    WriteBytes(dir / "regions.dat", parts[0]);
    if (parts.size() > 1) WriteBytes(dir / "coverages.txt", parts[1]);

    int needed = TarnTermChart_CoverageInfo(dir.path().c_str(), nullptr, 0);
    char small[8];
    TarnTermChart_CoverageInfo(dir.path().c_str(), small, sizeof small);
    if (needed > 0 && needed < (1 << 20)) {
        char *buffer = (char *)malloc((size_t)needed);
        TarnTermChart_CoverageInfo(dir.path().c_str(), buffer, needed);
        free(buffer);
    }
    char *vfr = nullptr, *restricted = nullptr;
    RegionFile_GetAccessKeyTypes((dir / "regions.dat").c_str(), &vfr, &restricted);
    free(vfr);
    free(restricted);
    free(GetCoverageServiceCodes(dir.path().c_str()));
    TarnTermChart_DumpRegionsDat((dir / "regions.dat").c_str(), (dir / "dump.txt").c_str());
    return 0;
}
