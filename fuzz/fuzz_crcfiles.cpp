// Rewriting the checksum list from any old list, in a directory holding a
// few of the protected tables.
#include "bundle/crcfiles.h"
#include "fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("crcfiles");
    dir.Reset();
    WriteBytes(dir / "charts.dbf", "charts table bytes");
    WriteBytes(dir / "vfrntms.dbt", "memo bytes");
    WriteBytes(dir / "airports.dbf", "");
    WriteBytes(dir / "crcfiles.txt", data, size);
    FixCRCFilesTxt((dir / "crcfilesNEW.txt").c_str(), (dir / "crcfiles.txt").c_str(),
                   dir.path().c_str());
    return 0;
}
