#!/usr/bin/env node
'use strict';
// npm test: builds everything in build/ (TARN_DEVELOPER: the addon, the
// standalone shared library, the C++ tests, the benchmarks, the fault
// driver), runs the C++ tests through CTest on every core, then the
// JavaScript suites, then builds the fuzz targets and runs them over their
// seeds. CTest's output is cut down to what matters: failures
// with their output, tests that did not run, and the summary; the
// JavaScript suites print a dot per test and their failures. Fails when a
// step fails, also when CTest or node finds no test at all.
const { spawn, spawnSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const readline = require('readline');
const { ROOT, compile, jobs, say } = require('./install');

const BUILD = path.join(ROOT, 'build');

function ctest() {
  return new Promise((resolve) => {
    const child = spawn('ctest', ['--test-dir', BUILD, '--no-tests=error', '--output-on-failure',
      '--parallel', String(Math.max(2, jobs()))], { stdio: ['ignore', 'pipe', 'inherit'] });
    let passed = 0;
    const lines = readline.createInterface({ input: child.stdout });
    lines.on('line', (line) => {
      if (/^\s+Start\s+\d+: /.test(line)) return;
      if (/^\s*\d+\/\d+ Test\s+#\d+: .* Passed\s+[\d.]+ sec$/.test(line)) {
        passed++;
        return;
      }
      if (/^(Internal ctest changing into directory|Test project )/.test(line)) return;
      process.stdout.write(`${line}\n`);
    });
    child.on('error', (error) => {
      say(`ctest could not be run: ${error.message}`);
      resolve(1);
    });
    child.on('close', (code) => {
      if (passed) process.stdout.write(`(${passed} C++ tests passed; their lines are left out)\n`);
      resolve(code === null ? 1 : code);
    });
  });
}

// The libFuzzer targets, built with clang and the sanitizers in
// build-fuzz/ (as npm run fuzz builds them), each then run once over its
// seed inputs: a target that cannot even take its seeds fails the tests.
// Without clang they are skipped, loudly.
function fuzzTargets() {
  const clang = spawnSync('clang++', ['--version'], { stdio: 'ignore' });
  if (clang.error || clang.status !== 0) {
    say('SKIPPED the fuzz targets: clang++ is not installed (they need clang and libFuzzer)');
    return 0;
  }
  const build = path.join(ROOT, 'build-fuzz');
  const env = { ...process.env, CC: 'clang', CXX: 'clang++' };
  const quiet = { cwd: ROOT, env, stdio: ['ignore', 'ignore', 'inherit'] };
  const ninja = spawnSync('ninja', ['--version'], { stdio: 'ignore' });
  const generator = !ninja.error && ninja.status === 0 ? ['-G', 'Ninja'] : [];
  if (!fs.existsSync(path.join(build, 'CMakeCache.txt'))) {
    const configured = spawnSync('cmake', ['-S', ROOT, '-B', build, ...generator, '-DCMAKE_BUILD_TYPE=RelWithDebInfo',
      '-DTARN_FUZZ=ON', '-DTARN_BUILD_ADDON=OFF', '-DTARN_DEVELOPER=OFF'], quiet);
    if (configured.status !== 0) {
      say('the fuzz targets could not be configured (clang without libFuzzer?)');
      return 1;
    }
  }
  const built = spawnSync('cmake', ['--build', build, '--parallel', String(jobs())], quiet);
  if (built.status !== 0) {
    say('the fuzz targets FAILED to build');
    return 1;
  }
  const targets = fs.readdirSync(path.join(ROOT, 'fuzz')).map((f) => /^fuzz_(\w+)\.cpp$/.exec(f))
    .filter((m) => m && m[1] !== 'util').map((m) => m[1]);
  let failed = 0;
  for (const target of targets) {
    const seeds = path.join(build, 'seeds', target);
    fs.rmSync(seeds, { recursive: true, force: true });
    fs.mkdirSync(seeds, { recursive: true });
    const wrote = spawnSync(process.execPath, [path.join(ROOT, 'fuzz', 'seeds.js'), target, seeds], { cwd: ROOT });
    const ran = wrote.status === 0 && spawnSync(path.join(build, `fuzz_${target}`),
      ['-runs=0', '-rss_limit_mb=2048', '-malloc_limit_mb=256', seeds], { cwd: ROOT, encoding: 'utf8' });
    if (!ran || ran.status !== 0) {
      failed++;
      say(`fuzz_${target} FAILED on its seeds`);
      if (ran) process.stdout.write(`${ran.stderr.split('\n').slice(-30).join('\n')}\n`);
    }
  }
  process.stdout.write(`(${targets.length - failed} of ${targets.length} fuzz targets built and ran their seeds)\n`);
  return failed ? 1 : 0;
}

async function main() {
  say('building everything (TARN_DEVELOPER)');
  const built = compile({ options: { TARN_DEVELOPER: 'ON', TARN_BUILD_ADDON: 'ON' } });
  if (built !== 0) return built;

  say('C++ tests (CTest)');
  const cpp = await ctest();

  say('JavaScript tests (node --test test/js/)');
  // A dot per test, failures in full at the end; the whole report in TAP
  // beside the build, and its counts here.
  const tap = path.join(BUILD, 'js-tests.tap');
  const js = spawnSync(process.execPath, ['--test', '--test-reporter=dot', '--test-reporter-destination=stdout',
    '--test-reporter=tap', `--test-reporter-destination=${tap}`, 'test/js/'], { cwd: ROOT, stdio: 'inherit' });
  const jsStatus = js.status === null ? 1 : js.status;
  const counts = {};
  try {
    for (const match of fs.readFileSync(tap, 'utf8').matchAll(/^# (tests|pass|fail|cancelled|skipped|todo) (\d+)$/gm)) {
      counts[match[1]] = Number(match[2]);
    }
  } catch {
    // No report: the status says what happened.
  }
  if (counts.tests !== undefined) {
    process.stdout.write(`\n(${counts.tests} JavaScript tests: ${counts.pass} passed, ${counts.fail} failed, `
      + `${counts.skipped} skipped, ${counts.cancelled} cancelled; the full report is ${path.relative(ROOT, tap)})\n`);
  }
  if (jsStatus === 0 && !counts.tests) {
    say('no JavaScript test ran');
    return 1;
  }

  say('fuzz targets (clang, libFuzzer)');
  const fuzz = fuzzTargets();

  if (cpp !== 0) say(`the C++ tests FAILED (ctest exit status ${cpp})`);
  if (jsStatus !== 0) say(`the JavaScript tests FAILED (exit status ${jsStatus})`);
  return cpp || jsStatus || fuzz;
}

main().then((status) => { process.exitCode = status; });
