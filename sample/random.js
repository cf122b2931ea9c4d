'use strict';
// Deterministic pseudo-random numbers for the sample generator: every value
// derives from the seed and a name (an airport code, a chart file name), so a
// directory comes out byte for byte the same whatever the scale or the order
// in which its parts are written.

// FNV-1a over the text's characters, folded with the seed.
function hash32(text, seed = 0) {
  let h = (0x811c9dc5 ^ Math.imul(seed >>> 0, 0x9e3779b1)) >>> 0;
  for (let i = 0; i < text.length; i++) {
    h ^= text.charCodeAt(i);
    h = Math.imul(h, 0x01000193) >>> 0;
  }
  h ^= h >>> 16;
  h = Math.imul(h, 0x85ebca6b) >>> 0;
  h ^= h >>> 13;
  return h >>> 0;
}

// A generator of numbers in [0, 1) (mulberry32), with helpers.
function random(seed) {
  let state = seed >>> 0;
  const next = () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let t = state;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
  next.int = (n) => Math.floor(next() * n);
  next.pick = (list) => list[Math.floor(next() * list.length)];
  next.between = (low, high) => low + next() * (high - low);
  return next;
}

// Pseudo-random bytes (xorshift32 a word at a time), the filling of a chart
// file: fills target from start to end. The same seed gives the same bytes.
let words = new Uint32Array(1024);
function fillRandom(seed, target, start = 0, end = target.length) {
  const length = Math.max(0, end - start);
  const count = Math.ceil(length / 4);
  if (words.length < count) words = new Uint32Array(Math.max(count, words.length * 2));
  let x = (seed >>> 0) || 0x9e3779b9;
  for (let i = 0; i < count; i++) {
    x ^= x << 13;
    x ^= x >>> 17;
    x ^= x << 5;
    words[i] = x;
  }
  target.set(new Uint8Array(words.buffer, 0, length), start);
  return target;
}

function randomBytes(seed, length) {
  return fillRandom(seed, Buffer.alloc(length));
}

module.exports = { hash32, random, fillRandom, randomBytes };
