// The reply to a connect request; a second request then asks for what was not connected yet.
#include "support/FuzzCore.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  {
    Peer peer(input);
    FuzzCore core(peer);
    const std::string list = FuzzCore::TagList(input.Byte());
    const bool first = core.driver->_ConnectTag(list.c_str());
    const bool second = core.driver->_ConnectTag(list.c_str());
    FUZZ_CHECK(!first || second);  // all connected: nothing is asked
    core.ReadAll();
  }
  napi_stub::Reset();
  return 0;
}
