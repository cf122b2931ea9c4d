'use strict';
// What the library's results mean, operation by operation, and how the
// binding reports them: require('tarn-termchart/codes'). Shared by the
// binding (which names each failure's code through codeOf), the promise
// API and the command-line tool.
//
// The binding reports every failure as an Error whose message wraps the
// library's answer: 'Received bad result: "<answer>".', or for the text
// queries 'Received bad result retrieving buffer size: "<n>".' and
// 'Received bad result retrieving output value: "<n>".'. The answer is a
// number, except for isValidChartDirectory, whose answer is the library's
// own message. The error also carries
//   code       a stable string per operation and result:
//              ERR_TARN_<OPERATION>_<NAME>, e.g. ERR_TARN_MERGE_NO_COVERAGES
//   result     the library's answer (number, or the validation message)
//   operation  the function's name, e.g. "merge"

const MEANINGS = {
  merge: {
    '-1': 'coverages.txt does not exist in the directory',
    '-2': 'the progress callback asked to stop at 0 %',
    '-3': 'the directory cannot be opened',
    '-4': 'there is no update bundle to apply (the directory is empty, or its files ending in '
      + '_charts.bin and _vfrcharts.bin total 0 bytes)',
    '-5': 'applying a VFR update bundle (*_vfrcharts.bin) failed, for example because it is older '
      + 'than vfrcharts.bin, unreadable, or vfrcharts.bin is a link or cannot be written; the merge '
      + 'was taken back and the updates stay in the directory',
    '-6': 'the progress callback asked to stop after a VFR update bundle',
    '-7': 'applying an IFR update bundle (*_charts.bin) failed, for example because it is older '
      + 'than charts.bin, unreadable, or charts.bin is a link or cannot be written; the merge was '
      + 'taken back and the updates stay in the directory',
    '-8': 'the progress callback asked to stop after an IFR update bundle',
    '-9': 'rebuilding the tables for the coverage failed (coverages.txt, regions.dat or a table '
      + 'could not be read, or a new table could not be written); the merge was taken back',
    '-10': 'a write the merge needs could not be finished (a full disk, a file that cannot be '
      + 'written, a checksum that cannot be stored, a chart table that cannot be read whole), or '
      + 'a merge that was stopped earlier cannot be recovered; nothing is lost: the directory is '
      + 'as it was and the updates stay for another merge',
  },
  // The subset cuts the tables first, then each bundle, and the codes of
  // the two steps overlap: a number alone may stand for either.
  subsetCharts: {
    '-1': 'the source coverags.dbf cannot be opened, or neither charts.bin nor vfrcharts.bin '
      + 'exists in the source (the code does not tell which)',
    '-2': 'the destination coverags.dbf cannot be created, or a source bundle\'s header or file '
      + 'table is unreadable (the code does not tell which)',
    '-3': 'no airport lies in the box, or the cut chart table of a bundle is missing from the '
      + 'destination (for example charts.dbf when the box holds only VFR airports)',
    '-4': 'cutting charts.dbf failed, or a cut chart table names no chart of its bundle '
      + '(the code does not tell which)',
    '-5': 'cutting vfrchrts.dbf failed, or the destination bundle cannot be created '
      + '(the code does not tell which)',
    '-6': 'cutting airports.dbf failed',
    '-7': 'cutting vfrapts.dbf failed',
    '-8': 'cutting chrtlink.dbf failed',
    '-9': 'building notams.dbf failed',
    '-10': 'building vfrntms.dbf failed',
    '-11': 'a file of the destination could not be written whole (a full disk, or a file that '
      + 'cannot be replaced); no file is left cut short, the source is untouched',
    '-12': 'the destination is the source directory itself; nothing was written',
  },
  // The combine runs its steps in order and returns the first failing
  // step's code; the steps' codes overlap.
  combineVFRinfoIFR: {
    '-1': 'relinking the airports could not create airportsNEW.dbf, or the source holds neither '
      + 'charts.bin nor vfrcharts.bin, or the source crcfiles.txt is missing or the new one could '
      + 'not be written (the code does not tell which)',
    '-2': 'a destination file cannot be created (charts.dbf, airports.dbf, notams.dbf, notams.dbt, '
      + 'charts.bin or crcfiles.txt), or the relinked airport table could not be finished',
    '-3': 'no memory for a memo file, or the combined bundle\'s header cannot be written',
    '-4': 'a memo file could not be read or written whole, or no memory for an IFR chart file',
    '-5': 'an IFR chart file cannot be read whole from charts.bin',
    '-6': 'an IFR chart file cannot be written whole to the combined bundle',
    '-7': 'no memory for a VFR chart file',
    '-8': 'a VFR chart file cannot be read whole from vfrcharts.bin',
    '-9': 'a VFR chart file cannot be written whole to the combined bundle',
    '-10': 'the combined bundle\'s file table cannot be written whole',
    '-11': 'a file of the destination could not be written whole (a full disk, or a file that '
      + 'cannot be replaced); no file is left cut short, the source is untouched',
    '-12': 'the destination is the source directory itself; nothing was written',
  },
  dumpDbf: {
    '-1': 'the table cannot be opened (missing, or shorter than its header)',
    '-2': 'the output file cannot be created',
  },
  dumpChartsBin: {
    '-1': 'the bundle cannot be opened',
    '-2': 'the bundle\'s header or file table is unreadable (too short, or the table lies past '
      + 'the end)',
    '-3': 'the output file cannot be created',
    '-4': 'no memory for a chart file\'s data (checksums)',
    '-5': 'a chart file\'s data cannot be reached (seek failed)',
    '-6': 'a chart file\'s data cannot be read whole (it lies past the end of the bundle)',
  },
  cycleNumber: {
    '-1': 'revision.txt is missing or empty',
    '-2': 'revision.txt cannot be opened for reading',
    '-3': 'no memory for the text of revision.txt',
    '-4': 'revision.txt holds no "Cycle=" key',
    '-5': 'revision.txt holds a cycle value, but the library hands a non-empty value over only '
      + 'into a buffer it was offered, and the module\'s size query offers none: the value is '
      + 'there, its text cannot be passed on',
  },
  cycleNumberDisplay: {
    '-1': 'charts.ini is missing or empty',
    '-2': 'charts.ini cannot be opened for reading',
    '-3': 'no memory for the text of charts.ini',
    '-4': 'charts.ini holds no "Database_Begin_Date=" key',
    '-5': 'charts.ini holds a begin date, but the library writes the period label only into a '
      + 'buffer of at least 8 bytes and the module\'s size query offers none: the label cannot '
      + 'be passed on',
  },
  coverageInfo: {
    '-1': 'regions.dat cannot be opened',
    '-2': 'coverages.txt is missing, empty or unreadable',
    '-3': 'coverages.txt holds no service code (only a line break)',
  },
};

