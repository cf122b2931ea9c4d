// Writers for every file of a chart directory, for tests, the demo and users
// who need sample data: require('tarn-termchart/sample') or import from
// 'tarn-termchart/sample'.
//
// Every function is synchronous. Paths are strings; a string taken "as
// latin1" is written byte for byte, one byte per character.
//
// Bytes the functions hand out are always Node Buffers. These declarations
// need no Node typings: NodeBuffer is the global Buffer when Node's typings
// are loaded, else a Uint8Array with the few Buffer methods a reader of the
// results needs. Arguments typed Uint8Array take any Uint8Array, a Buffer
// included; arguments typed NodeBuffer must be a real Buffer, since the
// functions tell them from other values with Buffer.isBuffer.

/** The text encodings a Buffer's toString knows. */
type BufferEncoding =
  | 'ascii' | 'utf8' | 'utf-8' | 'utf16le' | 'utf-16le' | 'ucs2' | 'ucs-2'
  | 'base64' | 'base64url' | 'latin1' | 'binary' | 'hex';

/** A Buffer as far as these declarations describe it without Node's typings. */
interface BufferWithoutNodeTypings extends Uint8Array {
  readUInt8(offset?: number): number;
  readUInt16LE(offset?: number): number;
  readUInt32LE(offset?: number): number;
  readInt16LE(offset?: number): number;
  toString(encoding?: BufferEncoding, start?: number, end?: number): string;
  equals(other: Uint8Array): boolean;
  subarray(start?: number, end?: number): BufferWithoutNodeTypings;
}

/** A Node Buffer: the global Buffer type when Node's typings are loaded. */
export type NodeBuffer = typeof globalThis extends { Buffer: { isBuffer(value: any): value is infer B } }
  ? B
  : BufferWithoutNodeTypings;

// ---------------------------------------------------------------------------
// The text files of a chart directory and its region catalogue.

/** The fixed files every chart directory must hold. */
export const REQUIRED_FILES: readonly [
  'charts.ini', 'chrtlink.dbf', 'country.dbf', 'coverages.txt', 'coverags.dbf',
  'crcfiles.txt', 'ctypes.dbf', 'tarnwick.tfl', 'tarnwick.tls', 'lssdef.tcl',
  'regions.dat', 'revision.txt', 'sbscrips.dbf', 'state.dbf',
];

/** The files of the IFR family. */
export const IFR_FILES: readonly ['airports.dbf', 'charts.bin', 'charts.dbf', 'notams.dbf', 'notams.dbt'];

/** The files of the VFR family. */
export const VFR_FILES: readonly ['vfrapts.dbf', 'vfrcharts.bin', 'vfrchrts.dbf', 'vfrntms.dbf', 'vfrntms.dbt'];

/** Writes exactly the given bytes to a file; a string is taken as latin1. */
export function writeBytes(file: string, bytes: string | ArrayBufferView): void;

/** A field of exactly width bytes: the text as latin1, cut or padded with NUL bytes. */
export function fixedField(text: string, width: number): NodeBuffer;

/** One region of the catalogue "regions.dat". */
export interface RegionRecord {
  /** The coverage key (32 bytes, as text). */
  key: number | string;
  /** The service code, e.g. "US1" (6 bytes). */
  code: string;
  /** What the region is, e.g. "United States IFR" (50 bytes). */
  description: string;
}

/** One 88-byte region record (key 32, code 6, description 50 bytes), complemented byte by byte. */
export function regionRecord(region: RegionRecord): NodeBuffer;

/** The bytes of "regions.dat": the regions' records one after the other. */
export function regionsDat(regions: readonly RegionRecord[]): NodeBuffer;

/** The text of "revision.txt" with its "Cycle=" line, e.g. revisionTxt('2501'). */
export function revisionTxt(cycle: string | number): string;

/** The text of "charts.ini" with the database begin date as a Julian Day number. */
export function chartsIni(julianDate: number | string): string;

/** The Julian Day number of a calendar date at 0 h (Gregorian calendar; month 1 to 12). */
export function julianDay(year: number, month: number, day: number): number;

/** Joins path segments: Node's path.join, re-exported for convenience. */
export function join(...paths: string[]): string;

// ---------------------------------------------------------------------------
// dBase tables (".dbf") and their memo files (".dbt").

