// The cycle queries on any "revision.txt" and "charts.ini" (the same bytes
// serve both), with null, small and exact buffers.
#include "fuzz_util.h"
#include "tarntermchart.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("cycle");
    dir.Reset();
    WriteBytes(dir / "revision.txt", data, size);
    WriteBytes(dir / "charts.ini", data, size);
    const char *path = dir.path().c_str();
    char buffer[64];
    for (int bufferSize : {0, 1, 7, 8, 16, 63}) {
        TarnTermChart_CycleNumber(path, bufferSize ? buffer : nullptr, bufferSize);
        TarnTermChart_CycleNumber_Display(path, bufferSize ? buffer : nullptr, bufferSize);
    }
    // A value of exactly bufferSize characters is copied with its
    // terminator, so the storage offered is one byte larger.
    TarnTermChart_CycleNumber(path, buffer, (int)sizeof buffer - 1);
    TarnTermChart_CycleNumber_Display(path, buffer, (int)sizeof buffer);
    return 0;
}
