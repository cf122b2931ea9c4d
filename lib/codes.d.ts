// What the library's results mean, and the codes of failures:
// require('tarn-termchart/codes') or import from 'tarn-termchart/codes'.

/** The names of the module's functions. */
export type Operation =
  | 'combineVFRinfoIFR' | 'coverageInfo' | 'cycleNumber' | 'cycleNumberDisplay' | 'dumpChartsBin'
  | 'dumpDbf' | 'isValidChartDirectory' | 'libraryVersion' | 'merge' | 'subsetCharts';

/** The ten function names, in the order of the function table. */
export const OPERATIONS: readonly Operation[];

/** The operations' names in codes: merge "MERGE", subsetCharts "SUBSET_CHARTS", ... */
export const OPERATION_WORDS: Readonly<Record<Operation, string>>;

/** Per operation, each documented result ("-4") and what it means in words. */
export const MEANINGS: Readonly<Record<string, Readonly<Record<string, string>>>>;

/**
 * Per operation, the name of each documented result ("-4": "NO_UPDATES"), and
 * under "count" the name of any positive count or length the binding
 * reports as a failure (dumpDbf, dumpChartsBin, coverageInfo).
 */
export const NAMES: Readonly<Record<string, Readonly<Record<string, string>>>>;

/** The kinds of validation message: pattern, meaning (given the pattern's first group), name. */
export const VALIDATION: ReadonlyArray<readonly [RegExp, (detail?: string) => string, string]>;

/** The library's answer inside a binding error message, or undefined for any other message. */
export function parseMessage(message: unknown):
  { answer: number | string; stage: 'buffer size' | 'output value' | undefined } | undefined;

/** What a result (or, for isValidChartDirectory, a message) means, in words. */
export function describe(operation: string, result: number | string): string;

/** The error code of a failure: ERR_TARN_<OPERATION>_<NAME>, e.g. "ERR_TARN_MERGE_NO_UPDATES". */
export function codeOf(operation: string, result: number | string): string;
