'use strict';
// Records what goes over a client's connections to a server: a proxy between the two, in a process of its own because
// the client's calls hold the JavaScript thread.
const { fork } = require('node:child_process');
const net = require('node:net');
const { once } = require('node:events');

// --- in the process of the proxy ---

// Of each connection, in the order of their making, the steps since the last time they were told.
const connections = [];

// A step is what the client sent until the server answered, and the answer; both hex.
function note(steps, side, bytes) {
  const last = steps.at(-1);
  if (last === undefined || (side === 'request' && last.answer !== '')) steps.push({ request: '', answer: '' });
  steps.at(-1)[side] += bytes.toString('hex');
}

function serve(port) {
  const server = net.createServer({ noDelay: true }, (client) => {
    const steps = [];
    connections.push(steps);
    const upstream = net.connect({ port, host: '127.0.0.1', noDelay: true });
    const pass = (from, to, side) =>
      from
        .on('data', (bytes) => {
          note(steps, side, bytes);
          to.write(bytes);
        })
        .on('close', () => to.destroy())
        .on('error', () => {});
    pass(client, upstream, 'request');
    pass(upstream, client, 'answer');
  });
  server.listen(0, '127.0.0.1', () => process.send(server.address().port));
}

if (process.argv[2] === 'record') {
  serve(Number(process.argv[3]));
  process.on('message', () => process.send(connections.map((steps) => steps.splice(0))));
  process.on('disconnect', () => process.exit());
}

// --- in the process of the benchmark ---

/**
 * A proxy in front of the server at `port`. `take()` gives what went through it since the last time: of each connection,
 * in the order of their making, [{ request, answer }] in hex.
 */
async function startRecorder(port) {
  const child = fork(__filename, ['record', String(port)]);
  const answer = async () => (await once(child, 'message', { signal: AbortSignal.timeout(10000) }))[0];
  return {
    address: `127.0.0.1:${await answer()}`,
    take() {
      child.send('tell');
      return answer();
    },
    close: () => child.disconnect(),
  };
}

module.exports = { startRecorder };
