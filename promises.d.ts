// The module's functions as promises: require('tarn-termchart/promises').

/** A failure reported by the chart library. */
export class TarnTermChartError extends Error {
  name: 'TarnTermChartError';
  /** The function that failed, e.g. "merge". */
  operation: string;
  /** The same string as the callback error's: ERR_TARN_<OPERATION>_<NAME>. */
  code: string;
  /** The library's result; for isValidChartDirectory its message text. */
  result: number | string;
  /** What the code means, in words. */
  meaning: string;
  /** The binding's own message, e.g. 'Received bad result: "-4".'. */
  libraryMessage: string;
}

export interface MergeOptions {
  /** Called with each progress percentage that reaches JavaScript (0 first, 100 last). */
  onProgress?: (percent: number) => void;
}

export function combineVFRinfoIFR(sourceDirectory: string, destinationDirectory: string): Promise<void>;
/** Resolves with the covered regions' names, ", " between them ("" when no code names a region). */
export function coverageInfo(chartDir: string): Promise<string>;
/** Resolves with the cycle of revision.txt, whole. */
export function cycleNumber(chartDir: string): Promise<string>;
/** Resolves with the two-week period label NN-YYYY of charts.ini's begin date. */
export function cycleNumberDisplay(chartDir: string): Promise<string>;
/** Resolves with the bundle's file count. */
export function dumpChartsBin(chartsBinPath: string, outputPath: string,
  offsets?: number | boolean, checksums?: number | boolean): Promise<number>;
/** Resolves with the table's record count. */
export function dumpDbf(dbfPath: string, outputPath: string): Promise<number>;
/** Resolves when the directory is valid; rejects with the library's message as result. */
export function isValidChartDirectory(chartDir: string): Promise<void>;
export function libraryVersion(): Promise<string>;
export function merge(chartDir: string, options?: MergeOptions): Promise<void>;
export function subsetCharts(sourceDirectory: string, destinationDirectory: string,
  north: number, west: number, south: number, east: number): Promise<void>;
