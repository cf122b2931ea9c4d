'use strict';
// Writers for dBase tables (".dbf") and their memo files (".dbt"), including
// malformed ones for tests.
//
//   dbfTable({
//     fields: [{ name: 'F5_6', type: 'C', length: 4 }, { name: 'CHRT_IDX', type: 'N', length: 6 }],
//     records: [{ F5_6: 'KDEN', CHRT_IDX: 1 }, ['KBOS', '7'], deleted({ F5_6: 'KOLD' })],
//   })

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

module.exports = {
  deleted, dbfTable, dbfRecordLength: recordLength, dbfRecordBytes: recordBytes, dbtMemo, dbtFile,
};
