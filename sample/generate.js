'use strict';
// Writes a whole, consistent chart directory of any size from a seed:
//
//   const summary = generate('/tmp/charts', { seed: 7, scale: 1, blobBytes: 1024, updates: 1 });
//
// scale 1 makes about 40 airports; scale 1000 about 40,000 airports with
// some 300,000 chart records, 100,000 NOTAMs and bundles of hundreds of
// megabytes (blobBytes is the average size of one chart file). Airport
// identifiers have four characters, which bounds the scale at about 1,200. Every file is
// streamed to disk, so memory stays small whatever the scale. With updates
// N > 0 the directory also holds N pending update bundles per family, and its
// tables already describe the charts as they will be once the updates are
// merged (replaced, replaced in one variant, deleted, added).
//
// The same seed and options give the same bytes. Returns a summary: counts,
// file sizes, the box of the airports, the cycle, what the updates hold and
// how many bundle entries a merge of them leaves.
const fs = require('fs');
const path = require('path');

const { DbfWriter, DbtWriter } = require('./dbf');
const {
  writeChartsBinStream, fileTarnCrc, FLAG_REPLACE_VARIANT, FLAG_DELETE,
} = require('./bundle');
const { regionsDat, julianDay, REQUIRED_FILES, IFR_FILES, VFR_FILES } = require('./directory');
const { hash32, random, fillRandom } = require('./random');
const world = require('./world');
const layouts = require('./layouts');

const AIRPORTS_PER_SCALE = 40;
const ALNUM = 'ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789';
const LETTERS = ALNUM.slice(0, 26);

// Identifier order of every table walked side by side: byte by byte with
// ASCII letters folded to lower case.
function compareNoCase(a, b) {
  const n = Math.min(a.length, b.length);
  for (let i = 0; i < n; i++) {
    let x = a.charCodeAt(i);
    let y = b.charCodeAt(i);
    if (x >= 65 && x <= 90) x += 32;
    if (y >= 65 && y <= 90) y += 32;
    if (x !== y) return x - y;
  }
  return a.length - b.length;
}

function dateText(jd) {
  return new Date(Math.round((jd - 2440587.5) * 86400000)).toISOString().slice(0, 10).replace(/-/g, '');
}

// Fixed-width coordinates: hemisphere, degrees, minutes, hundredths of seconds.
function coordinate(degrees, width, positive, negative) {
  const hundredths = Math.round(Math.abs(degrees) * 360000);
  const whole = Math.floor(hundredths / 360000);
  const minutes = Math.floor((hundredths % 360000) / 6000);
  return (degrees < 0 ? negative : positive) + String(whole).padStart(width, '0')
    + String(minutes).padStart(2, '0') + String(hundredths % 6000).padStart(4, '0');
}

function degreesOf(text, width) {
  const sign = /[SsWw]/.test(text[0]) ? -1 : 1;
  const whole = Number(text.slice(1, 1 + width));
  const minutes = Number(text.slice(1 + width, 3 + width));
  const hundredths = Number(text.slice(3 + width));
  return sign * (whole + minutes / 60 + hundredths / 100 / 3600);
}

// Shares of a whole by weight, the remainders going to the largest fractions.
function shares(total, weights) {
  const sum = weights.reduce((a, b) => a + b, 0);
  const exact = weights.map((w) => (total * w) / sum);
  const counts = exact.map(Math.floor);
  const order = exact.map((e, i) => [e - Math.floor(e), i]).sort((a, b) => b[0] - a[0] || a[1] - b[1]);
  const left = total - counts.reduce((a, b) => a + b, 0);
  for (let k = 0; k < left; k++) counts[order[k][1]]++;
  return counts;
}

