// The one rule for a failed Node-API call, and the fate of what a callback throws.
#pragma once

#include <js_native_api.h>

// True when status is ok. Otherwise throws a JavaScript Error that carries Node-API's own message ("empty error
// message" when it has none), unless an exception is pending already, and returns false. JavaScript thread.
bool NapiCheck(napi_env env, napi_status status);

// Hands a pending exception to the process's uncaught exception handling, as a callback that Node.js calls by itself
// would do; without one does nothing. JavaScript thread.
void NapiRaiseUncaught(napi_env env);
