'use strict';
// dumpChartsBin through JavaScript, and the sample bundle writer and reader.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');

const addon = require('../../index.js');
const sample = require('../../sample');

function tempDir() {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-bundle-'));
  test.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  return dir;
}

// Calls dumpChartsBin and resolves with the callback's arguments.
function dump(...args) {
  return new Promise((resolve) => {
    addon.dumpChartsBin(...args, (...results) => resolve(results));
  });
}

const FIVE = [
  { name: 'KLAX.PDF', data: Buffer.from('123456789'), key: 1001, flags: 0, variant: 0 },
  { name: 'kbos.pdf', data: Buffer.from('boston'), key: 1002, flags: 0x10, variant: 2 },
  { name: 'KBOS.PDF', data: Buffer.from('BOSTON'), key: 1003, flags: 0, variant: 1 },
  { name: 'EGLL.TIF', data: Buffer.alloc(300, 7), key: 0xFFFFFFFE, flags: 0, variant: 0 },
  { name: 'A.PDF', data: Buffer.alloc(0), key: 5, flags: 0, variant: 9 },
];

function hex(n) {
  return (n >>> 0).toString(16);
}

function pad10(n) {
  const v = n | 0;
  const digits = String(Math.abs(v)).padStart(v < 0 ? 9 : 10, '0');
  return v < 0 ? `-${digits}` : digits;
}

function headerLines(bundle) {
  return [
    `; Header CRC:          ${hex(bundle.crc)}`,
    `; Header Size:         ${bundle.size}`,
    `; Header Version:      ${hex(bundle.version)}`,
    `; Header File Count:   ${bundle.fileCount}`,
    `; Header Table Offset: ${bundle.tableOffset}`,
    `; Header Julian Date:  ${bundle.julianDate}`,
    ';',
  ];
}

function entryLine(e, offsets, checksums) {
  let line = `${e.name}\t${pad10(e.size)}\t${pad10(e.key)}\t${String(e.flags).padStart(3, '0')}\t${String(e.variant).padStart(3, '0')}`;
  if (offsets) line += `\t${pad10(e.offset)}`;
  if (checksums) line += `\t${hex(sample.crc32Register(e.data))}`;
  return line;
}

function listing(lines) {
  return lines.map((l) => `${l}\r\n`).join('');
}

test('the sample checksums give the published check values', () => {
  assert.strictEqual(sample.tarnCrc(Buffer.from('123456789')), 0x3010BF7F);
  assert.strictEqual(sample.crc32(Buffer.from('123456789')), 0xCBF43926);
});

test('the sample writer sorts the table and the reader gives it back', () => {
  const bytes = sample.chartsBin({ entries: FIVE, version: 3, julianDate: '2460100.5' });
  const bundle = sample.readChartsBin(bytes);
  assert.strictEqual(bundle.crc, sample.tarnCrc(bytes.subarray(4)));
  assert.strictEqual(bundle.size, 27);
  assert.strictEqual(bundle.version, 3);
  assert.strictEqual(bundle.julianDate, '2460100.5');
  assert.strictEqual(bundle.tableOffset, 27 + 9 + 6 + 6 + 300);
  assert.deepStrictEqual(bundle.entries.map((e) => `${e.name}/${e.variant}`),
    ['A.PDF/9', 'EGLL.TIF/0', 'KBOS.PDF/1', 'kbos.pdf/2', 'KLAX.PDF/0']);
  assert.strictEqual(bundle.entries[4].offset, 27);
  assert.strictEqual(bundle.entries[4].data.toString(), '123456789');
  assert.throws(() => sample.readChartsBin(bytes.subarray(0, 26)), RangeError);
  assert.throws(() => sample.readChartsBin(bytes.subarray(0, bytes.length - 1)), RangeError);
});

test('dumpChartsBin of an empty bundle succeeds with the header lines', async () => {
  const dir = tempDir();
  const bundlePath = path.join(dir, 'charts.bin');
  const bytes = sample.writeChartsBin(bundlePath, {});
  const out = path.join(dir, 'dump.txt');
  let returned = false;
  const results = await new Promise((resolve) => {
    const value = addon.dumpChartsBin(bundlePath, out, 1, 1, (...args) => resolve([returned, ...args]));
    assert.strictEqual(value, undefined);
    returned = true;
  });
  assert.deepStrictEqual(results, [true, undefined, undefined]);
  assert.strictEqual(fs.readFileSync(out, 'latin1'), listing(headerLines(sample.readChartsBin(bytes))));
});

test('dumpChartsBin reports the file count as a bad result after the whole listing', async () => {
  const dir = tempDir();
  const bundlePath = path.join(dir, 'charts.bin');
  const bundle = sample.readChartsBin(sample.writeChartsBin(bundlePath, { entries: FIVE }));
  const out = path.join(dir, 'dump.txt');
  const results = await dump(bundlePath, out, 0, 0);
  assert.strictEqual(results.length, 2);
  assert.ok(results[0] instanceof Error);
  assert.strictEqual(results[0].message, 'Received bad result: "5".');
  assert.strictEqual(results[1], undefined);
  assert.strictEqual(fs.readFileSync(out, 'latin1'),
    listing([...headerLines(bundle), ...bundle.entries.map((e) => entryLine(e, false, false))]));
});

