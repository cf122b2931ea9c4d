#!/usr/bin/env node
'use strict';
// Output fingerprints: runs every writing operation on generated chart
// directories and records a SHA-256 of every file each one leaves behind,
// so that a change meant only to make the module faster can be shown to
// leave every byte as it was.
//
//   node bench/outputs.js --save before.json     (on the build before the change)
//   node bench/outputs.js --check before.json    (on the build after it)
//
// --addon PATH loads another build of the addon (a .node file) instead of
// this package's, so that both builds can be compared from one checkout.
// Directories come from sample/generate.js with fixed seeds, in several
// sizes, chart file sizes and numbers of pending updates.
const crypto = require('crypto');
const fs = require('fs');
const os = require('os');
const path = require('path');

const ROOT = path.join(__dirname, '..');
const { generate } = require(path.join(ROOT, 'sample'));

function parseArgs(argv) {
  const o = { save: null, check: null, addon: null };
  for (let i = 0; i < argv.length; i++) {
    const a = argv[i];
    if (a === '--save') o.save = argv[++i];
    else if (a === '--check') o.check = argv[++i];
    else if (a === '--addon') o.addon = path.resolve(argv[++i]);
    else throw new Error(`unknown option ${a}; usage: node bench/outputs.js (--save F | --check F) [--addon PATH]`);
  }
  if (!o.save === !o.check) throw new Error('give exactly one of --save FILE and --check FILE');
  return o;
}

// The directories: small to medium, both chart file sizes, zero to two
// pending updates per family.
const CASES = [
  { seed: 1, scale: 2, blobBytes: 96, updates: 1 },
  { seed: 2, scale: 5, blobBytes: 700, updates: 2 },
  { seed: 3, scale: 10, blobBytes: 96, updates: 1 },
  { seed: 4, scale: 1, blobBytes: 3000, updates: 0 },
  { seed: 5, scale: 20, blobBytes: 200, updates: 1 },
];

function digestTree(dir) {
  const out = {};
  for (const name of fs.readdirSync(dir).sort()) {
    const file = path.join(dir, name);
    if (fs.statSync(file).isFile()) {
      out[name] = crypto.createHash('sha256').update(fs.readFileSync(file)).digest('hex').slice(0, 24);
    }
  }
  return out;
}

function call(fn, ...args) {
  return new Promise((resolve) => fn(...args, (error, value) => resolve(error ? String(error.message) : value)));
}

// merge calls back for progress too (how often depends on timing, so the
// steps are not compared); the last call says it is done.
function mergeDir(addon, dir) {
  return new Promise((resolve) => {
    addon.merge(dir, (error, done) => {
      if (error) resolve({ error: String(error.message) });
      else if (done === true) resolve({ error: null });
    });
  });
}

async function run(addon, tmp) {
  const results = {};
  for (const c of CASES) {
    const label = `seed${c.seed}-scale${c.scale}-blob${c.blobBytes}-updates${c.updates}`;
    const src = path.join(tmp, `${label}-source`);
    const summary = generate(src, c);
    const r = {};

    const merged = path.join(tmp, `${label}-merged`);
    fs.cpSync(src, merged, { recursive: true });
    r.merge = await mergeDir(addon, merged);
    r.merged = digestTree(merged);

    const { north, west, south, east } = summary.box;
    const boxes = {
      whole: [north, west, south, east],
      northWest: [north, west, (north + south) / 2, (west + east) / 2],
      empty: [north + 5, west - 10, north + 1, west - 5],
    };
    for (const [name, box] of Object.entries(boxes)) {
      const dest = path.join(tmp, `${label}-subset-${name}`);
      fs.mkdirSync(dest);
      r[`subset-${name}`] = { result: await call(addon.subsetCharts, merged, dest, ...box), files: digestTree(dest) };
    }

    for (const [name, from] of [['source', src], ['merged', merged]]) {
      const dest = path.join(tmp, `${label}-combine-${name}`);
      fs.mkdirSync(dest);
      r[`combine-${name}`] = { result: await call(addon.combineVFRinfoIFR, from, dest), files: digestTree(dest) };
    }

    const dumps = path.join(tmp, `${label}-dumps`);
    fs.mkdirSync(dumps);
    for (const table of ['charts.dbf', 'airports.dbf', 'notams.dbf', 'vfrntms.dbf', 'chrtlink.dbf']) {
      r[`dumpDbf-${table}`] = await call(addon.dumpDbf, path.join(merged, table), path.join(dumps, `${table}.txt`));
    }
    for (const bundle of ['charts.bin', 'vfrcharts.bin']) {
      r[`dumpChartsBin-${bundle}`] = await call(addon.dumpChartsBin, path.join(src, bundle), path.join(dumps, `${bundle}.txt`), 1, 1);
    }
    r.dumps = digestTree(dumps);
    results[label] = r;
  }
  return results;
}

function differences(before, after, where = '') {
  if (typeof before !== 'object' || before === null || typeof after !== 'object' || after === null) {
    return JSON.stringify(before) === JSON.stringify(after) ? [] : [`${where}: ${JSON.stringify(before)} -> ${JSON.stringify(after)}`];
  }
  const keys = new Set([...Object.keys(before), ...Object.keys(after)]);
  return [...keys].flatMap((k) => differences(before[k], after[k], where ? `${where}.${k}` : k));
}

async function main() {
  const options = parseArgs(process.argv.slice(2));
  const addon = options.addon ? require(options.addon) : require(ROOT);
  // A fixed place: table dumps name the table they dump, so both runs must
  // see the same paths.
  const tmp = path.join(os.tmpdir(), 'tarn-outputs');
  fs.rmSync(tmp, { recursive: true, force: true });
  fs.mkdirSync(tmp);
  try {
    const results = JSON.parse(JSON.stringify(await run(addon, tmp)));
    if (options.save) {
      fs.writeFileSync(options.save, `${JSON.stringify(results, null, 1)}\n`);
      console.log(`saved the fingerprints of ${CASES.length} directories to ${options.save}`);
      return;
    }
    const before = JSON.parse(fs.readFileSync(options.check, 'utf8'));
    const changed = differences(before, results);
    if (changed.length) {
      console.log(`${changed.length} outputs differ:\n  ${changed.join('\n  ')}`);
      process.exitCode = 1;
    } else {
      console.log(`every output of ${CASES.length} directories is identical to ${options.check}`);
    }
  } finally {
    fs.rmSync(tmp, { recursive: true, force: true });
  }
}

main().catch((error) => {
  console.error(error.message);
  process.exitCode = 2;
});
