// Calls of the module as its users write them; this file must compile.
import termchart = require('../../index');
import promises = require('../../promises');

termchart.isValidChartDirectory('/data/charts', (error, result) => {
  const message: string | undefined = error?.message;
  const nothing: undefined = result;
  return [message, nothing];
});
termchart.cycleNumber('/data/charts', (error, text) => {
  if (!error) {
    const value: string | undefined = text;
    return value;
  }
  return error.message;
});
termchart.cycleNumberDisplay('/data/charts', () => {});
termchart.coverageInfo('/data/charts', (_error, text) => text?.length);
termchart.dumpDbf('/data/charts/airports.dbf', '/tmp/airports.txt', (error) => error);
termchart.dumpChartsBin('/data/charts/charts.bin', '/tmp/charts.txt', 1, 0, (error) => error);
termchart.subsetCharts('/data/charts', '/data/seattle', 48.5, -123.5, 46.5, -121, (error) => error);
termchart.combineVFRinfoIFR('/data/charts', '/data/combined', (error) => error);
const version: string = termchart.libraryVersion();

termchart.merge('/data/charts', (error, done, percent) => {
  if (error) return `failed: ${error.message} (${error.code}, result ${error.result} of ${error.operation})`;
  if (done === true) return 'done';
  const progress: number | undefined = percent;
  return progress;
});
// The shapes narrowed by the first two arguments.
termchart.merge('/data/charts', (...[error, done, percent]) => {
  if (error) return error.message;
  if (done) return 'done';
  return percent.toFixed(0);
});
// The three shapes of merge's callback, one by one.
const onProgress: termchart.MergeProgress = (_e, _d, percent) => percent.toFixed(0);
const onDone: termchart.MergeDone = (_e, done) => done;
const onFailure: termchart.MergeFailure = (error) => error.message;

async function withPromises(): Promise<number> {
  await promises.isValidChartDirectory('/data/charts');
  await promises.merge('/data/charts', { onProgress: (percent: number) => percent });
  await promises.merge('/data/charts');
  const records: number = await promises.dumpDbf('/data/charts/airports.dbf', '/tmp/a.txt');
  const files: number = await promises.dumpChartsBin('/data/charts/charts.bin', '/tmp/c.txt', true, false);
  const regions: string = await promises.coverageInfo('/data/charts');
  const cycle: string = await promises.cycleNumber('/data/charts');
  await promises.subsetCharts('/a', '/b', 1, 2, 3, 4);
  await promises.combineVFRinfoIFR('/a', '/b');
  const libraryVersion: string = await promises.libraryVersion();
  try {
    await promises.cycleNumberDisplay('/data/charts');
  } catch (error) {
    if (error instanceof promises.TarnTermChartError) {
      const code: string = error.code;
      const result: number | string = error.result;
      const words: string = `${error.operation}: ${error.meaning} (${code}, ${result})`;
      return words.length;
    }
  }
  return records + files + regions.length + cycle.length + libraryVersion.length;
}

export { version, onProgress, onDone, onFailure, withPromises };
