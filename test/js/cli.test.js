'use strict';
// The command-line tool, run as a user runs it, on generated directories:
// exit status, words, --json, --help.
const { describe, it: test } = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { execFile } = require('child_process');
const { addon, sample, tempDir } = require('./helpers');

const TOOL = path.join(__dirname, '..', '..', 'bin', 'tarn-termchart.js');

// Runs the tool; resolves with its exit status and output.
function cli(...args) {
  return new Promise((resolve) => {
    execFile(process.execPath, [TOOL, ...args], { encoding: 'latin1' }, (error, stdout, stderr) => {
      resolve({ status: error ? error.code : 0, stdout, stderr });
    });
  });
}

function json(result) {
  return JSON.parse(result.stdout);
}

// Every test works in its own directories, so they run side by side.
describe('tarn-termchart', { concurrency: true }, () => {
  test('the package names the tool', async () => {
    const pkg = require('../../package.json');
    assert.equal(pkg.bin['tarn-termchart'], 'bin/tarn-termchart.js');
    assert.match(fs.readFileSync(TOOL, 'latin1'), /^#!\/usr\/bin\/env node\n/);
  });

  test('help: the whole tool, each command, and usage errors', async () => {
    const help = await cli('--help');
    assert.equal(help.status, 0);
    for (const command of ['validate', 'cycle', 'coverage', 'merge', 'subset', 'combine', 'dump-dbf', 'dump-bundle', 'sample']) {
      assert.ok(help.stdout.includes(`  ${command} `), command);
      const one = await cli(command, '--help');
      assert.equal(one.status, 0, command);
      assert.match(one.stdout, new RegExp(`^Usage: tarn-termchart ${command} `));
      assert.match(one.stdout, /--json/);
    }
    assert.equal((await cli('help', 'subset')).stdout, (await cli('subset', '-h')).stdout);
    assert.match((await cli('dump-bundle', '--help')).stdout, /--offsets[\s\S]*--checksums/);
    assert.equal((await cli()).status, 2);
    const unknown = await cli('frobnicate');
    assert.equal(unknown.status, 2);
    assert.match(unknown.stderr, /unknown command "frobnicate"/);
    const missing = await cli('validate');
    assert.equal(missing.status, 2);
    assert.match(missing.stderr, /validate takes <chart-dir>/);
    const option = await cli('validate', '/tmp', '--bogus');
    assert.equal(option.status, 2);
    assert.match(option.stderr, /bogus/);
    assert.match((await cli('--version')).stdout, /^tarn-termchart \d+\.\d+\.\d+, chart library 9\.9\n$/);
  });

  test('validate: a valid directory, a pending merge and a missing file, in words and JSON', async (t) => {
    const dir = tempDir(t);
    sample.generate(dir, { seed: 1 });
    const ok = await cli('validate', dir);
    assert.equal(ok.status, 0);
    assert.match(ok.stdout, /a valid chart directory/);
    assert.match(ok.stdout, /airports: \d+ IFR, \d+ VFR/);
    assert.deepEqual(json(await cli('validate', dir, '--json')), { command: 'validate', ok: true, directory: dir });

    const pending = tempDir(t);
    sample.generate(pending, { seed: 1, updates: 1 });
    const waiting = await cli('validate', pending);
    assert.equal(waiting.status, 1);
    assert.match(waiting.stderr, /not a valid chart directory: The _(vfr)?charts\.bin file indicates/);
    assert.match(waiting.stderr, /update bundle is waiting: merge the directory/);

    fs.rmSync(path.join(dir, 'state.dbf'));
    const result = await cli('validate', dir, '--json');
    assert.equal(result.status, 1);
    assert.deepEqual(json(result), {
      command: 'validate', ok: false, directory: dir, message: 'Missing file state.dbf',
      code: 'ERR_TARN_IS_VALID_CHART_DIRECTORY_MISSING_FILE',
      meaning: 'the directory lacks state.dbf, one of the 14 files every chart directory holds',
    });
  });

  test('cycle: the cycle and the period label themselves; a missing file fails', async (t) => {
    const dir = tempDir(t);
    // Seed 1: cycle 2502 from 20 February 2025, day 50 of the year, so the
    // fourth fortnight.
    const summary = sample.generate(dir, { seed: 1 });
    assert.equal(summary.cycle, '2502');
    const result = await cli('cycle', dir);
    assert.equal(result.status, 0, result.stderr);
    assert.equal(result.stdout, 'cycle: 2502\nperiod label: 04-2025\n');
    assert.deepEqual(json(await cli('cycle', dir, '--json')), {
      command: 'cycle', ok: true, directory: dir, cycle: { ok: true, text: '2502' },
      period: { ok: true, text: '04-2025' },
    });
    fs.writeFileSync(path.join(dir, 'revision.txt'), 'Cycle=');
    assert.deepEqual(json(await cli('cycle', dir, '--json')).cycle, { ok: true, text: '' });
    fs.rmSync(path.join(dir, 'revision.txt'));
    const missing = await cli('cycle', dir, '--json');
    assert.equal(missing.status, 1);
    assert.deepEqual(json(missing).cycle, {
      ok: false, code: 'ERR_TARN_CYCLE_NUMBER_NO_REVISION_FILE', result: -1,
      meaning: 'revision.txt is missing or empty',
    });
    assert.match((await cli('cycle', dir)).stderr, /cycle: code -1: revision\.txt is missing or empty/);
  });

  test('coverage: the names of the covered regions, and the codes of a failure', async (t) => {
    const dir = tempDir(t);
    const summary = sample.generate(dir, { seed: 2 });
    const expected = summary.regions.map((r) => r.description).join(', ');
    assert.ok(expected.length > 0);
    const result = await cli('coverage', dir);
    assert.equal(result.status, 0);
    assert.equal(result.stdout, `coverage: ${expected}\n`);
    assert.deepEqual(json(await cli('coverage', dir, '--json')),
      { command: 'coverage', ok: true, directory: dir, regions: expected });
    fs.writeFileSync(path.join(dir, 'coverages.txt'), 'XX9\r\n');
    assert.match((await cli('coverage', dir)).stdout, /no service code of coverages\.txt names a region/);
    fs.rmSync(path.join(dir, 'coverages.txt'));
    const failed = await cli('coverage', dir);
    assert.equal(failed.status, 1);
    assert.match(failed.stderr,
      /coverageInfo failed with code -2 \(ERR_TARN_COVERAGE_INFO_NO_COVERAGES\)\n {2}coverages\.txt is missing, empty or unreadable/);
    assert.deepEqual(json(await cli('coverage', dir, '--json')), {
      command: 'coverage', ok: false, operation: 'coverageInfo', code: 'ERR_TARN_COVERAGE_INFO_NO_COVERAGES',
      result: -2, meaning: 'coverages.txt is missing, empty or unreadable', directory: dir,
    });
  });

  test('dump-dbf: to standard output, to a file, as JSON, and a failure', async (t) => {
    const dir = tempDir(t);
    sample.generate(dir, { seed: 3 });
    const table = path.join(dir, 'ctypes.dbf');
    const stdout = await cli('dump-dbf', table);
    assert.equal(stdout.status, 0);
    assert.ok(stdout.stdout.startsWith(`; ${table}\r\n; 9 records\r\n; 3 fields\r\n`));
    assert.match(stdout.stdout, /^10-9\tAirport diagram\tIFR\r$/m);
    assert.equal(stdout.stderr, 'ctypes.dbf: 9 records\n');
    const output = path.join(dir, 'ctypes.txt');
    const toFile = await cli('dump-dbf', table, '-o', output);
    assert.equal(toFile.status, 0);
    assert.ok(fs.readFileSync(output, 'latin1').startsWith(`; ${table}\r\n`));
    assert.match(toFile.stdout, /9 records dumped to/);
    const asJson = json(await cli('dump-dbf', path.join(dir, 'airports.dbf'), '--json'));
    assert.equal(asJson.count, sample.readDbfHeader(path.join(dir, 'airports.dbf')).recordCount);
    assert.match(asJson.text, /; 26 fields\r\n/);
    const failed = await cli('dump-dbf', path.join(dir, 'missing.dbf'));
    assert.equal(failed.status, 1);
    assert.match(failed.stderr, /dumpDbf failed with code -1 \(ERR_TARN_DUMP_DBF_TABLE_UNREADABLE\)\n {2}the table cannot be opened/);
  });

  test('dump-bundle: offsets and checksums, and a failure', async (t) => {
    const dir = tempDir(t);
    sample.generate(dir, { seed: 4 });
    const bundle = path.join(dir, 'vfrcharts.bin');
    const parsed = sample.readChartsBin(bundle);
    const plain = await cli('dump-bundle', bundle);
    assert.equal(plain.status, 0);
    const first = parsed.entries[0];
    assert.ok(plain.stdout.includes(`${first.name}\t${String(first.size).padStart(10, '0')}\t`));
    assert.equal(plain.stdout.split('\r\n')[7].split('\t').length, 5);
    const full = json(await cli('dump-bundle', bundle, '--offsets', '--checksums', '--json'));
    assert.equal(full.count, parsed.fileCount);
    const line = full.text.split('\r\n')[7].split('\t');
    assert.equal(line.length, 7);
    assert.equal(Number(line[5]), first.offset);
    assert.equal(line[6], sample.crc32Register(first.data).toString(16));
    fs.writeFileSync(bundle, 'short');
    const failed = await cli('dump-bundle', bundle, '--json');
    assert.equal(failed.status, 1);
    assert.equal(json(failed).result, -2);
    assert.equal(json(failed).code, 'ERR_TARN_DUMP_CHARTS_BIN_BUNDLE_DAMAGED');
  });

  test('sample: writes a directory and reports it', async (t) => {
    const dir = path.join(tempDir(t), 'made');
    const result = await cli('sample', dir, '--seed', '9', '--scale', '0.5', '--updates', '1', '--json');
    assert.equal(result.status, 0, result.stderr);
    const summary = json(result);
    assert.equal(summary.airports.total, 20);
    assert.equal(summary.updateBundles.length, 2);
    assert.ok(fs.existsSync(path.join(dir, summary.updateBundles[0].file)));
    assert.match((await cli('sample', dir, '--seed', '9')).stdout, /sample chart directory, cycle \d{4}/);
    const bad = await cli('sample', dir, '--scale', 'big');
    assert.equal(bad.status, 2);
    assert.match(bad.stderr, /--scale must be a number/);
  });

  test('merge: progress, the merged directory, and the codes of a failure', async (t) => {
    const dir = tempDir(t);
    sample.generate(dir, { seed: 5, updates: 1 });
    const result = await cli('merge', dir);
    assert.equal(result.status, 0, result.stderr);
    assert.match(result.stderr, /^merge \[#+\] 100%$/m);
    assert.match(result.stdout, /merged/);
    assert.equal((await cli('validate', dir)).status, 0);
    const again = await cli('merge', dir, '--json');
    assert.equal(again.status, 1);
    const failure = json(again);
    assert.deepEqual(failure.progress.filter((p) => p !== 0), [], 'at most the report of 0 % before -4');
    assert.deepEqual({ ...failure, progress: undefined }, {
      command: 'merge', ok: false, operation: 'merge', code: 'ERR_TARN_MERGE_NO_UPDATES', result: -4,
      meaning: failure.meaning, directory: dir, progress: undefined,
    });
    assert.match(failure.meaning, /no update bundle/);
    assert.match((await cli('merge', dir)).stderr, /merge failed with code -4 \(ERR_TARN_MERGE_NO_UPDATES\)\n {2}there is no update bundle to apply/);
  });

  test('subset: a box in signed degrees, and the codes of a failure', async (t) => {
    const dir = tempDir(t);
    sample.generate(dir, { seed: 6, scale: 2 });
    const destination = path.join(tempDir(t), 'north-america');
    const result = await cli('subset', dir, destination, '49.5', '-125', '37', '-66', '--json');
    assert.equal(result.status, 0, result.stderr);
    const { summary } = json(result);
    assert.ok(summary.airports.ifr > 0);
    for (const airport of sample.readDbf(path.join(destination, 'airports.dbf')).records) {
      assert.match(airport.F5_37, /^W/);
    }
    const nothing = await cli('subset', dir, path.join(tempDir(t), 'sea'), '-60', '-40', '-61', '-39');
    assert.equal(nothing.status, 1);
    assert.match(nothing.stderr, /subsetCharts failed with code -3 \(ERR_TARN_SUBSET_CHARTS_NO_AIRPORTS_IN_BOX\)\n {2}no airport lies in the box/);
    assert.equal((await cli('subset', dir, destination, '49.5', '-125', '37')).status, 2);
  });

  test('combine: VFR data folded into the IFR files, and a failure', async (t) => {
    const dir = tempDir(t);
    const made = sample.generate(dir, { seed: 7 });
    const destination = path.join(tempDir(t), 'combined');
    const result = await cli('combine', dir, destination, '--json');
    assert.equal(result.status, 0, result.stderr);
    const { summary } = json(result);
    assert.equal(summary.airports.ifr, made.airports.ifr + made.airports.vfr - made.airports.both);
    assert.equal(summary.charts.ifr, made.charts.ifr + made.charts.vfr);
    assert.equal(summary.bundles['vfrcharts.bin'], null);
    const failed = await cli('combine', tempDir(t), path.join(tempDir(t), 'x'));
    assert.equal(failed.status, 1);
    assert.match(failed.stderr, /combineVFRinfoIFR failed with code -1 \(ERR_TARN_COMBINE_VFR_INFO_IFR_CANNOT_BEGIN\)\n {2}/);
  });
});