test('dumpChartsBin in all four option combinations', async () => {
  const dir = tempDir();
  const bundlePath = path.join(dir, 'charts.bin');
  const bundle = sample.readChartsBin(sample.writeChartsBin(bundlePath, { entries: FIVE }));
  for (const [offsets, checksums] of [[0, 0], [0, 1], [1, 0], [1, 1]]) {
    const out = path.join(dir, `dump${offsets}${checksums}.txt`);
    const [error] = await dump(bundlePath, out, offsets, checksums);
    assert.strictEqual(error.message, 'Received bad result: "5".');
    const expected = [...headerLines(bundle), ...bundle.entries.map((e) => entryLine(e, offsets, checksums))];
    assert.strictEqual(fs.readFileSync(out, 'latin1'), listing(expected), `${offsets},${checksums}`);
  }
  // The known values: "123456789" has CRC-32 cbf43926, so the register before inversion is 340bc6d9.
  const text = fs.readFileSync(path.join(dir, 'dump11.txt'), 'latin1');
  assert.ok(text.includes('KLAX.PDF\t0000000009\t0000001001\t000\t000\t0000000027\t340bc6d9\r\n'));
  assert.ok(text.includes('EGLL.TIF\t0000000300\t-000000002\t000\t000\t'));
});

test('dumpChartsBin with an option value of 2 repeats the separator line', async () => {
  const dir = tempDir();
  const bundlePath = path.join(dir, 'charts.bin');
  const bundle = sample.readChartsBin(sample.writeChartsBin(bundlePath, { entries: FIVE }));
  for (const [a, b] of [[2, 0], [0, 2], [1, 2], [2, 1]]) {
    const out = path.join(dir, 'dump.txt');
    const [error] = await dump(bundlePath, out, a, b);
    assert.strictEqual(error.message, 'Received bad result: "5".');
    assert.strictEqual(fs.readFileSync(out, 'latin1'), listing([...headerLines(bundle), ';', ';', ';', ';', ';']));
  }
});

test('dumpChartsBin passes 1.9 as 1', async () => {
  const dir = tempDir();
  const bundlePath = path.join(dir, 'charts.bin');
  sample.writeChartsBin(bundlePath, { entries: FIVE });
  await dump(bundlePath, path.join(dir, 'one.txt'), 1, 1);
  await dump(bundlePath, path.join(dir, 'fraction.txt'), 1.9, 1.9);
  const one = fs.readFileSync(path.join(dir, 'one.txt'), 'latin1');
  assert.strictEqual(fs.readFileSync(path.join(dir, 'fraction.txt'), 'latin1'), one);
  assert.ok(one.includes('\t0000000027\t340bc6d9\r\n'));
});

test('dumpChartsBin reports the library codes', async () => {
  const dir = tempDir();
  const missing = await dump(path.join(dir, 'missing.bin'), path.join(dir, 'out.txt'), 0, 0);
  assert.strictEqual(missing[0].message, 'Received bad result: "-1".');
  const short = path.join(dir, 'short.bin');
  fs.writeFileSync(short, Buffer.alloc(26));
  assert.strictEqual((await dump(short, path.join(dir, 'out.txt'), 0, 0))[0].message,
    'Received bad result: "-2".');
  const good = path.join(dir, 'charts.bin');
  sample.writeChartsBin(good, { entries: FIVE });
  assert.strictEqual((await dump(good, path.join(dir, 'no', 'such', 'out.txt'), 0, 0))[0].message,
    'Received bad result: "-3".');
  const pastEnd = path.join(dir, 'past.bin');
  sample.writeChartsBin(pastEnd, { entries: [{ name: 'X.PDF', data: Buffer.from('x'), size: 1000 }] });
  assert.strictEqual((await dump(pastEnd, path.join(dir, 'out.txt'), 0, 1))[0].message,
    'Received bad result: "-6".');
});

test('dumpChartsBin checks its arguments', () => {
  let called = false;
  const callback = () => { called = true; };
  assert.throws(() => addon.dumpChartsBin('a.bin', 'out.txt', '1', 0, callback),
    { name: 'TypeError', message: 'Wrong argument type.' });
  assert.throws(() => addon.dumpChartsBin('a.bin', 'out.txt', 0, '0', callback),
    { name: 'TypeError', message: 'Wrong argument type.' });
  assert.throws(() => addon.dumpChartsBin('a.bin', 7, 0, 0, callback),
    { name: 'TypeError', message: 'Wrong argument type.' });
  assert.throws(() => addon.dumpChartsBin('a.bin', 'out.txt', 0, 0, 'callback'),
    { name: 'TypeError', message: 'Wrong argument type.' });
  assert.throws(() => addon.dumpChartsBin('a.bin', 'out.txt', 0, 0),
    { name: 'TypeError', message: 'Wrong number of arguments.' });
  assert.throws(() => addon.dumpChartsBin('a.bin', 'out.txt', 0, 0, callback, 1),
    { name: 'TypeError', message: 'Wrong number of arguments.' });
  assert.strictEqual(called, false);
});

test('dumpChartsBin sits between cycleNumberDisplay and isValidChartDirectory', () => {
  const names = Object.keys(addon);
  const at = names.indexOf('dumpChartsBin');
  assert.ok(at > 0);
  assert.ok(names.indexOf('cycleNumberDisplay') < at);
  assert.ok(names.indexOf('isValidChartDirectory') > at);
});
