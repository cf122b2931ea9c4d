#!/usr/bin/env node
'use strict';
// Builds the prebuilt addons that the package carries (npm run prebuild;
// npm pack and npm publish run it through prepack): the addon alone,
// Release, stripped, as
//   prebuilds/<platform>-<arch>/tarntermchart.napi[.glibc].node
// the names node-gyp-build looks for (lib/binding.js loads them through it
// when this checkout or install has no build/Release).
//
//   node scripts/prebuild.js              this machine's platform and arch, and on
//                                         linux-x64 also linux-arm64 (cross compiled)
//   node scripts/prebuild.js --arch arm64 only the ones named (x64, arm64)
//   node scripts/prebuild.js --host       only this machine's
//
// Each has a build directory of its own (build-prebuild-<arch>). The arm64
// build needs Debian's cross compiler (g++-aarch64-linux-gnu, through
// cmake/aarch64-linux-gnu.cmake); when it is missing it is installed with
// apt-get where that can be done, and otherwise that prebuild is skipped
// with a message on stderr.
const { spawnSync } = require('child_process');
const fs = require('fs');
const path = require('path');
const { ROOT, ADDON_ONLY, compile, say } = require('./install');

const ELF_MACHINES = { x64: 0x3e, arm64: 0xb7 };
const CROSS = {
  // host arch -> target arch -> how to get there
  x64: {
    arm64: {
      toolchain: path.join(ROOT, 'cmake', 'aarch64-linux-gnu.cmake'),
      compiler: 'aarch64-linux-gnu-g++',
      packages: ['g++-aarch64-linux-gnu'],
    },
  },
};

function have(command) {
  return spawnSync('sh', ['-c', `command -v ${command}`], { stdio: 'ignore' }).status === 0;
}

// Installs Debian packages with apt-get when this is root on a system that
// has it; returns whether they are there afterwards (checked by the caller).
function aptInstall(packages) {
  if (process.platform !== 'linux' || !have('apt-get')) return false;
  if (typeof process.getuid === 'function' && process.getuid() !== 0) return false;
  const env = { ...process.env, DEBIAN_FRONTEND: 'noninteractive' };
  const install = () => spawnSync('apt-get', ['install', '-y', '-q', '--no-install-recommends', ...packages],
    { stdio: ['ignore', 'ignore', 'inherit'], env }).status === 0;
  say(`installing ${packages.join(' ')} with apt-get`);
  if (install()) return true;
  spawnSync('apt-get', ['update', '-q'], { stdio: ['ignore', 'ignore', 'inherit'], env });
  return install();
}

function parseArgs(argv) {
  const o = { arches: null, host: false };
  for (let i = 0; i < argv.length; i++) {
    if (argv[i] === '--arch') (o.arches = o.arches || []).push(...argv[++i].split(','));
    else if (argv[i] === '--host') o.host = true;
    else throw new Error(`unknown option ${argv[i]} (usage: node scripts/prebuild.js [--host] [--arch x64,arm64])`);
  }
  return o;
}

function wantedArches(o) {
  if (o.arches) return o.arches;
  if (o.host) return [process.arch];
  return [process.arch, ...Object.keys(CROSS[process.arch] || {})];
}

function cacheEntry(buildDir, name) {
  const text = fs.readFileSync(path.join(buildDir, 'CMakeCache.txt'), 'utf8');
  const m = text.match(new RegExp(`^${name}:[A-Z]+=(.*)$`, 'm'));
  return m ? m[1] : '';
}

function elfMachine(file) {
  const fd = fs.openSync(file, 'r');
  try {
    const header = Buffer.alloc(20);
    fs.readSync(fd, header, 0, 20, 0);
    if (header.readUInt32BE(0) !== 0x7f454c46) return null;
    return header.readUInt16LE(18);
  } finally {
    fs.closeSync(fd);
  }
}

function fileName() {
  // glibc: a musl system (Alpine) does not pick it and compiles instead.
  return process.platform === 'linux' ? 'tarntermchart.napi.glibc.node' : 'tarntermchart.napi.node';
}

// Builds one prebuild; returns its path, or null when skipped.
function prebuild(arch) {
  const extra = [];
  if (arch !== process.arch) {
    const cross = (CROSS[process.arch] || {})[arch];
    if (!cross || process.platform !== 'linux') {
      say(`SKIPPED the ${process.platform}-${arch} prebuild: no cross build from ${process.platform}-${process.arch}`);
      return null;
    }
    if (!have(cross.compiler) && !(aptInstall(cross.packages) && have(cross.compiler))) {
      say(`SKIPPED the linux-${arch} prebuild: the cross compiler ${cross.compiler} is missing ` +
        `and could not be installed (apt-get install ${cross.packages.join(' ')}, as root)`);
      return null;
    }
    extra.push(`--CDCMAKE_TOOLCHAIN_FILE=${cross.toolchain}`);
  }
  const out = path.join(ROOT, `build-prebuild-${arch}`);
  say(`building the ${process.platform}-${arch} prebuild in ${path.basename(out)}`);
  const status = compile({ out, arch, extra, options: ADDON_ONLY, toStderr: true });
  if (status !== 0) throw new Error(`the ${process.platform}-${arch} build failed (exit status ${status})`);
  const built = path.join(out, 'Release', 'tarntermchart.node');
  if (ELF_MACHINES[arch] && process.platform === 'linux' && elfMachine(built) !== ELF_MACHINES[arch]) {
    throw new Error(`${built} is not a ${arch} binary`);
  }
  const dir = path.join(ROOT, 'prebuilds', `${process.platform}-${arch}`);
  fs.rmSync(dir, { recursive: true, force: true });
  fs.mkdirSync(dir, { recursive: true });
  const target = path.join(dir, fileName());
  const strip = cacheEntry(out, 'CMAKE_STRIP');
  if (strip && process.platform === 'linux') {
    const r = spawnSync(strip, ['--strip-unneeded', '-o', target, built], { stdio: ['ignore', 2, 2] });
    if (r.status !== 0) throw new Error(`${strip} failed`);
  } else if (strip) {
    fs.copyFileSync(built, target);
    spawnSync(strip, ['-x', target], { stdio: ['ignore', 2, 2] });
  } else {
    fs.copyFileSync(built, target);
  }
  say(`wrote ${path.relative(ROOT, target)} (${Math.round(fs.statSync(target).size / 1024)} kB)`);
  return target;
}

function main() {
  const o = parseArgs(process.argv.slice(2));
  const written = [];
  for (const arch of wantedArches(o)) {
    const target = prebuild(arch);
    if (target) written.push(target);
  }
  if (!written.length) {
    say('no prebuild was built');
    return 1;
  }
  return 0;
}

module.exports = { aptInstall, have, prebuild, fileName };

if (require.main === module) {
  try {
    process.exitCode = main();
  } catch (error) {
    say(error.message);
    process.exitCode = 1;
  }
}
