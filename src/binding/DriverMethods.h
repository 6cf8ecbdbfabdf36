// The driver objects that GetDriver hands out: plain objects with four methods that work without their `this`.
#pragma once

#include <node_api.h>

#include <memory>

#include "binding/DbCore.h"

// Makes a new driver object for a driver of core's present session. Null after a failure, which throws.
// The object holds neither the core nor the driver alive: when the session is gone its methods give undefined,
// SetTagValue gives -2.
napi_value NewDriverObject(napi_env env, const std::shared_ptr<DbCore>& core, CDBDriver* driver);

napi_value DrvSetTagNotify(napi_env env, napi_callback_info info);
napi_value DrvConnectTag(napi_env env, napi_callback_info info);
napi_value DrvGetTagValue(napi_env env, napi_callback_info info);
napi_value DrvSetTagValue(napi_env env, napi_callback_info info);
