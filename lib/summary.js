'use strict';
// Counts of what a chart directory holds, from the tables' headers and the
// bundles' file tables only, so that it is quick whatever their size.
const fs = require('fs');
const path = require('path');
const { readDbfHeader } = require('../sample/dbf');
const { readChartsBinTable } = require('../sample/bundle');

function records(dir, name) {
  try {
    return readDbfHeader(path.join(dir, name)).recordCount;
  } catch {
    return null;
  }
}

function bundle(dir, name) {
  try {
    const { fileCount, bytes, julianDate } = readChartsBinTable(path.join(dir, name));
    return { entries: fileCount, bytes, julianDate };
  } catch {
    return null;
  }
}

// { airports, charts, notams: { ifr, vfr }, chartLinks, coverageRecords,
//   bundles: { 'charts.bin', 'vfrcharts.bin' }, updateBundles: [names] };
// null for a table or bundle that is missing or unreadable.
function summarizeDirectory(dir) {
  let names = [];
  try {
    names = fs.readdirSync(dir);
  } catch {
    // an unreadable directory has nothing to count
  }
  return {
    airports: { ifr: records(dir, 'airports.dbf'), vfr: records(dir, 'vfrapts.dbf') },
    charts: { ifr: records(dir, 'charts.dbf'), vfr: records(dir, 'vfrchrts.dbf') },
    notams: { ifr: records(dir, 'notams.dbf'), vfr: records(dir, 'vfrntms.dbf') },
    chartLinks: records(dir, 'chrtlink.dbf'),
    coverageRecords: records(dir, 'coverags.dbf'),
    bundles: { 'charts.bin': bundle(dir, 'charts.bin'), 'vfrcharts.bin': bundle(dir, 'vfrcharts.bin') },
    updateBundles: names.filter((n) => /_(vfr)?charts\.bin$/i.test(n)).sort(),
  };
}

function bytesText(n) {
  if (n < 1024) return `${n} bytes`;
  if (n < 1024 * 1024) return `${(n / 1024).toFixed(1)} KB`;
  return `${(n / 1024 / 1024).toFixed(1)} MB`;
}

const count = (n) => (n === null ? 'none' : String(n));

// The summary in a few lines of words.
function summaryLines(s) {
  const b = (name) => (s.bundles[name] ? `${s.bundles[name].entries} files, ${bytesText(s.bundles[name].bytes)}`
    : 'none');
  return [
    `airports: ${count(s.airports.ifr)} IFR, ${count(s.airports.vfr)} VFR`,
    `charts:   ${count(s.charts.ifr)} IFR, ${count(s.charts.vfr)} VFR; ${count(s.chartLinks)} chart links`,
    `NOTAMs:   ${count(s.notams.ifr)} IFR, ${count(s.notams.vfr)} VFR`,
    `bundles:  charts.bin ${b('charts.bin')}; vfrcharts.bin ${b('vfrcharts.bin')}`
      + (s.updateBundles.length ? `; ${s.updateBundles.length} update bundles waiting` : ''),
  ];
}

module.exports = { summarizeDirectory, summaryLines, bytesText };