// Distinct identifiers for a country: its prefix and letters (digits too
// when letters would run short), drawn from the country's own sequence.
function identifiers(country, count, seed) {
  const free = 4 - country.prefix.length;
  const capacity = 36 ** free;
  if (count > capacity * 0.6) {
    throw new RangeError(`too large a scale: ${count} airports in ${country.name} need more`
      + ' identifiers than four characters allow');
  }
  const alphabet = count <= 0.3 * 26 ** free ? LETTERS : ALNUM;
  const rng = random(hash32(`codes ${country.code}`, seed));
  const codes = new Set();
  while (codes.size < count) {
    let code = country.prefix;
    for (let i = 0; i < free; i++) code += alphabet[rng.int(alphabet.length)];
    codes.add(code);
  }
  return [...codes];
}

function makeAirport(code, country, region, seed) {
  const rng = random(hash32(`airport ${code}`, seed));
  const u = rng();
  const restricted = Boolean(region.restricted) && rng() < 0.04;
  const plainIfr = !restricted && u >= 0.25;
  const vfr = restricted || u < 0.25 || rng() < 0.55;
  const [south, west, north, east] = country.box;
  const latitude = coordinate(rng.between(south, north), 2, 'N', 'S');
  const longitude = coordinate(rng.between(west, east), 3, 'E', 'W');
  const city = rng.pick(world.CITY_STARTS) + rng.pick(world.CITY_ENDS);
  const kind = u > 0.9 ? 'International' : rng.pick(world.AIRPORT_KINDS.filter((k) => k !== 'International'));
  const lon = degreesOf(longitude, 3);
  const zone = Math.round(lon / 15);
  const frequency = () => (118 + rng.int(18) + rng.int(40) * 0.025).toFixed(3);
  return {
    code, country, region, restricted, plainIfr, vfr, latitude, longitude,
    importance: u,
    values: {
      F5_6: code,
      name: restricted ? `${city} Air Base` : `${city} ${kind}`,
      city,
      ST_PR: rng.pick(country.states),
      J5_3: country.code,
      F5_107: restricted ? 'MIL' : rng.pick(['PU', 'PU', 'PU', 'PR']),
      F5_54: 100 * Math.round((1800 + u * 10000 + rng() * 800) / 100),
      F5_36: latitude,
      F5_37: longitude,
      F5_39: rng.int(restricted ? 3000 : 6500),
      F5_55: u > 0.3 ? rng.pick(world.SURFACES.slice(0, 2)) : rng.pick(world.SURFACES),
      J5_5: `UTC${zone < 0 ? '-' : '+'}${Math.abs(zone)}`,
      J5_6: rng() < 0.7 ? 'Y' : 'N',
      J5_7: `${1 + rng.int(20)}${lon < 0 ? 'E' : 'W'}`,
      J5_8: rng.pick(world.FUELS),
      J5_10: u > 0.85 ? 'Y' : 'N',
      J5_12: frequency(),
      J5_39: u > 0.7 ? LETTERS[rng.int(26)] + LETTERS[rng.int(26)] + LETTERS[rng.int(26)] : '',
      J5_14: u > 0.5 ? frequency() : '',
      J5_15: frequency(),
      F5_14: rng.pick(country.firs),
      F5_179: rng.pick(['SS-SR', 'ALWAYS', 'PCL', '']),
      F5_197: rng.pick(['0600-2200', '0700-1900', 'H24', 'PPR']),
      UNICOM: (122 + rng.int(2) + rng.int(40) * 0.025).toFixed(3),
    },
  };
}

