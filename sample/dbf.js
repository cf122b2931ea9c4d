'use strict';
// Writers for dBase tables (".dbf") and their memo files (".dbt"), including
// malformed ones for tests; streaming writers for tables of any size; and a
// plain reader for checking what was written.
//
//   dbfTable({
//     fields: [{ name: 'F5_6', type: 'C', length: 4 }, { name: 'CHRT_IDX', type: 'N', length: 6 }],
//     records: [{ F5_6: 'KDEN', CHRT_IDX: 1 }, ['KBOS', '7'], deleted({ F5_6: 'KOLD' })],
//   })

const fs = require('fs');

const DELETED = Symbol('deleted');

// Marks a record (an object or an array of values) as deleted.
function deleted(values) {
  return { [DELETED]: true, values };
}

function u16(v) {
  const b = Buffer.alloc(2);
  b.writeUInt16LE(v & 0xffff);
  return b;
}

function u32(v) {
  const b = Buffer.alloc(4);
  b.writeUInt32LE(v >>> 0);
  return b;
}

function fieldLength(field) {
  return Math.max(field.length, 0);
}

// The length of one record, deletion flag included.
function recordLength(fields) {
  return fields.reduce((sum, field) => sum + fieldLength(field), 1);
}

// A value in its field: shorter values are padded with spaces (numerics on
// the left, everything else on the right), longer ones cut.  Strings are
// taken as latin1, byte for byte; Buffers as they are.
function fieldBytes(field, value) {
  const width = fieldLength(field);
  let bytes = Buffer.isBuffer(value) ? value
    : Buffer.from(value === undefined || value === null ? '' : String(value), 'latin1');
  if (bytes.length >= width) return bytes.subarray(0, width);
  const padding = Buffer.alloc(width - bytes.length, ' ');
  return field.type === 'N' ? Buffer.concat([padding, bytes]) : Buffer.concat([bytes, padding]);
}

// One record: an array of values in field order, or an object by field name.
function recordBytes(fields, record) {
  const isDeleted = Boolean(record && record[DELETED]);
  const values = isDeleted ? record.values : record;
  const parts = [Buffer.from(isDeleted ? '*' : ' ', 'latin1')];
  fields.forEach((field, i) => {
    const value = Array.isArray(values) ? values[i] : (values || {})[field.name];
    parts.push(fieldBytes(field, value));
  });
  return Buffer.concat(parts);
}

// One 32-byte field descriptor.  'N' keeps its length in byte 16 and its
// decimal count in byte 17; every other type keeps its length in the 16-bit
// word at bytes 16-17.
function descriptor(field) {
  const d = Buffer.alloc(32);
  Buffer.from(field.name, 'latin1').copy(d, 0, 0, 11);
  d[11] = field.type.charCodeAt(0);
  if (field.type === 'N') {
    d[16] = field.length & 0xff;
    d[17] = (field.decimals || 0) & 0xff;
  } else {
    d.writeUInt16LE(field.length & 0xffff, 16);
  }
  return d;
}

// A whole table.  Options:
//   fields       [{ name, type, length, decimals }]
//   records      arrays or objects of values; deleted(...) marks deleted ones
//   endMarker    append the 0x1A end marker (default true)
//   version      version byte (default 0x03); date: [yy, mm, dd] (default [124, 1, 1])
//   recordCount, headerLength, recordLength
//                header values to write instead of the true ones (malformed
//                tables); the layout written stays the true one
//   terminator   byte after the descriptors (default 0x0D)
//   extraHeader  bytes after the terminator that the header length counts
//   patches      [[offset, bytes], ...] written over the finished file last
function dbfTable(options) {
  const fields = options.fields || [];
  const records = options.records || [];
  const extra = Buffer.from(options.extraHeader || '', 'latin1');
  const header = Buffer.alloc(32);
  header[0] = options.version === undefined ? 0x03 : options.version;
  const date = options.date || [124, 1, 1];
  header[1] = date[0];
  header[2] = date[1];
  header[3] = date[2];
  const pick = (value, truth) => (value === undefined ? truth : value);
  u32(pick(options.recordCount, records.length)).copy(header, 4);
  u16(pick(options.headerLength, 32 + 32 * fields.length + 1 + extra.length)).copy(header, 8);
  u16(pick(options.recordLength, recordLength(fields))).copy(header, 10);
  const parts = [header, ...fields.map(descriptor),
    Buffer.from([pick(options.terminator, 0x0d)]), extra,
    ...records.map((record) => recordBytes(fields, record))];
  if (options.endMarker !== false) parts.push(Buffer.from([0x1a]));
  let bytes = Buffer.concat(parts);
  for (const [offset, patch] of options.patches || []) {
    const data = Buffer.isBuffer(patch) ? patch : Buffer.from(patch, 'latin1');
    if (bytes.length < offset + data.length) {
      bytes = Buffer.concat([bytes, Buffer.alloc(offset + data.length - bytes.length)]);
    }
    data.copy(bytes, offset);
  }
  return bytes;
}

