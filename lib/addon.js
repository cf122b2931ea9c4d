'use strict';
// The addon as the package uses it: loaded once, with every failure's
// error given its code. `functions` are the module's ten functions;
// `internals` what the package builds on them (the whole texts of the
// cycle, the period label and the coverage).
const binding = require('./binding');
const { codeOf } = require('./codes');

const { internals, ...functions } = binding;
internals.setCodeNamer(codeOf);

module.exports = { functions, internals };
