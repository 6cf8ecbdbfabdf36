#include "support/NapiStub.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>

#include "support/Input.h"

struct napi_value__ {
  napi_valuetype type = napi_undefined;
  double number = 0;
  std::string text;
  std::vector<napi_value> elements;
  bool isArray = false;
};

struct napi_threadsafe_function__ {
  napi_value callback;
  void* context;
  napi_threadsafe_function_call_js callJs;
  size_t references;
  bool closing = false;
  std::deque<void*> queue;
};

namespace {

struct State {
  std::vector<std::unique_ptr<napi_value__>> values;
  std::vector<std::unique_ptr<napi_threadsafe_function__>> functions;
  std::mutex mutex;  // guards the functions, which other threads call
  napi_status queueing = napi_ok;
  int callsToFailure = -1;  // -1: never
  bool throwing = false;
  bool pending = false;
  napi_extended_error_info error = {"Invalid argument", nullptr, 0, napi_invalid_arg};
};

State state;

napi_value Make(napi_valuetype type) {
  state.values.push_back(std::make_unique<napi_value__>());
  state.values.back()->type = type;
  return state.values.back().get();
}

// One call that can fail: counts it.
bool Fails() {
  if (state.callsToFailure < 0) return false;
  if (state.callsToFailure == 0) return true;
  --state.callsToFailure;
  return false;
}

napi_status Give(napi_value value, napi_value* result) {
  if (Fails()) return napi_invalid_arg;
  *result = value;
  return napi_ok;
}

napi_status GiveNumber(double number, napi_value* result) { return Give(napi_stub::Number(number), result); }

// Takes the next message of a function.
bool Take(napi_threadsafe_function func, void*& data) {
  const std::lock_guard<std::mutex> lock(state.mutex);
  if (func->queue.empty()) return false;
  data = func->queue.front();
  func->queue.pop_front();
  return true;
}

}  // namespace

void napi_stub::Reset() {
  for (const auto& func : state.functions) {
    for (void* data = nullptr; Take(func.get(), data);) func->callJs(nullptr, nullptr, func->context, data);
  }
  state.functions.clear();
  state.values.clear();
  state.queueing = napi_ok;
  state.callsToFailure = -1;
  state.throwing = false;
  state.pending = false;
}

void napi_stub::FailFrom(int calls) { state.callsToFailure = calls; }

void napi_stub::ThrowInCallbacks() { state.throwing = true; }

void napi_stub::AnswerQueueing(napi_status status) {
  const std::lock_guard<std::mutex> lock(state.mutex);
  state.queueing = status;
}

size_t napi_stub::DeliverQueued() {
  size_t count = 0;
  for (size_t i = 0; i < state.functions.size(); ++i) {
    napi_threadsafe_function func = state.functions[i].get();
    for (void* data = nullptr; Take(func, data); ++count) func->callJs(Env(), func->callback, func->context, data);
  }
  return count;
}

napi_env napi_stub::Env() { return reinterpret_cast<napi_env>(&state); }

napi_value napi_stub::String(const std::string& text) {
  napi_value value = Make(napi_string);
  value->text = text;
  return value;
}

napi_value napi_stub::Number(double number) {
  napi_value value = Make(napi_number);
  value->number = number;
  return value;
}

napi_value napi_stub::Boolean(bool flag) {
  napi_value value = Make(napi_boolean);
  value->number = flag ? 1 : 0;
  return value;
}

napi_value napi_stub::Null() { return Make(napi_null); }

napi_value napi_stub::Function() { return Make(napi_function); }

napi_value napi_stub::Array(const std::vector<napi_value>& elements) {
  napi_value value = Make(napi_object);
  value->isArray = true;
  value->elements = elements;
  return value;
}

// --- values

napi_status napi_create_int32(napi_env, int32_t number, napi_value* result) { return GiveNumber(number, result); }
napi_status napi_create_uint32(napi_env, uint32_t number, napi_value* result) { return GiveNumber(number, result); }
napi_status napi_create_double(napi_env, double number, napi_value* result) { return GiveNumber(number, result); }
napi_status napi_create_date(napi_env, double time, napi_value* result) { return GiveNumber(time, result); }

napi_status napi_create_string_utf8(napi_env, const char* text, size_t length, napi_value* result) {
  return Give(napi_stub::String(length == NAPI_AUTO_LENGTH ? text : std::string(text, length)), result);
}

napi_status napi_get_boolean(napi_env, bool flag, napi_value* result) { return Give(napi_stub::Boolean(flag), result); }
napi_status napi_get_undefined(napi_env, napi_value* result) { return Give(Make(napi_undefined), result); }
napi_status napi_get_global(napi_env, napi_value* result) { return Give(Make(napi_object), result); }

