'use strict';
// The main job: generates a sample chart directory with pending updates in
// a temporary folder and walks through what an app does with it - validate,
// read the cycle and the coverage, merge the updates with a progress bar,
// validate again, cut a subset to a box, fold VFR into IFR, dump a table and
// a bundle - printing a short readable account of each step.
//
//   node demo/demo.js [--seed N] [--scale X] [--keep]
const fs = require('fs');
const os = require('os');
const path = require('path');
const { parseArgs } = require('util');

const termchart = require('../promises');
const callbacks = require('..');
const { generate } = require('../sample/generate');
const { progressBar } = require('../lib/progress');
const { summarizeDirectory, bytesText } = require('../lib/summary');

const { values: options } = parseArgs({
  options: { seed: { type: 'string' }, scale: { type: 'string' }, keep: { type: 'boolean' } },
});

let stepNumber = 0;
function step(title) {
  stepNumber++;
  console.log(`\n${stepNumber}. ${title}`);
}

const say = (text) => console.log(`   ${text}`);

function bundlesText(s) {
  return ['charts.bin', 'vfrcharts.bin'].map((name) => {
    const b = s.bundles[name];
    return `${name} ${b ? `${b.entries} files (${bytesText(b.bytes)})` : 'none'}`;
  }).join(', ');
}

function tableRow(label, s) {
  const pair = (a, b) => `${a ?? '-'}/${b ?? '-'}`;
  const b = (name) => (s.bundles[name] ? `${s.bundles[name].entries} (${bytesText(s.bundles[name].bytes)})` : '-');
  return [label.padEnd(10), pair(s.airports.ifr, s.airports.vfr).padEnd(10),
    pair(s.charts.ifr, s.charts.vfr).padEnd(10), pair(s.notams.ifr, s.notams.vfr).padEnd(10),
    b('charts.bin').padEnd(20), b('vfrcharts.bin')].join(' ');
}

// The first lines of a dump, without its field lines, each cut to a
// terminal's width.
function firstLines(file, count) {
  const lines = fs.readFileSync(file, 'latin1').split('\r\n').filter((line) => !line.startsWith('; Field:'));
  return lines.slice(0, count).map((line) => (line.length > 100 ? `${line.slice(0, 97)}...` : line)
    .replace(/\t/g, ' | '));
}

