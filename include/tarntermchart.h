/*
 * tarntermchart.h - public interface of the terminal-chart library.
 *
 * Every entry point has C linkage and an unmangled name.  TarnTermChart_*
 * entries own the work; each TarnwickAPI_* entry forwards its arguments
 * unchanged to the TarnTermChart_* entry of the same stem and returns its
 * result unchanged.  Integer results are 0 (or a count where noted) on
 * success and a negative code on failure.  Texts returned by the library
 * are owned by it and never freed by the caller.
 *
 * Merge, subset and combine never report success over lost data: a file
 * takes its name only once written whole and flushed, a merge that fails
 * or is stopped is taken back (or finished) by the next merge, and calls
 * that write the same directory wait for each other, in one process and
 * across processes.  Beyond their specified codes: merge -10 (a write the
 * merge could not finish, or a stopped merge it cannot recover: nothing is
 * lost, the update bundles stay), subset and combine -11 (a write failed:
 * no file of the destination is left cut short) and -12 (the destination
 * is the source directory: nothing is written).
 */
#ifndef TARNTERMCHART_H
#define TARNTERMCHART_H

#include <stdint.h>

#if defined(_WIN32)
#  define TARNTERMCHART_API __declspec(dllexport)
#else
#  define TARNTERMCHART_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Progress function of the merge: called with the caller's context and a
 * percentage from 0 to 100; a negative result asks the merge to stop. */
typedef int (*TarnTermChart_Progress)(void *context, int percent);

/* ---- Library entries ---------------------------------------------------- */

TARNTERMCHART_API const char *TarnTermChart_LibraryVersion(void);
TARNTERMCHART_API const char *TarnTermChart_IsValidChartDirectory(const char *chartDir);
TARNTERMCHART_API int TarnTermChart_CycleNumber(const char *chartDir, char *buffer, int bufferSize);
TARNTERMCHART_API int TarnTermChart_CycleNumber_Display(const char *chartDir, char *buffer, int bufferSize);
TARNTERMCHART_API int TarnTermChart_CoverageInfo(const char *chartDir, char *buffer, int bufferSize);
TARNTERMCHART_API int TarnTermChart_DumpChartsBin(const char *chartsBinPath, const char *outputPath,
                                                  int option1, int option2);
TARNTERMCHART_API int TarnTermChart_DumpDBF(const char *dbfPath, const char *outputPath);
TARNTERMCHART_API int TarnTermChart_Merge(const char *chartDir, TarnTermChart_Progress progress,
                                          void *context);
TARNTERMCHART_API int TarnTermChart_SubsetCharts(const char *sourceDirectory,
                                                 const char *destinationDirectory,
                                                 double north, double west, double south,
                                                 double east);
TARNTERMCHART_API int TarnTermChart_SubsetChartsEx(const char *sourceDirectory,
                                                   const char *destinationDirectory,
                                                   int minimumRunway, const char *airportList,
                                                   double north, double west, double south,
                                                   double east);
TARNTERMCHART_API int TarnTermChart_CombineVFRintoIFR(const char *sourceDirectory,
                                                      const char *destinationDirectory);
TARNTERMCHART_API int TarnTermChart_DumpRegionsDat(const char *regionsPath, const char *outputPath);

/* ---- Switches ------------------------------------------------------------ */

/* Flushing: on by default, every file merge, subset and combine write, and
 * the directory entries that name them, reach the disk before the call
 * returns 0, so that a success survives a power loss.  0 turns it off for
 * scratch copies (tests, benchmarks), any other value on again.  The
 * environment variable TARN_TERMCHART_FLUSH=0 sets the same at the first
 * call.  Returns the previous setting. */
TARNTERMCHART_API int TarnTermChart_SetFlushing(int enabled);
/* Threads: on by default, merge, subset and combine do some of their work
 * (bundle compaction, cutting and merging, checksums) on a second thread.
 * 0 keeps everything on the calling thread; TARN_TERMCHART_THREADS=0 sets
 * the same at the first call.  Results are the same either way.  Returns
 * the previous setting. */
TARNTERMCHART_API int TarnTermChart_SetThreads(int enabled);

/* ---- Forwarding layer used by the JavaScript binding -------------------- */

TARNTERMCHART_API const char *TarnwickAPI_LibraryVersion(void);
TARNTERMCHART_API const char *TarnwickAPI_IsValidChartDirectory(const char *chartDir);
TARNTERMCHART_API int TarnwickAPI_CycleNumber(const char *chartDir, char *buffer, int bufferSize);
TARNTERMCHART_API int TarnwickAPI_CycleNumber_Display(const char *chartDir, char *buffer, int bufferSize);
TARNTERMCHART_API int TarnwickAPI_CoverageInfo(const char *chartDir, char *buffer, int bufferSize);
TARNTERMCHART_API int TarnwickAPI_DumpChartsBin(const char *chartsBinPath, const char *outputPath,
                                                int option1, int option2);
TARNTERMCHART_API int TarnwickAPI_DumpDBF(const char *dbfPath, const char *outputPath);
TARNTERMCHART_API int TarnwickAPI_Merge(const char *chartDir, TarnTermChart_Progress progress,
                                        void *context);
TARNTERMCHART_API int TarnwickAPI_SubsetCharts(const char *sourceDirectory,
                                               const char *destinationDirectory,
                                               double north, double west, double south,
                                               double east);
TARNTERMCHART_API int TarnwickAPI_CombineVFRintoIFR(const char *sourceDirectory,
                                                    const char *destinationDirectory);

/* ---- Checksums ----------------------------------------------------------- */

/* Standard (reflected) CRC-32 register update, no initial or final inversion. */
TARNTERMCHART_API uint32_t CalcCRC32(const void *buffer, int32_t length, uint32_t crc);
/* Standard CRC-32 of a whole file; 0 when it cannot be read or is empty. */
TARNTERMCHART_API uint32_t FileCRC(const char *path);
/* Tarn checksum (CRC-32/AIXM) of a file from an offset to its end. */
TARNTERMCHART_API uint32_t FileCRCTarnStartingAt(const char *path, int32_t start);
TARNTERMCHART_API uint32_t FileCRCTarn(const char *path);
/* Standard CRC-32 of a file less its last 4 bytes. */
TARNTERMCHART_API uint32_t FileCRCskipLast4(const char *path);

#ifdef __cplusplus
}
#endif

#endif /* TARNTERMCHART_H */
