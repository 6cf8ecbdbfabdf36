// A directory for one test, removed with everything in it; and the removal of a test's mirror tree.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

class TempDir {
 public:
  TempDir() {
    char name[] = "/tmp/vqdb-test-XXXXXX";
    if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = std::string(name) + "/";
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // Ends with '/'.
  const std::string& Path() const { return path_; }

  // Writes a file below the directory, with the directories it needs; returns its whole path.
  std::string Write(const std::string& name, const std::string& bytes) const {
    const std::string file = path_ + name;
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
    return file;
  }

  void MakeDir(const std::string& name) const { std::filesystem::create_directories(path_ + name); }

  bool Has(const std::string& name) const { return std::filesystem::exists(path_ + name); }

  // The content of a file below the directory; empty when there is none.
  std::string Read(const std::string& name) const {
    std::ifstream in(path_ + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }

 private:
  std::string path_;
};

// Removes the mirror of one server, before and after a test: address as given to the session.
class MirrorCleaner {
 public:
  explicit MirrorCleaner(std::string address) {
    for (char& c : address) {
      if (c == ':') c = '_';
    }
    path_ = "/tmp/vqbrowser/" + address + "/";
    Remove();
  }
  ~MirrorCleaner() { Remove(); }
  MirrorCleaner(const MirrorCleaner&) = delete;
  MirrorCleaner& operator=(const MirrorCleaner&) = delete;

  // The server's directory, ending with '/'.
  const std::string& Path() const { return path_; }

 private:
  void Remove() const {
    std::error_code ignored;
    std::filesystem::remove_all(path_.substr(0, path_.size() - 1), ignored);
  }

  std::string path_;
};