const BLOCK = 512;

// One memo: prolog FF FF 08 00, length (text + 8), the text, then zeros up to
// the next 512-byte boundary - a whole block of zeros when the text ends on
// one, as the library's memo writer does.
function dbtMemo(text) {
  const body = Buffer.isBuffer(text) ? text : Buffer.from(text, 'latin1');
  const used = 8 + body.length;
  return Buffer.concat([Buffer.from([0xff, 0xff, 0x08, 0x00]), u32(body.length + 8), body,
    Buffer.alloc(BLOCK - (used % BLOCK))]);
}

// A memo file: header block 0 (the next free block at bytes 0-3), then each
// text as dbtMemo lays it out.  Returns { bytes, blocks }, blocks holding the
// first block number of each memo, the number its memo field stores.
function dbtFile(texts) {
  const memos = [];
  const blocks = [];
  let next = 1;
  for (const text of texts) {
    const memo = dbtMemo(text);
    blocks.push(next);
    next += memo.length / BLOCK;
    memos.push(memo);
  }
  const header = Buffer.alloc(BLOCK);
  header.writeUInt32LE(next, 0);
  return { bytes: Buffer.concat([header, ...memos]), blocks };
}

// Streams go to disk in blocks of this size, so a table of any length needs
// only one block of memory.
const CHUNK = 1 << 20;

// A value written straight into its place in a record buffer, with the
// padding rules of fieldBytes; the bytes at the place must be spaces.
function putField(field, value, target, at) {
  const width = fieldLength(field);
  if (value === undefined || value === null || value === '') return;
  if (Buffer.isBuffer(value)) {
    value.copy(target, at, 0, Math.min(width, value.length));
    return;
  }
  const text = String(value);
  const length = Math.min(Buffer.byteLength(text, 'latin1'), width);
  const start = field.type === 'N' ? at + width - length : at;
  target.write(text, start, length, 'latin1');
}

// Writes a table record by record to a file, one block of memory at a time:
//   const out = new DbfWriter(file, fields);
//   out.add({ F5_6: 'KSEA' }); out.add(['KBFI']); out.close();
// The record count in the header is patched and the 0x1A end marker
// appended by close(), which returns the number of records.
class DbfWriter {
  constructor(file, fields, { version = 0x03, date = [124, 1, 1] } = {}) {
    this.fields = fields;
    this.recordLength = recordLength(fields);
    this.offsets = [];
    let at = 1;
    for (const field of fields) {
      this.offsets.push(at);
      at += fieldLength(field);
    }
    this.count = 0;
    this.fd = fs.openSync(file, 'w');
    const header = dbfTable({ fields, version, date, endMarker: false });
    fs.writeSync(this.fd, header);
    this.buffer = Buffer.alloc(Math.max(CHUNK, this.recordLength));
    this.used = 0;
  }

  add(record) {
    if (this.used + this.recordLength > this.buffer.length) this.flush();
    const isDeleted = Boolean(record && record[DELETED]);
    const values = isDeleted ? record.values : record;
    const at = this.used;
    this.buffer.fill(0x20, at, at + this.recordLength);
    if (isDeleted) this.buffer[at] = 0x2a;
    const byPosition = Array.isArray(values);
    this.fields.forEach((field, i) => {
      const value = byPosition ? values[i] : (values || {})[field.name];
      putField(field, value, this.buffer, at + this.offsets[i]);
    });
    this.used += this.recordLength;
    this.count++;
  }

  flush() {
    if (this.used > 0) fs.writeSync(this.fd, this.buffer, 0, this.used);
    this.used = 0;
  }