/** A field type: 'C' character, 'N' numeric, 'D' date, 'L' logical, 'M' memo, or any other letter. */
export type DbfFieldType = 'C' | 'N' | 'D' | 'L' | 'M' | (string & {});

/** A field of a table as the writers take it. */
export interface DbfField {
  /** The field name; up to 11 bytes are kept. */
  name: string;
  /** Only the first character is written. */
  type: DbfFieldType;
  /** The field's width in bytes. */
  length: number;
  /** Decimal places of an 'N' field (default 0); other types ignore it. */
  decimals?: number;
}

/**
 * A value in its field. Strings (latin1) and numbers are padded with spaces,
 * on the left in 'N' fields and on the right elsewhere, or cut; a Buffer is
 * written as it is; null and undefined leave the field blank.
 */
export type DbfValue = string | number | NodeBuffer | null | undefined;

/** A record: values in field order, or an object of values by field name. */
export type DbfRecord = readonly DbfValue[] | { readonly [field: string]: DbfValue };

declare const deletedMark: unique symbol;

/** A record marked deleted by deleted(). */
export interface DeletedRecord {
  readonly [deletedMark]: true;
  readonly values: DbfRecord;
}

/** Marks a record (an array or an object of values) as deleted. */
export function deleted(values: DbfRecord): DeletedRecord;

/** Options of dbfTable. The header values given are written instead of the true ones. */
export interface DbfTableOptions {
  /** The table's fields (default none). */
  fields?: readonly DbfField[];
  /** The records, in order; deleted(...) marks deleted ones (default none). */
  records?: readonly (DbfRecord | DeletedRecord)[];
  /** Whether the 0x1A end marker follows the records (default true). */
  endMarker?: boolean;
  /** The version byte (default 0x03). */
  version?: number;
  /** The date of the last update: [years since 1900, month, day] (default [124, 1, 1]). */
  date?: readonly [year: number, month: number, day: number];
  /** The record count to write instead of the true one (the records written stay those given). */
  recordCount?: number;
  /** The header length to write instead of the true one (the layout stays the true one). */
  headerLength?: number;
  /** The record length to write instead of the true one (the layout stays the true one). */
  recordLength?: number;
  /** The byte after the field descriptors (default 0x0D). */
  terminator?: number;
  /** Bytes after the terminator that the header length counts; a string is taken as latin1 (default none). */
  extraHeader?: string | Uint8Array;
  /** [offset, bytes] pairs written over the finished table last, growing it as needed; strings as latin1. */
  patches?: readonly (readonly [offset: number, bytes: string | Uint8Array])[];
}

/** The bytes of a whole table, malformed as the options ask. */
export function dbfTable(options: DbfTableOptions): NodeBuffer;

/** The length of one record of the fields, deletion flag included. */
export function dbfRecordLength(fields: readonly DbfField[]): number;

/** The bytes of one record, deletion flag first. */
export function dbfRecordBytes(fields: readonly DbfField[], record: DbfRecord | DeletedRecord): NodeBuffer;

/** One memo as a memo file stores it: prolog, length, text (latin1), zeros to the next 512-byte block. */
export function dbtMemo(text: string | Uint8Array): NodeBuffer;

/** A whole memo file, as dbtFile returns it. */
export interface DbtFile {
  /** The file's bytes: header block 0, then the memos. */
  bytes: NodeBuffer;
  /** The first block of each memo, in order: the number its memo field stores. */
  blocks: number[];
}

/** A whole memo file of the texts, with the block number of each. */
export function dbtFile(texts: Iterable<string | Uint8Array>): DbtFile;

/** Options of the DbfWriter constructor. */
export interface DbfWriterOptions {
  /** The version byte (default 0x03). */
  version?: number;
  /** The date of the last update: [years since 1900, month, day] (default [124, 1, 1]). */
  date?: readonly [year: number, month: number, day: number];
}

/** Writes a table record by record to a file, holding one block of memory whatever its size. */
export class DbfWriter {
  /** Creates (or truncates) the file and writes the header. */
  constructor(file: string, fields: readonly DbfField[], options?: DbfWriterOptions);
  /** The fields, as given. */
  readonly fields: readonly DbfField[];
  /** The length of one record, deletion flag included. */
  readonly recordLength: number;
  /** Where each field starts within a record. */
  readonly offsets: readonly number[];
  /** The number of records added so far. */
  readonly count: number;
  /** Appends a record. */
  add(record: DbfRecord | DeletedRecord): void;
  /** Writes out the records held in memory. */
  flush(): void;
  /** Finishes the table (record count, end marker), closes the file and returns the number of records. */
  close(): number;
}

