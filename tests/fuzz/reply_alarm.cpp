// The reply to an alarm subscription with the two lists that it fetches, and the alarms that are handed over at once.
#include "support/FuzzCore.h"
#include "support/Scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Scratch dir;
  dir.MakeDir("RecData");
  Input input(data, size);
  {
    Peer peer(input);
    FuzzCore core(peer);
    core.projectPath = dir.Path();
    const uint8_t options = input.Byte();
    if ((options & 2) != 0) napi_stub::ThrowInCallbacks();
    if ((options & 4) != 0) napi_stub::FailFrom(options >> 3);
    const int result = core._SetRtAlarmNotify(napi_stub::Function(), (options & 1) != 0);
    FUZZ_CHECK(result == CDBCore::kSubscribed || result == CDBCore::kSubscribeFailed);
    napi_stub::DeliverQueued();
  }
  napi_stub::Reset();
  dir.Clear();
  return 0;
}