// One chart: its table values and its files in the bundle (one, or two
// variants of one name, or one name under two extensions).
function makeChart(airport, indexNo, base, begin, updates, seed) {
  const rng = random(hash32(`chart ${base}`, seed));
  const shape = rng();
  const files = shape < 0.05 ? [{ name: `${base}.PDF`, variant: 0 }, { name: `${base}.PDF`, variant: 1 }]
    : shape < 0.09 ? [{ name: `${base}.PDF`, variant: 0 }, { name: `${base}.TIF`, variant: 0 }]
      : [{ name: `${base}.PDF`, variant: 0 }];
  const x = rng();
  const change = x < 0.01 ? 'add' : x < 0.05 ? 'replace' : x < 0.06 ? 'delete'
    : (shape < 0.05 && x < 0.1) ? 'variant' : undefined;
  const chart = {
    code: airport.code, base, indexNo, files,
    title: world.chartTitle(indexNo, rng),
    revision: 1 + rng.int(9),
    dateEff: dateText(begin - 28 * (1 + rng.int(20))),
    action: '',
    change: updates > 0 ? change : undefined,
    update: hash32(`update ${base}`, seed) % Math.max(1, updates),
    georef: rng() < 0.6 ? 'Y' : 'N',
  };
  // Without pending updates the same changes are this cycle's, merged already.
  if (updates === 0 && (change === 'add' || change === 'replace' || change === 'variant')) {
    chart.action = change === 'add' ? 'A' : 'C';
    chart.dateEff = dateText(begin);
  }
  return chart;
}

const CHANGES = ['replace', 'delete', 'add', 'variant'];

function hasTwoVariants(chart) {
  return chart.files.length === 2 && chart.files[0].name === chart.files[1].name;
}

// The charts of an airport, as its chart tables list them. They are made
// anew from the seed whenever a pass over the airports needs them, rather
// than kept for the whole directory.
function chartsOf(airport, context) {
  const { begin, next, updates, seed, forced } = context;
  const charts = { ifr: [], vfr: [] };
  if (airport.plainIfr || airport.restricted) {
    const count = airport.restricted ? 2 : 2 + Math.floor(airport.importance ** 4 * 28);
    for (const indexNo of world.ifrIndexNumbers(count)) {
      const base = airport.code + indexNo.replace(/-/g, '');
      charts.ifr.push(makeChart(airport, indexNo, base, begin, updates, seed));
    }
  }
  if (airport.vfr) {
    const rng = random(hash32(`vfr charts ${airport.code}`, seed));
    const count = 1 + Math.floor(rng() ** 2 * 3);
    for (let n = 1; n <= count; n++) {
      charts.vfr.push(makeChart(airport, `V-${n}`, `${airport.code}V${n}`, begin, updates, seed));
    }
  }
  if (updates > 0) {
    for (const chart of [...charts.ifr, ...charts.vfr]) {
      if (forced && forced.has(chart.base)) chart.change = forced.get(chart.base);
      settleChange(chart, next);
    }
  }
  return charts;
}

// Charts given a change so that each kind of change occurs in each family
// at least once, and even the smallest directory exercises every kind of
// update entry.
function forcedChanges(airports, context) {
  const forced = new Map();
  if (context.updates === 0) return forced;
  for (const family of ['ifr', 'vfr']) {
    const seen = new Set();
    const plain = [];
    const twoVariants = [];
    for (const airport of airports) {
      if (seen.size === CHANGES.length) break;
      for (const chart of chartsOf(airport, context)[family]) {
        if (chart.change) seen.add(chart.change);
        else if (plain.length < CHANGES.length) plain.push(chart.base);
        if (!chart.change && hasTwoVariants(chart) && twoVariants.length < CHANGES.length) {
          twoVariants.push(chart.base);
        }
      }
    }
    for (const kind of CHANGES) {
      if (seen.has(kind)) continue;
      const base = (kind === 'variant' ? twoVariants : plain).find((b) => !forced.has(b));
      if (base) forced.set(base, kind);
    }
  }
  return forced;
}

// The tables describe the charts as they stand after the pending updates.
function settleChange(chart, next) {
  if (chart.change === 'add') {
    chart.action = 'A';
    chart.revision = 1;
    chart.dateEff = dateText(next);
  } else if (chart.change === 'replace' || chart.change === 'variant') {
    chart.action = 'C';
    chart.revision += 1;
    chart.dateEff = dateText(next);
  } else if (chart.change === 'delete') {
    chart.action = 'D';
    chart.dateEff = '';
  }
}

