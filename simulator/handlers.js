'use strict';
// What each request does and how its reply is built. A handler gets the session and the parsed request; it resolves to
// whether the connection goes on.
//
//   '3'  ->  '3', four texts NUL                      'b'  ->  chunks of 'b', u16 length, values with type word
//   '9'  ->  '9', u32 0, u32 rights; or '0'           'H'  ->  chunks of 'H', more-flag, u16 length, values
//   'L'  ->  'L', per name u16 id, u16 0              'd'  ->  'd'
//   'n'  ->  'n', u16 count, 32-byte records          'g'  ->  nothing

const { u8, u16, u32, zeroTerminated } = require('./wire');
const { toGb2312 } = require('./text');
const { deliver, strike } = require('./faults');
const { sendFile } = require('./transfer');
const { WRITE_RIGHT } = require('./project');

const letter = (character) => Buffer.from(character, 'latin1');
const EMPTY_VALUE = u16(0); // stands for a tag that does not exist

const send = (session, step, reply) => deliver(session.connection, step, reply, { faults: session.server.faults });

function projectPath(session) {
  const texts = session.server.project.path.map((text) => zeroTerminated(toGb2312(text)));
  return send(session, 'path', Buffer.concat([letter('3'), ...texts]));
}

/** The user that name and password belong to; anybody, with the right to write, in a project without users. */
function findUser(users, { user, password }) {
  if (users === null) return { name: user, rights: WRITE_RIGHT };
  return users.find((one) => one.name === user && one.password === password);
}

function login(session, { fields }) {
  const user = findUser(session.server.project.users, fields);
  session.user = user ? user.name : null;
  session.rights = user ? user.rights : 0;
  session.server.recorder.add('login', {
    session: session.number,
    user: fields.user,
    ok: Boolean(user),
    rights: session.rights,
  });
  const reply = user ? Buffer.concat([letter('9'), u32(0), u32(user.rights)]) : letter('0');
  return send(session, 'login', reply);
}

function file(session, request) {
  if (request.fields.ack !== undefined) return true; // the acknowledgement of a part that was the last
  return sendFile(session, request);
}

function tagIds(session, request) {
  const { plant } = session.server;
  const ids = request.tags.map(({ driver, name }) => Buffer.concat([u16(plant.tagId(driver, name)), u16(0)]));
  return send(session, 'tagids', Buffer.concat([request.fields.continued ? Buffer.alloc(0) : letter('L'), ...ids]));
}

/** Values put together into chunks of at most `limit` bytes; a longer value has a chunk of its own. */
function chunksOf(list, limit) {
  const chunks = [];
  let chunk = [];
  let size = 0;
  for (const value of list) {
    if (chunk.length > 0 && size + value.length > limit) {
      chunks.push(Buffer.concat(chunk));
      chunk = [];
      size = 0;
    }
    chunk.push(value);
    size += value.length;
  }
  chunks.push(Buffer.concat(chunk));
  return chunks;
}

function valueChunks(session, tags) {
  return chunksOf(
    tags.map((tag) => (tag ? tag.typedValue() : EMPTY_VALUE)),
    session.server.options.chunk,
  );
}

const tagsOf = (session, { fields }) => fields.tags.map(({ driver, tag }) => session.server.plant.find(driver, tag));

async function connect(session, request) {
  const tags = tagsOf(session, request);
  const hold = session.notifier?.hold();
  for (const tag of tags) if (tag) session.follow(tag);
  const chunks = valueChunks(session, tags).map((chunk) => [letter('b'), u16(chunk.length), chunk]);
  const { notifier, connection } = session;
  const goesOn = await send(session, 'connect', Buffer.concat(chunks.flat()));
  notifier?.releaseAfterReply(hold, connection.socket);
  return goesOn;
}

function read(session, request) {
  const chunks = valueChunks(session, tagsOf(session, request));
  const parts = chunks.map((chunk, i) => [letter('H'), u8(i + 1 < chunks.length ? 1 : 0), u16(chunk.length), chunk]);
  return send(session, 'read', Buffer.concat(parts.flat()));
}

function writeOne(session, { driver, tag, value }) {
  const { plant, recorder } = session.server;
  const target = plant.find(driver, tag);
  const stored = Boolean(target) && target.access === 'rw' && (session.rights & WRITE_RIGHT) !== 0;
  if (stored) plant.store(target, value, true);
  recorder.add('write', {
    session: session.number,
    driver: target?.driver.name ?? driver,
    tag: target?.name ?? tag,
    value,
    stored,
  });
}

async function write(session, { fields }) {
  const verdict = await strike(session.connection, session.server.faults, 'write');
  if (verdict === 'go') for (const entry of fields.writes) writeOne(session, entry);
  return verdict !== 'end';
}

/** The id holds the driver's id in its high and the tag's in its low half. */
function unadvise(session, { fields }) {
  const tag = session.server.plant.find(fields.id >>> 16, fields.id & 0xffff);
  if (tag) session.unfollow(tag);
  return send(session, 'unadvise', letter('d'));
}

function alarms(session) {
  const records = session.server.alarms.records();
  return send(session, 'alarms', Buffer.concat([letter('n'), u16(records.length), ...records]));
}

const HANDLERS = {
  3: { run: projectPath },
  9: { run: login },
  4: { run: file, login: true },
  L: { run: tagIds, login: true },
  b: { run: connect, login: true },
  H: { run: read, login: true },
  g: { run: write, login: true },
  d: { run: unadvise, login: true },
  n: { run: alarms, login: true },
};

module.exports = { HANDLERS, chunksOf };
