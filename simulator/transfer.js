'use strict';
// Sending one file. With "Hello" announced the client acknowledges what it has received, and the server keeps no more
// than a window of bytes unacknowledged. The client's window begins at 131072 bytes, header included, and shrinks by
// 10240 with every acknowledgement down to 8192; keeping the same windows here means that neither side waits for the
// other in vain.
//
//   acknowledgement   '4' "Hello", count in hexadecimal, NUL

const { parseRequest } = require('./requests');
const { ProtocolError } = require('./errors');
const { answer } = require('./files');
const { deliver } = require('./faults');

const FIRST_WINDOW = 131072;
const SHRINK = 10240;
const LAST_WINDOW = 8192;
const PIECE = 65536; // bytes of one write

/** Counts what is on its way; `room` is what may be sent before the next acknowledgement. */
class Window {
  constructor() {
    this.size = FIRST_WINDOW;
    this.unacknowledged = 0;
  }

  get room() {
    return Math.max(0, this.size - this.unacknowledged);
  }

  sent(count) {
    this.unacknowledged += count;
  }

  acknowledged(count) {
    this.unacknowledged = Math.max(0, this.unacknowledged - count);
    if (this.size > SHRINK) this.size -= SHRINK;
    if (this.size < LAST_WINDOW) this.size = LAST_WINDOW;
  }
}

/** Takes one acknowledgement from the connection; null when none came in time. */
async function takeAck(connection, timeout) {
  const deadline = Date.now() + timeout;
  for (;;) {
    const request = connection.bytes.length > 0 ? parseRequest(connection.bytes, {}) : null;
    if (request) {
      if (request.fields.ack === undefined) throw new ProtocolError('request inside a file transfer');
      return request;
    }
    const left = deadline - Date.now();
    if (left <= 0 || !(await connection.more(left))) return null;
  }
}

async function waitForRoom(session, window) {
  const { connection, server } = session;
  while (window.room === 0) {
    const ack = await takeAck(connection, server.options.ackTimeout);
    if (!ack) throw new ProtocolError('no acknowledgement of a file part');
    server.recordRequest(connection, ack);
    connection.consume(ack.length);
    window.acknowledged(ack.fields.ack);
  }
}

/** Sends bytes in pieces that the window allows. Resolves to whether the connection goes on. */
async function sendFlowing(session, bytes, hello) {
  const window = new Window();
  for (let at = 0; at < bytes.length;) {
    if (hello) await waitForRoom(session, window);
    const count = Math.min(PIECE, hello ? window.room : PIECE, bytes.length - at);
    const sent = await deliver(session.connection, at === 0 ? 'file' : 'file-rest', bytes.subarray(at, at + count), {
      faults: session.server.faults,
      refusal: answer(undefined).header,
    });
    if (!sent) return false;
    window.sent(count);
    at += count;
  }
  return true;
}

/** Sends header and body apart, the body through the faults of its own step; without flow control. */
async function sendWithBodyFault(session, header, body) {
  const { connection, server } = session;
  const { faults } = server;
  if (!(await deliver(connection, 'file', header, { faults, refusal: answer(undefined).header }))) return false;
  return deliver(connection, 'file-body', body, { faults, refusal: Buffer.alloc(0) });
}

/** Answers one file request. Resolves to whether the connection goes on. */
async function sendFile(session, request) {
  const { files, options, faults } = session.server;
  const bodyFault = faults.awaits('file-body');
  const helloAllowed = options.hello && !bodyFault;
  const { header, body, hello } = answer(files.find(request.fields.path), request.fields.headers, helloAllowed);
  if (bodyFault && body.length > 0) return sendWithBodyFault(session, header, body);
  return sendFlowing(session, Buffer.concat([header, body]), hello);
}

module.exports = { sendFile, Window };