// A chart file's bundle entry: size and key follow from its name, variant
// and revision. Its bytes are made only when the bundle writer asks for
// them, in one buffer that serves every chart file in turn (the writer
// copies them at once).
let scratch = Buffer.alloc(64 * 1024);
function chartBytes(entry) {
  const { name, variant, revision, size } = entry;
  const head = name.endsWith('.TIF') ? `II*\0${name} ${variant} ${revision}\n`
    : `%PDF-1.4\n% ${name} variant ${variant} revision ${revision}\n`;
  if (scratch.length < size) scratch = Buffer.alloc(Math.max(size, scratch.length * 2));
  const headLength = scratch.write(head.slice(0, size - 7), 0, 'latin1');
  fillRandom(entry.fill, scratch, headLength, size - 7);
  scratch.write('\n%%EOF\n', size - 7, 'latin1');
  return scratch.subarray(0, size);
}

function chartFile(file, revision, blobBytes, seed, flags = 0) {
  const id = `${file.name}|${file.variant}|${revision}`;
  const rng = random(hash32(`size ${id}`, seed));
  return {
    name: file.name,
    variant: file.variant,
    flags,
    revision,
    size: Math.max(96, Math.round(blobBytes * (0.25 + 1.5 * rng()))),
    key: hash32(`key ${id}`, seed),
    fill: hash32(`bytes ${id}`, seed),
    data: chartBytes,
  };
}

function normalise(options) {
  const seed = Number.isInteger(options.seed) ? options.seed >>> 0 : 1;
  const scale = options.scale === undefined ? 1 : Number(options.scale);
  const blobBytes = options.blobBytes === undefined ? 1024 : Math.round(Number(options.blobBytes));
  const updates = options.updates === undefined ? 0 : Math.round(Number(options.updates));
  if (!(scale > 0)) throw new RangeError('scale must be a positive number');
  if (!(blobBytes >= 96)) throw new RangeError('blobBytes must be at least 96');
  if (!(updates >= 0)) throw new RangeError('updates must be 0 or more');
  return { seed, scale, blobBytes, updates };
}

// The names of a chart directory that the generator writes, or that a
// merge of the directory leaves while it runs or when it is stopped: in an
// existing directory they are cleared first, so that nothing of an earlier
// run (an update bundle, a merge's leftovers) is taken for this one's.
// Other files are left alone.
const OWNED_FILES = new Set([...REQUIRED_FILES, ...IFR_FILES, ...VFR_FILES]);
const OWNED_PATTERNS = [/_(vfr)?charts\.bin$/i, /NEW(EST)?\.db[ft]$/i, /\.tarn-new$/, /\.undo$/,
  /^merge\.journal$/, /^crcfilesNEW\.txt$/, /charts\.bi2$/];

function owned(name) {
  return OWNED_FILES.has(name) || OWNED_PATTERNS.some((pattern) => pattern.test(name));
}

function clearOwnedFiles(dir) {
  for (const entry of fs.readdirSync(dir, { withFileTypes: true })) {
    if (!entry.isDirectory() && owned(entry.name)) fs.rmSync(path.join(dir, entry.name), { force: true });
  }
}

