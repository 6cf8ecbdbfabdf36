// Tag names to ids: a list in batches, one name alone, and the confirmation of an unadvise.
#include "support/FuzzCore.h"

namespace {

void Resolve(FuzzCore& core, const std::string& list) {
  std::vector<CDBDriver::STag*> tags;
  const CString text(list);
  core.driver->CheckTagId(text.c_str(), tags);
  const CDBDriver::STag* const begin = core.driver->tags.data();
  for (const CDBDriver::STag* tag : tags) FUZZ_CHECK(tag == nullptr || (tag >= begin && tag < begin + FuzzCore::kTags));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  {
    Peer peer(input);
    FuzzCore core(peer);
    core.driver->tagIds.clear();
    Resolve(core, input.Segment());
    const std::string name = input.Segment();
    const uint16_t id = core.driver->GetTagId(name.c_str());
    FUZZ_CHECK(core.driver->GetTagId(name.c_str()) == id);
    Resolve(core, "A,B , C,,D," + name);
    core.UnadviseTag(id);
  }
  napi_stub::Reset();
  return 0;
}
