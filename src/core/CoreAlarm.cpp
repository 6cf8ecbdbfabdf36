// The real-time alarm subscription: request 'n' on the request connection; later alarms come as notification records.
//
//   request        | reply
//   off size field | off  size  field
//   0   1    'n'   | 0    1     'n'
//                  | 1    2     count of active alarms, little-endian
//                  | 3    32 n  the alarms, see S2RtAlarm2
#include <node_api.h>

#include "base/InitStringList.h"
#include "base/Wire.h"
#include "core/CDBCore.h"
#include "driver/NapiCheck.h"
#include "files/GetFile.h"

namespace {

constexpr char kTextListFile[] = "RecData/textlist";
constexpr char kTagListFile[] = "RecData/taglist";
constexpr int kReplyHead = 3;
constexpr size_t kArgCount = 10;

napi_value Date(napi_env env, uint32_t seconds) {
  napi_value result = nullptr;
  napi_create_date(env, seconds * 1000.0, &result);
  return result;
}

napi_value Number(napi_env env, int32_t number) {
  napi_value result = nullptr;
  napi_create_int32(env, number, &result);
  return result;
}

napi_value Number(napi_env env, double number) {
  napi_value result = nullptr;
  napi_create_double(env, number, &result);
  return result;
}

napi_value Line(napi_env env, const std::vector<CString>& list, uint16_t index) {
  napi_value result = nullptr;
  if (index < list.size()) {
    napi_create_string_utf8(env, list[index].data(), list[index].size(), &result);
  } else {
    napi_create_string_utf8(env, "???", NAPI_AUTO_LENGTH, &result);
  }
  return result;
}

}  // namespace

void CDBCore::RAToArgs(napi_env environment, napi_value* args, const S2RtAlarm2& record,
                       const std::vector<CString>& texts, const std::vector<CString>& tags) {
  const bool ended = record.endTime != 0;
  args[0] = Date(environment, record.beginTime);
  args[1] = Date(environment, ended ? record.endTime : record.beginTime);  // intended: begin time while active
  args[2] = Line(environment, tags, record.tagIndex);
  args[3] = Number(environment, ended ? 1 : 0);
  args[4] = Line(environment, texts, record.textIndex1);
  args[5] = Line(environment, texts, record.textIndex2);
  args[6] = Number(environment, record.attr1);
  args[7] = Number(environment, record.value1);
  args[8] = Number(environment, record.value2);
  args[9] = Number(environment, record.attr2);
}

int CDBCore::_SetRtAlarmNotify(napi_value callback, bool replayCurrent) {
  if (subscribing_ || alarmFunc.load(std::memory_order_relaxed) != nullptr) return kAlreadySubscribed;
  std::vector<S2RtAlarm2> alarms;
  if (!RequestAlarms(replayCurrent, alarms)) return kSubscribeFailed;
  subscribing_ = true;  // a replayed callback may ask again
  ReplayAlarms(callback, alarms);
  InstallAlarmFunc(callback);
  subscribing_ = false;
  return kSubscribed;
}

// A callback that throws leaves the exception pending: the calls behind it then have no effect, and the exception
// reaches the caller of the subscription.
void CDBCore::ReplayAlarms(napi_value callback, const std::vector<S2RtAlarm2>& alarms) {
  if (alarms.empty()) return;
  napi_value global = nullptr;
  napi_get_global(env, &global);
  for (const S2RtAlarm2& alarm : alarms) {
    napi_value args[kArgCount] = {};
    RAToArgs(env, args, alarm, textList, tagList);
    napi_call_function(env, global, callback, kArgCount, args, nullptr);
  }
}

void CDBCore::InstallAlarmFunc(napi_value callback) {
  napi_value resource = nullptr;
  napi_create_string_utf8(env, "rt_alarm", NAPI_AUTO_LENGTH, &resource);
  napi_threadsafe_function func = nullptr;
  napi_create_threadsafe_function(env, callback, nullptr, resource, 0, 1, nullptr, nullptr, this, OnNotifyRtAlarm,
                                  &func);
  alarmFunc.store(func, std::memory_order_release);
}

// Asks for the active alarms, keeping them only when they are wanted, and loads the two lists.
bool CDBCore::RequestAlarms(bool keep, std::vector<S2RtAlarm2>& alarms) {
  const SessionUse use(*this);
  if (!use) return false;
  requestSock.BackInStep();
  if (ReqSend("n", 1) < 1) return false;
  if (!ReadAlarms(keep, alarms)) {
    requestSock.MarkOutOfStep();
    return false;
  }
  LoadAlarmLists();
  return true;
}

bool CDBCore::ReadAlarms(bool keep, std::vector<S2RtAlarm2>& alarms) {
  uint8_t head[kReplyHead];
  if (requestSock.RecvAll(head, kReplyHead, 0) == 0 || head[0] != 'n') return false;
  for (uint16_t left = wire::LoadU16(head + 1); left > 0; --left) {
    uint8_t record[S2RtAlarm2::kWireSize];
    if (requestSock.RecvAll(record, sizeof record, 0) == 0) return false;
    if (keep) alarms.push_back(S2RtAlarm2::FromBytes(record));
  }
  return true;
}

void CDBCore::LoadAlarmLists() {
  LoadAlarmList(kTextListFile, textList);
  LoadAlarmList(kTagListFile, tagList);
}

// Once in the core's life: a list that has entries is kept, also across sessions. What cannot be had stays empty.
void CDBCore::LoadAlarmList(const char* file, std::vector<CString>& list) {
  if (!list.empty()) return;
  requestSock.BackInStep();
  if (GetFile(file, requestSock, '4', projectPath, 0, 0, nullptr, nullptr) == 0) requestSock.MarkOutOfStep();
  InitStringList(CString(projectPath + file).c_str(), list);
}

void CDBCore::OnNotifyRtAlarm(napi_env environment, napi_value callback, void* context, void* data) {
  const std::unique_ptr<S2RtAlarm2> alarm(static_cast<S2RtAlarm2*>(data));
  if (environment == nullptr || callback == nullptr || alarm == nullptr) return;
  const auto* core = static_cast<const CDBCore*>(context);
  napi_value global = nullptr;
  napi_get_global(environment, &global);
  napi_value args[kArgCount] = {};
  RAToArgs(environment, args, *alarm, core->textList, core->tagList);
  napi_call_function(environment, global, callback, kArgCount, args, nullptr);
  NapiRaiseUncaught(environment);
}

void CDBCore::ReleaseAlarmFunc() {
  napi_threadsafe_function func = alarmFunc.exchange(nullptr, std::memory_order_acq_rel);
  if (func != nullptr) napi_release_threadsafe_function(func, napi_tsfn_abort);
}