function generate(dir, options = {}) {
  const { seed, scale, blobBytes, updates } = normalise(options);
  fs.mkdirSync(dir, { recursive: true });
  clearOwnedFiles(dir);
  const file = (name) => path.join(dir, name);

  // The data cycle: 28 days from a fixed date, picked by the seed.
  const cycleIndex = seed % 12;
  const begin = julianDay(2025, 1, 23) + 28 * cycleIndex;
  const next = begin + 28;
  const cycle = `25${String(cycleIndex + 1).padStart(2, '0')}`;
  const nextCycle = `25${String(cycleIndex + 2).padStart(2, '0')}`;

  // Airports: shared among regions and countries by weight, identifiers
  // drawn per country, then all in identifier order.
  const total = Math.max(1, Math.round(AIRPORTS_PER_SCALE * scale));
  const regionCounts = shares(total, world.REGIONS.map((r) => r.weight));
  const airports = [];
  world.REGIONS.forEach((region, r) => {
    const counts = shares(regionCounts[r], region.countries.map((c) => c.weight || 1));
    region.countries.forEach((country, c) => {
      for (const code of identifiers(country, counts[c], seed)) airports.push(makeAirport(code, country, region, seed));
    });
  });
  airports.sort((a, b) => compareNoCase(a.code, b.code));

  const context = { begin, next, updates, seed, blobBytes, nextCycle };
  context.forced = forcedChanges(airports, context);

  const summary = {
    directory: dir, seed, scale, blobBytes, updates,
    cycle, nextCycle, julianDate: begin, beginDate: dateText(begin),
    coverage: [], regions: [],
    airports: { total: airports.length, ifr: 0, vfr: 0, both: 0, restricted: 0 },
    charts: { ifr: 0, vfr: 0 },
    chartLinks: 0,
    notams: { ifr: 0, vfr: 0, country: 0 },
    coverageRecords: 0,
    bundles: {}, updateBundles: [], afterMerge: {}, files: {},
    box: null,
  };

  writeTables(dir, airports, context, summary);
  writeNotams(dir, airports, context, summary);
  writeBundles(dir, airports, context, summary);
  writeFixedFiles(dir, { begin, next, cycle }, summary);
  writeChecksumList(dir);

  for (const name of fs.readdirSync(dir).sort()) {
    const stat = fs.statSync(file(name));
    if (stat.isFile() && owned(name)) summary.files[name] = stat.size;
  }
  return summary;
}

// Coverage, airport, chart and chart link tables, written side by side in
// identifier order; CHRT_IDX and CLNK_IDX are the 1-based numbers of each
// airport's first chart and first link record.
function writeTables(dir, airports, context, summary) {
  const out = (name, fields) => new DbfWriter(path.join(dir, name), fields);
  const coverage = out('coverags.dbf', layouts.COVERAGE);
  const ifrAirports = out('airports.dbf', layouts.IFR_AIRPORT);
  const vfrAirports = out('vfrapts.dbf', layouts.VFR_AIRPORT);
  const ifrCharts = out('charts.dbf', layouts.CHART);
  const vfrCharts = out('vfrchrts.dbf', layouts.CHART);
  const links = out('chrtlink.dbf', layouts.CHART_LINK);
  const box = { north: -90, west: 180, south: 90, east: -180 };
  // The charts that the last IFR airport of each country shares with the
  // next one (an area chart, a shared diagram).
  const neighbours = new Map();

  const chartRecord = (chart) => ({
    F5_6: chart.code, FILENAM_BA: chart.base, INDEX_NO: chart.indexNo, CHART_NAME: chart.title,
    ACTION: chart.action, DATE_EFF: chart.dateEff, REV_NO: chart.revision, GEOREF: chart.georef,
  });

  for (const airport of airports) {
    const { region, values } = airport;
    const charts = chartsOf(airport, context);
    const keys = [];
    if (airport.plainIfr) keys.push(region.ifr);
    if (airport.vfr) keys.push(region.vfr);
    if (airport.restricted) keys.push(region.restricted);
    for (const [code, key] of keys) coverage.add({ KEY: key, F5_6: airport.code, SVC_CODE: code });

    const latitude = degreesOf(airport.latitude, 2);
    const longitude = degreesOf(airport.longitude, 3);
    box.north = Math.max(box.north, latitude);
    box.south = Math.min(box.south, latitude);
    box.west = Math.min(box.west, longitude);
    box.east = Math.max(box.east, longitude);

    if (charts.ifr.length) {
      const chrtIdx = ifrCharts.count + 1;
      charts.ifr.forEach((chart) => ifrCharts.add(chartRecord(chart)));
      let clnkIdx = '';
      const rng = random(hash32(`links ${airport.code}`, context.seed));
      const shared = neighbours.get(airport.country.code);
      if (shared && !airport.restricted && rng() < 0.25) {
        clnkIdx = links.count + 1;
        for (const chart of shared.slice(0, 1 + rng.int(2))) {
          links.add({ F5_6: airport.code, FILENAM_BA: chart.base, INDEX_NO: chart.indexNo, LINK_APT: chart.code });
        }
      }
      const precision = charts.ifr.some((c) => c.indexNo.startsWith('11-')) && values.F5_54 >= 5000;
      ifrAirports.add({
        ...values, ARPT_NAME: values.name, CITY: values.city, PRECISION: precision ? 'Y' : 'N',
        CHRT_IDX: chrtIdx, CLNK_IDX: clnkIdx,
      });
      const kept = charts.ifr.filter((c) => c.change !== 'delete').slice(0, 2);
      if (!airport.restricted && kept.length) neighbours.set(airport.country.code, kept);
    }
    if (airport.vfr) {
      const chrtIdx = charts.vfr.length ? vfrCharts.count + 1 : '';
      charts.vfr.forEach((chart) => vfrCharts.add(chartRecord(chart)));
      vfrAirports.add({ ...values, ARPT_NAM_N: values.name, CITY_NAM_N: values.city, CHRT_IDX: chrtIdx });
    }
  }

  summary.coverageRecords = coverage.close();
  summary.airports.ifr = ifrAirports.close();
  summary.airports.vfr = vfrAirports.close();
  summary.airports.both = airports.filter((a) => (a.plainIfr || a.restricted) && a.vfr).length;
  summary.airports.restricted = airports.filter((a) => a.restricted).length;
  summary.charts.ifr = ifrCharts.close();
  summary.charts.vfr = vfrCharts.close();
  summary.chartLinks = links.close();
  const round = (v) => Math.round(v * 1e6) / 1e6;
  summary.box = airports.length
    ? { north: round(box.north), west: round(box.west), south: round(box.south), east: round(box.east) }
    : null;
}

