#!/usr/bin/env node
'use strict';
// Whole-operation benchmark: generates a large chart directory in a temporary
// folder, times merge, subset and combine against a plain copy of the bytes
// each of them writes, measures the checksum kernels against zlib's crc32 and
// a plain read (through the Google Benchmark binary, when it was built), runs
// the table work at two sizes four times apart to show its growth, and
// reports each operation's peak memory. Everything generated is removed at
// the end.
//
//   npm run bench               full size: 40,000 airports, bundles of ~1 GB
//   npm run bench -- --quick    small size for development (tens of MB)
//
// Options: --quick, --reps N (runs per figure, the median is shown),
// --warmup N (runs of each operation and baseline first, not counted; 1),
// --keep (leave the generated files), --json FILE (write the figures).
//
// Each figure is the median of the runs, beside the ratio of the fastest
// run of each side: on a virtual machine the memory a command writes to may
// first have to be handed over by the host, which adds up to seconds per
// gigabyte at random to operation and baseline alike, and the fastest run
// is the one least disturbed.  The first run of each, not counted, is the
// one most likely to meet memory nobody touched since the files were made.
//
// Every operation runs in a child node process of its own, so that the peak
// resident set (maxRSS) belongs to that operation alone; the same child with
// no operation gives the figure to subtract (node itself).
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');

const ROOT = path.join(__dirname, '..');

// ---------------------------------------------------------------- child side

