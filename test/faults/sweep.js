#!/usr/bin/env node
'use strict';
// Fault sweeps: merge, subset and combine stopped at every point a fault
// can stop them, each followed by what a user would do next, and the
// result compared file by file with one run that went through.
//
//   kill    the operation killed at the N-th call of each system call that
//           writes (strace's fault injection), for every N over a small
//           directory, and at random moments over a larger one.  A merge is
//           then run again until it returns 0 or -4 and its tree must equal
//           the uninterrupted merge's; a subset or combine must leave its
//           source as it was and, run again, give the uninterrupted
//           destination.
//   disk    the operation on a nearly full file system (a size-limited
//           tmpfs and a loop-mounted ext4 image, where kernel copies behave
//           differently), at many levels of free space.  A call that returns
//           0 left the uninterrupted result; one that fails left the source
//           as it was, and a merge run again once space is freed gives the
//           uninterrupted result.
//   flush   under a system-call tracer, every file that takes another's name
//           was flushed after its last write and before the rename, and the
//           directory was flushed after its last rename or removal, before
//           the call returned.
//
//   node test/faults/sweep.js [--quick] [--only kill,disk,flush] [--json FILE]
//
// --quick takes every few N and fewer levels (the version npm test runs).
// The kill and flush sweeps need strace; the disk sweep needs root to
// mount.  A sweep that cannot run says so on stderr and counts as skipped.
const { execFileSync, spawnSync } = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const os = require('os');
const path = require('path');

const ROOT = path.join(__dirname, '..', '..');
const { generate } = require(path.join(ROOT, 'sample'));

const DRIVER = process.env.TARN_FAULT_DRIVER || path.join(ROOT, 'build', 'tarntermchart_fault_driver');
// The system calls that write: every one is a point a kill can land on.
const WRITING_CALLS = ['openat', 'write', 'pwrite64', 'copy_file_range', 'ftruncate', 'fsync', 'fdatasync',
  'rename', 'renameat', 'renameat2', 'unlink', 'unlinkat', 'linkat', 'close'];

function parseArgs(argv) {
  const o = { quick: false, only: null, json: null };
  for (let i = 0; i < argv.length; i++) {
    const a = argv[i];
    if (a === '--quick') o.quick = true;
    else if (a === '--only') o.only = argv[++i].split(',');
    else if (a === '--json') o.json = argv[++i];
    else throw new Error(`unknown option ${a}`);
  }
  return o;
}

// ---------------------------------------------------------------- helpers

function have(command) {
  return spawnSync('sh', ['-c', `command -v ${command}`], { stdio: 'ignore' }).status === 0;
}

function skip(sweep, why) {
  process.stderr.write(`\n*** SKIPPED: the ${sweep} sweep: ${why} ***\n\n`);
  return { skipped: why };
}

// Every file of a directory: name to a digest of its bytes (links and
// directories by kind).
function tree(dir) {
  const out = {};
  for (const name of fs.readdirSync(dir).sort()) {
    const file = path.join(dir, name);
    const st = fs.lstatSync(file);
    if (st.isSymbolicLink()) out[name] = `link ${fs.readlinkSync(file)}`;
    else if (st.isDirectory()) out[name] = 'directory';
    else out[name] = crypto.createHash('sha256').update(fs.readFileSync(file)).digest('hex').slice(0, 16);
  }
  return out;
}

function differences(a, b) {
  const names = new Set([...Object.keys(a), ...Object.keys(b)]);
  return [...names].filter((n) => a[n] !== b[n]).map((n) => (!(n in a) ? `+${n}` : !(n in b) ? `-${n}` : `~${n}`));
}

function same(a, b) {
  return differences(a, b).length === 0;
}

function copyDir(from, to) {
  fs.rmSync(to, { recursive: true, force: true });
  fs.mkdirSync(to, { recursive: true });
  for (const name of fs.readdirSync(from)) fs.copyFileSync(path.join(from, name), path.join(to, name));
}

