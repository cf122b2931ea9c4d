'use strict';
// The pieces the tool and the demo share: the progress bar and the
// directory summary.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { sample, tempDir } = require('./helpers');
const { progressBar, bar } = require('../../lib/progress');
const { summarizeDirectory, summaryLines, bytesText } = require('../../lib/summary');

function stream(isTTY) {
  const out = { isTTY, text: '', write(chunk) { out.text += chunk; } };
  return out;
}

test('the progress bar redraws in place on a terminal and prints lines elsewhere', () => {
  assert.equal(bar(0, 10), '[..........]   0%');
  assert.equal(bar(45, 10), '[#####.....]  45%');
  assert.equal(bar(100, 10), '[##########] 100%');
  const tty = stream(true);
  const onTerminal = progressBar(tty, { label: 'merge', width: 4 });
  onTerminal.update(0);
  onTerminal.update(50);
  onTerminal.end();
  onTerminal.end();
  assert.equal(tty.text, '\rmerge [....]   0%\rmerge [##..]  50%\n');
  const log = stream(false);
  const inLog = progressBar(log, { width: 4 });
  inLog.update(90);
  inLog.end();
  assert.equal(log.text, 'merge [####]  90%\n');
});

test('a directory summary counts records and bundle files from headers', (t) => {
  const dir = tempDir(t);
  const made = sample.generate(dir, { seed: 31, updates: 1 });
  const summary = summarizeDirectory(dir);
  assert.deepEqual(summary.airports, { ifr: made.airports.ifr, vfr: made.airports.vfr });
  assert.deepEqual(summary.charts, made.charts);
  assert.deepEqual(summary.notams, { ifr: made.notams.ifr, vfr: made.notams.vfr });
  assert.equal(summary.chartLinks, made.chartLinks);
  assert.equal(summary.coverageRecords, made.coverageRecords);
  assert.equal(summary.bundles['charts.bin'].entries, made.bundles['charts.bin'].entries);
  assert.equal(summary.bundles['charts.bin'].bytes, made.files['charts.bin']);
  assert.deepEqual(summary.updateBundles, made.updateBundles.map((u) => u.file).sort());
  assert.match(summaryLines(summary)[3], /2 update bundles waiting$/);
  fs.rmSync(path.join(dir, 'vfrapts.dbf'));
  fs.writeFileSync(path.join(dir, 'vfrcharts.bin'), 'short');
  const damaged = summarizeDirectory(dir);
  assert.equal(damaged.airports.vfr, null);
  assert.equal(damaged.bundles['vfrcharts.bin'], null);
  assert.match(summaryLines(damaged)[0], /, none VFR$/);
  assert.equal(summarizeDirectory(path.join(dir, 'missing')).updateBundles.length, 0);
  assert.deepEqual([bytesText(512), bytesText(2048), bytesText(3 * 1024 * 1024)], ['512 bytes', '2.0 KB', '3.0 MB']);
});
