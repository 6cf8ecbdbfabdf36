// The package from an ES module.
import { AlarmResult, ConnectResult, DBCore, WriteResult } from 'VqDBAccess';
import { startSimulator } from 'VqDBAccess/simulator';

const { address } = await startSimulator();
const db = new DBCore();
if (db.Connect(address, 'operator', 'secret') === ConnectResult.Connected) {
  const sent: boolean = db.GetDriver('Water')?.SetTagValue('LevelSetPoint', 6) === WriteResult.Sent;
  const subscribed: boolean = db.SetRtAlarmNotify(() => {}, false) === AlarmResult.Subscribed;
  console.log(sent, subscribed);
}