/** Appends memos to a memo file, laid out as dbtMemo lays them out. */
export class DbtWriter {
  /** Creates (or truncates) the file and writes its header block. */
  constructor(file: string);
  /** The block the next memo starts at. */
  readonly next: number;
  /** Appends a memo (a string as latin1) and returns its first block, the number its memo field stores. */
  add(text: string | Uint8Array): number;
  /** Writes out the memos held in memory. */
  flush(): void;
  /** Writes the next free block into the header, closes the file and returns that block. */
  close(): number;
}

/** A field as a table's header describes it. */
export interface DbfFieldInfo {
  name: string;
  type: string;
  length: number;
  /** Decimal places of an 'N' field; 0 for other types. */
  decimals: number;
  /** Where the field starts within a record (the deletion flag is byte 0). */
  offset: number;
}

/** The header of a table, as readDbfHeader returns it. */
export interface DbfHeader {
  recordCount: number;
  headerLength: number;
  recordLength: number;
  fields: DbfFieldInfo[];
}

/** A whole table, as readDbf returns it. */
export interface DbfContents extends DbfHeader {
  /** The live records: each field's text by field name, trailing blanks trimmed (an 'N' field's leading ones too). */
  records: { [field: string]: string }[];
  /** How many records are marked deleted. */
  deletedCount: number;
}

/** Reads a whole table (a path or its bytes) with its live records; meant for tables of test size. */
export function readDbf(source: string | NodeBuffer): DbfContents;

/** Reads only the header of a table file, whatever its size. */
export function readDbfHeader(file: string): DbfHeader;

/** The text of the memo that starts at a block of a memo file's bytes, or undefined past the end. */
export function dbtText(bytes: NodeBuffer, block: number): string | undefined;

// ---------------------------------------------------------------------------
// Chart bundles ("charts.bin", "vfrcharts.bin" and update bundles).

/** The size of a bundle's header in bytes. */
export const CHARTS_BIN_HEADER_SIZE: 27;

/** The size of one entry of a bundle's table in bytes. */
export const CHARTS_BIN_ENTRY_SIZE: 40;

/** Entry flag: the entry is superseded. */
export const FLAG_SUPERSEDED: 0x01;

/** Entry flag of an update: the entry replaces one variant of its name. */
export const FLAG_REPLACE_VARIANT: 0x10;

/** Entry flag of an update: the entry deletes the file of its name. */
export const FLAG_DELETE: 0x20;

/** The Tarn checksum register after the bytes, starting from reg (default 0). */
export function tarnCrc(bytes: Uint8Array, reg?: number): number;

/** The standard CRC-32 register after the bytes, without inversions, starting from reg (default 0xFFFFFFFF). */
export function crc32Register(bytes: Uint8Array, reg?: number): number;

/** The standard CRC-32 of the bytes (that of zip). */
export function crc32(bytes: Uint8Array): number;

/** The checksum a bundle must carry: the Tarn checksum of its bytes from offset 4 on. */
export function bundleCrc(bundle: Uint8Array): number;

/** What the bundle order looks at in an entry. */
export interface ChartsBinSortKey {
  name: string;
  /** Default 0. */
  variant?: number;
  /** Default 0. */
  flags?: number;
}

/** Bundle order: names with ASCII letters folded to lower case, then variant, then flags. */
export function compareEntries(a: ChartsBinSortKey, b: ChartsBinSortKey): number;

/** An entry of a bundle written by chartsBin or writeChartsBin. */
export interface ChartsBinEntry extends ChartsBinSortKey {
  /** The file name; up to 26 bytes are kept. */
  name: string;
  /** The file's bytes; a string is taken as UTF-8 (default none). */
  data?: Uint8Array | string;
  /** The entry's key (default 0). */
  key?: number;
  /** The offset to write into the table instead of the blob's true one. */
  offset?: number;
  /** The size to write into the table instead of the blob's true one. */
  size?: number;
}