async function main() {
  const root = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-termchart-demo-'));
  const dir = path.join(root, 'charts');
  const rows = [];
  try {
    console.log(`tarn-termchart demo, chart library ${await termchart.libraryVersion()}`);
    const seed = options.seed === undefined ? 7 : Number(options.seed);
    const scale = options.scale === undefined ? 1 : Number(options.scale);

    step(`Generate a sample chart directory with pending updates (seed ${seed}, scale ${scale})`);
    const generated = generate(dir, { seed, scale, updates: 1 });
    say(`in ${dir}`);
    say(`${generated.airports.total} airports (${generated.airports.ifr} IFR, ${generated.airports.vfr} VFR, `
      + `${generated.airports.both} both), ${generated.charts.ifr} IFR and ${generated.charts.vfr} VFR charts, `
      + `${generated.notams.ifr} IFR and ${generated.notams.vfr} VFR NOTAMs`);
    say(`bundles: ${bundlesText(summarizeDirectory(dir))}`);
    for (const u of generated.updateBundles) {
      say(`update ${u.file}: ${u.entries} entries, ${bytesText(u.bytes)}: charts replaced ${u.replace}, `
        + `replaced in one variant ${u.replaceVariant}, deleted ${u.delete}, added ${u.add}`);
    }
    rows.push(tableRow('generated', summarizeDirectory(dir)));

    step('Validate the directory');
    // The callback form, as the module itself offers it.
    await new Promise((resolve) => callbacks.isValidChartDirectory(dir, (error) => {
      say(error ? `not ready: ${error.message}\n   code: ${error.code}` : 'valid');
      resolve();
    }));
    try {
      await termchart.isValidChartDirectory(dir);
    } catch (error) {
      say(`in words: ${error.meaning}`);
    }

    step('Data cycle');
    for (const [operation, what] of [['cycleNumber', 'cycle (revision.txt)'], ['cycleNumberDisplay', 'period label (charts.ini)']]) {
      try {
        say(`${what}: ${await termchart[operation](dir)}`);
      } catch (error) {
        say(`${what}: code ${error.result} (${error.code}): ${error.meaning}`);
      }
    }
    say(`(the generator wrote cycle ${generated.cycle}, database begin date ${generated.beginDate})`);

    step('Coverage');
    try {
      say(`covered regions: ${await termchart.coverageInfo(dir)}`);
    } catch (error) {
      say(`code ${error.result} (${error.code}): ${error.meaning}`);
    }
    say(`(coverages.txt lists ${generated.coverage.join(' ')})`);

    step('Merge the pending updates');
    const before = summarizeDirectory(dir);
    const bar = progressBar(process.stdout, { label: '   merge' });
    try {
      await termchart.merge(dir, { onProgress: (percent) => bar.update(percent) });
      bar.end();
      const after = summarizeDirectory(dir);
      for (const name of ['charts.bin', 'vfrcharts.bin']) {
        say(`${name}: ${before.bundles[name].entries} -> ${after.bundles[name] ? after.bundles[name].entries : 0} files`
          + ` (expected ${generated.afterMerge[name]})`);
      }
      say(`update bundles left: ${after.updateBundles.length ? after.updateBundles.join(', ') : 'none'}`);
      rows.push(tableRow('merged', after));
    } catch (error) {
      bar.end();
      say(`failed: ${error.message}`);
    }

    step('Validate again');
    try {
      await termchart.isValidChartDirectory(dir);
      say('valid');
    } catch (error) {
      say(`not valid: ${error.meaning}`);
    }

    step('Subset to a box: north 49.5, west -125, south 37, east -66 (signed degrees)');
    const subset = path.join(root, 'subset');
    fs.mkdirSync(subset);
    try {
      await termchart.subsetCharts(dir, subset, 49.5, -125, 37, -66);
      const s = summarizeDirectory(subset);
      say(`${subset}: ${s.airports.ifr ?? 0} IFR and ${s.airports.vfr ?? 0} VFR airports, ${bundlesText(s)}`);
      rows.push(tableRow('subset', s));
    } catch (error) {
      say(`failed: ${error.message}`);
    }

    step('Combine VFR data into the IFR files');
    const combined = path.join(root, 'combined');
    fs.mkdirSync(combined);
    try {
      await termchart.combineVFRinfoIFR(dir, combined);
      const s = summarizeDirectory(combined);
      say(`${combined}: ${s.airports.ifr} airports and ${s.charts.ifr} charts in the IFR tables, ${bundlesText(s)}`);
      rows.push(tableRow('combined', s));
    } catch (error) {
      say(`failed: ${error.message}`);
    }

    step('Dump a table and the bundle');
    const tableDump = path.join(root, 'airports.txt');
    try {
      const records = await termchart.dumpDbf(path.join(dir, 'airports.dbf'), tableDump);
      say(`airports.dbf: ${records} records dumped to ${tableDump}; its first lines:`);
      firstLines(tableDump, 6).forEach((line) => say(`  ${line}`));
    } catch (error) {
      say(`failed: ${error.message}`);
    }
    const bundleDump = path.join(root, 'charts.txt');
    try {
      const files = await termchart.dumpChartsBin(path.join(dir, 'charts.bin'), bundleDump, 1, 1);
      say(`charts.bin: ${files} files dumped with offsets and checksums to ${bundleDump}; its first lines:`);
      firstLines(bundleDump, 10).forEach((line) => say(`  ${line}`));
    } catch (error) {
      say(`failed: ${error.message}`);
    }

    console.log('\nSummary (airports, charts and NOTAMs as IFR/VFR; bundles as files and size)');
    console.log(`   ${['step'.padEnd(10), 'airports'.padEnd(10), 'charts'.padEnd(10), 'NOTAMs'.padEnd(10),
      'charts.bin'.padEnd(20), 'vfrcharts.bin'].join(' ')}`);
    rows.forEach((row) => console.log(`   ${row}`));
  } finally {
    if (options.keep) console.log(`\nThe demo's files stay in ${root}`);
    else fs.rmSync(root, { recursive: true, force: true });
  }
}

main().catch((error) => {
  console.error(error);
  process.exitCode = 1;
});
