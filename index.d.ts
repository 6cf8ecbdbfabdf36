// Types of VqDBAccess. Every number that a method returns has a name and a meaning here; there are no other results.

/** Results of {@link DBCore.Connect}. */
export const ConnectResult: {
  /** 0: the session stands. */
  readonly Connected: 0;
  /** -1: the server refused user or password. */
  readonly Refused: -1;
  /** -2: no connection, no answer in time, or the driver information could not be fetched. */
  readonly Failed: -2;
  /** -3: fewer than three arguments, or the server answered something out of place. */
  readonly OutOfPlace: -3;
};
export type ConnectResult = (typeof ConnectResult)[keyof typeof ConnectResult];

/** Results of {@link Driver.SetTagValue}. */
export const WriteResult: {
  /** 0: sent. A write is not answered: the new value comes back as a change or with the next read. */
  readonly Sent: 0;
  /** -1: the user has no right to write. */
  readonly NoRight: -1;
  /** -2: the names could not be resolved, the request could not be sent, or the session is gone. */
  readonly NotSent: -2;
  /**
   * -3, nothing sent: fewer than two arguments, unknown tag, a value of a type that cannot be written, no array (or too
   * short a one) for several tags, or more than 2048 bytes.
   */
  readonly BadArgument: -3;
};
export type WriteResult = (typeof WriteResult)[keyof typeof WriteResult];

/** Results of {@link DBCore.SetRtAlarmNotify}. */
export const AlarmResult: {
  /** 0: subscribed. */
  readonly Subscribed: 0;
  /** -1: this instance has a subscription already, which stays. */
  readonly AlreadySubscribed: -1;
  /** -2: no session, no answer in time, or the answer was cut short; a later call may try again. */
  readonly Failed: -2;
  /** -3: fewer than two arguments. */
  readonly MissingArguments: -3;
};
export type AlarmResult = (typeof AlarmResult)[keyof typeof AlarmResult];

/**
 * Value of a tag as JavaScript sees it. Dates, 64-bit integers and types without a value are `undefined`; signed bytes
 * are read as unsigned (0 to 255).
 */
export type TagValue = number | string | boolean | undefined;

/** A value that can be written. A string sends at most 127 bytes of its UTF-8 form. */
export type WritableValue = number | string | boolean;

/**
 * Called for each change of a connected tag.
 * @param driverName name of the driver
 * @param tagName name of the tag
 * @param value the new value
 */
export type TagCallback = (driverName: string, tagName: string, value: TagValue) => void;

/**
 * Called for each alarm that arises or ends.
 * @param beginTime when the alarm arose
 * @param endTime when it ended; the begin time while it is active
 * @param tagName the alarm's tag; "???" when the project does not name it
 * @param ended 1 when the alarm has ended, else 0
 * @param text first text of the alarm, or "???"
 * @param text2 second text of the alarm, or "???"
 * @param attr1 small integer, passed on from the server
 * @param value1 number, passed on from the server
 * @param value2 number, passed on from the server
 * @param attr2 small integer, passed on from the server
 */
export type AlarmCallback = (
  beginTime: Date,
  endTime: Date,
  tagName: string,
  ended: 0 | 1,
  text: string,
  text2: string,
  attr1: number,
  value1: number,
  value2: number,
  attr2: number,
) => void;

/**
 * A driver: a group of tags of the project. Tag lists are names separated by commas, at most 2047 bytes of UTF-8 text;
 * blanks around a name do not count. The methods work without their `this`. When the session is gone they give
 * undefined, and SetTagValue gives -2: get a new object with {@link DBCore.GetDriver} after the next connect.
 */
export interface Driver {
  /**
   * Installs the callback for changes of this driver's connected tags; called on the JavaScript thread. The first
   * callback stays for the session; later calls are ignored. While it is installed the process stays alive.
   */
  SetTagNotify(callback: TagCallback): void;

  /**
   * Asks the server to notify the changes of the listed tags, at most 519 a call that are not connected yet. Their
   * values are current from then on, so that reading them asks no server. Blocks until the server has answered; each
   * wait for bytes ends after 8 seconds (13 through a relay). A failure shows in nothing.
   */
  ConnectTag(tagList: string): void;

  /**
   * Reads the listed tags, at most 1023 a call that are not connected; blocks until the server has answered, each wait
   * for bytes 8 seconds at most (13 through a relay).
   * @returns one tag: its value; several: an array of values; undefined after a failure, and for an unknown tag.
   * Names that are asked for the first time come behind those that were known before: a list comes in its own order when
   * all of its names are asked for the first time, or none.
   */
  GetTagValue(tagList: string): TagValue | TagValue[];

  /**
   * Writes a value to one tag, or the elements of an array to several, in the order that GetTagValue gives them.
   * At most 2048 bytes a call. A write is not answered; blocks only while names are asked for the first time.
   */
  SetTagValue(tagList: string, value: WritableValue | readonly WritableValue[]): WriteResult;
}

/**
 * One session with one database server. Keep the instance as long as the session is wanted: when it is collected the
 * session ends.
 */
export class DBCore {
  constructor();

  /**
   * Opens the session; blocks until it stands or has failed: each wait for bytes 8 seconds at most (13 through a relay),
   * and each of two TCP connects for as long as the system tries. An open session is ended first.
   * @param address `host`, `host:port`, `p2p:device` or `p2p(relay):device`; at most 127 bytes
   * @param user at most 35 bytes, sent in clear
   * @param password at most 35 bytes, sent in clear
   */
  Connect(address: string, user: string, password: string): ConnectResult;

  /** Does nothing; a call at a program's end keeps the instance, and so the session, until then. */
  KeepALive(): undefined;

  /**
   * A new object for the driver of that name; undefined when the project has none, or without session. Asks no server.
   * @param name at most 127 bytes, exact case
   */
  GetDriver(name: string): Driver | undefined;

  /**
   * Subscribes to the alarms of this and all later sessions of this instance. While subscribed the process stays alive.
   * Blocks until the server has answered, each wait for bytes 8 seconds at most (13 through a relay).
   * @param callback called on the JavaScript thread for each alarm that arises or ends
   * @param replayCurrent also hand the alarms that are active now to the callback, before this returns
   */
  SetRtAlarmNotify(callback: AlarmCallback, replayCurrent: boolean): AlarmResult;
}

/** A plain call gives an instance, too. */
export function DBCore(): DBCore;
