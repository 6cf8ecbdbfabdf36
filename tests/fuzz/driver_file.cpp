// The project's driver list, from memory and from a file.
#include "files/DrvInfo.h"
#include "support/Input.h"
#include "support/Scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Scratch dir;
  const auto bytes = ExactCopy(data, size);
  const std::vector<SNDrvInfoRecord> records = ParseDrvInfo(bytes.get(), size);
  size_t used = 0;
  for (const SNDrvInfoRecord& record : records) {
    FUZZ_CHECK(record.name.find('\0') == CString::npos);
    used += record.name.size() + 5;
  }
  FUZZ_CHECK(used <= size);

  dir.MakeDir("RecData");
  dir.Write("RecData/drvinfo.dat", std::string(reinterpret_cast<const char*>(data), size));
  std::map<CString, SNDrvInfoEx> drivers;
  LoadPrjDrvInfo(dir.Path(), drivers);
  FUZZ_CHECK(drivers.size() <= records.size() && drivers.empty() == records.empty());
  for (const auto& [name, info] : drivers) FUZZ_CHECK(info.pDriver == nullptr);
  return 0;
}
