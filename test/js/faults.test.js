'use strict';
// The short version of the fault sweeps (test/faults/sweep.js --quick):
// kills at system calls, full disks and the flush order.  A sweep that
// cannot run here (no strace, no root to mount) is reported as skipped.
const test = require('node:test');
const assert = require('node:assert/strict');
const { spawnSync } = require('child_process');
const path = require('path');

// Under emulation (npm run test:arm64) the driver in build/ is this
// machine's own build, not the one under test.
const emulated = process.env.TARN_TEST_EMULATED === '1';

test('fault sweeps, short: no tree differs, no source changes, every flush in order', { timeout: 600000 }, (t) => {
  if (emulated) {
    process.stderr.write('faults.test.js: SKIPPED under emulation (TARN_TEST_EMULATED=1): the fault driver ' +
      'and strace are the build machine\'s; npm test runs the sweeps there\n');
    t.skip('emulated: the fault driver is not built for this architecture');
    return;
  }
  const r = spawnSync(process.execPath, [path.join(__dirname, '..', 'faults', 'sweep.js'), '--quick'],
    { encoding: 'utf8' });
  process.stderr.write(r.stderr);
  const skipped = r.stdout.split('\n').filter((line) => /: skipped/.test(line));
  if (skipped.length) t.diagnostic(`skipped: ${skipped.join('; ')}`);
  assert.equal(r.status, 0, r.stdout);
  assert.match(r.stdout, /no problems/);
});
