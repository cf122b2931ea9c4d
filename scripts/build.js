#!/usr/bin/env node
'use strict';
// Builds this checkout in build/ with cmake-js:
//   node scripts/build.js         the addon alone (what npm install compiles)
//   node scripts/build.js --all   everything: the addon, the standalone shared
//                                 library, the C++ tests, the benchmarks and
//                                 the fault driver (TARN_DEVELOPER; npm run build)
const { ADDON_ONLY, compile } = require('./install');

const all = process.argv.includes('--all');
process.exitCode = compile({ options: all ? { TARN_DEVELOPER: 'ON', TARN_BUILD_ADDON: 'ON' } : ADDON_ONLY });
