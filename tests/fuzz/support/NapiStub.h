// A stand-in for Node-API: values are small records that live until the run ends, thread-safe functions are queues that
// are emptied on demand. It also watches the rules that Node.js aborts for: a thread-safe function is never used after
// its last release or after it has answered napi_closing.
#pragma once

#include <node_api.h>

#include <string>
#include <vector>

namespace napi_stub {

// Frees all values and functions; nothing fails any more. Call it at the end of a run, when no other thread is left.
// Messages still queued are handed back without an environment, as Node.js does when it ends.
void Reset();

// From the nth call on (0: the next) every call that can fail does, with the message of a wrong argument.
void FailFrom(int calls);

// Callbacks throw.
void ThrowInCallbacks();

// What queueing a message answers from now on.
void AnswerQueueing(napi_status status);

// Runs the queued messages; returns how many.
size_t DeliverQueued();

napi_env Env();
napi_value String(const std::string& text);
napi_value Number(double number);
napi_value Boolean(bool value);
napi_value Null();
napi_value Function();
napi_value Array(const std::vector<napi_value>& elements);

}  // namespace napi_stub
