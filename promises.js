'use strict';
// The module's functions as promises: require('tarn-termchart/promises').
//
// Each function takes the arguments of its callback form, less the callback,
// and returns a promise. A failure of the library rejects with a
// TarnTermChartError: code (the same string as the callback error's, e.g.
// ERR_TARN_MERGE_NO_UPDATES), result (the library's number, for
// isValidChartDirectory its message), operation, and what it means in
// words. Where the library's success is a count the promise resolves with
// it, and the text queries resolve with their whole text:
//   dumpDbf, dumpChartsBin   the record or file count
//   cycleNumber              the cycle of revision.txt
//   cycleNumberDisplay       the period label NN-YYYY of charts.ini's date
//   coverageInfo             the covered regions' names, ", " between them
//                            ('' when no service code names a region)
// (The callback functions pass on only what their buffer protocol lets
// through: -5 for a cycle or a label, the length for the coverage.)
// An argument of the wrong type rejects with the binding's TypeError.
const { functions: addon, internals } = require('./lib/addon');
const { parseMessage, describe, codeOf } = require('./lib/codes');

class TarnTermChartError extends Error {
  constructor(operation, result, libraryMessage) {
    const meaning = describe(operation, result);
    super(operation === 'isValidChartDirectory'
      ? `${operation}: the chart directory is not valid: ${meaning} ("${result}")`
      : `${operation} failed with code ${result}: ${meaning}`);
    this.name = 'TarnTermChartError';
    this.code = codeOf(operation, result);
    this.result = result;
    this.operation = operation;
    this.meaning = meaning;
    this.libraryMessage = libraryMessage;
  }
}

// The error a binding error stands for: a TarnTermChartError when it
// carries a library answer, else the error itself (an argument error).
function failure(operation, error) {
  const parsed = parseMessage(error && error.message);
  return parsed ? new TarnTermChartError(operation, parsed.answer, error.message) : error;
}

// Calls fn with a callback that settles the promise; settle(args, resolve,
// reject) decides how. A throw of the native function (its argument
// checks) rejects the promise.
function call(fn, args, settle) {
  return new Promise((resolve, reject) => {
    fn(...args, (...results) => settle(results, resolve, reject));
  });
}

// Plain operations: success is a call back without an error.
function plain(operation) {
  return (...args) => call(addon[operation], args, ([error, result], resolve, reject) => {
    if (error) reject(failure(operation, error));
    else resolve(result);
  });
}

// Operations whose success is a count that the binding reports as an error.
function counting(operation) {
  return (...args) => call(addon[operation], args, ([error], resolve, reject) => {
    if (!error) return resolve(0);
    const parsed = parseMessage(error.message);
    if (parsed && typeof parsed.answer === 'number' && parsed.answer >= 0) return resolve(parsed.answer);
    return reject(failure(operation, error));
  });
}

// The whole text behind a text query.
function wholeText(operation, kind) {
  return (chartDir) => call(internals.readText, [kind, chartDir], ([error, text], resolve, reject) => {
    if (error) reject(failure(operation, error));
    else resolve(text);
  });
}

const flag = (value) => (typeof value === 'boolean' ? Number(value) : value);

function dumpChartsBin(chartsBinPath, outputPath, offsets = 0, checksums = 0) {
  return counting('dumpChartsBin')(chartsBinPath, outputPath, flag(offsets), flag(checksums));
}

// merge(chartDir, { onProgress }): onProgress(percent) for each progress
// report that reaches JavaScript (reports that come faster are coalesced,
// the newest winning); resolves when the merge is done. A merge cannot be
// stopped: if onProgress throws, the merge runs to its end and the promise
// then rejects with that exception.
function merge(chartDir, { onProgress } = {}) {
  let thrown;
  return call(addon.merge, [chartDir], ([error, done, percent], resolve, reject) => {
    if (error) reject(failure('merge', error));
    else if (done === true) {
      if (thrown) reject(thrown.error);
      else resolve();
    } else if (onProgress && !thrown) {
      try {
        onProgress(percent);
      } catch (e) {
        thrown = { error: e };
      }
    }
  });
}

async function libraryVersion() {
  return addon.libraryVersion();
}

module.exports = {
  combineVFRinfoIFR: plain('combineVFRinfoIFR'),
  coverageInfo: wholeText('coverageInfo', 'coverage'),
  cycleNumber: wholeText('cycleNumber', 'cycle'),
  cycleNumberDisplay: wholeText('cycleNumberDisplay', 'period'),
  dumpChartsBin,
  dumpDbf: counting('dumpDbf'),
  isValidChartDirectory: plain('isValidChartDirectory'),
  libraryVersion,
  merge,
  subsetCharts: plain('subsetCharts'),
  TarnTermChartError,
};
