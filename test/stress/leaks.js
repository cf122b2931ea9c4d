'use strict';
// Leak check through the binding: every module function (and the reader of
// the whole texts behind the promise API) 10,000 times on
// sound and broken directories, then the process must hold the same open
// descriptors as before and about the same memory as after the warm-up.
//
//   node --expose-gc test/stress/leaks.js      (npm run test:leaks)
//
// Environment: TARN_LEAK_CALLS (default 10000 per function),
// TARN_LEAK_TOLERANCE_MB (default 6; allowed resident growth),
// TARN_LEAK_INJECT=fd or memory (leaks a descriptor or 32 MB on purpose
// during the run, to see the check fail).
//
// merge, subsetCharts and combineVFRinfoIFR change or write directories, so
// most of their calls take cheap failing paths that still open files
// (merge: a directory without update bundles, -4, and one without
// coverages.txt, -1; subset: a source without coverags.dbf, -1, and a
// destination that cannot be written, -2; combine: a destination that does
// not exist, -2, and a source without bundles), and a few hundred calls
// succeed on fresh copies (SUCCESSES below; merge on a fresh copy of a
// directory with pending updates, subset and combine into a fresh empty
// destination).
const fs = require('fs');
const os = require('os');
const path = require('path');

const addon = require('../../index.js');
const { internals } = require('../../lib/addon');
const sample = require('../../sample');

const CALLS = Number(process.env.TARN_LEAK_CALLS || 10000);
const SUCCESSES = Math.min(300, CALLS);
const TOLERANCE_MB = Number(process.env.TARN_LEAK_TOLERANCE_MB || 6);
const IN_FLIGHT = 4;

if (typeof global.gc !== 'function') {
  console.error('run with node --expose-gc');
  process.exit(2);
}

function openDescriptors() {
  return fs.readdirSync('/proc/self/fd').length;
}

function residentMB() {
  global.gc();
  global.gc();
  return process.memoryUsage().rss / (1024 * 1024);
}

function call(fn, ...args) {
  return new Promise((resolve) => fn(...args, (...result) => resolve(result)));
}

function mergeDone(dir) {
  return new Promise((resolve) => {
    addon.merge(dir, (...args) => {
      if (args[0] !== undefined || args[1] === true) resolve(args);
    });
  });
}

// Runs count calls of make(i), at most IN_FLIGHT at once.
async function runMany(count, make) {
  let next = 0;
  const lanes = [];
  for (let lane = 0; lane < IN_FLIGHT; lane++) {
    lanes.push((async () => {
      while (next < count) await make(next++);
    })());
  }
  await Promise.all(lanes);
}

function setUp(root) {
  const dirs = {};
  const make = (name) => {
    dirs[name] = path.join(root, name);
    fs.mkdirSync(dirs[name]);
    return dirs[name];
  };
  const summary = sample.generate(make('good'), { seed: 3, scale: 1 });
  sample.generate(make('pending'), { seed: 3, scale: 1, updates: 1 });
  // Broken copies: a required file missing, no coverage files, no bundles.
  fs.cpSync(dirs.good, make('bad'), { recursive: true });
  for (const name of ['revision.txt', 'charts.ini', 'coverages.txt', 'coverags.dbf', 'regions.dat']) {
    fs.rmSync(path.join(dirs.bad, name));
  }
  fs.writeFileSync(path.join(dirs.bad, 'charts.bin'), 'short');
  fs.writeFileSync(path.join(dirs.bad, 'airports.dbf'), 'short');
  fs.cpSync(dirs.good, make('nobundles'), { recursive: true });
  for (const name of ['charts.bin', 'vfrcharts.bin']) fs.rmSync(path.join(dirs.nobundles, name));
  make('out');
  make('fresh');
  return { dirs, summary };
}

