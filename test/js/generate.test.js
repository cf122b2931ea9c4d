'use strict';
// The sample generator: its directories are complete and consistent, their
// checksums true, their tables sorted and linked, their bundles in step with
// the chart tables, and the library reads all of it.
const test = require('node:test');
const assert = require('node:assert/strict');
const fs = require('fs');
const path = require('path');
const { addon, sample, tempDir } = require('./helpers');
const termchart = require('../../promises');

const { generate, compareNoCase } = sample;

function table(dir, name) {
  return sample.readDbf(path.join(dir, name));
}

// The region catalogue as records: stored bytes are complemented.
function readRegions(file) {
  const bytes = fs.readFileSync(file);
  const regions = [];
  for (let at = 0; at + 88 <= bytes.length; at += 88) {
    const record = Buffer.from(bytes.subarray(at, at + 88).map((b) => 255 - b));
    const text = (from, to) => record.subarray(from, to).toString('latin1').replace(/\0.*$/s, '');
    regions.push({ key: text(0, 32), code: text(32, 38), description: text(38, 88) });
  }
  return regions;
}

const baseName = (name) => name.slice(0, name.lastIndexOf('.'));

test('a generated directory holds every file of a chart directory and is valid', async (t) => {
  const dir = tempDir(t);
  const summary = generate(dir, { seed: 3 });
  for (const name of [...sample.REQUIRED_FILES, ...sample.IFR_FILES, ...sample.VFR_FILES]) {
    assert.ok(fs.statSync(path.join(dir, name)).size > 0, name);
  }
  await termchart.isValidChartDirectory(dir);
  assert.ok(summary.airports.total >= 30 && summary.airports.total <= 50, 'a few dozen airports');
  assert.ok(summary.airports.ifr > 0 && summary.airports.vfr > 0 && summary.airports.both > 0);
  assert.deepEqual(summary.updateBundles, []);
  assert.equal(summary.files['charts.bin'], fs.statSync(path.join(dir, 'charts.bin')).size);
});

test('the same seed gives the same bytes and another seed other data', (t) => {
  const [a, b, c] = [tempDir(t), tempDir(t), tempDir(t)];
  generate(a, { seed: 11, updates: 1 });
  generate(b, { seed: 11, updates: 1 });
  generate(c, { seed: 12, updates: 1 });
  const names = fs.readdirSync(a).sort();
  assert.deepEqual(fs.readdirSync(b).sort(), names);
  for (const name of names) assert.ok(fs.readFileSync(path.join(a, name)).equals(fs.readFileSync(path.join(b, name))), name);
  assert.ok(!fs.readFileSync(path.join(a, 'airports.dbf')).equals(fs.readFileSync(path.join(c, 'airports.dbf'))));
});

test('generating into an existing directory clears the files it owns, and only those', (t) => {
  const [dir, fresh] = [tempDir(t), tempDir(t)];
  const first = generate(dir, { seed: 5, updates: 2 });
  assert.equal(first.updateBundles.length, 4);
  // Leftovers a merge could leave, and files of the user's own.
  for (const name of ['chartsNEW.dbf', 'airportsNEWEST.dbf', 'charts.bin.tarn-new', 'vfrcharts.bin.undo',
    'merge.journal', 'charts.bi2', '2399_CHARTS.BIN']) fs.writeFileSync(path.join(dir, name), 'x');
  fs.writeFileSync(path.join(dir, 'notes.txt'), 'mine');
  fs.mkdirSync(path.join(dir, 'backup_charts.bin'));
  const second = generate(dir, { seed: 6 });
  generate(fresh, { seed: 6 });
  assert.deepEqual(second.updateBundles, []);
  const names = fs.readdirSync(dir).sort();
  assert.deepEqual(names, [...fs.readdirSync(fresh), 'backup_charts.bin', 'notes.txt'].sort());
  for (const name of fs.readdirSync(fresh)) {
    assert.ok(fs.readFileSync(path.join(dir, name)).equals(fs.readFileSync(path.join(fresh, name))), name);
  }
  assert.equal(fs.readFileSync(path.join(dir, 'notes.txt'), 'utf8'), 'mine');
  assert.deepEqual(Object.keys(second.files).sort(), fs.readdirSync(fresh).sort());
});

test('the scale sets the size of the directory', (t) => {
  const small = generate(tempDir(t), { seed: 2, scale: 1 });
  const large = generate(tempDir(t), { seed: 2, scale: 4, blobBytes: 200 });
  assert.equal(large.airports.total, 160);
  assert.ok(large.charts.ifr > 3 * small.charts.ifr);
  assert.ok(large.notams.ifr > 2 * small.notams.ifr);
  assert.ok(large.bundles['charts.bin'].bytes / large.bundles['charts.bin'].entries < 300, 'blobs near blobBytes');
  assert.throws(() => generate(tempDir(t), { scale: 0 }), RangeError);
  assert.throws(() => generate(tempDir(t), { blobBytes: 10 }), RangeError);
  assert.throws(() => generate(tempDir(t), { updates: -1 }), RangeError);
});

