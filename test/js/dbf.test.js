'use strict';
// dumpDbf through JavaScript, and the tables of sample/dbf.js read by an
// independent dBase reader against the library's own dump of them.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { DBFFile } = require('dbffile');

const tarn = require('../../index.js');
const sample = require('../../sample');

function tempDir(t) {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-dbf-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  return dir;
}

// Calls dumpDbf and resolves with the callback's arguments and whether the
// call had already returned when the callback came.
function dump(dbfPath, outputPath) {
  return new Promise((resolve) => {
    let returned = false;
    const result = tarn.dumpDbf(dbfPath, outputPath, (...args) => resolve({ args, returned }));
    assert.strictEqual(result, undefined);
    returned = true;
  });
}

const AIRPORT_FIELDS = [
  { name: 'F5_6', type: 'C', length: 4 },
  { name: 'NAME', type: 'C', length: 16 },
  { name: 'CHRT_IDX', type: 'N', length: 6 },
];

function header(dbfPath, count) {
  return `; ${dbfPath}\r\n; ${count} records\r\n; 3 fields\r\n` +
    '; Field: "F5_6" len=4 type="C"\r\n' +
    '; Field: "NAME" len=16 type="C"\r\n' +
    '; Field: "CHRT_IDX" len=6 type="N"\r\n';
}

test('an empty table dumps and succeeds', async (t) => {
  const dir = tempDir(t);
  const dbfPath = path.join(dir, 'airports.dbf');
  const outputPath = path.join(dir, 'airports.txt');
  fs.writeFileSync(dbfPath, sample.dbfTable({ fields: AIRPORT_FIELDS, records: [] }));
  const { args, returned } = await dump(dbfPath, outputPath);
  assert.strictEqual(returned, true);
  assert.strictEqual(args.length, 2);
  assert.strictEqual(args[0], undefined);
  assert.strictEqual(args[1], undefined);
  assert.strictEqual(fs.readFileSync(outputPath, 'latin1'), header(dbfPath, 0));
});

test('a table of 12 records is dumped whole and reported as a bad result', async (t) => {
  const dir = tempDir(t);
  const dbfPath = path.join(dir, 'airports.dbf');
  const outputPath = path.join(dir, 'airports.txt');
  const records = [];
  let expected = '';
  for (let i = 0; i < 12; i++) {
    records.push({ F5_6: `K${i}`, NAME: ` AIRPORT ${i}`, CHRT_IDX: String(i * 3).padStart(6, '0') });
    expected += `K${i}\t AIRPORT ${i}\t${i * 3}\r\n`;
  }
  records.splice(5, 0, sample.deleted({ F5_6: 'KOLD', NAME: 'GONE' }));
  fs.writeFileSync(dbfPath, sample.dbfTable({ fields: AIRPORT_FIELDS, records: records.slice(0, 12) }));
  // The deleted record is counted; its place in the dump stays empty.
  let { args, returned } = await dump(dbfPath, outputPath);
  assert.strictEqual(returned, true);
  assert.strictEqual(args.length, 2);
  assert.ok(args[0] instanceof Error);
  assert.strictEqual(args[0].message, 'Received bad result: "12".');
  assert.strictEqual(args[1], undefined);
  const withoutLast = expected.split('\r\n').slice(0, 11).join('\r\n') + '\r\n';
  assert.strictEqual(fs.readFileSync(outputPath, 'latin1'), header(dbfPath, 12) + withoutLast);

  fs.writeFileSync(dbfPath, sample.dbfTable({ fields: AIRPORT_FIELDS, records: records.filter((r, i) => i !== 5) }));
  ({ args } = await dump(dbfPath, outputPath));
  assert.strictEqual(args[0].message, 'Received bad result: "12".');
  assert.strictEqual(fs.readFileSync(outputPath, 'latin1'), header(dbfPath, 12) + expected);
});

