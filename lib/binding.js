'use strict';
// Loads the native addon once: a build of this checkout or install
// (build/Release), or else the prebuilt one for this platform
// (prebuilds/<platform>-<arch>/), as node-gyp-build picks it.
// TARN_TERMCHART_BUILD_DIR names another build directory (its
// Release/tarntermchart.node), for comparing builds.
const path = require('path');

const ROOT = path.join(__dirname, '..');
const buildDir = process.env.TARN_TERMCHART_BUILD_DIR;

function load() {
  try {
    return require('node-gyp-build')(ROOT);
  } catch (error) {
    if (!/No native build was found/.test(error.message)) throw error;
    error.message = `${error.message}The tarn-termchart addon is neither built (build/Release) nor prebuilt for ` +
      `${process.platform}-${process.arch}: run npm rebuild tarn-termchart (needs CMake and a C++17 compiler).`;
    throw error;
  }
}

module.exports = buildDir
  ? require(path.join(path.resolve(buildDir), 'Release', 'tarntermchart.node'))
  : load();
