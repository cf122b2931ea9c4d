'use strict';
// subsetCharts through JavaScript.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { addon, sample, tempDir, callOnce } = require('./helpers');

const AIRPORT_FIELDS = [
  { name: 'F5_6', type: 'C', length: 4 }, { name: 'J5_3', type: 'C', length: 2 },
  { name: 'F5_36', type: 'C', length: 9 }, { name: 'F5_37', type: 'C', length: 10 },
  { name: 'F5_54', type: 'N', length: 5 }, { name: 'CHRT_IDX', type: 'C', length: 6 },
  { name: 'CLNK_IDX', type: 'C', length: 6 },
];
const CHART_FIELDS = [
  { name: 'F5_6', type: 'C', length: 4 }, { name: 'INDEX_NO', type: 'C', length: 6 },
  { name: 'FILENAM_BA', type: 'C', length: 25 },
];
const COVERAGE_FIELDS = [{ name: 'KEY', type: 'C', length: 10 }, { name: 'F5_6', type: 'C', length: 4 }];
const NOTAM_FIELDS = [
  { name: 'F5_6', type: 'C', length: 4 }, { name: 'J5_3', type: 'C', length: 2 },
  { name: 'TEXT', type: 'M', length: 10 },
];

// A source directory with two IFR airports at latitude 40.5: KIN at
// longitude 10.5 and KOUT at -100, one chart each, and no VFR data.
function writeSource(dir) {
  const write = (name, bytes) => sample.writeBytes(path.join(dir, name), bytes);
  for (const name of ['charts.ini', 'country.dbf', 'ctypes.dbf', 'tarnwick.tfl', 'tarnwick.tls',
    'lssdef.tcl', 'sbscrips.dbf', 'state.dbf', 'revision.txt']) write(name, `contents of ${name}`);
  write('regions.dat', sample.regionsDat([
    { key: 100, code: 'US1', description: 'IFR' },
    { key: 600, code: 'US16', description: 'VFR' },
  ]));
  write('coverags.dbf', sample.dbfTable({ fields: COVERAGE_FIELDS, records: [['100', 'KIN']] }));
  write('airports.dbf', sample.dbfTable({
    fields: AIRPORT_FIELDS,
    records: [['KIN', 'US', 'N40300000', 'E010300000', '0', '9', '9'],
      ['KOUT', 'US', 'N40300000', 'W100000000', '0', '9', '9']],
  }));
  write('charts.dbf', sample.dbfTable({
    fields: CHART_FIELDS, records: [['KIN', '10-1', 'IN1'], ['KOUT', '10-1', 'OUT1']],
  }));
  write('chrtlink.dbf', sample.dbfTable({ fields: CHART_FIELDS.slice(0, 1), records: [['KIN'], ['KOUT']] }));
  const memo = sample.dbtFile(['notam in', 'notam out']);
  write('notams.dbt', memo.bytes);
  write('notams.dbf', sample.dbfTable({
    fields: NOTAM_FIELDS,
    records: [['KIN', 'US', String(memo.blocks[0])], ['KOUT', 'US', String(memo.blocks[1])]],
  }));
  write('crcfiles.txt', 'charts.dbf,0x1\r\nairports.dbf,0x1\r\n');
  sample.writeChartsBin(path.join(dir, 'charts.bin'), {
    entries: [
      { name: 'IN1.PDF', data: Buffer.from('chart in'), key: 1 },
      { name: 'OUT1.PDF', data: Buffer.from('chart out'), key: 2 },
    ],
  });
}

function directories(t) {
  const source = tempDir(t);
  const destination = tempDir(t);
  writeSource(source);
  return { source, destination };
}

function keptCharts(destination) {
  const bundle = sample.readChartsBin(path.join(destination, 'charts.bin'));
  assert.equal(bundle.crc, sample.bundleCrc(fs.readFileSync(path.join(destination, 'charts.bin'))));
  return bundle.entries.map((e) => e.name);
}

