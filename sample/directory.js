'use strict';
// Writers for the text files of a chart directory and its region catalogue.
const fs = require('fs');
const path = require('path');

// The fixed files every chart directory must hold.
const REQUIRED_FILES = [
  'charts.ini', 'chrtlink.dbf', 'country.dbf', 'coverages.txt', 'coverags.dbf',
  'crcfiles.txt', 'ctypes.dbf', 'tarnwick.tfl', 'tarnwick.tls', 'lssdef.tcl',
  'regions.dat', 'revision.txt', 'sbscrips.dbf', 'state.dbf',
];
const IFR_FILES = ['airports.dbf', 'charts.bin', 'charts.dbf', 'notams.dbf', 'notams.dbt'];
const VFR_FILES = ['vfrapts.dbf', 'vfrcharts.bin', 'vfrchrts.dbf', 'vfrntms.dbf', 'vfrntms.dbt'];

// Writes exactly the given bytes (a string is taken as latin1, byte for byte).
function writeBytes(file, bytes) {
  fs.writeFileSync(file, typeof bytes === 'string' ? Buffer.from(bytes, 'latin1') : bytes);
}

function fixedField(text, width) {
  const field = Buffer.alloc(width);
  Buffer.from(text, 'latin1').copy(field, 0, 0, width);
  return field;
}

// One 88-byte region record (key 32, service code 6, description 50), stored
// complemented byte by byte.
function regionRecord({ key, code, description }) {
  const record = Buffer.concat([fixedField(String(key), 32), fixedField(code, 6),
    fixedField(description, 50)]);
  for (let i = 0; i < record.length; i++) record[i] = 255 - record[i];
  return record;
}

function regionsDat(regions) {
  return Buffer.concat(regions.map(regionRecord));
}

// "revision.txt" with its "Cycle=" line.
function revisionTxt(cycle) {
  return `Revision\r\nCycle=${cycle}\r\n`;
}

// "charts.ini" with the database begin date as a Julian Day number.
function chartsIni(julianDate) {
  return `[Database]\r\nDatabase_Begin_Date=${julianDate}\r\n`;
}

// Julian Day number of a calendar date at 0 h (Gregorian calendar).
function julianDay(year, month, day) {
  const ms = Date.UTC(year, month - 1, day);
  return ms / 86400000 + 2440587.5;
}

module.exports = {
  REQUIRED_FILES, IFR_FILES, VFR_FILES,
  writeBytes, fixedField, regionRecord, regionsDat, revisionTxt, chartsIni, julianDay,
  join: path.join,
};
