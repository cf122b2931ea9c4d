'use strict';
// Shared pieces of the binding tests.
const fs = require('fs');
const os = require('os');
const path = require('path');

const addon = require('../../index.js');
const sample = require('../../sample');

// A fresh temporary directory, removed when the test ends.
function tempDir(t) {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-js-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  return dir;
}

// Calls an asynchronous module function and resolves with the arguments of
// its first callback call; fails if the callback runs before the call returns.
function callOnce(fn, ...args) {
  return new Promise((resolve, reject) => {
    let returned = false;
    const result = fn(...args, (...cbArgs) => {
      if (!returned) reject(new Error('callback ran synchronously'));
      else resolve(cbArgs);
    });
    returned = true;
    if (result !== undefined) reject(new Error('asynchronous function returned a value'));
  });
}

// Writes the fixed files of a chart directory (placeholder contents where
// the file's contents do not matter) with a cycle, a begin date and a coverage.
function writeMinimalDirectory(dir, options = {}) {
  for (const name of sample.REQUIRED_FILES) fs.writeFileSync(path.join(dir, name), 'x');
  sample.writeBytes(path.join(dir, 'revision.txt'), sample.revisionTxt(options.cycle || '2513'));
  sample.writeBytes(path.join(dir, 'charts.ini'),
    sample.chartsIni(options.julianDate || sample.julianDay(2024, 1, 15)));
  sample.writeBytes(path.join(dir, 'regions.dat'), sample.regionsDat(options.regions || [
    { key: 100, code: 'US1', description: 'United States' },
    { key: 200, code: 'EUR', description: 'Europe' },
  ]));
  sample.writeBytes(path.join(dir, 'coverages.txt'), (options.coverage || 'US1') + '\r\n');
}

module.exports = { addon, sample, tempDir, callOnce, writeMinimalDirectory };