// NOTAM key: country, then airport, the country's own NOTAMs behind its
// airports' - the order in which the IFR and VFR NOTAM tables interleave.
function notamKey(record) {
  return `${record.J5_3}:${record.F5_6 || 'zzzz'}`;
}

function writeNotams(dir, airports, context, summary) {
  const { begin, seed } = context;
  const tables = { ifr: [], vfr: [] };
  const countries = new Map();
  for (const airport of airports) {
    countries.set(airport.country.code, airport.country);
    // Restricted airports publish no NOTAMs to this service.
    if (airport.restricted) continue;
    const families = [];
    if (airport.plainIfr) families.push(['ifr', 9.5]);
    if (airport.vfr) families.push(['vfr', 4]);
    let charts = null;
    for (const [family, most] of families) {
      const rng = random(hash32(`notams ${family} ${airport.code}`, seed));
      const count = Math.floor(rng() ** 2 * most);
      if (count > 0 && !charts) charts = chartsOf(airport, context);
      for (let i = 0; i < count; i++) {
        const start = begin - rng.int(40);
        const { text, indexNo } = world.notamText(rng, { code: airport.code, fir: airport.values.F5_14 },
          charts[family], dateText(start));
        tables[family].push(notamRecord(rng, {
          F5_6: airport.code, J5_3: airport.country.code, CNT_TYPE: 'A', INDEX_NO: indexNo,
          F5_14: airport.values.F5_14, text,
        }, start));
      }
    }
  }
  for (const country of countries.values()) {
    for (const [family, most] of [['ifr', 5], ['vfr', 3]]) {
      const rng = random(hash32(`country notams ${family} ${country.code}`, seed));
      const count = 1 + rng.int(most);
      for (let i = 0; i < count; i++) {
        const start = begin - rng.int(40);
        tables[family].push(notamRecord(rng, {
          F5_6: '', J5_3: country.code, CNT_TYPE: 'C', INDEX_NO: '', F5_14: country.firs[0],
          text: world.countryNotamText(rng, country, dateText(start)),
        }, start));
        summary.notams.country++;
      }
    }
  }
  for (const [family, base] of [['ifr', 'notams'], ['vfr', 'vfrntms']]) {
    tables[family].forEach((record) => { record.key = notamKey(record); });
    const records = tables[family].sort((a, b) => compareNoCase(a.key, b.key));
    const table = new DbfWriter(path.join(dir, `${base}.dbf`), layouts.NOTAM);
    const memo = new DbtWriter(path.join(dir, `${base}.dbt`));
    for (const record of records) table.add({ ...record, TEXT: memo.add(record.text) });
    memo.close();
    summary.notams[family] = table.close();
  }
}