  close() {
    this.flush();
    fs.writeSync(this.fd, Buffer.from([0x1a]));
    fs.writeSync(this.fd, u32(this.count), 0, 4, 4);
    fs.closeSync(this.fd);
    return this.count;
  }
}

// Appends memos to a memo file as dbtMemo lays them out, block 0 being the
// header that holds the next free block:
//   const memo = new DbtWriter(file); const block = memo.add('text'); memo.close();
// add() returns the memo's first block, the number its memo field stores.
class DbtWriter {
  constructor(file) {
    this.fd = fs.openSync(file, 'w');
    this.next = 1;
    fs.writeSync(this.fd, Buffer.alloc(BLOCK));
    this.pending = [];
    this.pendingBytes = 0;
  }

  add(text) {
    const memo = dbtMemo(text);
    const block = this.next;
    this.next += memo.length / BLOCK;
    this.pending.push(memo);
    this.pendingBytes += memo.length;
    if (this.pendingBytes >= CHUNK) this.flush();
    return block;
  }

  flush() {
    if (this.pending.length) fs.writeSync(this.fd, Buffer.concat(this.pending));
    this.pending = [];
    this.pendingBytes = 0;
  }

  close() {
    this.flush();
    fs.writeSync(this.fd, u32(this.next), 0, 4, 0);
    fs.closeSync(this.fd);
    return this.next;
  }
}

function trimRight(text) {
  return text.replace(/[ \t]+$/, '');
}

// The header of a table: record count, lengths and the field descriptors.
function parseDbfHeader(bytes) {
  const headerLength = bytes.readUInt16LE(8);
  const fields = [];
  let offset = 1;
  for (let at = 32; at + 32 <= headerLength && bytes[at] !== 0x0d; at += 32) {
    const type = String.fromCharCode(bytes[at + 11]);
    const length = type === 'N' ? bytes[at + 16] : bytes.readInt16LE(at + 16);
    fields.push({
      name: trimRight(bytes.subarray(at, at + 11).toString('latin1').replace(/\0.*$/s, '')),
      type, length, decimals: type === 'N' ? bytes[at + 17] : 0, offset,
    });
    offset += bytes.readInt16LE(at + 16);
  }
  return {
    recordCount: bytes.readUInt32LE(4), headerLength, recordLength: bytes.readUInt16LE(10), fields,
  };
}

// Reads only the header of a table file (any size).
function readDbfHeader(file) {
  const fd = fs.openSync(file, 'r');
  try {
    const start = Buffer.alloc(32);
    fs.readSync(fd, start, 0, 32, 0);
    const bytes = Buffer.alloc(start.readUInt16LE(8));
    fs.readSync(fd, bytes, 0, bytes.length, 0);
    return parseDbfHeader(bytes);
  } finally {
    fs.closeSync(fd);
  }
}

// Reads a whole table (a path or its bytes): its header, and its live
// records as objects of trimmed texts keyed by field name (memo fields give
// their block number). Meant for checking tables of test size.
function readDbf(source) {
  const bytes = Buffer.isBuffer(source) ? source : fs.readFileSync(source);
  const header = parseDbfHeader(bytes);
  const records = [];
  let deletedCount = 0;
  for (let i = 0; i < header.recordCount; i++) {
    const at = header.headerLength + i * header.recordLength;
    if (at + header.recordLength > bytes.length) break;
    if (bytes[at] === 0x2a) {
      deletedCount++;
      continue;
    }
    const record = {};
    for (const field of header.fields) {
      const raw = bytes.subarray(at + field.offset, at + field.offset + field.length).toString('latin1');
      record[field.name] = field.type === 'N' ? raw.trim() : trimRight(raw);
    }
    records.push(record);
  }
  return { ...header, records, deletedCount };
}

// The text of the memo that starts at a block of a memo file's bytes.
function dbtText(bytes, block) {
  const at = block * BLOCK;
  if (at + 8 > bytes.length) return undefined;
  const length = bytes.readUInt32LE(at + 4) - 8;
  return bytes.subarray(at + 8, at + 8 + length).toString('latin1');
}

module.exports = {
  deleted, dbfTable, dbfRecordLength: recordLength, dbfRecordBytes: recordBytes, dbtMemo, dbtFile,
  DbfWriter, DbtWriter, readDbf, readDbfHeader, dbtText,
};
