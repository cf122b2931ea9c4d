#!/usr/bin/env node
'use strict';
// tarn-termchart: the module's operations from the shell.
//
// Exit status: 0 success, 1 the library reported a failure (or the
// directory is not valid), 2 a usage error. --json prints one JSON object
// on standard output instead of words, for scripts.
const fs = require('fs');
const os = require('os');
const path = require('path');
const { parseArgs } = require('util');

const termchart = require('../promises');
const { TarnTermChartError } = termchart;
const { progressBar } = require('../lib/progress');
const { summarizeDirectory, summaryLines, bytesText } = require('../lib/summary');

const COMMON = {
  json: { type: 'boolean', description: 'print one JSON object instead of words' },
  help: { type: 'boolean', short: 'h', description: 'show this help' },
};

class UsageError extends Error {}

// What a command prints and how it ends.
class Outcome {
  constructor(ok, json, lines = [], errorLines = []) {
    Object.assign(this, { ok, json, lines, errorLines });
  }
}

const number = (text, name) => {
  const value = Number(text);
  if (text === undefined || text === '' || !Number.isFinite(value)) throw new UsageError(`${name} must be a number, not "${text}"`);
  return value;
};

// A library failure in words: the code, and what it means.
function failed(command, error, extra = {}) {
  if (!(error instanceof TarnTermChartError)) {
    return new Outcome(false, { command, ok: false, message: error.message, ...extra },
      [], [`tarn-termchart ${command}: ${error.message}`]);
  }
  return new Outcome(false, {
    command, ok: false, operation: error.operation, code: error.code, result: error.result,
    meaning: error.meaning, ...extra,
  }, [], [`tarn-termchart ${command}: ${error.operation} failed with code ${JSON.stringify(error.result)} `
    + `(${error.code})`, `  ${error.meaning}`]);
}

function directoryLines(dir) {
  return summaryLines(summarizeDirectory(dir)).map((line) => `  ${line}`);
}

// Where a dump goes: the file given, or a temporary file whose text is then
// printed (standard output, or the JSON's "text").
async function dump(command, source, options, run) {
  const temporary = !options.output;
  const output = options.output || path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'tarn-dump-')), 'dump.txt');
  try {
    const count = await run(output);
    const what = command === 'dump-dbf' ? 'records' : 'files';
    const json = { command, ok: true, source, count };
    const lines = [];
    const errorLines = [];
    if (temporary) {
      const text = fs.readFileSync(output, 'latin1');
      if (options.json) json.text = text;
      else lines.push(text.replace(/\r?\n$/, ''));
      errorLines.push(`${path.basename(source)}: ${count} ${what}`);
    } else {
      json.output = output;
      lines.push(`${source}: ${count} ${what} dumped to ${output}`);
    }
    return new Outcome(true, json, lines, errorLines);
  } finally {
    if (temporary) fs.rmSync(path.dirname(output), { recursive: true, force: true });
  }
}

