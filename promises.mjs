// The promise API for import: the same functions as
// require('tarn-termchart/promises') gives, as named exports and as the
// default export.
import termchart from './promises.js';

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
  TarnTermChartError,
} = termchart;

export default termchart;
