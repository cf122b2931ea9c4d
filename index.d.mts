// The package main for import: the ten functions as named exports and as
// the default export (see index.d.ts).
import * as termchart from './index.js';

export * from './index.js';
export default termchart;