test('tables are sorted by F5_6 and every airport links to its first chart and link record', (t) => {
  const dir = tempDir(t);
  generate(dir, { seed: 5, scale: 2 });
  const tables = {};
  for (const name of ['airports.dbf', 'vfrapts.dbf', 'charts.dbf', 'vfrchrts.dbf', 'chrtlink.dbf', 'coverags.dbf']) {
    tables[name] = table(dir, name).records;
    const codes = tables[name].map((r) => r.F5_6);
    for (let i = 1; i < codes.length; i++) assert.ok(compareNoCase(codes[i - 1], codes[i]) <= 0, `${name} ${codes[i]}`);
  }
  const check = (airports, targetName, field) => {
    const target = tables[targetName];
    let linked = 0;
    for (const airport of airports) {
      const first = target.findIndex((r) => compareNoCase(r.F5_6, airport.F5_6) === 0);
      assert.equal(airport[field], first < 0 ? '' : String(first + 1), `${airport.F5_6} ${field}`);
      if (first >= 0) linked++;
    }
    return linked;
  };
  assert.equal(check(tables['airports.dbf'], 'charts.dbf', 'CHRT_IDX'), tables['airports.dbf'].length);
  assert.ok(check(tables['airports.dbf'], 'chrtlink.dbf', 'CLNK_IDX') > 0);
  assert.equal(check(tables['vfrapts.dbf'], 'vfrchrts.dbf', 'CHRT_IDX'), tables['vfrapts.dbf'].length);
  // Charts and links belong to airports of their family.
  const ifrCodes = new Set(tables['airports.dbf'].map((r) => r.F5_6));
  const vfrCodes = new Set(tables['vfrapts.dbf'].map((r) => r.F5_6));
  assert.ok(tables['charts.dbf'].every((r) => ifrCodes.has(r.F5_6)));
  assert.ok(tables['chrtlink.dbf'].every((r) => ifrCodes.has(r.F5_6) && ifrCodes.has(r.LINK_APT)));
  assert.ok(tables['vfrchrts.dbf'].every((r) => vfrCodes.has(r.F5_6)));
  const indexes = new Set(tables['charts.dbf'].map((r) => r.INDEX_NO));
  for (const index of ['APT', '10-9', '11-1']) assert.ok(indexes.has(index), index);
});

test('airports carry coordinates, runways and the fields both families share', (t) => {
  const dir = tempDir(t);
  const summary = generate(dir, { seed: 8 });
  const ifr = table(dir, 'airports.dbf');
  const vfr = table(dir, 'vfrapts.dbf');
  for (const airport of [...ifr.records, ...vfr.records]) {
    assert.match(airport.F5_6, /^[A-Z0-9]{4}$/);
    assert.match(airport.F5_36, /^[NS]\d{8}$/);
    assert.match(airport.F5_37, /^[EW]\d{9}$/);
    assert.ok(Number(airport.F5_54) >= 1800);
    const latitude = (airport.F5_36[0] === 'S' ? -1 : 1) * Number(airport.F5_36.slice(1, 3));
    assert.ok(latitude >= Math.floor(summary.box.south) && latitude <= summary.box.north);
  }
  assert.ok(ifr.records.every((r) => r.ARPT_NAME && r.CITY && /^[YN]$/.test(r.PRECISION)));
  assert.ok(vfr.records.every((r) => r.ARPT_NAM_N && r.CITY_NAM_N));
  // The VFR fields folded into IFR fields are exactly as wide as those.
  const width = (header, name) => header.fields.find((f) => f.name === name).length;
  for (const [from, to] of [['ARPT_NAM_N', 'ARPT_NAME'], ['CITY_NAM_N', 'CITY'], ['F5_54', 'F5_54'], ['J5_15', 'J5_15']]) {
    assert.equal(width(vfr, from), width(ifr, to), from);
  }
  assert.deepEqual(table(dir, 'charts.dbf').fields, table(dir, 'vfrchrts.dbf').fields);
});

