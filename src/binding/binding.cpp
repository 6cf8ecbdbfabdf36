// The module's entry and the JavaScript class "DBCore".
#include "base/Encoding.h"
#include "binding/DbCore.h"
#include "binding/DriverMethods.h"
#include "driver/NapiCheck.h"

namespace {

constexpr size_t kAddressRoom = 128;  // these with the terminator; longer text is cut
constexpr size_t kUserRoom = 36;
constexpr size_t kPasswordRoom = 36;
constexpr size_t kDriverNameRoom = 128;
constexpr int kMissingArguments = -3;

// What each environment (the main thread, each worker) has of its own.
struct EnvironmentData {
  napi_ref constructor = nullptr;  // to the class, so that a plain call can make an instance
};

// Runs at the end of the environment, which does not free references by itself.
void FreeEnvironmentData(napi_env env, void* data, void*) {
  const std::unique_ptr<EnvironmentData> ending(static_cast<EnvironmentData*>(data));
  napi_delete_reference(env, ending->constructor);
}

napi_value Int32(napi_env env, int32_t number) {
  napi_value result = nullptr;
  return NapiCheck(env, napi_create_int32(env, number, &result)) ? result : nullptr;
}

template <size_t kRoom>
bool ReadText(napi_env env, napi_value value, char (&text)[kRoom], size_t* length = nullptr) {
  size_t unused = 0;
  return NapiCheck(env, napi_get_value_string_utf8(env, value, text, kRoom, length != nullptr ? length : &unused));
}

DbCore* Unwrap(napi_env env, napi_value self) {
  void* data = nullptr;
  return NapiCheck(env, napi_unwrap(env, self, &data)) ? static_cast<DbCore*>(data) : nullptr;
}

// A plain call of the class: as with `new`.
napi_value NewInstance(napi_env env) {
  napi_value constructor = nullptr;
  napi_value instance = nullptr;
  if (!NapiCheck(env, napi_get_reference_value(env, DbCore::constructor(env), &constructor))) return nullptr;
  return NapiCheck(env, napi_new_instance(env, constructor, 0, nullptr, &instance)) ? instance : nullptr;
}

}  // namespace

napi_value Init(napi_env env, napi_value exports) {
  KeepConvertersLoaded();
  NapiCheck(env, DbCore::Init(env, exports));
  return exports;
}

napi_ref DbCore::constructor(napi_env environment) {
  void* data = nullptr;
  if (!NapiCheck(environment, napi_get_instance_data(environment, &data)) || data == nullptr) return nullptr;
  return static_cast<EnvironmentData*>(data)->constructor;
}

napi_status DbCore::Init(napi_env environment, napi_value exports) {
  const auto method = [](const char* name, napi_callback function) {
    return napi_property_descriptor{name, nullptr, function, nullptr, nullptr, nullptr, napi_default, nullptr};
  };
  const napi_property_descriptor methods[] = {
      method("Connect", Connect),
      method("KeepALive", KeepALive),
      method("GetDriver", GetDriver),
      method("SetRtAlarmNotify", SetRtAlarmNotify),
  };
  napi_value type = nullptr;
  napi_status status =
      napi_define_class(environment, "DBCore", NAPI_AUTO_LENGTH, New, nullptr, std::size(methods), methods, &type);
  if (status != napi_ok) return status;
  auto data = std::make_unique<EnvironmentData>();
  status = napi_set_instance_data(environment, data.get(), FreeEnvironmentData, nullptr);
  if (status != napi_ok) return status;
  status = napi_create_reference(environment, type, 1, &data.release()->constructor);
  if (status != napi_ok) return status;
  return napi_set_named_property(environment, exports, "DBCore", type);
}

napi_value DbCore::New(napi_env environment, napi_callback_info info) {
  napi_value target = nullptr;
  napi_value instance = nullptr;
  if (!NapiCheck(environment, napi_get_new_target(environment, info, &target))) return nullptr;
  if (!NapiCheck(environment, napi_get_cb_info(environment, info, nullptr, nullptr, &instance, nullptr))) {
    return nullptr;
  }
  if (target == nullptr) return NewInstance(environment);

  auto core = std::make_shared<DbCore>();
  core->env = environment;
  if (!NapiCheck(environment, napi_wrap(environment, instance, core.get(), Destructor, nullptr, &core->wrapperRef))) {
    return nullptr;
  }
  core->self = core;
  core->RenewCleanupHook();
  return instance;
}

napi_value DbCore::Connect(napi_env environment, napi_callback_info info) {
  napi_value args[3] = {};
  size_t count = 3;
  napi_value self = nullptr;
  if (!NapiCheck(environment, napi_get_cb_info(environment, info, &count, args, &self, nullptr))) return nullptr;
  if (count < 3) return Int32(environment, kMissingArguments);
  char address[kAddressRoom];
  char user[kUserRoom];
  char password[kPasswordRoom];
  if (!ReadText(environment, args[0], address) || !ReadText(environment, args[1], user) ||
      !ReadText(environment, args[2], password)) {
    return nullptr;
  }
  DbCore* core = Unwrap(environment, self);
  if (core == nullptr) return nullptr;
  return Int32(environment, core->_Connect(CString(address).c_str(), user, password));
}

napi_value DbCore::KeepALive(napi_env, napi_callback_info) { return nullptr; }

napi_value DbCore::GetDriver(napi_env environment, napi_callback_info info) {
  napi_value args[1] = {};
  size_t count = 1;
  napi_value self = nullptr;
  if (!NapiCheck(environment, napi_get_cb_info(environment, info, &count, args, &self, nullptr))) return nullptr;
  if (count < 1) return nullptr;
  char utf8[kDriverNameRoom];
  size_t length = 0;
  if (!ReadText(environment, args[0], utf8, &length)) return nullptr;
  DbCore* core = Unwrap(environment, self);
  if (core == nullptr) return nullptr;
  CString name;
  name.FromUtf8(utf8, static_cast<unsigned int>(length));
  CDBDriver* driver = core->_GetDriver(name);
  return driver != nullptr ? NewDriverObject(environment, core->self, driver) : nullptr;
}

napi_value DbCore::SetRtAlarmNotify(napi_env environment, napi_callback_info info) {
  napi_value args[2] = {};
  size_t count = 2;
  napi_value self = nullptr;
  if (!NapiCheck(environment, napi_get_cb_info(environment, info, &count, args, &self, nullptr))) return nullptr;
  if (count < 2) return Int32(environment, kMissingArguments);
  DbCore* core = Unwrap(environment, self);
  if (core == nullptr) return nullptr;
  bool replayCurrent = false;
  if (!NapiCheck(environment, napi_get_value_bool(environment, args[1], &replayCurrent))) return nullptr;
  const int result = core->_SetRtAlarmNotify(args[0], replayCurrent);
  core->RenewCleanupHook();
  return Int32(environment, result);
}

// Registration at load time, by record. Node.js keeps the record for as long as some environment has the library open.
// The library stays in memory after that (see CMakeLists.txt), so an environment that opens it again finds no record:
// Node.js then asks for the well-known function.
extern "C" {
__attribute__((visibility("default"))) napi_value napi_register_module_v1(napi_env env, napi_value exports);
napi_value napi_register_module_v1(napi_env env, napi_value exports) { return Init(env, exports); }

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): Node.js links the records by writing to them
static napi_module vqdbModule = {1, 0, "../../binding", Init, "VqDBAccess", nullptr, {nullptr}};

__attribute__((constructor)) static void _register_VqDBAccess() { napi_module_register(&vqdbModule); }
}
