// Wrong calls of the sample writers; every one must be rejected by the compiler.
import sample = require('../../sample');

const fields: sample.DbfField[] = [{ name: 'F5_6', type: 'C', length: 4 }];
const memo = sample.dbtFile(['RWY 16R CLSD']);

// @ts-expect-error a region needs its description
sample.regionsDat([{ key: 1101, code: 'US1' }]);
// @ts-expect-error julianDay takes year, month and day
sample.julianDay(2025, 1);
// @ts-expect-error a field needs its length
sample.dbfTable({ fields: [{ name: 'F5_6', type: 'C' }] });
// @ts-expect-error dbfTable needs its options
sample.dbfTable();
// @ts-expect-error the end marker is on or off
sample.dbfTable({ fields, endMarker: 'no' });
// @ts-expect-error the date is three numbers
sample.dbfTable({ fields, date: [124, 1] });
// @ts-expect-error a plain Uint8Array in a record would be written as its text, not its bytes
sample.dbfTable({ fields, records: [[new Uint8Array([0x4b])]] });
// @ts-expect-error a deleted record is made by deleted(), not spelt out
sample.dbfRecordBytes(fields, { values: ['KOLD'], deleted: true });
// @ts-expect-error the writer takes the fields
new sample.DbfWriter('/tmp/a.dbf');
// @ts-expect-error the record count is the writer's to keep
new sample.DbfWriter('/tmp/a.dbf', fields).count = 3;
// @ts-expect-error a memo writer's add returns the memo's block, a number
const text: string = new sample.DbtWriter('/tmp/a.dbt').add('RWY 16R CLSD');
// @ts-expect-error readDbf reads a path or a Buffer, not any Uint8Array
sample.readDbf(new Uint8Array(64));
// @ts-expect-error dbtText finds the memo by its block number
sample.dbtText(memo.bytes, '1');
// @ts-expect-error a memo may be missing
const memoText: string = sample.dbtText(memo.bytes, 1);
// @ts-expect-error the bundle's Julian date is text
sample.chartsBin({ julianDate: 2460000.5 });
// @ts-expect-error an entry needs its name
sample.chartsBin({ entries: [{ data: 'aa' }] });
// @ts-expect-error the flags are a number
sample.writeChartsBin('/tmp/charts.bin', { entries: [{ name: 'A.PDF', flags: 'delete' }] });
// @ts-expect-error a streamed entry needs its size
sample.writeChartsBinStream('/tmp/charts.bin', { entries: [{ name: 'A.PDF', data: memo.bytes }] });
// @ts-expect-error a streamed blob must be a Buffer, not any Uint8Array
sample.writeChartsBinStream('/tmp/charts.bin', { entries: [{ name: 'A.PDF', size: 4, data: new Uint8Array(4) }] });
sample.writeChartsBinStream('/tmp/charts.bin', {
  // @ts-expect-error the blob function is called with the entry, which has no revision
  entries: [{ name: 'A.PDF', size: 4, data: (entry) => memo.bytes.subarray(0, entry.revision) }],
});
// @ts-expect-error the constants are what the bundle format fixes
const headerSize: 28 = sample.CHARTS_BIN_HEADER_SIZE;
// @ts-expect-error the scale is a number
sample.generate('/tmp/generated', { scale: 'large' });
// @ts-expect-error generate takes no callback
sample.generate('/tmp/generated', {}, () => {});
// @ts-expect-error a directory's bundles are charts.bin and vfrcharts.bin
const bundle = sample.generate('/tmp/generated').bundles['notams.dbt'];
// @ts-expect-error the box may be missing
const north: number = sample.generate('/tmp/generated').box.north;
// @ts-expect-error a region is IFR, VFR or restricted
const kind: 'military' = sample.generate('/tmp/generated').regions[0].kind;
// @ts-expect-error the file lists are fixed
sample.REQUIRED_FILES.push('extra.txt');
// @ts-expect-error there is no such export
sample.writeDbf('/tmp/a.dbf', fields);

export { text, memoText, headerSize, bundle, north, kind };