test('coverage records use the keys of regions.dat, and coverages.txt names the covered regions', async (t) => {
  const dir = tempDir(t);
  const summary = generate(dir, { seed: 4, scale: 2 });
  const regions = readRegions(path.join(dir, 'regions.dat'));
  const covered = fs.readFileSync(path.join(dir, 'coverages.txt'), 'latin1').replace(/\r\n$/, '').split(' ');
  assert.deepEqual(covered, summary.coverage);
  const byKey = new Map(regions.map((r) => [r.key, r]));
  assert.ok(regions.some((r) => !covered.includes(r.code)), 'the catalogue holds more than the coverage');
  for (const code of covered) assert.ok(regions.some((r) => r.code === code), code);
  const coverage = table(dir, 'coverags.dbf').records;
  const kinds = new Map();
  for (const record of coverage) {
    const region = byKey.get(record.KEY);
    assert.ok(region && covered.includes(region.code), record.KEY);
    assert.equal(record.SVC_CODE, region.code);
    kinds.set(record.F5_6, (kinds.get(record.F5_6) || '') + region.code.slice(-1));
  }
  for (const airport of table(dir, 'airports.dbf').records) assert.match(kinds.get(airport.F5_6), /[17]/);
  for (const airport of table(dir, 'vfrapts.dbf').records) assert.match(kinds.get(airport.F5_6), /6/);
  assert.ok([...kinds.values()].some((k) => k.endsWith('7')), 'some restricted airports');
  const descriptions = summary.regions.map((r) => r.description);
  assert.equal(await termchart.coverageInfo(dir), descriptions.join(', '));
});

test('NOTAMs run by country and airport, country NOTAMs last, with their texts in the memo files', (t) => {
  const dir = tempDir(t);
  generate(dir, { seed: 6, scale: 2 });
  for (const base of ['notams', 'vfrntms']) {
    const notams = table(dir, `${base}.dbf`).records;
    const memo = fs.readFileSync(path.join(dir, `${base}.dbt`));
    const keys = notams.map((r) => `${r.J5_3}:${r.F5_6 || 'zzzz'}`);
    for (let i = 1; i < keys.length; i++) assert.ok(compareNoCase(keys[i - 1], keys[i]) <= 0, keys[i]);
    let previous = 0;
    for (const notam of notams) {
      const block = Number(notam.TEXT);
      assert.ok(block > previous, 'memos follow each other');
      previous = block;
      const text = sample.dbtText(memo, block);
      assert.ok(text.length > 10);
      assert.equal(notam.CNT_TYPE, notam.F5_6 ? 'A' : 'C');
      if (notam.F5_6) assert.ok(text.startsWith(notam.F5_6), text);
      assert.match(notam.EFF_DATE, /^\d{8}$/);
      assert.equal(notam.END_DATE === '', notam.UFN === 'Y');
    }
    assert.ok(notams.some((r) => !r.F5_6) && notams.some((r) => r.F5_6));
    assert.equal(memo.readUInt32LE(0) * 512, memo.length, 'the header holds the next free block');
  }
});

test('crcfiles.txt lists the true checksums of the tables', (t) => {
  const dir = tempDir(t);
  generate(dir, { seed: 9 });
  const text = fs.readFileSync(path.join(dir, 'crcfiles.txt'), 'latin1');
  assert.ok(text.endsWith('\r\n'));
  const lines = text.slice(0, -2).split('\r\n');
  assert.deepEqual(lines.map((l) => l.split(',')[0]), sample.CHECKSUMMED);
  for (const line of lines) {
    const [name, value] = line.split(',');
    assert.match(value, /^0x[0-9a-f]+$/);
    assert.equal(Number(value), sample.fileTarnCrc(path.join(dir, name)), name);
  }
});

test('bundles carry their checksum and hold exactly the charts of the chart tables', (t) => {
  const dir = tempDir(t);
  const summary = generate(dir, { seed: 10, scale: 2 });
  const ini = fs.readFileSync(path.join(dir, 'charts.ini'), 'latin1');
  const begin = Number(/Database_Begin_Date=([\d.]+)/.exec(ini)[1]);
  for (const [bundleName, tableName] of [['charts.bin', 'charts.dbf'], ['vfrcharts.bin', 'vfrchrts.dbf']]) {
    const bytes = fs.readFileSync(path.join(dir, bundleName));
    const bundle = sample.readChartsBin(bytes);
    assert.equal(bundle.crc, sample.bundleCrc(bytes), bundleName);
    assert.equal(bundle.size, 27);
    assert.equal(bundle.julianDate, begin.toFixed(1));
    assert.equal(bundle.fileCount, summary.bundles[bundleName].entries);
    for (let i = 1; i < bundle.entries.length; i++) assert.ok(sample.compareEntries(bundle.entries[i - 1], bundle.entries[i]) < 0);
    const bases = new Set(table(dir, tableName).records.map((r) => r.FILENAM_BA));
    const inBundle = new Set(bundle.entries.map((e) => baseName(e.name)));
    assert.deepEqual([...inBundle].sort(), [...bases].sort());
    for (const entry of bundle.entries) {
      assert.equal(entry.flags, 0);
      assert.ok(/^[A-Z0-9]+\.(PDF|TIF)$/.test(entry.name), entry.name);
      assert.equal(entry.data.length, entry.size);
    }
    if (bundleName === 'charts.bin') {
      const twice = bundle.entries.filter((e, i) => i > 0 && e.name === bundle.entries[i - 1].name);
      assert.ok(twice.length > 0 && twice.every((e) => e.variant === 1), 'charts in two variants');
      assert.ok(bundle.entries.some((e) => e.name.endsWith('.TIF')), 'charts under two extensions');
    }
  }
});

