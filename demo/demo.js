'use strict';
// The main job: writes a sample chart directory into a temporary folder and
// walks through what an app does with it, printing each step's result.
const fs = require('fs');
const os = require('os');
const path = require('path');

const termchart = require('..');
const sample = require('../sample');

// Calls a module function and resolves with its callback's arguments.
function call(fn, ...args) {
  return new Promise((resolve) => fn(...args, (...results) => resolve(results)));
}

function show(label, [error, result]) {
  if (error) console.log(`${label.padEnd(24)} error: ${error.message}`);
  else console.log(`${label.padEnd(24)} ok${result === undefined ? '' : `: ${JSON.stringify(result)}`}`);
}

function writeSampleDirectory(dir) {
  for (const name of sample.REQUIRED_FILES) fs.writeFileSync(path.join(dir, name), '');
  sample.writeBytes(path.join(dir, 'revision.txt'), sample.revisionTxt('2513'));
  sample.writeBytes(path.join(dir, 'charts.ini'), sample.chartsIni(sample.julianDay(2025, 6, 12)));
  sample.writeBytes(path.join(dir, 'regions.dat'), sample.regionsDat([
    { key: 1001, code: 'US1', description: 'United States' },
    { key: 1002, code: 'CAN', description: 'Canada' },
    { key: 1006, code: 'US16', description: 'United States VFR' },
  ]));
  sample.writeBytes(path.join(dir, 'coverages.txt'), 'US1 US16\r\n');
}

async function main() {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-termchart-demo-'));
  try {
    console.log(`tarn-termchart ${termchart.libraryVersion()}: sample chart directory in ${dir}\n`);
    writeSampleDirectory(dir);
    show('isValidChartDirectory', await call(termchart.isValidChartDirectory, dir));
    show('cycleNumber', await call(termchart.cycleNumber, dir));
    show('cycleNumberDisplay', await call(termchart.cycleNumberDisplay, dir));
    show('coverageInfo', await call(termchart.coverageInfo, dir));

    fs.writeFileSync(path.join(dir, 'update_charts.bin'), '');
    show('isValidChartDirectory', await call(termchart.isValidChartDirectory, dir));
    console.log('\nThe cycle and coverage queries report their text through the error of the');
    console.log('size query or its length, as the library answers them; an empty directory:');
    const empty = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-termchart-empty-'));
    show('isValidChartDirectory', await call(termchart.isValidChartDirectory, empty));
    show('cycleNumber', await call(termchart.cycleNumber, empty));
    fs.rmSync(empty, { recursive: true, force: true });
  } finally {
    fs.rmSync(dir, { recursive: true, force: true });
  }
}

main().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