function notamRecord(rng, values, start) {
  const ufn = rng() < 0.2;
  const wie = rng() < 0.3;
  return {
    ...values,
    TEMPO: rng() < 0.25 ? 'Y' : 'N',
    EFF_DATE: dateText(start),
    EFF_FIXED: wie ? 'N' : 'Y',
    WIE: wie ? 'Y' : 'N',
    UFN: ufn ? 'Y' : 'N',
    END_DATE: ufn ? '' : dateText(start + 7 + rng.int(90)),
    END_FIXED: rng() < 0.7 ? 'Y' : 'N',
  };
}

// The directory's bundles and the pending update bundles. A bundle holds
// the charts as they stood before the updates; each update holds new
// revisions (replace: flags 0, both variants of a name one after the other;
// one variant: 0x10), deletions (0x20, with the key and size of the entry
// they delete) and added charts.
function writeBundles(dir, airports, context, summary) {
  const { seed, blobBytes, updates, begin, next, nextCycle } = context;
  for (const [family, bundleName] of [['ifr', 'charts.bin'], ['vfr', 'vfrcharts.bin']]) {
    const base = [];
    const pending = Array.from({ length: updates }, () => ({
      entries: [], replace: 0, replaceVariant: 0, delete: 0, add: 0,
    }));
    let afterMerge = 0;
    for (const airport of airports) {
      for (const chart of chartsOf(airport, context)[family]) {
        const update = pending[chart.update];
        const replaced = chart.change === 'replace' || chart.change === 'variant';
        const oldRevision = replaced ? chart.revision - 1 : chart.revision;
        if (chart.change !== 'add') {
          for (const f of chart.files) base.push(chartFile(f, oldRevision, blobBytes, seed));
        }
        if (chart.change !== 'delete') afterMerge += chart.files.length;
        if (chart.change === 'replace' || chart.change === 'add') {
          for (const f of chart.files) update.entries.push(chartFile(f, chart.revision, blobBytes, seed));
        } else if (chart.change === 'variant') {
          update.entries.push(chartFile(chart.files[1], chart.revision, blobBytes, seed, FLAG_REPLACE_VARIANT));
        } else if (chart.change === 'delete') {
          for (const f of chart.files) update.entries.push(chartFile(f, oldRevision, blobBytes, seed, FLAG_DELETE));
        }
        if (chart.change) update[chart.change === 'variant' ? 'replaceVariant' : chart.change]++;
      }
    }
    const written = writeChartsBinStream(path.join(dir, bundleName), {
      entries: base, julianDate: begin.toFixed(1),
    });
    summary.bundles[bundleName] = { entries: written.fileCount, bytes: written.bytes, julianDate: begin.toFixed(1) };
    summary.afterMerge[bundleName] = afterMerge;
    pending.forEach((update, k) => {
      const name = `${nextCycle}${k ? `-${k + 1}` : ''}_${bundleName}`;
      const result = writeChartsBinStream(path.join(dir, name), {
        entries: update.entries, julianDate: next.toFixed(1),
      });
      summary.updateBundles.push({
        file: name, family, entries: result.fileCount, bytes: result.bytes, julianDate: next.toFixed(1),
        replace: update.replace, replaceVariant: update.replaceVariant, delete: update.delete, add: update.add,
      });
    });
  }
}