/** Options of chartsBin and writeChartsBin. */
export interface ChartsBinOptions {
  /** The entries; their blobs follow the header without gaps, in the order given (default none). */
  entries?: readonly ChartsBinEntry[];
  /** The header's Size field (default 27). */
  size?: number;
  /** The header's Version field (default 1). */
  version?: number;
  /** The header's Julian date, up to 11 characters (default '2460000.5'). */
  julianDate?: string;
  /** Whether the table is sorted into bundle order (default true). */
  sort?: boolean;
  /** The checksum to write instead of the true one. */
  crc?: number;
  /** The file count to write instead of the true one. */
  fileCount?: number;
  /** The table offset to write instead of the true one. */
  tableOffset?: number;
}

/** The bytes of a bundle, malformed as the options ask. */
export function chartsBin(options?: ChartsBinOptions): NodeBuffer;

/** Writes a bundle to a file, as chartsBin makes it, and returns its bytes. */
export function writeChartsBin(file: string, options?: ChartsBinOptions): NodeBuffer;

/** The header fields of a bundle as read back. */
export interface ChartsBinHeader {
  crc: number;
  size: number;
  version: number;
  fileCount: number;
  tableOffset: number;
  julianDate: string;
}

/** An entry of a bundle's table as read back. */
export interface ChartsBinTableEntry {
  name: string;
  offset: number;
  size: number;
  key: number;
  flags: number;
  variant: number;
}

/** An entry of a bundle as readChartsBin returns it, with its blob. */
export interface ChartsBinContentsEntry extends ChartsBinTableEntry {
  /** The blob: a view into the bundle's bytes. */
  data: NodeBuffer;
}

/** A whole bundle, as readChartsBin returns it. */
export interface ChartsBinContents extends ChartsBinHeader {
  /** The table's entries in the order stored. */
  entries: ChartsBinContentsEntry[];
}

/** Parses a bundle (a path or its bytes); throws RangeError when the header, table or a blob lies past the end. */
export function readChartsBin(source: string | NodeBuffer): ChartsBinContents;

/** The fields of an entry written by writeChartsBinStream, all but its bytes. */
export interface ChartsBinStreamEntryFields {
  /** The file name; up to 26 bytes are kept. */
  name: string;
  /** The blob's size in bytes. */
  size: number;
  /** Default 0. */
  key?: number;
  /** Default 0. */
  flags?: number;
  /** Default 0. */
  variant?: number;
}

/**
 * An entry written by writeChartsBinStream. Its bytes are a Buffer of exactly
 * size bytes, or a function called with the entry when the blob's turn comes
 * that returns one (copied at once, so it may hand out the same Buffer each
 * time). Entry is the type the function is called with: the entry's own type,
 * which may carry more fields of the caller's.
 */
export interface ChartsBinStreamEntry<Entry = ChartsBinStreamEntryFields> extends ChartsBinStreamEntryFields {
  data: NodeBuffer | ((entry: Entry) => NodeBuffer);
}

/** Options of writeChartsBinStream. */
export interface ChartsBinStreamOptions<Entry extends ChartsBinStreamEntry<Entry> = ChartsBinStreamEntry> {
  /** The entries; their blobs follow the header in the order given, the table is sorted into bundle order (default none). */
  entries?: readonly Entry[];
  /** The header's Size field (default 27). */
  size?: number;
  /** The header's Version field (default 1). */
  version?: number;
  /** The header's Julian date, up to 11 characters (default '2460000.5'). */
  julianDate?: string;
}

/** What writeChartsBinStream wrote. */
export interface ChartsBinStreamResult {
  /** The bundle's size in bytes. */
  bytes: number;
  crc: number;
  fileCount: number;
  tableOffset: number;
}

/**
 * Writes a bundle of any size straight to a file through one block of memory;
 * throws RangeError when an entry's bytes are not a Buffer of its size.
 */
export function writeChartsBinStream<Entry extends ChartsBinStreamEntry<Entry> = ChartsBinStreamEntry>(
  file: string, options?: ChartsBinStreamOptions<Entry>): ChartsBinStreamResult;

/** A bundle's header and table, as readChartsBinTable returns them. */
export interface ChartsBinTable extends ChartsBinHeader {
  /** The file's size in bytes. */
  bytes: number;
  /** The table's entries in the order stored, without their blobs. */
  entries: ChartsBinTableEntry[];
}

