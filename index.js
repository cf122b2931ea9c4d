'use strict';
// The package main: the addon's ten functions, unchanged (their failures
// carry a code; see lib/codes.js). What goes beyond them (promises, the
// codes table, the command-line tool) lives beside it.
const { functions } = require('./lib/addon');

module.exports = {
  combineVFRinfoIFR: functions.combineVFRinfoIFR,
  coverageInfo: functions.coverageInfo,
  cycleNumber: functions.cycleNumber,
  cycleNumberDisplay: functions.cycleNumberDisplay,
  dumpChartsBin: functions.dumpChartsBin,
  dumpDbf: functions.dumpDbf,
  isValidChartDirectory: functions.isValidChartDirectory,
  libraryVersion: functions.libraryVersion,
  merge: functions.merge,
  subsetCharts: functions.subsetCharts,
};