function runChild(op, args) {
  const addon = require(ROOT);
  const started = process.hrtime.bigint();
  const finish = (error) => {
    const ms = Number(process.hrtime.bigint() - started) / 1e6;
    const rss = process.resourceUsage().maxRSS; // kilobytes
    process.stdout.write(JSON.stringify({ ms, maxRSSkB: rss, error: error ? String(error.message) : null }));
  };
  switch (op) {
    case 'noop': return finish(null);
    case 'merge': return addon.merge(args[0], (error, done) => {
      if (error) finish(error);
      else if (done === true) finish(null);
    });
    case 'subset': return addon.subsetCharts(args[0], args[1], args[2], args[3], args[4], args[5], finish);
    case 'combine': return addon.combineVFRinfoIFR(args[0], args[1], finish);
    case 'dumpDbf': return addon.dumpDbf(args[0], args[1], (e) => finish(e && /"-?\d+"/.test(e.message) && !/"-/.test(e.message) ? null : e));
    default: throw new Error(`unknown operation ${op}`);
  }
}

if (process.argv[2] === '--child') {
  runChild(process.argv[3], JSON.parse(process.argv[4]));
  return;
}

// --------------------------------------------------------------- parent side

function parseArgs(argv) {
  const o = { quick: false, reps: 0, warmup: 1, keep: false, json: null };
  for (let i = 0; i < argv.length; i++) {
    const a = argv[i];
    if (a === '--quick') o.quick = true;
    else if (a === '--keep') o.keep = true;
    else if (a === '--reps') o.reps = Number(argv[++i]);
    else if (a === '--json') o.json = argv[++i];
    else if (a === '--warmup') o.warmup = Number(argv[++i]);
    else if (a === '--help' || a === '-h') {
      console.log('usage: node bench/run.js [--quick] [--reps N] [--warmup N] [--keep] [--json FILE]');
      process.exit(0);
    } else throw new Error(`unknown option ${a}`);
  }
  if (!o.reps) o.reps = o.quick ? 3 : 1;
  return o;
}

const options = parseArgs(process.argv.slice(2));
const SIZES = options.quick
  ? { scale: 25, blobBytes: 4096, growthScale: 40, crcBytes: 64 << 20 }
  : { scale: 1000, blobBytes: 3200, growthScale: 1000, crcBytes: 1 << 30 };

const { generate } = require(path.join(ROOT, 'sample'));
const tmp = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-bench-'));
const results = { machine: {}, sizes: SIZES, operations: [], flushedOperations: [], kernels: [], growth: [] };

function median(values) {
  const v = [...values].sort((a, b) => a - b);
  return v.length % 2 ? v[(v.length - 1) / 2] : (v[v.length / 2 - 1] + v[v.length / 2]) / 2;
}

// Whether the operations flush what they write (the library's default) or
// not (TARN_TERMCHART_FLUSH=0, for scratch copies); set per measurement.
let flushing = false;

function child(op, args) {
  if (op !== 'noop') settle();
  const r = spawnSync(process.execPath, [__filename, '--child', op, JSON.stringify(args)],
    { encoding: 'utf8', env: { ...process.env, TARN_TERMCHART_FLUSH: flushing ? '1' : '0' } });
  if (r.status !== 0) throw new Error(`${op} child failed: ${r.stderr}`);
  const out = JSON.parse(r.stdout);
  if (out.error) throw new Error(`${op}: ${out.error}`);
  return out;
}

// A copy made before may still be written back to disk while the next
// command runs, operation or baseline alike: the disk is synced first.
function settle() {
  spawnSync('sync', [], { stdio: 'ignore' });
}

function timed(command, args) {
  settle();
  const started = process.hrtime.bigint();
  const r = spawnSync(command, args, { stdio: 'inherit' });
  if (r.status !== 0) throw new Error(`${command} ${args.join(' ')} failed`);
  return Number(process.hrtime.bigint() - started) / 1e6;
}

// A baseline copy, followed by sync when the operations flush: then the
// copy's bytes must reach the disk too before the figure stands.
function timedCopy(args) {
  if (!flushing) return timed('cp', args);
  const quoted = args.map((a) => `'${a.replace(/'/g, "'\\''")}'`).join(' ');
  return timed('sh', ['-c', `cp ${quoted} && sync`]);
}

function fresh(name) {
  const dir = path.join(tmp, name);
  fs.rmSync(dir, { recursive: true, force: true });
  fs.mkdirSync(dir);
  return dir;
}

function bytesIn(dir) {
  return fs.readdirSync(dir).reduce((sum, n) => sum + fs.statSync(path.join(dir, n)).size, 0);
}

// The copy a writer is judged against: cp of exactly the files it wrote.
function cpFiles(fromDir, name) {
  const to = fresh(name);
  const files = fs.readdirSync(fromDir).map((n) => path.join(fromDir, n));
  return timedCopy([...files, to]);
}

function mb(bytes) { return (bytes / 1e6).toFixed(1); }
function ms(v) { return v.toFixed(0); }

function quarterBox(box) {
  // The north-west quarter of the airports' box.
  const midLat = (box.north + box.south) / 2;
  const midLon = (box.west + box.east) / 2;
  return { north: box.north, west: box.west, south: midLat, east: midLon };
}

// Runs merge, subset and combine on `src` (which has pending updates) and
// returns one row per operation: median time, baseline, peak memory.
function measureOperations(src, summary, reps, label) {
  const rows = [];
  const base = child('noop', []).maxRSSkB;

  // Merge works in place: each run gets its own copy, and making that copy
  // (cp -r of the directory) is the baseline.
  const merge = { op: 'merge', times: [], base: [], rss: [] };
  let merged = null;
  for (let i = -options.warmup; i < reps; i++) {
    const work = path.join(tmp, `${label}-merge`);
    fs.rmSync(work, { recursive: true, force: true });
    const copy = timedCopy(['-r', src, work]);
    const r = child('merge', [work]);
    if (i < 0) continue;
    merge.base.push(copy);
    merge.times.push(r.ms);
    merge.rss.push(r.maxRSSkB);
    merge.bytes = bytesIn(work);
    merged = work;
  }
  merge.baseline = `cp -r of the directory${flushing ? ', then sync' : ''}`;
  merge.inputBytes = bytesIn(src);
  rows.push(merge);

  // Subset and combine read the merged directory and write a new one.
  const box = quarterBox(summary.box);
  const subset = { op: 'subset (quarter box)', times: [], base: [], rss: [] };
  for (let i = -options.warmup; i < reps; i++) {
    const dest = fresh(`${label}-subset`);
    const r = child('subset', [merged, dest, box.north, box.west, box.south, box.east]);
    if (i < 0) {
      cpFiles(dest, `${label}-subset-cp`);
      continue;
    }
    subset.times.push(r.ms);
    subset.rss.push(r.maxRSSkB);
    subset.bytes = bytesIn(dest);
    subset.base.push(cpFiles(dest, `${label}-subset-cp`));
  }
  subset.baseline = `cp of the files it wrote${flushing ? ', then sync' : ''}`;
  rows.push(subset);

  const combine = { op: 'combine', times: [], base: [], rss: [] };
  for (let i = -options.warmup; i < reps; i++) {
    const dest = fresh(`${label}-combine`);
    const r = child('combine', [merged, dest]);
    if (i < 0) {
      cpFiles(dest, `${label}-combine-cp`);
      continue;
    }
    combine.times.push(r.ms);
    combine.rss.push(r.maxRSSkB);
    combine.bytes = bytesIn(dest);
    combine.base.push(cpFiles(dest, `${label}-combine-cp`));
  }
  combine.baseline = `cp of the files it wrote${flushing ? ', then sync' : ''}`;
  rows.push(combine);

  const dump = { op: 'dumpDbf charts.dbf', times: [], base: [], rss: [] };
  for (let i = -options.warmup; i < reps; i++) {
    const out = path.join(tmp, `${label}-dump.txt`);
    const r = child('dumpDbf', [path.join(merged, 'charts.dbf'), out]);
    if (i < 0) continue;
    dump.times.push(r.ms);
    dump.rss.push(r.maxRSSkB);
    dump.bytes = fs.statSync(out).size;
    const t = fresh(`${label}-dump-cp`);
    dump.base.push(timedCopy([out, t]));
  }
  dump.baseline = 'cp of the text it wrote';
  rows.push(dump);

  for (const r of rows) {
    r.ms = median(r.times);
    r.baseMs = median(r.base);
    r.ratio = r.ms / r.baseMs;
    r.bestMs = Math.min(...r.times);
    r.bestBaseMs = Math.min(...r.base);
    r.bestRatio = r.bestMs / r.bestBaseMs;
    r.maxRSSkB = Math.max(...r.rss);
    r.nodeRSSkB = base;
  }
  return rows;
}

function printOperations(title, rows) {
  console.log(`\n${title}`);
  console.log('operation              |    time ms | baseline ms | ratio | fastest ms | fastest baseline | ratio | written MB | peak RSS MB (node alone) | baseline');
  for (const r of rows) {
    console.log(`${r.op.padEnd(22)} | ${ms(r.ms).padStart(10)} | ${ms(r.baseMs).padStart(11)} | ${r.ratio.toFixed(2).padStart(5)} | ${ms(r.bestMs).padStart(10)} | ${ms(r.bestBaseMs).padStart(16)} | ${r.bestRatio.toFixed(2).padStart(5)} | ${mb(r.bytes).padStart(10)} | ${(r.maxRSSkB / 1024).toFixed(1).padStart(11)} (${(r.nodeRSSkB / 1024).toFixed(1)}) | ${r.baseline}`);
  }
}

function runKernels() {
  const binary = path.join(ROOT, 'build', 'tarntermchart_bench');
  if (!fs.existsSync(binary)) {
    console.log('\n(build/tarntermchart_bench not built: Google Benchmark was not found, or bench/run.js ran without npm run bench building it; checksum kernels skipped)');
    return [];
  }
  const r = spawnSync(binary, ['--benchmark_filter=^File/', '--benchmark_format=json'], {
    encoding: 'utf8',
    env: { ...process.env, TMPDIR: tmp, TARN_BENCH_BYTES: String(SIZES.crcBytes) },
    maxBuffer: 64 << 20,
  });
  if (r.status !== 0) throw new Error(`tarntermchart_bench failed: ${r.stderr}`);
  const json = JSON.parse(r.stdout);
  const rows = json.benchmarks.map((b) => ({ name: b.name.replace(/\/real_time$/, ''), ms: b.real_time, unit: b.time_unit }));
  const byName = Object.fromEntries(rows.map((x) => [x.name, x.ms]));
  const zlib = byName['File/zlib_crc32'];
  const read = byName['File/read_only'];
  console.log(`\nChecksum kernels over one ${mb(SIZES.crcBytes)} MB file (Google Benchmark, same file for all)`);
  console.log('kernel                 |    time ms |   MB/s | vs zlib crc32 | vs plain read');
  for (const x of rows) {
    x.vsZlib = zlib ? x.ms / zlib : null;
    x.vsRead = read ? x.ms / read : null;
    console.log(`${x.name.padEnd(22)} | ${x.ms.toFixed(0).padStart(10)} | ${(SIZES.crcBytes / 1e6 / (x.ms / 1000)).toFixed(0).padStart(6)} | ${x.vsZlib ? x.vsZlib.toFixed(2).padStart(13) : '            -'} | ${x.vsRead ? x.vsRead.toFixed(2).padStart(13) : '            -'}`);
  }
  return rows;
}

function describeMachine() {
  const cpus = os.cpus();
  const m = {
    cpus: cpus.length, model: cpus[0] ? cpus[0].model : '?', memoryGB: (os.totalmem() / 2 ** 30).toFixed(1),
    loadBefore: os.loadavg().map((x) => x.toFixed(2)).join(' '), node: process.version, tmp,
  };
  console.log(`machine: ${m.cpus} x ${m.model}, ${m.memoryGB} GB, node ${m.node}, load average ${m.loadBefore}`);
  return m;
}

function main() {
  results.machine = describeMachine();
  console.log(`mode: ${options.quick ? 'quick' : 'full'}, runs per figure: ${options.reps} after ${options.warmup} not counted, data in ${tmp}`);

  let started = Date.now();
  const src = path.join(tmp, 'source');
  const summary = generate(src, { seed: 7, scale: SIZES.scale, blobBytes: SIZES.blobBytes, updates: 1 });
  const ub = summary.updateBundles.map((u) => `${u.file} ${u.entries} entries`).join(', ');
  console.log(`generated in ${((Date.now() - started) / 1000).toFixed(1)} s: ${summary.airports.total} airports, `
    + `${summary.charts.ifr + summary.charts.vfr} chart records, `
    + `${summary.notams.ifr + summary.notams.vfr + summary.notams.country} NOTAMs, `
    + `bundles ${mb(summary.files['charts.bin'] + summary.files['vfrcharts.bin'])} MB, updates: ${ub}`);
  results.summary = {
    airports: summary.airports.total, charts: summary.charts, notams: summary.notams,
    bundleBytes: summary.files['charts.bin'] + summary.files['vfrcharts.bin'], updateBundles: summary.updateBundles,
  };

  flushing = false;
  results.operations = measureOperations(src, summary, options.reps, 'big');
  printOperations(`Whole operations, flushing off (TARN_TERMCHART_FLUSH=0), against cp (median of ${options.reps})`,
    results.operations);
  flushing = true;
  results.flushedOperations = measureOperations(src, summary, options.reps, 'big-flushed');
  printOperations(`Whole operations, flushing on (the default), against cp followed by sync (median of ${options.reps})`,
    results.flushedOperations);
  flushing = false;
  fs.rmSync(src, { recursive: true, force: true });
  for (const n of fs.readdirSync(tmp)) fs.rmSync(path.join(tmp, n), { recursive: true, force: true });

  results.kernels = runKernels();

  // Table work at two sizes four times apart, with the smallest chart files
  // the generator makes, so that the tables dominate.
  const growth = [];
  for (const [label, scale] of [['small', SIZES.growthScale / 4], ['large', SIZES.growthScale]]) {
    const dir = path.join(tmp, `tables-${label}`);
    started = Date.now();
    const s = generate(dir, { seed: 11, scale, blobBytes: 96, updates: 1 });
    console.log(`\ntables ${label}: ${s.airports.total} airports, ${s.charts.ifr + s.charts.vfr} chart records (generated in ${((Date.now() - started) / 1000).toFixed(1)} s)`);
    const rows = measureOperations(dir, s, options.reps, `tables-${label}`);
    growth.push({ label, scale, airports: s.airports.total, records: s.charts.ifr + s.charts.vfr, rows });
    for (const n of fs.readdirSync(tmp)) fs.rmSync(path.join(tmp, n), { recursive: true, force: true });
  }
  console.log('\nGrowth of the table work (scale x4; linear is 4, n log n a little over 4, quadratic 16)');
  console.log('operation              |  small ms |  large ms | growth | small peak MB | large peak MB');
  growth[0].rows.forEach((r, i) => {
    const l = growth[1].rows[i];
    const row = { op: r.op, smallMs: r.ms, largeMs: l.ms, growth: l.ms / r.ms, smallRSSkB: r.maxRSSkB, largeRSSkB: l.maxRSSkB };
    results.growth.push(row);
    console.log(`${r.op.padEnd(22)} | ${ms(r.ms).padStart(9)} | ${ms(l.ms).padStart(9)} | ${row.growth.toFixed(2).padStart(6)} | ${(r.maxRSSkB / 1024).toFixed(1).padStart(13)} | ${(l.maxRSSkB / 1024).toFixed(1).padStart(13)}`);
  });
  results.machine.loadAfter = os.loadavg().map((x) => x.toFixed(2)).join(' ');
  console.log(`\nload average after: ${results.machine.loadAfter}`);
}

try {
  main();
} finally {
  if (options.json) fs.writeFileSync(options.json, JSON.stringify(results, null, 2));
  if (options.keep) console.log(`kept ${tmp}`);
  else fs.rmSync(tmp, { recursive: true, force: true });
}
