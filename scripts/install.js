#!/usr/bin/env node
'use strict';
// The package's install step (npm install). A prebuilt addon for this
// platform (prebuilds/<platform>-<arch>/) that loads is used as it is, with
// one line said; otherwise the addon alone is compiled with cmake-js into
// build/Release, which needs CMake and a C++17 compiler. Compiling can be
// asked for in any case: TARN_TERMCHART_BUILD_FROM_SOURCE=1, or
// npm install --build-from-source (npm_config_build_from_source=true).
//
// npm shows a dependency's install output only when it fails (or with
// --foreground-scripts), so while compiling, the lines said here and the
// compile's progress also go to the terminal (/dev/tty) when there is one.
//
// The compile helpers below are also what scripts/build.js, scripts/test.js
// and scripts/prebuild.js use in a clone of the repository.
const { spawn, spawnSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const ROOT = path.join(__dirname, '..');
const NAME = 'tarn-termchart';

// Everything but the addon is off in an install, also where an earlier
// build of a clone (npm test) left it on in the CMake cache.
const ADDON_ONLY = {
  TARN_DEVELOPER: 'OFF',
  TARN_BUILD_ADDON: 'ON',
  TARN_BUILD_SHARED: 'OFF',
  TARN_BUILD_TESTS: 'OFF',
  TARN_BUILD_BENCH: 'OFF',
  TARN_BUILD_FAULT_DRIVER: 'OFF',
};

let tty = null;

// The terminal, when npm keeps this script's output to itself.
function openTerminal() {
  if (process.stderr.isTTY || process.platform === 'win32') return null;
  if (process.env.npm_config_loglevel === 'silent') return null;
  try {
    return fs.openSync('/dev/tty', 'w');
  } catch {
    return null;
  }
}

function say(line) {
  process.stderr.write(`${NAME}: ${line}\n`);
  if (tty !== null) {
    try {
      fs.writeSync(tty, `\r\x1b[K${NAME}: ${line}\n`); // over npm's spinner
    } catch {
      tty = null;
    }
  }
}

function jobs() {
  return (os.availableParallelism ? os.availableParallelism() : os.cpus().length) || 2;
}

function buildFromSource() {
  if (/^(1|true|yes|on)$/i.test(process.env.TARN_TERMCHART_BUILD_FROM_SOURCE || '')) return true;
  const value = String(process.env.npm_config_build_from_source || '').trim();
  if (value === '' || value === 'false' || value === '0') return false;
  return value === 'true' || value === '1' || value.split(',').map((s) => s.trim()).includes(NAME);
}

// The prebuilt addon for this platform, if there is one and it loads here.
function loadablePrebuild() {
  process.env.PREBUILDS_ONLY = '1'; // node-gyp-build: skip build/, look in prebuilds/ only
  const load = require('node-gyp-build');
  let file;
  try {
    file = load.resolve(ROOT);
  } catch {
    return null;
  }
  const relative = path.relative(ROOT, file);
  if (relative.startsWith('..')) return null; // not this package's
  try {
    require(file);
    return relative;
  } catch (error) {
    say(`the prebuilt addon ${relative} does not load here (${String(error.message).split('\n')[0]})`);
    return null;
  }
}

function cmakeJsBin() {
  return require.resolve('cmake-js/bin/cmake-js');
}

function run(command, args, options = {}) {
  const r = spawnSync(command, args, { stdio: 'inherit', ...options });
  if (r.error) throw r.error;
  return r.status === null ? 1 : r.status;
}

// Runs a build command with its output passed on, saying every tenth of
// the way (from the [n/m] or [ n%] lines of Ninja and Make) on the terminal.
function runWithProgress(command, args) {
  return new Promise((resolve, reject) => {
    const child = spawn(command, args, { stdio: ['ignore', 'pipe', 'inherit'] });
    let rest = '';
    let said = 0;
    child.stdout.on('data', (chunk) => {
      process.stdout.write(chunk);
      const lines = (rest + chunk).split('\n');
      rest = lines.pop();
      for (const line of lines) {
        const m = line.match(/^\[(\d+)\/(\d+)\]/) || line.match(/^\[\s*(\d+)%\]/);
        if (!m) continue;
        const percent = m[2] ? Math.floor((100 * Number(m[1])) / Number(m[2])) : Number(m[1]);
        if (percent >= said + 10) {
          said = percent - (percent % 10);
          say(`compiling the addon: ${said}%`);
        }
      }
    });
    child.on('error', reject);
    child.on('close', (code) => resolve(code === null ? 1 : code));
  });
}

function haveCMake() {
  const r = spawnSync('cmake', ['--version'], { stdio: 'ignore' });
  return !r.error && r.status === 0;
}

// The cmake-js commands of a build: configure (always, so that the options
// given here are the ones in force), then build. options: CMake cache
// entries; out: the build directory; arch and extra cmake-js arguments for
// cross builds.
function cmakeJsSteps({ out = path.join(ROOT, 'build'), options = ADDON_ONLY, arch, extra = [] } = {}) {
  const common = ['--directory', ROOT, '--out', out, '--config', 'Release'];
  if (arch) common.push('--arch', arch);
  const defines = Object.entries(options).map(([key, value]) => `--CD${key}=${value}`);
  return [
    [cmakeJsBin(), 'configure', ...common, ...defines, ...extra],
    [cmakeJsBin(), 'build', ...common, '--parallel', String(jobs())],
  ];
}

// Returns the exit status of the first step that failed, or 0. The
// output goes to stderr with toStderr (npm pack --json keeps stdout).
function compile(settings = {}) {
  const stdio = settings.toStderr ? ['ignore', 2, 2] : 'inherit';
  for (const args of cmakeJsSteps(settings)) {
    const status = run(process.execPath, args, { stdio });
    if (status !== 0) return status;
  }
  return 0;
}

// compile() for an install whose output npm keeps to itself.
async function compileShowingProgress(settings) {
  for (const args of cmakeJsSteps(settings)) {
    const status = await runWithProgress(process.execPath, args);
    if (status !== 0) return status;
  }
  return 0;
}

async function main() {
  if (!buildFromSource()) {
    const prebuild = loadablePrebuild();
    if (prebuild) {
      say(`using the prebuilt addon ${prebuild.split(path.sep).join('/')}`);
      return 0;
    }
  }
  const why = buildFromSource()
    ? 'building from source as asked'
    : `no prebuilt addon for ${process.platform}-${process.arch} loads here`;
  if (!haveCMake()) {
    say(`${why}, and compiling the addon needs CMake (3.18 or later) on the PATH and a C++17 compiler; ` +
      'install them (Debian/Ubuntu: apt-get install cmake g++; macOS: Xcode command line tools and cmake) ' +
      'and run npm rebuild tarn-termchart');
    return 1;
  }
  tty = openTerminal();
  say(`${why}: compiling the addon with CMake (typically under a minute)`);
  const started = Date.now();
  const status = tty === null ? compile() : await compileShowingProgress();
  if (status !== 0) {
    say(`compiling the addon failed (exit status ${status}); it needs CMake 3.18 or later and a C++17 compiler ` +
      '(the output above says what went wrong)');
    return status;
  }
  say(`compiled the addon in ${Math.round((Date.now() - started) / 1000)} s: build/Release/tarntermchart.node`);
  return 0;
}

module.exports = { ROOT, ADDON_ONLY, compile, jobs, say, run };

if (require.main === module) {
  main().then((status) => {
    process.exitCode = status;
  }, (error) => {
    say(error.stack || String(error));
    process.exitCode = 1;
  });
}
