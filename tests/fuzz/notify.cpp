// Chunks of notification records, walked as the receive thread does, with tags of every type and an alarm subscription.
// Each chunk is an exact block, so that a record which is read past its chunk is seen.
#include "support/FuzzCore.h"

namespace {

constexpr size_t kMaxChunk = CDBCore::kChunkSize;

void Walk(FuzzCore& core, const std::string& bytes) {
  const size_t size = std::min(bytes.size(), kMaxChunk);
  const auto chunk = ExactCopy(bytes.data(), size);
  for (size_t offset = 0; offset < size;) {
    const int taken = core.OnDBNotify(chunk.get() + offset, size - offset);
    FUZZ_CHECK(taken >= 3);
    FUZZ_CHECK(taken >= CDBCore::kDropChunk || static_cast<size_t>(taken) <= kMaxChunk);
    offset += static_cast<size_t>(taken);
  }
}

void Prepare(FuzzCore& core, uint8_t options) {
  core.textList = {"high", "low"};
  core.tagList = {"pump"};
  if ((options & 1) != 0) core.driver->SetCBFunc(core.env, napi_stub::Function());
  if ((options & 2) != 0) core._SetRtAlarmNotify(napi_stub::Function(), false);  // answered by the first segments
  if ((options & 4) != 0) napi_stub::ThrowInCallbacks();
  if ((options & 8) != 0) napi_stub::AnswerQueueing((options & 16) != 0 ? napi_closing : napi_queue_full);
  if ((options & 32) != 0) napi_stub::FailFrom(options >> 6);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  {
    Peer peer(input);
    FuzzCore core(peer);
    Prepare(core, input.Byte());
    while (!input.Empty()) Walk(core, input.Segment());
    napi_stub::DeliverQueued();
    core.ReadAll();
  }
  napi_stub::Reset();
  return 0;
}
