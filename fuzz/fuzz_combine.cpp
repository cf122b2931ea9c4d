// Combining the VFR data of a directory built from the input into its IFR files.
#include <sys/stat.h>

#include "directory_input.h"
#include "tarntermchart.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("combine");
    dir.Reset();
    std::string source = dir / "source", destination = dir / "destination";
    WriteDirectory(dir, source, data, size);
    mkdir(destination.c_str(), 0700);
    TarnTermChart_CombineVFRintoIFR(source.c_str(), destination.c_str());
    return 0;
}
