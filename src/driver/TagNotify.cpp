// Tag changes: from the receive thread into the tag table and, through the thread-safe function "db_recv", to the
// JavaScript callback; and the JavaScript form of a value.
#include <node_api.h>

#include "base/Encoding.h"
#include "driver/CDBDriver.h"
#include "driver/NapiCheck.h"

// One change on its way to JavaScript: a copy of the value, and the table that names driver and tag. Made by the
// receive thread, freed by OnCallJavaScript, or by the receive thread when it could not be queued.
struct CDBDriver::ChangeMessage {
  uint32_t tagIndex;
  XVariant value;
  std::shared_ptr<TagTable> table;
};

void CDBDriver::SetCBFunc(napi_env environment, napi_value callback) {
  // Intended behaviour: the first callback stays.
  if (notifyFunc.load(std::memory_order_relaxed) != nullptr) return;
  env = environment;
  napi_value resource = nullptr;
  if (!NapiCheck(env, napi_create_string_utf8(env, "db_recv", NAPI_AUTO_LENGTH, &resource))) return;
  napi_threadsafe_function func = nullptr;
  if (!NapiCheck(env, napi_create_threadsafe_function(env, callback, nullptr, resource, 0, 1, nullptr, nullptr, this,
                                                      OnCallJavaScript, &func))) {
    return;
  }
  notifyFunc.store(func, std::memory_order_release);
}

int CDBDriver::OnDBNotify(uint16_t tagIndex, const uint8_t* body, size_t available) {
  if (tagIndex >= tags.size()) return kCannotTake;
  STag& tag = tags[tagIndex];
  const uint16_t type = tag.type.load(std::memory_order_acquire);
  if (type < VT_I2) return kCannotTake;

  std::unique_ptr<XVariant> incoming(spare_ != nullptr ? spare_ : new XVariant);
  spare_ = nullptr;
  incoming->Clear();
  incoming->vt = type;
  size_t consumed = 0;
  if (!incoming->FromBuffer(body, available, false, consumed) || consumed < 1) {
    incoming->Clear();
    spare_ = incoming.release();
    return kCannotTake;
  }

  napi_threadsafe_function func = notifyFunc.load(std::memory_order_acquire);
  ChangeMessage* message = func != nullptr ? new ChangeMessage{tagIndex, *incoming, table} : nullptr;
  // Into the table first: a callback that reads the tag sees this value or a newer one.
  spare_ = tag.incoming.exchange(incoming.release(), std::memory_order_acq_rel);
  if (message != nullptr) QueueChange(func, message);
  return static_cast<int>(consumed);
}

void CDBDriver::QueueChange(napi_threadsafe_function func, ChangeMessage* message) {
  const napi_status status = napi_call_threadsafe_function(func, message, napi_tsfn_nonblocking);
  if (status == napi_ok) return;
  delete message;
  // The environment is ending: this reference is used up, and the handle must not be touched again.
  if (status == napi_closing) notifyFunc.store(nullptr, std::memory_order_release);
}

namespace {

// Calls callback with the global object as `this`.
void CallWithGlobal(napi_env env, napi_value callback, size_t count, const napi_value* args) {
  napi_value global = nullptr;
  if (NapiCheck(env, napi_get_global(env, &global))) {
    NapiCheck(env, napi_call_function(env, global, callback, count, args, nullptr));
  }
}

bool ToJsString(napi_env env, const CString& gb2312, napi_value* result) {
  CString utf8;
  gb2312.ToUtf8(utf8);
  return NapiCheck(env, napi_create_string_utf8(env, utf8.data(), utf8.size(), result));
}

}  // namespace

void CDBDriver::OnCallJavaScript(napi_env environment, napi_value callback, void*, void* data) {
  // The context is the driver, which may be gone by now; the message brings all that is needed.
  const std::unique_ptr<ChangeMessage> message(static_cast<ChangeMessage*>(data));
  if (environment == nullptr || callback == nullptr || message == nullptr) return;
  const TagTable& table = *message->table;
  if (message->tagIndex >= table.tags.size()) return;  // the table shrank meanwhile: the tag is no more
  napi_value args[3] = {};
  if (ToJsString(environment, table.driverName, &args[0]) &&
      ToJsString(environment, table.tags[message->tagIndex].name, &args[1])) {
    args[2] = ValueToValue(environment, message->value);
    bool pending = false;
    napi_is_exception_pending(environment, &pending);
    if (args[2] == nullptr && !pending) NapiCheck(environment, napi_get_undefined(environment, &args[2]));
    if (args[2] != nullptr) CallWithGlobal(environment, callback, 3, args);
  }
  NapiRaiseUncaught(environment);  // so that the next message is still delivered
}

napi_value CDBDriver::ValueToValue(const XVariant& value) const { return ValueToValue(env, value); }

napi_value CDBDriver::ValueToValue(napi_env environment, const XVariant& value) {
  napi_value result = nullptr;
  napi_status status = napi_ok;
  switch (value.vt) {
    case VT_I2:
      status = napi_create_int32(environment, value.i16, &result);
      break;
    case VT_I4:
    case VT_INT:
      status = napi_create_int32(environment, value.i32, &result);
      break;
    case VT_R4:
      status = napi_create_double(environment, static_cast<double>(value.f32), &result);
      break;
    case VT_R8:
      status = napi_create_double(environment, value.f64, &result);
      break;
    case VT_BSTR: {
      // The bytes as they stand: tag texts are UTF-8 already.
      const bool owned = value.str != nullptr;
      status =
          napi_create_string_utf8(environment, owned ? value.str->data() : "", owned ? value.str->size() : 0, &result);
      break;
    }
    case VT_BOOL:
      status = napi_get_boolean(environment, value.byte != 0, &result);
      break;
    case VT_I1:  // intended behaviour: read as unsigned, too
    case VT_UI1:
      status = napi_create_uint32(environment, value.byte, &result);
      break;
    case VT_UI2:
      status = napi_create_uint32(environment, value.u16, &result);
      break;
    case VT_UI4:
    case VT_UINT:
      status = napi_create_uint32(environment, value.u32, &result);
      break;
    default:  // intended behaviour: dates and 64-bit integers, too, are undefined to JavaScript
      return nullptr;
  }
  return NapiCheck(environment, status) ? result : nullptr;
}
