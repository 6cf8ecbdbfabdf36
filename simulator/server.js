'use strict';
// The database server: takes connections, cuts their bytes into requests, and keeps the sessions. The first byte of a
// connection tells what it is: '7' a request connection, '8' the notification connection of the client whose identifier
// it carries.

const { Listener } = require('./listener');
const { Connection } = require('./connection');
const { Session } = require('./session');
const { ProtocolError } = require('./errors');
const { parseRequest } = require('./requests');
const { firstReply, secondReply } = require('./handshake');
const { HANDLERS } = require('./handlers');
const { deliver, strike } = require('./faults');
const { scramble } = require('./scramble');

const EXTENDED_PORT = 3968; // the port at which clients send the extended registration body
const REGISTRATION_TIME = 30000; // ms for the first packet

class Server {
  /** `parts`: options, project, plant, alarms, files, faults, recorder, log. */
  constructor(parts) {
    Object.assign(this, parts);
    this.listener = new Listener('--', (socket) => this.accept(socket));
    this.connections = new Map();
    this.sessions = new Map(); // by the client's identifier
    this.lastConnection = 0;
    this.lastSession = 0;
    this.alarms.on('record', (record, alarm) => this.announceAlarm(record, alarm));
  }

  listen() {
    return this.listener.open(this.options.host, this.options.port);
  }

  announceAlarm(record, alarm) {
    this.recorder.add('alarm', alarm);
    for (const session of this.sessions.values()) session.notifyAlarm(record);
  }

  recordRequest(connection, request) {
    const { kind, session } = connection;
    this.recorder.add('request', {
      connection: kind,
      conn: connection.id,
      session: session?.number,
      command: request.command,
      fields: request.fields,
      bytes: Buffer.from(connection.bytes.subarray(0, request.length)),
    });
  }

  accept(socket) {
    const connection = new Connection(socket, ++this.lastConnection);
    connection.kind = 'new';
    this.connections.set(connection.id, connection);
    this.recorder.add('open', { conn: connection.id, remote: connection.remote });
    this.serve(connection)
      .catch((error) => this.failed(connection, error))
      .finally(() => this.forget(connection));
  }

  failed(connection, error) {
    if (!(error instanceof ProtocolError)) this.log(error.stack || String(error));
    else this.log(`connection ${connection.id} (${connection.remote}): ${error.message}`);
    this.recorder.add('error', { conn: connection.id, message: error.message });
  }

  forget(connection) {
    connection.close();
    this.connections.delete(connection.id);
    const { session } = connection;
    if (session && session.lost(connection) && this.sessions.get(session.ident) === session) {
      this.sessions.delete(session.ident);
    }
    this.recorder.add('close', { conn: connection.id, kind: connection.kind, session: session?.number });
  }

  /** Everything on one connection, from its first byte to its end. */
  async serve(connection) {
    const verdict = await strike(connection, this.faults, 'accept');
    if (verdict === 'end') return;
    if (verdict === 'skip' && !connection.hung) {
      connection.reset();
      return;
    }
    const first = await this.nextRequest(connection, REGISTRATION_TIME);
    if (!first) return;
    if (first.command === '7') await this.serveRequests(connection, first);
    else await this.serveNotification(connection, first);
  }

  /** The next whole request; recorded and taken off the connection. Null at the end of the connection. */
  async nextRequest(connection, timeout = 0) {
    const deadline = Date.now() + timeout;
    const context = {
      first: connection.kind === 'new',
      extended: this.listener.port === EXTENDED_PORT,
      afterTagIds: connection.session?.lastCommand === 'L',
    };
    for (;;) {
      const request = connection.bytes.length > 0 ? parseRequest(connection.bytes, context) : null;
      if (request) {
        this.taken(connection, request);
        return request;
      }
      const left = timeout > 0 ? Math.max(1, deadline - Date.now()) : 0;
      if (!(await connection.more(left))) return null;
    }
  }

  taken(connection, request) {
    if (connection.kind === 'new') this.classify(connection, request);
    this.recordRequest(connection, request);
    connection.consume(request.length);
  }

  classify(connection, { command, fields }) {
    connection.kind = command === '7' ? 'request' : 'notification';
    if (command === '8') return;
    connection.session = new Session(this, ++this.lastSession, fields.id, connection);
    this.sessions.set(fields.id, connection.session);
  }

  async serveRequests(connection, registration) {
    const { session } = connection;
    const reply = firstReply(this.options.lan);
    this.log(`connection ${connection.id}: registration ${JSON.stringify(registration.fields)}`);
    let goesOn = await deliver(connection, 'handshake1', reply, { faults: this.faults, refusalEnds: true });
    while (goesOn) {
      const request = await this.nextRequest(connection);
      if (!request) return;
      session.notifier?.release();
      goesOn = await this.handle(session, request);
    }
  }

  async handle(session, request) {
    const handler = HANDLERS[request.command];
    if (!handler) throw new ProtocolError('registration on a registered connection');
    if (handler.login && session.user === null) throw new ProtocolError(`'${request.command}' before the login`);
    session.lastCommand = request.command;
    return handler.run(session, request);
  }

  async serveNotification(connection, { fields }) {
    const session = this.sessions.get(fields.id);
    const refused = !session || session.notification || !session.connection;
    if (!refused) {
      session.attach(connection);
      connection.session = session;
    }
    const plain = refused ? Buffer.from('0') : secondReply(this.project, this.files.driverFile, this.options.ack);
    const options = { faults: this.faults, seal: scramble, refusalEnds: true };
    const goesOn = await deliver(connection, 'handshake2', plain, options);
    if (refused || !goesOn) return;
    this.recorder.add('ready', { session: session.number });
    await this.ignoreInput(connection);
  }

  /** Clients send nothing more on the notification connection; what comes all the same is recorded and dropped. */
  async ignoreInput(connection) {
    do {
      const length = connection.bytes.length;
      if (length > 0) this.recordRequest(connection, { command: '', length, fields: {} });
      connection.consume(length);
    } while (await connection.more());
  }

  /** Live connections of a kind, of all clients or of one session. */
  ofKind(kind, session) {
    return [...this.connections.values()].filter(
      (connection) => connection.kind === kind && (session === undefined || connection.session?.number === session),
    );
  }

  close() {
    this.listener.close();
    for (const connection of this.connections.values()) connection.finish();
  }
}

module.exports = { Server, EXTENDED_PORT };
