'use strict';
// Loads the native addon and exports its functions unchanged.
const path = require('path');

const buildDir = process.env.TARN_TERMCHART_BUILD_DIR || path.join(__dirname, 'build');
module.exports = require(path.join(buildDir, 'Release', 'tarntermchart.node'));