// Runs the driver; its code (0 or negative), or 'killed' when it did not
// exit on its own.
function drive(args, options = {}) {
  const r = spawnSync(options.prefix ? options.prefix[0] : DRIVER,
    options.prefix ? [...options.prefix.slice(1), DRIVER, ...args] : args,
    { encoding: 'utf8', timeout: 120000, env: { ...process.env, ...(options.env || {}) } });
  if (r.signal || r.status === null) return 'killed';
  const printed = /^(-?\d+)\s*$/m.exec(r.stdout || '');
  if (printed) return Number(printed[1]);
  // strace hands on the tracee's death by a signal as 128 + the signal.
  if (r.status === 137 || r.status > 128) return 'killed';
  throw new Error(`driver ${args.join(' ')} gave no result: status ${r.status} ${r.stderr}`);
}

function operationArgs(op, source, destination) {
  if (op === 'merge') return ['merge', source];
  if (op === 'subset') return ['subset', source, destination, '90', '-180', '-90', '180'];
  return ['combine', source, destination];
}

// How often each writing call comes in one uninterrupted run.
function countCalls(op, prepare) {
  const { args } = prepare();
  const trace = path.join(os.tmpdir(), `tarn-faults-count-${process.pid}.txt`);
  spawnSync('strace', ['-f', '-qq', '-o', trace, '-e', `trace=${WRITING_CALLS.join(',')}`, DRIVER, ...args],
    { stdio: 'ignore' });
  const counts = {};
  for (const line of fs.readFileSync(trace, 'utf8').split('\n')) {
    const m = /^(?:\d+\s+)?([a-z0-9_]+)\(/.exec(line);
    if (m) counts[m[1]] = (counts[m[1]] || 0) + 1;
  }
  fs.rmSync(trace, { force: true });
  return counts;
}

// ---------------------------------------------------------------- the cases

// The directories of the sweeps, made once: a small one with two pending
// updates per family, and the reference results of each operation.
function makeCases(work, scale) {
  fs.mkdirSync(work, { recursive: true });
  const source = path.join(work, `source-${scale}`);
  generate(source, { seed: 7, scale, blobBytes: 300, updates: 2 });
  const ref = {};
  const merged = path.join(work, `merged-${scale}`);
  copyDir(source, merged);
  if (drive(['merge', merged]) !== 0) throw new Error('the reference merge failed');
  ref.merge = tree(merged);
  // Without a VFR bundle the first VFR update becomes the bundle by a
  // rename, and the next is applied over it.
  const fresh = path.join(work, `fresh-${scale}`);
  copyDir(source, fresh);
  fs.rmSync(path.join(fresh, 'vfrcharts.bin'));
  const freshTree = tree(fresh);
  const freshMerged = path.join(work, `fresh-merged-${scale}`);
  copyDir(fresh, freshMerged);
  if (drive(['merge', freshMerged]) !== 0) throw new Error('the reference merge without a VFR bundle failed');
  ref.freshMerge = tree(freshMerged);
  for (const op of ['subset', 'combine']) {
    const dest = path.join(work, `${op}-ref-${scale}`);
    fs.mkdirSync(dest);
    if (drive(operationArgs(op, merged, dest)) !== 0) throw new Error(`the reference ${op} failed`);
    ref[op] = tree(dest);
  }
  return { source, fresh, merged, ref, sourceTree: tree(source), freshTree, mergedTree: tree(merged) };
}

// After a merge that was stopped or failed: merges until 0 or -4, then the
// tree must be the uninterrupted one.  Returns a problem text or null.
function finishMerge(dir, ref) {
  let code;
  for (let i = 0; i < 4; i++) {
    code = drive(['merge', dir]);
    if (code === 0 || code === -4) break;
  }
  if (code !== 0 && code !== -4) return `merges after it end with ${code}`;
  const got = tree(dir);
  return same(got, ref) ? null : `tree differs: ${differences(ref, got).join(' ')}`;
}

// After a subset or combine that was stopped or failed: the source as it
// was, and the destination whole (done already, or done by running again).
function finishCopy(op, cases, dest) {
  if (!same(tree(cases.merged), cases.mergedTree)) return 'the source changed';
  if (same(tree(dest), cases.ref[op])) return null;
  const code = drive(operationArgs(op, cases.merged, dest));
  if (code !== 0) return `running again gives ${code}`;
  const got = tree(dest);
  return same(got, cases.ref[op]) ? null : `destination differs: ${differences(cases.ref[op], got).join(' ')}`;
}

// ---------------------------------------------------------------- kill

function killSweep(work, quick) {
  if (!have('strace')) return skip('kill', 'strace is not installed (apt-get install strace)');
  const cases = makeCases(work, 1);
  const result = { runs: 0, differing: 0, killed: 0, problems: [], perOperation: {} };
  for (const op of ['merge', 'freshMerge', 'subset', 'combine']) {
    const merges = op === 'merge' || op === 'freshMerge';
    const from = op === 'freshMerge' ? cases.fresh : cases.source;
    const dir = path.join(work, `kill-${op}`), dest = path.join(work, `kill-${op}-dest`);
    const prepare = () => {
      if (merges) copyDir(from, dir);
      else fs.rmSync(dest, { recursive: true, force: true }), fs.mkdirSync(dest);
      return { args: merges ? ['merge', dir] : operationArgs(op, cases.merged, dest) };
    };
    const counts = countCalls(op, prepare);
    const tally = { runs: 0, killed: 0, calls: counts };
    for (const call of Object.keys(counts).sort()) {
      const step = quick ? Math.max(1, Math.ceil(counts[call] / 6)) : 1;
      for (let n = 1; n <= counts[call]; n += step) {
        const { args } = prepare();
        const code = drive(args, {
          prefix: ['strace', '-f', '-qq', '-o', '/dev/null', '-e', `trace=${call}`, '-e', `inject=${call}:signal=KILL:when=${n}`],
        });
        tally.runs++;
        if (code === 'killed') tally.killed++;
        const problem = merges ? finishMerge(dir, cases.ref[op]) : finishCopy(op, cases, dest);
        if (problem) result.problems.push(`${op} killed at ${call} #${n} (${code}): ${problem}`);
      }
    }
    // Random moments over a larger directory.
    if (!cases.big) cases.big = makeCases(path.join(work, 'bigwork'), quick ? 8 : 30);
    const bigCases = cases.big;
    const started = Date.now();
    const bigDir = path.join(work, `big-${op}`), bigDest = path.join(work, `big-${op}-dest`);
    const bigPrepare = () => {
      if (merges) copyDir(op === 'freshMerge' ? bigCases.fresh : bigCases.source, bigDir);
      else fs.rmSync(bigDest, { recursive: true, force: true }), fs.mkdirSync(bigDest);
      return merges ? ['merge', bigDir] : operationArgs(op, bigCases.merged, bigDest);
    };
    drive(bigPrepare());
    const duration = Math.max(5, Date.now() - started);
    const moments = quick ? 6 : 40;
    for (let i = 0; i < moments; i++) {
      const args = bigPrepare();
      const at = ((i * 7919) % 1000) / 1000 * duration * 1.2;
      const code = drive(args, { prefix: ['timeout', '-s', 'KILL', `${(at / 1000).toFixed(3)}s`] });
      tally.runs++;
      if (code === 'killed') tally.killed++;
      const problem = merges ? finishMerge(bigDir, bigCases.ref[op]) : finishCopy(op, bigCases, bigDest);
      if (problem) result.problems.push(`${op} (larger) killed after ${at.toFixed(0)} ms (${code}): ${problem}`);
    }
    result.perOperation[op] = tally;
    result.runs += tally.runs;
    result.killed += tally.killed;
  }
  result.differing = result.problems.length;
  return result;
}

// ---------------------------------------------------------------- disk

function mount(kind, mountPoint, work, bytes) {
  fs.mkdirSync(mountPoint, { recursive: true });
  if (kind === 'tmpfs') {
    execFileSync('mount', ['-t', 'tmpfs', '-o', `size=${bytes}`, 'tarn-faults', mountPoint]);
  } else {
    const image = path.join(work, 'ext4.img');
    fs.rmSync(image, { force: true });
    execFileSync('truncate', ['-s', String(bytes), image]);
    execFileSync('mkfs.ext4', ['-q', '-F', '-m', '0', image]);
    execFileSync('mount', ['-o', 'loop', image, mountPoint]);
  }
}

function unmount(mountPoint) {
  spawnSync('umount', [mountPoint], { stdio: 'ignore' });
}

function freeBytes(dir) {
  const st = fs.statfsSync(dir);
  return st.bavail * st.bsize;
}

// Fills the file system of dir but for free bytes (to its block size).
function fillTo(dir, free) {
  const filler = path.join(dir, 'filler');
  fs.rmSync(filler, { force: true });
  const take = freeBytes(dir) - free;
  if (take <= 0) return;
  const fd = fs.openSync(filler, 'w');
  const block = Buffer.alloc(1 << 20);
  let left = take;
  try {
    while (left > 0) {
      const n = Math.min(left, block.length);
      fs.writeSync(fd, block, 0, n);
      left -= n;
    }
  } catch (e) { /* full */ }
  fs.closeSync(fd);
}

function diskSweep(work, quick) {
  fs.mkdirSync(work, { recursive: true });
  if (process.getuid && process.getuid() !== 0) return skip('disk', 'mounting a small file system needs root');
  const probe = path.join(work, 'probe');
  try {
    mount('tmpfs', probe, work, 1 << 20);
    unmount(probe);
  } catch (e) {
    return skip('disk', `a tmpfs cannot be mounted here (${e.message.split('\n')[0]})`);
  }
  const kinds = have('mkfs.ext4') ? ['tmpfs', 'ext4'] : ['tmpfs'];
  if (kinds.length === 1) process.stderr.write('\n*** the ext4 half of the disk sweep is SKIPPED: mkfs.ext4 missing (apt-get install e2fsprogs) ***\n\n');
  const cases = makeCases(work, 2);
  const result = { runs: 0, failed: 0, problems: [], perKind: {} };
  const sizeOf = (dir) => fs.readdirSync(dir).reduce((n, f) => n + fs.statSync(path.join(dir, f)).size, 0);
  const need = sizeOf(cases.source) * 3 + (4 << 20);
  for (const kind of kinds) {
    const mountPoint = path.join(work, `mnt-${kind}`);
    const tally = { runs: 0, failed: 0, codes: {} };
    mount(kind, mountPoint, work, Math.max(need * 2, 16 << 20));
    try {
      // Updates are applied in the order the directory lists them, which
      // differs from one file system to another: the merges' references
      // are taken on this one, with room to spare.
      const ref = { ...cases.ref };
      for (const [op, from] of [['merge', cases.source], ['freshMerge', cases.fresh]]) {
        const dir = path.join(mountPoint, 'reference');
        copyDir(from, dir);
        if (drive(['merge', dir]) !== 0) throw new Error(`the reference ${op} on ${kind} failed`);
        ref[op] = tree(dir);
        fs.rmSync(dir, { recursive: true, force: true });
      }
      const kindCases = { ...cases, ref };
      for (const op of ['merge', 'freshMerge', 'subset', 'combine']) {
        const merges = op === 'merge' || op === 'freshMerge';
        const from = op === 'freshMerge' ? cases.fresh : cases.source;
        const before = op === 'freshMerge' ? cases.freshTree : cases.sourceTree;
        const dir = path.join(mountPoint, 'dir');
        const dest = path.join(mountPoint, 'dest');
        const span = merges ? sizeOf(from) * 2 : sizeOf(cases.merged) * 1.5;
        const levels = quick ? 12 : 60;
        for (let i = 0; i <= levels; i++) {
          fs.rmSync(path.join(mountPoint, 'filler'), { force: true });
          fs.rmSync(dir, { recursive: true, force: true });
          fs.rmSync(dest, { recursive: true, force: true });
          if (merges) copyDir(from, dir);
          else fs.mkdirSync(dest);
          const free = Math.floor((span * i) / levels);
          fillTo(mountPoint, free);
          const code = drive(merges ? ['merge', dir] : operationArgs(op, cases.merged, dest));
          tally.runs++;
          tally.codes[`${op} ${code}`] = (tally.codes[`${op} ${code}`] || 0) + 1;
          let problem = null;
          if (code === 0) {
            const got = tree(merges ? dir : dest);
            if (!same(got, ref[op])) problem = `returned 0 but differs: ${differences(ref[op], got).join(' ')}`;
          } else {
            tally.failed++;
            if (merges) {
              const got = tree(dir);
              for (const n of Object.keys(got)) if (n.includes('NEW')) delete got[n];
              if (!same(got, before)) problem = `failed with ${code} and changed the directory: ${differences(before, got).join(' ')}`;
            } else if (!same(tree(cases.merged), cases.mergedTree)) {
              problem = `failed with ${code} and changed the source`;
            }
            fs.rmSync(path.join(mountPoint, 'filler'), { force: true });
            problem = problem || (merges ? finishMerge(dir, ref[op]) : finishCopy(op, kindCases, dest));
          }
          if (problem) result.problems.push(`${kind} ${op} with ${free} bytes free: ${problem}`);
        }
      }
    } finally {
      unmount(mountPoint);
    }
    result.perKind[kind] = tally;
    result.runs += tally.runs;
    result.failed += tally.failed;
  }
  return result;
}

// ---------------------------------------------------------------- flush

// Checks a trace (strace -f -y) of one operation: every rename's source
// was flushed after its last write, and every directory that had names
// renamed or removed in it was flushed after the last of them.
function checkFlushOrder(lines) {
  const problems = [];
  const lastWrite = new Map();   // path -> line of its last write
  const flushed = new Map();     // path -> line its last flush completed
  const unfinished = new Map();  // pid -> path of an fsync under way
  const dirChanged = new Map();  // directory -> line of its last rename or removal
  let renames = 0;
  lines.forEach((line, i) => {
    const pid = (/^(\d+)\s/.exec(line) || [])[1] || '';
    const fdPath = (call) => {
      const m = new RegExp(`${call}\\(\\d+<([^>]*)>`).exec(line);
      return m && m[1];
    };
    for (const call of ['write', 'pwrite64', 'ftruncate']) {
      const p = fdPath(call);
      if (p && !/= -1/.test(line)) lastWrite.set(p, i);
    }
    const copy = /copy_file_range\(\d+<[^>]*>, [^,]*, \d+<([^>]*)>/.exec(line);
    if (copy) lastWrite.set(copy[1], i);
    for (const call of ['fsync', 'fdatasync']) {
      const p = fdPath(call);
      if (p && /<unfinished \.\.\.>/.test(line)) unfinished.set(pid + call, p);
      else if (p && /= 0/.test(line)) flushed.set(p, i);
      const resumed = new RegExp(`<\\.\\.\\. ${call} resumed>.*= 0`).test(line);
      if (resumed && unfinished.has(pid + call)) flushed.set(unfinished.get(pid + call), i);
    }
    const rename = /rename(?:at2?)?\((?:[^,]*, )?"([^"]+)", (?:[^,]*, )?"([^"]+)"/.exec(line);
    if (rename && /= 0/.test(line)) {
      renames++;
      const from = rename[1];
      const wrote = lastWrite.has(from) ? lastWrite.get(from) : -1;
      const flush = flushed.has(from) ? flushed.get(from) : -1;
      if (wrote >= 0 && !(flush > wrote)) problems.push(`${from} renamed to ${rename[2]} without a flush after its last write`);
      dirChanged.set(path.dirname(rename[2]), i);
      lastWrite.delete(from);
    }
    const unlink = /unlink(?:at)?\((?:[^,]*, )?"([^"]+)"/.exec(line);
    if (unlink && /= 0/.test(line)) dirChanged.set(path.dirname(unlink[1]), i);
    const dirFlush = /fsync\(\d+<([^>]*)>\) = 0/.exec(line);
    if (dirFlush) flushed.set(dirFlush[1], i);
  });
  for (const [dir, at] of dirChanged) {
    if (!(flushed.get(dir) > at)) problems.push(`directory ${dir} not flushed after its last rename or removal`);
  }
  return { renames, problems };
}

function flushSweep(work) {
  if (!have('strace')) return skip('flush', 'strace is not installed (apt-get install strace)');
  const cases = makeCases(work, 1);
  const result = { operations: 0, renames: 0, problems: [] };
  for (const op of ['merge', 'subset', 'combine']) {
    const dir = path.join(work, `flush-${op}`), dest = path.join(work, `flush-${op}-dest`);
    if (op === 'merge') copyDir(cases.source, dir);
    else fs.mkdirSync(dest, { recursive: true });
    const trace = path.join(work, `flush-${op}.trace`);
    const code = drive(op === 'merge' ? ['merge', dir] : operationArgs(op, cases.merged, dest), {
      prefix: ['strace', '-f', '-qq', '-y', '-s', '256', '-o', trace, '-e',
        'trace=write,pwrite64,ftruncate,copy_file_range,fsync,fdatasync,rename,renameat,renameat2,unlink,unlinkat'],
      env: { TARN_TERMCHART_FLUSH: '1' },
    });
    if (code !== 0) result.problems.push(`${op} returned ${code} under the tracer`);
    const checked = checkFlushOrder(fs.readFileSync(trace, 'utf8').split('\n'));
    result.operations++;
    result.renames += checked.renames;
    result.problems.push(...checked.problems.map((p) => `${op}: ${p}`));
  }
  return result;
}

// ---------------------------------------------------------------- main

function main() {
  const options = parseArgs(process.argv.slice(2));
  if (!fs.existsSync(DRIVER)) {
    console.error(`the fault driver is not built: ${DRIVER} (npm test and npm run build:all build it)`);
    process.exit(2);
  }
  const work = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-faults-'));
  const results = {};
  const wanted = (name) => !options.only || options.only.includes(name);
  try {
    if (wanted('kill')) results.kill = killSweep(path.join(work, 'kill'), options.quick);
    if (wanted('disk')) results.disk = diskSweep(path.join(work, 'disk'), options.quick);
    if (wanted('flush')) results.flush = flushSweep(path.join(work, 'flush'));
  } finally {
    // Nothing stays mounted, even after a sweep that threw.
    for (const line of fs.readFileSync('/proc/mounts', 'utf8').split('\n')) {
      const point = line.split(' ')[1];
      if (point && point.startsWith(work)) unmount(point);
    }
    fs.rmSync(work, { recursive: true, force: true });
  }
  let problems = 0;
  for (const [name, r] of Object.entries(results)) {
    if (r.skipped) {
      console.log(`${name}: skipped (${r.skipped})`);
      continue;
    }
    const summary = { ...r };
    delete summary.problems;
    console.log(`${name}: ${JSON.stringify(summary)}`);
    for (const p of r.problems) console.log(`  PROBLEM ${p}`);
    problems += r.problems.length;
  }
  if (options.json) fs.writeFileSync(options.json, `${JSON.stringify(results, null, 1)}\n`);
  console.log(problems ? `${problems} problems` : 'no problems');
  process.exitCode = problems ? 1 : 0;
}

if (require.main === module) main();

module.exports = { checkFlushOrder, tree, differences };
