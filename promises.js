'use strict';
// The module's functions as promises: require('tarn-termchart/promises').
//
// Each function takes the arguments of its callback form, less the callback,
// and returns a promise. A failure of the library rejects with a
// TarnTermChartError that names the operation, carries the library's code
// (for isValidChartDirectory its message) and says what it means. Where
// the library's success is a count or a length, which the binding reports
// through its error, the promise resolves with it:
//   dumpDbf, dumpChartsBin   resolve with the record or file count
//   coverageInfo             resolves with { length }: the size in bytes of
//                            the covered regions' names (terminator
//                            included); the binding cannot hand over the text
//                            itself, except an empty one ({ length: 0, text: '' })
//   cycleNumber,             resolve with the text the binding hands over;
//   cycleNumberDisplay       the library's fill call answers -5 for any
//                            non-empty value, so they reject with code -5 for
//                            a directory that has one
// An argument of the wrong type rejects with the binding's TypeError.
const addon = require('./index.js');
const { parseMessage, describe } = require('./lib/codes');

class TarnTermChartError extends Error {
  constructor(operation, code, libraryMessage) {
    const meaning = describe(operation, code);
    super(operation === 'isValidChartDirectory'
      ? `${operation}: the chart directory is not valid: ${meaning} ("${code}")`
      : `${operation} failed with code ${code}: ${meaning}`);
    this.name = 'TarnTermChartError';
    this.operation = operation;
    this.code = code;
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

// Calls the native function with a callback that settles the promise;
// settle(args, resolve, reject) decides how. A throw of the native function
// (its argument checks) rejects the promise.
function call(operation, args, settle) {
  return new Promise((resolve, reject) => {
    const fn = addon[operation];
    if (typeof fn !== 'function') throw new Error(`${operation} is not available in this build of the module`);
    fn(...args, (...results) => settle(results, resolve, reject));
  });
}

// Plain operations: success is a call back without an error.
function plain(operation) {
  return (...args) => call(operation, args, ([error, result], resolve, reject) => {
    if (error) reject(failure(operation, error));
    else resolve(result);
  });
}

// Operations whose success is a count that the binding reports as an error.
function counting(operation) {
  return (...args) => call(operation, args, ([error], resolve, reject) => {
    if (!error) return resolve(0);
    const parsed = parseMessage(error.message);
    if (parsed && typeof parsed.answer === 'number' && parsed.answer >= 0) return resolve(parsed.answer);
    return reject(failure(operation, error));
  });
}

const flag = (value) => (typeof value === 'boolean' ? Number(value) : value);

function dumpChartsBin(chartsBinPath, outputPath, offsets = 0, checksums = 0) {
  return counting('dumpChartsBin')(chartsBinPath, outputPath, flag(offsets), flag(checksums));
}

function coverageInfo(chartDir) {
  return call('coverageInfo', [chartDir], ([error, text], resolve, reject) => {
    if (!error) return resolve({ length: text.length, text });
    const parsed = parseMessage(error.message);
    if (parsed && typeof parsed.answer === 'number' && parsed.answer > 0) return resolve({ length: parsed.answer });
    return reject(failure('coverageInfo', error));
  });
}

// merge(chartDir, { onProgress }): onProgress(percent) for each progress
// report that reaches JavaScript (reports that come faster are coalesced,
// the newest winning); resolves when the merge is done. A merge cannot be
// stopped: if onProgress throws, the merge runs to its end and the promise
// then rejects with that exception.
function merge(chartDir, { onProgress } = {}) {
  let thrown;
  return call('merge', [chartDir], ([error, done, percent], resolve, reject) => {
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
  coverageInfo,
  cycleNumber: plain('cycleNumber'),
  cycleNumberDisplay: plain('cycleNumberDisplay'),
  dumpChartsBin,
  dumpDbf: counting('dumpDbf'),
  isValidChartDirectory: plain('isValidChartDirectory'),
  libraryVersion,
  merge,
  subsetCharts: plain('subsetCharts'),
  TarnTermChartError,
};
