'use strict';
// The type declarations: the compiler accepts the calls users write
// (test/types/usage.ts) and rejects wrong ones (test/types/errors.ts, where
// every wrong call is marked as an expected error).
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { execFile } = require('child_process');
const { tempDir } = require('./helpers');

const ROOT = path.join(__dirname, '..', '..');
const TSC = require.resolve('typescript/bin/tsc');
const TYPES = path.join(ROOT, 'test', 'types');

function tsc(project) {
  return new Promise((resolve) => {
    execFile(process.execPath, [TSC, '-p', project], (error, stdout) => {
      resolve({ status: error ? error.code : 0, output: stdout });
    });
  });
}

// A project of one file beside the test files, with their settings.
function project(t, name, text) {
  const dir = tempDir(t);
  const file = path.join(TYPES, `${name}-${path.basename(dir)}.ts`);
  fs.writeFileSync(file, text);
  t.after(() => fs.rmSync(file, { force: true }));
  fs.writeFileSync(path.join(dir, 'tsconfig.json'), JSON.stringify({
    extends: path.join(TYPES, 'tsconfig.json'), files: [file],
  }));
  return dir;
}

test('the package points at its declarations', () => {
  const pkg = require('../../package.json');
  assert.equal(pkg.types, 'index.d.ts');
  assert.ok(fs.existsSync(path.join(ROOT, 'index.d.ts')));
  assert.ok(fs.existsSync(path.join(ROOT, 'promises.d.ts')));
});

test('correct calls compile and every wrong call is rejected', async () => {
  const result = await tsc(TYPES);
  assert.equal(result.status, 0, result.output);
});

test('the checks can fail: a wrong call without its mark, and a mark on a correct call', async (t) => {
  const imports = "import termchart = require('../../index');\n";
  const wrong = await tsc(project(t, 'wrong', `${imports}termchart.cycleNumber(42, () => {});\n`));
  assert.notEqual(wrong.status, 0);
  assert.match(wrong.output, /error TS2345/);
  const unused = await tsc(project(t, 'unused',
    `${imports}// @ts-expect-error\ntermchart.cycleNumber('/a', () => {});\n`));
  assert.notEqual(unused.status, 0);
  assert.match(unused.output, /Unused '@ts-expect-error' directive/);
});
