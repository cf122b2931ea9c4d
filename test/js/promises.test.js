'use strict';
// The promise API: what each function resolves with, and its rejections
// with the library's code and its meaning.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { addon, sample, tempDir, writeMinimalDirectory } = require('./helpers');
const termchart = require('tarn-termchart/promises');
const codes = require('../../lib/codes');

const { TarnTermChartError } = termchart;

// Asserts a rejection with a TarnTermChartError of this operation and result.
async function rejectsWith(promise, operation, result, meaning) {
  await assert.rejects(promise, (error) => {
    assert.ok(error instanceof TarnTermChartError, error.stack);
    assert.ok(error instanceof Error);
    assert.equal(error.name, 'TarnTermChartError');
    assert.equal(error.operation, operation);
    assert.equal(error.result, result);
    assert.equal(error.code, codes.codeOf(operation, result));
    assert.match(error.code, /^ERR_TARN_[A-Z_]+$/);
    assert.equal(error.meaning, codes.describe(operation, result));
    if (meaning) assert.match(error.meaning, meaning);
    assert.ok(error.message.includes(error.meaning));
    assert.match(error.libraryMessage, /^Received bad result/);
    return true;
  });
}

test('the package exports the promise API beside the plain loader', () => {
  assert.equal(require('tarn-termchart'), addon);
  assert.equal(require('tarn-termchart/promises'), require('../../promises.js'));
  for (const name of codes.OPERATIONS) assert.equal(typeof termchart[name], 'function', name);
  assert.equal(require('tarn-termchart/package.json').name, 'tarn-termchart');
});

test('every function returns a promise', async () => {
  const calls = [termchart.libraryVersion(), termchart.isValidChartDirectory('/nonexistent/x'),
    termchart.cycleNumber('/nonexistent/x')];
  for (const call of calls) assert.ok(call instanceof Promise);
  assert.equal(await calls[0], '9.9');
  await Promise.allSettled(calls);
});

test('isValidChartDirectory resolves for a valid directory and rejects with the message as code', async (t) => {
  const dir = tempDir(t);
  sample.generate(dir, { seed: 1 });
  assert.equal(await termchart.isValidChartDirectory(dir), undefined);
  fs.writeFileSync(path.join(dir, '2514_charts.bin'), 'x');
  await rejectsWith(termchart.isValidChartDirectory(dir), 'isValidChartDirectory',
    'The _charts.bin file indicates that a merge is needed, or did not completely finish.', /merge/);
  fs.rmSync(path.join(dir, '2514_charts.bin'));
  fs.rmSync(path.join(dir, 'notams.dbt'));
  await rejectsWith(termchart.isValidChartDirectory(dir), 'isValidChartDirectory',
    'Missing one or more of airports.dbf, charts.bin, charts.dbf, notams.dbf, notams.dbt', /all or none/);
  await rejectsWith(termchart.isValidChartDirectory(tempDir(t)), 'isValidChartDirectory',
    'Missing file charts.ini', /lacks charts\.ini/);
});

test('cycleNumber and cycleNumberDisplay resolve with the whole cycle and label', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir, { cycle: '2513' });
  assert.equal(await termchart.cycleNumber(dir), '2513');
  // 2460310.5 is 1 January 2024; a fortnight later the second period begins.
  fs.writeFileSync(path.join(dir, 'charts.ini'), '[Database]\r\nDatabase_Begin_Date=2460324.5\r\n');
  assert.equal(await termchart.cycleNumberDisplay(dir), '02-2024');
  fs.writeFileSync(path.join(dir, 'charts.ini'), 'Database_Begin_Date=x\r\n');
  assert.equal(await termchart.cycleNumberDisplay(dir), '01--4712');
  // Only a final LF then CR is taken off; a value longer than any first
  // buffer comes whole.
  fs.writeFileSync(path.join(dir, 'revision.txt'), 'Cycle=2401\n\r');
  assert.equal(await termchart.cycleNumber(dir), '2401\n');
  const long = 'C'.repeat(100000);
  fs.writeFileSync(path.join(dir, 'revision.txt'), `[Revision]\r\nCycle=${long}\r\n`);
  assert.equal(await termchart.cycleNumber(dir), long);
  fs.writeFileSync(path.join(dir, 'revision.txt'), 'Cycle=\r\n');
  assert.equal(await termchart.cycleNumber(dir), '');
  fs.writeFileSync(path.join(dir, 'revision.txt'), 'Revision\r\n');
  await rejectsWith(termchart.cycleNumber(dir), 'cycleNumber', -4, /"Cycle="/);
  fs.writeFileSync(path.join(dir, 'charts.ini'), '[Database]\r\n');
  await rejectsWith(termchart.cycleNumberDisplay(dir), 'cycleNumberDisplay', -4, /Database_Begin_Date/);
  const empty = tempDir(t);
  await rejectsWith(termchart.cycleNumber(empty), 'cycleNumber', -1, /missing or empty/);
  await rejectsWith(termchart.cycleNumberDisplay(empty), 'cycleNumberDisplay', -1, /charts\.ini/);
});