test('pending updates replace, replace one variant, delete and add charts, dated not before the bundle', async (t) => {
  const dir = tempDir(t);
  const summary = generate(dir, { seed: 12, updates: 2 });
  await assert.rejects(termchart.isValidChartDirectory(dir), /merge the directory/);
  assert.equal(summary.updateBundles.length, 4);
  for (const family of ['ifr', 'vfr']) {
    const [bundleName, tableName] = family === 'ifr' ? ['charts.bin', 'charts.dbf'] : ['vfrcharts.bin', 'vfrchrts.dbf'];
    const base = sample.readChartsBin(path.join(dir, bundleName));
    const records = table(dir, tableName).records;
    const updates = summary.updateBundles.filter((u) => u.family === family);
    assert.deepEqual(updates.map((u) => u.file), [`${summary.nextCycle}_${bundleName}`, `${summary.nextCycle}-2_${bundleName}`]);
    const entries = [];
    for (const update of updates) {
      const bytes = fs.readFileSync(path.join(dir, update.file));
      const bundle = sample.readChartsBin(bytes);
      assert.equal(bundle.crc, sample.bundleCrc(bytes));
      assert.ok(Number(bundle.julianDate) >= Number(base.julianDate));
      entries.push(...bundle.entries);
    }
    const deletes = entries.filter((e) => e.flags === sample.FLAG_DELETE);
    const variants = entries.filter((e) => e.flags === sample.FLAG_REPLACE_VARIANT);
    const plain = entries.filter((e) => e.flags === 0);
    assert.ok(deletes.length && variants.length && plain.length, family);
    for (const d of deletes) {
      assert.ok(base.entries.some((e) => e.name === d.name && e.key === d.key && e.size === d.size && e.variant === d.variant));
      const record = records.find((r) => r.FILENAM_BA === baseName(d.name));
      assert.equal(record.ACTION, 'D');
      assert.equal(record.DATE_EFF, '');
    }
    for (const v of variants) {
      const old = base.entries.find((e) => e.name === v.name && e.variant === v.variant);
      assert.ok(old && old.key !== v.key, 'a new revision of an existing variant');
      assert.ok(base.entries.some((e) => e.name === v.name && e.variant !== v.variant), 'the other variant stays');
    }
    const added = records.filter((r) => r.ACTION === 'A').map((r) => r.FILENAM_BA);
    assert.ok(added.length > 0);
    for (const name of added) {
      assert.ok(!base.entries.some((e) => baseName(e.name) === name));
      assert.ok(plain.some((e) => baseName(e.name) === name));
    }
    const replaced = plain.filter((e) => !added.includes(baseName(e.name)));
    assert.ok(replaced.length > 0);
    for (const r of replaced) {
      assert.equal(records.find((x) => x.FILENAM_BA === baseName(r.name)).ACTION, 'C');
      assert.ok(base.entries.some((e) => e.name === r.name && e.key !== r.key));
    }
    const addedEntries = plain.length - replaced.length;
    assert.equal(summary.afterMerge[bundleName], base.fileCount - deletes.length + addedEntries);
  }
});

test('the library reads every generated table and bundle', async (t) => {
  const dir = tempDir(t);
  generate(dir, { seed: 13, updates: 1 });
  const out = tempDir(t);
  for (const name of fs.readdirSync(dir).filter((n) => n.endsWith('.dbf'))) {
    const count = await termchart.dumpDbf(path.join(dir, name), path.join(out, `${name}.txt`));
    assert.equal(count, table(dir, name).recordCount, name);
  }
  for (const name of fs.readdirSync(dir).filter((n) => n.endsWith('.bin'))) {
    const output = path.join(out, `${name}.txt`);
    const bundle = sample.readChartsBin(path.join(dir, name));
    assert.equal(await termchart.dumpChartsBin(path.join(dir, name), output, 1, 1), bundle.fileCount, name);
    const first = fs.readFileSync(output, 'latin1').split('\r\n')[7].split('\t');
    assert.equal(first[0], bundle.entries[0].name);
    assert.equal(first[6], sample.crc32Register(bundle.entries[0].data).toString(16));
  }
  const notams = fs.readFileSync(path.join(out, 'notams.dbf.txt'), 'latin1');
  assert.match(notams, /CREATED: \d{8} SOURCE: /, 'memo texts come through');
  await new Promise((resolve) => addon.cycleNumber(dir, (error) => {
    assert.equal(error.message, 'Received bad result retrieving output value: "-5".');
    resolve();
  }));
});
