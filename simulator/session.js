'use strict';
// One client: its request connection, its notification connection once that has registered, who is logged in, and the
// tags that it follows.

const { Notifier } = require('./notify');

class Session {
  constructor(server, number, ident, connection) {
    Object.assign(this, { server, number, ident, connection });
    this.notification = null;
    this.notifier = null;
    this.user = null;
    this.rights = 0;
    this.lastCommand = '';
    this.advised = new Set();
  }

  /** Takes the client's second connection. */
  attach(connection) {
    this.notification = connection;
    this.notifier = new Notifier(connection, this.server.options, this.server.faults, this.server.log);
  }

  follow(tag) {
    this.advised.add(tag);
    tag.followers.add(this);
  }

  unfollow(tag) {
    this.advised.delete(tag);
    tag.followers.delete(this);
  }

  /** A followed tag has changed. */
  notify(tag, record) {
    this.notifier?.push(record, tag);
  }

  /** An alarm was raised or ended; every client that has logged in hears of it. */
  notifyAlarm(record) {
    if (this.user !== null) this.notifier?.push(record);
  }

  /** One of the two connections has ended. True when the session is over. */
  lost(connection) {
    if (connection === this.notification) {
      this.notifier.stop();
      this.notifier = null;
      this.notification = null;
    } else {
      this.connection = null;
    }
    if (!this.notification) for (const tag of this.advised) this.unfollow(tag);
    return !this.connection && !this.notification;
  }
}

module.exports = { Session };
