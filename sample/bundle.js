'use strict';
// Chart bundles ("charts.bin", "vfrcharts.bin" and update bundles): a writer,
// a reader, the bundle's entry order and both checksums.
//
// Layout, all integers little-endian: a 27-byte header (CRC u32, Size u16,
// Version u16, File Count u32, Table Offset u32, Julian Date char[11]), the
// data blobs, then File Count table entries of 40 bytes (name char[26],
// offset u32, size u32, key u32, flags u8, variant u8). The CRC is the Tarn
// checksum (polynomial 0x814141AB, most significant bit first, register
// starting at 0, no final XOR) of every byte from offset 4 to the end.
const fs = require('fs');

const HEADER_SIZE = 27;
const ENTRY_SIZE = 40;
const NAME_SIZE = 26;

const FLAG_SUPERSEDED = 0x01;
const FLAG_REPLACE_VARIANT = 0x10;
const FLAG_DELETE = 0x20;

const TARN_TABLE = (() => {
  const table = new Uint32Array(256);
  for (let i = 0; i < 256; i++) {
    let c = (i << 24) >>> 0;
    for (let bit = 0; bit < 8; bit++) c = (c & 0x80000000) ? ((c << 1) ^ 0x814141AB) >>> 0 : (c << 1) >>> 0;
    table[i] = c;
  }
  return table;
})();

const STANDARD_TABLE = (() => {
  const table = new Uint32Array(256);
  for (let i = 0; i < 256; i++) {
    let c = i;
    for (let bit = 0; bit < 8; bit++) c = (c & 1) ? ((c >>> 1) ^ 0xEDB88320) >>> 0 : c >>> 1;
    table[i] = c;
  }
  return table;
})();

// Tarn checksum register after the bytes (Buffer or Uint8Array); 0 to start.
function tarnCrc(bytes, reg = 0) {
  for (let i = 0; i < bytes.length; i++) reg = ((reg << 8) ^ TARN_TABLE[(reg >>> 24) ^ bytes[i]]) >>> 0;
  return reg;
}

// Standard CRC-32 register without inversions (0xFFFFFFFF to start).
function crc32Register(bytes, reg = 0xFFFFFFFF) {
  for (let i = 0; i < bytes.length; i++) reg = ((reg >>> 8) ^ STANDARD_TABLE[(reg ^ bytes[i]) & 0xFF]) >>> 0;
  return reg;
}

// The standard CRC-32 of the bytes (that of zip).
function crc32(bytes) {
  return (crc32Register(bytes) ^ 0xFFFFFFFF) >>> 0;
}

// The CRC a bundle must carry: the Tarn checksum of its bytes from offset 4 on.
function bundleCrc(buffer) {
  return tarnCrc(buffer.subarray(4));
}

function nameBytes(name) {
  return Buffer.from(name, 'latin1').subarray(0, NAME_SIZE);
}

// Bundle order: names with ASCII letters folded to lower case (byte by byte),
// then variant, then flags.
function compareEntries(a, b) {
  const x = nameBytes(a.name);
  const y = nameBytes(b.name);
  const fold = (c) => (c >= 0x41 && c <= 0x5A ? c + 0x20 : c);
  for (let i = 0; i < Math.min(x.length, y.length); i++) {
    const d = fold(x[i]) - fold(y[i]);
    if (d !== 0) return d;
  }
  if (x.length !== y.length) return x.length - y.length;
  if ((a.variant || 0) !== (b.variant || 0)) return (a.variant || 0) - (b.variant || 0);
  return (a.flags || 0) - (b.flags || 0);
}

