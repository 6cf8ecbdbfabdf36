// The life of a DbCore: construction, destruction, and the end of its environment. Its methods are in binding.cpp.
#include "binding/DbCore.h"

DbCore::~DbCore() {
  if (hooked_) napi_remove_env_cleanup_hook(env, OnEnvironmentEnd, this);
  if (wrapperRef != nullptr) napi_delete_reference(env, wrapperRef);
  EndForGood();
}

void DbCore::Destructor(napi_env, void* data, void*) {
  if (data == nullptr) return;
  auto* core = static_cast<DbCore*>(data);
  // A driver method of this object may be running: the last holder destroys it.
  const std::shared_ptr<DbCore> last = std::move(core->self);
  if (last == nullptr) delete core;
}

void DbCore::RenewCleanupHook() {
  if (hooked_) napi_remove_env_cleanup_hook(env, OnEnvironmentEnd, this);
  hooked_ = napi_add_env_cleanup_hook(env, OnEnvironmentEnd, this) == napi_ok;
}

void DbCore::OnEnvironmentEnd(void* core) {
  auto* self = static_cast<DbCore*>(core);
  self->hooked_ = false;
  self->EndForGood();
}

void DbCore::EndForGood() {
  _Disconnect();
  AwaitReceiver();
  ReleaseAlarmFunc();
}
