// Tools of the tests in this folder: standard error caught in a file, and a directory that goes away by itself.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

// Sends standard error to a file from construction on; Text() ends that and gives what was written.
class CaughtStderr {
 public:
  CaughtStderr() : file_(tmpfile()), saved_(dup(STDERR_FILENO)) {
    fflush(stderr);
    dup2(fileno(file_), STDERR_FILENO);
  }
  ~CaughtStderr() { Text(); }
  CaughtStderr(const CaughtStderr&) = delete;
  CaughtStderr& operator=(const CaughtStderr&) = delete;

  std::string Text() {
    if (file_ == nullptr) return text_;
    fflush(stderr);
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    rewind(file_);
    for (int c = fgetc(file_); c != EOF; c = fgetc(file_)) text_ += static_cast<char>(c);
    fclose(file_);
    file_ = nullptr;
    return text_;
  }

 private:
  FILE* file_;
  int saved_;
  std::string text_;
};

class TempDir {
 public:
  TempDir() {
    char path[] = "/tmp/vqdb-base-test-XXXXXX";
    path_ = mkdtemp(path) != nullptr ? path : "";
  }
  ~TempDir() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  std::string Write(const std::string& name, const std::string& bytes) const {
    std::ofstream(*this / name, std::ios::binary) << bytes;
    return *this / name;
  }

 private:
  std::string path_;
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