const COMMANDS = {
  validate: {
    args: ['chart-dir'],
    summary: 'tell whether a chart directory is complete, with no merge pending',
    async run([dir]) {
      try {
        await termchart.isValidChartDirectory(dir);
        return new Outcome(true, { command: 'validate', ok: true, directory: dir },
          [`${dir}: a valid chart directory`, ...directoryLines(dir)]);
      } catch (error) {
        if (!(error instanceof TarnTermChartError)) throw error;
        return new Outcome(false, {
          command: 'validate', ok: false, directory: dir, message: error.result, code: error.code,
          meaning: error.meaning,
        }, [], [`${dir}: not a valid chart directory: ${error.result}`, `  ${error.meaning}`]);
      }
    },
  },

  cycle: {
    args: ['chart-dir'],
    summary: 'the data cycle (revision.txt) and its two-week period label (charts.ini)',
    more: 'A missing file or key is a failure, with the library\'s code.',
    async run([dir]) {
      const ask = async (operation, label) => {
        try {
          const text = await termchart[operation](dir);
          return { ok: true, text, line: `${label}: ${text}` };
        } catch (error) {
          if (!(error instanceof TarnTermChartError)) throw error;
          return {
            ok: false, code: error.code, result: error.result, meaning: error.meaning,
            line: `${label}: code ${error.result}: ${error.meaning}`,
          };
        }
      };
      const cycle = await ask('cycleNumber', 'cycle');
      const period = await ask('cycleNumberDisplay', 'period label');
      const ok = cycle.ok && period.ok;
      const strip = ({ line, ...rest }) => rest;
      const lines = [cycle.line, period.line];
      return new Outcome(ok, { command: 'cycle', ok, directory: dir, cycle: strip(cycle), period: strip(period) },
        ok ? lines : [], ok ? [] : lines);
    },
  },

  coverage: {
    args: ['chart-dir'],
    summary: 'the regions the directory covers (coverages.txt looked up in regions.dat)',
    more: 'Prints the names of the covered regions as the library lists them, ", " between them.',
    async run([dir]) {
      try {
        const regions = await termchart.coverageInfo(dir);
        const line = regions === '' ? 'coverage: no service code of coverages.txt names a region of regions.dat'
          : `coverage: ${regions}`;
        return new Outcome(true, { command: 'coverage', ok: true, directory: dir, regions }, [line]);
      } catch (error) {
        return failed('coverage', error, { directory: dir });
      }
    },
  },

  merge: {
    args: ['chart-dir'],
    options: { quiet: { type: 'boolean', short: 'q', description: 'no progress bar' } },
    summary: 'apply the pending update bundles (*_charts.bin, *_vfrcharts.bin) and rebuild the tables',
    async run([dir], options) {
      const progress = [];
      const bar = options.json || options.quiet ? null : progressBar(process.stderr);
      try {
        await termchart.merge(dir, {
          onProgress: (percent) => {
            progress.push(percent);
            if (bar) bar.update(percent);
          },
        });
        if (bar) bar.end();
        return new Outcome(true, { command: 'merge', ok: true, directory: dir, progress },
          [`${dir}: merged`, ...directoryLines(dir)]);
      } catch (error) {
        if (bar) bar.end();
        return failed('merge', error, { directory: dir, progress });
      }
    },
  },

  subset: {
    args: ['source-dir', 'destination-dir', 'north', 'west', 'south', 'east'],
    summary: 'copy a chart directory cut down to a box (signed degrees: north and east positive)',
    more: 'Example: tarn-termchart subset /data/charts /data/seattle 48.5 -123.5 46.5 -121\n'
      + 'The destination is created if it does not exist. The library\'s codes of the table cut and\n'
      + 'of the bundle cut overlap, so a failure may name two possible causes.',
    async run([source, destination, ...box]) {
      const [north, west, south, east] = box.map((v, i) => number(v, ['north', 'west', 'south', 'east'][i]));
      fs.mkdirSync(destination, { recursive: true });
      try {
        await termchart.subsetCharts(source, destination, north, west, south, east);
        return new Outcome(true, {
          command: 'subset', ok: true, source, destination, box: { north, west, south, east },
          summary: summarizeDirectory(destination),
        }, [`${destination}: cut from ${source} to N ${north} W ${west} S ${south} E ${east}`,
          ...directoryLines(destination)]);
      } catch (error) {
        return failed('subset', error, { source, destination });
      }
    },
  },

  combine: {
    args: ['source-dir', 'destination-dir'],
    summary: 'write a copy of a chart directory whose IFR files also hold its VFR data',
    more: 'The destination is created if it does not exist. The codes of the combine\'s steps overlap,\n'
      + 'so a failure may name several possible causes.',
    async run([source, destination]) {
      fs.mkdirSync(destination, { recursive: true });
      try {
        await termchart.combineVFRinfoIFR(source, destination);
        return new Outcome(true, {
          command: 'combine', ok: true, source, destination, summary: summarizeDirectory(destination),
        }, [`${destination}: VFR data of ${source} folded into the IFR files`, ...directoryLines(destination)]);
      } catch (error) {
        return failed('combine', error, { source, destination });
      }
    },
  },

  'dump-dbf': {
    args: ['table'],
    options: { output: { type: 'string', short: 'o', description: 'write the dump to this file' } },
    summary: 'a dBase table as text: its fields, then one tab-separated line per record',
    more: 'Without --output the dump goes to standard output (with --json, into "text").',
    async run([table], options) {
      try {
        return await dump('dump-dbf', table, options, (output) => termchart.dumpDbf(table, output));
      } catch (error) {
        return failed('dump-dbf', error, { source: table });
      }
    },
  },

  'dump-bundle': {
    args: ['bundle'],
    options: {
      output: { type: 'string', short: 'o', description: 'write the dump to this file' },
      offsets: { type: 'boolean', description: 'list each chart file\'s offset in the bundle' },
      checksums: { type: 'boolean', description: 'list a checksum of each chart file\'s data' },
    },
    summary: 'a chart bundle as text: its header, then one line per chart file',
    more: 'Without --output the dump goes to standard output (with --json, into "text").',
    async run([bundle], options) {
      try {
        return await dump('dump-bundle', bundle, options,
          (output) => termchart.dumpChartsBin(bundle, output, options.offsets ? 1 : 0, options.checksums ? 1 : 0));
      } catch (error) {
        return failed('dump-bundle', error, { source: bundle });
      }
    },
  },

  sample: {
    args: ['directory'],
    options: {
      seed: { type: 'string', description: 'seed of the made-up data (default 1)' },
      scale: { type: 'string', description: 'about 40 airports per unit (default 1; 1000 makes 40,000)' },
      'blob-bytes': { type: 'string', description: 'average size of one chart file (default 1024)' },
      updates: { type: 'string', description: 'pending update bundles per family (default 0)' },
    },
    summary: 'write a made-up but complete chart directory',
    async run([dir], options) {
      const { generate } = require('../sample/generate');
      const settings = { seed: 1, scale: 1, blobBytes: 1024, updates: 0 };
      for (const [option, key] of [['seed', 'seed'], ['scale', 'scale'], ['blob-bytes', 'blobBytes'], ['updates', 'updates']]) {
        if (options[option] !== undefined) settings[key] = number(options[option], `--${option}`);
      }
      if (!Number.isInteger(settings.seed) || settings.seed < 0) throw new UsageError('--seed must be a whole number');
      let summary;
      try {
        summary = generate(dir, settings);
      } catch (error) {
        if (error instanceof RangeError) throw new UsageError(error.message);
        throw error;
      }
      const total = Object.values(summary.files).reduce((a, b) => a + b, 0);
      return new Outcome(true, { command: 'sample', ok: true, ...summary }, [
        `${dir}: sample chart directory, cycle ${summary.cycle}, ${Object.keys(summary.files).length} files, ${bytesText(total)}`,
        ...directoryLines(dir),
      ]);
    },
  },
};

