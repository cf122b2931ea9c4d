'use strict';
// Field layouts of the tables of a chart directory, as the sample generator
// writes them. The IFR and VFR chart tables share one layout, and every VFR
// airport field that has an IFR counterpart is exactly as wide as it, so
// that VFR records can be folded into the IFR tables field by field.
const field = (name, type, length) => ({ name, type, length });

// Airport fields both families carry (the VFR table names two of them
// differently: ARPT_NAM_N and CITY_NAM_N).
const AIRPORT_DETAILS = [
  field('ST_PR', 'C', 2), field('J5_3', 'C', 2), field('F5_107', 'C', 3), field('F5_54', 'N', 6),
  field('F5_36', 'C', 9), field('F5_37', 'C', 10), field('F5_39', 'N', 5), field('F5_55', 'C', 4),
  field('J5_5', 'C', 6), field('J5_6', 'C', 1), field('J5_7', 'C', 4), field('J5_8', 'C', 12),
  field('J5_10', 'C', 1), field('J5_12', 'C', 7), field('J5_39', 'C', 3), field('J5_14', 'C', 7),
  field('J5_15', 'C', 7), field('F5_14', 'C', 4), field('F5_179', 'C', 8), field('F5_197', 'C', 9),
];

const IFR_AIRPORT = [
  field('F5_6', 'C', 4), field('ARPT_NAME', 'C', 40), field('CITY', 'C', 30), ...AIRPORT_DETAILS,
  field('PRECISION', 'C', 1), field('CHRT_IDX', 'C', 8), field('CLNK_IDX', 'C', 8),
];

const VFR_AIRPORT = [
  field('F5_6', 'C', 4), field('ARPT_NAM_N', 'C', 40), field('CITY_NAM_N', 'C', 30), ...AIRPORT_DETAILS,
  field('UNICOM', 'C', 7), field('CHRT_IDX', 'C', 8),
];

const CHART = [
  field('F5_6', 'C', 4), field('FILENAM_BA', 'C', 25), field('INDEX_NO', 'C', 8),
  field('CHART_NAME', 'C', 50), field('ACTION', 'C', 1), field('DATE_EFF', 'D', 8),
  field('REV_NO', 'N', 3), field('GEOREF', 'C', 1),
];

const CHART_LINK = [
  field('F5_6', 'C', 4), field('FILENAM_BA', 'C', 25), field('INDEX_NO', 'C', 8), field('LINK_APT', 'C', 4),
];

const NOTAM = [
  field('F5_6', 'C', 4), field('J5_3', 'C', 2), field('TEXT', 'M', 10), field('CNT_TYPE', 'C', 1),
  field('TEMPO', 'C', 1), field('END_DATE', 'D', 8), field('END_FIXED', 'C', 1), field('UFN', 'C', 1),
  field('WIE', 'C', 1), field('EFF_DATE', 'D', 8), field('EFF_FIXED', 'C', 1), field('INDEX_NO', 'C', 8),
  field('F5_14', 'C', 4),
];

const COVERAGE = [field('KEY', 'C', 10), field('F5_6', 'C', 4), field('SVC_CODE', 'C', 6)];
const COUNTRY = [field('J5_3', 'C', 2), field('NAME', 'C', 30), field('REGION', 'C', 30)];
const STATE = [field('J5_3', 'C', 2), field('ST_PR', 'C', 2), field('NAME', 'C', 40)];
const SUBSCRIPTION = [field('KEY', 'C', 10), field('SVC_CODE', 'C', 6), field('NAME', 'C', 50),
  field('EXPIRES', 'D', 8)];
const CHART_TYPE = [field('INDEX_NO', 'C', 8), field('TYPE_NAME', 'C', 40), field('FAMILY', 'C', 3)];

const CHART_TYPES = [
  ['10-2', 'Arrival (STAR)', 'IFR'], ['10-3', 'Departure (SID)', 'IFR'],
  ['10-9', 'Airport diagram', 'IFR'], ['11', 'Precision and RNAV approach', 'IFR'],
  ['12', 'VOR approach', 'IFR'], ['13', 'NDB approach', 'IFR'], ['16', 'Visual approach', 'IFR'],
  ['APT', 'Airport information', 'IFR'], ['V', 'VFR chart', 'VFR'],
].map(([INDEX_NO, TYPE_NAME, FAMILY]) => ({ INDEX_NO, TYPE_NAME, FAMILY }));

module.exports = {
  IFR_AIRPORT, VFR_AIRPORT, CHART, CHART_LINK, NOTAM, COVERAGE, COUNTRY, STATE, SUBSCRIPTION,
  CHART_TYPE, CHART_TYPES,
};