// Per function: the call for index i (warm-up calls use the same mix).
function workloads({ dirs, summary }) {
  const { good, bad, pending, nobundles, out, fresh } = dirs;
  const box = summary.box;
  const alternate = (i, a, b) => (i % 2 ? b : a);
  let freshCount = 0;
  const freshDir = (template) => {
    const dir = path.join(fresh, `d${freshCount++}`);
    if (template) fs.cpSync(template, dir, { recursive: true });
    else fs.mkdirSync(dir);
    return dir;
  };
  const dropFresh = (dir) => fs.rmSync(dir, { recursive: true, force: true });
  const missing = path.join(out, 'no-such-directory');

  return {
    libraryVersion: async () => { addon.libraryVersion(); },
    isValidChartDirectory: (i) => call(addon.isValidChartDirectory, alternate(i, good, bad)),
    cycleNumber: (i) => call(addon.cycleNumber, alternate(i, good, bad)),
    cycleNumberDisplay: (i) => call(addon.cycleNumberDisplay, alternate(i, good, bad)),
    coverageInfo: (i) => call(addon.coverageInfo, alternate(i, good, bad)),
    // The whole texts the promise API reads, beside the ten functions.
    wholeTexts: (i) => call(internals.readText, ['cycle', 'period', 'coverage'][i % 3], alternate(i >> 1, good, bad)),
    dumpDbf: (i) => call(addon.dumpDbf, path.join(alternate(i, good, bad), 'airports.dbf'),
      path.join(out, `dbf${i % IN_FLIGHT}.txt`)),
    dumpChartsBin: (i) => call(addon.dumpChartsBin, path.join(alternate(i, good, bad), 'vfrcharts.bin'),
      path.join(out, `bin${i % IN_FLIGHT}.txt`), i & 1, (i >> 1) & 1),
    merge: async (i) => {
      if (i % (CALLS / SUCCESSES | 0) === 0) {
        const dir = freshDir(pending);
        const result = await mergeDone(dir);
        if (result[1] !== true) throw new Error(`merge on a fresh copy failed: ${result[0]}`);
        dropFresh(dir);
        return;
      }
      await mergeDone(alternate(i, good, bad));
    },
    subsetCharts: async (i) => {
      if (i % (CALLS / SUCCESSES | 0) === 0) {
        const dir = freshDir();
        const [error] = await call(addon.subsetCharts, good, dir, box.north, box.west, box.south, box.east);
        if (error) throw new Error(`subset into a fresh directory failed: ${error.message}`);
        dropFresh(dir);
        return;
      }
      await call(addon.subsetCharts, alternate(i, bad, good), alternate(i, out, missing),
        box.north, box.west, box.south, box.east);
    },
    combineVFRinfoIFR: async (i) => {
      if (i % (CALLS / SUCCESSES | 0) === 0) {
        const dir = freshDir();
        const [error] = await call(addon.combineVFRinfoIFR, good, dir);
        if (error) throw new Error(`combine into a fresh directory failed: ${error.message}`);
        dropFresh(dir);
        return;
      }
      await call(addon.combineVFRinfoIFR, alternate(i, good, nobundles), alternate(i, missing, missing));
    },
  };
}

async function main() {
  const root = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-leaks-'));
  let failed = false;
  try {
    const work = workloads(setUp(root));
    const names = Object.keys(work);
    if (names.length !== 11) throw new Error(`expected the ten functions and the whole texts, have ${names.length}`);

    // Warm-up: every function a while, so caches, pools and the heap settle.
    for (const name of names) await runMany(Math.min(1000, CALLS), work[name]);
    // The first output opens the stream's own handle; it belongs to the baseline.
    console.log(`warmed up; ${CALLS} calls per function follow`);
    const descriptorsBefore = openDescriptors();
    const residentBefore = residentMB();

    const kept = [];
    for (const name of names) {
      const started = Date.now();
      await runMany(CALLS, work[name]);
      if (name === 'libraryVersion' && process.env.TARN_LEAK_INJECT === 'fd') kept.push(fs.openSync(__filename, 'r'));
      if (name === 'libraryVersion' && process.env.TARN_LEAK_INJECT === 'memory') {
        for (let i = 0; i < 32; i++) kept.push(Buffer.alloc(1024 * 1024, i));
      }
      const descriptors = openDescriptors();
      console.log(`${name.padEnd(22)} ${CALLS} calls  ${((Date.now() - started) / 1000).toFixed(1)} s  `
        + `descriptors ${descriptors}  rss ${residentMB().toFixed(1)} MB`);
      if (descriptors !== descriptorsBefore) {
        console.error(`  descriptors changed: ${descriptorsBefore} -> ${descriptors}`);
        failed = true;
      }
    }

    const residentAfter = residentMB();
    const growth = residentAfter - residentBefore;
    console.log(`descriptors ${descriptorsBefore} -> ${openDescriptors()}; resident ${residentBefore.toFixed(1)} MB `
      + `-> ${residentAfter.toFixed(1)} MB (growth ${growth.toFixed(1)} MB, tolerance ${TOLERANCE_MB} MB)`);
    if (openDescriptors() !== descriptorsBefore) failed = true;
    if (growth > TOLERANCE_MB) {
      console.error('resident memory grew beyond the tolerance');
      failed = true;
    }
  } catch (error) {
    console.error(error);
    failed = true;
  } finally {
    fs.rmSync(root, { recursive: true, force: true });
  }
  console.log(failed ? 'LEAK CHECK FAILED' : 'no leaks');
  process.exit(failed ? 1 : 0);
}

main();
