'use strict';
// What makes the plant move. A waveform gives the value of a tag at a time; tags of the same rate share one timer.

const { daysOfDate } = require('./values');

const MAX_RATE = 1000; // changes a second

/** A small repeatable generator of numbers from 0 to 1. */
function generator(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(state ^ (state >>> 15), state | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 4294967296;
  };
}

// From 0 to 1 over the part of the period that has passed (0 to 1).
const SHAPES = {
  sine: (part) => (1 - Math.cos(2 * Math.PI * part)) / 2,
  triangle: (part) => 1 - Math.abs(2 * part - 1),
  ramp: (part) => part,
  square: (part, wave) => (part < wave.duty ? 1 : 0),
};

const rangeOf = (tag) => tag.range || (tag.code === 11 ? [0, 1] : [0, 100]);

function randomWalk(tag, random) {
  const [low, high] = rangeOf(tag);
  const next = Number(tag.value) + (random() - 0.5) * (high - low) * 0.1;
  return next > high || next < low ? (low + high) / 2 : next;
}

function counter(turns, tag) {
  const [low, high] = tag.range || [0, 1e9];
  return low + (Math.floor(turns) % (high - low + 1));
}

function follow(tag, seconds, random) {
  const target = Number(tag.driver.byName.get(tag.wave.tag).value);
  const part = tag.wave.lag > 0 ? 1 - Math.exp(-seconds / tag.wave.lag) : 1;
  return Number(tag.value) + (target - Number(tag.value)) * part + (random() - 0.5) * tag.wave.noise;
}

/** Value of a moving tag: `time` seconds after the start, `step` seconds after the last one. */
function waveValue(tag, time, step, random) {
  const { wave } = tag;
  const turns = time / wave.period + wave.phase;
  const part = turns - Math.floor(turns);
  switch (wave.kind) {
    case 'random':
      return randomWalk(tag, random);
    case 'counter':
      return counter(turns, tag);
    case 'steps':
      return wave.steps[Math.min(Math.floor(part * wave.steps.length), wave.steps.length - 1)];
    case 'clock':
      return tag.code === 7 ? daysOfDate(new Date()) : Date.now() / 1000;
    case 'follow':
      return follow(tag, step, random);
    default: {
      const [low, high] = rangeOf(tag);
      return low + (high - low) * SHAPES[wave.kind](part, wave);
    }
  }
}

class Waveforms {
  constructor(plant, { rate, seed }) {
    this.plant = plant;
    this.random = generator(seed);
    this.started = performance.now();
    this.timers = [];
    this.setRate(rate);
  }

  /** `rate`: changes a second of every moving tag that gives none of its own; 0 stops all of them. */
  setRate(rate) {
    this.stop();
    const groups = new Map();
    for (const tag of rate > 0 ? this.plant.tags() : []) {
      if (!tag.wave || tag.wave.rate === 0) continue;
      const own = Math.min(MAX_RATE, tag.wave.rate ?? rate);
      if (!groups.has(own)) groups.set(own, []);
      groups.get(own).push(tag);
    }
    for (const [own, tags] of groups) this.timers.push(setInterval(() => this.move(tags, 1 / own), 1000 / own));
  }

  move(tags, step) {
    const time = (performance.now() - this.started) / 1000;
    for (const tag of tags) {
      if (tag.wave) this.plant.store(tag, waveValue(tag, time, step, this.random));
    }
  }

  stop() {
    this.timers.forEach(clearInterval);
    this.timers = [];
  }
}

module.exports = { Waveforms, MAX_RATE };
