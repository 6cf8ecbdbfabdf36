#include "support/FakeNapi.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

struct napi_env__ {
  FakeNapi* js;
};

struct napi_value__ {
  enum Kind { kUndefined, kNull, kBoolean, kNumber, kText, kObject, kArray, kDate, kFunction, kError, kThrowing };
  Kind kind = kUndefined;
  double number = 0;
  std::string text;
  std::vector<napi_value> elements;  // null: unset
  FakeNapi::Body body;
};

namespace {

using Value = napi_value__;

std::string ShowNumber(double number) {
  char text[40];
  if (number == std::floor(number) && std::fabs(number) < 1e15) {
    std::snprintf(text, sizeof text, "%.0f", number);
  } else {
    std::snprintf(text, sizeof text, "%.15g", number);
  }
  return text;
}

std::string ShowList(const std::vector<napi_value>& elements) {
  std::string text;
  for (const napi_value element : elements) {
    if (!text.empty()) text += ", ";
    text += element == nullptr ? "<unset>" : FakeNapi::Show(element);
  }
  return text;
}

napi_value Result(FakeNapi& js, Value::Kind kind, double number = 0, const std::string& text = {}) {
  return js.Make({kind, number, text, {}, {}});
}

}  // namespace

FakeNapi::FakeNapi() : env_(std::make_unique<napi_env__>(napi_env__{this})) { global_ = Object(); }

FakeNapi::~FakeNapi() {
  EndEnvironment();
  if (Pending()) ADD_FAILURE() << "an exception was left pending: " << TakeException();
}

napi_env FakeNapi::Env() { return env_.get(); }

napi_value FakeNapi::Make(napi_value__ value) {
  values_.push_back(std::make_unique<Value>(std::move(value)));
  return values_.back().get();
}

napi_value FakeNapi::Undefined() { return Result(*this, Value::kUndefined); }
napi_value FakeNapi::Null() { return Result(*this, Value::kNull); }
napi_value FakeNapi::Boolean(bool value) { return Result(*this, Value::kBoolean, value ? 1 : 0); }
napi_value FakeNapi::Number(double value) { return Result(*this, Value::kNumber, value); }
napi_value FakeNapi::Text(const std::string& utf8) { return Result(*this, Value::kText, 0, utf8); }
napi_value FakeNapi::Object() { return Result(*this, Value::kObject); }
napi_value FakeNapi::Array(const std::vector<napi_value>& elements) {
  return Make({Value::kArray, 0, {}, elements, {}});
}
napi_value FakeNapi::Function(Body body) { return Make({Value::kFunction, 0, {}, {}, std::move(body)}); }
napi_value FakeNapi::Global() { return global_; }
napi_value FakeNapi::ThrowingElement(const std::string& message) { return Result(*this, Value::kThrowing, 0, message); }

std::string FakeNapi::Show(napi_value value) {
  if (value == nullptr) return "nothing";
  switch (value->kind) {
    case Value::kUndefined:
      return "undefined";
    case Value::kNull:
      return "null";
    case Value::kBoolean:
      return value->number != 0 ? "true" : "false";
    case Value::kNumber:
      return ShowNumber(value->number);
    case Value::kText:
      return "'" + value->text + "'";
    case Value::kObject:
      return "object";
    case Value::kArray:
      return "[" + ShowList(value->elements) + "]";
    case Value::kDate:
      return "Date(" + ShowNumber(value->number) + ")";
    case Value::kFunction:
      return "function";
    case Value::kError:
      return "Error(" + value->text + ")";
    default:
      return "?";
  }
}

napi_value FakeNapi::Recorder() {
  return Function([this](const Args& args) { calls.push_back("(" + ShowList(args) + ")"); });
}

void FakeNapi::Throw(const std::string& message) { pending_ = Result(*this, Value::kError, 0, message); }

std::string FakeNapi::TakeException() {
  const std::string message = pending_ != nullptr ? pending_->text : "";
  pending_ = nullptr;
  return message;
}

