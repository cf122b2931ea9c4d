'use strict';
// Registration, argument checking and the callback conventions.
const test = require('node:test');
const assert = require('node:assert/strict');
const { addon, tempDir, callOnce, writeMinimalDirectory } = require('./helpers');

const WRONG_COUNT = { name: 'TypeError', message: 'Wrong number of arguments.' };
const WRONG_TYPE = { name: 'TypeError', message: 'Wrong argument type.' };

// Every asynchronous function with its argument types in order.
const SIGNATURES = {
  combineVFRinfoIFR: ['string', 'string', 'function'],
  coverageInfo: ['string', 'function'],
  cycleNumber: ['string', 'function'],
  cycleNumberDisplay: ['string', 'function'],
  dumpChartsBin: ['string', 'string', 'number', 'number', 'function'],
  dumpDbf: ['string', 'string', 'function'],
  isValidChartDirectory: ['string', 'function'],
  merge: ['string', 'function'],
  subsetCharts: ['string', 'string', 'number', 'number', 'number', 'number', 'function'],
};
const PRESENT = Object.keys(SIGNATURES).filter((name) => name in addon);

const WRONG_VALUES = {
  number: 42,
  string: 'text',
  function: () => {},
  undefined: undefined,
  null: null,
  object: {},
};

function goodValue(type, calls) {
  if (type === 'string') return '/nonexistent/tarn-termchart';
  if (type === 'number') return 0;
  return () => { calls.count++; };
}

test('the exports hold the functions in the order of the function table', () => {
  const order = ['combineVFRinfoIFR', 'coverageInfo', 'cycleNumber', 'cycleNumberDisplay',
    'dumpChartsBin', 'dumpDbf', 'isValidChartDirectory', 'libraryVersion', 'merge',
    'subsetCharts'];
  const keys = Object.keys(addon);
  assert.deepEqual(keys, order.filter((name) => keys.includes(name)));
  for (const name of keys) assert.equal(typeof addon[name], 'function');
  for (const name of ['coverageInfo', 'cycleNumber', 'cycleNumberDisplay',
    'isValidChartDirectory', 'libraryVersion']) {
    assert.ok(keys.includes(name), name);
  }
});

test('libraryVersion answers 9.9 whatever it is given', () => {
  assert.equal(addon.libraryVersion(), '9.9');
  assert.equal(addon.libraryVersion(1, 2, 3), '9.9');
  assert.equal(addon.libraryVersion('x', null), '9.9');
});

for (const name of PRESENT) {
  const types = SIGNATURES[name];

  test(`${name}: a wrong argument count throws and never calls back`, async () => {
    const calls = { count: 0 };
    const good = types.map((type) => goodValue(type, calls));
    assert.throws(() => addon[name](...good.slice(0, -1)), WRONG_COUNT);
    assert.throws(() => addon[name](...good, 1), WRONG_COUNT);
    assert.throws(() => addon[name](), WRONG_COUNT);
    await new Promise((resolve) => setTimeout(resolve, 20));
    assert.equal(calls.count, 0);
  });

  test(`${name}: each position given each wrong type throws and never calls back`, async () => {
    const calls = { count: 0 };
    for (let position = 0; position < types.length; position++) {
      for (const [kind, value] of Object.entries(WRONG_VALUES)) {
        if (kind === types[position]) continue;
        const args = types.map((type) => goodValue(type, calls));
        args[position] = value;
        assert.throws(() => addon[name](...args), WRONG_TYPE, `${position} ${kind}`);
      }
    }
    await new Promise((resolve) => setTimeout(resolve, 20));
    assert.equal(calls.count, 0);
  });
}

test('a numeric string is not a number and a number is not a string', () => {
  assert.throws(() => addon.cycleNumber(5, () => {}), WRONG_TYPE);
  assert.throws(() => addon.cycleNumber('/tmp', 'callback'), WRONG_TYPE);
  if (addon.dumpChartsBin) {
    assert.throws(() => addon.dumpChartsBin('a', 'b', '1', 0, () => {}), WRONG_TYPE);
  }
});

test('the first wrong position decides, whatever follows', () => {
  assert.throws(() => addon.isValidChartDirectory(1, 2, 3), WRONG_COUNT);
  assert.throws(() => addon.isValidChartDirectory(1, 2), WRONG_TYPE);
});

test('a call that passes the checks calls back later with exactly two arguments', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir);
  for (const name of ['isValidChartDirectory', 'cycleNumber', 'cycleNumberDisplay',
    'coverageInfo']) {
    const args = await callOnce(addon[name], dir);
    assert.equal(args.length, 2, name);
  }
});

test('the callback is called exactly once', async (t) => {
  const dir = tempDir(t);
  writeMinimalDirectory(dir);
  let count = 0;
  await new Promise((resolve) => {
    addon.isValidChartDirectory(dir, () => { count++; setTimeout(resolve, 50); });
  });
  assert.equal(count, 1);
});

