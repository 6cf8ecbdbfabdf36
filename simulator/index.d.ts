/// <reference types="node" />
// Types of the simulator's JavaScript interface; README.md in this folder describes it.

/** Where a relay's device leads: this server, 'HOST:PORT', 'lan' or 'lan:IPV4:PORT'. */
export type DeviceTarget = true | string;

export interface RelayOptions {
  host?: string;
  /** Default 3968, where clients expect a relay; 0 takes any free port. */
  port?: number;
  devices?: Record<string, DeviceTarget>;
}

export type FaultStep =
  | 'accept'
  | 'relay1'
  | 'relay2'
  | 'handshake1'
  | 'handshake2'
  | 'path'
  | 'login'
  | 'file'
  | 'file-body'
  | 'tagids'
  | 'connect'
  | 'read'
  | 'write'
  | 'unadvise'
  | 'alarms'
  | 'notification';

export type FaultAction =
  'refuse' | 'delay' | 'cut' | 'split' | 'trickle' | 'letter' | 'reply' | 'close' | 'reset' | 'drop' | 'hang';

export interface Fault {
  step: FaultStep;
  action: FaultAction;
  /** How often it strikes; without it, always. */
  count?: number;
  /** How many passes are spared first. */
  skip?: number;
  /** 'delay' (default 1000) and 'trickle' (default 0). */
  ms?: number;
  /** 'cut' and 'split' (default 1). */
  bytes?: number;
  /** 'letter' (default 'x'). */
  letter?: string;
  /** 'reply' (default empty). */
  hex?: string | Uint8Array;
}

export interface RuntimeOptions {
  /** Bytes of the acknowledgement record by offset, 0 to 57. */
  ack?: Record<number, number>;
  /** 'IPV4:PORT' with which the first exchange is answered "lan". */
  lan?: string | null;
  /** Changes a second of every moving tag; 0 stops all waveforms. */
  rate?: number;
  /** Most bytes of values in one reply chunk. */
  chunk?: number;
  notifyBlock?: 'auto' | 0 | 256 | 512 | 1024 | 2048;
  hello?: boolean;
  ackTimeout?: number;
}

export interface SimulatorOptions extends RuntimeOptions {
  /** Path of a project file, or the project itself; default is the demo plant. */
  project?: string | object;
  host?: string;
  /** Default 0: any free port. */
  port?: number;
  relay?: RelayOptions | null;
  faults?: Fault[];
  record?: number;
  seed?: number;
  verbose?: boolean;
}

/** A recorded entry; requests have `connection`, `command`, `hex` and `fields`. */
export interface Entry {
  seq: number;
  time: number;
  event: 'request' | 'open' | 'close' | 'ready' | 'login' | 'write' | 'alarm' | 'error';
  connection?: 'request' | 'notification' | 'relay' | 'new';
  conn?: number | string;
  session?: number;
  command?: string;
  hex?: string;
  fields?: any;
  [detail: string]: any;
}

export interface Alarm {
  id: number;
  beginTime: number;
  endTime: number;
  tagIndex: number;
  textIndex1: number;
  textIndex2: number;
  attr1: number;
  attr2: number;
  value1: number;
  value2: number;
}

export interface AlarmRequest {
  /** A line of the tag list or its number. */
  tag?: string | number;
  /** Lines of the text list or their numbers. */
  text?: string | number;
  text2?: string | number;
  attr1?: number;
  attr2?: number;
  value1?: number;
  value2?: number;
  /** Seconds since 1970 (UTC); default now. */
  beginTime?: number;
}

export interface ConnectionInfo {
  id: number;
  kind: 'new' | 'request' | 'notification';
  session?: number;
  remote: string;
  user: string | null;
  rights: number;
  advised: number;
}

export interface Simulator {
  readonly host: string;
  readonly port: number;
  /** 'host:port' */
  readonly address: string;
  readonly relay: { host: string; port: number; devices: string[] } | null;
  /** The project's name. */
  readonly project: string;
  readonly pid: number;
  /** Resolves to the exit code of the child process. */
  readonly exited: Promise<number | null>;
  close(): Promise<void>;
  requests(match?: object): Promise<Entry[]>;
  events(match?: object): Promise<Entry[]>;
  clearRequests(): Promise<void>;
  waitFor(
    event: Entry['event'],
    match?: object,
    limits?: number | { timeout?: number; since?: number; count?: number },
  ): Promise<Entry>;
  get(driver: string | number, tag: string | number): Promise<any>;
  set(driver: string | number, tag: string | number, value: any): Promise<void>;
  notifyRaw(bytes: string | Uint8Array, session?: number): Promise<void>;
  raiseAlarm(alarm?: AlarmRequest): Promise<number>;
  endAlarm(id: number, endTime?: number): Promise<boolean>;
  alarms(): Promise<Alarm[]>;
  setFault(fault: Fault): Promise<void>;
  clearFaults(): Promise<void>;
  configure(options: RuntimeOptions): Promise<void>;
  connections(): Promise<ConnectionInfo[]>;
  closeNotification(session?: number): Promise<void>;
  closeRequest(session?: number): Promise<void>;
  closeAll(): Promise<void>;
  stopListening(): Promise<void>;
  startListening(): Promise<void>;
}

/** Starts a simulator in a child process; resolves when it takes connections. */
export function startSimulator(options?: SimulatorOptions): Promise<Simulator>;

/** What startSimulator rejects with for bad options or projects. */
export class OptionError extends Error {
  code: 'ERR_SIMULATOR_OPTION';
}

/** The scrambling of the handshake bodies. */
export function scramble(plain: Uint8Array): Buffer;
export function unscramble(wire: Uint8Array): Buffer;
