'use strict';
// The package as a user gets it: packed (npm pack), installed into a project
// of its own (npm install <tarball>), and used there through its entry
// points. Two installs run side by side:
//   - with the prebuilt addon for this machine (built first with
//     scripts/prebuild.js --host) and a PATH without cmake or any compiler:
//     the install compiles nothing and the prebuild is what loads;
//   - from source (TARN_TERMCHART_BUILD_FROM_SOURCE=1): the install compiles
//     the addon alone, finding the Node-API headers where npm put them.
// A part that cannot run here is skipped with a message on stderr.
const { describe, it: test, before, after } = require('node:test');
const assert = require('node:assert/strict');
const { spawn, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const ROOT = path.join(__dirname, '..', '..');
const pkg = require('../../package.json');
const prebuildDir = path.join(ROOT, 'prebuilds', `${process.platform}-${process.arch}`);
const TOOLS_LEFT_OUT = ['cmake', 'c++', 'g++', 'gcc', 'cc', 'clang', 'clang++', 'make', 'ninja'];

function skipLoudly(t, why) {
  process.stderr.write(`consumer.test.js: SKIPPED ${t.name}: ${why}\n`);
  t.skip(why);
}

function have(command) {
  return spawnSync('sh', ['-c', `command -v ${command}`], { stdio: 'ignore' }).status === 0;
}

// The environment of an npm run of its own: nothing of the npm run this
// test may be part of (npm test), but the same cache and registry.
function npmEnvironment(extra = {}) {
  const env = {};
  for (const [key, value] of Object.entries(process.env)) {
    if (/^npm_(package|lifecycle|config|node|execpath|command)/i.test(key) || key === 'INIT_CWD') continue;
    env[key] = value;
  }
  for (const key of ['npm_config_cache', 'npm_config_registry', 'npm_config_userconfig']) {
    if (process.env[key]) env[key] = process.env[key];
  }
  return { ...env, ...extra };
}

function npmCli() {
  // npm's own script, run with this node, so that it does not depend on PATH.
  const candidates = [
    process.env.npm_execpath,
    path.join(path.dirname(process.execPath), '..', 'lib', 'node_modules', 'npm', 'bin', 'npm-cli.js'),
  ];
  for (const file of candidates) if (file && /npm-cli\.js$/.test(file) && fs.existsSync(file)) return file;
  const r = spawnSync('sh', ['-c', 'command -v npm'], { encoding: 'utf8' });
  return fs.realpathSync(r.stdout.trim());
}

function run(command, args, options) {
  return new Promise((resolve) => {
    const child = spawn(command, args, { ...options, stdio: ['ignore', 'pipe', 'pipe'] });
    let stdout = '', stderr = '';
    child.stdout.on('data', (d) => { stdout += d; });
    child.stderr.on('data', (d) => { stderr += d; });
    child.on('error', (error) => resolve({ status: -1, stdout, stderr: `${stderr}${error.message}` }));
    child.on('close', (status) => resolve({ status, stdout, stderr }));
  });
}

// A bin directory with node, npm and a shell, and nothing to compile with.
function binWithoutCompilers(dir) {
  fs.mkdirSync(dir);
  const npm = path.join(dir, 'npm');
  fs.writeFileSync(npm, `#!/bin/sh\nexec "${process.execPath}" "${npmCli()}" "$@"\n`, { mode: 0o755 });
  fs.symlinkSync(process.execPath, path.join(dir, 'node'));
  for (const tool of ['sh', 'env']) {
    const r = spawnSync('sh', ['-c', `command -v ${tool}`], { encoding: 'utf8' });
    if (r.status === 0) fs.symlinkSync(r.stdout.trim(), path.join(dir, tool));
  }
  return dir;
}

function newProject(dir) {
  fs.mkdirSync(dir);
  fs.writeFileSync(path.join(dir, 'package.json'), JSON.stringify({ name: 'consumer', version: '1.0.0', private: true }));
  fs.writeFileSync(path.join(dir, 'use.js'), USE);
  return dir;
}

function install(project, tarball, { env, pathDirs }) {
  const PATH = pathDirs ? pathDirs.join(path.delimiter) : process.env.PATH;
  return run(process.execPath, [npmCli(), 'install', '--no-audit', '--no-fund', '--prefer-offline',
    '--foreground-scripts', '--loglevel', 'warn', tarball],
  { cwd: project, env: npmEnvironment({ ...env, PATH }) });
}

// What a user's program does, callbacks and promises: merges, checks and
// subsets generated directories, and reports what it saw as JSON.
const USE = `'use strict';
const fs = require('fs');
const path = require('path');
const termchart = require('tarn-termchart');
const promises = require('tarn-termchart/promises');
const sample = require('tarn-termchart/sample');

const work = process.argv[2];
const report = {};

function callbackMerge(dir) {
  return new Promise((resolve) => {
    const calls = [];
    termchart.merge(dir, (error, done, percent) => {
      calls.push([error ? error.message : null, done, percent]);
      if (error || done) resolve(calls);
    });
  });
}

function callback(fn, ...args) {
  return new Promise((resolve) => fn(...args, (error) => resolve(error ? error.message : null)));
}

function bundle(dir) {
  const file = path.join(dir, 'charts.bin');
  const read = sample.readChartsBin(file);
  return { charts: read.entries.length, checksumRight: read.crc === sample.bundleCrc(fs.readFileSync(file)) };
}

function makeValid(source, destination) {
  // A subset leaves the data cycle and the coverage to its caller.
  for (const name of ['revision.txt', 'coverages.txt']) {
    fs.copyFileSync(path.join(source, name), path.join(destination, name));
  }
}

(async () => {
  report.version = termchart.libraryVersion();
  report.promisesVersion = await promises.libraryVersion();

  // Callbacks.
  const one = path.join(work, 'callbacks');
  fs.mkdirSync(one);
  const box = sample.generate(one, { seed: 11, scale: 1, updates: 1 }).box;
  report.callbackValidBefore = await callback(termchart.isValidChartDirectory, one);
  report.callbackMerge = await callbackMerge(one);
  report.callbackValidAfter = await callback(termchart.isValidChartDirectory, one);
  const oneCut = path.join(work, 'callbacks-subset');
  fs.mkdirSync(oneCut);
  report.callbackSubset = await callback(termchart.subsetCharts, one, oneCut,
    box.north, box.west, (box.north + box.south) / 2, box.east);
  report.callbackSubsetBundle = bundle(oneCut);
  report.callbackSourceBundle = bundle(one);
  makeValid(one, oneCut);
  report.callbackSubsetValid = await callback(termchart.isValidChartDirectory, oneCut);

  // Promises.
  const two = path.join(work, 'promises');
  fs.mkdirSync(two);
  const box2 = sample.generate(two, { seed: 12, scale: 1, updates: 1 }).box;
  const progress = [];
  await promises.merge(two, { onProgress: (percent) => progress.push(percent) });
  report.promiseProgress = [progress[0], progress[progress.length - 1]];
  report.promiseValidAfter = await promises.isValidChartDirectory(two).then(() => null, (e) => e.message);
  const twoCut = path.join(work, 'promises-subset');
  fs.mkdirSync(twoCut);
  report.promiseSubset = await promises.subsetCharts(two, twoCut,
    box2.north, box2.west, (box2.north + box2.south) / 2, box2.east).then(() => null, (e) => e.message);
  report.promiseSubsetBundle = bundle(twoCut);
  makeValid(two, twoCut);
  report.promiseSubsetValid = await promises.isValidChartDirectory(twoCut).then(() => null, (e) => e.message);
  report.promiseMergeAgain = await promises.merge(two).then(() => null,
    (e) => ({ message: e.message, code: e.code, result: e.result, isError: e instanceof promises.TarnTermChartError }));
  report.callbackMergeAgain = await new Promise((resolve) => termchart.merge(one, (e, done) => {
    if (e || done) resolve(e ? { message: e.message, code: e.code, result: e.result } : null);
  }));
  report.cycle = await promises.cycleNumber(two);

  report.addon = require.resolve('tarn-termchart');
  process.stdout.write(JSON.stringify(report));
})().catch((error) => {
  process.stderr.write(String(error && error.stack || error));
  process.exitCode = 1;
});
`;

// Runs use.js in an installed project and checks what it reports.
async function checkUse(project) {
  const work = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-consumer-use-'));
  try {
    const r = await run(process.execPath, [path.join(project, 'use.js'), work], { cwd: project });
    assert.equal(r.status, 0, r.stderr);
    const report = JSON.parse(r.stdout);
    assert.equal(report.version, '9.9');
    assert.equal(report.promisesVersion, '9.9');
    assert.match(report.callbackValidBefore, /merge is needed/); // an update bundle waits
    // (JSON has null for undefined.) Progress (undefined, undefined, percent)
    // from 0 to 100, then done (undefined, true, undefined).
    const merge = report.callbackMerge;
    const progress = merge.slice(0, -1);
    assert.deepEqual(merge[merge.length - 1], [null, true, null], JSON.stringify(merge));
    for (const call of progress) assert.deepEqual(call.slice(0, 2), [null, null], JSON.stringify(merge));
    assert.equal(progress[0][2], 0);
    assert.equal(progress[progress.length - 1][2], 100);
    assert.equal(report.callbackValidAfter, null);
    assert.equal(report.callbackSubset, null);
    assert.ok(report.callbackSubsetBundle.checksumRight);
    assert.ok(report.callbackSubsetBundle.charts > 0);
    assert.ok(report.callbackSubsetBundle.charts < report.callbackSourceBundle.charts);
    assert.equal(report.callbackSubsetValid, null);
    assert.deepEqual(report.promiseProgress, [0, 100]);
    assert.equal(report.promiseValidAfter, null);
    assert.equal(report.promiseSubset, null);
    assert.ok(report.promiseSubsetBundle.checksumRight);
    assert.ok(report.promiseSubsetBundle.charts > 0);
    assert.equal(report.promiseSubsetValid, null);
    // Nothing left to merge: the same code from both forms.
    assert.match(report.promiseMergeAgain.message, /update/);
    assert.deepEqual({ ...report.promiseMergeAgain, message: undefined },
      { message: undefined, code: 'ERR_TARN_MERGE_NO_UPDATES', result: -4, isError: true });
    assert.deepEqual(report.callbackMergeAgain,
      { message: 'Received bad result: "-4".', code: 'ERR_TARN_MERGE_NO_UPDATES', result: -4 });
    assert.match(report.cycle, /^\d{4}$/);
    return report;
  } finally {
    fs.rmSync(work, { recursive: true, force: true });
  }
}

// Under emulation (npm run test:arm64) packing and installing would only
// test the machine's own architecture again, many times slower.
const emulated = process.env.TARN_TEST_EMULATED === '1';
if (emulated) {
  process.stderr.write('consumer.test.js: SKIPPED under emulation (TARN_TEST_EMULATED=1): ' +
    'npm test runs it on the build machine\n');
}

describe('the packed package, installed as a dependency', { skip: emulated, timeout: 15 * 60 * 1000 }, () => {
  let temp, packed, files;
  const installs = {};

  before(async () => {
    temp = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-consumer-'));
    // The prebuild of this machine, fresh from this checkout's sources.
    const prebuilt = spawnSync(process.execPath, [path.join(ROOT, 'scripts', 'prebuild.js'), '--host'],
      { cwd: ROOT, encoding: 'utf8' });
    if (prebuilt.status !== 0) {
      process.stderr.write(`consumer.test.js: scripts/prebuild.js --host failed:\n${prebuilt.stdout}${prebuilt.stderr}\n`);
    }
    // No prepack here: it would also cross-build the other architectures.
    const pack = spawnSync(process.execPath, [npmCli(), 'pack', '--ignore-scripts', '--json',
      '--pack-destination', temp], { cwd: ROOT, encoding: 'utf8', env: npmEnvironment() });
    assert.equal(pack.status, 0, pack.stderr);
    const [info] = JSON.parse(pack.stdout);
    packed = path.join(temp, info.filename);
    files = info.files.map((f) => f.path);

    const withPrebuild = fs.existsSync(prebuildDir) && fs.readdirSync(prebuildDir).some((f) => f.endsWith('.node'));
    const jobs = [];
    if (withPrebuild) {
      const bin = binWithoutCompilers(path.join(temp, 'bin'));
      const project = newProject(path.join(temp, 'prebuilt'));
      jobs.push(install(project, packed, { pathDirs: [bin] }).then((r) => {
        installs.prebuilt = { project, ...r };
      }));
    }
    if (have('cmake')) {
      const project = newProject(path.join(temp, 'from-source'));
      jobs.push(install(project, packed, { env: { TARN_TERMCHART_BUILD_FROM_SOURCE: '1' } }).then((r) => {
        installs.fromSource = { project, ...r };
      }));
    }
    await Promise.all(jobs);
  });

  after(() => {
    if (temp) fs.rmSync(temp, { recursive: true, force: true });
  });

  test('the tarball holds what users run and what compiles the addon, and nothing else', () => {
    for (const file of files) {
      assert.doesNotMatch(file, /^(test|bench|fuzz|demo|\.ci|build[^/]*|cmake|node_modules)\//, file);
      assert.doesNotMatch(file, /^docs\/(?!(api|formats)\.md$)/, file);
      assert.doesNotMatch(file, /^scripts\/(?!install\.js$)/, file);
    }
    for (const file of ['LICENSE', 'README.md', 'package.json', 'index.js', 'promises.js', 'lib/binding.js',
      'sample/index.js', 'bin/tarn-termchart.js', 'CMakeLists.txt', 'include/tarntermchart.h',
      'library/exports.map', 'addon/module.cpp', 'scripts/install.js', 'CHANGELOG.md', 'docs/api.md',
      'index.mjs', 'index.d.mts', 'promises.mjs', 'promises.d.mts', 'lib/codes.d.ts', 'sample/index.d.ts']) {
      assert.ok(files.includes(file), `${file} is missing from the tarball`);
    }
    assert.match(fs.readFileSync(path.join(ROOT, 'LICENSE'), 'utf8'), /^MIT License/);
    // Every prebuild of this checkout goes along.
    const prebuilds = [];
    const top = path.join(ROOT, 'prebuilds');
    for (const tuple of fs.existsSync(top) ? fs.readdirSync(top) : []) {
      for (const file of fs.readdirSync(path.join(top, tuple))) {
        if (file.endsWith('.node')) prebuilds.push(`prebuilds/${tuple}/${file}`);
      }
    }
    for (const file of prebuilds) assert.ok(files.includes(file), `${file} is missing from the tarball`);
    assert.equal(files.filter((f) => f.startsWith('prebuilds/')).length, prebuilds.length);
    assert.equal(pkg.private, undefined);
  });

  test('installed with the prebuild, without cmake or a compiler on the PATH', async (t) => {
    if (!installs.prebuilt) return skipLoudly(t, `no prebuild for ${process.platform}-${process.arch} could be built`);
    const { project, status, stdout, stderr } = installs.prebuilt;
    assert.equal(status, 0, `${stdout}\n${stderr}`);
    for (const tool of TOOLS_LEFT_OUT) {
      const found = spawnSync('/bin/sh', ['-c', `command -v ${tool}`], { env: { PATH: path.join(temp, 'bin') } });
      assert.notEqual(found.status, 0, `${tool} was on the PATH of the install`);
    }
    assert.match(`${stdout}${stderr}`, /tarn-termchart: using the prebuilt addon prebuilds\//);
    const installed = path.join(project, 'node_modules', 'tarn-termchart');
    assert.ok(!fs.existsSync(path.join(installed, 'build')), 'nothing was compiled');
    const loaded = spawnSync(process.execPath, ['-p', "require('node-gyp-build').resolve('node_modules/tarn-termchart')"],
      { cwd: project, encoding: 'utf8' });
    assert.match(loaded.stdout, /prebuilds[\\/][a-z0-9]+-[a-z0-9]+[\\/]tarntermchart\.napi(\.glibc)?\.node/);
    await checkUse(project);
    const cli = spawnSync(path.join(project, 'node_modules', '.bin', 'tarn-termchart'), ['--help'],
      { cwd: project, encoding: 'utf8' });
    assert.equal(cli.status, 0, cli.stderr);
  });

  test('installed from source: the addon alone is compiled, its headers found where npm put them', async (t) => {
    if (!installs.fromSource) return skipLoudly(t, 'cmake is not installed');
    const { project, status, stdout, stderr } = installs.fromSource;
    assert.equal(status, 0, `${stdout}\n${stderr}`);
    const build = path.join(project, 'node_modules', 'tarn-termchart', 'build');
    assert.ok(fs.existsSync(path.join(build, 'Release', 'tarntermchart.node')));
    for (const other of ['tarntermchart_tests', 'tarntermchart_bench', 'tarntermchart_fault_driver',
      'libtarntermchart.so']) {
      assert.ok(!fs.existsSync(path.join(build, other)), `${other} was built`);
    }
    // node-addon-api and node-api-headers sit beside the package, not in it.
    const cache = fs.readFileSync(path.join(build, 'CMakeCache.txt'), 'utf8');
    assert.match(cache, new RegExp(`CMAKE_JS_INC:[A-Z]+=.*${path.join(project, 'node_modules', 'node-addon-api')}`));
    assert.ok(!fs.existsSync(path.join(project, 'node_modules', 'tarn-termchart', 'node_modules', 'node-addon-api')));
    assert.match(`${stdout}${stderr}`, /tarn-termchart: compiled the addon in \d+ s/);
    const loaded = spawnSync(process.execPath, ['-p', "require('node-gyp-build').resolve('node_modules/tarn-termchart')"],
      { cwd: project, encoding: 'utf8' });
    assert.match(loaded.stdout, /build[\\/]Release[\\/]tarntermchart\.node/);
    await checkUse(project);
  });
});