test('the package main is the addon\'s ten functions themselves, and nothing more', () => {
  const binding = require('../../lib/binding');
  const order = ['combineVFRinfoIFR', 'coverageInfo', 'cycleNumber', 'cycleNumberDisplay',
    'dumpChartsBin', 'dumpDbf', 'isValidChartDirectory', 'libraryVersion', 'merge',
    'subsetCharts'];
  assert.deepEqual(Object.keys(addon), order);
  for (const name of order) assert.equal(addon[name], binding[name], name);
  assert.equal(typeof binding.internals, 'object');
  assert.equal('internals' in addon, false);
});

// Each failure of the callback functions, its message as the binding has
// always written it, and the code, result and operation it now carries.
test('every callback failure carries a code, its result and its operation', async (t) => {
  const fs = require('fs');
  const path = require('path');
  const { sample } = require('./helpers');
  const codes = require('../../lib/codes');
  const dir = tempDir(t);
  writeMinimalDirectory(dir, { cycle: '2513' });
  const table = path.join(dir, 't.dbf');
  fs.writeFileSync(table, sample.dbfTable({ fields: [{ name: 'A', type: 'C', length: 1 }],
    records: Array.from({ length: 12 }, () => ['x']) }));
  const cases = [
    ['merge', [tempDir(t)], 'Received bad result: "-1".', -1, 'ERR_TARN_MERGE_NO_COVERAGES'],
    ['dumpDbf', [table, path.join(dir, 't.txt')], 'Received bad result: "12".', 12,
      'ERR_TARN_DUMP_DBF_RECORD_COUNT'],
    ['dumpDbf', [path.join(dir, 'none.dbf'), path.join(dir, 't.txt')], 'Received bad result: "-1".', -1,
      'ERR_TARN_DUMP_DBF_TABLE_UNREADABLE'],
    ['dumpChartsBin', [path.join(dir, 'none.bin'), path.join(dir, 'b.txt'), 0, 0],
      'Received bad result: "-1".', -1, 'ERR_TARN_DUMP_CHARTS_BIN_BUNDLE_UNREADABLE'],
    ['isValidChartDirectory', [tempDir(t)], 'Received bad result: "Missing file charts.ini".',
      'Missing file charts.ini', 'ERR_TARN_IS_VALID_CHART_DIRECTORY_MISSING_FILE'],
    ['cycleNumber', [dir], 'Received bad result retrieving output value: "-5".', -5,
      'ERR_TARN_CYCLE_NUMBER_TEXT_NOT_PASSED_ON'],
    ['cycleNumberDisplay', [tempDir(t)], 'Received bad result retrieving output value: "-1".', -1,
      'ERR_TARN_CYCLE_NUMBER_DISPLAY_NO_CHARTS_INI'],
    ['coverageInfo', [dir], 'Received bad result retrieving output value: "14".', 14,
      'ERR_TARN_COVERAGE_INFO_TEXT_LENGTH'],
    ['subsetCharts', [dir, `${dir}/.`, 1, 0, 0, 1], 'Received bad result: "-12".', -12,
      'ERR_TARN_SUBSET_CHARTS_SAME_DIRECTORY'],
    ['combineVFRinfoIFR', [tempDir(t), tempDir(t)], 'Received bad result: "-1".', -1,
      'ERR_TARN_COMBINE_VFR_INFO_IFR_CANNOT_BEGIN'],
  ];
  for (const [operation, args, message, result, code] of cases) {
    const [error, second] = await callOnce(addon[operation], ...args);
    assert.ok(error instanceof Error, operation);
    assert.equal(second, undefined);
    assert.equal(error.message, message, operation);
    assert.equal(error.code, code, operation);
    assert.equal(error.code, codes.codeOf(operation, result));
    assert.equal(error.result, result, operation);
    assert.equal(error.operation, operation);
  }
});

test('a code namer that throws names no code, and the failure still arrives', async (t) => {
  const { internals } = require('../../lib/addon');
  const { codeOf } = require('../../lib/codes');
  t.after(() => internals.setCodeNamer(codeOf));
  internals.setCodeNamer(() => { throw new Error('no name'); });
  const [thrown] = await callOnce(addon.merge, '/nonexistent/tarn-termchart');
  assert.equal(thrown.message, 'Received bad result: "-1".');
  assert.equal(thrown.code, undefined);
  assert.equal(thrown.result, -1);
  internals.setCodeNamer(() => 42);
  const [numbered] = await callOnce(addon.merge, '/nonexistent/tarn-termchart');
  assert.equal(numbered.code, undefined);
  internals.setCodeNamer(codeOf);
  const [named] = await callOnce(addon.merge, '/nonexistent/tarn-termchart');
  assert.equal(named.code, 'ERR_TARN_MERGE_NO_COVERAGES');
});