// A bundle's bytes. Entries: { name, data (Buffer), key, flags, variant },
// optionally { offset, size } to write into the table instead of the real
// values. Blobs follow the 27-byte header without gaps, in the order given;
// the table is sorted into bundle order unless sort is false. The CRC is
// computed unless given; fileCount and tableOffset likewise.
function chartsBin({
  entries = [], size = HEADER_SIZE, version = 1, julianDate = '2460000.5', sort = true,
  crc, fileCount, tableOffset,
} = {}) {
  const blobs = [];
  const table = [];
  let at = HEADER_SIZE;
  for (const entry of entries) {
    const data = entry.data ? Buffer.from(entry.data) : Buffer.alloc(0);
    table.push({ ...entry, offset: entry.offset ?? at, size: entry.size ?? data.length });
    blobs.push(data);
    at += data.length;
  }
  if (sort) table.sort(compareEntries);

  const header = Buffer.alloc(HEADER_SIZE);
  header.writeUInt16LE(size, 4);
  header.writeUInt16LE(version, 6);
  header.writeUInt32LE(fileCount ?? table.length, 8);
  header.writeUInt32LE(tableOffset ?? at, 12);
  Buffer.from(julianDate, 'latin1').copy(header, 16, 0, 11);

  const tableBytes = Buffer.alloc(table.length * ENTRY_SIZE);
  table.forEach((e, i) => {
    const base = i * ENTRY_SIZE;
    nameBytes(e.name).copy(tableBytes, base);
    tableBytes.writeUInt32LE(e.offset >>> 0, base + 26);
    tableBytes.writeUInt32LE(e.size >>> 0, base + 30);
    tableBytes.writeUInt32LE((e.key || 0) >>> 0, base + 34);
    tableBytes[base + 38] = e.flags || 0;
    tableBytes[base + 39] = e.variant || 0;
  });

  const bytes = Buffer.concat([header, ...blobs, tableBytes]);
  bytes.writeUInt32LE(crc ?? bundleCrc(bytes), 0);
  return bytes;
}

function writeChartsBin(file, options) {
  const bytes = chartsBin(options);
  fs.writeFileSync(file, bytes);
  return bytes;
}

function cText(buffer) {
  const end = buffer.indexOf(0);
  return buffer.subarray(0, end < 0 ? buffer.length : end).toString('latin1');
}

// Parses a bundle (Buffer or path): header fields and the table, each entry
// with its data. Throws when the header, table or a blob lies past the end.
function readChartsBin(source) {
  const bytes = Buffer.isBuffer(source) ? source : fs.readFileSync(source);
  if (bytes.length < HEADER_SIZE) throw new RangeError('bundle shorter than its header');
  const fileCount = bytes.readUInt32LE(8);
  const tableOffset = bytes.readUInt32LE(12);
  if (tableOffset + fileCount * ENTRY_SIZE > bytes.length) throw new RangeError('table past the end');
  const entries = [];
  for (let i = 0; i < fileCount; i++) {
    const base = tableOffset + i * ENTRY_SIZE;
    const offset = bytes.readUInt32LE(base + 26);
    const size = bytes.readUInt32LE(base + 30);
    if (offset + size > bytes.length) throw new RangeError(`blob ${i} past the end`);
    entries.push({
      name: cText(bytes.subarray(base, base + NAME_SIZE)),
      offset,
      size,
      key: bytes.readUInt32LE(base + 34),
      flags: bytes[base + 38],
      variant: bytes[base + 39],
      data: bytes.subarray(offset, offset + size),
    });
  }
  return {
    crc: bytes.readUInt32LE(0),
    size: bytes.readUInt16LE(4),
    version: bytes.readUInt16LE(6),
    fileCount,
    tableOffset,
    julianDate: cText(bytes.subarray(16, 27)),
    entries,
  };
}

module.exports = {
  CHARTS_BIN_HEADER_SIZE: HEADER_SIZE,
  CHARTS_BIN_ENTRY_SIZE: ENTRY_SIZE,
  FLAG_SUPERSEDED, FLAG_REPLACE_VARIANT, FLAG_DELETE,
  tarnCrc, crc32Register, crc32, bundleCrc, compareEntries,
  chartsBin, writeChartsBin, readChartsBin,
};
