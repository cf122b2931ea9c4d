'use strict';
// combineVFRinfoIFR through JavaScript: a combined directory, a failure and
// the argument checks.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { addon, sample, tempDir, callOnce, writeMinimalDirectory } = require('./helpers');

const CHART_FIELDS = [
  { name: 'F5_6', type: 'C', length: 5 },
  { name: 'FILENAM_BA', type: 'C', length: 12 },
];
const IFR_AIRPORT_FIELDS = [
  { name: 'F5_6', type: 'C', length: 5 },
  { name: 'ARPT_NAME', type: 'C', length: 20 },
  { name: 'CITY', type: 'C', length: 12 },
  { name: 'PRECISION', type: 'C', length: 1 },
  { name: 'CHRT_IDX', type: 'C', length: 6 },
  { name: 'CLNK_IDX', type: 'C', length: 6 },
];
const VFR_AIRPORT_FIELDS = [
  { name: 'F5_6', type: 'C', length: 5 },
  { name: 'ARPT_NAM_N', type: 'C', length: 20 },
  { name: 'CITY_NAM_N', type: 'C', length: 12 },
  { name: 'CHRT_IDX', type: 'C', length: 6 },
];
const NOTAM_FIELDS = [
  { name: 'TEXT', type: 'M', length: 10 },
  { name: 'J5_3', type: 'C', length: 3 },
  { name: 'F5_6', type: 'C', length: 5 },
  { name: 'INDEX_NO', type: 'C', length: 6 },
];

function write(dir, name, bytes) {
  sample.writeBytes(path.join(dir, name), bytes);
}

// A chart directory with IFR and VFR tables, memo files and bundles.
function writeSource(dir) {
  writeMinimalDirectory(dir);
  write(dir, 'crcfiles.txt', 'charts.dbf,0x1\r\n');
  write(dir, 'chrtlink.dbf', sample.dbfTable({ fields: CHART_FIELDS, records: [['KAAA', 'L1']] }));
  write(dir, 'charts.dbf', sample.dbfTable({ fields: CHART_FIELDS, records: [['KAAA', 'IA1']] }));
  write(dir, 'vfrchrts.dbf', sample.dbfTable({ fields: CHART_FIELDS, records: [['KBBB', 'VB1']] }));
  write(dir, 'airports.dbf', sample.dbfTable({
    fields: IFR_AIRPORT_FIELDS, records: [{ F5_6: 'KAAA', ARPT_NAME: 'Alpha', PRECISION: 'Y' }],
  }));
  write(dir, 'vfrapts.dbf', sample.dbfTable({
    fields: VFR_AIRPORT_FIELDS, records: [{ F5_6: 'KBBB', ARPT_NAM_N: 'Bravo', CITY_NAM_N: 'Bville' }],
  }));
  const ifrMemo = sample.dbtFile(['ifr notam']);
  const vfrMemo = sample.dbtFile(['vfr notam']);
  write(dir, 'notams.dbt', ifrMemo.bytes);
  write(dir, 'vfrntms.dbt', vfrMemo.bytes);
  write(dir, 'notams.dbf', sample.dbfTable({
    fields: NOTAM_FIELDS, records: [[ifrMemo.blocks[0], 'US', 'KAAA', 'I1']],
  }));
  write(dir, 'vfrntms.dbf', sample.dbfTable({
    fields: NOTAM_FIELDS, records: [[vfrMemo.blocks[0], 'US', 'KBBB', 'V1']],
  }));
  sample.writeChartsBin(path.join(dir, 'charts.bin'), {
    entries: [{ name: 'IA1.PDF', data: Buffer.from('ifr chart') }],
  });
  sample.writeChartsBin(path.join(dir, 'vfrcharts.bin'), {
    entries: [{ name: 'VB1.PDF', data: Buffer.from('vfr chart') }],
  });
}

test('combineVFRinfoIFR writes the combined directory and calls back (undefined, undefined)', async (t) => {
  const source = tempDir(t);
  const destination = tempDir(t);
  writeSource(source);
  const args = await callOnce(addon.combineVFRinfoIFR, source, destination);
  assert.deepEqual(args, [undefined, undefined]);

  const names = fs.readdirSync(destination);
  for (const name of sample.VFR_FILES) assert.ok(!names.includes(name), name);
  for (const name of sample.IFR_FILES) assert.ok(names.includes(name), name);

  const bundle = sample.readChartsBin(path.join(destination, 'charts.bin'));
  assert.deepEqual(bundle.entries.map((e) => [e.name, e.data.toString('latin1')]),
    [['IA1.PDF', 'ifr chart'], ['VB1.PDF', 'vfr chart']]);
  assert.equal(bundle.crc, sample.bundleCrc(fs.readFileSync(path.join(destination, 'charts.bin'))));

  // The merged memo file: the IFR memo blocks, then the VFR ones, then one end byte.
  const memo = fs.readFileSync(path.join(destination, 'notams.dbt'));
  assert.equal(memo.length, 4 * 512 + 1);
  assert.equal(memo[memo.length - 1], 0x1a);
});

test('combineVFRinfoIFR of a directory without bundles reports -1', async (t) => {
  const source = tempDir(t);
  const destination = tempDir(t);
  writeMinimalDirectory(source);
  const args = await callOnce(addon.combineVFRinfoIFR, source, destination);
  assert.equal(args.length, 2);
  assert.ok(args[0] instanceof Error);
  assert.equal(args[0].message, 'Received bad result: "-1".');
  assert.equal(args[1], undefined);
});

test('combineVFRinfoIFR checks its arguments before it starts anything', () => {
  let calls = 0;
  const callback = () => { calls++; };
  assert.throws(() => addon.combineVFRinfoIFR('/a', callback),
    { name: 'TypeError', message: 'Wrong number of arguments.' });
  assert.throws(() => addon.combineVFRinfoIFR('/a', '/b', callback, 1),
    { name: 'TypeError', message: 'Wrong number of arguments.' });
  assert.throws(() => addon.combineVFRinfoIFR('/a', 7, callback),
    { name: 'TypeError', message: 'Wrong argument type.' });
  assert.throws(() => addon.combineVFRinfoIFR('/a', '/b', '/c'),
    { name: 'TypeError', message: 'Wrong argument type.' });
  assert.equal(calls, 0);
});

test('combineVFRinfoIFR is the first export', () => {
  assert.equal(Object.keys(addon)[0], 'combineVFRinfoIFR');
  assert.ok(!('combineVFRintoIFR' in addon));
});
