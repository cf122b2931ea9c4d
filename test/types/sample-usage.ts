// Calls of the sample writers as their users write them; this file must compile.
import sample = require('../../sample');

const dir = '/tmp/sample-charts';

// The text files and the region catalogue.
const required: readonly string[] = sample.REQUIRED_FILES;
const ifrFiles: readonly string[] = sample.IFR_FILES;
const vfrFiles: readonly string[] = sample.VFR_FILES;
const firstRequired: 'charts.ini' = sample.REQUIRED_FILES[0];
const regions: sample.RegionRecord[] = [
  { key: 1101, code: 'US1', description: 'United States IFR' },
  { key: '1106', code: 'US6', description: 'United States VFR' },
];
const oneRegion: sample.NodeBuffer = sample.regionRecord(regions[0]);
const catalogue: Uint8Array = sample.regionsDat(regions);
sample.writeBytes(sample.join(dir, 'regions.dat'), catalogue);
sample.writeBytes(sample.join(dir, 'revision.txt'), sample.revisionTxt('2501'));
sample.writeBytes(sample.join(dir, 'charts.ini'), sample.chartsIni(sample.julianDay(2025, 1, 23)));
sample.writeBytes(sample.join(dir, 'lssdef.tcl'), new DataView(new ArrayBuffer(4)));
const revision: string = sample.revisionTxt(2502);
const begin: number = sample.julianDay(2025, 2, 20);
const field: sample.NodeBuffer = sample.fixedField('KSEA', 8);
const fieldText: string = field.toString('latin1', 0, 4);

// Tables and memo files.
const fields: sample.DbfField[] = [
  { name: 'F5_6', type: 'C', length: 4 },
  { name: 'CHRT_IDX', type: 'N', length: 6 },
  { name: 'ELEV', type: 'N', length: 7, decimals: 1 },
  { name: 'TEXT', type: 'M', length: 10 },
];
const memo = sample.dbtFile(['RWY 16R CLSD', 'TWY A LGT U/S', field]);
const blocks: number[] = memo.blocks;
const records: (sample.DbfRecord | sample.DeletedRecord)[] = [
  { F5_6: 'KDEN', CHRT_IDX: 1, ELEV: 5434.2, TEXT: blocks[0] },
  ['KBOS', '7', null, blocks[1]],
  sample.deleted({ F5_6: 'KOLD' }),
  sample.deleted(['KGON', undefined]),
  { F5_6: field.subarray(0, 4) },
];
const options: sample.DbfTableOptions = {
  fields,
  records,
  endMarker: false,
  version: 0x83,
  date: [125, 1, 23],
  recordCount: 99,
  headerLength: 200,
  recordLength: 30,
  terminator: 0x00,
  extraHeader: '\0\0',
  patches: [[32 + 16, new Uint8Array([0xff, 0x7f])], [0, '\x8b']],
};
const table: sample.NodeBuffer = sample.dbfTable(options);
const blank: sample.NodeBuffer = sample.dbfTable({ fields: [{ name: 'A', type: 'C', length: 1 }] });
const recordLength: number = sample.dbfRecordLength(fields);
const recordBytes: Uint8Array = sample.dbfRecordBytes(fields, records[0]);
const deletedBytes: Uint8Array = sample.dbfRecordBytes(fields, sample.deleted(['KX']));
const oneMemo: sample.NodeBuffer = sample.dbtMemo('RWY 16R CLSD');
const binaryMemo: sample.NodeBuffer = sample.dbtMemo(new Uint8Array([0x41, 0x42]));
const memoText: string | undefined = sample.dbtText(memo.bytes, blocks[0]);

const writer = new sample.DbfWriter(sample.join(dir, 'airports.dbf'), fields, { version: 0x03, date: [124, 1, 1] });
writer.add({ F5_6: 'KSEA', CHRT_IDX: writer.count + 1 });
writer.add(['KBFI']);
writer.add(sample.deleted({ F5_6: 'KOLD' }));
writer.flush();
const widths: number = writer.recordLength + writer.offsets.length + writer.fields.length;
const written: number = writer.close();
new sample.DbfWriter(sample.join(dir, 'state.dbf'), fields).close();

