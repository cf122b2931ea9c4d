// The bundle reader and the bundle dump on any bytes, in all four listing
// forms and with an option outside 0 and 1.
#include <stdio.h>

#include "bundle/chartsbin.h"
#include "fuzz_util.h"
#include "tarntermchart.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static ScratchDir dir("bundle");
    dir.Reset();
    std::string bundle = dir / "charts.bin", out = dir / "dump.txt";
    WriteBytes(bundle, data, size);
    if (FILE *in = fopen(bundle.c_str(), "rb")) {
        ChartsBinHeader header;
        if (SFileTableEntry *table = ReadChartsBinHeaderAndFileTable(in, 40, &header)) {
            int64_t length = StreamLength(in);
            for (uint32_t i = 0; i < header.fileCount && i < 1000; i++) EntryWithinFile(&table[i], length);
            free(table);
        }
        fclose(in);
    }
    for (int offsets = 0; offsets <= 1; offsets++)
        for (int checksums = 0; checksums <= 1; checksums++)
            TarnTermChart_DumpChartsBin(bundle.c_str(), out.c_str(), offsets, checksums);
    TarnTermChart_DumpChartsBin(bundle.c_str(), out.c_str(), 2, 1);
    FileCRCTarnStartingAt(bundle.c_str(), 4);
    FileCRC(bundle.c_str());
    FileCRCskipLast4(bundle.c_str());
    return 0;
}