function commandUsage(name) {
  const command = COMMANDS[name];
  const options = { ...(command.options || {}), ...COMMON };
  const lines = [`Usage: tarn-termchart ${name} ${command.args.map((a) => `<${a}>`).join(' ')} [options]`, '',
    `${command.summary[0].toUpperCase()}${command.summary.slice(1)}.`];
  if (command.more) lines.push('', command.more);
  lines.push('', 'Options:');
  for (const [option, definition] of Object.entries(options)) {
    const flag = `${definition.short ? `-${definition.short}, ` : '    '}--${option}${definition.type === 'string' ? ' <value>' : ''}`;
    lines.push(`  ${flag.padEnd(26)} ${definition.description}`);
  }
  return lines.join('\n');
}

function usage() {
  return ['Usage: tarn-termchart <command> [arguments] [options]', '',
    'Maintains a directory of terminal-chart data: checks it, reads its cycle and coverage, merges',
    'update bundles into it, cuts it to a box, folds VFR into IFR data and dumps tables and bundles.', '',
    'Commands:',
    ...Object.entries(COMMANDS).map(([name, c]) => `  ${name.padEnd(12)} ${c.summary}`), '',
    'Every command takes --json (one JSON object on standard output) and --help.',
    'Exit status: 0 success, 1 failure reported by the library, 2 usage error.',
    'tarn-termchart --version prints the versions of the tool and of the chart library.'].join('\n');
}