void FakeNapi::Fail(const std::string& function, const char* message, int skip, napi_status status) {
  const std::lock_guard<std::mutex> lock(mutex_);
  failures_.push_back({function, message != nullptr ? message : "", message != nullptr, skip, status});
}

bool FakeNapi::TakeFailure(const std::string& function, napi_status* status, const char** message) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (auto it = failures_.begin(); it != failures_.end(); ++it) {
    if (it->function != function || it->skip-- > 0) continue;
    failureText_ = it->message;
    *message = it->hasMessage ? failureText_.c_str() : nullptr;
    *status = it->status;
    failures_.erase(it);
    return true;
  }
  return false;
}

void FakeNapi::Misuse(const std::string& what) { ADD_FAILURE() << "misuse of Node-API: " << what; }

napi_status FakeNapi::Enter(const char* function, bool needsNoException) {
  if (std::this_thread::get_id() != thread_) Misuse(std::string(function) + " on a wrong thread");
  log.emplace_back(function);
  napi_status status = napi_ok;
  const char* message = nullptr;
  if (TakeFailure(function, &status, &message)) return Done(status, message);
  if (needsNoException && Pending()) return Done(napi_pending_exception, "An exception is pending");
  return Done(napi_ok);
}

// Notes the outcome of a call as the last error.
napi_status FakeNapi::Done(napi_status status, const char* message) {
  lastError_.error_message = message != nullptr ? messages_.insert(message).first->c_str() : nullptr;
  lastError_.error_code = status;
  return status;
}

size_t FakeNapi::Functions() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return functions_.size();
}

napi_threadsafe_function__ FakeNapi::FunctionAt(size_t index) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return *functions_.at(index);
}

size_t FakeNapi::Queued() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  size_t count = 0;
  for (const auto& function : functions_) count += function->queue.size();
  return count;
}

size_t FakeNapi::QueuedEver() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return queuedEver_;
}

bool FakeNapi::WaitQueuedEver(size_t count) {
  std::unique_lock<std::mutex> lock(mutex_);
  return queued_.wait_for(lock, std::chrono::seconds(20), [&] { return queuedEver_ >= count; });
}

bool FakeNapi::NextMessage(napi_threadsafe_function* function, void** data, bool* withoutEnvironment) {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& candidate : functions_) {
    if (candidate->queue.empty()) continue;
    *function = candidate.get();
    *data = candidate->queue.front();
    *withoutEnvironment = candidate->closing;
    candidate->queue.pop_front();
    return true;
  }
  return false;
}

size_t FakeNapi::Drain() {
  napi_threadsafe_function function = nullptr;
  void* data = nullptr;
  bool bare = false;
  const size_t waiting = Queued();
  size_t count = 0;
  for (; count < waiting && NextMessage(&function, &data, &bare); ++count) {
    function->callJs(bare ? nullptr : Env(), bare ? nullptr : function->callback, function->context, data);
    if (!bare && Pending()) ADD_FAILURE() << "a message left an exception pending: " << TakeException();
  }
  return count;
}

void FakeNapi::CloseFunctions() {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& function : functions_) function->closing = true;
}

void FakeNapi::EndEnvironment() {
  CloseFunctions();
  Drain();
}

// --- the stubs

