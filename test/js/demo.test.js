'use strict';
// The main job runs to its end and gives an account of every step.
const test = require('node:test');
const assert = require('node:assert/strict');
const path = require('path');
const { execFile } = require('child_process');
const { addon } = require('./helpers');

test('npm run demo: exits 0 and reports each step', async () => {
  const demo = path.join(__dirname, '..', '..', 'demo', 'demo.js');
  const { status, stdout, stderr } = await new Promise((resolve) => {
    execFile(process.execPath, [demo], (error, out, err) => resolve({ status: error ? error.code : 0, stdout: out, stderr: err }));
  });
  assert.equal(status, 0, stderr);
  assert.equal(stderr, '');
  for (const step of ['Generate a sample chart directory', 'Validate the directory', 'Data cycle', 'Coverage',
    'Merge the pending updates', 'Subset to a box', 'Combine VFR data', 'Dump a table and the bundle']) {
    assert.ok(stdout.includes(step), step);
  }
  assert.match(stdout, /\d+ airports \(\d+ IFR, \d+ VFR, \d+ both\)/);
  assert.match(stdout, /update bundle is waiting: merge the directory/);
  const cycle = /cycle \(revision\.txt\): (\d{4})\n/.exec(stdout);
  assert.ok(cycle, stdout);
  assert.ok(stdout.includes(`(the generator wrote cycle ${cycle[1]},`));
  assert.match(stdout, /period label \(charts\.ini\): \d{2}-\d{4}\n/);
  assert.match(stdout, /covered regions: [A-Z][a-z]+.*, /);
  assert.match(stdout, /airports\.dbf: \d+ records dumped/);
  assert.match(stdout, /charts\.bin: \d+ files dumped with offsets and checksums/);
  assert.match(stdout, /^ {3}generated +\d+\/\d+/m);
  assert.match(stdout, /merge \[#+\] 100%/);
  assert.match(stdout, /update bundles left: none/);
  assert.match(stdout, /^ {3}merged +\d+\/\d+/m);
  assert.match(stdout, /^ {3}subset +(\d+|-)\/(\d+|-)/m);
  assert.match(stdout, /^ {3}combined +\d+\/- +\d+\/- /m);
});
