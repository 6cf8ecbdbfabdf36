// How many bytes the C library's allocator has given out, over all its arenas: an add-on with the one function inUse.
#include <malloc.h>
#include <node_api.h>

namespace {

napi_value InUse(napi_env env, napi_callback_info) {
  const struct mallinfo2 info = mallinfo2();
  napi_value result = nullptr;
  napi_create_double(env, static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd), &result);
  return result;
}

}  // namespace

NAPI_MODULE_INIT() {
  napi_value function = nullptr;
  napi_create_function(env, "inUse", NAPI_AUTO_LENGTH, InUse, nullptr, &function);
  napi_set_named_property(env, exports, "inUse", function);
  return exports;
}
