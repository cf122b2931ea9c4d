'use strict';
// Writes the seed inputs of a fuzz target, made with the sample writers:
//   node fuzz/seeds.js <target> <directory>
// Parts of a multi-file input are joined with the separator the targets split at.
const fs = require('fs');
const path = require('path');
const sample = require('../sample');

const SEPARATOR = Buffer.from('\n--8<--\n', 'latin1');
const join = (...parts) => Buffer.concat(parts.flatMap((part, i) => (i ? [SEPARATOR, part] : [part])));

const notamFields = [
  { name: 'F5_6', type: 'C', length: 8 }, { name: 'J5_3', type: 'C', length: 19 },
  { name: 'TEXT', type: 'M', length: 10 }, { name: 'CNT', type: 'N', length: 4 },
];

function notams() {
  const { bytes, blocks } = sample.dbtFile(['first NOTAM', 'x'.repeat(600), '']);
  const table = sample.dbfTable({
    fields: notamFields,
    records: [['KAAA', 'US', blocks[0], '12'], sample.deleted(['KBBB', 'US', blocks[1], '7']),
      ['', 'CA', blocks[2], '  0042']],
  });
  return { table, memo: bytes };
}

function bundle(entries, julianDate = '2460000.5') {
  return sample.chartsBin({ julianDate, entries });
}

const SEEDS = {
  dbf: () => {
    const { table, memo } = notams();
    return [join(table, memo), table,
      sample.dbfTable({ fields: [{ name: 'A', type: 'C', length: 3 }], records: [['abc']], endMarker: false })];
  },
  memo: () => [notams().memo, sample.dbtFile(['a', 'b'.repeat(1020)]).bytes],
  bundle: () => [
    bundle([{ name: 'A.PDF', data: Buffer.from('alpha'), key: 1 },
      { name: 'B.TIF', data: Buffer.from('bravo'), key: 2, flags: 0x10, variant: 3 }]),
    bundle([]),
  ],
  regions: () => [join(sample.regionsDat([
    { key: 100, code: 'US1', description: 'United States' },
    { key: 600, code: 'US16', description: 'United States VFR' },
    { key: 700, code: 'US17', description: 'Restricted' }]), Buffer.from('US1 us16 XX\r\n'))],
  crcfiles: () => [Buffer.from('charts.dbf,0x1\r\nregions.dat,0x2\r\nvfrntms.dbt,0x3\r\n\r\nafter\r\n'),
    Buffer.from('a'.repeat(130) + '\rcharts.dbf\n')],
  cycle: () => [Buffer.from('Cycle=2401\r\nDatabase_Begin_Date=2460310.5\r\n'),
    Buffer.from('Database_Begin_Date=  2460675.5\nCycle=\n\r')],
  apply: () => [join(
    bundle([{ name: 'A.PDF', data: Buffer.from('old a'), key: 1 }, { name: 'B.PDF', data: Buffer.from('old b'), key: 2 }]),
    bundle([{ name: 'A.PDF', data: Buffer.from('new a'), key: 3 },
      { name: 'B.PDF', data: Buffer.from('old b'), key: 2, flags: 0x20 }], '2460001.5'),
    sample.dbfTable({ fields: [{ name: 'FILENAM_BA', type: 'C', length: 25 },
      { name: 'ACTION', type: 'C', length: 1 }, { name: 'DATE_EFF', type: 'C', length: 8 }],
    records: [['A', '', ''], ['B', 'D', '']] }))],
};

// The files of a generated directory, in the order fuzz/directory_input.cpp
// fills them; the update bundles take the two update places.
const DIRECTORY_FILES = ['coverages.txt', 'regions.dat', 'coverags.dbf', 'airports.dbf', 'charts.dbf',
  'chrtlink.dbf', 'notams.dbf', 'notams.dbt', 'vfrapts.dbf', 'vfrchrts.dbf', 'vfrntms.dbf',
  'vfrntms.dbt', 'charts.bin', 'vfrcharts.bin', '*_charts.bin', '*_vfrcharts.bin', 'crcfiles.txt',
  'charts.ini'];

function directorySeeds() {
  const os = require('os');
  return [1, 2].map((seed) => {
    const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-seed-'));
    try {
      sample.generate(dir, { seed, scale: 0.2, blobBytes: 96, updates: 1 });
      const names = fs.readdirSync(dir);
      return join(...DIRECTORY_FILES.map((name) => {
        const found = name.startsWith('*')
          ? names.find((n) => n.endsWith(name.slice(1)) && n !== name.slice(2)) : name;
        return found && names.includes(found) ? fs.readFileSync(path.join(dir, found)) : Buffer.alloc(0);
      }));
    } finally {
      fs.rmSync(dir, { recursive: true, force: true });
    }
  });
}
SEEDS.merge = directorySeeds;
SEEDS.subset = directorySeeds;
SEEDS.combine = directorySeeds;

const [target, dir] = process.argv.slice(2);
const make = SEEDS[target];
if (!make) {
  console.error(`no seeds for ${target}`);
  process.exit(0);
}
fs.mkdirSync(dir, { recursive: true });
make().forEach((bytes, i) => fs.writeFileSync(path.join(dir, `seed-${i}`), bytes));