/** Reads the header and table of a bundle file of any size; throws RangeError when they lie past the end. */
export function readChartsBinTable(file: string): ChartsBinTable;

/** The Tarn checksum of a file from an offset (default 0) to its end: offset 0 for a table, 4 for a bundle. */
export function fileTarnCrc(file: string, start?: number): number;

// ---------------------------------------------------------------------------
// Whole chart directories.

/** Options of generate. The same seed and options give the same bytes. */
export interface GenerateOptions {
  /** An integer that picks the data and the cycle (default 1). */
  seed?: number;
  /** About 40 airports per unit, more than 0 and at most about 1,200 (default 1). */
  scale?: number;
  /** The average size of a chart file in bytes, at least 96 (default 1024). */
  blobBytes?: number;
  /** Pending update bundles per family, 0 or more (default 0). */
  updates?: number;
}

/** The two bundles of a directory. */
export type BundleName = 'charts.bin' | 'vfrcharts.bin';

/** A region the generated directory covers. */
export interface GeneratedRegion {
  /** The service code, e.g. "US1". */
  code: string;
  /** The coverage key. */
  key: number;
  description: string;
  kind: 'IFR' | 'VFR' | 'restricted';
}

/** A bundle of the generated directory. */
export interface GeneratedBundle {
  entries: number;
  bytes: number;
  julianDate: string;
}

/** A pending update bundle of the generated directory. */
export interface GeneratedUpdateBundle extends GeneratedBundle {
  /** Its file name, e.g. "2502_charts.bin" or "2502-2_vfrcharts.bin". */
  file: string;
  family: 'ifr' | 'vfr';
  /** Charts replaced whole. */
  replace: number;
  /** Charts of which one variant is replaced. */
  replaceVariant: number;
  /** Charts deleted. */
  delete: number;
  /** Charts added. */
  add: number;
}

/** The box of the airports, in degrees. */
export interface GeneratedBox {
  north: number;
  west: number;
  south: number;
  east: number;
}

/** What generate wrote. */
export interface GenerateSummary {
  directory: string;
  seed: number;
  scale: number;
  blobBytes: number;
  updates: number;
  /** The data cycle, e.g. "2501". */
  cycle: string;
  /** The cycle of the pending updates. */
  nextCycle: string;
  /** The database begin date as a Julian Day number. */
  julianDate: number;
  /** The database begin date as YYYYMMDD. */
  beginDate: string;
  /** The service codes of "coverages.txt", in order. */
  coverage: string[];
  regions: GeneratedRegion[];
  airports: { total: number; ifr: number; vfr: number; both: number; restricted: number };
  /** Chart records per family. */
  charts: { ifr: number; vfr: number };
  /** Records of "chrtlink.dbf". */
  chartLinks: number;
  /** NOTAM records per family, and how many of them are a country's own. */
  notams: { ifr: number; vfr: number; country: number };
  /** Records of "coverags.dbf". */
  coverageRecords: number;
  bundles: Record<BundleName, GeneratedBundle>;
  /** The update bundles, IFR ones first. */
  updateBundles: GeneratedUpdateBundle[];
  /** The number of entries each bundle holds once the updates are merged. */
  afterMerge: Record<BundleName, number>;
  /** The size in bytes of every file generate wrote, by name. */
  files: { [name: string]: number };
  /** The box of the airports; null for a directory without airports. */
  box: GeneratedBox | null;
}

/**
 * Writes a whole, consistent chart directory from a seed and returns a summary
 * of it. The directory is created as needed; files of an earlier run in it
 * (update bundles, a merge's leftovers) are removed first, others left alone.
 * Throws RangeError for options out of range.
 */
export function generate(dir: string, options?: GenerateOptions): GenerateSummary;

/** Identifier order: byte by byte with ASCII letters folded to lower case. */
export function compareNoCase(a: string, b: string): number;

/** The files that "crcfiles.txt" lists with their checksums. */
export const CHECKSUMMED: readonly [
  'airports.dbf', 'charts.dbf', 'notams.dbf', 'notams.dbt', 'vfrapts.dbf', 'vfrchrts.dbf',
  'vfrntms.dbf', 'vfrntms.dbt', 'chrtlink.dbf', 'coverags.dbf', 'sbscrips.dbf', 'regions.dat',
];

export {};
