// Wrong uses: each line behind a mark must fail to compile.
import { AlarmResult, ConnectResult, DBCore, WriteResult } from 'VqDBAccess';
import { startSimulator } from 'VqDBAccess/simulator';

const db = new DBCore();

// @ts-expect-error the password is missing
db.Connect('127.0.0.1:8080', 'operator');
// @ts-expect-error an address is a text
db.Connect(8080, 'operator', 'secret');
// @ts-expect-error a result is no boolean
export const connected: boolean = db.Connect('127.0.0.1:8080', 'operator', 'secret');
// @ts-expect-error there is no result 1
export const never: ConnectResult = 1;
// @ts-expect-error there is no such name
export const unnamed = ConnectResult.Okay;
// @ts-expect-error the names are fixed
ConnectResult.Refused = -2;
// @ts-expect-error a name of another method's results
export const other: typeof WriteResult.Sent = AlarmResult.AlreadySubscribed;
// @ts-expect-error the comparison can never hold
export const impossible = db.Connect('127.0.0.1:8080', 'operator', 'secret') === 5;

// @ts-expect-error a project may have no such driver
db.GetDriver('Water').GetTagValue('Level');
// @ts-expect-error a name is needed
db.GetDriver();

const driver = db.GetDriver('Water')!;
// @ts-expect-error a list is one text, not an array
driver.GetTagValue(['Level', 'Flow']);
// @ts-expect-error a value may be a text, too
export const level: number = driver.GetTagValue('Level');
// @ts-expect-error dates cannot be written
driver.SetTagValue('Level', new Date());
// @ts-expect-error nor null
driver.SetTagValue('Level', null);
// @ts-expect-error nor 64-bit integers
driver.SetTagValue('Level', 5n);
// @ts-expect-error nor objects in a list
driver.SetTagValue('Level, Flow', [1, {}]);
// @ts-expect-error the value is missing
driver.SetTagValue('Level');
// @ts-expect-error the name comes before the value
driver.SetTagNotify((driverName: string, value: number) => value);
// @ts-expect-error a callback is needed
driver.SetTagNotify();

// @ts-expect-error whether to replay is missing
db.SetRtAlarmNotify(() => {});
// @ts-expect-error replaying is yes or no
db.SetRtAlarmNotify(() => {}, 1);
// @ts-expect-error times are dates
db.SetRtAlarmNotify((beginTime: number) => beginTime, true);

// @ts-expect-error there is no way to close but to let go of the instance
db.Close();

// @ts-expect-error it must be waited for
startSimulator().address;
// @ts-expect-error no such step
startSimulator({ faults: [{ step: 'logon', action: 'delay' }] });
