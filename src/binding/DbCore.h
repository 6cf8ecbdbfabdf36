// DbCore: the native object behind each JavaScript "DBCore" instance: a CDBCore and what ties it to Node-API.
//
// Life: made by New, held by the instance through `self`, let go by Destructor (garbage collection or the end of the
// environment). A driver method that runs keeps it for its own length. An environment clean-up hook ends the session
// before the environment takes its thread-safe functions away. Threads: JavaScript thread only.
#pragma once

#include <node_api.h>

#include <memory>

#include "core/CDBCore.h"

class DbCore : public CDBCore {
 public:
  DbCore() = default;
  ~DbCore() override;

  // Defines the class "DBCore" on exports. napi_ok or the first failing status.
  static napi_status Init(napi_env environment, napi_value exports);

  // The reference to the class that Init made in this environment, for plain calls. Null without one, and after a
  // failure, which throws.
  static napi_ref constructor(napi_env environment);

  // Constructor of the class; as a plain call it gives a new instance, too.
  static napi_value New(napi_env environment, napi_callback_info info);

  // Finaliser of an instance: destroys the object.
  static void Destructor(napi_env environment, void* data, void* hint);

  // The methods of the class.
  static napi_value Connect(napi_env environment, napi_callback_info info);
  static napi_value KeepALive(napi_env environment, napi_callback_info info);
  static napi_value GetDriver(napi_env environment, napi_callback_info info);
  static napi_value SetRtAlarmNotify(napi_env environment, napi_callback_info info);

  // Puts the clean-up hook behind all that was registered so far. The hooks run last in, first out, and each
  // thread-safe function has one of its own: ours must stop the receive thread before theirs run.
  void RenewCleanupHook();

  napi_ref wrapperRef = nullptr;  // the reference that napi_wrap gave; null until wrapped
  std::shared_ptr<DbCore> self;   // the instance's hold on this object

 private:
  static void OnEnvironmentEnd(void* core);
  void EndForGood();

  bool hooked_ = false;  // the clean-up hook is in place
};

// The module's registration function: defines the class on exports, which it returns. A failure throws.
napi_value Init(napi_env env, napi_value exports);
