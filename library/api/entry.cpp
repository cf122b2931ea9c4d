// The exported entry layer: the library version, the SubsetCharts wrapper,
// the two switches and the TarnwickAPI_ forwarders through which the
// JavaScript binding reaches every TarnTermChart_ entry.  A forwarder passes its arguments unchanged and
// returns the entry's result unchanged.
#include "tarntermchart.h"

#include "platform/platform.h"

extern "C" {

int TarnTermChart_SetFlushing(int enabled)
{
    const bool before = FlushingEnabled();
    SetFlushing(enabled != 0);
    return before ? 1 : 0;
}

int TarnTermChart_SetThreads(int enabled)
{
    const bool before = ThreadsEnabled();
    SetThreadsEnabled(enabled != 0);
    return before ? 1 : 0;
}

const char *TarnTermChart_LibraryVersion(void) { return "9.9"; }

const char *TarnwickAPI_LibraryVersion(void) { return TarnTermChart_LibraryVersion(); }

// The subset as JavaScript asks for it: no runway threshold, no airport list.
int TarnTermChart_SubsetCharts(const char *sourceDirectory, const char *destinationDirectory,
                               double north, double west, double south, double east)
{
    return TarnTermChart_SubsetChartsEx(sourceDirectory, destinationDirectory, 0, nullptr, north,
                                        west, south, east);
}

const char *TarnwickAPI_IsValidChartDirectory(const char *chartDir)
{
    return TarnTermChart_IsValidChartDirectory(chartDir);
}

int TarnwickAPI_CycleNumber(const char *chartDir, char *buffer, int bufferSize)
{
    return TarnTermChart_CycleNumber(chartDir, buffer, bufferSize);
}

int TarnwickAPI_CycleNumber_Display(const char *chartDir, char *buffer, int bufferSize)
{
    return TarnTermChart_CycleNumber_Display(chartDir, buffer, bufferSize);
}

int TarnwickAPI_CoverageInfo(const char *chartDir, char *buffer, int bufferSize)
{
    return TarnTermChart_CoverageInfo(chartDir, buffer, bufferSize);
}

int TarnwickAPI_DumpChartsBin(const char *chartsBinPath, const char *outputPath, int option1,
                              int option2)
{
    return TarnTermChart_DumpChartsBin(chartsBinPath, outputPath, option1, option2);
}

int TarnwickAPI_DumpDBF(const char *dbfPath, const char *outputPath)
{
    return TarnTermChart_DumpDBF(dbfPath, outputPath);
}

int TarnwickAPI_Merge(const char *chartDir, TarnTermChart_Progress progress, void *context)
{
    return TarnTermChart_Merge(chartDir, progress, context);
}

int TarnwickAPI_SubsetCharts(const char *sourceDirectory, const char *destinationDirectory,
                             double north, double west, double south, double east)
{
    return TarnTermChart_SubsetCharts(sourceDirectory, destinationDirectory, north, west, south,
                                      east);
}

int TarnwickAPI_CombineVFRintoIFR(const char *sourceDirectory, const char *destinationDirectory)
{
    return TarnTermChart_CombineVFRintoIFR(sourceDirectory, destinationDirectory);
}

}  // extern "C"
