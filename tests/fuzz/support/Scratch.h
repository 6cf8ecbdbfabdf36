// The process's directory in memory, gone with it: harnesses write files many times a second. Its name holds the
// process id, so that whoever started a process that crashed can remove it.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/Input.h"

class Scratch {
 public:
  Scratch() {
    const std::string memory = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    path_ = memory + "/vqdb-fuzz-" + std::to_string(getpid()) + "/";
    std::filesystem::remove_all(path_);
    FUZZ_CHECK(std::filesystem::create_directory(path_));
  }
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  // Ends with '/'.
  const std::string& Path() const { return path_; }

  void MakeDir(const std::string& name) const { std::filesystem::create_directory(path_ + name); }

  void Write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path_ + name, std::ios::binary | std::ios::trunc) << bytes;
  }

  // Removes everything in the directory.
  void Clear() const {
    for (const auto& entry : std::filesystem::directory_iterator(path_)) std::filesystem::remove_all(entry.path());
  }

 private:
  std::string path_;
};
