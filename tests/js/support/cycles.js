'use strict';
// Sessions that begin and end, ended by client or server at a state that is drawn.

const { DBCore } = require('./addon.js');
const { collectAll } = require('./collect.js');

// Where and how the server fails a client that connects.
const STEPS = ['accept', 'handshake1', 'handshake2', 'login', 'file', 'file-body'];
const ACTIONS = ['close', 'reset', 'cut', 'letter'];

// What the server does to sessions that stand.
const SERVER_ENDS = ['closeNotification', 'closeRequest', 'closeAll'];

/** Numbers from 0 to below `limit`, the same for the same seed. */
function drawing(seed) {
  let state = seed >>> 0 || 1;
  return (limit) => {
    state ^= state << 13;
    state >>>= 0;
    state ^= state >>> 17;
    state ^= state << 5;
    state >>>= 0;
    return state % limit;
  };
}

/**
 * `some(count)` runs so many sessions and resolves when no instance is left. `results` counts the results of Connect.
 */
function cycles(sim, seed) {
  const draw = drawing(seed);
  const pick = (list) => list[draw(list.length)];
  const results = {};

  function connect(core) {
    const result = core.Connect(sim.address, 'operator', 'secret');
    results[result] = (results[result] ?? 0) + 1;
    return result === 0;
  }

  // One instance in use; it is held by nothing when this returns.
  function use() {
    const core = new DBCore();
    if (connect(core)) {
      const driver = core.GetDriver(pick(['D0', 'D1']));
      if (draw(2)) driver?.SetTagNotify(() => {});
      if (draw(2)) driver?.ConnectTag('A,B');
      if (draw(2)) driver?.GetTagValue('A,B,unknown');
      if (draw(2)) driver?.SetTagValue('B', draw(1000));
      if (draw(2)) core.SetRtAlarmNotify(() => {}, true);
      if (draw(3) === 0) connect(core);
    }
    return new WeakRef(core);
  }

  async function group(count) {
    if (draw(3) === 0) await sim.setFault({ step: pick(STEPS), action: pick(ACTIONS), skip: draw(count), count: 1 });
    let ending;
    const instances = [];
    for (let i = 0; i < count; i++) {
      instances.push(use());
      if (draw(count) === 0) ending = sim[pick(SERVER_ENDS)](); // meets the client in what it does next
    }
    if (draw(2)) ending = sim[pick(SERVER_ENDS)]();
    if (draw(2)) await ending;
    await collectAll(instances, 'the instances of a group');
    await ending;
    await sim.clearFaults();
  }

  async function some(count) {
    for (let left = count; left > 0; left -= 5) await group(Math.min(left, 5));
  }

  return { some, results };
}

module.exports = { cycles };