const memos = new sample.DbtWriter(sample.join(dir, 'notams.dbt'));
const block: number = memos.add('RWY 16R CLSD');
memos.add(new Uint8Array(600));
memos.flush();
const nextBlock: number = memos.next;
const freeBlock: number = memos.close();

const read: sample.DbfContents = sample.readDbf(sample.join(dir, 'airports.dbf'));
const readBytes = sample.readDbf(table);
const airport: string = read.records[0].F5_6;
const header: sample.DbfHeader = sample.readDbfHeader(sample.join(dir, 'airports.dbf'));
const firstField: sample.DbfFieldInfo = header.fields[0];
const layout = `${firstField.name} ${firstField.type} ${firstField.length}.${firstField.decimals} @${firstField.offset}`;
const counts: number = read.recordCount + read.deletedCount + readBytes.headerLength + header.recordLength;

// Bundles.
const headerSize: 27 = sample.CHARTS_BIN_HEADER_SIZE;
const entrySize: number = sample.CHARTS_BIN_ENTRY_SIZE;
const flags: number = sample.FLAG_SUPERSEDED | sample.FLAG_REPLACE_VARIANT | sample.FLAG_DELETE;
const entries: sample.ChartsBinEntry[] = [
  { name: 'KLAX.PDF', data: sample.fixedField('123456789', 9), key: 1001, flags: 0, variant: 0 },
  { name: 'kbos.pdf', data: 'boston', key: 1002, flags: sample.FLAG_REPLACE_VARIANT, variant: 2 },
  { name: 'EGLL.TIF', data: new Uint8Array(300), key: 0xfffffffe },
  { name: 'GONE.PDF', flags: sample.FLAG_DELETE, size: 1000, offset: 27 },
];
const bundle: sample.NodeBuffer = sample.chartsBin({ entries, version: 3, julianDate: '2460100.5' });
const unsorted = sample.chartsBin({
  entries, size: 27, sort: false, crc: 0, fileCount: 9, tableOffset: 4096,
});
const empty: sample.NodeBuffer = sample.chartsBin();
const writtenBundle: sample.NodeBuffer = sample.writeChartsBin(sample.join(dir, 'charts.bin'), { entries });
sample.writeChartsBin(sample.join(dir, 'vfrcharts.bin'));
const crc: number = sample.bundleCrc(bundle);
const same: boolean = crc === bundle.readUInt32LE(0) && crc === sample.tarnCrc(bundle.subarray(4));
const continued: number = sample.tarnCrc(bundle.subarray(100), sample.tarnCrc(bundle.subarray(4, 100)));
const zip: number = sample.crc32(new Uint8Array([1, 2, 3]));
const register: number = sample.crc32Register(unsorted, 0xffffffff);
const order: number = sample.compareEntries({ name: 'A.PDF' }, { name: 'a.pdf', variant: 1, flags: 0x10 });
const sorted = [...entries].sort(sample.compareEntries);

const parsed: sample.ChartsBinContents = sample.readChartsBin(bundle);
const fromFile = sample.readChartsBin(sample.join(dir, 'charts.bin'));
const firstBlob: sample.NodeBuffer = parsed.entries[0].data;
const parsedDate: string = fromFile.julianDate;
const table2: sample.ChartsBinTable = sample.readChartsBinTable(sample.join(dir, 'charts.bin'));
const tableEntry: sample.ChartsBinTableEntry = table2.entries[0];
const tableWords = `${tableEntry.name} ${tableEntry.offset}+${tableEntry.size} ${tableEntry.key} ${tableEntry.flags}/${tableEntry.variant}`;
const fileBytes: number = table2.bytes + table2.crc + table2.size + table2.version + table2.fileCount + table2.tableOffset;
const fileCrc: number = sample.fileTarnCrc(sample.join(dir, 'charts.bin'), 4);
const tableCrc: number = sample.fileTarnCrc(sample.join(dir, 'airports.dbf'));

