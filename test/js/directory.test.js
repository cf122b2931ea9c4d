'use strict';
// The directory queries through JavaScript: validity, cycle and coverage.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { addon, sample, tempDir, callOnce, writeMinimalDirectory } = require('./helpers');

const bad = (text) => `Received bad result: "${text}".`;
const badSize = (n) => `Received bad result retrieving buffer size: "${n}".`;
const badValue = (n) => `Received bad result retrieving output value: "${n}".`;

test('a complete directory is valid: (undefined, undefined)', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir);
  const [error, result] = await callOnce(addon.isValidChartDirectory, dir);
  assert.equal(error, undefined);
  assert.equal(result, undefined);
});

test('a directory without its tables reports the library message', async (t) => {
  const dir = tempDir(t);
  const [error, result] = await callOnce(addon.isValidChartDirectory, dir);
  assert.ok(error instanceof Error);
  assert.equal(error.message, bad('Missing file charts.ini'));
  assert.equal(result, undefined);
});

test('a pending update and an unfinished merge are reported', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir);
  fs.writeFileSync(path.join(dir, 'chartsNEW.dbf'), '');
  let [error] = await callOnce(addon.isValidChartDirectory, dir);
  assert.equal(error.message, bad('The "NEW" file indicates that a merge did not completely finish.'));
  fs.unlinkSync(path.join(dir, 'chartsNEW.dbf'));
  for (const name of sample.IFR_FILES.slice(0, 3)) fs.writeFileSync(path.join(dir, name), '');
  [error] = await callOnce(addon.isValidChartDirectory, dir);
  assert.equal(error.message,
    bad('Missing one or more of airports.dbf, charts.bin, charts.dbf, notams.dbf, notams.dbt'));
});

test('validity checks running at once never mix their messages', async (t) => {
  const dirs = [];
  for (let i = 0; i < 24; i++) {
    const dir = tempDir(t);
    writeMinimalDirectory(dir);
    const missing = sample.REQUIRED_FILES[i % sample.REQUIRED_FILES.length];
    fs.unlinkSync(path.join(dir, missing));
    dirs.push([dir, missing]);
  }
  const results = await Promise.all(dirs.map(([dir]) => callOnce(addon.isValidChartDirectory, dir)));
  results.forEach(([error], i) => assert.equal(error.message, bad(`Missing file ${dirs[i][1]}`)));
});

test('cycleNumber: a non-empty cycle fails the size query, as the library answers', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir, { cycle: '2401' });
  const [error, text] = await callOnce(addon.cycleNumber, dir);
  assert.equal(error.message, badValue(-5));
  assert.equal(text, undefined);
});

test('cycleNumber: an empty cycle value gives an empty string', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir);
  fs.writeFileSync(path.join(dir, 'revision.txt'), 'Cycle=\r\n');
  const [error, text] = await callOnce(addon.cycleNumber, dir);
  assert.equal(error, undefined);
  assert.equal(text, '');
});

test('cycleNumber: a missing revision.txt reports the fill call\'s code', async (t) => {
  const dir = tempDir(t);
  const [error, text] = await callOnce(addon.cycleNumber, dir);
  assert.equal(error.message, badValue(-1));
  assert.notEqual(error.message, badSize(-1));
  assert.equal(text, undefined);
});

test('cycleNumber: a revision.txt without the key gives -4', async (t) => {
  const dir = tempDir(t);
  fs.writeFileSync(path.join(dir, 'revision.txt'), 'Revision=7\r\n');
  const [error] = await callOnce(addon.cycleNumber, dir);
  assert.equal(error.message, badValue(-4));
});

test('cycleNumberDisplay: a sound directory gets -5 from the size query', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir);
  const [error, text] = await callOnce(addon.cycleNumberDisplay, dir);
  assert.equal(error.message, badValue(-5));
  assert.equal(text, undefined);
});

test('cycleNumberDisplay: charts.ini without the key or with a non-number', async (t) => {
  const dir = tempDir(t);
  fs.writeFileSync(path.join(dir, 'charts.ini'), '[Database]\r\n');
  let [error] = await callOnce(addon.cycleNumberDisplay, dir);
  assert.equal(error.message, badValue(-4));
  fs.writeFileSync(path.join(dir, 'charts.ini'), 'Database_Begin_Date=soon\r\n');
  [error] = await callOnce(addon.cycleNumberDisplay, dir);
  assert.equal(error.message, badValue(-5));
  fs.unlinkSync(path.join(dir, 'charts.ini'));
  [error] = await callOnce(addon.cycleNumberDisplay, dir);
  assert.equal(error.message, badValue(-1));
});

test('coverageInfo: a non-empty text is reported through its length', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir, { coverage: 'US1 EUR' });
  const [error, text] = await callOnce(addon.coverageInfo, dir);
  assert.equal(error.message, badValue('United States, Europe'.length + 1));
  assert.equal(text, undefined);
});

test('coverageInfo: no matching code succeeds with an empty string', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir, { coverage: 'XXX' });
  const [error, text] = await callOnce(addon.coverageInfo, dir);
  assert.equal(error, undefined);
  assert.equal(text, '');
});

test('coverageInfo: failures of the coverage files', async (t) => {
  const dir = tempDir(t);
  let [error] = await callOnce(addon.coverageInfo, dir);
  assert.equal(error.message, badValue(-1));
  sample.writeBytes(path.join(dir, 'regions.dat'),
    sample.regionsDat([{ key: 1, code: 'US1', description: 'A' }]));
  [error] = await callOnce(addon.coverageInfo, dir);
  assert.equal(error.message, badValue(-2));
  fs.writeFileSync(path.join(dir, 'coverages.txt'), '\n');
  [error] = await callOnce(addon.coverageInfo, dir);
  assert.equal(error.message, badValue(-3));
  fs.writeFileSync(path.join(dir, 'regions.dat'), '');
  fs.writeFileSync(path.join(dir, 'coverages.txt'), 'US1');
  const [error2, text] = await callOnce(addon.coverageInfo, dir);
  assert.equal(error2, undefined);
  assert.equal(text, '');
});
