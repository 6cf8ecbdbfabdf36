// FakeNapi: one JavaScript environment for tests, behind the napi_... functions that the driver objects and the core
// call. Values are tiny C++ objects, functions are lambdas, and thread-safe functions are queues that the test drains
// on its own thread. It keeps Node-API's rules on the last error and on pending exceptions, and fails the test on
// misuse: a call from a wrong thread, a thread-safe function touched after its last reference was given up.
// Threads: everything on the thread that made the object, but the calls and releases of thread-safe functions.
#pragma once

#include <node_api.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

class FakeNapi;

struct napi_threadsafe_function__ {
  // As given at creation.
  FakeNapi* owner = nullptr;
  napi_value callback = nullptr;
  bool asyncResource = false;
  std::string name;
  size_t maxQueue = 0;
  size_t initialThreads = 0;
  bool finalizer = false;
  void* context = nullptr;
  napi_threadsafe_function_call_js callJs = nullptr;

  // Guarded by the owner's lock.
  std::deque<void*> queue;
  size_t threads = 0;
  bool closing = false;
  int released = 0;  // releases with napi_tsfn_release
  int order = 0;     // which of all releases of functions the last one was, from 1
  int aborted = 0;   // and with napi_tsfn_abort
  int blocking = 0;  // calls that would have been allowed to wait
  int refused = 0;   // calls answered with napi_closing or an injected failure
};

class FakeNapi {
 public:
  using Args = std::vector<napi_value>;
  using Body = std::function<void(const Args&)>;

  FakeNapi();
  ~FakeNapi();
  FakeNapi(const FakeNapi&) = delete;
  FakeNapi& operator=(const FakeNapi&) = delete;

  napi_env Env();

  // --- values
  napi_value Undefined();
  napi_value Null();
  napi_value Boolean(bool value);
  napi_value Number(double value);
  napi_value Text(const std::string& utf8);
  napi_value Object();
  napi_value Array(const std::vector<napi_value>& elements);
  napi_value Function(Body body);
  napi_value Global();

  // An array element whose reading throws.
  napi_value ThrowingElement(const std::string& message);

  // A value as text: 3, 1.5, 'text', true, undefined, null, [1, <unset>, 'x'], Date(1000), object, function; and
  // "nothing" for a null handle.
  static std::string Show(napi_value value);

  // A function that notes each call as "(a, b)" in calls, with "not-global: " in front for another `this`.
  napi_value Recorder();
  std::vector<std::string> calls;

  // --- exceptions
  void Throw(const std::string& message);
  bool Pending() const { return pending_ != nullptr; }
  std::string TakeException();        // message of the pending exception, which goes; empty without one
  std::vector<std::string> uncaught;  // handed to napi_fatal_exception

  // Lets the call number skip + 1 of a function fail, once. message null: there is no error message.
  void Fail(const std::string& function, const char* message = "Injected failure", int skip = 0,
            napi_status status = napi_generic_failure);

  // Names of the functions called so far on this thread, in order.
  std::vector<std::string> log;

  // --- thread-safe functions
  size_t Functions() const;
  napi_threadsafe_function__ FunctionAt(size_t index) const;  // its present state
  size_t Queued() const;                                      // messages waiting, all functions together
  size_t QueuedEver() const;                                  // messages accepted since the beginning
  bool WaitQueuedEver(size_t count);                          // until that many have been accepted; bounded
  size_t Drain();                                             // delivers what waits at its beginning; returns how many
  void CloseFunctions();                                      // further calls are answered with napi_closing
  void EndEnvironment();  // as CloseFunctions; queued messages go without environment

  // --- for the napi_... functions
  napi_status Enter(const char* function, bool needsNoException = false);
  napi_status Done(napi_status status, const char* message = nullptr);
  napi_value Make(struct napi_value__ value);
  void Misuse(const std::string& what);
  bool TakeFailure(const std::string& function, napi_status* status, const char** message);

  napi_value pending_ = nullptr;
  napi_extended_error_info lastError_{};
  std::set<std::string> messages_;  // what lastError_ has ever pointed to: Node-API's messages stay valid
  std::vector<std::unique_ptr<napi_threadsafe_function__>> functions_;
  mutable std::mutex mutex_;  // guards functions_ and what they hold, queuedEver_, releases_ and failures_
  std::condition_variable queued_;
  size_t queuedEver_ = 0;
  int releases_ = 0;

 private:
  struct Failure {
    std::string function;
    std::string message;
    bool hasMessage;
    int skip;
    napi_status status;
  };

  bool NextMessage(napi_threadsafe_function* function, void** data, bool* withoutEnvironment);

  std::unique_ptr<struct napi_env__> env_;
  std::vector<std::unique_ptr<napi_value__>> values_;
  napi_value global_ = nullptr;
  std::vector<Failure> failures_;
  std::string failureText_;
  std::thread::id thread_ = std::this_thread::get_id();
};
