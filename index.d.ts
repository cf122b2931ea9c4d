// The module's ten functions. Every function but libraryVersion returns
// undefined at once and calls its callback later on the JavaScript thread.
// A wrong argument count throws TypeError("Wrong number of arguments."), a
// wrong argument type TypeError("Wrong argument type.") (a string holding
// a NUL character counts as a wrong type); the callback is then never
// called. A failure of the library arrives as an Error whose message is
// 'Received bad result: "<result>".' (for the text queries '... retrieving
// buffer size: ...' or '... retrieving output value: ...'), with a code
// (e.g. "ERR_TARN_MERGE_NO_UPDATES"; the table is tarn-termchart/codes),
// the result and the operation.
//
// merge, subsetCharts and combineVFRinfoIFR never report success over lost
// data, and calls that write the same directory run one after the other.
// Beyond the library's specified codes they may answer:
//   merge               -10  a write the merge needs could not be finished, or
//                            an earlier merge that was stopped cannot be
//                            recovered; the directory is as it was
//   subsetCharts,       -11  a file of the destination could not be written
//   combineVFRinfoIFR        whole; none is left cut short
//                       -12  the destination is the source directory; nothing
//                            was written

/** A failure of the library, as the callbacks receive it. */
export interface TarnTermChartFailure extends Error {
  /** A stable string per operation and result: ERR_TARN_<OPERATION>_<NAME>, e.g. "ERR_TARN_MERGE_NO_UPDATES". */
  code: string;
  /** The library's result; for isValidChartDirectory its message. */
  result: number | string;
  /** The function that failed, e.g. "merge". */
  operation: string;
}

/** A callback that receives only an outcome: (undefined, undefined) or (error, undefined). */
export type DoneCallback = (error: TarnTermChartFailure | undefined, result: undefined) => void;

/** A callback of the text queries: (undefined, text) or (error, undefined). */
export type TextCallback = (error: TarnTermChartFailure | undefined, text: string | undefined) => void;

/** merge's progress report: more calls follow. */
export type MergeProgress = (error: undefined, done: undefined, percent: number) => void;
/** merge's end: the merge succeeded. */
export type MergeDone = (error: undefined, done: true, percent: undefined) => void;
/** merge's failure (the binding passes two arguments, so percent reads undefined). */
export type MergeFailure = (error: TarnTermChartFailure, done: undefined, percent: undefined) => void;

/**
 * merge's callback, called in three shapes: progress (undefined, undefined,
 * percent), end (undefined, true, undefined), failure (error, undefined).
 * Tell them apart by the first argument, then by the second; with
 * (...[error, done, percent]) => ... the compiler narrows the three for you.
 */
export type MergeCallback = (
  ...args: Parameters<MergeProgress> | Parameters<MergeDone> | Parameters<MergeFailure>
) => void;

/** Writes a directory in which the VFR data of sourceDirectory is folded into the IFR files. */
export function combineVFRinfoIFR(sourceDirectory: string, destinationDirectory: string,
  callback: DoneCallback): void;

/**
 * The descriptions of the covered regions. The library answers with their
 * length, which the binding reports as an error unless the list is empty.
 */
export function coverageInfo(chartDir: string, callback: TextCallback): void;

/** The cycle of revision.txt (code -5 for any non-empty value). */
export function cycleNumber(chartDir: string, callback: TextCallback): void;

/** The two-week period label NN-YYYY of charts.ini's begin date (code -5 for a sound file). */
export function cycleNumberDisplay(chartDir: string, callback: TextCallback): void;

/**
 * A text dump of a chart bundle; offsets and checksums are 0 or 1. The
 * library's success is the file count, reported as an error unless it is 0.
 */
export function dumpChartsBin(chartsBinPath: string, outputPath: string, offsets: number,
  checksums: number, callback: DoneCallback): void;

/** A text dump of a dBase table; the record count comes as an error unless it is 0. */
export function dumpDbf(dbfPath: string, outputPath: string, callback: DoneCallback): void;

/** (undefined, undefined) when the directory is valid; otherwise an error with the reason. */
export function isValidChartDirectory(chartDir: string, callback: DoneCallback): void;

/** The chart library's version, "9.9", at once; arguments are ignored. */
export function libraryVersion(...ignored: unknown[]): string;

/**
 * Applies the pending update bundles of a chart directory, reporting
 * progress. A merge that fails leaves the directory as it was (the updates
 * stay); one that was stopped (a crash, a power loss) is finished or taken
 * back by the next merge of the directory. Success is durable.
 */
export function merge(chartDir: string, callback: MergeCallback): void;

/** Writes a copy of a chart directory cut down to a box in signed degrees. */
export function subsetCharts(sourceDirectory: string, destinationDirectory: string,
  north: number, west: number, south: number, east: number, callback: DoneCallback): void;
