// The package main for import: the same ten functions as require gives,
// as named exports and as the default export.
import termchart from './index.js';

export const {
  combineVFRinfoIFR,
  coverageInfo,
  cycleNumber,
  cycleNumberDisplay,
  dumpChartsBin,
  dumpDbf,
  isValidChartDirectory,
  libraryVersion,
  merge,
  subsetCharts,
} = termchart;

export default termchart;
