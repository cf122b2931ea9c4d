// Wrong calls of the module; every one must be rejected by the compiler.
import termchart = require('../../index');
import promises = require('../../promises');

// @ts-expect-error the callback is required
termchart.isValidChartDirectory('/data/charts');
// @ts-expect-error the directory is a string
termchart.isValidChartDirectory(42, () => {});
// @ts-expect-error a numeric string is not a number
termchart.dumpChartsBin('/a/charts.bin', '/tmp/c.txt', '1', 0, () => {});
// @ts-expect-error dumpChartsBin takes both options
termchart.dumpChartsBin('/a/charts.bin', '/tmp/c.txt', 1, () => {});
// @ts-expect-error subsetCharts takes four numbers
termchart.subsetCharts('/a', '/b', 1, 2, 3, () => {});
// @ts-expect-error the name says info, not into
termchart.combineVFRintoIFR('/a', '/b', () => {});
// @ts-expect-error a text query hands a string, not a number
termchart.cycleNumber('/a', (_error: Error | undefined, text: number) => text);
// @ts-expect-error libraryVersion returns a string
const version: number = termchart.libraryVersion();
// @ts-expect-error a merge progress report always carries the percentage
const progress: termchart.MergeProgress = (_e, _d, percent: string) => percent;
// @ts-expect-error the end of a merge carries true
termchart.merge('/a', (error: undefined, done: false) => done);
// @ts-expect-error a failure's code is a string
termchart.merge('/a', (error) => error && error.code.toFixed(0));

// @ts-expect-error the promise form takes no callback
promises.dumpDbf('/a/airports.dbf', '/tmp/a.txt', () => {});
// @ts-expect-error merge's progress goes to onProgress
promises.merge('/a', (percent: number) => percent);
async function wrong(): Promise<void> {
  // @ts-expect-error dumpDbf resolves with a count
  const text: string = await promises.dumpDbf('/a/airports.dbf', '/tmp/a.txt');
  // @ts-expect-error coverageInfo resolves with the names
  const length: number = await promises.coverageInfo('/a');
  return [text, length] as unknown as void;
}

export { version, progress, wrong };
