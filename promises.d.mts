// The promise API for import: named exports and the default export (see
// promises.d.ts).
import * as termchart from './promises.js';

export * from './promises.js';
export default termchart;