// The stable names of the results, for the codes. The name of a count
// that an operation reports where it succeeded (the dumps) or of the length
// of a text (coverageInfo) stands for any positive number.
const NAMES = {
  merge: {
    '-1': 'NO_COVERAGES',
    '-2': 'STOPPED_AT_START',
    '-3': 'DIRECTORY_UNREADABLE',
    '-4': 'NO_UPDATES',
    '-5': 'VFR_UPDATE_FAILED',
    '-6': 'STOPPED_AFTER_VFR_UPDATE',
    '-7': 'IFR_UPDATE_FAILED',
    '-8': 'STOPPED_AFTER_IFR_UPDATE',
    '-9': 'TABLES_FAILED',
    '-10': 'WRITE_FAILED',
  },
  subsetCharts: {
    '-1': 'SOURCE_INCOMPLETE',
    '-2': 'CANNOT_BEGIN',
    '-3': 'NO_AIRPORTS_IN_BOX',
    '-4': 'CHARTS_TABLE_FAILED',
    '-5': 'VFR_CHARTS_TABLE_FAILED',
    '-6': 'AIRPORTS_TABLE_FAILED',
    '-7': 'VFR_AIRPORTS_TABLE_FAILED',
    '-8': 'LINKS_TABLE_FAILED',
    '-9': 'NOTAMS_TABLE_FAILED',
    '-10': 'VFR_NOTAMS_TABLE_FAILED',
    '-11': 'WRITE_FAILED',
    '-12': 'SAME_DIRECTORY',
  },
  combineVFRinfoIFR: {
    '-1': 'CANNOT_BEGIN',
    '-2': 'CREATE_FAILED',
    '-3': 'HEADER_FAILED',
    '-4': 'MEMO_FAILED',
    '-5': 'IFR_CHART_UNREADABLE',
    '-6': 'IFR_CHART_UNWRITABLE',
    '-7': 'NO_MEMORY_FOR_VFR_CHART',
    '-8': 'VFR_CHART_UNREADABLE',
    '-9': 'VFR_CHART_UNWRITABLE',
    '-10': 'FILE_TABLE_UNWRITABLE',
    '-11': 'WRITE_FAILED',
    '-12': 'SAME_DIRECTORY',
  },
  dumpDbf: { '-1': 'TABLE_UNREADABLE', '-2': 'OUTPUT_UNWRITABLE', count: 'RECORD_COUNT' },
  dumpChartsBin: {
    '-1': 'BUNDLE_UNREADABLE',
    '-2': 'BUNDLE_DAMAGED',
    '-3': 'OUTPUT_UNWRITABLE',
    '-4': 'NO_MEMORY',
    '-5': 'SEEK_FAILED',
    '-6': 'DATA_PAST_END',
    count: 'FILE_COUNT',
  },
  cycleNumber: {
    '-1': 'NO_REVISION_FILE',
    '-2': 'REVISION_FILE_UNREADABLE',
    '-3': 'NO_MEMORY',
    '-4': 'NO_CYCLE_KEY',
    '-5': 'TEXT_NOT_PASSED_ON',
  },
  cycleNumberDisplay: {
    '-1': 'NO_CHARTS_INI',
    '-2': 'CHARTS_INI_UNREADABLE',
    '-3': 'NO_MEMORY',
    '-4': 'NO_BEGIN_DATE_KEY',
    '-5': 'TEXT_NOT_PASSED_ON',
  },
  coverageInfo: { '-1': 'NO_REGIONS_FILE', '-2': 'NO_COVERAGES', '-3': 'NO_SERVICE_CODE', count: 'TEXT_LENGTH' },
};

