#include "files/DrvInfo.h"

#include <fcntl.h>

#include <algorithm>
#include <memory>
#include <new>

#include "base/Wire.h"
#include "base/XFile.h"

namespace {

constexpr char kDrvInfoName[] = "RecData/drvinfo.dat";
constexpr size_t kMinDrvInfoBytes = 5;  // one record with an empty name; a file of 4 bytes holds none
constexpr size_t kIdAndCountBytes = 4;

}  // namespace

std::vector<SNDrvInfoRecord> ParseDrvInfo(const uint8_t* bytes, size_t size) {
  std::vector<SNDrvInfoRecord> records;
  const uint8_t* const end = bytes + size;
  const uint8_t* at = bytes;
  while (at < end && records.size() < kMaxDrvInfoRecords) {
    const uint8_t* const zero = std::find(at, end, uint8_t{0});
    if (zero == end || static_cast<size_t>(end - zero - 1) < kIdAndCountBytes) break;
    SNDrvInfoRecord record;
    record.name.assign(at, zero);
    record.id = wire::LoadU16(zero + 1);
    record.tagCount = wire::LoadU16(zero + 3);
    records.push_back(std::move(record));
    at = zero + 1 + kIdAndCountBytes;
  }
  return records;
}

std::vector<SNDrvInfoRecord> ReadDrvInfo(const CString& prjDir) {
  XFile file;
  if (!file.OpenT(CString(prjDir + kDrvInfoName).c_str(), O_RDONLY, false)) return {};
  const unsigned int size = file.GetFileSize();
  if (size < kMinDrvInfoBytes || size > kMaxDrvInfoBytes) return {};
  const std::unique_ptr<uint8_t[]> bytes(new (std::nothrow) uint8_t[size]);
  if (bytes == nullptr) return {};
  const int count = file.Read(bytes.get(), size);  // a file cut meanwhile gives fewer
  return count > 0 ? ParseDrvInfo(bytes.get(), static_cast<size_t>(count)) : std::vector<SNDrvInfoRecord>{};
}
