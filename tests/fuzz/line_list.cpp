// Line-list files: no entry is empty, none is longer than a line's 255 bytes can become.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "base/InitStringList.h"
#include "support/Input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const int fd = memfd_create("list", MFD_CLOEXEC);
  FUZZ_CHECK(fd >= 0 && write(fd, data, size) == static_cast<ssize_t>(size));
  std::vector<CString> list;
  InitStringList(("/proc/self/fd/" + std::to_string(fd)).c_str(), list);
  close(fd);
  FUZZ_CHECK(list.size() <= static_cast<size_t>(std::count(data, data + size, '\n')) + 1);
  for (const CString& entry : list) FUZZ_CHECK(entry.size() <= 255 * 2);
  return 0;
}