test('coverageInfo resolves with the regions\' names, and rejects -1 to -3', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir, {
    regions: [{ key: 1, code: 'US1', description: 'Alpha' }, { key: 2, code: 'EU1', description: 'Beta' }],
    coverage: 'US1 EU1',
  });
  assert.equal(await termchart.coverageInfo(dir), 'Alpha, Beta');
  fs.writeFileSync(path.join(dir, 'coverages.txt'), 'eu1 US1 EU1\r\n');
  assert.equal(await termchart.coverageInfo(dir), 'Beta, Alpha, Beta');
  fs.writeFileSync(path.join(dir, 'coverages.txt'), 'XX1\r\n');
  assert.equal(await termchart.coverageInfo(dir), '');
  fs.writeFileSync(path.join(dir, 'coverages.txt'), '\n');
  await rejectsWith(termchart.coverageInfo(dir), 'coverageInfo', -3, /no service code/);
  fs.rmSync(path.join(dir, 'coverages.txt'));
  await rejectsWith(termchart.coverageInfo(dir), 'coverageInfo', -2, /coverages\.txt/);
  fs.rmSync(path.join(dir, 'regions.dat'));
  await rejectsWith(termchart.coverageInfo(dir), 'coverageInfo', -1, /regions\.dat/);
});

test('dumpDbf and dumpChartsBin resolve with their counts, 0 included', async (t) => {
  const dir = tempDir(t);
  const table = path.join(dir, 't.dbf');
  const fields = [{ name: 'F5_6', type: 'C', length: 4 }];
  fs.writeFileSync(table, sample.dbfTable({ fields, records: [['KAAA'], ['KBBB'], sample.deleted(['KCCC'])] }));
  assert.equal(await termchart.dumpDbf(table, path.join(dir, 't.txt')), 3);
  fs.writeFileSync(table, sample.dbfTable({ fields, records: [] }));
  assert.equal(await termchart.dumpDbf(table, path.join(dir, 't.txt')), 0);
  const bundle = path.join(dir, 'charts.bin');
  sample.writeChartsBin(bundle, { entries: [{ name: 'A.PDF', data: 'aa' }, { name: 'B.PDF', data: 'b' }] });
  assert.equal(await termchart.dumpChartsBin(bundle, path.join(dir, 'c.txt'), 1, 1), 2);
  assert.equal(await termchart.dumpChartsBin(bundle, path.join(dir, 'c.txt'), true, false), 2);
  assert.match(fs.readFileSync(path.join(dir, 'c.txt'), 'latin1'), /A\.PDF\t0000000002\t0000000000\t000\t000\t0000000027\r\n/);
  assert.equal(await termchart.dumpChartsBin(bundle, path.join(dir, 'c.txt')), 2);
  sample.writeChartsBin(bundle, { entries: [] });
  assert.equal(await termchart.dumpChartsBin(bundle, path.join(dir, 'c.txt'), 0, 0), 0);
});

