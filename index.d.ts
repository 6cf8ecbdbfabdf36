// Types of VqDBAccess. Every number that a method returns is documented with its meaning; there are no other results.

/**
 * Result of {@link DBCore.Connect}.
 *
 * | value | meaning |
 * |---|---|
 * | 0 | connected |
 * | -1 | the server refused user or password |
 * | -2 | transport or file failure: no connection, no answer in time, or the driver information could not be fetched |
 * | -3 | fewer than three arguments, or the server answered something out of place |
 */
export type ConnectResult = 0 | -1 | -2 | -3;

/**
 * Result of {@link Driver.SetTagValue}.
 *
 * | value | meaning |
 * |---|---|
 * | 0 | sent (a write is not answered: the new value comes back as a change or with the next read) |
 * | -1 | the user has no right to write |
 * | -2 | the names could not be resolved, the request could not be sent, or the session is gone |
 * | -3 | fewer than two arguments, unknown tag, value of a type that cannot be written, or no array for several tags |
 */
export type WriteResult = 0 | -1 | -2 | -3;

/**
 * Result of {@link DBCore.SetRtAlarmNotify}.
 *
 * | value | meaning |
 * |---|---|
 * | 0 | subscribed |
 * | -1 | this instance has a subscription already |
 * | -2 | transport failure; a later call may try again |
 * | -3 | fewer than two arguments |
 */
export type AlarmResult = 0 | -1 | -2 | -3;

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
   * Installs the callback for changes of this driver's connected tags. The first callback stays for the session;
   * later calls are ignored. While it is installed the process stays alive.
   */
  SetTagNotify(callback: TagCallback): void;

  /**
   * Asks the server to notify the changes of the listed tags, at most 519 a call. Their values are current from then
   * on, so that reading them asks no server. Blocks until the server has answered.
   */
  ConnectTag(tagList: string): void;

  /**
   * Reads the listed tags, at most 1023 a call; blocks until the server has answered.
   * @returns one tag: its value; several: an array of values; undefined after a failure, and for an unknown tag.
   * Names that are asked for the first time come behind those that were known before: list the names of a first read
   * either all for the first time, or one at a time.
   */
  GetTagValue(tagList: string): TagValue | TagValue[];

  /**
   * Writes a value to one tag, or the elements of an array to several, in the order that GetTagValue gives them.
   * At most 2048 bytes a call.
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
   * Opens the session; blocks until it stands or has failed. An open session is ended first.
   * @param address `host`, `host:port`, `p2p:device` or `p2p(relay):device`; at most 127 bytes
   * @param user at most 35 bytes
   * @param password at most 35 bytes
   */
  Connect(address: string, user: string, password: string): ConnectResult;

  /** Does nothing; kept for programs that call it. */
  KeepALive(): undefined;

  /** A new object for the driver of that name (exact case); undefined when the project has none, or without session. */
  GetDriver(name: string): Driver | undefined;

  /**
   * Subscribes to the alarms of this and all later sessions of this instance. While subscribed the process stays alive.
   * @param replayCurrent also hand the alarms that are active now to the callback, before this returns
   */
  SetRtAlarmNotify(callback: AlarmCallback, replayCurrent: boolean): AlarmResult;
}

/** A plain call gives an instance, too. */
export function DBCore(): DBCore;
