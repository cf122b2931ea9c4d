// The module's functions as promises: require('tarn-termchart/promises').

/** A failure reported by the chart library. */
export class TarnTermChartError extends Error {
  name: 'TarnTermChartError';
  /** The function that failed, e.g. "merge". */
  operation: string;
  /** The library's code; for isValidChartDirectory its message text. */
  code: number | string;
  /** What the code means, in words. */
  meaning: string;
  /** The binding's own message, e.g. 'Received bad result: "-4".'. */
  libraryMessage: string;
}

export interface MergeOptions {
  /** Called with each progress percentage that reaches JavaScript (0 first, 100 last). */
  onProgress?: (percent: number) => void;
}

export interface CoverageInfo {
  /** Size in bytes of the covered regions' names, terminator included; 0 when none matched. */
  length: number;
  /** Present only when the binding handed the text over (an empty list). */
  text?: string;
}

export function combineVFRinfoIFR(sourceDirectory: string, destinationDirectory: string): Promise<void>;
export function coverageInfo(chartDir: string): Promise<CoverageInfo>;
/** Resolves with the cycle text; rejects with code -5 when revision.txt holds a non-empty cycle. */
export function cycleNumber(chartDir: string): Promise<string>;
/** Resolves with the period label; rejects with code -5 for a sound charts.ini. */
export function cycleNumberDisplay(chartDir: string): Promise<string>;
/** Resolves with the bundle's file count. */
export function dumpChartsBin(chartsBinPath: string, outputPath: string,
  offsets?: number | boolean, checksums?: number | boolean): Promise<number>;
/** Resolves with the table's record count. */
export function dumpDbf(dbfPath: string, outputPath: string): Promise<number>;
/** Resolves when the directory is valid; rejects with the library's message as code. */
export function isValidChartDirectory(chartDir: string): Promise<void>;
export function libraryVersion(): Promise<string>;
export function merge(chartDir: string, options?: MergeOptions): Promise<void>;
export function subsetCharts(sourceDirectory: string, destinationDirectory: string,
  north: number, west: number, south: number, east: number): Promise<void>;