// Options and their values before positionals, so that parseArgs takes a
// negative number ("-122.5") for the positional it is, and an option value
// that starts with a dash for a value.
function arrange(args, options) {
  const flags = [];
  const positionals = [];
  const byShort = Object.fromEntries(Object.entries(options).filter(([, s]) => s.short).map(([n, s]) => [s.short, n]));
  for (let i = 0; i < args.length; i++) {
    const arg = args[i];
    if (arg === '--') {
      positionals.push(...args.slice(i + 1));
      break;
    }
    if (!arg.startsWith('-') || arg === '-' || /^-\.?\d/.test(arg)) {
      positionals.push(arg);
      continue;
    }
    const name = arg.startsWith('--') ? arg.slice(2) : byShort[arg.slice(1)];
    if (options[name] && options[name].type === 'string' && !arg.includes('=') && i + 1 < args.length) {
      flags.push(`--${name}=${args[++i]}`);
    } else {
      flags.push(arg);
    }
  }
  return [...flags, '--', ...positionals];
}

function print(outcome, json) {
  if (json) {
    process.stdout.write(`${JSON.stringify(outcome.json, null, 2)}\n`);
    return;
  }
  if (outcome.lines.length) process.stdout.write(`${outcome.lines.join('\n')}\n`);
  if (outcome.errorLines.length) process.stderr.write(`${outcome.errorLines.join('\n')}\n`);
}

async function main(argv) {
  const [name, ...rest] = argv;
  if (name === undefined || name === '--help' || name === '-h' || name === 'help') {
    const topic = name === 'help' && rest[0];
    if (topic && !COMMANDS[topic]) throw new UsageError(`unknown command "${topic}"`);
    process.stdout.write(`${topic ? commandUsage(topic) : usage()}\n`);
    return name === undefined ? 2 : 0;
  }
  if (name === '--version' || name === '-v') {
    const { version } = require('../package.json');
    process.stdout.write(`tarn-termchart ${version}, chart library ${await termchart.libraryVersion()}\n`);
    return 0;
  }
  const command = COMMANDS[name];
  if (!command) throw new UsageError(`unknown command "${name}"`);
  const options = { ...(command.options || {}), ...COMMON };
  let parsed;
  try {
    parsed = parseArgs({ args: arrange(rest, options), options, allowPositionals: true, strict: true });
  } catch (error) {
    throw new UsageError(`${error.message.split('\n')[0]}`, { cause: name });
  }
  if (parsed.values.help) {
    process.stdout.write(`${commandUsage(name)}\n`);
    return 0;
  }
  if (parsed.positionals.length !== command.args.length) {
    throw new UsageError(`${name} takes ${command.args.map((a) => `<${a}>`).join(' ')}`, { cause: name });
  }
  let outcome;
  try {
    outcome = await command.run(parsed.positionals, parsed.values);
  } catch (error) {
    if (error instanceof UsageError && !error.cause) throw new UsageError(error.message, { cause: name });
    throw error;
  }
  print(outcome, parsed.values.json);
  return outcome.ok ? 0 : 1;
}

main(process.argv.slice(2)).then((status) => {
  process.exitCode = status;
}, (error) => {
  if (!(error instanceof UsageError)) {
    process.stderr.write(`tarn-termchart: ${error.stack || error}\n`);
    process.exitCode = 1;
    return;
  }
  const topic = error.cause ? ` ${error.cause}` : '';
  process.stderr.write(`tarn-termchart${topic}: ${error.message}\n`
    + `See tarn-termchart${topic} --help.\n`);
  process.exitCode = 2;
});