function writeFixedFiles(dir, { begin, next, cycle }, summary) {
  const write = (name, text) => fs.writeFileSync(path.join(dir, name), text, 'latin1');
  const regions = [];
  for (const region of world.REGIONS) {
    for (const [kind, entry] of [['IFR', region.ifr], ['VFR', region.vfr], ['restricted', region.restricted]]) {
      if (entry) regions.push({ code: entry[0], key: entry[1], description: `${region.name} ${kind}`, kind });
    }
  }
  summary.coverage = regions.map((r) => r.code);
  summary.regions = regions;
  fs.writeFileSync(path.join(dir, 'regions.dat'), regionsDat([...regions, ...world.CATALOGUE_ONLY]));
  write('coverages.txt', `${summary.coverage.join(' ')}\r\n`);
  write('charts.ini', `[Database]\r\nDatabase_Begin_Date=${begin.toFixed(1)}\r\n`
    + `Database_End_Date=${next.toFixed(1)}\r\n`);
  write('revision.txt', `[Revision]\r\nProduct=Terminal charts\r\nCycle=${cycle}\r\n`);
  write('lssdef.tcl', '# Line and symbol styles of the chart viewer\r\n'
    + 'set lss(version) 3\r\n'
    + 'set lss(runway) {color #404040 width 3}\r\n'
    + 'set lss(taxiway) {color #a0a0a0 width 1}\r\n'
    + 'set lss(airspace) {color #2060c0 width 1 dash {4 2}}\r\n');
  write('tarnwick.tfl', '; Fonts of the chart viewer\r\nTarnwick Sans,Regular,tarnsans.ttf\r\n'
    + 'Tarnwick Sans,Bold,tarnsansb.ttf\r\nTarnwick Mono,Regular,tarnmono.ttf\r\n');
  write('tarnwick.tls', '; Layers of the chart viewer\r\n'
    + regions.map((r, i) => `${r.code},${i + 1},${r.kind === 'VFR' ? 'visual' : 'terminal'}`).join('\r\n') + '\r\n');

  const table = (name, fields, records) => {
    const out = new DbfWriter(path.join(dir, name), fields);
    records.forEach((record) => out.add(record));
    out.close();
  };
  const countries = world.REGIONS.flatMap((region) => region.countries.map((country) => ({ region, country })))
    .sort((a, b) => compareNoCase(a.country.code, b.country.code));
  table('country.dbf', layouts.COUNTRY, countries.map(({ region, country }) => ({
    J5_3: country.code, NAME: country.name, REGION: region.name,
  })));
  table('state.dbf', layouts.STATE, countries.flatMap(({ country }) => [...new Set(country.states)].sort()
    .map((state) => ({ J5_3: country.code, ST_PR: state, NAME: `${country.name} ${state}` }))));
  table('ctypes.dbf', layouts.CHART_TYPE, layouts.CHART_TYPES);
  table('sbscrips.dbf', layouts.SUBSCRIPTION, regions.map((r) => ({
    KEY: r.key, SVC_CODE: r.code, NAME: r.description, EXPIRES: dateText(begin + 365),
  })));
}

// The tables that "crcfiles.txt" protects, with their true checksums, and
// the region catalogue, whose line a rewrite keeps as it stands.
const CHECKSUMMED = ['airports.dbf', 'charts.dbf', 'notams.dbf', 'notams.dbt', 'vfrapts.dbf',
  'vfrchrts.dbf', 'vfrntms.dbf', 'vfrntms.dbt', 'chrtlink.dbf', 'coverags.dbf', 'sbscrips.dbf',
  'regions.dat'];

function writeChecksumList(dir) {
  const lines = CHECKSUMMED.map((name) => `${name},0x${fileTarnCrc(path.join(dir, name)).toString(16)}\r\n`);
  fs.writeFileSync(path.join(dir, 'crcfiles.txt'), lines.join(''), 'latin1');
}

module.exports = { generate, compareNoCase, CHECKSUMMED };