napi_status napi_create_array_with_length(napi_env, size_t length, napi_value* result) {
  return Give(napi_stub::Array(std::vector<napi_value>(length)), result);
}

napi_status napi_set_element(napi_env, napi_value array, uint32_t index, napi_value element) {
  if (state.pending || Fails() || index >= array->elements.size()) return napi_invalid_arg;
  FUZZ_CHECK(element != nullptr);
  array->elements[index] = element;
  return napi_ok;
}

napi_status napi_get_element(napi_env, napi_value array, uint32_t index, napi_value* result) {
  if (state.pending || index >= array->elements.size()) return napi_invalid_arg;
  return Give(array->elements[index], result);
}

napi_status napi_is_array(napi_env, napi_value value, bool* result) {
  *result = value->isArray;
  return napi_ok;
}

napi_status napi_get_array_length(napi_env, napi_value array, uint32_t* length) {
  *length = static_cast<uint32_t>(array->elements.size());
  return Fails() ? napi_invalid_arg : napi_ok;
}

napi_status napi_typeof(napi_env, napi_value value, napi_valuetype* type) {
  *type = value->type;
  return Fails() ? napi_invalid_arg : napi_ok;
}

napi_status napi_get_value_double(napi_env, napi_value value, double* number) {
  *number = value->number;
  return Fails() ? napi_invalid_arg : napi_ok;
}

napi_status napi_get_value_bool(napi_env, napi_value value, bool* flag) {
  *flag = value->number != 0;
  return Fails() ? napi_invalid_arg : napi_ok;
}

napi_status napi_get_value_string_utf8(napi_env, napi_value value, char* buf, size_t room, size_t* length) {
  if (Fails()) return napi_invalid_arg;
  *length = std::min(value->text.size(), room - 1);
  std::memcpy(buf, value->text.data(), *length);
  buf[*length] = '\0';
  return napi_ok;
}

// --- calls and exceptions

napi_status napi_call_function(napi_env, napi_value, napi_value function, size_t count, const napi_value* args,
                               napi_value*) {
  if (state.pending || Fails()) return napi_pending_exception;
  FUZZ_CHECK(function != nullptr);
  for (size_t i = 0; i < count; ++i) FUZZ_CHECK(args[i] != nullptr);
  state.pending = state.throwing;
  return state.throwing ? napi_pending_exception : napi_ok;
}

napi_status napi_get_last_error_info(napi_env, const napi_extended_error_info** info) {
  *info = &state.error;
  return napi_ok;
}

napi_status napi_is_exception_pending(napi_env, bool* pending) {
  *pending = state.pending;
  return napi_ok;
}

napi_status napi_throw_error(napi_env, const char*, const char*) {
  FUZZ_CHECK(!state.pending);
  state.pending = true;
  return napi_ok;
}

napi_status napi_get_and_clear_last_exception(napi_env, napi_value* error) {
  *error = Make(napi_object);
  state.pending = false;
  return napi_ok;
}

napi_status napi_fatal_exception(napi_env, napi_value) { return napi_ok; }

// --- thread-safe functions

napi_status napi_create_threadsafe_function(napi_env, napi_value callback, napi_value, napi_value, size_t, size_t count,
                                            void*, napi_finalize, void* context,
                                            napi_threadsafe_function_call_js callJs, napi_threadsafe_function* result) {
  if (Fails()) return napi_invalid_arg;
  const std::lock_guard<std::mutex> lock(state.mutex);
  auto func = std::make_unique<napi_threadsafe_function__>();
  func->callback = callback;
  func->context = context;
  func->callJs = callJs;
  func->references = count;
  *result = func.get();
  state.functions.push_back(std::move(func));
  return napi_ok;
}

napi_status napi_call_threadsafe_function(napi_threadsafe_function func, void* data,
                                          napi_threadsafe_function_call_mode) {
  const std::lock_guard<std::mutex> lock(state.mutex);
  FUZZ_CHECK(func->references > 0 && !func->closing);
  if (state.queueing == napi_closing) func->closing = true;
  if (state.queueing != napi_ok) return state.queueing;
  func->queue.push_back(data);
  return napi_ok;
}

napi_status napi_release_threadsafe_function(napi_threadsafe_function func, napi_threadsafe_function_release_mode) {
  const std::lock_guard<std::mutex> lock(state.mutex);
  FUZZ_CHECK(func->references > 0 && !func->closing);
  --func->references;
  return napi_ok;
}
