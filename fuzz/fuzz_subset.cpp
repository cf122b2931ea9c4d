// The area subset of a directory built from the input, with a box, a
// threshold and an airport list taken from its first bytes.
#include <string.h>
#include <sys/stat.h>

#include "directory_input.h"
#include "tarntermchart.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("subset");
    dir.Reset();
    std::string source = dir / "source", destination = dir / "destination";
    WriteDirectory(dir, source, data, size);
    mkdir(destination.c_str(), 0700);
    double box[4] = {60, -130, 20, -60};
    if (size >= 4) {
        // West above east crosses the 180th meridian; equal ones mean no box.
        for (int i = 0; i < 4; i++) box[i] = (double)(int8_t)data[i] * (i % 2 ? 1.5 : 0.75);
    }
    const char *list = size > 4 && (data[4] & 1) ? "KAAA,kbbb,,CYYZ" : nullptr;
    int runway = size > 5 ? data[5] * 50 : 0;
    TarnTermChart_SubsetChartsEx(source.c_str(), destination.c_str(), runway, list, box[0], box[1],
                                 box[2], box[3]);
    return 0;
}