test('a missing table calls back with -1', async (t) => {
  const dir = tempDir(t);
  const outputPath = path.join(dir, 'out.txt');
  const { args, returned } = await dump(path.join(dir, 'none.dbf'), outputPath);
  assert.strictEqual(returned, true);
  assert.strictEqual(args.length, 2);
  assert.ok(args[0] instanceof Error);
  assert.strictEqual(args[0].message, 'Received bad result: "-1".');
  assert.strictEqual(args[1], undefined);
  assert.strictEqual(fs.existsSync(outputPath), false);
});

test('an output that cannot be created calls back with -2', async (t) => {
  const dir = tempDir(t);
  const dbfPath = path.join(dir, 'airports.dbf');
  fs.writeFileSync(dbfPath, sample.dbfTable({ fields: AIRPORT_FIELDS, records: [] }));
  const { args } = await dump(dbfPath, path.join(dir, 'no', 'such', 'out.txt'));
  assert.strictEqual(args.length, 2);
  assert.strictEqual(args[0].message, 'Received bad result: "-2".');
});

test('argument errors throw and never call back', async () => {
  let calls = 0;
  const callback = () => { calls++; };
  const cases = [
    [[], 'Wrong number of arguments.'],
    [['a.dbf', callback], 'Wrong number of arguments.'],
    [['a.dbf', 'a.txt'], 'Wrong number of arguments.'],
    [['a.dbf', 'a.txt', callback, 1], 'Wrong number of arguments.'],
    [[1, 'a.txt', callback], 'Wrong argument type.'],
    [['a.dbf', 2, callback], 'Wrong argument type.'],
    [['a.dbf', 'a.txt', 'callback'], 'Wrong argument type.'],
    [[Buffer.from('a.dbf'), 'a.txt', callback], 'Wrong argument type.'],
    [['a.dbf', null, callback], 'Wrong argument type.'],
    [[undefined, undefined, undefined], 'Wrong argument type.'],
  ];
  for (const [args, message] of cases) {
    assert.throws(() => tarn.dumpDbf(...args), (error) => {
      assert.ok(error instanceof TypeError);
      assert.strictEqual(error.message, message);
      return true;
    });
  }
  await new Promise((resolve) => setTimeout(resolve, 100));
  assert.strictEqual(calls, 0);
});

test('memo text is dumped raw', async (t) => {
  const dir = tempDir(t);
  const dbfPath = path.join(dir, 'notams.dbf');
  const outputPath = path.join(dir, 'notams.txt');
  const memo = sample.dbtFile(['RWY 16R CLSD', 'TWY A\tB\r\nLGT U/S']);
  fs.writeFileSync(path.join(dir, 'notams.dbt'), memo.bytes);
  fs.writeFileSync(dbfPath, sample.dbfTable({
    fields: [{ name: 'F5_6', type: 'C', length: 4 }, { name: 'NOTAM', type: 'M', length: 10 }],
    records: [['KDEN', String(memo.blocks[0])], ['KBOS', String(memo.blocks[1])]],
  }));
  const { args } = await dump(dbfPath, outputPath);
  assert.strictEqual(args[0].message, 'Received bad result: "2".');
  const text = fs.readFileSync(outputPath, 'latin1');
  assert.ok(text.endsWith('"M"\r\nKDEN\tRWY 16R CLSD\r\nKBOS\tTWY A\tB\r\nLGT U/S\r\n'), text);
});

// The dump's record lines, split into values.
function dumpedRecords(text, fieldCount) {
  const lines = text.split('\r\n');
  assert.strictEqual(lines.pop(), '');
  return lines.slice(3 + fieldCount).map((line) => line.split('\t'));
}