test('subsetCharts cuts a directory and calls back (undefined, undefined)', async (t) => {
  const { source, destination } = directories(t);
  const args = await callOnce(addon.subsetCharts, source, destination, 50.5, 10.25, 40.25, 10.75);
  assert.deepEqual(args, [undefined, undefined]);
  assert.equal(args.length, 2);
  assert.deepEqual(keptCharts(destination), ['IN1.PDF']);
  assert.equal(fs.readFileSync(path.join(destination, 'charts.ini'), 'latin1'), 'contents of charts.ini');
  assert.ok(!fs.existsSync(path.join(destination, 'revision.txt')));
});

test('the four numbers reach the library as doubles, in order', async (t) => {
  // Whole numbers would make west equal east (no box: KOUT kept too);
  // west and east swapped would make a box across the 180th meridian that
  // keeps KOUT and drops KIN; north and south swapped would select nothing.
  const swapped = directories(t);
  await callOnce(addon.subsetCharts, swapped.source, swapped.destination, 50.5, 10.75, 40.25, 10.25);
  assert.deepEqual(keptCharts(swapped.destination), ['OUT1.PDF']);

  const whole = directories(t);
  await callOnce(addon.subsetCharts, whole.source, whole.destination, 50, 10, 40, 10);
  assert.deepEqual(keptCharts(whole.destination), ['IN1.PDF', 'OUT1.PDF']);

  const upsideDown = directories(t);
  const [error] = await callOnce(addon.subsetCharts, upsideDown.source, upsideDown.destination,
    40.25, 10.25, 50.5, 10.75);
  assert.equal(error.message, 'Received bad result: "-3".');
});

test('a failing subset calls back with the error and undefined', async (t) => {
  const { source, destination } = directories(t);
  fs.rmSync(path.join(source, 'coverags.dbf'));
  const args = await callOnce(addon.subsetCharts, source, destination, 50.5, 10.25, 40.25, 10.75);
  assert.equal(args.length, 2);
  assert.ok(args[0] instanceof Error);
  assert.equal(args[0].message, 'Received bad result: "-1".');
  assert.equal(args[1], undefined);
  // The fixed files were copied all the same.
  assert.ok(fs.existsSync(path.join(destination, 'charts.ini')));
});

test('a missing destination directory is a failure, not a throw', async (t) => {
  const { source, destination } = directories(t);
  const [error] = await callOnce(addon.subsetCharts, source, path.join(destination, 'none'),
    50.5, 10.25, 40.25, 10.75);
  assert.equal(error.message, 'Received bad result: "-2".');
});

test('subsetCharts takes exactly seven arguments of fixed types', async () => {
  let called = 0;
  const callback = () => { called++; };
  const count = { name: 'TypeError', message: 'Wrong number of arguments.' };
  const type = { name: 'TypeError', message: 'Wrong argument type.' };
  assert.throws(() => addon.subsetCharts('a', 'b', 1, 2, 3, callback), count);
  assert.throws(() => addon.subsetCharts('a', 'b', 1, 2, 3, 4, callback, 5), count);
  assert.throws(() => addon.subsetCharts('a', 'b', '1', 2, 3, 4, callback), type);
  assert.throws(() => addon.subsetCharts('a', 'b', 1, 2, 3, 4n, callback), type);
  assert.throws(() => addon.subsetCharts('a', 2, 1, 2, 3, 4, callback), type);
  assert.throws(() => addon.subsetCharts('a', 'b', 1, 2, 3, 4, 'callback'), type);
  await new Promise((resolve) => setTimeout(resolve, 20));
  assert.equal(called, 0);
});

test('subsetCharts is the last export', () => {
  const names = Object.keys(addon);
  assert.equal(names[names.length - 1], 'subsetCharts');
  assert.ok(names.indexOf('libraryVersion') < names.indexOf('subsetCharts'));
});
