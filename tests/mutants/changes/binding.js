'use strict';
module.exports = [
  // binding.cpp
  ['binding.cpp', 'kAddressRoom = 128;', 'kAddressRoom = 129;', 'an address is a byte longer'],
  ['binding.cpp', 'kUserRoom = 36;', 'kUserRoom = 35;', 'a user name is cut by a byte'],
  ['binding.cpp', 'kPasswordRoom = 36;', 'kPasswordRoom = 37;', 'a password is a byte longer'],
  ['binding.cpp', 'kDriverNameRoom = 128;', 'kDriverNameRoom = 127;', 'a driver name is cut by a byte'],
  [
    'binding.cpp',
    'if (target == nullptr) return NewInstance(environment);',
    ';',
    'a plain call of the class makes no instance',
  ],
  ['binding.cpp', '  core->env = environment;\n', '', 'an instance has no environment'],
  [
    'binding.cpp',
    'if (count < 3) return Int32(environment, kMissingArguments);',
    'if (count < 2) return Int32(environment, kMissingArguments);',
    'a missing password is an exception',
  ],
  [
    'binding.cpp',
    'if (count < 2) return Int32(environment, kMissingArguments);',
    'if (count < 1) return Int32(environment, kMissingArguments);',
    'a missing flag is an exception',
  ],
  [
    'binding.cpp',
    'core->_Connect(CString(address).c_str(), user, password)',
    'core->_Connect(CString(address).c_str(), password, user)',
    'user and password change places',
  ],
  [
    'binding.cpp',
    '  name.FromUtf8(utf8, static_cast<unsigned int>(length));\n',
    '  name = utf8;\n',
    'a driver name stays UTF-8',
  ],
  ['binding.cpp', 'if (count < 1) return nullptr;\n  char utf8', 'char utf8', 'a missing driver name is an exception'],
  [
    'binding.cpp',
    'core->_SetRtAlarmNotify(args[0], replayCurrent)',
    'core->_SetRtAlarmNotify(args[0], !replayCurrent)',
    'alarms are replayed when not asked for',
  ],
  ['binding.cpp', 'method("KeepALive", KeepALive)', 'method("KeepAlive", KeepALive)', 'the name of a method'],
  ['binding.cpp', 'environment, type, 1,', 'environment, type, 2,', 'the class is referred to twice'],
  ['binding.cpp', '{1, 0, "../../binding"', '{1, 0, "../binding"', 'the record of the module names another file'],
  [
    'binding.cpp',
    '  NapiCheck(env, DbCore::Init(env, exports));\n',
    '  DbCore::Init(env, exports);\n',
    'a class that cannot be defined throws nothing',
  ],
  [
    'binding.cpp',
    'if (!NapiCheck(environment, napi_get_value_bool(environment, args[1], &replayCurrent))) return nullptr;',
    'if (napi_get_value_bool(environment, args[1], &replayCurrent) != napi_ok) return nullptr;',
    'a flag that is no boolean throws nothing',
  ],

  // DriverMethods.cpp
  ['DriverMethods.cpp', 'kTagListRoom = 2048;', 'kTagListRoom = 2047;', 'a tag list is cut by a byte'],
  [
    'DriverMethods.cpp',
    'if (core_ == nullptr || core_->gate != handle->gate) return;',
    'if (core_ == nullptr) return;',
    'an object of an old session uses the new one',
  ],
  [
    'DriverMethods.cpp',
    '  list.FromUtf8(utf8, static_cast<unsigned int>(length));\n',
    '  list = utf8;\n',
    'tag names stay UTF-8',
  ],
  [
    'DriverMethods.cpp',
    'if (call.count < 2) return Int32(env, kMissingArguments);',
    'if (call.count < 2) return nullptr;',
    'a missing value gives undefined',
  ],
  [
    'DriverMethods.cpp',
    'return Int32(env, CDBDriver::kWriteNotSent);',
    'return nullptr;',
    'a write to a driver that is gone gives undefined',
  ],
  ['DriverMethods.cpp', '  held.Driver()->SetCBFunc(env, call.args[0]);\n', '', 'a callback is not installed'],
  [
    'DriverMethods.cpp',
    'if (held.Driver() != nullptr) held.Driver()->_ConnectTag(list.c_str());',
    ';',
    'tags are not connected',
  ],
  [
    'DriverMethods.cpp',
    'if (--handle->shares == 0) delete handle;',
    'if (--handle->shares == 1) delete handle;',
    'the last method uses what is freed',
  ],
  [
    'DriverMethods.cpp',
    'explicit HandleShare(DriverHandle* handle) : handle_(handle) { ++handle_->shares; }',
    'explicit HandleShare(DriverHandle* handle) : handle_(handle) { handle_->shares = 2; }',
    'what the methods share is never freed',
  ],
  [
    'DriverMethods.cpp',
    '  held.Core().RenewCleanupHook();\n',
    '',
    'the receive thread outlives the tag callback when a worker ends',
  ],
  [
    'DriverMethods.cpp',
    'if (!NapiCheck(env, napi_create_object(env, &object))) return nullptr;',
    'if (napi_create_object(env, &object) != napi_ok) return nullptr;',
    'a driver object that cannot be made throws nothing',
  ],

  // DbCore.cpp
  [
    'DbCore.cpp',
    '  if (wrapperRef != nullptr) napi_delete_reference(env, wrapperRef);\n  EndForGood();\n',
    '  EndForGood();\n  if (wrapperRef != nullptr) napi_delete_reference(env, wrapperRef);\n',
    'the reference to an instance is deleted behind its session',
  ],
  ['DbCore.cpp', '  _Disconnect();\n', '', 'a collected instance stays connected'],
  ['DbCore.cpp', '  ReleaseAlarmFunc();\n', '', 'the alarm function is never released'],
  [
    'DbCore.cpp',
    '  if (hooked_) napi_remove_env_cleanup_hook(env, OnEnvironmentEnd, this);\n  if (wrapperRef',
    '  if (wrapperRef',
    'the clean-up hook outlives its instance',
  ],
  [
    'DbCore.cpp',
    '  if (hooked_) napi_remove_env_cleanup_hook(env, OnEnvironmentEnd, this);\n  hooked_',
    '  hooked_',
    'the clean-up hook is added twice',
  ],
  [
    'DbCore.cpp',
    'if (wrapperRef != nullptr) napi_delete_reference(env, wrapperRef);',
    ';',
    'the reference to an instance is never deleted',
  ],
  ['DbCore.cpp', '  self->EndForGood();\n', '', 'a session outlives its environment'],
];