test('an independent reader reads the same values as the dump', async (t) => {
  const dir = tempDir(t);
  const dbfPath = path.join(dir, 'charts.dbf');
  const outputPath = path.join(dir, 'charts.txt');
  const fields = [
    { name: 'F5_6', type: 'C', length: 4 },
    { name: 'CHART_NAME', type: 'C', length: 30 },
    { name: 'CHART_ID', type: 'N', length: 8 },
    { name: 'PAGES', type: 'N', length: 3 },
    { name: 'NOTAM', type: 'M', length: 10 },
  ];
  const texts = [];
  const records = [];
  let deletedCount = 0;
  for (let i = 0; i < 300; i++) {
    texts.push(i % 3 ? `NOTAM ${i}` : 'x'.repeat(i * 7 + 1));
  }
  const memo = sample.dbtFile(texts);
  for (let i = 0; i < 300; i++) {
    const values = {
      F5_6: `K${(i * 37) % 1000}`,
      CHART_NAME: i % 5 ? `  CHART ${i} RWY ${i % 36}` : '',
      CHART_ID: i % 4 ? String(100000 + i) : '00000042',
      PAGES: i % 7 ? String(i % 9) : '',
      NOTAM: String(memo.blocks[i]),
    };
    if (i % 11 === 3) deletedCount++;
    records.push(i % 11 === 3 ? sample.deleted(values) : values);
  }
  fs.writeFileSync(path.join(dir, 'charts.dbt'), memo.bytes);
  // Version 0x8b announces the memo layout to the other reader; the library
  // does not look at the version byte.
  fs.writeFileSync(dbfPath, sample.dbfTable({ fields, records, version: 0x8b }));

  const { args } = await dump(dbfPath, outputPath);
  assert.strictEqual(args[0].message, 'Received bad result: "300".');
  const dumped = dumpedRecords(fs.readFileSync(outputPath, 'latin1'), fields.length);

  const other = await DBFFile.open(dbfPath);
  assert.strictEqual(other.recordCount, 300);
  assert.deepStrictEqual(other.fields.map((f) => [f.name, f.type, f.size]),
    fields.map((f) => [f.name, f.type, f.length]));
  const read = await other.readRecords(1000);
  assert.ok(deletedCount > 20);
  assert.strictEqual(read.length, 300 - deletedCount);
  assert.strictEqual(dumped.length, read.length);
  read.forEach((record, i) => {
    // The other reader gives blank numerics as null, where the dump writes 0.
    const number = (value) => (value === null ? '0' : String(value));
    assert.deepStrictEqual(dumped[i], [record.F5_6, record.CHART_NAME, number(record.CHART_ID),
      number(record.PAGES), record.NOTAM], `record ${i}`);
  });
});

test('tables whose headers lie are dumped without harm', async (t) => {
  const dir = tempDir(t);
  const dbfPath = path.join(dir, 'bad.dbf');
  const outputPath = path.join(dir, 'bad.txt');
  const records = [['KDEN', 'DENVER', '1'], ['KBOS', 'BOSTON', '2']];
  const cases = [
    // [header overrides, result, record lines]
    [{ recordCount: 0xffffffff }, '-1', 2],
    [{ recordCount: 1000 }, '1000', 2],
    [{ recordLength: 0 }, '2', 0],
    [{ recordLength: 65535 }, '2', 0],
    // Short records: the first three 5-byte slices are taken as records.
    [{ recordLength: 5 }, '2', 3],
    // No fields: records are read from right after the first descriptor
    // byte, and the one read past the count still finds a whole record.
    [{ headerLength: 0 }, '2', 3],
    [{ patches: [[32 + 16, Buffer.from([0xff, 0x7f])]] }, '2', 2],
  ];
  for (const [overrides, result, lines] of cases) {
    fs.writeFileSync(dbfPath, sample.dbfTable({ fields: AIRPORT_FIELDS, records, ...overrides }));
    const { args } = await dump(dbfPath, outputPath);
    assert.strictEqual(args[0].message, `Received bad result: "${result}".`, JSON.stringify(overrides));
    const text = fs.readFileSync(outputPath, 'latin1');
    const fieldCount = overrides.headerLength === 0 ? 0 : 3;
    assert.strictEqual(dumpedRecords(text, fieldCount).length, lines, JSON.stringify(overrides));
  }
});
