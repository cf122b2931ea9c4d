'use strict';
// A progress bar for the merge on a terminal: redrawn in place on a TTY,
// one line per report elsewhere (a log, a pipe), so that either reads well.

function bar(percent, width) {
  const filled = Math.max(0, Math.min(width, Math.round((percent / 100) * width)));
  return `[${'#'.repeat(filled)}${'.'.repeat(width - filled)}] ${String(percent).padStart(3)}%`;
}

function progressBar(stream, { label = 'merge', width = 40 } = {}) {
  const tty = Boolean(stream.isTTY);
  let drawn = false;
  return {
    update(percent) {
      const line = `${label} ${bar(percent, width)}`;
      if (tty) stream.write(`\r${line}`);
      else stream.write(`${line}\n`);
      drawn = true;
    },
    // Ends the bar's line on a terminal, so that what follows starts afresh.
    end() {
      if (tty && drawn) stream.write('\n');
      drawn = false;
    },
  };
}

module.exports = { progressBar, bar };
