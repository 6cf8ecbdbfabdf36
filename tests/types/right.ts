// Right uses: all of this compiles, and results have exactly the types that stand here.
import { AlarmResult, ConnectResult, DBCore, WriteResult } from 'VqDBAccess';
import type { AlarmCallback, Driver, TagCallback, TagValue, WritableValue } from 'VqDBAccess';
import { startSimulator } from 'VqDBAccess/simulator';
import type { Simulator } from 'VqDBAccess/simulator';

/** Compiles only when both types are the same. */
type Same<A, B> = (<T>() => T extends A ? 1 : 2) extends <T>() => T extends B ? 1 : 2 ? true : false;
function same<A, B>(_yes: Same<A, B>): void {}

// An instance, made with new or by a plain call; a class of one's own.
const db = new DBCore();
same<ReturnType<typeof DBCore>, DBCore>(true);
class Session extends DBCore {
  open(): ConnectResult {
    return this.Connect('127.0.0.1:8080', 'operator', 'secret');
  }
}
same<ReturnType<Session['open']>, 0 | -1 | -2 | -3>(true);

// The results are numbers with names, and the names are the numbers.
const connected = db.Connect('127.0.0.1:8080', 'operator', 'secret');
same<typeof connected, 0 | -1 | -2 | -3>(true);
same<typeof ConnectResult.Refused, -1>(true);
same<typeof WriteResult.BadArgument, -3>(true);
same<typeof AlarmResult.AlreadySubscribed, -1>(true);
same<ConnectResult, 0 | -1 | -2 | -3>(true);
same<WriteResult, 0 | -1 | -2 | -3>(true);
same<AlarmResult, 0 | -1 | -2 | -3>(true);

// A switch over all names leaves nothing over.
export function sentence(result: ConnectResult): string {
  switch (result) {
    case ConnectResult.Connected:
      return 'connected';
    case ConnectResult.Refused:
      return 'refused';
    case ConnectResult.Failed:
      return 'failed';
    case ConnectResult.OutOfPlace:
      return 'out of place';
  }
}

// Drivers may be missing; their methods work without their `this`.
const driver: Driver | undefined = db.GetDriver('Water');
if (driver !== undefined) {
  const { ConnectTag, GetTagValue, SetTagNotify, SetTagValue } = driver;
  const value: TagValue | TagValue[] = GetTagValue('Level');
  if (typeof value === 'number') value.toFixed(1);
  if (Array.isArray(value)) same<typeof value, TagValue[]>(true);
  same<ReturnType<typeof ConnectTag>, void>(true);
  same<ReturnType<typeof SetTagValue>, WriteResult>(true);

  const writable: WritableValue = true;
  SetTagValue('Level', writable);
  SetTagValue('Level', 1.5);
  SetTagValue('Operator note', 'all quiet');
  const both = [1, 'two'] as const;
  SetTagValue('LevelSetPoint, Operator note', both);

  const follow: TagCallback = (driverName, tagName, newValue) => {
    same<typeof driverName, string>(true);
    same<typeof tagName, string>(true);
    same<typeof newValue, number | string | boolean | undefined>(true);
  };
  SetTagNotify(follow);
  SetTagNotify(() => {}); // fewer parameters will do
}

const alarms: AlarmCallback = (beginTime, endTime, tagName, ended, text, text2, attr1, value1, value2, attr2) => {
  same<typeof beginTime, Date>(true);
  same<typeof endTime, Date>(true);
  same<typeof ended, 0 | 1>(true);
  same<[typeof tagName, typeof text, typeof text2], [string, string, string]>(true);
  same<[typeof attr1, typeof value1, typeof value2, typeof attr2], [number, number, number, number]>(true);
};
same<ReturnType<DBCore['SetRtAlarmNotify']>, AlarmResult>(true);
db.SetRtAlarmNotify(alarms, true);
same<ReturnType<DBCore['KeepALive']>, undefined>(true);

export async function simulated(): Promise<void> {
  const sim = await startSimulator({ rate: 0, faults: [{ step: 'login', action: 'delay', ms: 100 }] });
  same<typeof sim, Simulator>(true);
  const address: string = sim.address;
  db.Connect(address, 'operator', 'secret');
  await sim.close();
}
