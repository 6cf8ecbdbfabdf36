#include "driver/NapiCheck.h"

#include <node_api.h>

bool NapiCheck(napi_env env, napi_status status) {
  if (status == napi_ok) return true;
  // The message goes first: asking for a pending exception succeeds and thereby clears the last error.
  const napi_extended_error_info* info = nullptr;
  napi_get_last_error_info(env, &info);
  const char* message = info != nullptr ? info->error_message : nullptr;
  bool pending = false;
  napi_is_exception_pending(env, &pending);
  if (!pending) napi_throw_error(env, nullptr, message != nullptr ? message : "empty error message");
  return false;
}

void NapiRaiseUncaught(napi_env env) {
  bool pending = false;
  napi_value error = nullptr;
  if (napi_is_exception_pending(env, &pending) != napi_ok || !pending) return;
  if (napi_get_and_clear_last_exception(env, &error) == napi_ok) napi_fatal_exception(env, error);
}