// The library's own messages for a directory that is not valid: the
// pattern, the meaning and the name.
const VALIDATION = [
  [/^Missing file (.+)$/, (name) => `the directory lacks ${name}, one of the 14 files every chart `
    + 'directory holds', 'MISSING_FILE'],
  [/^Missing one or more of airports\.dbf/, () => 'the IFR files are incomplete: airports.dbf, '
    + 'charts.bin, charts.dbf, notams.dbf and notams.dbt go together, all or none', 'IFR_FILES_INCOMPLETE'],
  [/^Missing one or more of vfrapts\.dbf/, () => 'the VFR files are incomplete: vfrapts.dbf, '
    + 'vfrcharts.bin, vfrchrts.dbf, vfrntms.dbf and vfrntms.dbt go together, all or none', 'VFR_FILES_INCOMPLETE'],
  [/^Can't open chart directory/, () => 'the directory cannot be listed (it does not exist, or '
    + 'may not be read)', 'DIRECTORY_UNREADABLE'],
  [/_vfrcharts\.bin file indicates/, () => 'a VFR update bundle is waiting: merge the directory',
    'VFR_UPDATE_WAITING'],
  [/_charts\.bin file indicates/, () => 'an IFR update bundle is waiting: merge the directory',
    'IFR_UPDATE_WAITING'],
  [/"NEW" file indicates/, () => 'a merge stopped halfway and left its temporary tables behind',
    'MERGE_UNFINISHED'],
];

const OPERATIONS = ['combineVFRinfoIFR', 'coverageInfo', 'cycleNumber', 'cycleNumberDisplay',
  'dumpChartsBin', 'dumpDbf', 'isValidChartDirectory', 'libraryVersion', 'merge', 'subsetCharts'];

const MESSAGE = /^Received bad result(?: retrieving (buffer size|output value))?: "([\s\S]*)"\.$/;

// The library's answer inside a binding error message: { answer, stage },
// answer a number where it reads as one, stage 'buffer size', 'output
// value' or undefined. Undefined for any other message (an argument error).
function parseMessage(message) {
  const match = MESSAGE.exec(String(message));
  if (!match) return undefined;
  const answer = /^-?\d+$/.test(match[2]) ? Number(match[2]) : match[2];
  return { answer, stage: match[1] };
}

// The meaning of a library code (or validation message) in words.
function describe(operation, code) {
  if (operation === 'isValidChartDirectory') {
    for (const [pattern, words] of VALIDATION) {
      const match = pattern.exec(String(code));
      if (match) return words(match[1]);
    }
    return 'the library reports the directory as not valid';
  }
  const table = MEANINGS[operation] || {};
  if (Object.prototype.hasOwnProperty.call(table, String(code))) return table[String(code)];
  if (typeof code === 'number' && code > 0) return `the library answered with the count ${code}`;
  return `the library answered with the code ${code}, which it does not document for this operation`;
}

// The operations' names in codes: merge MERGE, subsetCharts SUBSET_CHARTS,
// combineVFRinfoIFR COMBINE_VFR_INFO_IFR and so on.
const OPERATION_WORDS = {
  combineVFRinfoIFR: 'COMBINE_VFR_INFO_IFR',
  coverageInfo: 'COVERAGE_INFO',
  cycleNumber: 'CYCLE_NUMBER',
  cycleNumberDisplay: 'CYCLE_NUMBER_DISPLAY',
  dumpChartsBin: 'DUMP_CHARTS_BIN',
  dumpDbf: 'DUMP_DBF',
  isValidChartDirectory: 'IS_VALID_CHART_DIRECTORY',
  libraryVersion: 'LIBRARY_VERSION',
  merge: 'MERGE',
  subsetCharts: 'SUBSET_CHARTS',
};

// The name of one result: a documented code's, a count's, the validation
// message's, or UNDOCUMENTED_RESULT (NOT_VALID for a validation message of
// no known kind).
function resultName(operation, result) {
  if (operation === 'isValidChartDirectory') {
    const known = VALIDATION.find(([pattern]) => pattern.test(String(result)));
    return known ? known[2] : 'NOT_VALID';
  }
  const names = NAMES[operation] || {};
  if (typeof result === 'number' && Object.prototype.hasOwnProperty.call(names, String(result))) {
    return names[String(result)];
  }
  if (typeof result === 'number' && result > 0 && names.count) return names.count;
  return 'UNDOCUMENTED_RESULT';
}

// The error code of a failure: ERR_TARN_<OPERATION>_<NAME>.
function codeOf(operation, result) {
  const words = OPERATION_WORDS[operation]
    || String(operation).replace(/([a-z0-9])([A-Z])/g, '$1_$2').toUpperCase();
  return `ERR_TARN_${words}_${resultName(operation, result)}`;
}

module.exports = {
  MEANINGS, NAMES, VALIDATION, OPERATIONS, OPERATION_WORDS, parseMessage, describe, codeOf,
};