// A bundle streamed to disk, blobs made when their turn comes.
interface ChartFile extends sample.ChartsBinStreamEntryFields {
  revision: number;
  data: (entry: ChartFile) => sample.NodeBuffer;
}
const scratch = sample.fixedField('', 4096);
const chartBytes = (entry: ChartFile): sample.NodeBuffer => scratch.subarray(0, entry.size);
const chartFiles: ChartFile[] = [
  { name: 'KSEA10-9.PDF', size: 2048, key: 7, revision: 3, data: chartBytes },
  { name: 'KSEA10-9.PDF', size: 1024, variant: 1, flags: sample.FLAG_REPLACE_VARIANT, revision: 4, data: chartBytes },
];
const streamed: sample.ChartsBinStreamResult = sample.writeChartsBinStream(sample.join(dir, '2502_charts.bin'), {
  entries: chartFiles, size: 27, version: 1, julianDate: '2460726.5',
});
const inline = sample.writeChartsBinStream(sample.join(dir, '2503_charts.bin'), {
  entries: [
    { name: 'A.PDF', size: 4, data: sample.fixedField('%PDF', 4) },
    { name: 'B.PDF', size: 100, data: (entry) => scratch.subarray(0, entry.size) },
  ],
});
const revised = sample.writeChartsBinStream(sample.join(dir, '2504_charts.bin'), {
  entries: [{ name: 'C.PDF', size: 8, revision: 2, data: (entry: { revision: number }) => scratch.subarray(0, 4 * entry.revision) }],
});
const emptyStream: sample.ChartsBinStreamResult = sample.writeChartsBinStream(sample.join(dir, 'empty.bin'));
const streamWords = `${streamed.bytes} ${streamed.crc} ${streamed.fileCount} ${streamed.tableOffset} ${inline.bytes} ${revised.bytes}`;

// Whole directories.
const summary: sample.GenerateSummary = sample.generate('/tmp/generated', {
  seed: 7, scale: 1, blobBytes: 1024, updates: 1,
});
const defaults = sample.generate('/tmp/generated-defaults');
const regionKinds: ('IFR' | 'VFR' | 'restricted')[] = summary.regions.map((region) => region.kind);
const ifrBundle: sample.GeneratedBundle = summary.bundles['charts.bin'];
const leftAfterMerge: number = summary.afterMerge['vfrcharts.bin'];
const updates = summary.updateBundles.map((update) =>
  `${update.file} ${update.family} ${update.entries} ${update.replace} ${update.replaceVariant} ${update.delete} ${update.add}`);
const north: number | undefined = summary.box?.north;
const sizes: number = Object.values(summary.files).reduce((a, b) => a + b, 0);
const totals: number = summary.airports.total + summary.airports.ifr + summary.airports.vfr
  + summary.airports.both + summary.airports.restricted + summary.charts.ifr + summary.charts.vfr
  + summary.chartLinks + summary.notams.ifr + summary.notams.vfr + summary.notams.country
  + summary.coverageRecords + summary.julianDate + summary.seed + summary.scale + summary.blobBytes
  + summary.updates + defaults.updates;
const cycleWords = `${summary.directory} ${summary.cycle} ${summary.nextCycle} ${summary.beginDate} ${summary.coverage.join(' ')}`;
const airportOrder: string[] = ['kbos', 'KBFI', 'KSEA'].sort(sample.compareNoCase);
const checksummed: readonly string[] = sample.CHECKSUMMED;
const lastChecksummed: 'regions.dat' = sample.CHECKSUMMED[11];

export {
  required, ifrFiles, vfrFiles, firstRequired, oneRegion, revision, begin, fieldText, blank, recordLength,
  recordBytes, deletedBytes, oneMemo, binaryMemo, memoText, widths, written, block, nextBlock, freeBlock,
  airport, layout, counts, headerSize, entrySize, flags, empty, writtenBundle, same, continued, zip, register,
  order, sorted, firstBlob, parsedDate, tableWords, fileBytes, fileCrc, tableCrc, emptyStream, streamWords,
  regionKinds, ifrBundle, leftAfterMerge, updates, north, sizes, totals, cycleWords, airportOrder,
  checksummed, lastChecksummed,
};
