// The reply to a read request, for one or many tags, by way of the value that JavaScript gets.
#include "support/FuzzCore.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  {
    Peer peer(input);
    FuzzCore core(peer);
    const uint8_t count = input.Byte();
    const uint8_t options = input.Byte();
    if ((options & 1) != 0) napi_stub::FailFrom(options >> 1);
    core.driver->GetTagValue(core.env, FuzzCore::TagList(count).c_str());
    core.ReadAll();
  }
  napi_stub::Reset();
  return 0;
}
