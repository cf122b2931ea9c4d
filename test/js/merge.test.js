'use strict';
// merge through JavaScript: progress reports, the final call and the error shape.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { addon, sample, tempDir } = require('./helpers');

// The least a directory needs for a merge to finish: a coverage, the region
// catalogue, the coverage and link tables, and update bundles.
function writeMergeDirectory(dir, updates) {
  sample.writeBytes(path.join(dir, 'coverages.txt'), 'US1\r\n');
  sample.writeBytes(path.join(dir, 'regions.dat'),
    sample.regionsDat([{ key: 100, code: 'US1', description: 'United States' }]));
  const fields = [{ name: 'KEY', type: 'C', length: 10 }, { name: 'F5_6', type: 'C', length: 8 }];
  fs.writeFileSync(path.join(dir, 'coverags.dbf'), sample.dbfTable({ fields, records: [] }));
  fs.writeFileSync(path.join(dir, 'chrtlink.dbf'),
    sample.dbfTable({ fields: [{ name: 'F5_6', type: 'C', length: 8 }], records: [] }));
  fs.writeFileSync(path.join(dir, 'crcfiles.txt'), 'chrtlink.dbf,0x1\r\n');
  for (let i = 0; i < updates; i++) {
    sample.writeChartsBin(path.join(dir, `u${String(i).padStart(4, '0')}_charts.bin`), {
      julianDate: '2460001.5',
      entries: [{ name: `CHART${i}.PDF`, data: Buffer.alloc(64 + i, i & 0xff), key: i }],
    });
  }
}

// Runs a merge and collects every callback call's arguments until the final one.
function runMerge(dir, { busyMs = 0 } = {}) {
  return new Promise((resolve, reject) => {
    const calls = [];
    let returned = false;
    let finished = false;
    addon.merge(dir, (...args) => {
      if (!returned) reject(new Error('callback ran synchronously'));
      if (finished) reject(new Error('a call after the final one'));
      calls.push(args);
      if (args[0] !== undefined || args[1] === true) {
        finished = true;
        setTimeout(() => resolve(calls), 100);  // room for any stray call to show
      }
    });
    returned = true;
    if (busyMs) {
      const until = Date.now() + busyMs;
      while (Date.now() < until) { /* keep the JavaScript thread busy */ }
    }
  });
}

test('a merge reports progress, then finishes with (undefined, true, undefined)', async (t) => {
  const dir = tempDir(t);
  writeMergeDirectory(dir, 2);
  const calls = await runMerge(dir);
  const last = calls[calls.length - 1];
  assert.deepEqual(last, [undefined, true, undefined]);
  assert.equal(last.length, 3);
  const progress = calls.slice(0, -1);
  assert.ok(progress.length >= 1);
  for (const call of progress) {
    assert.equal(call.length, 3);
    assert.equal(call[0], undefined);
    assert.equal(call[1], undefined);
    assert.equal(typeof call[2], 'number');
  }
  // Reports the JavaScript thread has not yet taken are replaced by newer
  // ones, so a fast merge may skip its 0; the order always holds.
  const values = progress.map((call) => call[2]);
  for (let i = 1; i < values.length; i++) assert.ok(values[i] >= values[i - 1]);
  assert.equal(values[values.length - 1], 100);
  assert.ok(fs.existsSync(path.join(dir, 'charts.bin')));
  assert.ok(!fs.readdirSync(dir).some((name) => name.endsWith('_charts.bin')));
});

test('a failing merge calls back once with two arguments and no progress', async (t) => {
  const dir = tempDir(t);
  const calls = await runMerge(dir);
  assert.equal(calls.length, 1);
  assert.equal(calls[0].length, 2);
  assert.ok(calls[0][0] instanceof Error);
  assert.equal(calls[0][0].message, 'Received bad result: "-1".');
  assert.equal(calls[0][1], undefined);
});

test('a merge that fails after reporting ends with the error shape', async (t) => {
  const dir = tempDir(t);
  writeMergeDirectory(dir, 1);
  fs.unlinkSync(path.join(dir, 'chrtlink.dbf'));  // the table phase fails
  const calls = await runMerge(dir);
  const last = calls[calls.length - 1];
  assert.equal(last.length, 2);
  assert.equal(last[0].message, 'Received bad result: "-9".');
  assert.ok(calls.length >= 2);
  for (const call of calls.slice(0, -1)) {
    assert.equal(call.length, 3);
    assert.ok([0, 90].includes(call[2]));
  }
  assert.ok(fs.existsSync(path.join(dir, 'u0000_charts.bin')) || fs.existsSync(path.join(dir, 'charts.bin')));
});

test('a merge with no update reports -4 after its first report', async (t) => {
  const dir = tempDir(t);
  writeMergeDirectory(dir, 0);
  const calls = await runMerge(dir);
  assert.deepEqual(calls[0], [undefined, undefined, 0]);
  assert.equal(calls[1][0].message, 'Received bad result: "-4".');
  assert.equal(calls[1].length, 2);
  assert.equal(calls.length, 2);
});

test('reports sent while JavaScript is busy are coalesced, newest last', async (t) => {
  const dir = tempDir(t);
  const updates = 150;
  writeMergeDirectory(dir, updates);
  const calls = await runMerge(dir, { busyMs: 1500 });
  const progress = calls.slice(0, -1).map((call) => call[2]);
  assert.deepEqual(calls[calls.length - 1], [undefined, true, undefined]);
  // The library reports 0, once per update and 100 at the end.
  assert.ok(progress.length < updates + 2, `${progress.length} progress calls`);
  for (let i = 1; i < progress.length; i++) assert.ok(progress[i] >= progress[i - 1]);
  assert.equal(progress[progress.length - 1], 100);
});

test('merge checks its arguments', () => {
  assert.throws(() => addon.merge('/tmp'), { name: 'TypeError', message: 'Wrong number of arguments.' });
  assert.throws(() => addon.merge(1, () => {}), { name: 'TypeError', message: 'Wrong argument type.' });
});