test('dumpDbf and dumpChartsBin reject with the library codes in words', async (t) => {
  const dir = tempDir(t);
  await rejectsWith(termchart.dumpDbf(path.join(dir, 'none.dbf'), path.join(dir, 'x.txt')), 'dumpDbf', -1, /cannot be opened/);
  const table = path.join(dir, 't.dbf');
  fs.writeFileSync(table, sample.dbfTable({ fields: [{ name: 'A', type: 'C', length: 1 }] }));
  await rejectsWith(termchart.dumpDbf(table, path.join(dir, 'no', 'x.txt')), 'dumpDbf', -2, /output/);
  const bundle = path.join(dir, 'charts.bin');
  await rejectsWith(termchart.dumpChartsBin(bundle, path.join(dir, 'x.txt'), 0, 0), 'dumpChartsBin', -1);
  fs.writeFileSync(bundle, 'short');
  await rejectsWith(termchart.dumpChartsBin(bundle, path.join(dir, 'x.txt'), 0, 0), 'dumpChartsBin', -2, /header/);
  sample.writeChartsBin(bundle, { entries: [{ name: 'A.PDF', data: 'aa' }] });
  await rejectsWith(termchart.dumpChartsBin(bundle, path.join(dir, 'no', 'x.txt'), 0, 0), 'dumpChartsBin', -3);
  sample.writeChartsBin(bundle, { entries: [{ name: 'A.PDF', data: 'aa', size: 1000 }] });
  await rejectsWith(termchart.dumpChartsBin(bundle, path.join(dir, 'x.txt'), 0, 1), 'dumpChartsBin', -6, /past the end/);
});

test('a wrong argument rejects with the binding\'s TypeError', async () => {
  await assert.rejects(termchart.cycleNumber(42), { name: 'TypeError', message: 'Wrong argument type.' });
  await assert.rejects(termchart.dumpDbf('/a'), { name: 'TypeError', message: 'Wrong number of arguments.' });
  await assert.rejects(termchart.dumpChartsBin('/a', '/b', '1', 0), { name: 'TypeError', message: 'Wrong argument type.' });
});

test('the code tables read the binding\'s messages', () => {
  assert.deepEqual(codes.parseMessage('Received bad result: "-4".'), { answer: -4, stage: undefined });
  assert.deepEqual(codes.parseMessage('Received bad result retrieving output value: "192".'),
    { answer: 192, stage: 'output value' });
  assert.deepEqual(codes.parseMessage('Received bad result: "Missing file state.dbf".'),
    { answer: 'Missing file state.dbf', stage: undefined });
  assert.equal(codes.parseMessage('Wrong argument type.'), undefined);
  for (let code = -1; code >= -9; code--) assert.ok(codes.MEANINGS.merge[code], `merge ${code}`);
  for (let code = -1; code >= -10; code--) {
    assert.ok(codes.MEANINGS.subsetCharts[code], `subset ${code}`);
    assert.ok(codes.MEANINGS.combineVFRinfoIFR[code], `combine ${code}`);
  }
  assert.match(codes.describe('subsetCharts', -1), /does not tell which/);
  assert.match(codes.describe('merge', -42), /does not document/);
  assert.match(codes.describe('isValidChartDirectory', 'The "NEW" file indicates that a merge did not completely finish.'),
    /stopped halfway/);
});

test('merge resolves after its progress reports, and rejects with its code', async (t) => {
  const dir = tempDir(t);
  const summary = sample.generate(dir, { seed: 21, updates: 1 });
  const reports = [];
  assert.equal(await termchart.merge(dir, { onProgress: (p) => reports.push(p) }), undefined);
  // Reports that come faster than JavaScript takes them are coalesced, so
  // only the last one, 100, is sure to arrive.
  assert.equal(reports[reports.length - 1], 100);
  for (let i = 1; i < reports.length; i++) assert.ok(reports[i] >= reports[i - 1] && reports[i - 1] >= 0);
  await termchart.isValidChartDirectory(dir);
  for (const name of ['charts.bin', 'vfrcharts.bin']) {
    const bundle = sample.readChartsBinTable(path.join(dir, name));
    assert.equal(bundle.fileCount, summary.afterMerge[name]);
    assert.equal(bundle.crc, sample.fileTarnCrc(path.join(dir, name), 4));
    assert.equal(bundle.julianDate, summary.updateBundles[0].julianDate);
  }
  for (const line of fs.readFileSync(path.join(dir, 'crcfiles.txt'), 'latin1').split('\r\n').filter(Boolean)) {
    const [name, value] = line.split(',');
    assert.equal(Number(value), sample.fileTarnCrc(path.join(dir, name)), name);
  }
  await rejectsWith(termchart.merge(dir), 'merge', -4, /no update bundle/);
  fs.rmSync(path.join(dir, 'coverages.txt'));
  await rejectsWith(termchart.merge(dir, { onProgress: () => assert.fail('no progress before -1') }), 'merge', -1);
});

