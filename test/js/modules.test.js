'use strict';
// The package as its users reach it: named ESM imports of every subpath,
// and declarations that the compiler finds under each module resolution
// and that say exactly what Node gives.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { execFile } = require('child_process');
const ts = require('typescript');
const { tempDir } = require('./helpers');

const ROOT = path.join(__dirname, '..', '..');
const SUBPATHS = ['tarn-termchart', 'tarn-termchart/promises', 'tarn-termchart/codes', 'tarn-termchart/sample'];

// A project outside the package that has it installed (a link to this
// checkout), as a user's would.
function consumer(t) {
  const dir = tempDir(t);
  fs.mkdirSync(path.join(dir, 'node_modules'));
  fs.symlinkSync(ROOT, path.join(dir, 'node_modules', 'tarn-termchart'), 'dir');
  fs.writeFileSync(path.join(dir, 'package.json'), JSON.stringify({ name: 'consumer', private: true }));
  return dir;
}

function run(file, cwd) {
  return new Promise((resolve) => {
    execFile(process.execPath, [file], { cwd }, (error, stdout, stderr) => {
      resolve({ status: error ? error.code : 0, stdout, stderr });
    });
  });
}

// What Node gives each subpath under import: its names, default aside.
async function runtimeExports(t) {
  const dir = consumer(t);
  const file = path.join(dir, 'names.mjs');
  fs.writeFileSync(file, `const names = {};\n${SUBPATHS.map((s) => `names[${JSON.stringify(s)}] = `
    + `Object.keys(await import(${JSON.stringify(s)})).filter((n) => n !== 'default').sort();`).join('\n')}\n`
    + 'console.log(JSON.stringify(names));\n');
  const result = await run(file, dir);
  assert.equal(result.status, 0, result.stderr);
  return JSON.parse(result.stdout);
}

// What the declarations say each subpath exports under import, for a
// compiler with these options.
function declaredExports(dir, options) {
  const file = path.join(dir, 'declared.mts');
  fs.writeFileSync(file, SUBPATHS.map((s, i) => `import * as m${i} from ${JSON.stringify(s)};\n`).join('')
    + `export { ${SUBPATHS.map((s, i) => `m${i}`).join(', ')} };\n`);
  const files = [file];
  if (options.module !== ts.ModuleKind.ESNext) {
    // require from CommonJS, where the resolution has a CommonJS mode.
    const required = path.join(dir, 'required.cts');
    fs.writeFileSync(required, SUBPATHS.map((s, i) => `import r${i} = require(${JSON.stringify(s)});\n`).join('')
      + `export = [${SUBPATHS.map((s, i) => `r${i}`).join(', ')}];\n`);
    files.push(required);
  }
  const program = ts.createProgram(files, {
    strict: true, noEmit: true, types: [], target: ts.ScriptTarget.ES2020, ...options,
  });
  const diagnostics = ts.getPreEmitDiagnostics(program)
    .map((d) => ts.flattenDiagnosticMessageText(d.messageText, '\n'));
  const checker = program.getTypeChecker();
  const source = program.getSourceFile(file);
  const names = {};
  source.statements.filter(ts.isImportDeclaration).forEach((statement, i) => {
    const module = checker.getSymbolAtLocation(statement.moduleSpecifier);
    assert.ok(module, `no declarations found for ${SUBPATHS[i]}`);
    // Values only: interfaces and type aliases have nothing at run time.
    const isValue = (symbol) => {
      const target = symbol.flags & ts.SymbolFlags.Alias ? checker.getAliasedSymbol(symbol) : symbol;
      return (target.flags & ts.SymbolFlags.Value) !== 0;
    };
    names[SUBPATHS[i]] = checker.getExportsOfModule(module).filter(isValue).map((s) => s.name)
      .filter((n) => n !== 'default').sort();
  });
  return { names, diagnostics };
}

const RESOLUTIONS = {
  node16: { module: ts.ModuleKind.Node16, moduleResolution: ts.ModuleResolutionKind.Node16 },
  nodenext: { module: ts.ModuleKind.NodeNext, moduleResolution: ts.ModuleResolutionKind.NodeNext },
  bundler: { module: ts.ModuleKind.ESNext, moduleResolution: ts.ModuleResolutionKind.Bundler },
};

test('named imports of every function work from the package and from /promises', async (t) => {
  const dir = consumer(t);
  const file = path.join(dir, 'use.mjs');
  fs.writeFileSync(file, `
import termchart, { merge, libraryVersion, isValidChartDirectory } from 'tarn-termchart';
import promises, { cycleNumber, coverageInfo, TarnTermChartError } from 'tarn-termchart/promises';
import { codeOf } from 'tarn-termchart/codes';
import { generate } from 'tarn-termchart/sample';
import { createRequire } from 'node:module';
import { mkdtempSync, rmSync } from 'node:fs';
import { join } from 'node:path';
import { tmpdir } from 'node:os';
const require = createRequire(import.meta.url);
const dir = mkdtempSync(join(tmpdir(), 'tarn-esm-'));
try {
  const summary = generate(dir, { seed: 3 });
  const same = merge === require('tarn-termchart').merge && termchart.merge === merge
    && promises.cycleNumber === cycleNumber;
  const cycle = await cycleNumber(dir);
  const regions = await coverageInfo(dir);
  const error = await new Promise((resolve) => merge(dir, (e, done) => { if (e || done) resolve(e); }));
  let rejected;
  try { await promises.merge(dir); } catch (e) { rejected = e; }
  const valid = await new Promise((resolve) => isValidChartDirectory(dir, (e) => resolve(!e)));
  console.log(JSON.stringify({ same, version: libraryVersion(), cycle, expected: summary.cycle,
    regions: regions.length > 0, code: error.code, codeOf: codeOf('merge', -4),
    rejected: rejected instanceof TarnTermChartError && rejected.code, valid }));
} finally {
  rmSync(dir, { recursive: true, force: true });
}
`);
  const result = await run(file, dir);
  assert.equal(result.status, 0, result.stderr);
  const seen = JSON.parse(result.stdout);
  assert.deepEqual(seen, {
    same: true, version: '9.9', cycle: seen.expected, expected: seen.expected, regions: true,
    code: 'ERR_TARN_MERGE_NO_UPDATES', codeOf: 'ERR_TARN_MERGE_NO_UPDATES',
    rejected: 'ERR_TARN_MERGE_NO_UPDATES', valid: true,
  });
});

test('the declarations of every subpath say exactly what Node gives, under each resolution', async (t) => {
  const runtime = await runtimeExports(t);
  assert.deepEqual(runtime['tarn-termchart'], ['combineVFRinfoIFR', 'coverageInfo', 'cycleNumber',
    'cycleNumberDisplay', 'dumpChartsBin', 'dumpDbf', 'isValidChartDirectory', 'libraryVersion', 'merge',
    'subsetCharts']);
  for (const [name, options] of Object.entries(RESOLUTIONS)) {
    const { names, diagnostics } = declaredExports(consumer(t), options);
    assert.deepEqual(diagnostics, [], name);
    for (const subpath of SUBPATHS) assert.deepEqual(names[subpath], runtime[subpath], `${name}: ${subpath}`);
  }
});
