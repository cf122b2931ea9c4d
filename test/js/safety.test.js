'use strict';
// The binding's part in keeping chart data safe: strings cut at a NUL never
// reach the library, calls that write one directory run one after the
// other without tying up the pool, a destination is never its own source,
// and the new codes have words.
const test = require('node:test');
const assert = require('node:assert/strict');
const { spawn } = require('child_process');
const fs = require('fs');
const path = require('path');
const { addon, sample, tempDir, callOnce } = require('./helpers');
const { describe } = require('../../lib/codes');
const { tree } = require('../faults/sweep');

const WRONG_TYPE = { name: 'TypeError', message: 'Wrong argument type.' };

function mergeDone(dir) {
  return new Promise((resolve) => {
    addon.merge(dir, (...args) => {
      if (args[0] !== undefined || args[1] === true) resolve(args[0] ? args[0].message : 'done');
    });
  });
}

test('a string holding a NUL character is a wrong argument type, and nothing runs', (t) => {
  const dir = tempDir(t);
  sample.generate(dir, { seed: 3, scale: 1, updates: 1 });
  const before = tree(dir);
  let called = false;
  const callback = () => { called = true; };
  assert.throws(() => addon.combineVFRinfoIFR(dir, `${dir}\0x`, callback), WRONG_TYPE);
  assert.throws(() => addon.combineVFRinfoIFR(`${dir}\0`, dir, callback), WRONG_TYPE);
  assert.throws(() => addon.subsetCharts(dir, `${dir}\0/sub`, 90, -180, -90, 180, callback), WRONG_TYPE);
  assert.throws(() => addon.merge(`${dir}\0/elsewhere`, callback), WRONG_TYPE);
  assert.throws(() => addon.isValidChartDirectory(`${dir}\0`, callback), WRONG_TYPE);
  assert.throws(() => addon.dumpDbf(path.join(dir, 'charts.dbf'), `${dir}/out\0.txt`, callback), WRONG_TYPE);
  assert.throws(() => addon.cycleNumber(`\0`, callback), WRONG_TYPE);
  return new Promise((resolve) => setTimeout(resolve, 50)).then(() => {
    assert.equal(called, false);
    assert.deepEqual(tree(dir), before);
  });
});

test('the promise API rejects a NUL string with the same TypeError', async (t) => {
  const promises = require('../../promises');
  const dir = tempDir(t);
  await assert.rejects(promises.merge(`${dir}\0x`), WRONG_TYPE);
});

test('merges of one directory, made at once, run one after the other', async (t) => {
  const reference = tempDir(t);
  sample.generate(reference, { seed: 5, scale: 2, updates: 2 });
  assert.equal(await mergeDone(reference), 'done');
  const merged = tree(reference);
  for (let round = 0; round < 3; round++) {
    const dir = tempDir(t);
    sample.generate(dir, { seed: 5, scale: 2, updates: 2 });
    // Under several spellings of the same directory.
    const results = await Promise.all([dir, `${dir}/`, `${dir}/.`, dir, `${dir}//`, dir].map(mergeDone));
    assert.deepEqual(results.filter((r) => r === 'done').length, 1, results.join(', '));
    for (const r of results) assert.ok(r === 'done' || r === 'Received bad result: "-4".', r);
    assert.deepEqual(tree(dir), merged);
  }
});

test('waiting calls tie up no pool thread: other work runs while they wait', async (t) => {
  const dir = tempDir(t);
  sample.generate(dir, { seed: 6, scale: 4, updates: 2 });
  const other = tempDir(t);
  sample.generate(other, { seed: 7, scale: 1 });
  // More merges of one directory than the pool has threads, then a query
  // of another directory: it answers before the merges are all done.
  const order = [];
  const merges = [];
  for (let i = 0; i < 8; i++) merges.push(mergeDone(dir).then(() => order.push('merge')));
  const query = callOnce(addon.isValidChartDirectory, other).then(() => order.push('query'));
  await Promise.all([...merges, query]);
  assert.ok(order.indexOf('query') < order.length - 1, order.join(' '));
});

test('a subset reading a directory a merge writes sees it before or after the merge', async (t) => {
  const source = tempDir(t);
  sample.generate(source, { seed: 8, scale: 2, updates: 1 });
  const before = tempDir(t), after = tempDir(t);
  assert.deepEqual(await callOnce(addon.subsetCharts, source, before, 90, -180, -90, 180), [undefined, undefined]);
  const copy = tempDir(t);
  fs.cpSync(source, copy, { recursive: true });
  assert.equal(await mergeDone(copy), 'done');
  assert.deepEqual(await callOnce(addon.subsetCharts, copy, after, 90, -180, -90, 180), [undefined, undefined]);
  for (let round = 0; round < 3; round++) {
    const dir = tempDir(t), cut = tempDir(t);
    fs.cpSync(source, dir, { recursive: true });
    const [merged, subset] = await Promise.all([mergeDone(dir), callOnce(addon.subsetCharts, dir, cut, 90, -180, -90, 180)]);
    assert.equal(merged, 'done');
    assert.deepEqual(subset, [undefined, undefined]);
    const got = tree(cut);
    assert.ok(JSON.stringify(got) === JSON.stringify(tree(before)) || JSON.stringify(got) === JSON.stringify(tree(after)));
  }
});

test('two processes merging one directory at once: one merges, the other finds nothing to do', async (t) => {
  const dir = tempDir(t);
  sample.generate(dir, { seed: 9, scale: 2, updates: 2 });
  const script = `require(${JSON.stringify(path.join(__dirname, '..', '..'))}).merge(process.argv[1], (e, done) => {
    if (e) { console.log(e.message); } else if (done) { console.log('done'); } })`;
  const run = () => new Promise((resolve) => {
    const child = spawn(process.execPath, ['-e', script, dir]);
    let out = '';
    child.stdout.on('data', (d) => { out += d; });
    child.on('close', () => resolve(out.trim()));
  });
  const results = (await Promise.all([run(), run()])).sort();
  assert.deepEqual(results, ['Received bad result: "-4".', 'done']);
});

test('subset and combine into their own source: -12, nothing written', async (t) => {
  const dir = tempDir(t);
  sample.generate(dir, { seed: 4, scale: 1 });
  const before = tree(dir);
  for (const spelling of [dir, `${dir}/`, `${dir}/.`]) {
    const [subset] = await callOnce(addon.subsetCharts, dir, spelling, 90, -180, -90, 180);
    assert.equal(subset.message, 'Received bad result: "-12".');
    const [combine] = await callOnce(addon.combineVFRinfoIFR, spelling, dir);
    assert.equal(combine.message, 'Received bad result: "-12".');
  }
  assert.deepEqual(tree(dir), before);
});

test('the new codes have words', () => {
  assert.match(describe('merge', -10), /could not be finished/);
  assert.match(describe('subsetCharts', -11), /written whole/);
  assert.match(describe('subsetCharts', -12), /source directory itself/);
  assert.match(describe('combineVFRinfoIFR', -11), /written whole/);
  assert.match(describe('combineVFRinfoIFR', -12), /source directory itself/);
});