test('merge rejects with what onProgress threw, once the merge has run to its end', async (t) => {
  const dir = tempDir(t);
  sample.generate(dir, { seed: 22, updates: 1 });
  const thrown = new Error('no more progress, please');
  await assert.rejects(termchart.merge(dir, { onProgress: () => { throw thrown; } }), (e) => e === thrown);
  await termchart.isValidChartDirectory(dir);
});

test('subsetCharts resolves, and rejects with a code that may name two causes', async (t) => {
  const dir = tempDir(t);
  const summary = sample.generate(dir, { seed: 23 });
  const box = summary.box;
  const destination = tempDir(t);
  await termchart.subsetCharts(dir, destination, box.north, box.west, box.south, box.east);
  assert.ok(fs.existsSync(path.join(destination, 'coverags.dbf')));
  await rejectsWith(termchart.subsetCharts(tempDir(t), tempDir(t), 1, 2, 0, 3), 'subsetCharts', -1, /does not tell which/);
  // A box over the open sea selects no airport.
  await rejectsWith(termchart.subsetCharts(dir, tempDir(t), -60, -40, -61, -39), 'subsetCharts', -3, /no airport/);
});

test('combineVFRinfoIFR resolves, and rejects with a code that may name several causes', async (t) => {
  const dir = tempDir(t);
  sample.generate(dir, { seed: 24 });
  const destination = tempDir(t);
  await termchart.combineVFRinfoIFR(dir, destination);
  assert.ok(fs.existsSync(path.join(destination, 'charts.bin')));
  await rejectsWith(termchart.combineVFRinfoIFR(tempDir(t), tempDir(t)), 'combineVFRinfoIFR', -1, /neither/);
});

test('docs/api.md lists every error code', () => {
  const text = fs.readFileSync(path.join(__dirname, '..', '..', 'docs', 'api.md'), 'utf8');
  let listed = 0;
  for (const [operation, names] of Object.entries(codes.NAMES)) {
    for (const key of Object.keys(names)) {
      const code = codes.codeOf(operation, key === 'count' ? 1 : Number(key));
      assert.ok(text.includes(`\`${code}\``), code);
      listed++;
    }
  }
  for (const [, , name] of codes.VALIDATION) {
    assert.ok(text.includes(`\`ERR_TARN_IS_VALID_CHART_DIRECTORY_${name}\``), name);
    listed++;
  }
  assert.ok(listed > 60);
});

test('codeOf names every result, the undocumented ones too', () => {
  assert.equal(codes.codeOf('merge', -4), 'ERR_TARN_MERGE_NO_UPDATES');
  assert.equal(codes.codeOf('merge', -42), 'ERR_TARN_MERGE_UNDOCUMENTED_RESULT');
  assert.equal(codes.codeOf('merge', 3), 'ERR_TARN_MERGE_UNDOCUMENTED_RESULT');
  assert.equal(codes.codeOf('dumpChartsBin', 7), 'ERR_TARN_DUMP_CHARTS_BIN_FILE_COUNT');
  assert.equal(codes.codeOf('coverageInfo', 12), 'ERR_TARN_COVERAGE_INFO_TEXT_LENGTH');
  assert.equal(codes.codeOf('isValidChartDirectory', 'The "NEW" file indicates that a merge did not completely finish.'),
    'ERR_TARN_IS_VALID_CHART_DIRECTORY_MERGE_UNFINISHED');
  assert.equal(codes.codeOf('isValidChartDirectory', 'Something else'), 'ERR_TARN_IS_VALID_CHART_DIRECTORY_NOT_VALID');
  assert.equal(codes.codeOf('subsetCharts', '-3'), 'ERR_TARN_SUBSET_CHARTS_UNDOCUMENTED_RESULT');
  const all = new Set();
  for (const [operation, names] of Object.entries(codes.NAMES)) {
    for (const key of Object.keys(names)) all.add(codes.codeOf(operation, key === 'count' ? 1 : Number(key)));
  }
  for (const code of all) assert.match(code, /^ERR_TARN_[A-Z0-9_]+$/);
  assert.equal(all.size, Object.values(codes.NAMES).reduce((n, names) => n + Object.keys(names).length, 0));
});
