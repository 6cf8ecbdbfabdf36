#include "binding/DriverMethods.h"

#include "driver/NapiCheck.h"

namespace {

constexpr size_t kTagListRoom = 2048;  // with the terminator
constexpr int kMissingArguments = -3;

// What a method's data points to: how to find the driver, if it is still there. Shared by the methods of one object
// and freed with the last of them.
struct DriverHandle {
  std::weak_ptr<DbCore> core;
  std::shared_ptr<SessionGate> gate;  // of the session that made the driver
  CDBDriver* driver;                  // valid inside that gate
  int shares;                         // how many functions share this handle
};

// Holds core and driver for the length of one method call.
class HeldDriver {
 public:
  explicit HeldDriver(const DriverHandle* handle) : core_(handle->core.lock()) {
    if (core_ == nullptr || core_->gate != handle->gate) return;
    use_ = std::make_unique<SessionUse>(*core_);
    if (*use_) driver_ = handle->driver;
  }

  CDBDriver* Driver() const { return driver_; }
  DbCore& Core() const { return *core_; }

 private:
  std::shared_ptr<DbCore> core_;  // first in, last out: ending the use may need it
  std::unique_ptr<SessionUse> use_;
  CDBDriver* driver_ = nullptr;
};

// One call's arguments. False after a failure, which throws.
struct MethodCall {
  napi_value args[2] = {};
  size_t count;
  DriverHandle* handle = nullptr;

  MethodCall(napi_env env, napi_callback_info info, size_t wanted) : count(wanted) {
    void* data = nullptr;
    ok_ = NapiCheck(env, napi_get_cb_info(env, info, &count, args, nullptr, &data));
    handle = static_cast<DriverHandle*>(data);
  }
  explicit operator bool() const { return ok_; }

 private:
  bool ok_ = false;
};

bool ReadTagList(napi_env env, napi_value value, CString& list) {
  char utf8[kTagListRoom];
  size_t length = 0;
  if (!NapiCheck(env, napi_get_value_string_utf8(env, value, utf8, sizeof utf8, &length))) return false;
  list.FromUtf8(utf8, static_cast<unsigned int>(length));
  return true;
}

napi_value Int32(napi_env env, int32_t number) {
  napi_value result = nullptr;
  return NapiCheck(env, napi_create_int32(env, number, &result)) ? result : nullptr;
}

void LetGo(DriverHandle* handle) {
  if (--handle->shares == 0) delete handle;
}

void OnMethodCollected(napi_env, void* data, void*) { LetGo(static_cast<DriverHandle*>(data)); }

// A share of a handle for the length of a scope.
class HandleShare {
 public:
  explicit HandleShare(DriverHandle* handle) : handle_(handle) { ++handle_->shares; }
  ~HandleShare() { LetGo(handle_); }
  HandleShare(const HandleShare&) = delete;
  HandleShare& operator=(const HandleShare&) = delete;

 private:
  DriverHandle* handle_;
};

}  // namespace

napi_value DrvSetTagNotify(napi_env env, napi_callback_info info) {
  const MethodCall call(env, info, 1);
  if (!call || call.count < 1) return nullptr;
  const HeldDriver held(call.handle);
  if (held.Driver() == nullptr) return nullptr;
  held.Driver()->SetCBFunc(env, call.args[0]);
  held.Core().RenewCleanupHook();
  return nullptr;
}

napi_value DrvConnectTag(napi_env env, napi_callback_info info) {
  const MethodCall call(env, info, 1);
  CString list;
  if (!call || call.count < 1 || !ReadTagList(env, call.args[0], list)) return nullptr;
  const HeldDriver held(call.handle);
  if (held.Driver() != nullptr) held.Driver()->_ConnectTag(list.c_str());
  return nullptr;
}

napi_value DrvGetTagValue(napi_env env, napi_callback_info info) {
  const MethodCall call(env, info, 1);
  CString list;
  if (!call || call.count < 1 || !ReadTagList(env, call.args[0], list)) return nullptr;
  const HeldDriver held(call.handle);
  return held.Driver() != nullptr ? held.Driver()->GetTagValue(env, list.c_str()) : nullptr;
}

napi_value DrvSetTagValue(napi_env env, napi_callback_info info) {
  const MethodCall call(env, info, 2);
  if (!call) return nullptr;
  if (call.count < 2) return Int32(env, kMissingArguments);
  CString list;
  if (!ReadTagList(env, call.args[0], list)) return nullptr;
  const HeldDriver held(call.handle);
  if (held.Driver() == nullptr) return Int32(env, CDBDriver::kWriteNotSent);
  return Int32(env, held.Driver()->SetTagValue(env, list.c_str(), call.args[1]));
}

napi_value NewDriverObject(napi_env env, const std::shared_ptr<DbCore>& core, CDBDriver* driver) {
  constexpr size_t kMethods = 4;
  auto handle = std::make_unique<DriverHandle>(DriverHandle{core, core->gate, driver, 0});
  const auto method = [&handle](const char* name, napi_callback function) {
    return napi_property_descriptor{name, nullptr, function, nullptr, nullptr, nullptr, napi_default, handle.get()};
  };
  const napi_property_descriptor methods[kMethods] = {
      method("SetTagNotify", DrvSetTagNotify),
      method("ConnectTag", DrvConnectTag),
      method("GetTagValue", DrvGetTagValue),
      method("SetTagValue", DrvSetTagValue),
  };
  napi_value object = nullptr;
  if (!NapiCheck(env, napi_create_object(env, &object))) return nullptr;
  if (!NapiCheck(env, napi_define_properties(env, object, kMethods, methods))) return nullptr;

  // From here on the functions own the handle, each from the moment that it has its finaliser. A function without one
  // is never called: the object does not reach JavaScript then.
  DriverHandle* shared = handle.release();
  const HandleShare untilDone(shared);
  for (const napi_property_descriptor& property : methods) {
    napi_value function = nullptr;
    if (!NapiCheck(env, napi_get_named_property(env, object, property.utf8name, &function)) ||
        !NapiCheck(env, napi_add_finalizer(env, function, shared, OnMethodCollected, nullptr, nullptr))) {
      return nullptr;
    }
    ++shared->shares;
  }
  return object;
}