#define ENTER(name)        \
  FakeNapi& js = *env->js; \
  if (const napi_status entered = js.Enter(#name); entered != napi_ok) return entered
#define ENTER_UNLESS_PENDING(name) \
  FakeNapi& js = *env->js;         \
  if (const napi_status entered = js.Enter(#name, true); entered != napi_ok) return entered

napi_status napi_get_last_error_info(napi_env env, const napi_extended_error_info** result) {
  *result = &env->js->lastError_;  // leaves the last error as it is
  return napi_ok;
}

napi_status napi_is_exception_pending(napi_env env, bool* result) {
  ENTER(napi_is_exception_pending);
  *result = js.Pending();
  return napi_ok;
}

napi_status napi_throw_error(napi_env env, const char*, const char* message) {
  ENTER_UNLESS_PENDING(napi_throw_error);
  js.Throw(message);
  return napi_ok;
}

napi_status napi_get_and_clear_last_exception(napi_env env, napi_value* result) {
  ENTER(napi_get_and_clear_last_exception);
  *result = js.Pending() ? js.pending_ : js.Undefined();
  js.pending_ = nullptr;
  return napi_ok;
}

napi_status napi_fatal_exception(napi_env env, napi_value error) {
  ENTER_UNLESS_PENDING(napi_fatal_exception);
  js.uncaught.push_back(error->text);
  return napi_ok;
}

napi_status napi_get_undefined(napi_env env, napi_value* result) {
  ENTER(napi_get_undefined);
  *result = js.Undefined();
  return napi_ok;
}

napi_status napi_get_global(napi_env env, napi_value* result) {
  ENTER(napi_get_global);
  *result = js.Global();
  return napi_ok;
}

napi_status napi_get_boolean(napi_env env, bool value, napi_value* result) {
  ENTER(napi_get_boolean);
  *result = js.Boolean(value);
  return napi_ok;
}

napi_status napi_create_int32(napi_env env, int32_t value, napi_value* result) {
  ENTER(napi_create_int32);
  *result = js.Number(value);
  return napi_ok;
}

napi_status napi_create_uint32(napi_env env, uint32_t value, napi_value* result) {
  ENTER(napi_create_uint32);
  *result = js.Number(value);
  return napi_ok;
}

napi_status napi_create_double(napi_env env, double value, napi_value* result) {
  ENTER(napi_create_double);
  *result = js.Number(value);
  return napi_ok;
}

napi_status napi_create_date(napi_env env, double time, napi_value* result) {
  ENTER(napi_create_date);
  *result = Result(js, Value::kDate, time);
  return napi_ok;
}

napi_status napi_create_string_utf8(napi_env env, const char* text, size_t length, napi_value* result) {
  ENTER(napi_create_string_utf8);
  *result = js.Text(length == NAPI_AUTO_LENGTH ? std::string(text) : std::string(text, length));
  return napi_ok;
}

napi_status napi_create_array_with_length(napi_env env, size_t length, napi_value* result) {
  ENTER(napi_create_array_with_length);
  *result = js.Array(std::vector<napi_value>(length));
  return napi_ok;
}

napi_status napi_set_element(napi_env env, napi_value array, uint32_t index, napi_value value) {
  ENTER_UNLESS_PENDING(napi_set_element);
  if (value == nullptr) return js.Done(napi_invalid_arg, "Invalid argument");
  if (index >= array->elements.size()) array->elements.resize(index + 1);
  array->elements[index] = value;
  return napi_ok;
}

napi_status napi_get_element(napi_env env, napi_value array, uint32_t index, napi_value* result) {
  ENTER_UNLESS_PENDING(napi_get_element);
  *result = index < array->elements.size() ? array->elements[index] : nullptr;
  if (*result == nullptr) *result = js.Undefined();
  if ((*result)->kind != Value::kThrowing) return napi_ok;
  js.Throw((*result)->text);
  return js.Done(napi_pending_exception, "An exception is pending");
}

napi_status napi_is_array(napi_env env, napi_value value, bool* result) {
  ENTER(napi_is_array);
  *result = value->kind == Value::kArray;
  return napi_ok;
}

napi_status napi_get_array_length(napi_env env, napi_value value, uint32_t* result) {
  ENTER(napi_get_array_length);
  *result = static_cast<uint32_t>(value->elements.size());
  return napi_ok;
}

napi_status napi_typeof(napi_env env, napi_value value, napi_valuetype* result) {
  ENTER(napi_typeof);
  switch (value->kind) {
    case Value::kUndefined:
      *result = napi_undefined;
      break;
    case Value::kNull:
      *result = napi_null;
      break;
    case Value::kBoolean:
      *result = napi_boolean;
      break;
    case Value::kNumber:
      *result = napi_number;
      break;
    case Value::kText:
      *result = napi_string;
      break;
    case Value::kFunction:
      *result = napi_function;
      break;
    default:
      *result = napi_object;
      break;
  }
  return napi_ok;
}

napi_status napi_get_value_bool(napi_env env, napi_value value, bool* result) {
  ENTER(napi_get_value_bool);
  *result = value->number != 0;
  return napi_ok;
}

napi_status napi_get_value_double(napi_env env, napi_value value, double* result) {
  ENTER(napi_get_value_double);
  *result = value->number;
  return napi_ok;
}

// Whole characters only, as many as fit before the terminator.
napi_status napi_get_value_string_utf8(napi_env env, napi_value value, char* buf, size_t room, size_t* result) {
  ENTER(napi_get_value_string_utf8);
  size_t length = std::min(value->text.size(), room - 1);
  while (length < value->text.size() && length > 0 && (value->text[length] & 0xC0) == 0x80) --length;
  std::memcpy(buf, value->text.data(), length);
  buf[length] = '\0';
  if (result != nullptr) *result = length;
  return napi_ok;
}

napi_status napi_call_function(napi_env env, napi_value self, napi_value function, size_t count, const napi_value* args,
                               napi_value* result) {
  ENTER_UNLESS_PENDING(napi_call_function);
  if (function == nullptr || function->kind != Value::kFunction) return js.Done(napi_invalid_arg, "Invalid argument");
  const size_t before = js.calls.size();
  function->body(FakeNapi::Args(args, args + count));
  if (self != js.Global() && js.calls.size() > before) js.calls.back().insert(0, "not-global: ");
  if (result != nullptr) *result = js.Undefined();
  return js.Pending() ? js.Done(napi_pending_exception, "An exception is pending") : js.Done(napi_ok);
}

napi_status napi_create_threadsafe_function(napi_env env, napi_value function, napi_value asyncResource,
                                            napi_value name, size_t maxQueue, size_t threads, void*,
                                            napi_finalize finalizer, void* context,
                                            napi_threadsafe_function_call_js callJs, napi_threadsafe_function* result) {
  ENTER(napi_create_threadsafe_function);
  if (function == nullptr || function->kind != Value::kFunction) return js.Done(napi_invalid_arg, "Invalid argument");
  auto made = std::make_unique<napi_threadsafe_function__>();
  made->owner = &js;
  made->callback = function;
  made->asyncResource = asyncResource != nullptr;
  made->name = name->text;
  made->maxQueue = maxQueue;
  made->initialThreads = made->threads = threads;
  made->finalizer = finalizer != nullptr;
  made->context = context;
  made->callJs = callJs;
  *result = made.get();
  const std::lock_guard<std::mutex> lock(js.mutex_);
  js.functions_.push_back(std::move(made));
  return napi_ok;
}

napi_status napi_call_threadsafe_function(napi_threadsafe_function func, void* data,
                                          napi_threadsafe_function_call_mode mode) {
  FakeNapi& js = *func->owner;
  napi_status status = napi_ok;
  const char* message = nullptr;
  const bool fails = js.TakeFailure("napi_call_threadsafe_function", &status, &message);
  const std::lock_guard<std::mutex> lock(js.mutex_);
  if (func->threads == 0) {
    js.Misuse("a thread-safe function was called without a reference to it");
    return napi_invalid_arg;
  }
  if (mode == napi_tsfn_blocking) ++func->blocking;
  if (fails || func->closing) ++func->refused;
  if (fails && status != napi_closing) return status;
  if (fails || func->closing) {
    --func->threads;  // the answer uses the caller's reference up
    return napi_closing;
  }
  func->queue.push_back(data);
  ++js.queuedEver_;
  js.queued_.notify_all();
  return napi_ok;
}

napi_status napi_release_threadsafe_function(napi_threadsafe_function func,
                                             napi_threadsafe_function_release_mode mode) {
  FakeNapi& js = *func->owner;
  const std::lock_guard<std::mutex> lock(js.mutex_);
  if (func->threads == 0) {
    js.Misuse("a thread-safe function was released without a reference to it");
    return napi_invalid_arg;
  }
  --func->threads;
  func->order = ++js.releases_;
  if (mode == napi_tsfn_release) {
    ++func->released;
  } else {
    ++func->aborted;
    func->closing = true;
  }
  return napi_ok;
}
