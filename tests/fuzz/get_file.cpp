// A whole file transfer into a directory: whatever the server sends, nothing but the file and its ".gz" companion ever
// stands there, and they hold no more than was sent.
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <filesystem>
#include <fstream>

#include "files/GetFile.h"
#include "support/Peer.h"
#include "support/Scratch.h"

namespace {

namespace fs = std::filesystem;

class Progress : public IGetFileCB {
 public:
  void OnProgress(int bytes, int done) override {
    FUZZ_CHECK(bytes > 0 && !finished_);
    finished_ = done != 0;
  }

 private:
  bool finished_ = false;
};

void Hold(const std::string& path, uint8_t bytes, time_t modified) {
  std::ofstream(path, std::ios::binary) << std::string(bytes, 'x');
  const utimbuf times{modified, modified};
  utime(path.c_str(), &times);
}

void CheckAndClear(const std::string& dir, size_t bound) {
  for (const fs::directory_entry& entry : fs::directory_iterator(dir)) {
    const std::string name = entry.path().filename();
    FUZZ_CHECK(name == "F" || name == "F.gz");
    struct stat64 now {};  // not the library's file_size: where it was built with 32-bit times it fails from 2038 on
    FUZZ_CHECK(stat64(entry.path().c_str(), &now) == 0 && static_cast<uint64_t>(now.st_size) <= bound);
    FUZZ_CHECK(unlink(entry.path().c_str()) == 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Scratch dir;
  const std::string file = dir.Path() + "F";
  Input input(data, size);
  const uint8_t options = input.Byte();
  const uint8_t held = input.Byte();
  const uint16_t time = input.Word();
  if ((options & 1) != 0) Hold(file, held, time);
  if ((options & 2) != 0) Hold(file + ".gz", held, time);
  const uint32_t expected = (options & 4) != 0 ? time : 0xFFFFFFFF;
  const char* const prefix = (options & 8) != 0 ? "P" : nullptr;
  Progress progress;
  {
    Peer peer(input);
    CSyncSocket sock(peer.Open());
    const int result =
        GetFile("F", sock, '4', dir.Path(), expected, held, (options & 16) != 0 ? nullptr : &progress, prefix);
    FUZZ_CHECK(result == 0 || result == 1);
  }
  CheckAndClear(dir.Path(), size + held);
  return 0;
}
