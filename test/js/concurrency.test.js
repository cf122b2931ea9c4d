'use strict';
// Many operations at once: the same bytes as one after another, and
// validity messages that always belong to their own directory.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { addon, sample, tempDir, callOnce, writeMinimalDirectory } = require('./helpers');

// Every file below dir (relative name -> bytes).
function snapshot(dir) {
  const files = {};
  const walk = (sub) => {
    for (const entry of fs.readdirSync(path.join(dir, sub), { withFileTypes: true })) {
      const name = path.join(sub, entry.name);
      if (entry.isDirectory()) walk(name);
      else files[name] = fs.readFileSync(path.join(dir, name));
    }
  };
  walk('');
  return files;
}

// Resolves with the merge's final callback arguments.
function mergeDone(dir) {
  return new Promise((resolve) => {
    addon.merge(dir, (...args) => {
      if (args[0] !== undefined || args[1] === true) resolve(args);
    });
  });
}

// Normalises callback arguments so errors compare by message.
function outcome(args) {
  return args.map((a) => (a instanceof Error ? `Error: ${a.message}` : a));
}

// The 32 operations, each on directories of its own below root: 8 merges,
// 8 subsets with boxes of different sizes, 8 combines, 4 table dumps and
// 4 bundle dumps. Returns thunks that run one and the directories whose
// bytes make up its result.
function plan(root, templates, summary) {
  const box = summary.box;
  const ops = [];
  const copy = (template, name) => {
    const dir = path.join(root, name);
    fs.cpSync(template, dir, { recursive: true });
    return dir;
  };
  for (let i = 0; i < 8; i++) {
    const dir = copy(templates.pending, `merge${i}`);
    ops.push({ run: () => mergeDone(dir), outputs: [dir] });
  }
  for (let i = 0; i < 8; i++) {
    const source = copy(templates.plain, `subset-source${i}`);
    const destination = path.join(root, `subset${i}`);
    fs.mkdirSync(destination);
    // Boxes from the whole area down to an eighth of its height.
    const height = (box.north - box.south) * (8 - i) / 8;
    ops.push({
      run: () => callOnce(addon.subsetCharts, source, destination, box.north, box.west,
        box.north - height, box.east),
      outputs: [destination, source],
    });
  }
  for (let i = 0; i < 8; i++) {
    const source = copy(templates.plain, `combine-source${i}`);
    const destination = path.join(root, `combine${i}`);
    fs.mkdirSync(destination);
    ops.push({ run: () => callOnce(addon.combineVFRinfoIFR, source, destination), outputs: [destination, source] });
  }
  const tables = ['airports.dbf', 'charts.dbf', 'vfrntms.dbf', 'coverags.dbf'];
  tables.forEach((table, i) => {
    const out = path.join(root, `dbf${i}`);
    fs.mkdirSync(out);
    ops.push({
      run: () => callOnce(addon.dumpDbf, path.join(templates.plain, table), path.join(out, 'dump.txt')),
      outputs: [out],
    });
  });
  for (let i = 0; i < 4; i++) {
    const out = path.join(root, `bin${i}`);
    fs.mkdirSync(out);
    const bundle = i % 2 ? 'vfrcharts.bin' : 'charts.bin';
    ops.push({
      run: () => callOnce(addon.dumpChartsBin, path.join(templates.plain, bundle), path.join(out, 'dump.txt'),
        i >> 1, 1),
      outputs: [out],
    });
  }
  return ops;
}

test('32 operations at once give the same bytes as one after another', async (t) => {
  const base = tempDir(t);
  const templates = { plain: path.join(base, 'plain'), pending: path.join(base, 'pending') };
  fs.mkdirSync(templates.plain);
  fs.mkdirSync(templates.pending);
  const summary = sample.generate(templates.plain, { seed: 11, scale: 1 });
  sample.generate(templates.pending, { seed: 11, scale: 1, updates: 2 });

  const serialRoot = path.join(base, 'serial');
  const parallelRoot = path.join(base, 'parallel');
  fs.mkdirSync(serialRoot);
  fs.mkdirSync(parallelRoot);
  const serial = plan(serialRoot, templates, summary);
  const parallel = plan(parallelRoot, templates, summary);
  assert.equal(serial.length, 32);

  const serialResults = [];
  for (const op of serial) serialResults.push(outcome(await op.run()));
  const parallelResults = (await Promise.all(parallel.map((op) => op.run()))).map(outcome);

  assert.deepEqual(parallelResults, serialResults);
  // The operations did their work: merges and subsets/combines finished.
  for (let i = 0; i < 8; i++) assert.deepEqual(serialResults[i], [undefined, true, undefined]);
  for (let i = 8; i < 24; i++) assert.deepEqual(serialResults[i], [undefined, undefined], `operation ${i}`);

  let compared = 0;
  serial.forEach((op, i) => {
    op.outputs.forEach((dir, j) => {
      const expected = snapshot(dir);
      const actual = snapshot(parallel[i].outputs[j]);
      assert.deepEqual(Object.keys(actual).sort(), Object.keys(expected).sort(), `operation ${i}: ${dir}`);
      for (const name of Object.keys(expected)) {
        assert.ok(actual[name].equals(expected[name]), `operation ${i}: ${name} differs`);
        compared++;
      }
    });
  });
  assert.ok(compared > 800, `only ${compared} files compared`);
});

test('validity checks at once each report their own missing file', async (t) => {
  const root = tempDir(t);
  const dirs = sample.REQUIRED_FILES.map((name) => {
    const dir = path.join(root, `lacks-${name}`);
    fs.mkdirSync(dir);
    writeMinimalDirectory(dir);
    fs.rmSync(path.join(dir, name));
    return { dir, name };
  });
  assert.equal(dirs.length, 14);

  for (let round = 0; round < 100; round++) {
    const calls = [];
    for (let i = 0; i < 420; i++) {
      const { dir, name } = dirs[(i * 3 + round) % dirs.length];
      calls.push(callOnce(addon.isValidChartDirectory, dir).then(([error, value]) => {
        assert.equal(value, undefined);
        assert.ok(error instanceof Error);
        assert.equal(error.message, `Received bad result: "Missing file ${name}".`);
      }));
    }
    await Promise.all(calls);
  }
});
